// RealImage when memory runs short.
#include <functional>

#include "files.h"
#include "grid_fault_tests.h"
#include "pictures.h"

namespace ko_test {

INSTANTIATE_TYPED_TEST_SUITE_P(RealImage, GridFaultTest, RealImageFamily);
INSTANTIATE_TYPED_TEST_SUITE_P(RealImage, FloatGridFaultTest, RealImageFamily);

} // namespace ko_test

namespace {

using ko_test::cannot_create;
using ko_test::expect_allocations;
using ko_test::grid_blocks;
using ko_test::make_image;
using ko_test::RealImagePtr;
using ko_test::operator+;

struct Operation {
    const char *name;
    bool transposes;
    std::function<int32_t(const RealImage *image, RealImage **result)> run;
};

std::vector<Operation> operations() {
    using Image = const RealImage;
    return {{"GetResult", false, [](Image *a, RealImage **r) { return _KoRealImageApplyFunctionGetResult(a, r); }},
            {"Transpose", true, [](Image *a, RealImage **r) { return KoRealImageTranspose(a, r); }},
            {"AddImage", false, [](Image *a, RealImage **r) { return KoRealImageAddImage(a, a, r); }},
            {"SubstractImage", false, [](Image *a, RealImage **r) { return KoRealImageSubstractImage(a, a, r); }},
            {"DiffImage", false, [](Image *a, RealImage **r) { return KoRealImageDiffImage(a, a, r); }},
            {"MultiplyImage", false, [](Image *a, RealImage **r) { return KoRealImageMultiplyImage(a, a, r); }},
            {"DivideImage", false, [](Image *a, RealImage **r) { return KoRealImageDivideImage(a, a, r); }},
            {"AddValue", false, [](Image *a, RealImage **r) { return KoRealImageAddValue(a, 2.0f, r); }},
            {"SubstractValue", false, [](Image *a, RealImage **r) { return KoRealImageSubstractValue(a, 2.0f, r); }},
            {"MultiplyValue", false, [](Image *a, RealImage **r) { return KoRealImageMultiplyValue(a, 2.0f, r); }},
            {"DivideValue", false, [](Image *a, RealImage **r) { return KoRealImageDivideValue(a, 2.0f, r); }}};
}

class RealImageResultFaultTest : public ko_test::LibraryTest, public testing::WithParamInterface<Operation> {
  protected:
    const RealImagePtr image_ = make_image(5, 3, std::vector<float>(15, 3.0f));
};
INSTANTIATE_TEST_SUITE_P(RealImage, RealImageResultFaultTest, testing::ValuesIn(operations()),
                         [](const auto &operation) { return std::string(operation.param.name); });

TEST_P(RealImageResultFaultTest, GivesTheStatusOfAResultThatCannotBeMade) {
    const std::vector<int64_t> record = {sizeof(RealImage)};
    const std::vector<int64_t> blocks = GetParam().transposes ? grid_blocks(3, 5) : grid_blocks(5, 3);
    expect_allocations(record + blocks, KO_ERR_CREATE_OBJECT, cannot_create("RealImage"), [&] {
        RealImage *result = nullptr;
        const int32_t status = GetParam().run(image_.get(), &result);
        const RealImagePtr made(result);
        EXPECT_EQ(status, KoErrorGetLastError());
        EXPECT_EQ(result == nullptr, status != KO_OK);
        return status == KO_OK;
    });
}

TEST_P(RealImageResultFaultTest, NeedsNoMemoryForAGivenResult) {
    const uint64_t width = GetParam().transposes ? 3 : 5;
    const RealImagePtr given = make_image(width, 15 / width, std::vector<float>(15, 0.0f));
    expect_allocations({}, KO_OK, "", [&] {
        RealImage *result = given.get();
        return GetParam().run(image_.get(), &result) == KO_OK && result == given.get();
    });
}

class RealImageFaultTest : public ko_test::LibraryTest {};

TEST_F(RealImageFaultTest, CropComparisonAndPrintNeedNoMemory) {
    const RealImagePtr image = make_image(5, 3, std::vector<float>(15, 3.0f));
    const RealImagePtr part = make_image(2, 2, std::vector<float>(4, 0.0f));
    const ko_test::TemporaryFile file("table.txt");
    FILE *stream = std::fopen(file.c_str(), "w");
    ASSERT_NE(stream, nullptr);
    expect_allocations({}, KO_OK, "", [&] {
        KoRealImagePrint(image.get(), stream, 5, 1, "title");
        return KoRealImageCrop(image.get(), 1, 1, part.get()) == KO_OK &&
               KoRealImageCompareTolerance(image.get(), image.get(), 0.0f) == 0;
    });
    std::fclose(stream);
}

} // namespace
