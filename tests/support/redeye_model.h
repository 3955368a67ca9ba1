// The model files of the red-eye correction, made by the tests: a configuration of thirty lines, a projection and two
// classifiers with small seeded weights. Each part is a plain record that a test may spoil before it is written.
#ifndef KO_TESTS_REDEYE_MODEL_H
#define KO_TESTS_REDEYE_MODEL_H

#include <bit>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "files.h"
#include "pictures.h"

namespace ko_test {

// The border is three pixels: 3 times the sigma times the patch is whole, so that the filter covers it exactly.
struct ModelConfiguration {
    int32_t patch_size = 8;
    int32_t bin_count = 4;
    int32_t grid_size = 2;
    double gradient_sigma = 0.125;
    double spare_value = 1.5;
    double orientation_sigma = 0.75;
    double cell_sigma = 0.5;
    double window_sigma = 0.625;
    double weight_threshold = 0.001;
    double fe_accept = 0.6;
    double fe_reject = 0.4;
    double be_accept = 0.6;
    double be_reject = 0.4;
    std::string projection = "projection.bin";
    std::string classifier = "model";

    int32_t feature_length() const { return grid_size * grid_size * bin_count; }
};

// A number that is read back as it was.
inline std::string number(double value) {
    char text[40];
    std::snprintf(text, sizeof text, "%.17g", value);
    return text;
}

inline std::vector<std::string> configuration_lines(const ModelConfiguration &c) {
    const std::vector<std::string> values = {std::to_string(c.patch_size),
                                             std::to_string(c.bin_count),
                                             std::to_string(c.grid_size),
                                             number(c.gradient_sigma),
                                             number(c.spare_value),
                                             number(c.orientation_sigma),
                                             number(c.cell_sigma),
                                             number(c.window_sigma),
                                             number(c.weight_threshold),
                                             number(c.fe_accept),
                                             number(c.fe_reject),
                                             number(c.be_accept),
                                             number(c.be_reject),
                                             c.projection,
                                             c.classifier};
    std::vector<std::string> lines;
    for (const std::string &value : values) {
        lines.push_back("#"); // a caption, which nobody reads
        lines.push_back(value);
    }
    return lines;
}

inline std::string join(const std::vector<std::string> &lines, const std::string &line_end = "\n") {
    std::string text;
    for (const std::string &line : lines) {
        text += line;
        text += line_end;
    }
    return text;
}

inline void append_word(std::string &bytes, uint32_t word) {
    for (uint32_t shift = 0; shift < 32; shift += 8) {
        bytes += static_cast<char>(static_cast<unsigned char>(word >> shift));
    }
}

inline void append_floats(std::string &bytes, const std::vector<float> &values) {
    for (const float value : values) {
        append_word(bytes, std::bit_cast<uint32_t>(value));
    }
}

// What the file says of itself, rows and dimension, need not be what it holds.
struct ModelProjection {
    uint32_t header = 0xC0FFEE01u;
    int32_t rows = 0;
    int32_t dimension = 0;
    std::vector<float> row_values;
    std::vector<float> mean;
    std::vector<float> matrix;

    std::string bytes() const {
        std::string bytes;
        append_word(bytes, header);
        append_word(bytes, static_cast<uint32_t>(rows));
        append_word(bytes, static_cast<uint32_t>(dimension));
        append_floats(bytes, row_values);
        append_floats(bytes, mean);
        append_floats(bytes, matrix);
        return bytes;
    }
};

struct ModelClassifier {
    uint32_t count = 0;
    uint32_t bias = 0; // the bits of a float
    std::vector<float> weights;

    std::string bytes() const {
        std::string bytes;
        append_word(bytes, count);
        append_word(bytes, bias);
        append_floats(bytes, weights);
        return bytes;
    }
};

inline std::vector<float> uniform_floats(uint64_t count, Noise &noise, float low, float high) {
    std::vector<float> values;
    for (uint64_t i = 0; i < count; ++i) {
        values.push_back(noise.uniform(low, high));
    }
    return values;
}

inline ModelProjection make_projection(int32_t rows, int32_t dimension, Noise &noise) {
    const auto height = static_cast<uint64_t>(rows);
    const auto width = static_cast<uint64_t>(dimension);
    ModelProjection projection;
    projection.rows = rows;
    projection.dimension = dimension;
    projection.row_values = uniform_floats(height, noise, 0.0f, 9.0f);
    projection.mean = uniform_floats(width, noise, 0.0f, 1.0f);
    projection.matrix = uniform_floats(width * height, noise, -0.5f, 0.5f);
    return projection;
}

inline ModelClassifier make_classifier(int32_t count, float bias, Noise &noise) {
    return {static_cast<uint32_t>(count), std::bit_cast<uint32_t>(bias),
            uniform_floats(static_cast<uint64_t>(count), noise, -0.25f, 0.25f)};
}

struct Model {
    ModelConfiguration configuration;
    ModelProjection projection;
    ModelClassifier fe;
    ModelClassifier be;
};

// A model that agrees with itself, for so many channels.
inline Model make_model(int32_t channels, uint32_t seed, const ModelConfiguration &configuration = {}) {
    Noise noise(seed);
    const int32_t length = configuration.feature_length();
    Model model{configuration, make_projection(length, channels * length, noise), {}, {}};
    model.fe = make_classifier(length, 0.125f, noise);
    model.be = make_classifier(length, -0.125f, noise);
    return model;
}

// The smallest model: two features a channel.
inline ModelConfiguration tiny_configuration() {
    ModelConfiguration configuration;
    configuration.patch_size = 4;
    configuration.bin_count = 2;
    configuration.grid_size = 1;
    configuration.gradient_sigma = 0.25;
    return configuration;
}

// Gives every patch the same two scores, whatever it shows: 1 / (exp(bias) + 1).
inline void fix_scores(Model &model, float fe_bias, float be_bias) {
    model.fe = {0, std::bit_cast<uint32_t>(fe_bias), {}};
    model.be = {0, std::bit_cast<uint32_t>(be_bias), {}};
}

// The four files in a folder of their own.
class ModelFiles {
  public:
    explicit ModelFiles(const Model &model) : folder_("model") {
        std::filesystem::create_directory(folder_.path());
        write(model);
    }
    void write(const Model &model) const {
        write_configuration(join(configuration_lines(model.configuration)));
        write_bytes(projection(), model.projection.bytes());
        write_bytes(fe(), model.fe.bytes());
        write_bytes(be(), model.be.bytes());
    }
    void write_configuration(const std::string &text) const { write_bytes(configuration(), text); }

    std::string directory() const { return inside(""); }
    std::string configuration() const { return inside("config.txt"); }
    std::string projection() const { return inside("projection.bin"); }
    std::string stem() const { return inside("model"); }
    std::string fe() const { return inside("model_RE_FE"); }
    std::string be() const { return inside("model_RE_BE"); }
    std::string inside(const char *name) const { return std::string(folder_.path()).append("/").append(name); }

  private:
    TemporaryFile folder_;
};

} // namespace ko_test

#endif
