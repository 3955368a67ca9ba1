// What the files of the red-eye correction share: the patches (redeyeimageparam.cpp), the maps (redeye_maps.cpp), the model
// (redeye_model.cpp), the repair (redeye_repair.cpp), and the log.
#ifndef KO_SRC_REDEYE_H
#define KO_SRC_REDEYE_H

#include <cstdio>

#include "ko/redeyecorrection.h"

namespace ko {

// Writes a progress line if the host wants any.
template <class... Argument> void log_line(const RedEyeCorrection *rec, const char *format, Argument... arguments) {
    if (rec->log_stream != nullptr) {
        std::fprintf(rec->log_stream, format, arguments...);
    }
}

// Ends the patches of a picture. They are as many as blob_count says: whoever changes that ends them first.
void free_patches(RedEyeImageParam *param);

// The colour maps of Reddish and RedLum: the weighted sum of the channels where it is above 0. normalize scales to a maximum
// of 1; a map without a positive pixel becomes NaN.
[[nodiscard]] int32_t make_reddish_map(RedEyeImageParam *param, bool normalize);
[[nodiscard]] int32_t make_red_lum_map(RedEyeImageParam *param, bool normalize);

// Reads the configuration and the model's files anew, and lets go of the earlier model. fe_count receives the weights of the
// first classifier; the record keeps the number of the second one's.
[[nodiscard]] int32_t KoRedEyeReadCategorizerConfig(RedEyeCorrection *rec, uint32_t *fe_count);

// Repairs the blobs of the first patch_count patches in image, which has the proportions of the picture.
[[nodiscard]] int32_t KoRedEyeCorrectBlobs(const RedEyeImageParam *param, const RealImage *map, int32_t patch_count,
                                           bool full_strength, ColorImage *image);

} // namespace ko

#endif
