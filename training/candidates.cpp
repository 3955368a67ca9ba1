// The program's search for red eyes as a filter for the training: pictures in, candidates with their features out.
//
//   candidates CONFIG < pictures > candidates
//
// A picture is a line with its width and its height, followed by its RGB bytes. The answer to it is a line with the number of
// candidates, followed by the circle, the evidence and the features of each as 32-bit floats. What the classifiers of CONFIG
// say is of no account.
#include <array>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <vector>

#include "ko.hpp"
#include "kohost/evidence.h"
#include "kohost/redeye_search.h"

namespace {

void write_floats(const float *values, size_t count) { std::fwrite(values, sizeof(float), count, stdout); }

void answer(const kohost::Pixels &picture, const kohost::Findings &findings) {
    std::printf("%zu\n", findings.candidates.size());
    for (const kohost::Candidate &candidate : findings.candidates) {
        const kohost::Circle circle = candidate.shape.circle();
        const std::array<float, 3> place = {static_cast<float>(circle.x), static_cast<float>(circle.y),
                                            static_cast<float>(circle.radius)};
        const kohost::Evidence evidence = kohost::evidence_about(picture, candidate.shape);
        write_floats(place.data(), place.size());
        write_floats(evidence.data(), evidence.size());
        write_floats(candidate.features.data(), candidate.features.size());
    }
    std::fflush(stdout);
}

void run(const char *model) {
    const ko::Library library;
    unsigned width = 0;
    unsigned height = 0;
    while (std::scanf("%u %u", &width, &height) == 2 && std::getchar() == '\n') {
        std::vector<uint8_t> bytes(size_t{width} * height * 3);
        if (std::fread(bytes.data(), 1, bytes.size(), stdin) != bytes.size()) {
            throw std::runtime_error("a picture is cut short");
        }
        const kohost::Pixels picture{bytes.data(), {width, height}, 3};
        answer(picture, kohost::search(picture, model, true, nullptr));
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
