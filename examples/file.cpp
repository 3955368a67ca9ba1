// Enhances an image file from C++: file INPUT OUTPUT. PNG and JPEG files are loaded and saved through the library's slots,
// which the plug-in koio fills. Metadata are not kept; the program `ko` keeps them.
#include <cstdint>
#include <iostream>
#include <vector>

#include <kohost/kohost.hpp>

namespace {

kohost::Image loaded(const char *path) {
    KoStatusClear();
    const ko::ColorImagePtr image(KoColorImageNew(1, 1, KO_COLORSPACE_RGB));
    ko::check(image != nullptr && KoColorImageLoad(image.get(), path, nullptr) == KO_OK, "the picture cannot be loaded");
    const kohost::Size size = {static_cast<uint32_t>(KoColorImageGetWidth(image.get())),
                               static_cast<uint32_t>(KoColorImageGetHeight(image.get()))};
    const auto channels = static_cast<uint32_t>(image->depth); // 1 for a gray file
    std::vector<uint8_t> bytes(size.area() * channels);
    ko::check(KoColorImageToByteArray(image.get(), bytes.data(), 0, size.height, KO_BYTE_LAYOUT_INTERLEAVED) == KO_OK,
              "the picture cannot be converted");
    return {size, channels, bytes};
}

void save(const kohost::Image &picture, const char *path) {
    KoStatusClear();
    const ko::ColorImagePtr image = kohost::image_of(picture.pixels());
    ko::check(KoColorImageSave(image.get(), path, nullptr, 1.0f, 0.0f) == KO_OK, "the picture cannot be saved");
}

} // namespace

int main(int count, char **arguments) {
    if (count != 3) {
        std::cerr << "usage: file INPUT OUTPUT\n";
        return 2;
    }
    try {
        const ko::Library library;
        kohost::Image picture = loaded(arguments[1]);
        const kohost::Enhancement done = kohost::enhance(picture.bytes.data(), picture.size, picture.channels, {}, {});
        save(picture, arguments[2]);
        std::cout << picture.size.width << " x " << picture.size.height << ", "
                  << (done.curves != nullptr ? "enhanced" : "left as it is: " + done.reason) << "\n";
        return 0;
    } catch (const std::exception &error) {
        std::cerr << error.what() << "\n";
        return 1;
    }
}
