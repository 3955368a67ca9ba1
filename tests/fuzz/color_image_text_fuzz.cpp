// KoColorImageLoadTXT on any bytes: the texts of the planes stand one behind the other with "|" between. One text is a gray
// picture under the bare path; of three, the files of the planes; of two, the last file is missing.
#include <cstdio>
#include <vector>

#include "files.h"
#include "picture_checks.h"

namespace {

using namespace ko_fuzz;

const std::vector<std::string> plane_names{".R", ".G", ".B"};

std::vector<std::string> texts_of(const std::string &input) {
    std::vector<std::string> texts;
    size_t begin = 0;
    while (texts.size() < 2 && input.find('|', begin) != std::string::npos) {
        const size_t end = input.find('|', begin);
        texts.push_back(input.substr(begin, end - begin));
        begin = end + 1;
    }
    texts.push_back(input.substr(begin));
    return texts;
}

std::string write_picture(const std::vector<std::string> &texts) {
    const std::string path = private_path("picture");
    for (const std::string &name : plane_names) {
        std::remove((path + name).c_str());
    }
    for (size_t c = 0; c < texts.size(); ++c) {
        private_file(texts.size() == 1 ? "picture" : std::string("picture").append(plane_names[c]), texts[c]);
    }
    return path;
}

void look(const ColorImage *image, bool gray) {
    expect(image->color_space == (gray ? KO_COLORSPACE_GRAY : KO_COLORSPACE_YIQ), "the colour space stays, or is gray");
    expect(image->depth == (gray ? 1u : 3u), "a colour space has its planes");
    for (uint64_t c = 0; c < image->depth; ++c) {
        ko_fuzz::look(&image->planes[c]);
        expect(image->planes[c].width == image->planes[0].width && image->planes[c].height == image->planes[0].height,
               "planes are of one size");
    }
}

// The calls leave their streams open (see "Streams that stay open" in docs/compatibility.md): the harness closes them.
int32_t load(const std::string &path, ColorImage *image, bool gray) {
    KoStatusClear();
    const int32_t status = KoColorImageLoadTXT(image, path.c_str(), 0.0, 0.0);
    close_open_streams();
    expect_load_status(status, status == KO_ERR_OPEN_READ ? KO_ERR_OPEN_READ : KO_ERR_READ_FILE);
    look(image, gray);
    return status;
}

std::vector<std::string> saved_texts(const ColorImage *image) {
    const std::string path = private_path("saved");
    const bool gray = image->depth == 1;
    expect((gray ? KoRealImageSaveTXT(&image->planes[0], path.c_str(), 1.0f, 0.0f)
                 : KoColorImageSaveTXT(image, path.c_str(), 1.0f, 0.0f)) == KO_OK,
           "a picture can be saved");
    close_open_streams();
    std::vector<std::string> texts;
    for (size_t c = 0; c < image->depth; ++c) {
        texts.push_back(ko_test::read_bytes(gray ? path : path + plane_names[c]));
    }
    return texts;
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    start();
    const std::vector<std::string> texts = texts_of(text_of(data, size));
    const bool gray = texts.size() == 1;
    const ko_test::ColorImagePtr image(KoColorImageNew(2, 2, KO_COLORSPACE_YIQ));
    if (load(write_picture(texts), image.get(), gray) != KO_OK) {
        return 0;
    }
    expect(texts.size() != 2, "a picture of two planes is none");
    const std::vector<std::string> saved = saved_texts(image.get());
    expect(load(write_picture(saved), image.get(), gray) == KO_OK, "what was saved can be loaded");
    expect(saved_texts(image.get()) == saved, "saved texts stay the same");
    return 0;
}
