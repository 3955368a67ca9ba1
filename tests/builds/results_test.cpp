// The results of all hot paths but the token streams over pictures of odd sizes, as hashes. results.txt holds them: every build
// on every platform gives the same. A hash that differs is a result that changed; the tests of its family say where.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "awkward_floats.h"
#include "ko.h"
#include "pictures.h"

namespace {

using namespace ko_test;

// FNV-1a over values. Any NaN counts as any other: which of two a sum passes on is left to the compiler.
class Hash {
  public:
    void add(uint64_t value, int bytes) {
        for (int i = 0; i < bytes; ++i) {
            state_ = (state_ ^ (value >> (8 * i) & 255)) * 0x100000001b3u;
        }
    }
    void add(float value) { add(std::isnan(value) ? 0x7fc00000u : std::bit_cast<uint32_t>(value), 4); }
    void add(uint8_t value) { add(value, 1); }
    void add(uint32_t value) { add(value, 4); }
    void add(int32_t value) { add(static_cast<uint32_t>(value), 4); }
    template <class T> void add(const std::vector<T> &values) {
        for (const T &value : values) {
            add(value);
        }
    }
    void add(const RealImage *image) { add(pixels(image)); }
    void add(const ColorImage *image) {
        for (uint64_t c = 0; c < image->depth; ++c) {
            add(&image->planes[c]);
        }
    }

    uint64_t value() const { return state_; }

  private:
    uint64_t state_ = 0xcbf29ce484222325u;
};

struct Size {
    uint32_t width;
    uint32_t height;
};

// Shorter than every group of pixels or rows that a loop takes at a time, longer than it, and not a multiple.
constexpr Size sizes[] = {{1, 1}, {3, 19}, {21, 2}, {67, 50}, {131, 103}, {517, 37}, {1043, 70}};

RealImagePtr gray_photograph(Size size) {
    const std::vector<uint8_t> bytes = photograph(size.width, size.height, 1, 5);
    return make_image(size.width, size.height, std::vector<float>(bytes.begin(), bytes.end()));
}

RealImagePtr awkward_image(Size size) {
    return make_image(size.width, size.height, awkward_floats(uint64_t{size.width} * size.height, size.width));
}

ColorImagePtr color_photograph(Size size) {
    return ColorImagePtr(KoColorImageNewFromByteArray(size.width, size.height, KO_COLORSPACE_RGB,
                                                      photograph(size.width, size.height, 3, 3).data(),
                                                      KO_BYTE_LAYOUT_INTERLEAVED));
}

// Adds what make(image) gives for each of both pictures.
template <class Make> void add_images(Size size, Hash *hash, Make make) {
    for (const RealImagePtr &image : {gray_photograph(size), awkward_image(size)}) {
        const RealImagePtr result(make(image.get()));
        ASSERT_NE(result, nullptr);
        hash->add(result.get());
    }
}

void planes(Size size, Hash *hash) {
    for (const int32_t layout : {KO_BYTE_LAYOUT_INTERLEAVED, KO_BYTE_LAYOUT_PLANAR}) {
        const std::vector<uint8_t> bytes = noise_bytes(uint64_t{size.width} * size.height * 3, 7);
        const ColorImagePtr image(
            KoColorImageNewFromByteArray(size.width, size.height, KO_COLORSPACE_RGB, bytes.data(), layout));
        hash->add(image.get());
        std::vector<uint8_t> back(bytes.size());
        KoColorImageToByteArray(image.get(), back.data(), 0, size.height, layout);
        hash->add(back);
    }
    std::vector<uint8_t> back(uint64_t{size.width} * size.height * 3);
    const ColorImagePtr awkward = make_color_image(size.width, size.height, KO_COLORSPACE_RGB,
                                                   [values = awkward_floats(997, 3)](uint32_t c, uint64_t x, uint64_t y) {
                                                       return values[(c * 331 + x * 7 + y * 13) % values.size()];
                                                   });
    KoColorImageToByteArray(awkward.get(), back.data(), 0, size.height, KO_BYTE_LAYOUT_INTERLEAVED);
    hash->add(back);
}

void yiq(Size size, Hash *hash) {
    const ColorImagePtr image = color_photograph(size);
    const ColorImagePtr converted(KoColorImageNewFromColorImage(KO_COLORSPACE_YIQ, image.get()));
    hash->add(converted.get());
}

void transpose(Size size, Hash *hash) {
    add_images(size, hash, [](RealImage *image) {
        RealImage *result = nullptr;
        KoRealImageTranspose(image, &result);
        return result;
    });
}

void blur(Size size, Hash *hash, int32_t mode) {
    for (const float sigma : {0.8f, 4.0f, 60.0f}) {
        const KernelGaussianPtr kernel(KoKernelGaussianNewTune(sigma, 1.75f, mode));
        add_images(size, hash, [&](RealImage *image) {
            RealImage *result = nullptr;
            KoKernelGaussianConvolution(kernel.get(), image, &result);
            return result;
        });
    }
}

void finite_blur(Size size, Hash *hash) { blur(size, hash, 0); }

void recursive_blur(Size size, Hash *hash) { blur(size, hash, 1); }

void bilateral(Size size, Hash *hash) {
    const RealImagePtr image = gray_photograph(size);
    for (const uint64_t levels : {2, 5}) {
        RealImage *result = nullptr;
        KoFilterBLFApplyToRealImage(image.get(), &result, levels);
        hash->add(RealImagePtr(result).get());
    }
}

void dense_kernel(Size size, Hash *hash) {
    for (const Size kernel_size : {Size{1, 1}, Size{3, 3}, Size{13, 1}, Size{1, 13}, Size{4, 6}}) {
        const RealImagePtr kernel(KoKernelNewGaussian(kernel_size.width, kernel_size.height, 2.0f));
        add_images(size, hash, [&](RealImage *image) {
            RealImage *result = nullptr;
            KoKernelNewRealImage(kernel.get(), image, &result);
            return result;
        });
    }
}

void histogram(Size size, Hash *hash) {
    for (const uint32_t bins : {1u, 160u, 256u, 5000u}) {
        for (const RealImagePtr &image : {gray_photograph(size), awkward_image(size)}) {
            const ko::HistogramPtr counted(KoHistogramNew(bins, -20.0f, 250.0f));
            KoHistogramCompute(counted.get(), image.get());
            for (uint32_t bin = 0; bin < bins; ++bin) {
                hash->add(KoHistogramGetValue(counted.get(), bin));
            }
        }
    }
}

void resize(Size size, Hash *hash) {
    add_images(size, hash, [=](RealImage *image) {
        RealImage *result = nullptr;
        KoRealImageResize(image, size.width * 5 / 7 + 1, size.height * 11 / 8 + 1, &result);
        return result;
    });
    add_images(size, hash, [](RealImage *image) {
        RealImage *result = nullptr;
        KoRealImageDownsample(image, 1.3f, &result);
        return result;
    });
    add_images(size, hash, [](RealImage *image) {
        RealImage *result = nullptr;
        KoRealImageUpsample(image, 2.6f, &result);
        return result;
    });
}

void fit(Size size, Hash *hash) {
    const RealImagePtr input = gray_photograph(size);
    const RealImagePtr target = make_image(size.width, size.height, [&](uint64_t x, uint64_t y) {
        return std::min(255.0f, input->rows[y][x] * (1.0f + static_cast<float>((x * 7 + y) % 5) * 0.2f));
    });
    for (const uint64_t levels : {16, 256, 300}) {
        const TRCPtr curve(KoTRCNew(levels));
        RealImageLineIterator in;
        RealImageLineIterator out;
        KoRealImageLineIteratorInit(&in, input.get());
        KoRealImageLineIteratorInit(&out, target.get());
        KoTRCCompute(curve.get(), &in, &out);
        hash->add(std::vector<uint32_t>(curve->array, curve->array + levels));
    }
}

// A rising curve, another for every place.
std::vector<uint32_t> curve_at(uint64_t levels, uint64_t place) {
    std::vector<uint32_t> curve;
    for (uint64_t i = 0; i < levels; ++i) {
        curve.push_back(static_cast<uint32_t>(std::min<uint64_t>(levels - 1, i + i * (place % 11) / (i / 8 + 4))));
    }
    return curve;
}

void tile_application(Size size, Hash *hash) {
    constexpr uint64_t levels = 256;
    const TileTRCPtr grid(KoTileTRCNew(levels, 5, 3));
    for (uint64_t place = 0; place < 15; ++place) {
        KoTileTRCSetTileFromArray(grid.get(), place % 5, place / 5, curve_at(levels, place * 3).data());
    }
    for (const int32_t space : {KO_COLORSPACE_RGB, KO_COLORSPACE_GRAY}) {
        for (const float ratio_weight : {0.5f, 0.0f, 1.0f}) {
            const TileTRCApplyPtr apply(KoTileTRCApplyNew(grid.get(), ratio_weight, nullptr, size.width, size.height,
                                                          KO_BYTE_LAYOUT_INTERLEAVED, space));
            if (!apply) {
                KoStatusClear();
                hash->add(0u); // tiles that are too small for the grid
                continue;
            }
            const std::vector<uint8_t> input = photograph(size.width, size.height, KoColorSpaceGetDepth(space), 9);
            std::vector<uint8_t> output(input.size());
            KoTileTRCApplyToByteChunk(apply.get(), size.height, input.data(), output.data());
            hash->add(output);
        }
    }
}

void color_grid_application(Size size, Hash *hash) {
    constexpr uint64_t levels = 256;
    const TileColorTRCPtr grid(KoTileColorTRCNew(levels, 5, 3));
    for (uint64_t place = 0; place < 15; ++place) {
        KoTileColorTRCSetTileFromArray(grid.get(), place % 5, place / 5, curve_at(levels, place).data(),
                                       curve_at(levels, place * 3).data(), curve_at(levels, place * 5).data());
    }
    const TileColorTRCApplyPtr apply(KoTileColorTRCApplyNew(grid.get(), size.width, size.height, KO_BYTE_LAYOUT_INTERLEAVED));
    if (!apply) {
        KoStatusClear();
        hash->add(0u);
        return;
    }
    const std::vector<uint8_t> input = photograph(size.width, size.height, 3, 11);
    std::vector<uint8_t> output(input.size());
    KoTileColorTRCApplyToByteChunk(apply.get(), size.height, input.data(), output.data());
    hash->add(output);
}

void labelling(Size size, Hash *hash) {
    const uint64_t count = uint64_t{size.width} * size.height;
    for (const float threshold : {40.0f, 90.0f, 160.0f}) {
        const RealImagePtr image = gray_photograph(size);
        std::vector<int32_t> labels(count);
        std::vector<uint32_t> table(count / 2 + 2 * size.width + 2 * size.height + 2);
        std::vector<BlobInfo> blobs(table.size());
        const uint32_t found = KoConCompRealImage(image.get(), threshold, labels.data(), table.data());
        hash->add(found);
        hash->add(KoConCompRealImageInfo(size.width, size.height, labels.data(), table.data(), blobs.data()));
        hash->add(labels);
        for (uint32_t i = 0; i <= found; ++i) {
            for (const uint32_t value :
                 {table[i], blobs[i].min_x, blobs[i].max_x, blobs[i].min_y, blobs[i].max_y, blobs[i].area}) {
                hash->add(value);
            }
        }
    }
}

void enhancement(Size size, Hash *hash) {
    const ColorImagePtr image = color_photograph(size);
    for (const int32_t configuration : {3, 4}) {
        const FeaturesPtr features(KoLocalContrastEnhancementNew(256, 8, 8));
        features->keepScoring = 1;
        TileTRC *curves = nullptr;
        KoLocalContrastEnhancementGetNewTRCsTune(features.get(), image.get(), 3.0f, 40.0f, 0.6275f, 5, 0.4f, configuration,
                                                 &curves);
        KoStatusClear();
        const TileTRCPtr owned(curves);
        hash->add(features->proceed);
        for (const float *scores : {features->detailScores, features->noiseScores, features->entropyScores}) {
            hash->add(scores != nullptr ? std::vector<float>(scores, scores + 64) : std::vector<float>());
        }
        if (curves != nullptr) {
            hash->add(std::vector<uint32_t>(curves->array, curves->array + 256 * 64));
        }
    }
}

void red_eye_maps(Size size, Hash *hash) {
    const ColorImagePtr image = color_photograph(size);
    const ko::RedEyeCorrectionPtr correction(KoRedEyeCorrectionNew());
    const ko::RedEyeImageParamPtr param(KoRedEyeImageParamNew(image.get()));
    KoRedEyeCorrectionDownsample(correction.get(), param.get());
    KoRedEyeCorrectionReddishProbability(correction.get(), param.get(), 1);
    KoRedEyeCorrectionRedLumProbability(correction.get(), param.get(), 1);
    KoRedEyeCorrectionColProbability(correction.get(), param.get());
    KoStatusClear();
    if (param->col_map != nullptr) {
        hash->add(param->col_map);
        KoRedEyeCorrectionCircularity(correction.get(), param.get());
        hash->add(param->col_map);
    }
    KoStatusClear();
}

struct Stage {
    const char *name;
    void (*run)(Size, Hash *);
};

constexpr Stage stages[] = {{"bytes and planes", planes},
                            {"RGB to YIQ", yiq},
                            {"transpose", transpose},
                            {"finite blur", finite_blur},
                            {"recursive blur", recursive_blur},
                            {"bilateral filter", bilateral},
                            {"dense kernel", dense_kernel},
                            {"histogram", histogram},
                            {"resize", resize},
                            {"fit", fit},
                            {"tile application", tile_application},
                            {"colour grid application", color_grid_application},
                            {"labelling", labelling},
                            {"enhancement", enhancement},
                            {"red-eye maps", red_eye_maps}};

// The lines "hash name" of the file, by name.
std::map<std::string, std::string> expected_hashes() {
    std::ifstream file(KO_RESULTS);
    std::map<std::string, std::string> hashes;
    for (std::string line; std::getline(file, line);) {
        line.erase(std::find(line.begin(), line.end(), '\r'), line.end());
        hashes[line.substr(std::min<size_t>(17, line.size()))] = line.substr(0, 16);
    }
    return hashes;
}

TEST(Results, AreTheSameInEveryBuild) {
    ASSERT_EQ(KoInit(nullptr, nullptr), KO_OK);
    const std::map<std::string, std::string> expected = expected_hashes();
    EXPECT_EQ(expected.size(), std::size(stages));
    for (const Stage &stage : stages) {
        Hash hash;
        for (const Size &size : sizes) {
            ASSERT_NO_FATAL_FAILURE(stage.run(size, &hash));
        }
        char text[17];
        std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(hash.value()));
        const auto found = expected.find(stage.name);
        EXPECT_TRUE(found != expected.end() && found->second == text)
            << "results.txt should hold: " << text << ' ' << stage.name;
    }
    KoRelease();
}

} // namespace
