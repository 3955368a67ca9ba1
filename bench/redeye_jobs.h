// Jobs of the red-eye correction: the labelling that it rests on, and the search up to the location of blobs.
#ifndef KO_BENCH_REDEYE_JOBS_H
#define KO_BENCH_REDEYE_JOBS_H

#include <cstdint>
#include <memory>
#include <vector>

#include "inputs.h"

namespace ko_bench {

// A map of round blobs of several sizes, with noise pixels between them, and dark elsewhere.
RealImagePtr spotted_map(Size size, double lit_share);

// The labelling of a spotted map of 1 megapixel, with the boxes and areas of its components.
class Labelling {
  public:
    static constexpr Size size{1000, 1000};
    static constexpr float threshold = 0.1f;

    Labelling();

    const RealImage *map() const { return map_.get(); }

    // Returns the number of components.
    uint32_t run();

  private:
    RealImagePtr map_;
    std::vector<int32_t> labels_;
    std::vector<uint32_t> table_;
    std::vector<BlobInfo> blobs_;
};

// Searches a picture for blobs that may be red eyes. Returns the record that holds them, null on failure.
RedEyeImageParamPtr locate(ColorImage *image);

} // namespace ko_bench

#endif
