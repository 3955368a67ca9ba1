// The repair: each pixel of a blob on the working image pulls its block of the picture toward a neutral value made from green
// and blue, by a strength from the patch's label and the map. And the frames around patches, for a look at what was found.
#include <algorithm>
#include <cmath>

#include "alloc.h"
#include "matrix.h"
#include "redeye.h"
#include "report.h"

namespace ko {

namespace {

// The pixels of the picture that belong to one of the map.
struct PixelBlock {
    uint64_t x;
    uint32_t columns;
    uint64_t y;
    uint32_t rows;
};

// The blocks of a picture that belong to the cells of a map, in one direction.
struct Blocks {
    Block<uint32_t> counts;
    Block<uint64_t> starts;

    Blocks(uint64_t small, uint64_t large) : counts(allocate<uint32_t>(small)), starts(allocate<uint64_t>(small)) {
        if (counts && starts) {
            _KoGetUpsampleD(small, large, counts.get(), starts.get());
        }
    }

    explicit operator bool() const { return counts && starts; }
};

// Moves three planes of a block toward (4 times second plus third) over 5; the order of the planes makes that the weights of
// blue and green.
void KoRedEyeRepairBlock(const PixelBlock &block, RealImage *first, RealImage *second, RealImage *third, float strength) {
    const float keep = 1.0f - strength;
    for (uint64_t y = block.y; y < block.y + block.rows; ++y) {
        for (uint64_t x = block.x; x < block.x + block.columns; ++x) {
            float &f = first->rows[y][x];
            float &g = second->rows[y][x];
            float &h = third->rows[y][x];
            const float mix = (g * 4.0f + h) * 0.2f * strength;
            f = keep * f + mix;
            g = keep * g + mix;
            h = keep * h + mix;
        }
    }
}

// A rejected patch has strength 0 and is passed through the repair all the same.
float strength_of(const RedEyePatch &patch, float share, bool full_strength) {
    if (full_strength) {
        return 1.0f;
    }
    if (patch.label == KO_PATCH_UNDECIDED) {
        return share;
    }
    if (patch.label != KO_PATCH_ACCEPTED) {
        return 0.0f;
    }
    const float raised = share + 0.25f;
    return raised > 1.0f ? 1.0f : static_cast<float>(std::sqrt(static_cast<double>(raised)));
}

// Walks a blob up to its last pixel; one that lost pixels to a later blob is walked to the end of its box.
void repair_patch(const RedEyeImageParam *param, const RealImage *map, const RedEyePatch &patch, const Blocks &across,
                  const Blocks &down, bool full_strength, ColorImage *image) {
    const BlobInfo &blob = param->final_blobs[patch.blob];
    uint32_t done = 0;
    for (uint64_t y = blob.min_y; y <= blob.max_y; ++y) {
        for (uint64_t x = blob.min_x; x <= blob.max_x; ++x) {
            if (param->blob_mask[y * map->width + x] != patch.blob) {
                continue;
            }
            const float strength = strength_of(patch, KoRealImageGetPixel(map, x, y) / param->map_max, full_strength);
            KoRedEyeRepairBlock({across.starts[x], across.counts[x], down.starts[y], down.counts[y]}, &image->planes[0],
                                &image->planes[2], &image->planes[1], strength);
            if (++done == blob.area) {
                return;
            }
        }
    }
}

// The patches that were labelled in this picture, at most as many as the last reading of a model counted: that count may be
// another picture's, and a slot behind them may hold what is left of a blob that got no patch.
uint64_t patches_of(const RedEyeImageParam *param, int32_t patch_count) {
    const uint64_t labelled = param->accepted_count + param->rejected_count + param->undecided_count;
    const int32_t slots = param->patches != nullptr ? std::max(0, std::min(patch_count, param->blob_count)) : 0;
    return std::min(static_cast<uint64_t>(slots), labelled);
}

// ---- frames

struct Color {
    float values[3];
};

Color unpacked(int32_t packed) {
    const auto part = [=](int shift) { return static_cast<float>(static_cast<uint32_t>(packed) >> shift & 255); };
    return {{part(16), part(8), part(0)}};
}

void set_run(ColorImage *image, uint64_t y, uint64_t x0, uint64_t x1, const Color &color) {
    for (uint32_t c = 0; c < 3; ++c) {
        for (uint64_t x = x0; x < x1; ++x) {
            KoRealImageSetPixel(&image->planes[c], x, y, color.values[c]);
        }
    }
}

// The column x1 and the row y1 stay outside.
void KoRedEyeDrawFrame(const RedEyePatch &patch, uint64_t thickness, const Color &color, ColorImage *image) {
    const uint64_t down = std::min<uint64_t>((patch.y1 - patch.y0) / 2, thickness);
    const uint64_t across = std::min<uint64_t>((patch.x1 - patch.x0) / 2, thickness);
    for (uint64_t y = patch.y0; y < patch.y1; ++y) {
        if (y < patch.y0 + down || y >= patch.y1 - down) {
            set_run(image, y, patch.x0, patch.x1, color);
        } else {
            set_run(image, y, patch.x0, patch.x0 + across, color);
            set_run(image, y, patch.x1 - across, patch.x1, color);
        }
    }
}

} // namespace

int32_t KoRedEyeCorrectBlobs(const RedEyeImageParam *param, const RealImage *map, int32_t patch_count, bool full_strength,
                             ColorImage *image) {
    if (map == nullptr || KoColorImageGetImage(image, 2) == nullptr) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_INVALID_ARGUMENT);
    }
    const Blocks across(map->width, KoColorImageGetWidth(image));
    const Blocks down(map->height, KoColorImageGetHeight(image));
    if (!across || !down) {
        return KoErrorGetLastError();
    }
    for (uint64_t p = 0; p < patches_of(param, patch_count); ++p) {
        repair_patch(param, map, param->patches[p], across, down, full_strength, image);
    }
    return KO_OK;
}

} // namespace ko

using namespace ko;

int32_t KoRedEyeCorrectionAddPatchBoundingBoxes(RedEyeCorrection *rec, RedEyeImageParam *param, ColorImage *image,
                                                uint64_t thickness, const int32_t *colours, uint32_t colour_count) {
    if (rec->orientation_histogram == nullptr) {
        return KO_OK;
    }
    if (KoColorImageGetImage(image, 2) == nullptr) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_INVALID_ARGUMENT);
    }
    for (uint64_t p = 0; p < patches_of(param, rec->orientation_histogram->patch_count); ++p) {
        const RedEyePatch &patch = param->patches[p];
        if (patch.label >= 0 && static_cast<uint32_t>(patch.label) < colour_count) {
            KoRedEyeDrawFrame(patch, thickness, unpacked(colours[patch.label]), image);
        }
    }
    return KO_OK;
}
