// ColorImage: planes in step. Rests on RealImage for a plane's own operations and on ByteImageIterator for the layouts of
// bytes.
#include "ko/colorimage.h"

#include <algorithm>
#include <cstdio>

#include "interleave.h"
#include "matrix.h"
#include "realimage.h"

namespace {

using namespace ko;

using OwnedColorImage = Owned<ColorImage, KoColorImageDelete>;

bool has_planes(const ColorImage *image) { return image->depth != 0 && image->planes != nullptr; }

bool same_size(const RealImage *a, const RealImage *b) { return a->width == b->width && a->height == b->height; }

// True for the layouts of one block.
bool is_one_block(int32_t layout) { return layout >= KO_BYTE_LAYOUT_INTERLEAVED && layout <= KO_BYTE_LAYOUT_PLANAR; }

void pixels_to_line(const uint8_t *bytes, float *__restrict r, float *__restrict g, float *__restrict b, uint64_t width) {
    constexpr uint64_t piece = 256;
    for (uint64_t start = 0; start < width; start += piece) {
        const uint64_t count = std::min(piece, width - start);
        uint32_t words[piece];
        load_pixels(bytes + 3 * start, count, words);
        for (uint64_t x = 0; x < count; ++x) {
            r[start + x] = static_cast<float>(static_cast<int32_t>(words[x] & 255));
            g[start + x] = static_cast<float>(static_cast<int32_t>(words[x] >> 8 & 255));
            b[start + x] = static_cast<float>(static_cast<int32_t>(words[x] >> 16));
        }
    }
}

void bytes_to_line(const uint8_t *__restrict bytes, float *__restrict line, uint64_t width) {
    for (uint64_t x = 0; x < width; ++x) {
        line[x] = static_cast<float>(bytes[x]);
    }
}

void line_to_bytes(const float *line, uint8_t *__restrict bytes, uint64_t width) {
    for (uint64_t x = 0; x < width; ++x) {
        bytes[x] = wrapped_byte(line[x]);
    }
}

// Calls each(bytes, y) for the lines of a byte array of three channels, bytes being an iterator before the line's first pixel.
template <class Each>
void for_each_byte_line(const ColorImage *image, const uint8_t *array, uint32_t line_start, uint32_t line_num, int32_t layout,
                        Each each) {
    ByteImageIterator bytes;
    KoByteImageIteratorInit(&bytes, image->planes[0].width, line_num, layout, image->color_space, const_cast<uint8_t *>(array));
    const uint64_t lines = rows_walked(&image->planes[0], line_num);
    for (uint64_t y = line_start; y < line_start + lines; ++y) {
        each(bytes, y);
        KoByteImageIteratorNextLine(&bytes);
    }
}

// One pixel through a matrix: sums of three products from 0, in the order of the channels.
inline float matrix_sum(const float *row, float c0, float c1, float c2) {
    return ((0.0f + row[0] * c0) + row[1] * c1) + row[2] * c2;
}

void convert_line(const float *matrix, const ColorImage *source, ColorImage *target, uint64_t y) {
    const float *in0 = source->planes[0].rows[y];
    const float *in1 = source->planes[1].rows[y];
    const float *in2 = source->planes[2].rows[y];
    float *out0 = target->planes[0].rows[y];
    float *out1 = target->planes[1].rows[y];
    float *out2 = target->planes[2].rows[y];
    const uint64_t width = source->planes[0].width;
    // The target may be the source: a pixel is read whole before it is written, and no pixel looks at another.
#pragma GCC ivdep
    for (uint64_t x = 0; x < width; ++x) {
        const float c0 = in0[x];
        const float c1 = in1[x];
        const float c2 = in2[x];
        out0[x] = matrix_sum(matrix, c0, c1, c2);
        out1[x] = matrix_sum(matrix + 3, c0, c1, c2);
        out2[x] = matrix_sum(matrix + 6, c0, c1, c2);
    }
}

} // namespace

int32_t KoColorImageInit(ColorImage *image, uint32_t width, uint32_t height, int32_t space) {
    *image = {KoColorSpaceGetDepth(space), space, nullptr};
    image->planes = allocate<RealImage>(image->depth);
    if (image->planes == nullptr) {
        return KoErrorGetLastError();
    }
    for (uint64_t i = 0; i < image->depth; ++i) {
        image->planes[i] = {}; // so that Free may be called after a failure at any plane
    }
    for (uint64_t i = 0; i < image->depth; ++i) {
        const int32_t status = KoRealImageInit(&image->planes[i], width, height);
        if (status != KO_OK) {
            return status;
        }
    }
    return KO_OK;
}

ColorImage *KoColorImageNew(uint32_t width, uint32_t height, int32_t space) {
    return make_object<ColorImage>(
        "ColorImage", [=](ColorImage *image) { return KoColorImageInit(image, width, height, space); }, KoColorImageFree);
}

ColorImage *KoColorImageNewFromByteArray(uint32_t width, uint32_t height, int32_t space, const uint8_t *bytes, int32_t layout) {
    OwnedColorImage image(KoColorImageNew(width, height, space));
    if (!image || KoColorImageFromByteArray(image.get(), bytes, 0, height, layout) != KO_OK) {
        return nullptr;
    }
    return image.release();
}

ColorImage *KoColorImageNewFromColorImage(int32_t space, const ColorImage *source) {
    if (!has_planes(source)) {
        return nullptr;
    }
    const auto width = static_cast<uint32_t>(source->planes[0].width);
    const auto height = static_cast<uint32_t>(source->planes[0].height);
    OwnedColorImage image(KoColorImageNew(width, height, space));
    if (!image || KoColorImageFromColorImage(image.get(), source) != KO_OK) {
        return nullptr;
    }
    return image.release();
}

int32_t KoColorImageFree(ColorImage *image) {
    if (image == nullptr) {
        return KO_OK;
    }
    int32_t status = KO_OK;
    for (uint64_t i = 0; image->planes != nullptr && i < image->depth && status == KO_OK; ++i) {
        status = KoRealImageFree(&image->planes[i]);
    }
    KoFree(image->planes);
    image->planes = nullptr;
    image->depth = 0;
    return status;
}

int32_t KoColorImageDelete(ColorImage *image) {
    KoColorImageFree(image);
    KoFree(image);
    return KO_OK;
}

uint64_t KoColorImageGetDepth(const ColorImage *image) { return image->depth; }

int32_t KoColorImageGetColorSpace(const ColorImage *image) { return image->color_space; }

RealImage *KoColorImageGetImage(const ColorImage *image, uint32_t index) {
    return image != nullptr && has_planes(image) && index < image->depth ? &image->planes[index] : nullptr;
}

uint64_t KoColorImageGetWidth(const ColorImage *image) { return has_planes(image) ? image->planes[0].width : 0; }

uint64_t KoColorImageGetHeight(const ColorImage *image) { return has_planes(image) ? image->planes[0].height : 0; }

uint64_t KoColorImageGetSize(const ColorImage *image) { return has_planes(image) ? KoRealImageGetSize(&image->planes[0]) : 0; }

void KoColorImageClear(ColorImage *image) { KoColorImageFill(image, nullptr, 0); }

void KoColorImageFill(ColorImage *image, const float *values, uint64_t count) {
    for (uint64_t i = 0; i < image->depth; ++i) {
        KoRealImageFill(&image->planes[i], i < count ? values[i] : 0.0f);
    }
}

void KoColorImagePrint(const ColorImage *image, FILE *stream, uint32_t column_width, uint32_t decimals, const char *title) {
    for (uint64_t i = 0; i < image->depth; ++i) {
        if (title != nullptr) {
            std::fprintf(stream, "%s-%d\n", title, static_cast<int>(i));
        }
        print_table(&image->planes[i], stream, column_width, decimals);
    }
}

int32_t KoColorImageTranspose(const ColorImage *image, ColorImage **result) {
    if (*result == nullptr) {
        const auto width = static_cast<uint32_t>(KoColorImageGetHeight(image));
        const auto height = static_cast<uint32_t>(KoColorImageGetWidth(image));
        *result = KoColorImageNew(width, height, image->color_space);
        if (*result == nullptr) {
            return KoErrorGetLastError();
        }
    }
    for (uint64_t i = 0; i < image->depth; ++i) {
        RealImage *plane = KoColorImageGetImage(*result, static_cast<uint32_t>(i));
        if (plane == nullptr) {
            return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_INVALID_ARGUMENT);
        }
        const int32_t status = KoRealImageTranspose(&image->planes[i], &plane);
        if (status != KO_OK) {
            return status;
        }
    }
    return KO_OK;
}

int32_t KoColorImageFromByteArray(ColorImage *image, const uint8_t *bytes, uint32_t line_start, uint32_t line_num,
                                  int32_t layout) {
    if (image->depth == 1) {
        return KoRealImageFromByteArray(&image->planes[0], bytes, line_start, line_num, 0);
    }
    if (image->depth != 3 || !is_one_block(layout)) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_INVALID_ARGUMENT);
    }
    for_each_byte_line(image, bytes, line_start, line_num, layout, [image](const ByteImageIterator &line, uint64_t y) {
        const RealImage *planes = image->planes;
        if (line.pixel_increment == 3) {
            pixels_to_line(line.red, planes[0].rows[y], planes[1].rows[y], planes[2].rows[y], line.width);
        } else {
            bytes_to_line(line.red, planes[0].rows[y], line.width);
            bytes_to_line(line.green, planes[1].rows[y], line.width);
            bytes_to_line(line.blue, planes[2].rows[y], line.width);
        }
    });
    return KO_OK;
}

int32_t KoColorImageToByteArray(const ColorImage *image, uint8_t *bytes, uint32_t line_start, uint32_t line_num,
                                int32_t layout) {
    if (image->depth == 1) {
        return KoRealImageToByteArray(&image->planes[0], bytes, line_start, line_num, 0);
    }
    if (image->depth != 3 || !is_one_block(layout)) {
        KO_REPORT(KO_LEVEL_ERROR, KO_ERR_INVALID_ARGUMENT); // the result is KO_OK all the same
        return KO_OK;
    }
    for_each_byte_line(image, bytes, line_start, line_num, layout, [image](const ByteImageIterator &line, uint64_t y) {
        const RealImage *planes = image->planes;
        if (line.pixel_increment == 3) {
            floats_to_pixels(planes[0].rows[y], planes[1].rows[y], planes[2].rows[y], line.width, line.red);
        } else {
            line_to_bytes(planes[0].rows[y], line.red, line.width);
            line_to_bytes(planes[1].rows[y], line.green, line.width);
            line_to_bytes(planes[2].rows[y], line.blue, line.width);
        }
    });
    return KO_OK;
}

int32_t KoColorImageFromFloatArray(ColorImage *image, const float *floats, uint64_t line_start, uint64_t line_num) {
    if (image->depth == 1) {
        return KoRealImageFromFloatArray(&image->planes[0], floats, line_start, line_num, 0);
    }
    if (image->depth != 3) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_INVALID_ARGUMENT);
    }
    const uint64_t lines = rows_walked(&image->planes[0], line_num);
    for (uint64_t y = line_start; y < line_start + lines; ++y) {
        for (uint64_t x = 0; x < image->planes[0].width; ++x, floats += 3) {
            for (uint64_t c = 0; c < 3; ++c) {
                image->planes[c].rows[y][x] = floats[c];
            }
        }
    }
    return KO_OK;
}

int32_t KoColorImageFromColorImage(ColorImage *image, const ColorImage *source) {
    if (image->depth != 3 || source->depth != 3 || !same_size(&image->planes[0], &source->planes[0])) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_INVALID_ARGUMENT);
    }
    const float *matrix = KoColorSpaceGetConversionMatrix(source->color_space, image->color_space);
    for (uint64_t y = 0; y < source->planes[0].height; ++y) {
        convert_line(matrix, source, image, y);
    }
    return KO_OK;
}

int32_t KoColorImageToRealImage(const ColorImage *image, RealImage **result, const float *weights) {
    if (image->depth != 3 || result == nullptr) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_INVALID_ARGUMENT);
    }
    *result = KoRealImageNew(image->planes[0].width, image->planes[0].height);
    if (*result == nullptr) {
        return KoErrorGetLastError();
    }
    if (weights == nullptr) {
        weights = KoColorSpaceGetConversionMatrix(KO_COLORSPACE_RGB, KO_COLORSPACE_GRAY);
    }
    const float w0 = weights[0];
    const float w1 = weights[1];
    const float w2 = weights[2];
    for (uint64_t y = 0; y < (*result)->height; ++y) {
        const float *red = image->planes[0].rows[y];
        const float *green = image->planes[1].rows[y];
        const float *blue = image->planes[2].rows[y];
        float *out = (*result)->rows[y];
        for (uint64_t x = 0; x < (*result)->width; ++x) {
            const float sum = (red[x] * w0 + green[x] * w1) + blue[x] * w2;
            out[x] = sum > 0.0f ? sum : 0.0f;
        }
    }
    return KO_OK;
}

int32_t KoColorImageLineIteratorInit(ColorImageLineIterator *iterator, ColorImage *image) {
    return KoColorImageLineIteratorInitSubImage(iterator, image, 0, 0, KoColorImageGetWidth(image),
                                                KoColorImageGetHeight(image));
}

int32_t KoColorImageLineIteratorInitSubImage(ColorImageLineIterator *iterator, ColorImage *image, uint64_t x_start,
                                             uint64_t y_start, uint64_t width, uint64_t height) {
    iterator->image = image;
    KoRealImageLineIteratorInitSubImage(&iterator->red, &image->planes[0], x_start, y_start, width, height);
    if (image->depth >= 3) {
        KoRealImageLineIteratorInitSubImage(&iterator->green, &image->planes[1], x_start, y_start, width, height);
        KoRealImageLineIteratorInitSubImage(&iterator->blue, &image->planes[2], x_start, y_start, width, height);
    }
    return KO_OK;
}

ColorImageLineIterator *KoColorImageLineIteratorNew(ColorImage *image) {
    return KoColorImageLineIteratorNewSubImage(image, 0, 0, KoColorImageGetWidth(image), KoColorImageGetHeight(image));
}

ColorImageLineIterator *KoColorImageLineIteratorNewSubImage(ColorImage *image, uint64_t x_start, uint64_t y_start,
                                                            uint64_t width, uint64_t height) {
    return make_object<ColorImageLineIterator>(
        "ColorImageLineIterator",
        [=](ColorImageLineIterator *iterator) {
            return KoColorImageLineIteratorInitSubImage(iterator, image, x_start, y_start, width, height);
        },
        KoColorImageLineIteratorFree);
}

int32_t KoColorImageLineIteratorHasNext(const ColorImageLineIterator *iterator) {
    return KoRealImageLineIteratorHasNext(&iterator->red);
}

void KoColorImageLineIteratorNext(ColorImageLineIterator *iterator, float **red, float **green, float **blue) {
    *red = KoRealImageLineIteratorNext(&iterator->red);
    if (iterator->image->depth >= 3) {
        *green = KoRealImageLineIteratorNext(&iterator->green);
        *blue = KoRealImageLineIteratorNext(&iterator->blue);
    }
}

float *KoColorImageLineIteratorRedLineEnd(const ColorImageLineIterator *iterator) { return iterator->red.line_end; }

uint64_t KoColorImageLineIteratorGetWidth(const ColorImageLineIterator *iterator) { return iterator->red.width; }

uint64_t KoColorImageLineIteratorGetHeight(const ColorImageLineIterator *iterator) { return iterator->red.height; }

int32_t KoColorImageLineIteratorFree(ColorImageLineIterator *) { return KO_OK; }

int32_t KoColorImageLineIteratorDelete(ColorImageLineIterator *iterator) {
    KoFree(iterator);
    return KO_OK;
}
