// The text format of pictures: lines of numbers, a file a plane. Loading and saving leave their streams open (see "Streams that
// stay open" in docs/compatibility.md); a save flushes its stream, so that the text is on its way to the disk when the call
// returns.
#include "imagetext.h"

#include <cstring>

#include "alloc.h"
#include "matrix.h"
#include "platform.h"
#include "report.h"

namespace {

using namespace ko;

// The numbers of a file, with the shape that its line feeds give them.
class Numbers {
  public:
    // Reads numbers, each with the character behind it, as long as both come.
    [[nodiscard]] int32_t read(FILE *stream) {
        if (!make_room()) {
            return KoErrorGetLastError();
        }
        float number = 0.0f;
        char behind = 0;
        while (std::fscanf(stream, "%f%c", &number, &behind) == 2) {
            if (count_ == room_ && !make_room()) {
                return KoErrorGetLastError();
            }
            numbers_[count_++] = number;
            if (behind == '\n') {
                end_row();
            }
        }
        return KO_OK;
    }

    // Only the first row's length counts: later ones may differ as long as the total fits.
    bool fill_rows() const { return count_ == width_ * rows_; }

    uint64_t width() const { return width_; }
    uint64_t rows() const { return rows_; }
    const float *get() const { return numbers_.get(); }

  private:
    bool make_room() {
        room_ = room_ == 0 ? 1 : 2 * room_;
        return reallocate(&numbers_, room_);
    }

    void end_row() {
        if (rows_++ == 0) {
            width_ = count_;
        }
    }

    Block<float> numbers_;
    uint64_t room_ = 0;
    uint64_t count_ = 0;
    uint64_t width_ = 0;
    uint64_t rows_ = 0;
};

// Replaces an image by a fresh one of a size, pixels not set; what cannot be allocated leaves the image as it was.
int32_t replace_image(RealImage *image, uint64_t width, uint64_t height) {
    RealImage fresh;
    const int32_t status = KoRealImageInit(&fresh, width, height);
    KoRealImageFree(status == KO_OK ? image : &fresh);
    if (status == KO_OK) {
        *image = fresh;
    }
    return status;
}

// A path with a plane's letter behind it.
class PlanePath {
  public:
    explicit PlanePath(const char *path) : length_(std::strlen(path)), name_(allocate<char>(length_ + 3)) {
        if (name_) {
            std::memcpy(name_.get(), path, length_);
            std::memcpy(name_.get() + length_, ".R", 3);
        }
    }

    explicit operator bool() const { return static_cast<bool>(name_); }

    const char *of(uint64_t plane) {
        name_[length_ + 1] = "RGB"[plane];
        return name_.get();
    }

  private:
    size_t length_;
    Block<char> name_;
};

constexpr uint64_t text_planes = 3;

// Calls each(plane, path) for the planes, up to the first failure.
template <class Each> int32_t for_each_plane(PlanePath *name, Each each) {
    int32_t status = KO_OK;
    for (uint64_t i = 0; i < text_planes && status == KO_OK; ++i) {
        status = each(i, name->of(i));
    }
    return status;
}

int32_t load_gray(ColorImage *image, const char *path) {
    if (image->color_space != KO_COLORSPACE_GRAY || KoColorImageGetImage(image, 0) == nullptr) {
        KoColorImageFree(image);
        const int32_t status = KoColorImageInit(image, 0, 0, KO_COLORSPACE_GRAY);
        if (status != KO_OK) {
            KoColorImageFree(image);
            return status;
        }
    }
    return KoRealImageLoadTXT(&image->planes[0], path);
}

bool has_size_of(const RealImage *a, const RealImage *b) { return a->width == b->width && a->height == b->height; }

// Files may differ in size, and a load may end between them, but everything that walks planes in step takes the first one's
// size for all: planes of another size are replaced by cleared ones. uneven tells whether there were any.
int32_t even_out_planes(ColorImage *image, bool *uneven) {
    for (uint64_t i = 1; i < image->depth; ++i) {
        if (has_size_of(&image->planes[i], &image->planes[0])) {
            continue;
        }
        *uneven = true;
        const int32_t status = replace_image(&image->planes[i], image->planes[0].width, image->planes[0].height);
        if (status != KO_OK) {
            KoColorImageFree(image);
            return status;
        }
        KoRealImageClear(&image->planes[i]);
    }
    return KO_OK;
}

} // namespace

int32_t ko::read_text_picture(FILE *stream, const char *path, RealImage *image) {
    Numbers numbers;
    int32_t status = numbers.read(stream);
    if (status != KO_OK) {
        return status;
    }
    if (!numbers.fill_rows()) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_READ_FILE, path);
    }
    status = replace_image(image, numbers.width(), numbers.rows());
    if (status == KO_OK && numbers.rows() != 0) {
        KoRealImageFromFloatArray(image, numbers.get(), 0, numbers.rows(), 0);
    }
    return status;
}

int32_t KoRealImageLoadTXT(RealImage *image, const char *path) {
    FILE *stream = std::fopen(path, "rb");
    return stream != nullptr ? read_text_picture(stream, path, image) : KO_REPORT(KO_LEVEL_ERROR, KO_ERR_OPEN_READ, path);
}

int32_t KoRealImageSaveTXT(const RealImage *image, const char *path, float scale, float) {
    FILE *stream = std::fopen(path, "wb");
    if (stream == nullptr) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_OPEN_WRITE, path);
    }
    for (uint64_t y = 0; y < image->height; ++y) {
        for (uint64_t x = 0; x < image->width; ++x) {
            const float value = scale * image->rows[y][x];
            std::fprintf(stream, "%f%c", static_cast<double>(value), x + 1 < image->width ? ',' : '\n');
        }
    }
    std::fflush(stream);
    return KO_OK;
}

int32_t KoColorImageLoadTXT(ColorImage *image, const char *path, double, double) {
    PlanePath name(path);
    if (!name) {
        return KoErrorGetLastError();
    }
    if (!file_exists(name.of(0))) {
        return load_gray(image, path);
    }
    if (KoColorImageGetImage(image, text_planes - 1) == nullptr) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_INVALID_ARGUMENT);
    }
    const int32_t status = for_each_plane(
        &name, [=](uint64_t i, const char *plane_path) { return KoRealImageLoadTXT(&image->planes[i], plane_path); });
    bool uneven = false;
    const int32_t evened = even_out_planes(image, &uneven);
    if (status != KO_OK || evened != KO_OK) {
        return status != KO_OK ? status : evened;
    }
    return uneven ? KO_REPORT(KO_LEVEL_ERROR, KO_ERR_READ_FILE, path) : status;
}

int32_t KoColorImageSaveTXT(const ColorImage *image, const char *path, float scale, float save_option) {
    if (KoColorImageGetImage(image, text_planes - 1) == nullptr) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_INVALID_ARGUMENT);
    }
    PlanePath name(path);
    return name ? for_each_plane(&name,
                                 [=](uint64_t i, const char *plane_path) {
                                     return KoRealImageSaveTXT(&image->planes[i], plane_path, scale, save_option);
                                 })
                : KoErrorGetLastError();
}
