#include "large_files.h"

#include <cstdio>
#include <memory>
#include <vector>

#include <jpeglib.h>
#include <png.h>

#include "judged_pictures.h"

namespace ko_test {

namespace {

using FilePtr = std::unique_ptr<std::FILE, decltype([](std::FILE *file) { std::fclose(file); })>;

// The rows of the texture, which repeats itself.
class Texture {
  public:
    explicit Texture(uint32_t width) {
        for (uint32_t y = 0; y < period; ++y) {
            std::vector<uint8_t> row(size_t{width} * 3);
            for (uint32_t i = 0; i < row.size(); ++i) {
                row[i] = static_cast<uint8_t>(y + i / 3 % period / 2 + scatter(i / 24, y / 4) % 24);
            }
            rows_.push_back(row);
        }
    }

    uint8_t *row(uint32_t y) { return rows_[y % period].data(); }

  private:
    static constexpr uint32_t period = 64;

    std::vector<std::vector<uint8_t>> rows_;
};

} // namespace

void write_large_jpeg(const std::string &path, uint32_t width, uint32_t height) {
    const FilePtr file(std::fopen(path.c_str(), "wb"));
    Texture texture(width);
    jpeg_compress_struct info{};
    jpeg_error_mgr errors{};
    info.err = jpeg_std_error(&errors);
    jpeg_create_compress(&info);
    jpeg_stdio_dest(&info, file.get());
    info.image_width = width;
    info.image_height = height;
    info.in_color_space = JCS_RGB;
    info.input_components = 3;
    jpeg_set_defaults(&info);
    jpeg_start_compress(&info, TRUE);
    for (uint32_t y = 0; y < height; ++y) {
        JSAMPROW row = texture.row(y);
        jpeg_write_scanlines(&info, &row, 1);
    }
    jpeg_finish_compress(&info);
    jpeg_destroy_compress(&info);
}

void write_large_png(const std::string &path, uint32_t width, uint32_t height) {
    const FilePtr file(std::fopen(path.c_str(), "wb"));
    Texture texture(width);
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_init_io(png, file.get());
    png_set_IHDR(png, info, width, height, 8, PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    png_set_compression_level(png, 1);
    png_set_filter(png, PNG_FILTER_TYPE_BASE, PNG_FILTER_NONE);
    png_write_info(png, info);
    for (uint32_t y = 0; y < height; ++y) {
        png_write_row(png, texture.row(y));
    }
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
}

} // namespace ko_test
