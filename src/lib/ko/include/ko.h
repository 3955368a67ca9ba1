/*
 * ko: automatic improvement of photographs. This header includes the whole public interface; each family's header can be
 * included alone.
 */
#ifndef KO_H
#define KO_H

#include "ko/version.h"
#include "ko/lifecycle.h"
#include "ko/error.h"
#include "ko/memory.h"
#include "ko/vector.h"
#include "ko/matrix_float.h"
#include "ko/matrix_integer.h"
#include "ko/realimage.h"
#include "ko/byteimageiterator.h"
#include "ko/colorspace.h"
#include "ko/colorimage.h"
#include "ko/resample.h"
#include "ko/imageformat.h"
#include "ko/applyfunction.h"
#include "ko/blockapply.h"
#include "ko/trc.h"
#include "ko/histogram.h"
#include "ko/trccompress.h"
#include "ko/colortrc.h"
#include "ko/tiletrc.h"
#include "ko/tiletrcapply.h"
#include "ko/tilecolortrc.h"
#include "ko/tilecolortrcapply.h"
#include "ko/kernel.h"
#include "ko/convolution.h"
#include "ko/kernelgaussian.h"
#include "ko/bilateralfilter.h"
#include "ko/localcontrastenhancement.h"
#include "ko/concomp.h"
#include "ko/orientationhistogram.h"
#include "ko/redeyecorrection.h"

#endif
