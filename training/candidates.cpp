// The program's search for red eyes as a filter for the training: pictures in, candidates with their features out.
//
//   candidates CONFIG < pictures > candidates
//
// A picture is a line with its width and its height, followed by its RGB bytes. The answer to it is a line with the number of
// candidates, followed by numbers_per_candidate and the features of each as 32-bit floats. What the classifiers of CONFIG say
// is of no account.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <vector>

#include "kohost/library.h"
#include "kohost/redeye.h"

namespace {

constexpr size_t numbers_per_candidate = 5; // the box in pixels of the picture, and the contrast

void write_floats(const float *values, size_t count) { std::fwrite(values, sizeof(float), count, stdout); }

void answer(const kohost::RedEyes &eyes) {
    std::printf("%zu\n", static_cast<size_t>(eyes.patches()));
    for (const kohost::Blob &blob : eyes.blobs) {
        if (blob.patch) {
            const auto scaled = [&](uint32_t place) { return static_cast<float>(place) * eyes.scale; };
            const std::array<float, numbers_per_candidate> numbers = {
                scaled(blob.box.x0), scaled(blob.box.y0), scaled(blob.box.x1), scaled(blob.box.y1), *blob.patch->contrast};
            write_floats(numbers.data(), numbers.size());
            write_floats(blob.patch->features.data(), blob.patch->features.size());
        }
    }
    std::fflush(stdout);
}

void run(const char *model) {
    const kohost::Library library;
    unsigned width = 0;
    unsigned height = 0;
    while (std::scanf("%u %u", &width, &height) == 2 && std::getchar() == '\n') {
        std::vector<uint8_t> bytes(size_t{width} * height * 3);
        if (std::fread(bytes.data(), 1, bytes.size(), stdin) != bytes.size()) {
            throw std::runtime_error("a picture is cut short");
        }
        answer(kohost::candidates_in({bytes.data(), {width, height}, 3}, model));
    }
}

} // namespace

int main(int argc, char **argv) {
    if (argc != 2) {
        std::fputs("candidates CONFIG < pictures > candidates\n", stderr);
        return 2;
    }
    try {
        run(argv[1]);
        return 0;
    } catch (const std::exception &error) {
        std::fprintf(stderr, "candidates: %s\n", error.what());
        return 1;
    }
}
