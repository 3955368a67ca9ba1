// ColorImage when memory runs short.
#include <cstring>

#include "allocation_sweep.h"
#include "pictures.h"

namespace {

using ko_test::cannot_create;
using ko_test::ColorImagePtr;
using ko_test::expect_allocations;
using ko_test::grid_blocks;
using ko_test::make_color_image;
using ko_test::RealImagePtr;
using ko_test::sweep_faults;
using ko_test::operator+;

using Sizes = std::vector<int64_t>;

// The planes' records, then each plane's row table and block.
Sizes plane_sizes(int64_t width, int64_t height, size_t depth) {
    Sizes sizes = {static_cast<int64_t>(depth * sizeof(RealImage))};
    for (size_t c = 0; c < depth; ++c) {
        sizes = sizes + grid_blocks(width, height);
    }
    return sizes;
}

Sizes image_sizes(int64_t width, int64_t height, size_t depth) {
    return Sizes{sizeof(ColorImage)} + plane_sizes(width, height, depth);
}

class ColorImageFaultTest : public ko_test::LibraryTest {
  protected:
    static ColorImagePtr filled(int32_t space) {
        return make_color_image(5, 3, space, [](uint32_t, uint64_t, uint64_t) { return 1.0f; });
    }
};

TEST_F(ColorImageFaultTest, NewGivesNullAndNamesTheObject) {
    for (const auto &[space, depth] : {std::pair<int32_t, size_t>{KO_COLORSPACE_RGB, 3}, {KO_COLORSPACE_GRAY, 1}}) {
        expect_allocations(image_sizes(5, 3, depth), KO_ERR_CREATE_OBJECT, cannot_create("ColorImage"), [number = space] {
            const ColorImagePtr image(KoColorImageNew(5, 3, number));
            return image != nullptr;
        });
    }
}

// A record whose Init failed is still the caller's to free, with planes that were never made.
TEST_F(ColorImageFaultTest, InitGivesItsStatusAndLeavesARecordToFree) {
    expect_allocations(plane_sizes(5, 3, 3), KO_ERR_ALLOC, "", [] {
        ColorImage image;
        std::memset(&image, 0x5A, sizeof image);
        const int32_t status = KoColorImageInit(&image, 5, 3, KO_COLORSPACE_YIQ);
        EXPECT_EQ(status, KoErrorGetLastError());
        EXPECT_EQ(image.color_space, KO_COLORSPACE_YIQ);
        EXPECT_EQ(KoColorImageFree(&image), KO_OK);
        EXPECT_EQ(image.depth, 0u);
        EXPECT_EQ(image.planes, nullptr);
        return status == KO_OK;
    });
}

TEST_F(ColorImageFaultTest, NewFromBytesGivesNull) {
    const std::vector<uint8_t> bytes(45, 1);
    for (const auto &[space, depth] : {std::pair<int32_t, size_t>{KO_COLORSPACE_RGB, 3}, {KO_COLORSPACE_GRAY, 1}}) {
        expect_allocations(image_sizes(5, 3, depth), KO_ERR_CREATE_OBJECT, cannot_create("ColorImage"), [&, number = space] {
            const ColorImagePtr image(KoColorImageNewFromByteArray(5, 3, number, bytes.data(), KO_BYTE_LAYOUT_PLANAR));
            return image != nullptr;
        });
    }
}

TEST_F(ColorImageFaultTest, NewFromAnImageGivesNull) {
    const ColorImagePtr source = filled(KO_COLORSPACE_RGB);
    expect_allocations(image_sizes(5, 3, 3), KO_ERR_CREATE_OBJECT, cannot_create("ColorImage"), [&] {
        const ColorImagePtr image(KoColorImageNewFromColorImage(KO_COLORSPACE_YIQ, source.get()));
        return image != nullptr;
    });
}

// The image that was made for a conversion that is refused is freed with its planes.
TEST_F(ColorImageFaultTest, ARefusedConversionLeavesNothing) {
    const ColorImagePtr source = filled(KO_COLORSPACE_GRAY);
    sweep_faults([&] {
        EXPECT_EQ(KoColorImageNewFromColorImage(KO_COLORSPACE_YIQ, source.get()), nullptr);
        EXPECT_NE(KoErrorGetLastError(), KO_OK);
    });
}

TEST_F(ColorImageFaultTest, TransposeGivesTheStatusOfAResultThatCannotBeMade) {
    const ColorImagePtr source = filled(KO_COLORSPACE_RGB);
    expect_allocations(image_sizes(3, 5, 3), KO_ERR_CREATE_OBJECT, cannot_create("ColorImage"), [&] {
        ColorImage *result = nullptr;
        const int32_t status = KoColorImageTranspose(source.get(), &result);
        const ColorImagePtr made(result);
        EXPECT_EQ(status, KoErrorGetLastError());
        EXPECT_EQ(result == nullptr, status != KO_OK);
        return status == KO_OK;
    });
}

TEST_F(ColorImageFaultTest, ReductionGivesTheStatusOfAResultThatCannotBeMade) {
    const ColorImagePtr source = filled(KO_COLORSPACE_RGB);
    expect_allocations(Sizes{sizeof(RealImage)} + grid_blocks(5, 3), KO_ERR_CREATE_OBJECT, cannot_create("RealImage"), [&] {
        RealImage *result = nullptr;
        const int32_t status = KoColorImageToRealImage(source.get(), &result, nullptr);
        const RealImagePtr made(result);
        EXPECT_EQ(status, KoErrorGetLastError());
        EXPECT_EQ(result == nullptr, status != KO_OK);
        return status == KO_OK;
    });
}

TEST_F(ColorImageFaultTest, IteratorNewGivesNullAndNamesTheObject) {
    const ColorImagePtr image = filled(KO_COLORSPACE_RGB);
    const Sizes sizes = {sizeof(ColorImageLineIterator)};
    expect_allocations(sizes, KO_ERR_CREATE_OBJECT, cannot_create("ColorImageLineIterator"), [&] {
        ColorImageLineIterator *iterator = KoColorImageLineIteratorNew(image.get());
        KoColorImageLineIteratorDelete(iterator);
        return iterator != nullptr;
    });
    expect_allocations(sizes, KO_ERR_CREATE_OBJECT, cannot_create("ColorImageLineIterator"), [&] {
        ColorImageLineIterator *iterator = KoColorImageLineIteratorNewSubImage(image.get(), 1, 1, 2, 2);
        KoColorImageLineIteratorDelete(iterator);
        return iterator != nullptr;
    });
}

TEST_F(ColorImageFaultTest, WorkOnImagesThatAreThereNeedsNoMemory) {
    const ColorImagePtr source = filled(KO_COLORSPACE_RGB);
    const ColorImagePtr target = filled(KO_COLORSPACE_YIQ);
    std::vector<uint8_t> bytes(45);
    const std::vector<float> floats(45);
    expect_allocations({}, KO_OK, "", [&] {
        KoColorImageClear(target.get());
        KoColorImageFill(target.get(), floats.data(), 3);
        return KoColorImageFromColorImage(target.get(), source.get()) == KO_OK &&
               KoColorImageToByteArray(source.get(), bytes.data(), 0, 3, 0) == KO_OK &&
               KoColorImageFromByteArray(source.get(), bytes.data(), 0, 3, 0) == KO_OK &&
               KoColorImageFromFloatArray(source.get(), floats.data(), 0, 3) == KO_OK;
    });
}

} // namespace
