// The layout of the records that hosts share with the library: sizes and offsets are part of the interface on every system
// whose pointers have 64 bits. Elsewhere, as in WebAssembly, pointers are narrower, and hosts are compiled with the library.
#include <cstddef>

#include "ko/byteimageiterator.h"
#include "ko/colorimage.h"
#include "ko/colortrc.h"
#include "ko/concomp.h"
#include "ko/error.h"
#include "ko/histogram.h"
#include "ko/kernelgaussian.h"
#include "ko/localcontrastenhancement.h"
#include "ko/matrix_float.h"
#include "ko/matrix_integer.h"
#include "ko/orientationhistogram.h"
#include "ko/realimage.h"
#include "ko/redeyecorrection.h"
#include "ko/tilecolortrc.h"
#include "ko/tilecolortrcapply.h"
#include "ko/tiletrc.h"
#include "ko/tiletrcapply.h"
#include "ko/trc.h"
#include "ko/trccompress.h"
#include "ko/vector.h"

#define KO_RECORD(record, size) static_assert(sizeof(void *) != 8 || sizeof(record) == (size))
#define KO_FIELD(record, field, offset) static_assert(sizeof(void *) != 8 || offsetof(record, field) == (offset))

KO_RECORD(ByteImageIterator, 88);
KO_FIELD(ByteImageIterator, width, 0);
KO_FIELD(ByteImageIterator, height, 8);
KO_FIELD(ByteImageIterator, layout, 16);
KO_FIELD(ByteImageIterator, color_space, 20);
KO_FIELD(ByteImageIterator, pixel_increment, 24);
KO_FIELD(ByteImageIterator, line_increment, 32);
KO_FIELD(ByteImageIterator, red, 40);
KO_FIELD(ByteImageIterator, green, 48);
KO_FIELD(ByteImageIterator, blue, 56);
KO_FIELD(ByteImageIterator, next_line_red, 64);
KO_FIELD(ByteImageIterator, next_line_green, 72);
KO_FIELD(ByteImageIterator, next_line_blue, 80);

KO_RECORD(ColorImage, 24);
KO_FIELD(ColorImage, depth, 0);
KO_FIELD(ColorImage, color_space, 8);
KO_FIELD(ColorImage, planes, 16);

KO_RECORD(ColorImageLineIterator, 224);
KO_FIELD(ColorImageLineIterator, image, 0);
KO_FIELD(ColorImageLineIterator, red, 8);
KO_FIELD(ColorImageLineIterator, green, 80);
KO_FIELD(ColorImageLineIterator, blue, 152);

KO_RECORD(ColorTRC, 16);
KO_FIELD(ColorTRC, depth, 0);
KO_FIELD(ColorTRC, curves, 8);

KO_RECORD(BlobInfo, 20);
KO_FIELD(BlobInfo, min_x, 0);
KO_FIELD(BlobInfo, max_x, 4);
KO_FIELD(BlobInfo, min_y, 8);
KO_FIELD(BlobInfo, max_y, 12);
KO_FIELD(BlobInfo, area, 16);

KO_RECORD(MessageCatalog, 16);
KO_FIELD(MessageCatalog, texts, 8);

KO_RECORD(Histogram, 32);
KO_FIELD(Histogram, size, 0);
KO_FIELD(Histogram, minValue, 4);
KO_FIELD(Histogram, maxValue, 8);
KO_FIELD(Histogram, scale, 12);
KO_FIELD(Histogram, numPixels, 16);
KO_FIELD(Histogram, values, 24);

KO_RECORD(KernelGaussian, 168);
KO_FIELD(KernelGaussian, sigma, 0);
KO_FIELD(KernelGaussian, width, 8);
KO_FIELD(KernelGaussian, storage, 16);
KO_FIELD(KernelGaussian, coefficients, 24);
KO_FIELD(KernelGaussian, mode, 32);
KO_FIELD(KernelGaussian, a3, 40);
KO_FIELD(KernelGaussian, a2, 48);
KO_FIELD(KernelGaussian, a1, 56);
KO_FIELD(KernelGaussian, scale, 64);
KO_FIELD(KernelGaussian, backA1, 72);
KO_FIELD(KernelGaussian, backA2, 80);
KO_FIELD(KernelGaussian, backA3, 88);
KO_FIELD(KernelGaussian, boundary, 96);

KO_RECORD(DecisionMechanismThreshold, 32);
KO_FIELD(DecisionMechanismThreshold, score, 0);
KO_FIELD(DecisionMechanismThreshold, noisyBlocks, 8);
KO_FIELD(DecisionMechanismThreshold, lowDetailBlocks, 16);
KO_FIELD(DecisionMechanismThreshold, lowEntropyBlocks, 24);

KO_RECORD(LocalContrastEnhancementImageFeatures, 4416);
KO_FIELD(LocalContrastEnhancementImageFeatures, trcSize, 0);
KO_FIELD(LocalContrastEnhancementImageFeatures, numBlocksX, 8);
KO_FIELD(LocalContrastEnhancementImageFeatures, numBlocksY, 16);
KO_FIELD(LocalContrastEnhancementImageFeatures, yiqImage, 24);
KO_FIELD(LocalContrastEnhancementImageFeatures, luminance, 32);
KO_FIELD(LocalContrastEnhancementImageFeatures, enhanced, 40);
KO_FIELD(LocalContrastEnhancementImageFeatures, chroma, 48);
KO_FIELD(LocalContrastEnhancementImageFeatures, background, 56);
KO_FIELD(LocalContrastEnhancementImageFeatures, gainStrength, 64);
KO_FIELD(LocalContrastEnhancementImageFeatures, maxGain, 68);
KO_FIELD(LocalContrastEnhancementImageFeatures, gainLimit, 72);
KO_FIELD(LocalContrastEnhancementImageFeatures, gainKnee, 76);
KO_FIELD(LocalContrastEnhancementImageFeatures, gainOffset, 80);
KO_FIELD(LocalContrastEnhancementImageFeatures, detailThreshold, 84);
KO_FIELD(LocalContrastEnhancementImageFeatures, noiseThreshold, 88);
KO_FIELD(LocalContrastEnhancementImageFeatures, entropyThreshold, 92);
KO_FIELD(LocalContrastEnhancementImageFeatures, detailScores, 96);
KO_FIELD(LocalContrastEnhancementImageFeatures, noiseScores, 104);
KO_FIELD(LocalContrastEnhancementImageFeatures, entropyScores, 112);
KO_FIELD(LocalContrastEnhancementImageFeatures, dmValues, 120);
KO_FIELD(LocalContrastEnhancementImageFeatures, keepScoring, 152);
KO_FIELD(LocalContrastEnhancementImageFeatures, proceed, 156);
KO_FIELD(LocalContrastEnhancementImageFeatures, dmThresholds, 160);
KO_FIELD(LocalContrastEnhancementImageFeatures, cubeRootTable, 320);

KO_RECORD(MatrixFloat, 40);
KO_FIELD(MatrixFloat, width, 0);
KO_FIELD(MatrixFloat, height, 8);
KO_FIELD(MatrixFloat, padding, 16);
KO_FIELD(MatrixFloat, buffer, 24);
KO_FIELD(MatrixFloat, rows, 32);

KO_RECORD(MatrixFloatRowIterator, 72);
KO_FIELD(MatrixFloatRowIterator, matrix, 0);
KO_FIELD(MatrixFloatRowIterator, x_start, 8);
KO_FIELD(MatrixFloatRowIterator, y_start, 16);
KO_FIELD(MatrixFloatRowIterator, width, 24);
KO_FIELD(MatrixFloatRowIterator, height, 32);
KO_FIELD(MatrixFloatRowIterator, next_line_increment, 40);
KO_FIELD(MatrixFloatRowIterator, line, 48);
KO_FIELD(MatrixFloatRowIterator, line_end, 56);
KO_FIELD(MatrixFloatRowIterator, end, 64);

KO_RECORD(MatrixInteger, 40);
KO_FIELD(MatrixInteger, width, 0);
KO_FIELD(MatrixInteger, height, 8);
KO_FIELD(MatrixInteger, padding, 16);
KO_FIELD(MatrixInteger, buffer, 24);
KO_FIELD(MatrixInteger, rows, 32);

KO_RECORD(PatchGeometry, 32);

KO_RECORD(HistogramLayout, 40);

KO_RECORD(RedEyePatch, 128);
KO_FIELD(RedEyePatch, blob, 0);
KO_FIELD(RedEyePatch, x0, 4);
KO_FIELD(RedEyePatch, x1, 8);
KO_FIELD(RedEyePatch, y0, 12);
KO_FIELD(RedEyePatch, y1, 16);
KO_FIELD(RedEyePatch, blob_min_x, 20);
KO_FIELD(RedEyePatch, blob_max_x, 24);
KO_FIELD(RedEyePatch, blob_min_y, 28);
KO_FIELD(RedEyePatch, blob_max_y, 32);
KO_FIELD(RedEyePatch, center_x, 36);
KO_FIELD(RedEyePatch, center_y, 40);
KO_FIELD(RedEyePatch, size, 44);
KO_FIELD(RedEyePatch, features, 48);
KO_FIELD(RedEyePatch, projected, 56);
KO_FIELD(RedEyePatch, feature_rows, 64);
KO_FIELD(RedEyePatch, projected_rows, 88);
KO_FIELD(RedEyePatch, fe_score, 112);
KO_FIELD(RedEyePatch, be_score, 116);
KO_FIELD(RedEyePatch, label, 120);

KO_RECORD(OrientationHistogram, 344);
KO_FIELD(OrientationHistogram, geometry, 0);
KO_FIELD(OrientationHistogram, layout, 8);
KO_FIELD(OrientationHistogram, patch_count, 16);
KO_FIELD(OrientationHistogram, radius, 20);
KO_FIELD(OrientationHistogram, gauss_kernel, 24);
KO_FIELD(OrientationHistogram, deriv_kernel, 32);
KO_FIELD(OrientationHistogram, spatial_weights, 40);
KO_FIELD(OrientationHistogram, spatial_index, 80);
KO_FIELD(OrientationHistogram, orientation_upper, 120);
KO_FIELD(OrientationHistogram, orientation_lower, 160);
KO_FIELD(OrientationHistogram, logistic_table, 200);
KO_FIELD(OrientationHistogram, cell_buffer, 208);
KO_FIELD(OrientationHistogram, position_table_0, 216);
KO_FIELD(OrientationHistogram, position_table_1, 224);
KO_FIELD(OrientationHistogram, position_table_2, 232);
KO_FIELD(OrientationHistogram, histogram_rows, 240);
KO_FIELD(OrientationHistogram, gradient_x, 280);
KO_FIELD(OrientationHistogram, gradient_y, 288);
KO_FIELD(OrientationHistogram, orientation_planes, 296);
KO_FIELD(OrientationHistogram, scratch, 336);

KO_RECORD(RealImageLineIterator, 72);
KO_FIELD(RealImageLineIterator, image, 0);
KO_FIELD(RealImageLineIterator, x_start, 8);
KO_FIELD(RealImageLineIterator, y_start, 16);
KO_FIELD(RealImageLineIterator, width, 24);
KO_FIELD(RealImageLineIterator, height, 32);
KO_FIELD(RealImageLineIterator, next_line_increment, 40);
KO_FIELD(RealImageLineIterator, line, 48);
KO_FIELD(RealImageLineIterator, line_end, 56);
KO_FIELD(RealImageLineIterator, end, 64);

KO_RECORD(RedEyeCorrection, 1016);
KO_FIELD(RedEyeCorrection, max_image_size, 0);
KO_FIELD(RedEyeCorrection, min_blob_size, 8);
KO_FIELD(RedEyeCorrection, min_blob_size_floor, 16);
KO_FIELD(RedEyeCorrection, blob_limits, 24);
KO_FIELD(RedEyeCorrection, too_many_blobs, 36);
KO_FIELD(RedEyeCorrection, projection_header, 40);
KO_FIELD(RedEyeCorrection, projection_rows, 44);
KO_FIELD(RedEyeCorrection, projection_dimension, 48);
KO_FIELD(RedEyeCorrection, projection_row_values, 56);
KO_FIELD(RedEyeCorrection, projection_mean, 64);
KO_FIELD(RedEyeCorrection, projection_matrix, 72);
KO_FIELD(RedEyeCorrection, classifier_dimension, 80);
KO_FIELD(RedEyeCorrection, fe_bias, 84);
KO_FIELD(RedEyeCorrection, fe_weights, 88);
KO_FIELD(RedEyeCorrection, be_bias, 96);
KO_FIELD(RedEyeCorrection, be_weights, 104);
KO_FIELD(RedEyeCorrection, patch_geometry, 112);
KO_FIELD(RedEyeCorrection, histogram_layout, 144);
KO_FIELD(RedEyeCorrection, orientation_histogram, 184);
KO_FIELD(RedEyeCorrection, fe_accept, 192);
KO_FIELD(RedEyeCorrection, fe_reject, 196);
KO_FIELD(RedEyeCorrection, be_accept, 200);
KO_FIELD(RedEyeCorrection, be_reject, 204);
KO_FIELD(RedEyeCorrection, config_path, 208);
KO_FIELD(RedEyeCorrection, projection_path, 468);
KO_FIELD(RedEyeCorrection, classifier_path, 728);
KO_FIELD(RedEyeCorrection, channel_enabled, 988);
KO_FIELD(RedEyeCorrection, channel_count, 1000);
KO_FIELD(RedEyeCorrection, log_stream, 1008);

KO_RECORD(RedEyeImageParam, 240);
KO_FIELD(RedEyeImageParam, image, 0);
KO_FIELD(RedEyeImageParam, working_image, 8);
KO_FIELD(RedEyeImageParam, scale, 16);
KO_FIELD(RedEyeImageParam, reddish_map, 24);
KO_FIELD(RedEyeImageParam, red_lum_map, 32);
KO_FIELD(RedEyeImageParam, col_map, 40);
KO_FIELD(RedEyeImageParam, map_max, 48);
KO_FIELD(RedEyeImageParam, min_blob_size, 56);
KO_FIELD(RedEyeImageParam, max_blob_size, 64);
KO_FIELD(RedEyeImageParam, blob_info, 72);
KO_FIELD(RedEyeImageParam, labels, 80);
KO_FIELD(RedEyeImageParam, label_table, 88);
KO_FIELD(RedEyeImageParam, label_count, 96);
KO_FIELD(RedEyeImageParam, local_blob_info, 104);
KO_FIELD(RedEyeImageParam, local_labels, 112);
KO_FIELD(RedEyeImageParam, local_label_table, 120);
KO_FIELD(RedEyeImageParam, local_label_count, 128);
KO_FIELD(RedEyeImageParam, root_done, 136);
KO_FIELD(RedEyeImageParam, overlap, 144);
KO_FIELD(RedEyeImageParam, blob_count, 152);
KO_FIELD(RedEyeImageParam, blob_mask, 160);
KO_FIELD(RedEyeImageParam, final_blobs, 168);
KO_FIELD(RedEyeImageParam, x_starts, 176);
KO_FIELD(RedEyeImageParam, x_counts, 184);
KO_FIELD(RedEyeImageParam, y_starts, 192);
KO_FIELD(RedEyeImageParam, y_counts, 200);
KO_FIELD(RedEyeImageParam, patches, 208);
KO_FIELD(RedEyeImageParam, accepted_count, 216);
KO_FIELD(RedEyeImageParam, rejected_count, 224);
KO_FIELD(RedEyeImageParam, undecided_count, 232);

KO_RECORD(TileColorTRC, 48);
KO_FIELD(TileColorTRC, size, 0);
KO_FIELD(TileColorTRC, numStripsX, 8);
KO_FIELD(TileColorTRC, numStripsY, 16);
KO_FIELD(TileColorTRC, redArray, 24);
KO_FIELD(TileColorTRC, greenArray, 32);
KO_FIELD(TileColorTRC, blueArray, 40);

KO_RECORD(TileColorTRCApply, 88);
KO_FIELD(TileColorTRCApply, tileColorTRC, 0);
KO_FIELD(TileColorTRCApply, width, 8);
KO_FIELD(TileColorTRCApply, height, 16);
KO_FIELD(TileColorTRCApply, layout, 24);
KO_FIELD(TileColorTRCApply, tileWidth, 32);
KO_FIELD(TileColorTRCApply, tileHeight, 40);
KO_FIELD(TileColorTRCApply, rowsDone, 48);
KO_FIELD(TileColorTRCApply, band, 56);
KO_FIELD(TileColorTRCApply, bandEnd, 64);
KO_FIELD(TileColorTRCApply, debugFlags, 72);
KO_FIELD(TileColorTRCApply, xStep, 76);
KO_FIELD(TileColorTRCApply, yStep, 80);

KO_RECORD(TileTRC, 32);
KO_FIELD(TileTRC, size, 0);
KO_FIELD(TileTRC, numStripsX, 8);
KO_FIELD(TileTRC, numStripsY, 16);
KO_FIELD(TileTRC, array, 24);

KO_RECORD(TileTRCApply, 200);
KO_FIELD(TileTRCApply, tileTRC, 0);
KO_FIELD(TileTRCApply, redCurve, 8);
KO_FIELD(TileTRCApply, greenCurve, 16);
KO_FIELD(TileTRCApply, blueCurve, 24);
KO_FIELD(TileTRCApply, ratioWeight, 32);
KO_FIELD(TileTRCApply, additiveWeight, 36);
KO_FIELD(TileTRCApply, width, 40);
KO_FIELD(TileTRCApply, height, 48);
KO_FIELD(TileTRCApply, layout, 56);
KO_FIELD(TileTRCApply, color_space, 60);
KO_FIELD(TileTRCApply, tileWidth, 64);
KO_FIELD(TileTRCApply, tileHeight, 72);
KO_FIELD(TileTRCApply, tilePixels, 80);
KO_FIELD(TileTRCApply, tileStep, 88);
KO_FIELD(TileTRCApply, colorStep, 96);
KO_FIELD(TileTRCApply, groupsPerTile, 104);
KO_FIELD(TileTRCApply, firstRun, 112);
KO_FIELD(TileTRCApply, lastRun, 120);
KO_FIELD(TileTRCApply, rowsDone, 128);
KO_FIELD(TileTRCApply, bandRow, 136);
KO_FIELD(TileTRCApply, band, 144);
KO_FIELD(TileTRCApply, bandEnd, 152);
KO_FIELD(TileTRCApply, debugFlags, 160);
KO_FIELD(TileTRCApply, rowScratchBlock, 168);
KO_FIELD(TileTRCApply, rowScratch, 176);
KO_FIELD(TileTRCApply, weightTableBlock, 184);
KO_FIELD(TileTRCApply, weightTable, 192);

KO_RECORD(TRC, 16);
KO_FIELD(TRC, size, 0);
KO_FIELD(TRC, array, 8);

KO_RECORD(TRCCompress, 64);
KO_FIELD(TRCCompress, array, 0);
KO_FIELD(TRCCompress, size, 8);
KO_FIELD(TRCCompress, workspace, 16);
KO_FIELD(TRCCompress, rleRuns, 24);
KO_FIELD(TRCCompress, oneBitRuns, 32);
KO_FIELD(TRCCompress, twoBitRuns, 40);
KO_FIELD(TRCCompress, forwardPlan, 48);
KO_FIELD(TRCCompress, backwardPlan, 56);

KO_RECORD(TRCCompressRun, 16);

KO_RECORD(TRCCompressToken, 16);

KO_RECORD(Vector, 32);
KO_FIELD(Vector, data, 0);
KO_FIELD(Vector, element_size, 8);
KO_FIELD(Vector, capacity, 16);
KO_FIELD(Vector, size, 24);
