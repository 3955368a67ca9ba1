// What a user may choose about the enhancement and the repair of red eyes, with the values that serve most photographs.
#ifndef KO_KOHOST_TUNING_H
#define KO_KOHOST_TUNING_H

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <optional>
#include <string>

namespace kohost {

struct Grid {
    uint64_t columns = 8;
    uint64_t rows = 8;
};

inline constexpr uint64_t default_working_area = 500'000;

struct Tuning {
    Grid grid;
    uint64_t curve_size = 256;
    float max_gain = 3.0f;
    float strength = 40.0f;
    float limit = 0.6275f;
    uint64_t levels = 5;
    float ratio = 0.5f;
    uint64_t working_area = default_working_area; // pixels of the working copy, about
    std::optional<uint32_t> max_slope;            // most levels between neighbouring entries of a curve; 0 is any number

    // Without a choice, the difference that the gain makes between neighbouring levels in the deepest shadows, and at least 3:
    // a smaller limit would close shadows again, a larger one leaves jumps.
    uint32_t slope_limit() const { return max_slope.value_or(std::max(3u, static_cast<uint32_t>(std::ceil(max_gain)))); }
};

// Which pictures are enhanced; the numbers are the library's. A picture passes if it is within the limits of the policy or of
// one before it.
enum class Policy : int32_t { conservative = 1, standard = 2, risky = 3, always = 4 };

// The score of a caller who has none.
inline constexpr float no_score = -1.0f;

struct Judging {
    Policy policy = Policy::standard;
    float score = no_score;
};

// How readily a place counts as a red eye.
enum class Sensitivity { careful, standard, eager };

struct RedEyeChoices {
    std::string model = ""; // the model's configuration, or ""
    Sensitivity sensitivity = Sensitivity::standard;
    bool plain = false;    // as the library does it alone
    bool full = false;     // repair every place, whatever its label
    bool frames = false;   // draw a frame around each place
    std::string dump = ""; // a folder for the patch files of a plain repair, or ""
    bool log = false;      // show the library's progress
};

} // namespace kohost

#endif
