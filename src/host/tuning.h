// What a user may choose about the enhancement and the repair of red eyes, with the values that serve most photographs.
#ifndef KO_HOST_TUNING_H
#define KO_HOST_TUNING_H

#include <cstdint>
#include <string>

namespace host {

struct Grid {
    uint64_t columns = 8;
    uint64_t rows = 8;
};

struct Tuning {
    Grid grid;
    uint64_t curve_size = 256;
    float max_gain = 3.0f;
    float strength = 40.0f;
    float limit = 0.6275f;
    uint64_t levels = 5;
    float ratio = 0.5f;
};

// Which pictures are enhanced; the numbers are the library's. A picture passes that keeps within the limits of the policy or of
// one before it.
enum class Policy : int32_t { conservative = 1, standard = 2, risky = 3, always = 4 };

// The score of a caller who has none.
inline constexpr float no_score = -1.0f;

struct Judging {
    Policy policy = Policy::standard;
    float score = no_score;
};

struct RedEyeChoices {
    std::string model;   // the model's configuration, or ""
    bool full = false;   // repair every patch entirely, whatever its label
    bool frames = false; // draw a frame around each patch
    std::string dump;    // a folder for the patch files, or ""
    bool log = false;    // show the library's progress
};

} // namespace host

#endif
