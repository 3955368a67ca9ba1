// The enhancement of one picture by the library.
#ifndef KO_HOST_ENHANCE_H
#define KO_HOST_ENHANCE_H

#include <functional>

#include "codec/codec.h"
#include "tuning.h"

namespace host {

enum class Decision { enhanced, unchanged };

// Called with the share of the rows that is done.
using RowsDone = std::function<void(double share)>;

// Enhances a picture in place. A grid with tiles too small for the picture is reduced, which is told.
// Throws LibraryError if a call of the library fails; the pixels are then as they were.
Decision enhance(codec::Picture &picture, const Tuning &tuning, codec::Notices &notices, const RowsDone &rows_done);

} // namespace host

#endif
