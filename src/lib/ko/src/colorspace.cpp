// The colour spaces and their matrices: constants alone.
#include "ko/colorspace.h"

namespace {

constexpr int spaces = 3;

constexpr const char *names[spaces] = {"RGB", "YIQ", "GRAY"};

// clang-format off
#define KO_ALL_ONES {1.0f, 1.0f, 1.0f, 1.0f, 1.0f, 1.0f, 1.0f, 1.0f, 1.0f}
constexpr float matrices[spaces][spaces][9] = {
    {KO_ALL_ONES,
     {0.299f, 0.587f, 0.114f, 0.596f, -0.275f, -0.321f, 0.212f, -0.523f, 0.311f},
     {0.299f, 0.587f, 0.114f, 0.0f}},
    {{1.0f, 0.956f, 0.621f, 1.0f, -0.272f, -0.647f, 1.0f, -1.105f, 1.702f},
     KO_ALL_ONES,
     {0.0f}},
    {{0.0f},
     {0.0f},
     KO_ALL_ONES}};
#undef KO_ALL_ONES
// clang-format on

} // namespace

uint8_t KoColorSpaceGetDepth(int32_t space) { return space == KO_COLORSPACE_RGB || space == KO_COLORSPACE_YIQ ? 3 : 1; }

const char *KoColorSpaceGetName(int32_t space) { return space >= 0 && space < spaces ? names[space] : ""; }

const float *KoColorSpaceGetConversionMatrix(int32_t from, int32_t to) { return matrices[from][to]; }
