// Connected components in their plainest form: one pixel at a time, all four neighbours, an equivalence table that is followed
// step by step.
#ifndef KO_TESTS_REFERENCE_CONCOMP_H
#define KO_TESTS_REFERENCE_CONCOMP_H

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "ko/concomp.h"

namespace ko_test {

// The bounds of a window of an image, included.
struct Window {
    uint32_t x0;
    uint32_t x1;
    uint32_t y0;
    uint32_t y1;

    uint32_t width() const { return x1 - x0 + 1; }
    uint32_t height() const { return y1 - y0 + 1; }
};

struct Labelling {
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t count = 0;
    std::vector<int32_t> labels;
    std::vector<uint32_t> table;

    int32_t label(int64_t x, int64_t y) const {
        const bool inside = x >= 0 && y >= 0 && x < static_cast<int64_t>(width) && y < static_cast<int64_t>(height);
        return inside ? labels[static_cast<size_t>(y * static_cast<int64_t>(width) + x)] : 0;
    }
    uint32_t root(size_t pixel) const { return table[static_cast<size_t>(labels[pixel])]; }
};

inline uint32_t reference_find(const std::vector<uint32_t> &table, uint32_t label) {
    while (table[label] != label) {
        label = table[label];
    }
    return label;
}

inline uint32_t reference_neighbour(const Labelling &labelling, int64_t x, int64_t y) {
    return reference_find(labelling.table, static_cast<uint32_t>(labelling.label(x, y)));
}

// The label of a lit pixel, with the merges that it brings about.
inline uint32_t reference_label(Labelling &labelling, int64_t x, int64_t y) {
    const uint32_t roots[4] = {reference_neighbour(labelling, x - 1, y), reference_neighbour(labelling, x, y - 1),
                               reference_neighbour(labelling, x - 1, y - 1), reference_neighbour(labelling, x + 1, y - 1)};
    uint32_t chosen = 0;
    for (const uint32_t root : roots) {
        if (chosen == 0) {
            chosen = root;
        }
    }
    if (chosen == 0) {
        ++labelling.count;
        labelling.table.push_back(labelling.count);
        return labelling.count;
    }
    for (const uint32_t root : roots) {
        if (root != 0 && root != chosen) {
            labelling.table[root] = chosen;
        }
    }
    return chosen;
}

inline Labelling reference_labelling(const RealImage *image, float threshold, const Window &window) {
    Labelling labelling{window.width(), window.height(), 0, {}, {0}};
    labelling.labels.assign(static_cast<size_t>(window.width()) * window.height(), 0);
    for (uint32_t y = 0; y < window.height(); ++y) {
        for (uint32_t x = 0; x < window.width(); ++x) {
            if (image->rows[window.y0 + y][window.x0 + x] > threshold) {
                const uint32_t label = reference_label(labelling, x, y);
                labelling.labels[static_cast<size_t>(y) * window.width() + x] = static_cast<int32_t>(label);
            }
        }
    }
    for (uint32_t i = 0; i <= labelling.count; ++i) {
        labelling.table[i] = reference_find(labelling.table, i);
    }
    return labelling;
}

inline Labelling reference_labelling(const RealImage *image, float threshold) {
    return reference_labelling(image, threshold,
                               {0, static_cast<uint32_t>(image->width) - 1, 0, static_cast<uint32_t>(image->height) - 1});
}

struct Summary {
    uint32_t components = 0;
    std::vector<BlobInfo> info;
};

inline Summary reference_summary(const Labelling &labelling) {
    Summary summary{0, std::vector<BlobInfo>(labelling.count + 1, BlobInfo{})};
    for (uint32_t y = 0; y < labelling.height; ++y) {
        for (uint32_t x = 0; x < labelling.width; ++x) {
            const uint32_t root = labelling.root(static_cast<size_t>(y) * labelling.width + x);
            if (root == 0) {
                continue;
            }
            BlobInfo &blob = summary.info[root];
            if (blob.area == 0) {
                blob = {x, x, y, y, 1};
                ++summary.components;
                continue;
            }
            ++blob.area;
            blob.min_x = std::min(blob.min_x, x);
            blob.max_x = std::max(blob.max_x, x);
            blob.min_y = std::min(blob.min_y, y);
            blob.max_y = std::max(blob.max_y, y);
        }
    }
    return summary;
}

inline bool reference_side_ratio(uint32_t w, uint32_t h) { return h <= 2 * w && w <= 2 * h; }

inline float reference_share(uint32_t part, uint32_t whole) { return static_cast<float>(part) / static_cast<float>(whole); }

// The first filter: sides and area against the picture's.
inline uint32_t reference_size_step_1(RealImage *image, float threshold, float fraction) {
    const bool wide = image->width > image->height;
    const uint64_t longer = wide ? image->width : image->height;
    const uint64_t shorter = wide ? image->height : image->width;
    const auto min_side = static_cast<int64_t>(static_cast<float>(longer) * fraction);
    const auto max_side = static_cast<int64_t>(static_cast<double>(shorter) * 0.1);
    const auto min_area = static_cast<int64_t>(std::sqrt(static_cast<double>(min_side) * 0.25 * static_cast<double>(min_side)));
    Labelling labelling = reference_labelling(image, threshold);
    const Summary summary = reference_summary(labelling);
    std::vector<bool> met(labelling.count + 1, false);
    std::vector<bool> rejected(labelling.count + 1, false);
    uint32_t kept = 0;
    for (uint32_t i = 1; i <= labelling.count; ++i) {
        const uint32_t root = labelling.table[i];
        if (!met[root]) {
            met[root] = true;
            const BlobInfo &blob = summary.info[root];
            const uint32_t w = blob.max_x - blob.min_x + 1;
            const uint32_t h = blob.max_y - blob.min_y + 1;
            const bool passes = min_side < w && w <= max_side && min_side < h && h <= max_side && blob.area > min_area &&
                                !(reference_share(blob.area, w * h) < 0.25f) && reference_side_ratio(w, h);
            kept += passes ? 1 : 0;
            rejected[root] = !passes;
        }
        if (rejected[root]) {
            labelling.table[i] = 0;
        }
    }
    for (uint64_t y = 0; y < image->height; ++y) {
        for (uint64_t x = 0; x < image->width; ++x) {
            if (labelling.root(y * image->width + x) == 0) {
                image->rows[y][x] = 0.0f;
            }
        }
    }
    return kept;
}

// The box of a blob with twice its size and two pixels more on each side, within the picture.
inline Window reference_window(const BlobInfo &blob, const RealImage *image) {
    const auto low = [](uint32_t min, uint32_t max) {
        return static_cast<uint32_t>(std::max<int64_t>(0, 3 * static_cast<int64_t>(min) - 2 * static_cast<int64_t>(max) - 2));
    };
    const auto high = [](uint32_t min, uint32_t max, uint64_t length) {
        return static_cast<uint32_t>(std::min<int64_t>(static_cast<int64_t>(length) - 1,
                                                       3 * static_cast<int64_t>(max) - 2 * static_cast<int64_t>(min) + 2));
    };
    return {low(blob.min_x, blob.max_x), high(blob.min_x, blob.max_x, image->width), low(blob.min_y, blob.max_y),
            high(blob.min_y, blob.max_y, image->height)};
}

// The sum of an image's values over the pixels of a root.
inline double reference_sum(const RealImage *image, const Labelling &labelling, uint32_t root) {
    double sum = 0.0;
    for (uint64_t y = 0; y < image->height; ++y) {
        for (uint64_t x = 0; x < image->width; ++x) {
            if (labelling.root(y * image->width + x) == root) {
                sum += static_cast<double>(image->rows[y][x]);
            }
        }
    }
    return sum;
}

// The root of a window's labelling that shares most pixels with a root of the whole picture's; 0 if none shares any.
inline uint32_t reference_winner(const Labelling &whole, uint32_t root, const Labelling &part, const Window &window) {
    std::vector<uint64_t> overlap(part.count + 1, 0);
    for (uint32_t y = 0; y < part.height; ++y) {
        for (uint32_t x = 0; x < part.width; ++x) {
            const uint32_t q = part.root(static_cast<size_t>(y) * part.width + x);
            const uint32_t r = whole.root(static_cast<size_t>(window.y0 + y) * whole.width + window.x0 + x);
            if (q != 0 && r == root) {
                ++overlap[q];
            }
        }
    }
    uint32_t winner = 0;
    uint64_t best = 0;
    for (uint32_t i = 1; i <= part.count; ++i) {
        if (overlap[part.table[i]] > best) {
            winner = part.table[i];
            best = overlap[winner];
        }
    }
    return winner;
}

// The second filter: each component of first is looked for in second.
inline uint32_t reference_size_step_2(const RealImage *first, RealImage *second) {
    const auto smaller = static_cast<float>(std::min(first->width, first->height));
    const float low = smaller * 0.005f;
    const float high = smaller * 0.1f;
    const Labelling whole = reference_labelling(first, 0.1f);
    const Summary summary = reference_summary(whole);
    std::vector<bool> met(whole.count + 1, false);
    std::vector<bool> mask(first->width * first->height, false);
    uint32_t kept = 0;
    for (uint32_t i = 1; i <= whole.count; ++i) {
        const uint32_t root = whole.table[i];
        if (met[root]) {
            continue;
        }
        met[root] = true;
        const BlobInfo &blob = summary.info[root];
        const Window window = reference_window(blob, first);
        const double threshold = reference_sum(first, whole, root) * 0.25 / static_cast<double>(blob.area);
        const Labelling part = reference_labelling(second, static_cast<float>(threshold), window);
        const uint32_t winner = reference_winner(whole, root, part, window);
        if (winner == 0) {
            continue;
        }
        const BlobInfo found = reference_summary(part).info[winner];
        const uint32_t w = found.max_x - found.min_x + 1;
        const uint32_t h = found.max_y - found.min_y + 1;
        const auto between = [&](uint32_t side) { return low < static_cast<float>(side) && static_cast<float>(side) < high; };
        if (!(between(w) && between(h) && reference_side_ratio(w, h) && reference_share(found.area, w * h) > 0.25f &&
              reference_share(blob.area, found.area) > 0.25f)) {
            continue;
        }
        ++kept;
        for (uint32_t y = 0; y < part.height; ++y) {
            for (uint32_t x = 0; x < part.width; ++x) {
                if (part.root(static_cast<size_t>(y) * part.width + x) == winner) {
                    mask[(window.y0 + y) * first->width + window.x0 + x] = true;
                }
            }
        }
    }
    for (uint64_t y = 0; y < first->height; ++y) {
        for (uint64_t x = 0; x < first->width; ++x) {
            if (!mask[y * first->width + x]) {
                second->rows[y][x] = 0.0f;
            }
        }
    }
    return kept;
}

} // namespace ko_test

#endif
