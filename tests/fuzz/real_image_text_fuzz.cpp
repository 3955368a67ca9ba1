// The text picture on any bytes, by the reader that leaves opening and closing to its caller.
#include <cstdio>

#include "files.h"
#include "imagetext.h"
#include "picture_checks.h"

namespace {

using namespace ko_fuzz;

int32_t load(const std::string &path, RealImage *image) {
    KoStatusClear();
    std::FILE *stream = std::fopen(path.c_str(), "rb");
    const int32_t status = ko::read_text_picture(stream, path.c_str(), image);
    std::fclose(stream);
    expect_load_status(status, KO_ERR_READ_FILE);
    look(image);
    return status;
}

std::string saved_text(const RealImage *image) {
    const std::string path = private_path("saved");
    expect(KoRealImageSaveTXT(image, path.c_str(), 1.0f, 0.0f) == KO_OK, "a picture can be saved");
    expect(open_streams() == 1, "a save leaves its one stream open");
    std::string text = ko_test::read_bytes(path);
    close_open_streams();
    expect(text == ko_test::read_bytes(path), "a saved text is complete when the call returns");
    return text;
}

} // namespace

// Six decimals do not hold every value, but they hold what they hold: a text that was saved is saved again as it is.
int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    start();
    const std::string path = private_file("input", text_of(data, size));
    const ko_test::RealImagePtr image(KoRealImageNew(2, 2));
    if (load(path, image.get()) != KO_OK) {
        expect(image->width == 2 && image->height == 2, "a failure leaves the image as it was");
        return 0;
    }
    expect(image->width * image->height <= size / 2, "a number takes two bytes and more");
    const std::string text = saved_text(image.get());
    expect(load(private_file("again", text), image.get()) == KO_OK, "what was saved can be loaded");
    expect(saved_text(image.get()) == text, "a saved text stays the same");
    return 0;
}
