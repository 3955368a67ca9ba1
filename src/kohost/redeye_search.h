// The search for places that could be red eyes. The library looks for round spots of some sizes on a working image; the search
// lets it look four times, so that it sees spots of more sizes, and such as lie near the edge of the picture.
#ifndef KO_KOHOST_REDEYE_SEARCH_H
#define KO_KOHOST_REDEYE_SEARCH_H

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "ko.hpp"
#include "kohost/pixels.h"
#include "kohost/shape.h"

namespace kohost {

// Most pixels of a picture that the search has a use for: the library would reduce a larger one.
inline constexpr uint64_t search_area = 1'000'000;

// A place that one look found.
struct Candidate {
    Shape shape;
    float fe_score = 0.0f; // of the model's classifiers
    float be_score = 0.0f;
    std::vector<float> features; // what the classifiers saw, if that is wanted
};

struct Findings {
    std::vector<Candidate> candidates;
    uint64_t places = 0;   // the most that a look found
    uint64_t limit = 0;    // most places that a look may find to be of use
    bool too_many = false; // no look was of use
};

// Looks through a picture of three channels. The library's progress goes to log, if it is not null. Throws ko::Error.
Findings search(const Pixels &picture, const std::string &model, bool features, std::FILE *log);

// ---- steps of a look

inline constexpr const char *search_fails = "the red eyes cannot be found";

ko::RedEyeCorrectionPtr make_correction(const std::string &model, std::FILE *log);

// The library's stages up to the location of blobs. Sets the record's too_many_blobs.
ko::RedEyeImageParamPtr locate(RedEyeCorrection &correction, ColorImage &image, const std::string &what);

// The number of patches that the last categorisation made.
uint32_t patch_count(const RedEyeCorrection &correction);

} // namespace kohost

#endif
