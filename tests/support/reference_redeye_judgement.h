// The judgement of red eyes in its plainest form: the reading of the model files, the patches and their labels, the repair and
// the frames. It rests on the orientation histogram and the rescaling of the library, which have tests of their own, and on
// what the earlier stages left in the image record.
#ifndef KO_TESTS_REFERENCE_REDEYE_JUDGEMENT_H
#define KO_TESTS_REFERENCE_REDEYE_JUDGEMENT_H

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "files.h"
#include "ko.h"
#include "pictures.h"
#include "redeye_scene.h"
#include "same_floats.h"

namespace ko_test {

// The model.

// Reads lines as into a buffer of 1024 characters: a longer line comes in pieces, each a line of its own.
class ReferenceLines {
  public:
    explicit ReferenceLines(std::string text) : text_(std::move(text)) {
#ifdef _WIN32 // a text stream ends at a control-Z and has no carriage return before a line feed
        text_ = text_.substr(0, text_.find('\x1a'));
        for (size_t at = text_.find("\r\n"); at != std::string::npos; at = text_.find("\r\n", at)) {
            text_.erase(at, 1);
        }
#endif
    }

    // False at the end of the file; buffer stays as it was then.
    bool next(std::string &buffer) {
        if (at_ == text_.size()) {
            return false;
        }
        const size_t end = std::min({text_.find('\n', at_), text_.size() - 1, at_ + 1022}) + 1;
        buffer = text_.substr(at_, end - at_);
        at_ = end;
        buffer = buffer.substr(0, buffer.find('\0'));
        strip(buffer, '\n');
        strip(buffer, '\r');
        return true;
    }

  private:
    static void strip(std::string &buffer, char last) {
        if (!buffer.empty() && buffer.back() == last) {
            buffer.pop_back();
        }
    }
    std::string text_;
    size_t at_ = 0;
};

// Reads words, lowest byte first.
class ReferenceWords {
  public:
    // A folder can be opened, where it can, but not read.
    explicit ReferenceWords(const std::string &path) : bytes_(std::filesystem::is_directory(path) ? "" : read_bytes(path)) {}

    static bool can_open(const std::string &path) {
#ifdef _WIN32
        return std::filesystem::is_regular_file(path);
#else
        return exists(path);
#endif
    }

    template <class T> bool next(T &word) {
        if (bytes_.size() - at_ < 4) {
            at_ = bytes_.size();
            return false;
        }
        uint32_t value = 0;
        for (uint32_t i = 0; i < 4; ++i) {
            value |= static_cast<uint32_t>(static_cast<unsigned char>(bytes_[at_++])) << (8 * i);
        }
        word = static_cast<T>(value);
        return true;
    }
    // The bits of count floats.
    bool next(std::vector<uint32_t> &bits, uint64_t count) {
        bits.clear();
        for (uint64_t i = 0; i < count; ++i) {
            uint32_t word = 0;
            if (!next(word)) {
                return false;
            }
            bits.push_back(word);
        }
        return true;
    }

  private:
    std::string bytes_;
    size_t at_ = 0;
};

inline std::vector<float> floats_of(const std::vector<uint32_t> &bits) {
    std::vector<float> floats;
    for (const uint32_t word : bits) {
        floats.push_back(std::bit_cast<float>(word));
    }
    return floats;
}

inline float float_of(const std::string &text) { return static_cast<float>(std::atof(text.c_str())); }

// What a reading of the model leaves in a record, and how it ends.
class ReferenceModel {
  public:
    // before: the record, not yet read into
    explicit ReferenceModel(const RedEyeCorrection &before)
        : header(before.projection_header), rows(before.projection_rows), dimension(before.projection_dimension),
          classifier_dimension(before.classifier_dimension), fe_bias(std::bit_cast<uint32_t>(before.fe_bias)),
          be_bias(std::bit_cast<uint32_t>(before.be_bias)), projection_path(before.projection_path),
          classifier_path(before.classifier_path) {
        read_all(before.config_path);
    }
    ReferenceModel(const ReferenceModel &) = delete;
    ReferenceModel &operator=(const ReferenceModel &) = delete;

    int32_t status = KO_OK;
    int32_t last_status = KO_OK; // what the thread's record holds
    std::string chain;
    bool opened = false;  // the configuration
    bool hostile = false; // a size that no table has, or not here: all that is told is a failure
    PatchGeometry geometry{};
    HistogramLayout layout{};
    ko::OrientationHistogramPtr histogram;
    float fe_accept = 0.0f, fe_reject = 0.0f, be_accept = 0.0f, be_reject = 0.0f;
    uint32_t header;
    int32_t rows, dimension;
    int32_t matrix_rows = 0;
    std::vector<uint32_t> row_values, mean, matrix;
    uint32_t classifier_dimension;
    uint32_t fe_count = 0; // what the FE file says, before the BE file says it anew
    uint32_t fe_bias, be_bias;
    std::vector<uint32_t> fe_weights, be_weights;
    std::string projection_path, classifier_path;

    void fail(int32_t code, const std::string &text, const char *level = "[ERROR] ") {
        status = last_status = code;
        chain = std::string(level).append(text);
    }

  private:
    void fail_open(const std::string &path) {
        fail(KO_ERR_OPEN_READ, std::string("Cannot open file \"").append(path).append("\" for reading"));
    }
    void fail_read(const std::string &path) {
        fail(KO_ERR_READ_FILE, std::string("Cannot read file \"").append(path).append("\""));
    }

    void read_all(const std::string &path) {
        if (!exists(path)) {
            fail_open(path);
            return;
        }
        opened = true;
        read_configuration(path);
        make_histogram();
        if (status == KO_OK) {
            read_projection();
        }
        if (status == KO_OK) {
            read_classifier(std::string(classifier_path).append("_RE_FE"), fe_bias, fe_weights);
            fe_count = classifier_dimension;
        }
        if (status == KO_OK) {
            read_classifier(std::string(classifier_path).append("_RE_BE"), be_bias, be_weights);
        }
    }

    void read_configuration(const std::string &path) {
        ReferenceLines lines(read_bytes(path));
        std::vector<std::string> line(31);
        std::string buffer;
        for (size_t i = 1; i <= 30; ++i) {
            if (status == KO_OK && !lines.next(buffer)) {
                const std::string last = std::to_string(i - 1);
                fail(KO_ERR_READ_LINE, std::string("Read error in file \"").append(path).append("\", line ").append(last));
            }
            line[i] = buffer;
        }
        take_numbers(line);
        const size_t end = path.find_last_of("/\\");
        const std::string directory = end == std::string::npos ? "" : path.substr(0, end + 1);
        take_path(projection_path, directory, line[28]);
        take_path(classifier_path, directory, line[30]);
    }

    void take_numbers(const std::vector<std::string> &line) {
        const auto whole = [&](size_t i) { return std::atoi(line[i].c_str()); };
        const int32_t p = whole(2);
        const int32_t n = whole(4);
        const int32_t g = whole(6);
        layout = {n,
                  g,
                  g * g,
                  g * g * n,
                  float_of(line[8]),
                  float_of(line[10]),
                  float_of(line[12]),
                  float_of(line[14]),
                  float_of(line[16]),
                  float_of(line[18])};
        const auto border = static_cast<int32_t>(static_cast<double>(layout.gradient_sigma) * 3.0 * p);
        const double a = (std::sqrt(static_cast<double>((p + border) * (p + border))) - p) / 16 + 1.0;
        geometry = {(p + border) * (p + border), p, 16, 1, 1.0f, 1.0f, static_cast<int32_t>(a * a), border};
        fe_accept = float_of(line[20]);
        fe_reject = float_of(line[22]);
        be_accept = float_of(line[24]);
        be_reject = float_of(line[26]);
    }

    // A path that is there already wins.
    void take_path(std::string &path, const std::string &directory, const std::string &name) {
        if (!path.empty()) {
            return;
        }
        const std::string whole = std::string(directory).append(name);
        if (whole.size() >= KO_REDEYE_PATH_SIZE) {
            if (status == KO_OK) {
                fail(KO_ERR_INVALID_ARGUMENT, "Invalid argument");
            }
            return;
        }
        path = whole;
    }

    void make_histogram() {
        KoStatusClear();
        histogram.reset(KoOrientationHistogramNew(&geometry, &layout));
        if (histogram == nullptr) {
            const std::string below = status == KO_OK ? std::string() : std::string("\n-> ").append(chain);
            last_status = KoErrorGetLastError();
            status = status == KO_OK ? last_status : status;
            chain = std::string(KoErrorGetLastErrorMessage()).append(below);
        }
        KoStatusClear();
    }

    static bool is_hostile(int64_t count) { return count < 0 || count > 4000000; }

    void read_projection() {
        if (!ReferenceWords::can_open(projection_path)) {
            fail_open(projection_path);
            return;
        }
        ReferenceWords words(projection_path);
        const int32_t kept = rows;
        if (!words.next(header) || !words.next(rows) || !words.next(dimension)) {
            fail_read(projection_path);
            return;
        }
        if (kept > rows) {
            fail(KO_ERR_INVALID_ARGUMENT, "Invalid argument", "[INTERNAL ERROR] ");
            return;
        }
        hostile = is_hostile(rows) || is_hostile(kept) || is_hostile(dimension);
        matrix_rows = kept != 0 ? kept : rows;
        if (hostile) {
            fail_read(projection_path);
            return;
        }
        const auto width = static_cast<uint64_t>(dimension);
        const auto height = static_cast<uint64_t>(matrix_rows);
        if (!words.next(row_values, static_cast<uint64_t>(rows)) || !words.next(mean, width) ||
            !words.next(matrix, width * height)) {
            fail_read(projection_path);
            return;
        }
        row_values.resize(height);
    }

    void read_classifier(const std::string &path, uint32_t &bias, std::vector<uint32_t> &weights) {
        if (!ReferenceWords::can_open(path)) {
            fail_open(path);
            return;
        }
        ReferenceWords words(path);
        if (!words.next(classifier_dimension) || !words.next(bias)) {
            fail_read(path);
            return;
        }
        hostile = is_hostile(classifier_dimension);
        if (hostile || !words.next(weights, classifier_dimension)) {
            fail_read(path);
        }
    }
};

// The patches.

struct ReferencePatch {
    uint32_t blob = 0;
    uint32_t x0 = 0, x1 = 0, y0 = 0, y1 = 0;
    Box box{};
    uint32_t center_x = 0, center_y = 0, size = 0;
    std::vector<float> features, projected;
    float fe_score = 0.0f, be_score = 0.0f;
    int32_t label = KO_PATCH_UNDECIDED;
};

struct ReferenceBlocks {
    std::vector<uint64_t> starts;
    std::vector<uint64_t> counts;
};

inline ReferenceBlocks reference_blocks(uint64_t small, uint64_t large) {
    ReferenceBlocks blocks;
    const float ratio = static_cast<float>(large) / static_cast<float>(small);
    const auto whole = static_cast<uint64_t>(std::floor(ratio));
    uint64_t position = 0;
    for (uint64_t i = 0; i < small; ++i) {
        const auto limit = static_cast<uint64_t>(std::floor((static_cast<float>(i) + 1.0f) * ratio));
        const uint64_t count = std::min(limit > whole + position ? whole + 1 : whole, large - position);
        blocks.starts.push_back(position);
        blocks.counts.push_back(count);
        position += count;
    }
    return blocks;
}

inline float reference_score(uint32_t dimension, float bias, const std::vector<float> &weights,
                             const std::vector<float> &values) {
    float z = 0.0f;
    for (uint32_t i = 0; i < dimension; ++i) {
        z += weights.at(i) * values.at(i);
    }
    z = z + (0.0f - bias);
    if (z > 10.0f) {
        return 1.0f;
    }
    if (z < -10.0f) {
        return 0.0f;
    }
    return static_cast<float>(1.0 / (std::exp(-static_cast<double>(z)) + 1.0));
}

inline int32_t reference_label(const ReferenceModel &model, float fe, float be) {
    if (fe > model.fe_accept && be > model.be_accept) {
        return KO_PATCH_ACCEPTED;
    }
    return fe < model.fe_reject || be < model.be_reject ? KO_PATCH_REJECTED : KO_PATCH_UNDECIDED;
}

// What a run of the stage gives over a record and an image record that are not yet judged.
class ReferenceJudgement {
  public:
    // picture: as it was before its repair
    ReferenceJudgement(const RedEyeCorrection &before, const RedEyeImageParam &located, const RedEyePlanes &picture)
        : model(before), channel_count_(before.channel_count), picture_(picture) {
        status = model.status;
        last_status = model.last_status;
        chain = model.chain;
        if (status == KO_OK && located.blob_count > 0) {
            refuse_what_leaves_an_object(before);
        }
        for (int32_t b = 1; b <= located.blob_count && status == KO_OK; ++b) {
            judge_blob(located, static_cast<uint32_t>(b));
        }
        write_log();
    }

    ReferenceModel model;
    int32_t status = KO_OK;
    int32_t last_status = KO_OK;
    std::string chain;
    std::vector<ReferencePatch> patches;
    uint64_t counts[3] = {0, 0, 0};
    std::string log;

  private:
    uint64_t length() const { return static_cast<uint64_t>(model.layout.feature_length); }
    uint64_t channels() const { return static_cast<uint64_t>(channel_count_); }

    void refuse_what_leaves_an_object(const RedEyeCorrection &rec) {
        const uint64_t room = channels() * length();
        bool fits = channel_count_ > 0 && static_cast<uint64_t>(model.dimension) <= room &&
                    static_cast<uint64_t>(model.matrix_rows) >= length() && model.classifier_dimension <= room &&
                    model.fe_count >= model.classifier_dimension;
        for (int32_t c = 0; c < channel_count_; ++c) {
            fits = fits && rec.channel_enabled[c] != 0;
        }
        if (!fits) {
            status = last_status = KO_ERR_INVALID_ARGUMENT;
            chain = "[ERROR] Invalid argument";
        }
    }

    void judge_blob(const RedEyeImageParam &located, uint32_t blob) {
        ReferencePatch patch;
        if (!set_window(located, blob, patch)) {
            return;
        }
        compute_features(patch);
        if (status == KO_OK) {
            project(patch);
            const float fe_bias = std::bit_cast<float>(model.fe_bias);
            const float be_bias = std::bit_cast<float>(model.be_bias);
            patch.fe_score = reference_score(model.classifier_dimension, fe_bias, floats_of(model.fe_weights), patch.projected);
            patch.be_score = reference_score(model.classifier_dimension, be_bias, floats_of(model.be_weights), patch.projected);
            patch.label = reference_label(model, patch.fe_score, patch.be_score);
            ++counts[patch.label];
        }
        patches.push_back(patch);
    }

    bool set_window(const RedEyeImageParam &located, uint32_t number, ReferencePatch &patch) const {
        const BlobInfo &blob = located.final_blobs[number];
        patch.blob = number;
        patch.box = {blob.min_x, blob.max_x, blob.min_y, blob.max_y};
        uint64_t x0 = blob.min_x;
        uint64_t x1 = blob.max_x;
        uint64_t y0 = blob.min_y;
        uint64_t y1 = blob.max_y;
        if (located.scale > 1.0f) {
            const ReferenceBlocks across = reference_blocks(located.col_map->width, picture_[0].width);
            const ReferenceBlocks down = reference_blocks(located.col_map->height, picture_[0].height);
            x0 = across.starts.at(x0);
            x1 = across.starts.at(x1) + across.counts.at(x1);
            y0 = down.starts.at(y0);
            y1 = down.starts.at(y1) + down.counts.at(y1);
        }
        const uint64_t center_x = x0 + (x1 - x0) / 2;
        const uint64_t center_y = y0 + (y1 - y0) / 2;
        const uint64_t size = 3 * std::max(x1 - x0, y1 - y0);
        const uint64_t half = size / 2;
        if (size == 0 || center_x <= half || center_y <= half) {
            return false;
        }
        patch.center_x = static_cast<uint32_t>(center_x);
        patch.center_y = static_cast<uint32_t>(center_y);
        patch.size = static_cast<uint32_t>(size);
        patch.x0 = static_cast<uint32_t>(center_x - half);
        patch.x1 = static_cast<uint32_t>(center_x + half);
        patch.y0 = static_cast<uint32_t>(center_y - half);
        patch.y1 = static_cast<uint32_t>(center_y + half);
        return patch.x1 < picture_[0].width && patch.y1 < picture_[0].height;
    }

    void compute_features(ReferencePatch &patch) {
        const auto side = static_cast<uint32_t>(model.geometry.patch_size + 2 * model.geometry.patch_border);
        patch.features.assign(channels() * length(), 0.0f);
        for (uint32_t c = 0; c < channels() && status == KO_OK; ++c) {
            const RealImagePtr crop = make_image(
                patch.size, patch.size, [&](uint64_t x, uint64_t y) { return picture_[c].at(patch.x0 + x, patch.y0 + y); });
            const RealImagePtr rescaled(KoRealImageNew(side, side));
            RealImage *target = rescaled.get();
            KoStatusClear();
            status = KoRealImageRescale(crop.get(), target);
            if (status == KO_OK) {
                status = KoOrientationHistogramCompute(model.histogram.get(), side, pixels(target).data(),
                                                       patch.features.data() + c * length());
            }
            last_status = KoErrorGetLastError();
            chain = KoErrorGetLastErrorMessage();
            KoStatusClear();
        }
    }

    void project(ReferencePatch &patch) const {
        const std::vector<float> mean = floats_of(model.mean);
        const std::vector<float> matrix = floats_of(model.matrix);
        const auto dimension = static_cast<uint64_t>(model.dimension);
        patch.projected.assign(channels() * length(), 0.0f);
        for (uint64_t j = 0; j < length(); ++j) {
            for (uint64_t i = 0; i < dimension; ++i) {
                patch.projected[j] += (patch.features[i] - mean[i]) * matrix[j * dimension + i];
            }
        }
    }

    void write_log() {
        const auto text = [](uint64_t value) { return std::to_string(value); };
        log = "-> patch classification results: ";
        log.append(text(counts[KO_PATCH_ACCEPTED])).append(" accepted, ");
        log.append(text(counts[KO_PATCH_REJECTED])).append(" rejected, and ");
        log.append(text(counts[KO_PATCH_UNDECIDED])).append(" undecided patches \n");
        for (size_t p = 0; p < patches.size(); ++p) {
            const ReferencePatch &patch = patches[p];
            if (patch.label == KO_PATCH_REJECTED) {
                continue;
            }
            log.append("Patch ").append(text(p)).append(patch.label == KO_PATCH_ACCEPTED ? " (accepted): " : " (undecided): ");
            log.append(text(patch.x0)).append(" ").append(text(patch.y0)).append(" ");
            log.append(text(patch.x1)).append(" ").append(text(patch.y1)).append("\n");
        }
    }

    int32_t channel_count_;
    RedEyePlanes picture_;
};

// The repair.

inline float reference_strength(const RedEyeImageParam &param, int32_t label, uint64_t x, uint64_t y, bool full_strength) {
    if (full_strength) {
        return 1.0f;
    }
    const float share = param.red_lum_map->rows[y][x] / param.map_max;
    if (label == KO_PATCH_UNDECIDED) {
        return share;
    }
    if (label != KO_PATCH_ACCEPTED) {
        return 0.0f;
    }
    const float v = share + 0.25f;
    return v > 1.0f ? 1.0f : static_cast<float>(std::sqrt(static_cast<double>(v)));
}

inline void reference_repair_pixel(RedEyePlanes &picture, uint64_t x, uint64_t y, float strength) {
    float &red = picture[0].at(x, y);
    float &green = picture[1].at(x, y);
    float &blue = picture[2].at(x, y);
    const float t = 1.0f - strength;
    const float mix = (blue * 4.0f + green) * 0.2f * strength;
    red = t * red + mix;
    green = t * green + mix;
    blue = t * blue + mix;
}

// slots: the patches to repair, from the first on.
inline void reference_repair(RedEyePlanes &picture, const RedEyeImageParam &param, int32_t slots, bool full_strength) {
    const ReferenceBlocks across = reference_blocks(param.red_lum_map->width, picture[0].width);
    const ReferenceBlocks down = reference_blocks(param.red_lum_map->height, picture[0].height);
    for (int32_t slot = 0; slot < slots; ++slot) {
        const RedEyePatch &patch = param.patches[slot];
        const BlobInfo &box = param.final_blobs[patch.blob];
        uint32_t done = 0;
        for (uint64_t y = box.min_y; y <= box.max_y && done != box.area; ++y) {
            for (uint64_t x = box.min_x; x <= box.max_x && done != box.area; ++x) {
                if (param.blob_mask[y * param.red_lum_map->width + x] != patch.blob) {
                    continue;
                }
                const float strength = reference_strength(param, patch.label, x, y, full_strength);
                for (uint64_t row = 0; row < down.counts[y]; ++row) {
                    for (uint64_t column = 0; column < across.counts[x]; ++column) {
                        reference_repair_pixel(picture, across.starts[x] + column, down.starts[y] + row, strength);
                    }
                }
                ++done;
            }
        }
    }
}

// The frames.

inline void reference_frame(RedEyePlanes &picture, const RedEyePatch &patch, uint64_t thickness, uint32_t colour) {
    const uint64_t tx = std::min<uint64_t>((patch.x1 - patch.x0) / 2, thickness);
    const uint64_t ty = std::min<uint64_t>((patch.y1 - patch.y0) / 2, thickness);
    for (uint64_t y = patch.y0; y < patch.y1; ++y) {
        for (uint64_t x = patch.x0; x < patch.x1; ++x) {
            const bool whole_row = y < patch.y0 + ty || y >= patch.y1 - ty;
            if (whole_row || x < patch.x0 + tx || x >= patch.x1 - tx) {
                picture[0].at(x, y) = static_cast<float>(colour >> 16 & 255);
                picture[1].at(x, y) = static_cast<float>(colour >> 8 & 255);
                picture[2].at(x, y) = static_cast<float>(colour & 255);
            }
        }
    }
}

inline void reference_frames(RedEyePlanes &picture, const RedEyeImageParam &param, int32_t slots, uint64_t thickness,
                             const std::vector<int32_t> &colours) {
    for (int32_t slot = 0; slot < slots; ++slot) {
        const int32_t label = param.patches[slot].label;
        if (label >= 0 && label < static_cast<int32_t>(colours.size())) {
            reference_frame(picture, param.patches[slot], thickness,
                            static_cast<uint32_t>(colours[static_cast<size_t>(label)]));
        }
    }
}

// Comparisons.

inline testing::AssertionResult same_planes(const RedEyePlanes &expected, const RedEyePlanes &actual) {
    for (size_t c = 0; c < 3; ++c) {
        if (const testing::AssertionResult same = same_floats(expected[c].pixels, actual[c].pixels); !same) {
            return testing::AssertionFailure() << "plane " << c << ": " << same.message();
        }
    }
    return testing::AssertionSuccess();
}

inline std::vector<uint32_t> bits_of(const float *values, size_t count) {
    std::vector<uint32_t> bits;
    for (size_t i = 0; i < count; ++i) {
        bits.push_back(std::bit_cast<uint32_t>(values[i]));
    }
    return bits;
}

inline std::vector<uint32_t> bits_of(const MatrixFloat *matrix) {
    std::vector<uint32_t> bits;
    for (uint64_t y = 0; y < matrix->height; ++y) {
        const std::vector<uint32_t> row = bits_of(matrix->rows[y], matrix->width);
        bits.insert(bits.end(), row.begin(), row.end());
    }
    return bits;
}

// The numbers and paths that the reading left, whether it succeeded or not.
inline void expect_words(const ReferenceModel &expected, const RedEyeCorrection &rec) {
    EXPECT_EQ(rec.projection_header, expected.header);
    EXPECT_EQ(rec.projection_rows, expected.rows);
    EXPECT_EQ(rec.projection_dimension, expected.dimension);
    EXPECT_EQ(rec.classifier_dimension, expected.classifier_dimension);
    EXPECT_EQ(std::bit_cast<uint32_t>(rec.fe_bias), expected.fe_bias);
    EXPECT_EQ(std::bit_cast<uint32_t>(rec.be_bias), expected.be_bias);
    EXPECT_EQ(std::string(rec.projection_path), expected.projection_path);
    EXPECT_EQ(std::string(rec.classifier_path), expected.classifier_path);
    if (!expected.opened) {
        return;
    }
    EXPECT_EQ(std::memcmp(&rec.patch_geometry, &expected.geometry, sizeof(PatchGeometry)), 0);
    EXPECT_EQ(std::memcmp(&rec.histogram_layout, &expected.layout, sizeof(HistogramLayout)), 0);
    EXPECT_EQ(rec.fe_accept, expected.fe_accept);
    EXPECT_EQ(rec.fe_reject, expected.fe_reject);
    EXPECT_EQ(rec.be_accept, expected.be_accept);
    EXPECT_EQ(rec.be_reject, expected.be_reject);
    EXPECT_EQ(rec.orientation_histogram == nullptr, expected.histogram == nullptr);
}

// The tables of a reading that succeeded.
inline void expect_tables(const ReferenceModel &expected, const RedEyeCorrection &rec) {
    ASSERT_NE(rec.projection_matrix, nullptr);
    EXPECT_EQ(rec.projection_matrix->width, static_cast<uint64_t>(expected.dimension));
    EXPECT_EQ(rec.projection_matrix->height, static_cast<uint64_t>(expected.matrix_rows));
    EXPECT_EQ(bits_of(rec.projection_matrix), expected.matrix);
    EXPECT_EQ(bits_of(rec.projection_row_values, expected.row_values.size()), expected.row_values);
    EXPECT_EQ(bits_of(rec.projection_mean, expected.mean.size()), expected.mean);
    EXPECT_EQ(bits_of(rec.fe_weights, expected.fe_weights.size()), expected.fe_weights);
    EXPECT_EQ(bits_of(rec.be_weights, expected.be_weights.size()), expected.be_weights);
}

inline void expect_same_patch(const ReferencePatch &expected, const RedEyePatch &patch) {
    EXPECT_EQ(patch.blob, expected.blob);
    EXPECT_EQ(patch.x0, expected.x0);
    EXPECT_EQ(patch.x1, expected.x1);
    EXPECT_EQ(patch.y0, expected.y0);
    EXPECT_EQ(patch.y1, expected.y1);
    EXPECT_EQ(patch.blob_min_x, expected.box.min_x);
    EXPECT_EQ(patch.blob_max_x, expected.box.max_x);
    EXPECT_EQ(patch.blob_min_y, expected.box.min_y);
    EXPECT_EQ(patch.blob_max_y, expected.box.max_y);
    EXPECT_EQ(patch.center_x, expected.center_x);
    EXPECT_EQ(patch.center_y, expected.center_y);
    EXPECT_EQ(patch.size, expected.size);
    EXPECT_EQ(patch.label, expected.label);
    EXPECT_TRUE(same_float(patch.fe_score, expected.fe_score)) << patch.fe_score << " for " << expected.fe_score;
    EXPECT_TRUE(same_float(patch.be_score, expected.be_score)) << patch.be_score << " for " << expected.be_score;
    const auto floats = [](const float *values, size_t count) { return std::vector<float>(values, values + count); };
    EXPECT_TRUE(same_floats(expected.features, floats(patch.features, expected.features.size())));
    EXPECT_TRUE(same_floats(expected.projected, floats(patch.projected, expected.projected.size())));
}

// What the stage left in both records and returned.
inline void expect_judged(const ReferenceJudgement &expected, const RedEyeCorrection &rec, const RedEyeImageParam &param,
                          int32_t status) {
    if (expected.model.hostile) {
        EXPECT_TRUE(status == KO_ERR_READ_FILE || status == KO_ERR_ALLOC || status == KO_ERR_INVALID_ARGUMENT ||
                    status == KO_ERR_CREATE_OBJECT)
            << status;
        return;
    }
    EXPECT_EQ(status, expected.status);
    expect_words(expected.model, rec);
    if (expected.model.status == KO_OK) {
        expect_tables(expected.model, rec);
    }
    if (rec.orientation_histogram != nullptr) {
        EXPECT_EQ(rec.orientation_histogram->patch_count, status == KO_OK ? static_cast<int32_t>(expected.patches.size()) : 1);
    }
    EXPECT_EQ(param.undecided_count, expected.counts[KO_PATCH_UNDECIDED]);
    EXPECT_EQ(param.accepted_count, expected.counts[KO_PATCH_ACCEPTED]);
    EXPECT_EQ(param.rejected_count, expected.counts[KO_PATCH_REJECTED]);
    for (size_t p = 0; p < expected.patches.size(); ++p) {
        SCOPED_TRACE(testing::Message() << "patch " << p);
        ASSERT_NE(param.patches, nullptr);
        expect_same_patch(expected.patches[p], param.patches[p]);
    }
}

} // namespace ko_test

#endif
