// The whole enhancement of a picture, as a host does it, and the curves on its way.
#ifndef KO_BENCH_ENHANCEMENT_JOB_H
#define KO_BENCH_ENHANCEMENT_JOB_H

#include <cstdint>
#include <vector>

#include "inputs.h"

namespace ko_bench {

// What a call for curves leaves: curves if the decision was yes, and scores if the picture was judged.
struct Outcome {
    FeaturesPtr features;
    TileTRCPtr curves;
};

// A call for curves with the default gain on an 8 by 8 grid.
Outcome decide(ColorImage *image, float score, int32_t configuration, int32_t keep_scoring);

// The curves of the photograph of 1 megapixel as the enhancement gives them: 256 entries, an 8 by 8 grid. Null on failure.
TileTRCPtr photograph_curves();

// From interleaved RGB bytes to enhanced bytes, with the default curves on an 8 by 8 grid. Returns true on success.
bool enhance(Size size, const std::vector<uint8_t> &input, std::vector<uint8_t> &output);

} // namespace ko_bench

#endif
