// Block apply when memory runs short.
#include "allocation_sweep.h"
#include "ko/blockapply.h"
#include "ko/memory.h"
#include "pictures.h"

namespace {

using ko_test::expect_allocations;
using ko_test::make_image;
using ko_test::RealImagePtr;

template <class... Iterators> float count_calls(void *data, Iterators *...) {
    return static_cast<float>(++*static_cast<int *>(data));
}

class BlockApplyFaultTest : public ko_test::LibraryTest {
  protected:
    using Line = RealImageLineIterator;

    int32_t run(int images, float **result) {
        RealImage *image = image_.get();
        calls_ = 0;
        switch (images) {
        case 1:
            return KoBlockApplyFunctionTo1RealImage(5, 3, count_calls<Line>, &calls_, image, result);
        case 2:
            return KoBlockApplyFunctionTo2RealImage(5, 3, count_calls<Line, Line>, &calls_, image, image, result);
        case 3:
            return KoBlockApplyFunctionTo3RealImage(5, 3, count_calls<Line, Line, Line>, &calls_, image, image, image, result);
        default:
            return KoBlockApplyFunctionTo4RealImage(5, 3, count_calls<Line, Line, Line, Line>, &calls_, image, image, image,
                                                    image, result);
        }
    }

    const RealImagePtr image_ = make_image(20, 9, [](uint64_t x, uint64_t) { return static_cast<float>(x); });
    int calls_ = 0;
};

TEST_F(BlockApplyFaultTest, AnArrayThatCannotBeHadIsTheEndBeforeAnyCall) {
    for (int images = 1; images <= 4; ++images) {
        expect_allocations({5 * 3 * 8}, KO_ERR_ALLOC, "", [&] {
            float *result = nullptr;
            const int32_t status = run(images, &result);
            EXPECT_EQ(status, KoErrorGetLastError());
            EXPECT_EQ(result == nullptr, status != KO_OK);
            EXPECT_EQ(calls_, status == KO_OK ? 15 : 0);
            KoFree(result);
            return status == KO_OK;
        });
    }
}

TEST_F(BlockApplyFaultTest, NeedsNoMemoryForAGivenArray) {
    std::vector<float> array(15);
    for (int images = 1; images <= 4; ++images) {
        expect_allocations({}, KO_OK, "", [&] {
            float *result = array.data();
            return run(images, &result) == KO_OK && result == array.data() && calls_ == 15;
        });
    }
}

} // namespace
