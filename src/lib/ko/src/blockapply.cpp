// Block apply: one number per block of a grid over one to four images. The iterators live on the stack: a block allocates
// nothing.
#include "ko/blockapply.h"

#include "alloc.h"

namespace {

// Calls the block function for every block, with one iterator an image set to it.
template <class Function, class... Image>
int32_t apply_to_blocks(uint32_t blocks_x, uint32_t blocks_y, Function function, void *data, float **result, RealImage *first,
                        Image *...more) {
    if (*result == nullptr) {
        // Eight bytes a block, of which the packed floats use four.
        *result = static_cast<float *>(ko::allocate_bytes(uint64_t{blocks_x} * blocks_y, 8));
        if (*result == nullptr) {
            return KoErrorGetLastError();
        }
    }
    const uint64_t width = static_cast<uint32_t>(first->width) / blocks_x;
    const uint64_t height = static_cast<uint32_t>(first->height) / blocks_y;
    const auto at = [=](RealImage *image, uint64_t bx, uint64_t by) {
        RealImageLineIterator iterator;
        KoRealImageLineIteratorInitSubImage(&iterator, image, bx * width, by * height, width, height);
        return iterator;
    };
    float *out = *result;
    for (uint64_t by = 0; by < blocks_y; ++by) {
        for (uint64_t bx = 0; bx < blocks_x; ++bx) {
            const auto call = [=](auto... iterators) { return function(data, &iterators...); };
            *out++ = call(at(first, bx, by), at(more, bx, by)...);
        }
    }
    return KO_OK;
}

} // namespace

int32_t KoBlockApplyFunctionTo1RealImage(uint32_t blocks_x, uint32_t blocks_y, KoBlockFunction1 function, void *data,
                                         RealImage *first, float **result) {
    return apply_to_blocks(blocks_x, blocks_y, function, data, result, first);
}

int32_t KoBlockApplyFunctionTo2RealImage(uint32_t blocks_x, uint32_t blocks_y, KoBlockFunction2 function, void *data,
                                         RealImage *first, RealImage *second, float **result) {
    return apply_to_blocks(blocks_x, blocks_y, function, data, result, first, second);
}

int32_t KoBlockApplyFunctionTo3RealImage(uint32_t blocks_x, uint32_t blocks_y, KoBlockFunction3 function, void *data,
                                         RealImage *first, RealImage *second, RealImage *third, float **result) {
    return apply_to_blocks(blocks_x, blocks_y, function, data, result, first, second, third);
}

int32_t KoBlockApplyFunctionTo4RealImage(uint32_t blocks_x, uint32_t blocks_y, KoBlockFunction4 function, void *data,
                                         RealImage *first, RealImage *second, RealImage *third, RealImage *fourth,
                                         float **result) {
    return apply_to_blocks(blocks_x, blocks_y, function, data, result, first, second, third, fourth);
}
