// What the location of blobs shares with the stand-alone filters: windows around a blob, and the component of a window that
// covers most of it.
#ifndef KO_SRC_CONCOMP_H
#define KO_SRC_CONCOMP_H

#include <algorithm>

#include "ko/concomp.h"

namespace ko {

// Most provisional labels that a labelling of so many pixels is given room for: the customary third, or what the densest
// pattern of pixels that do not touch needs.
uint64_t label_capacity(uint64_t width, uint64_t height);

// A window of an image, bounds included.
struct Window {
    uint32_t x0;
    uint32_t x1;
    uint32_t y0;
    uint32_t y1;

    uint32_t width() const { return x1 - x0 + 1; }
    uint32_t height() const { return y1 - y0 + 1; }
};

// The box of a blob, grown on each side by twice its extent and 2, inside an image of width by height.
Window window_around(const BlobInfo &blob, uint64_t width, uint64_t height);

uint32_t box_width(const BlobInfo &blob);
uint32_t box_height(const BlobInfo &blob);

// Not more than twice as long as wide, either way.
bool is_compact(const BlobInfo &blob);

// The share of its box that a blob fills, in single precision.
float fill_of(const BlobInfo &blob);

// A labelling: table[labels[pixel]] is a pixel's root.
struct Labelling {
    const int32_t *labels;
    const uint32_t *table;

    uint32_t root(uint64_t pixel) const { return table[labels[pixel]]; }
};

// True if any of some pixels from labels on has a label.
constexpr uint64_t labels_at_once = 8;
inline bool any_labelled(const int32_t *labels) {
    int32_t any = 0;
    for (uint64_t i = 0; i < labels_at_once; ++i) {
        any |= labels[i];
    }
    return any != 0;
}

// Calls each(x, root) for the pixels of a row whose root is not 0.
template <class Each> void for_each_labelled(const int32_t *labels, const uint32_t *table, uint64_t width, Each each) {
    const bool zero_is_none = table[0] == 0; // as a labelling leaves it
    for (uint64_t x = 0; x < width;) {
        if (zero_is_none && x + labels_at_once <= width && !any_labelled(labels + x)) {
            x += labels_at_once;
            continue;
        }
        for (const uint64_t end = std::min(x + labels_at_once, width); x < end; ++x) {
            const uint32_t root = table[labels[x]];
            if (root != 0) {
                each(x, root);
            }
        }
    }
}

// Calls each(pixel of the window's own labelling, pixel of the image) for every pixel of a window.
template <class Each> void for_each_pixel(const Window &window, uint64_t image_width, Each each) {
    uint64_t inside = 0;
    for (uint64_t y = window.y0; y <= window.y1; ++y) {
        for (uint64_t x = window.x0; x <= window.x1; ++x) {
            each(inside++, y * image_width + x);
        }
    }
}

// Adds one to overlap of a component of the window for each of its pixels that belongs to blob in the labelling of the image.
template <class Counter>
void count_overlap(const Labelling &local, const Labelling &whole, uint32_t blob, const Window &window, uint64_t image_width,
                   Counter *overlap) {
    for_each_pixel(window, image_width, [&](uint64_t inside, uint64_t pixel) {
        const uint32_t root = local.root(inside);
        if (root != 0 && whole.root(pixel) == blob) {
            ++overlap[root];
        }
    });
}

// The first component with the greatest overlap; 0 if none has any.
template <class Counter> uint32_t best_overlap(const uint32_t *table, uint32_t label_count, const Counter *overlap) {
    uint32_t best = 0;
    Counter most = 0;
    for (uint32_t i = 1; i <= label_count; ++i) {
        if (overlap[table[i]] > most) {
            most = overlap[table[i]];
            best = table[i];
        }
    }
    return best;
}

} // namespace ko

#endif
