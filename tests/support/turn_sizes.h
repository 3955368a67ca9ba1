// Sizes at which a loop that takes several elements a turn, or works in pieces, goes from one turn to the next.
#ifndef KO_TESTS_TURN_SIZES_H
#define KO_TESTS_TURN_SIZES_H

#include <cstdint>
#include <numeric>
#include <vector>

namespace ko_test {

inline std::vector<uint64_t> with_all_up_to(uint64_t last, const std::vector<uint64_t> &further) {
    std::vector<uint64_t> sizes(last);
    std::iota(sizes.begin(), sizes.end(), uint64_t{1});
    sizes.insert(sizes.end(), further.begin(), further.end());
    return sizes;
}

// Every width up to 72, and those on both sides of the lengths that pieces of a line may have.
inline const std::vector<uint64_t> &turn_widths() {
    static const std::vector<uint64_t> widths =
        with_all_up_to(72, {95,  96,  97,  127, 128, 129, 130, 135, 159, 160, 161,  191,  192,  193,  255,  256, 257,
                            258, 271, 319, 383, 384, 511, 512, 513, 527, 770, 1023, 1025, 4095, 4096, 4097, 4111});
    return widths;
}

// Every height up to 20, and those on both sides of the groups that lines may come in.
inline const std::vector<uint64_t> &turn_heights() {
    static const std::vector<uint64_t> heights = with_all_up_to(20, {31, 32, 33, 47, 48, 49, 63, 64, 65});
    return heights;
}

struct TurnSize {
    uint64_t width, height;
};

// Each width at some heights, and each height at some widths.
inline const std::vector<TurnSize> &turn_sizes() {
    static const std::vector<TurnSize> sizes = [] {
        std::vector<TurnSize> all;
        for (const uint64_t width : turn_widths()) {
            for (const uint64_t height : width < 100 ? std::vector<uint64_t>{1, 3, 5} : std::vector<uint64_t>{2}) {
                all.push_back({width, height});
            }
        }
        for (const uint64_t height : turn_heights()) {
            for (const uint64_t width : {1u, 2u, 6u, 19u, 65u}) {
                all.push_back({width, height});
            }
        }
        return all;
    }();
    return sizes;
}

} // namespace ko_test

#endif
