// Grids of curves, whatever stands at a tile: see tilegrid.h.
#include "tilegrid.h"

#include <cstring>
#include <initializer_list>

#include "alloc.h"
#include "convert.h"
#include "report.h"

namespace ko {

uint64_t entries_of(const GridShape &shape) {
    uint64_t entries = 1;
    for (const uint64_t factor : {shape.size, shape.strips_x, shape.strips_y}) {
        if (factor == 0) {
            return 0;
        }
        entries = entries > UINT64_MAX / factor ? UINT64_MAX : entries * factor;
    }
    return entries;
}

uint32_t *make_curves(const GridShape &shape) {
    return shape.strips_x != 0 && shape.strips_y != 0 ? allocate_clear<uint32_t>(entries_of(shape)) : nullptr;
}

bool has_curves(const GridShape &shape, const uint32_t *plane) { return plane != nullptr || entries_of(shape) == 0; }

uint32_t *curve_at(const GridShape &shape, uint32_t *plane, uint64_t x, uint64_t y) {
    if (x >= shape.strips_x) {
        report_index(x, shape.strips_x);
        return nullptr;
    }
    if (y >= shape.strips_y) {
        report_index(y, shape.strips_y);
        return nullptr;
    }
    if (plane == nullptr) {
        KoMessageSetStatus(KO_ERR_NULL_POINTER);
        return nullptr;
    }
    return plane + (y * shape.strips_x + x) * shape.size;
}

bool same_curves(const GridShape &shape, const uint32_t *first, const uint32_t *second) {
    if (first == nullptr || second == nullptr) {
        return first == second;
    }
    return std::memcmp(first, second, entries_of(shape) * sizeof(uint32_t)) == 0;
}

uint64_t rounded_tile_size(uint64_t pixels, uint64_t strips) {
    return static_cast<uint64_t>(truncate_64(static_cast<float>(pixels) / static_cast<float>(strips) + 0.5f));
}

int32_t read_shape(TextReader *reader, GridShape *shape) {
    const int32_t status = reader->next();
    if (status != KO_OK) {
        return status;
    }
    uint32_t numbers[3] = {};
    if (!reader->scan("bits %llu %llu %llu", 3, numbers)) {
        return reader->reject("Invalid value, must be bits <bit per pixel> <num strips X> <num strips Y>");
    }
    *shape = {size_of_bits(numbers[0]), numbers[1], numbers[2]};
    return KO_OK;
}

} // namespace ko
