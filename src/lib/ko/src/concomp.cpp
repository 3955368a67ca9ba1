// Connected components: one pass over the pixels with a table of equal labels, then a flattening of the table; and the two
// filters that keep components of a pupil's size and shape.
//
// The rule to know before changing anything here: which label a component ends up with follows from the order in which a
// pixel looks at its neighbours (left, above, above left, above right) and from what it does with those that differ;
// the location of blobs depends on it.
#include "concomp.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "alloc.h"
#include "ko/realimage.h"
#include "lanes.h"

namespace ko {

namespace {

// The root of a label. Shortening the way changes no root, and keeps chains short whatever the picture holds.
uint32_t find_root(uint32_t *table, uint32_t label) {
    while (table[label] != label) {
        table[label] = table[table[label]];
        label = table[label];
    }
    return label;
}

// The label of a lit pixel from those of its neighbours, 0 for one that is not lit or not there. Neighbours that touch each
// other are joined already: all four if the one above is lit, and otherwise the left one and that above it.
uint32_t join_neighbours(uint32_t *table, int32_t west, int32_t north, int32_t north_west, int32_t north_east) {
    if (north != 0) {
        return find_root(table, static_cast<uint32_t>(north));
    }
    const int32_t left = west != 0 ? west : north_west;
    if (left == 0) {
        return find_root(table, static_cast<uint32_t>(north_east));
    }
    const uint32_t root = find_root(table, static_cast<uint32_t>(left));
    if (north_east != 0) {
        table[find_root(table, static_cast<uint32_t>(north_east))] = root;
    }
    return root;
}

bool any_above(const float *pixels, float threshold) {
    bool any = false;
    for (uint64_t i = 0; i < float_lanes; ++i) {
        any |= pixels[i] > threshold;
    }
    return any;
}

// Labels a row; above is the labels of the one before it, or null. Gives the new count of labels. Most of a map is not lit, and
// is passed over several pixels at a time.
uint32_t label_row(const float *pixels, float threshold, const int32_t *above, int32_t *labels, uint32_t width, uint32_t *table,
                   uint32_t count) {
    for (uint32_t x = 0; x < width;) {
        if (x + float_lanes <= width && !any_above(pixels + x, threshold)) {
            std::memset(labels + x, 0, float_lanes * sizeof(*labels));
            x += float_lanes;
            continue;
        }
        const auto end = static_cast<uint32_t>(std::min<uint64_t>(x + float_lanes, width));
        int32_t west = x != 0 ? labels[x - 1] : 0;
        int32_t north_west = 0;
        int32_t north = above != nullptr && x != 0 ? above[x - 1] : 0;
        int32_t north_east = above != nullptr ? above[x] : 0;
        for (; x < end; ++x) {
            north_west = north;
            north = north_east;
            north_east = above != nullptr && x + 1 < width ? above[x + 1] : 0;
            uint32_t label = 0;
            if (pixels[x] > threshold) {
                label = join_neighbours(table, west, north, north_west, north_east);
                if (label == 0) {
                    label = ++count;
                    table[label] = label;
                }
            }
            west = labels[x] = static_cast<int32_t>(label);
        }
    }
    return count;
}

// ---- the filters

// A product cut to a whole number; what no picture has cuts to 0.
int64_t whole(double value) { return value > -9.0e15 && value < 9.0e15 ? static_cast<int64_t>(value) : 0; }

// Work memory of a labelling of a whole image.
struct Tables {
    Block<int32_t> labels;
    Block<uint32_t> table;
    Block<BlobInfo> blobs;

    bool make(uint64_t width, uint64_t height) {
        const uint64_t entries = label_capacity(width, height) + 1;
        labels.reset(allocate<int32_t>(width * height));
        table.reset(allocate<uint32_t>(entries));
        blobs.reset(allocate_clear<BlobInfo>(entries));
        return labels && table && blobs;
    }

    Labelling labelling() const { return {labels.get(), table.get()}; }
};

uint32_t columns(const RealImage *image) { return static_cast<uint32_t>(image->width); }
uint32_t lines(const RealImage *image) { return static_cast<uint32_t>(image->height); }

uint32_t label_image(const RealImage *image, float threshold, const Tables &tables) {
    const uint32_t count = KoConCompRealImage(image, threshold, tables.labels.get(), tables.table.get());
    KoConCompRealImageInfo(columns(image), lines(image), tables.labels.get(), tables.table.get(), tables.blobs.get());
    return count;
}

// Clears the pixels that keeps(pixel) is false for.
template <class Keeps> void clear_others(RealImage *image, Keeps keeps) {
    uint64_t pixel = 0;
    for (uint64_t y = 0; y < image->height; ++y) {
        for (uint64_t x = 0; x < image->width; ++x) {
            if (!keeps(pixel++)) {
                image->rows[y][x] = 0.0f;
            }
        }
    }
}

// Sides above the lower bound and not above the upper one, and an area above half the lower bound.
struct SideLimits {
    int64_t min_side;
    int64_t max_side;
    int64_t min_area;

    SideLimits(const RealImage *image, float fraction) {
        const uint64_t longer = std::max(image->width, image->height);
        const uint64_t shorter = std::min(image->width, image->height);
        min_side = whole(static_cast<double>(static_cast<float>(longer) * fraction));
        max_side = whole(static_cast<double>(shorter) * 0.1);
        min_area = whole(std::sqrt(static_cast<double>(min_side) * 0.25 * static_cast<double>(min_side)));
    }

    bool allow(const BlobInfo &blob) const {
        const auto fits = [this](int64_t side) { return min_side < side && side <= max_side; };
        return fits(box_width(blob)) && fits(box_height(blob)) && int64_t{blob.area} > min_area && !(fill_of(blob) < 0.25f) &&
               is_compact(blob);
    }
};

// The second filter: what it needs beside the labelling of the first image.
struct Refinement {
    Tables local;
    Block<double> sums;
    Block<uint32_t> overlap;
    Block<uint8_t> mask;
    Block<uint8_t> done;

    bool make(uint64_t width, uint64_t height) {
        const uint64_t entries = label_capacity(width, height) + 1;
        sums.reset(allocate_clear<double>(entries));
        overlap.reset(allocate_clear<uint32_t>(entries));
        mask.reset(allocate_clear<uint8_t>(width * height));
        done.reset(allocate_clear<uint8_t>(entries));
        return local.make(width, height) && sums && overlap && mask && done;
    }
};

// Sides strictly between both ends, unlike those of the first filter.
bool is_kept(const BlobInfo &found, const BlobInfo &blob, float low, float high) {
    const auto fits = [=](uint32_t side) { return static_cast<float>(side) > low && static_cast<float>(side) < high; };
    return fits(box_width(found)) && fits(box_height(found)) && is_compact(found) && fill_of(found) > 0.25f &&
           static_cast<float>(blob.area) / static_cast<float>(found.area) > 0.25f;
}

// Segments the second image around a blob of the first; true if a component of it is kept, which is then in the mask.
bool refine(const RealImage *second, const Tables &first, uint32_t root, float low, float high, Refinement *work) {
    const BlobInfo &blob = first.blobs[root];
    const Window window = window_around(blob, second->width, second->height);
    const auto threshold = static_cast<float>(work->sums[root] * 0.25 / static_cast<double>(blob.area));
    const Tables &local = work->local;
    const uint32_t count = KoConCompRealSubImage(second, threshold, local.labels.get(), local.table.get(), window.x0, window.x1,
                                                 window.y0, window.y1);
    KoConCompRealImageInfo(window.width(), window.height(), local.labels.get(), local.table.get(), local.blobs.get());
    count_overlap(local.labelling(), first.labelling(), root, window, second->width, work->overlap.get());
    const uint32_t best = best_overlap(local.table.get(), count, work->overlap.get());
    const bool kept = best != 0 && is_kept(local.blobs[best], blob, low, high);
    if (kept) {
        for_each_pixel(window, second->width, [&](uint64_t inside, uint64_t pixel) {
            if (local.labelling().root(inside) == best) {
                work->mask[pixel] = 1;
            }
        });
    }
    std::fill_n(local.blobs.get(), count + 1, BlobInfo{});
    std::fill_n(work->overlap.get(), count + 1, 0u);
    return kept;
}

} // namespace

uint64_t label_capacity(uint64_t width, uint64_t height) {
    return std::max(width * height / 3 + 1, (width + 1) / 2 * ((height + 1) / 2));
}

Window window_around(const BlobInfo &blob, uint64_t width, uint64_t height) {
    const auto low = [](int64_t minimum, int64_t maximum) {
        return static_cast<uint32_t>(std::max<int64_t>(3 * minimum - 2 * maximum - 2, 0));
    };
    const auto high = [](int64_t minimum, int64_t maximum, uint64_t size) {
        return static_cast<uint32_t>(std::min(3 * maximum - 2 * minimum + 2, static_cast<int64_t>(size) - 1));
    };
    return {low(blob.min_x, blob.max_x), high(blob.min_x, blob.max_x, width), low(blob.min_y, blob.max_y),
            high(blob.min_y, blob.max_y, height)};
}

uint32_t box_width(const BlobInfo &blob) { return blob.max_x - blob.min_x + 1; }

uint32_t box_height(const BlobInfo &blob) { return blob.max_y - blob.min_y + 1; }

bool is_compact(const BlobInfo &blob) {
    return uint64_t{box_height(blob)} <= 2 * uint64_t{box_width(blob)} &&
           uint64_t{box_width(blob)} <= 2 * uint64_t{box_height(blob)};
}

float fill_of(const BlobInfo &blob) {
    return static_cast<float>(blob.area) / static_cast<float>(uint64_t{box_width(blob)} * box_height(blob));
}

} // namespace ko

using namespace ko;

uint32_t KoConCompRealSubImage(const RealImage *image, float threshold, int32_t *labels, uint32_t *table, uint32_t x0,
                               uint32_t x1, uint32_t y0, uint32_t y1) {
    const uint32_t width = x1 - x0 + 1;
    uint32_t count = 0;
    table[0] = 0;
    const int32_t *above = nullptr;
    for (uint32_t y = y0; y <= y1; ++y, labels += width) {
        count = label_row(image->rows[y] + x0, threshold, above, labels, width, table, count);
        above = labels;
    }
    for (uint32_t i = 1; i <= count; ++i) {
        table[i] = find_root(table, i);
    }
    return count;
}

uint32_t KoConCompRealImage(const RealImage *image, float threshold, int32_t *labels, uint32_t *table) {
    if (image->width == 0 || image->height == 0) {
        table[0] = 0;
        return 0;
    }
    return KoConCompRealSubImage(image, threshold, labels, table, 0, columns(image) - 1, 0, lines(image) - 1);
}

uint32_t KoConCompRealImageInfo(uint32_t width, uint32_t height, const int32_t *labels, const uint32_t *table, BlobInfo *info) {
    uint32_t components = 0;
    for (uint32_t y = 0; y < height; ++y, labels += width) {
        for_each_labelled(labels, table, width, [&](uint64_t at, uint32_t root) {
            const auto x = static_cast<uint32_t>(at);
            BlobInfo &blob = info[root];
            if (blob.area++ == 0) {
                blob = {x, x, y, y, 1};
                ++components;
                return;
            }
            blob.min_x = std::min(blob.min_x, x);
            blob.max_x = std::max(blob.max_x, x);
            blob.max_y = y; // rows come in rising order
        });
    }
    return components;
}

uint32_t KoBlobDetectionTestSizeStep1(RealImage *image, float threshold, float fraction) {
    Tables tables;
    Block<uint8_t> seen(allocate_clear<uint8_t>(label_capacity(image->width, image->height) + 1));
    if (!tables.make(image->width, image->height) || !seen) {
        return 0;
    }
    const SideLimits limits(image, fraction);
    const uint32_t count = label_image(image, threshold, tables);
    constexpr uint8_t passed = 1;
    constexpr uint8_t rejected = 2;
    uint32_t kept = 0;
    for (uint32_t i = 1; i <= count; ++i) {
        const uint32_t root = tables.table[i];
        if (seen[root] == 0) {
            seen[root] = limits.allow(tables.blobs[root]) ? passed : rejected;
            kept += seen[root] == passed;
        }
        if (seen[root] == rejected) {
            tables.table[i] = 0;
        }
    }
    clear_others(image, [labelling = tables.labelling()](uint64_t pixel) { return labelling.root(pixel) != 0; });
    return kept;
}

uint32_t KoBlobDetectionTestSizeStep2(const RealImage *first, RealImage *second) {
    Tables tables;
    Refinement work;
    if (!tables.make(first->width, first->height) || !work.make(first->width, first->height)) {
        return 0;
    }
    const uint32_t count = label_image(first, 0.1f, tables);
    uint64_t pixel = 0;
    for (uint64_t y = 0; y < first->height; ++y) {
        for (uint64_t x = 0; x < first->width; ++x) {
            work.sums[tables.labelling().root(pixel++)] += static_cast<double>(first->rows[y][x]);
        }
    }
    const float smaller = static_cast<float>(std::min(first->width, first->height));
    uint32_t kept = 0;
    for (uint32_t i = 1; i <= count; ++i) {
        const uint32_t root = tables.table[i];
        if (work.done[root] == 0) {
            work.done[root] = 1;
            kept += refine(second, tables, root, smaller * 0.005f, smaller * 0.1f, &work);
        }
    }
    clear_others(second, [&](uint64_t at) { return work.mask[at] != 0; });
    return kept;
}
