// The drivers of colour functions when memory runs short.
#include "allocation_sweep.h"
#include "pictures.h"

namespace {

using ko_test::cannot_create;
using ko_test::ColorImagePtr;
using ko_test::expect_allocations;
using ko_test::grid_blocks;
using ko_test::make_color_image;
using ko_test::operator+;

int32_t copy(void *, int64_t count, uint64_t, const float *source, uint64_t, float *result) {
    std::copy_n(source, 4 * count, result);
    return KO_OK;
}

class ApplyFunctionFaultTest : public ko_test::LibraryTest {
  protected:
    int32_t run(bool two, ColorImage **result) {
        return two ? KoApplyFunctionTo2ColorImage(KoFunctionDiffColorImage, nullptr, source_.get(), source_.get(), result)
                   : KoApplyFunctionTo1ColorImage(copy, nullptr, source_.get(), result);
    }

    const ColorImagePtr source_ = make_color_image(5, 3, KO_COLORSPACE_RGB, [](uint32_t, uint64_t, uint64_t) { return 1.0f; });
};

TEST_F(ApplyFunctionFaultTest, GivesTheStatusOfAResultThatCannotBeMade) {
    const std::vector<int64_t> plane = grid_blocks(5, 3);
    const std::vector<int64_t> records = {sizeof(ColorImage), 3 * sizeof(RealImage)};
    for (const bool two : {false, true}) {
        expect_allocations(records + plane + plane + plane, KO_ERR_CREATE_OBJECT, cannot_create("ColorImage"), [&] {
            ColorImage *result = nullptr;
            const int32_t status = run(two, &result);
            const ColorImagePtr made(result);
            EXPECT_EQ(status, KoErrorGetLastError());
            EXPECT_EQ(result == nullptr, status != KO_OK);
            return status == KO_OK;
        });
    }
}

TEST_F(ApplyFunctionFaultTest, NeedsNoMemoryForAGivenResult) {
    const ColorImagePtr given(KoColorImageNew(5, 3, KO_COLORSPACE_RGB));
    for (const bool two : {false, true}) {
        expect_allocations({}, KO_OK, "", [&] {
            ColorImage *result = given.get();
            return run(two, &result) == KO_OK && result == given.get();
        });
    }
}

} // namespace
