// The model's files: a text configuration of thirty lines, a projection, and two classifiers. They are read anew for each
// picture. Binary words have 32 bits, lowest byte first, on any machine. Nothing is taken from memory that the rest of a file
// could not fill.
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

#include "alloc.h"
#include "bits.h"
#include "redeye.h"
#include "report.h"
#include "textfile.h"

namespace ko {

namespace {

// ---- the text configuration

// The lines of a configuration; after one that cannot be read, what the last one held stands for all that follow.
class ConfigLines {
  public:
    explicit ConfigLines(FILE *stream) : stream_(stream) {}

    // Steps over a caption to the next value.
    void next() {
        read();
        read();
    }

    // As atoi and atof, and like them 0 for no number.
    int32_t whole() const {
        const long value = std::strtol(line_, nullptr, 10);
        return static_cast<int32_t>(value < INT32_MIN ? INT32_MIN : value > INT32_MAX ? INT32_MAX : value);
    }
    float real() const { return static_cast<float>(std::strtod(line_, nullptr)); }
    const char *text() const { return line_; }

    bool failed() const { return failed_; }
    int lines_read() const { return lines_read_; }

  private:
    void read() {
        char line[1024];
        failed_ = failed_ || std::fgets(line, sizeof(line), stream_) == nullptr;
        if (failed_) {
            return;
        }
        ++lines_read_;
        cut_end(line, '\n');
        cut_end(line, '\r');
        std::memcpy(line_, line, sizeof(line_));
    }

    static void cut_end(char *line, char end) {
        const size_t length = std::strlen(line);
        if (length != 0 && line[length - 1] == end) {
            line[length - 1] = '\0';
        }
    }

    FILE *stream_;
    char line_[1024] = {};
    bool failed_ = false;
    int lines_read_ = 0;
};

// Stores a file named by the configuration, beside it, unless the host has named one. False if the path has no room.
bool take_path(const char *config_path, const char *name, char (&path)[KO_REDEYE_PATH_SIZE]) {
    if (path[0] != '\0') {
        return true;
    }
    size_t folder = std::strlen(config_path);
    while (folder > 0 && config_path[folder - 1] != '/' && config_path[folder - 1] != '\\') {
        --folder;
    }
    const size_t length = std::strlen(name);
    if (folder + length >= sizeof(path)) {
        return false;
    }
    std::memcpy(path, config_path, folder);
    std::memcpy(path + folder, name, length + 1);
    return true;
}

// Takes over the values; false if a path has no room.
bool read_values(RedEyeCorrection *rec, ConfigLines *lines) {
    PatchGeometry &geometry = rec->patch_geometry;
    HistogramLayout &layout = rec->histogram_layout;
    geometry.position_step = 16;
    geometry.scale_count = 1;
    geometry.scale_range = 1.0f;
    for (int32_t *field : {&geometry.patch_size, &layout.bin_count, &layout.grid_size}) {
        lines->next();
        *field = lines->whole();
    }
    for (float *field :
         {&layout.gradient_sigma, &layout.spare_value, &layout.orientation_sigma, &layout.cell_sigma, &layout.window_sigma,
          &layout.weight_threshold, &rec->fe_accept, &rec->fe_reject, &rec->be_accept, &rec->be_reject}) {
        lines->next();
        *field = lines->real();
    }
    lines->next();
    const bool projection = take_path(rec->config_path, lines->text(), rec->projection_path);
    lines->next();
    return take_path(rec->config_path, lines->text(), rec->classifier_path) && projection;
}

// Cut to a whole number; what no table could have becomes the largest there is.
int32_t cut(double value) { return value >= -2147483647.0 && value <= 2147483647.0 ? static_cast<int32_t>(value) : INT32_MAX; }

void derive_values(PatchGeometry *geometry, HistogramLayout *layout) {
    const double patch = geometry->patch_size;
    geometry->patch_border = cut(static_cast<double>(layout->gradient_sigma) * 3.0 * patch);
    const double padded = patch + geometry->patch_border;
    geometry->padded_pixels = cut(padded * padded);
    geometry->scale_step = 1.0f; // the root of the range over one scale
    const double steps = (std::sqrt(static_cast<double>(geometry->padded_pixels)) - patch) / geometry->position_step + 1.0;
    geometry->position_count = cut(steps * steps);
    layout->cell_count = cut(static_cast<double>(layout->grid_size) * layout->grid_size);
    layout->feature_length = cut(static_cast<double>(layout->cell_count) * layout->bin_count);
}

int32_t rebuild_histogram(RedEyeCorrection *rec) {
    KoOrientationHistogramDelete(rec->orientation_histogram);
    rec->orientation_histogram = KoOrientationHistogramNew(&rec->patch_geometry, &rec->histogram_layout);
    if (rec->orientation_histogram == nullptr) {
        return KoErrorGetLastError();
    }
    rec->orientation_histogram->patch_count = 1;
    return KO_OK;
}

// ---- the binary files

class WordReader {
  public:
    explicit WordReader(const char *path) : path_(path) {}

    [[nodiscard]] int32_t open() {
        file_.reset(std::fopen(path_, "rb"));
        return file_ ? static_cast<int32_t>(KO_OK) : KO_REPORT(KO_LEVEL_ERROR, KO_ERR_OPEN_READ, path_);
    }

    [[nodiscard]] int32_t read(uint32_t *word) {
        uint8_t bytes[4];
        if (std::fread(bytes, 1, sizeof(bytes), file_.get()) != sizeof(bytes)) {
            return fail();
        }
        *word = word_of(bytes);
        return KO_OK;
    }

    [[nodiscard]] int32_t read(int32_t *word) {
        uint32_t bits = 0;
        const int32_t status = read(&bits);
        *word = status == KO_OK ? static_cast<int32_t>(bits) : *word;
        return status;
    }

    [[nodiscard]] int32_t read(float *word) {
        uint32_t bits = 0;
        const int32_t status = read(&bits);
        *word = status == KO_OK ? bit_cast<float>(bits) : *word;
        return status;
    }

    // What precedes the end of a file that is cut short is stored.
    [[nodiscard]] int32_t read(float *words, uint64_t count) {
        const uint64_t complete = std::fread(words, sizeof(*words), count, file_.get());
        for (uint64_t i = 0; i < complete; ++i) {
            uint8_t bytes[4];
            std::memcpy(bytes, &words[i], sizeof(bytes));
            words[i] = bit_cast<float>(word_of(bytes));
        }
        return complete == count ? static_cast<int32_t>(KO_OK) : fail();
    }

    // Allocates a block for count floats and reads them; *words is replaced by it.
    [[nodiscard]] int32_t read_block(float **words, int64_t count) {
        KoFree(*words);
        *words = allocate<float>(static_cast<uint64_t>(count));
        return *words != nullptr ? read(*words, static_cast<uint64_t>(count)) : KoErrorGetLastError();
    }

    // KO_OK if as many words may follow; asked before a block is made whose making touches memory.
    [[nodiscard]] int32_t expect(uint64_t words) {
        const long here = std::ftell(file_.get());
        if (here < 0 || std::fseek(file_.get(), 0, SEEK_END) != 0) {
            return KO_OK; // not a file with an end that can be asked for
        }
        const long end = std::ftell(file_.get());
        std::fseek(file_.get(), here, SEEK_SET);
        return static_cast<uint64_t>(end - here) / 4 >= words ? static_cast<int32_t>(KO_OK) : fail();
    }

  private:
    static uint32_t word_of(const uint8_t (&bytes)[4]) {
        return bytes[0] | uint32_t{bytes[1]} << 8 | uint32_t{bytes[2]} << 16 | uint32_t{bytes[3]} << 24;
    }

    int32_t fail() const { return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_READ_FILE, path_); }

    const char *path_;
    File file_;
};

// The row values, of which a host that has set projection_rows before keeps the leading ones.
int32_t read_row_values(RedEyeCorrection *rec, WordReader *reader, int32_t wanted) {
    int32_t status = reader->read_block(&rec->projection_row_values, rec->projection_rows);
    if (status == KO_OK && wanted != 0) {
        void *cut = reallocate_bytes(rec->projection_row_values, static_cast<uint64_t>(wanted), sizeof(float));
        if (cut == nullptr) {
            return KoErrorGetLastError();
        }
        rec->projection_row_values = static_cast<float *>(cut);
    }
    return status;
}

int32_t read_matrix(RedEyeCorrection *rec, WordReader *reader, int32_t rows) {
    const auto width = static_cast<uint64_t>(rec->projection_dimension);
    const auto height = static_cast<uint64_t>(rows);
    int32_t status = reader->expect(width * height);
    if (status != KO_OK) {
        return status;
    }
    rec->projection_matrix = KoMatrixFloatNew(width, height);
    if (rec->projection_matrix == nullptr) {
        return KoErrorGetLastError();
    }
    for (uint64_t y = 0; y < height && status == KO_OK; ++y) {
        status = reader->read(rec->projection_matrix->rows[y], width);
    }
    return status;
}

int32_t KoRedEyeReadProjectionFile(RedEyeCorrection *rec, const char *path) {
    const int32_t wanted = rec->projection_rows;
    KoMatrixFloatDelete(rec->projection_matrix);
    rec->projection_matrix = nullptr;
    WordReader reader(path);
    int32_t status = reader.open();
    if (status == KO_OK) {
        status = reader.read(&rec->projection_header);
    }
    if (status == KO_OK) {
        status = reader.read(&rec->projection_rows);
    }
    if (status == KO_OK) {
        status = reader.read(&rec->projection_dimension);
    }
    if (status == KO_OK && (wanted < 0 || wanted > rec->projection_rows)) {
        status = KO_REPORT(KO_LEVEL_INTERNAL_ERROR, KO_ERR_INVALID_ARGUMENT);
    }
    if (status == KO_OK) {
        status = read_row_values(rec, &reader, wanted);
    }
    if (status == KO_OK) {
        status = reader.read_block(&rec->projection_mean, rec->projection_dimension);
    }
    return status == KO_OK ? read_matrix(rec, &reader, wanted != 0 ? wanted : rec->projection_rows) : status;
}

int32_t KoRedEyeReadClassifierFile(const char *path, uint32_t *dimension, float *bias, float **weights) {
    WordReader reader(path);
    int32_t status = reader.open();
    if (status == KO_OK) {
        status = reader.read(dimension);
    }
    if (status == KO_OK) {
        status = reader.read(bias);
    }
    return status == KO_OK ? reader.read_block(weights, *dimension) : status;
}

// fe_count receives the weights of the first file: both write classifier_dimension, and the second one's stays.
int32_t KoRedEyeReadClassifiers(RedEyeCorrection *rec, const char *stem, uint32_t *fe_count) {
    char path[KO_REDEYE_PATH_SIZE + 8];
    std::snprintf(path, sizeof(path), "%s_RE_FE", stem);
    const int32_t status = KoRedEyeReadClassifierFile(path, &rec->classifier_dimension, &rec->fe_bias, &rec->fe_weights);
    if (status != KO_OK) {
        return status;
    }
    *fe_count = rec->classifier_dimension;
    std::snprintf(path, sizeof(path), "%s_RE_BE", stem);
    return KoRedEyeReadClassifierFile(path, &rec->classifier_dimension, &rec->be_bias, &rec->be_weights);
}

} // namespace

int32_t KoRedEyeReadCategorizerConfig(RedEyeCorrection *rec, uint32_t *fe_count) {
    const File file(std::fopen(rec->config_path, "r"));
    if (!file) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_OPEN_READ, rec->config_path);
    }
    ConfigLines lines(file.get());
    const bool paths_fit = read_values(rec, &lines);
    int32_t status = KO_OK;
    if (lines.failed()) {
        status = KO_REPORT(KO_LEVEL_ERROR, KO_ERR_READ_LINE, rec->config_path, lines.lines_read());
    } else if (!paths_fit) {
        status = KO_REPORT(KO_LEVEL_ERROR, KO_ERR_INVALID_ARGUMENT);
    }
    derive_values(&rec->patch_geometry, &rec->histogram_layout);
    const int32_t rebuilt = rebuild_histogram(rec);
    if (status != KO_OK || rebuilt != KO_OK) {
        return status != KO_OK ? status : rebuilt;
    }
    status = KoRedEyeReadProjectionFile(rec, rec->projection_path);
    return status == KO_OK ? KoRedEyeReadClassifiers(rec, rec->classifier_path, fe_count) : status;
}

} // namespace ko
