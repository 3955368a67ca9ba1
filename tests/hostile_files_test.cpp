// Files that lie, break off or are no files at all, for every loader: each load is compared with a plain reading of the same
// file, written here in its plainest form. What is compared: status, message chain, the standard error stream, the counts of
// the record, all entries (those read, and those that a failure must leave alone), and the streams that stay open. A record
// that went through it must then load a good file.
#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ko.h"

#include "allocator_lines.h"
#include "capture.h"
#include "files.h"
#include "library_test.h"
#include "pictures.h"
#include "reference_tokens.h"

#ifdef __linux__
#include <poll.h>
#include <unistd.h>
#endif

namespace {

using namespace ko_test;

// What every entry of a record holds before a load; as a float it is 777.
constexpr uint32_t sentinel = 0x44424000;

// ---- the records ----

// A record of any kind as counts, and as 32-bit entries in the order in which its file holds them.
class Subject {
  public:
    virtual ~Subject() = default;
    virtual int32_t load(const char *path) = 0;
    virtual std::vector<uint64_t> counts() const = 0;
    virtual uint64_t entries() const = 0;
    virtual uint32_t get(uint64_t i) const = 0;
    virtual void set(uint64_t i, uint32_t value) = 0;
};

class CurveSubject : public Subject {
  public:
    int32_t load(const char *path) override { return KoTRCLoad(trc_.get(), path); }
    std::vector<uint64_t> counts() const override { return {trc_->size}; }
    uint64_t entries() const override { return trc_->size; }
    uint32_t get(uint64_t i) const override { return trc_->array[i]; }
    void set(uint64_t i, uint32_t value) override { trc_->array[i] = value; }

  private:
    TRCPtr trc_{KoTRCNew(4)};
};

class ColorCurveSubject : public Subject {
  public:
    int32_t load(const char *path) override { return KoColorTRCLoad(color_.get(), path); }
    std::vector<uint64_t> counts() const override { return {color_->depth, curve(0)->size, curve(1)->size, curve(2)->size}; }
    uint64_t entries() const override { return 3 * curve(0)->size; }
    uint32_t get(uint64_t i) const override { return curve(i % 3)->array[i / 3]; }
    void set(uint64_t i, uint32_t value) override { curve(i % 3)->array[i / 3] = value; }

  private:
    TRC *curve(uint64_t c) const { return color_->curves[c]; }
    ColorTRCPtr color_{KoColorTRCNew(4, 3)};
};

class HistogramSubject : public Subject {
  public:
    HistogramSubject() { histogram_->numPixels = 17; }
    int32_t load(const char *path) override { return KoHistogramLoad(histogram_.get(), path); }
    std::vector<uint64_t> counts() const override {
        return {histogram_->size, std::bit_cast<uint32_t>(histogram_->minValue), std::bit_cast<uint32_t>(histogram_->maxValue),
                std::bit_cast<uint32_t>(histogram_->scale), histogram_->numPixels};
    }
    uint64_t entries() const override { return histogram_->size; }
    uint32_t get(uint64_t i) const override { return histogram_->values[i]; }
    void set(uint64_t i, uint32_t value) override { histogram_->values[i] = value; }

  private:
    ko::HistogramPtr histogram_{KoHistogramNew(4, 10.0f, 40.0f)};
};

class GridSubject : public Subject {
  public:
    int32_t load(const char *path) override { return KoTileTRCLoad(grid_.get(), path); }
    std::vector<uint64_t> counts() const override { return {grid_->size, grid_->numStripsX, grid_->numStripsY}; }
    uint64_t entries() const override {
        EXPECT_EQ(grid_->array == nullptr, grid_->numStripsX == 0 || grid_->numStripsY == 0);
        return grid_->array == nullptr ? 0 : grid_->size * grid_->numStripsX * grid_->numStripsY;
    }
    uint32_t get(uint64_t i) const override { return grid_->array[i]; }
    void set(uint64_t i, uint32_t value) override { grid_->array[i] = value; }

  private:
    TileTRCPtr grid_{KoTileTRCNew(4, 3, 1)};
};

// The entries are those of an index, red, green and blue, for every index of every tile.
class ColorGridSubject : public Subject {
  public:
    int32_t load(const char *path) override { return KoTileColorTRCLoad(grid_.get(), path); }
    std::vector<uint64_t> counts() const override { return {grid_->size, grid_->numStripsX, grid_->numStripsY}; }
    uint64_t entries() const override {
        const bool none = grid_->numStripsX == 0 || grid_->numStripsY == 0;
        for (uint64_t c = 0; c < 3; ++c) {
            EXPECT_EQ(plane(c) == nullptr, none) << "plane " << c;
        }
        return none ? 0 : 3 * grid_->size * grid_->numStripsX * grid_->numStripsY;
    }
    uint32_t get(uint64_t i) const override { return plane(i % 3)[i / 3]; }
    void set(uint64_t i, uint32_t value) override { plane(i % 3)[i / 3] = value; }

  private:
    uint32_t *plane(uint64_t c) const {
        return std::array<uint32_t *, 3>{grid_->redArray, grid_->greenArray, grid_->blueArray}[c];
    }
    TileColorTRCPtr grid_{KoTileColorTRCNew(4, 3, 1)};
};

// The caller's stream and curve: the counts are the size and the place in the stream, the entries all of the curve's room.
template <uint64_t size> class TokenSubject : public Subject {
  public:
    int32_t load(const char *path) override {
        std::FILE *stream = std::fopen(path, "rb");
        KoTRCCompressSetTRC(compress_.get(), curve_.data());
        const int32_t status = KoTRCCompressLoad(compress_.get(), stream, path);
        place_ = status == KO_OK ? static_cast<uint64_t>(std::ftell(stream)) : 0;
        std::fclose(stream);
        return status;
    }
    std::vector<uint64_t> counts() const override { return {compress_->size, place_}; }
    uint64_t entries() const override { return curve_.size(); }
    uint32_t get(uint64_t i) const override { return curve_[i]; }
    void set(uint64_t i, uint32_t value) override { curve_[i] = value; }

  private:
    ko::TRCCompressPtr compress_{KoTRCCompressNew(size)};
    std::vector<uint32_t> curve_ = std::vector<uint32_t>(size + token_room);
    uint64_t place_ = 0;
};

float *pixel(const RealImage *image, uint64_t i) { return &image->rows[i / image->width][i % image->width]; }

class PictureSubject : public Subject {
  public:
    int32_t load(const char *path) override { return KoRealImageLoadTXT(image_.get(), path); }
    std::vector<uint64_t> counts() const override { return {image_->width, image_->height}; }
    uint64_t entries() const override { return image_->width * image_->height; }
    uint32_t get(uint64_t i) const override { return std::bit_cast<uint32_t>(*pixel(image_.get(), i)); }
    void set(uint64_t i, uint32_t value) override { *pixel(image_.get(), i) = std::bit_cast<float>(value); }

  private:
    RealImagePtr image_{KoRealImageNew(3, 3)};
};

// The entries are those of plane 0, of plane 1, of plane 2.
class ColorPictureSubject : public Subject {
  public:
    int32_t load(const char *path) override { return KoColorImageLoadTXT(image_.get(), path, 0.0, 0.0); }
    std::vector<uint64_t> counts() const override {
        std::vector<uint64_t> counts{static_cast<uint64_t>(image_->color_space), image_->depth};
        for (uint64_t c = 0; c < image_->depth; ++c) {
            counts.push_back(image_->planes[c].width);
            counts.push_back(image_->planes[c].height);
        }
        return counts;
    }
    uint64_t entries() const override {
        uint64_t count = 0;
        for (uint64_t c = 0; c < image_->depth; ++c) {
            count += KoRealImageGetSize(&image_->planes[c]);
        }
        return count;
    }
    uint32_t get(uint64_t i) const override { return std::bit_cast<uint32_t>(*place(i)); }
    void set(uint64_t i, uint32_t value) override { *place(i) = std::bit_cast<float>(value); }

  private:
    float *place(uint64_t i) const {
        uint64_t c = 0;
        while (i >= KoRealImageGetSize(&image_->planes[c])) {
            i -= KoRealImageGetSize(&image_->planes[c]);
            ++c;
        }
        return pixel(&image_->planes[c], i);
    }
    ColorImagePtr image_{KoColorImageNew(3, 3, KO_COLORSPACE_YIQ)};
};

// ---- the plain reading ----

// What a load must give.
struct Expected {
    int32_t status = KO_OK;
    std::string chain;
    std::string printed;
    bool only_starts = false; // chain and printed text need only begin so
    std::vector<uint64_t> counts;
    std::vector<uint32_t> entries;          // those read, from the first on
    uint64_t open = 0;                      // entries behind them that may hold anything
    std::optional<uint32_t> rest{sentinel}; // what each entry behind those holds, if that is told
    size_t streams = 0;                     // streams that stay open

    bool fail(int32_t code, const std::string &text) {
        status = code;
        chain = std::string("[ERROR] ").append(text);
        return false;
    }
    bool cannot_open(const std::string &path) {
        return fail(KO_ERR_OPEN_READ, "Cannot open file \"" + path + "\" for reading");
    }
    bool cannot_read(const std::string &path) { return fail(KO_ERR_READ_FILE, "Cannot read file \"" + path + "\""); }
    // A request that no allocator is asked for. What is shown of a product beyond 64 bits is nobody's promise.
    bool cannot_allocate(uint64_t bytes, bool beyond_64_bits) {
        const auto shown = static_cast<int32_t>(static_cast<uint32_t>(bytes));
        status = KO_ERR_ALLOC;
        chain = beyond_64_bits ? "Cannot allocate " : allocator_text(shown);
        printed = beyond_64_bits ? "[ERROR] Memory allocation failed: can't allocated " : allocator_line(shown);
        only_starts = beyond_64_bits;
        return false;
    }
};

constexpr uint64_t largest_block = 0x7FFFFFFF;

using Reader = std::function<Expected(const std::string &path, const Subject &before)>;

// Whether the line that is wrong is shown, or only its number.
enum class Telling { line, number };

// A file read with fgets into 1000 characters; a line that does not fit is told in expected.
class Lines {
  public:
    Lines(const std::string &path, Expected *expected, Telling telling = Telling::line)
        : path_(path), expected_(expected), telling_(telling) {}
    ~Lines() {
        if (stream_ != nullptr) {
            std::fclose(stream_);
        }
    }
    Lines(const Lines &) = delete;
    Lines &operator=(const Lines &) = delete;

    bool open(const char *mode) {
        stream_ = std::fopen(path_.c_str(), mode);
        return stream_ != nullptr || expected_->cannot_open(path_);
    }
    bool next() {
        ++number_;
        return std::fgets(line_, sizeof line_, stream_) != nullptr || fail("can't read file");
    }
    bool begins_with(const std::string &word) const { return std::strncmp(line_, word.c_str(), word.size()) == 0; }
    // Finds count numbers by a format of "%llu" and cuts them to 32 bits, or rejects the line in these words.
    bool scan(const char *format, size_t count, uint32_t *numbers, const std::string &words) {
        unsigned long long scanned[3] = {};
        if (std::sscanf(line_, format, &scanned[0], &scanned[1], &scanned[2]) < static_cast<int>(count)) {
            return reject(words);
        }
        std::transform(scanned, scanned + count, numbers, [](unsigned long long n) { return static_cast<uint32_t>(n); });
        return true;
    }
    bool reject(const std::string &words) {
        return fail(telling_ == Telling::number ? words : std::string("\"").append(line_).append("\": ").append(words));
    }
    std::FILE *stream() const { return stream_; }

  private:
    bool fail(const std::string &words) {
        const std::string place = "\"" + path_ + "\", line " + std::to_string(number_);
        expected_->printed = "[ERROR] " + place + ": " + words + "\n";
        return expected_->fail(KO_ERR_READ_LINE, "Read error in file " + place);
    }

    std::string path_;
    Expected *expected_;
    Telling telling_;
    std::FILE *stream_ = nullptr;
    char line_[1000] = {};
    int number_ = 0;
};

uint64_t size_of_bits(uint32_t bits) { return uint64_t{1} << (bits % 32); }

// Lines of 1 or 3 entries, one line an index.
bool read_rows(Lines *lines, uint64_t rows, size_t columns, const std::string &words, Expected *expected) {
    for (uint64_t i = 0; i < rows; ++i) {
        uint32_t row[3] = {};
        if (!lines->next()) {
            return false;
        }
        if (!lines->scan(columns == 1 ? "%llu\n" : "%llu %llu %llu\n", columns, row, words)) {
            expected->open = columns - 1; // a part of the line may have been scanned
            return false;
        }
        expected->entries.insert(expected->entries.end(), row, row + columns);
    }
    return true;
}

// The line of the bits, and the new size if it can be had.
bool read_bits(Lines *lines, uint64_t *size, Expected *expected) {
    uint32_t bits = 0;
    if (!lines->next() || !lines->scan("bits %llu", 1, &bits, "Invalid value, must be bits <bit per pixel>")) {
        return false;
    }
    *size = size_of_bits(bits);
    return 4 * *size <= largest_block || expected->cannot_allocate(4 * *size, false);
}

Expected read_curves(const std::string &path, const Subject &before, const std::string &word, size_t columns,
                     const std::string &bad_row) {
    Expected expected;
    expected.counts = before.counts();
    Lines lines(path, &expected);
    uint64_t size = 0;
    if (!lines.open("r") || !lines.next()) {
        return expected;
    }
    if (!lines.begins_with(word)) {
        lines.reject("Invalid value, must be " + word);
        return expected;
    }
    if (!read_bits(&lines, &size, &expected)) {
        return expected;
    }
    if (size != before.entries() / columns) {
        expected.rest.reset(); // new entries, not set
        std::fill_n(expected.counts.end() - static_cast<std::ptrdiff_t>(columns), columns, size);
    }
    read_rows(&lines, size, columns, bad_row, &expected);
    return expected;
}

Expected read_curve(const std::string &path, const Subject &before) {
    return read_curves(path, before, "GrayLinear", 1, "Invalid value, <GRAY>");
}

Expected read_color_curve(const std::string &path, const Subject &before) {
    return read_curves(path, before, "RGBLinear", 3, "Invalid value, <RED> <GREEN> <BLUE>");
}

Expected read_histogram(const std::string &path, const Subject &before) {
    Expected expected;
    expected.counts = before.counts();
    Lines lines(path, &expected);
    uint64_t size = 0;
    if (!lines.open("r") || !read_bits(&lines, &size, &expected)) {
        return expected;
    }
    if (size != before.entries()) {
        const float maximum = static_cast<float>(size); // one more than the last bin's number
        const float scale = static_cast<float>(size - 1) / maximum;
        expected.counts = {size, std::bit_cast<uint32_t>(0.0f), std::bit_cast<uint32_t>(maximum),
                           std::bit_cast<uint32_t>(scale), 0};
        expected.rest = 0;
    }
    read_rows(&lines, size, 1, "Invalid value, <HISOGRAM VALUE>", &expected);
    return expected;
}

Expected read_token_stream(const std::string &path, const Subject &before) {
    Expected expected;
    Lines file(path, &expected);
    file.open("rb");
    const uint64_t size = before.counts().front();
    expected.counts = {size, 0};
    if (read_tokens(file.stream(), size, &expected.entries)) {
        expected.counts.back() = static_cast<uint64_t>(std::ftell(file.stream()));
    } else {
        expected.cannot_read(path);
    }
    return expected;
}

// One byte an entry, each a signed step.
bool read_steps(std::FILE *stream, uint64_t size, std::vector<uint32_t> *curve) {
    uint32_t entry = 0;
    while (curve->size() < size) {
        const int byte = std::fgetc(stream);
        if (byte == EOF) {
            return false;
        }
        entry += static_cast<uint32_t>(static_cast<int32_t>(static_cast<int8_t>(byte)));
        curve->push_back(entry);
    }
    return true;
}

// Curves that are no lines. What a curve's last token stores past it is there until the next curve overwrites it.
void read_packed_curves(const Lines &file, const std::string &path, uint64_t size, uint64_t tiles, bool encoded,
                        Expected *expected) {
    uint64_t stored = 0;
    for (uint64_t tile = 0; tile < tiles; ++tile) {
        std::vector<uint32_t> curve;
        const bool full = encoded ? read_tokens(file.stream(), size, &curve) : read_steps(file.stream(), size, &curve);
        stored = std::max(stored, tile * size + curve.size());
        for (uint64_t i = 0; i < std::min<uint64_t>(size, curve.size()); ++i) {
            expected->entries.push_back(curve[i]);
        }
        if (!full) {
            expected->open = stored - expected->entries.size();
            expected->cannot_read(path);
            return;
        }
    }
}

// The second line of a grid: size and strips, and whether their entries can be had.
bool read_grid_header(Lines *lines, std::vector<uint64_t> *counts, Expected *expected) {
    uint32_t numbers[3] = {};
    const char *words = "Invalid value, must be bits <bit per pixel> <num strips X> <num strips Y>";
    if (!lines->next() || !lines->scan("bits %llu %llu %llu", 3, numbers, words)) {
        return false;
    }
    *counts = {size_of_bits(numbers[0]), numbers[1], numbers[2]};
    const uint64_t tiles = (*counts)[1] * (*counts)[2];
    const uint64_t tile_bytes = 4 * (*counts)[0];
    return tiles <= largest_block / tile_bytes ||
           expected->cannot_allocate(tiles * tile_bytes, tiles > UINT64_MAX / tile_bytes);
}

Expected read_grid(const std::string &path, const Subject &before) {
    Expected expected;
    expected.counts = before.counts();
    Lines lines(path, &expected);
    if (!lines.open("rb") || !lines.next()) {
        return expected;
    }
    const bool encoded = lines.begins_with("GrayLinearEncoded");
    const bool binary = lines.begins_with("GrayLinearBinary");
    std::vector<uint64_t> counts;
    if (!lines.begins_with("GrayLinear")) {
        lines.reject("Invalid value, must be GrayLinear or GrayLinearEncoded");
        return expected;
    }
    if (!read_grid_header(&lines, &counts, &expected)) {
        return expected;
    }
    expected.rest = counts == expected.counts ? sentinel : 0;
    expected.counts = counts;
    const uint64_t tiles = counts[1] * counts[2];
    if (encoded || binary) {
        read_packed_curves(lines, path, counts[0], tiles, encoded, &expected);
    } else {
        read_rows(&lines, counts[0] * tiles, 1, "Invalid value, <GRAY>", &expected);
    }
    return expected;
}

Expected read_color_grid(const std::string &path, const Subject &before) {
    Expected expected;
    expected.counts = before.counts();
    Lines lines(path, &expected, Telling::number);
    std::vector<uint64_t> counts;
    if (!lines.open("r") || !lines.next()) {
        return expected;
    }
    if (!lines.begins_with("RGBLinear")) {
        lines.reject("Invalid value, must be RGBLinear");
        return expected;
    }
    if (!read_grid_header(&lines, &counts, &expected)) {
        return expected;
    }
    expected.rest = counts == expected.counts ? sentinel : 0;
    expected.counts = counts;
    read_rows(&lines, counts[0] * counts[1] * counts[2], 3, "Invalid value, <RED> <GREEN> <BLUE>", &expected);
    return expected;
}

// A picture's numbers, as long as each has a character behind it.
Expected read_picture(const std::string &path, const std::vector<uint64_t> &size_before) {
    Expected expected;
    expected.counts = size_before;
    std::FILE *stream = std::fopen(path.c_str(), "rb");
    if (stream == nullptr) {
        expected.cannot_open(path);
        return expected;
    }
    std::vector<uint32_t> numbers;
    uint64_t width = 0;
    uint64_t rows = 0;
    float number = 0.0f;
    char behind = 0;
    while (std::fscanf(stream, "%f%c", &number, &behind) == 2) {
        numbers.push_back(std::bit_cast<uint32_t>(number));
        if (behind == '\n') {
            width = ++rows == 1 ? numbers.size() : width;
        }
    }
    std::fclose(stream);
    expected.streams = 1;
    if (numbers.size() != width * rows) {
        expected.cannot_read(path);
        return expected;
    }
    expected.counts = {width, rows};
    expected.entries = numbers;
    return expected;
}

Expected read_text_picture(const std::string &path, const Subject &before) { return read_picture(path, before.counts()); }

Expected read_gray_picture(const std::string &path) {
    Expected expected = read_picture(path, {0, 0});
    expected.counts.insert(expected.counts.begin(), {KO_COLORSPACE_GRAY, 1});
    return expected;
}

const std::vector<std::string> plane_names{".R", ".G", ".B"};

// Three planes up to the first that cannot be read. Planes that then differ in size from the first become cleared
// ones of its size.
Expected read_color_picture(const std::string &path, const Subject &before) {
    if (!exists(path + plane_names[0])) {
        return read_gray_picture(path);
    }
    Expected all;
    all.counts = before.counts();
    if (all.counts[1] < plane_names.size()) {
        all.fail(KO_ERR_INVALID_ARGUMENT, "Invalid argument");
        return all;
    }
    std::vector<uint64_t> first;
    bool uneven = false;
    for (size_t c = 0; c < plane_names.size(); ++c) {
        const auto size = all.counts.begin() + static_cast<std::ptrdiff_t>(2 + 2 * c);
        Expected plane;
        plane.counts = {size[0], size[1]};
        if (all.status == KO_OK) {
            plane = read_picture(path + plane_names[c], plane.counts);
            all.status = plane.status;
            all.chain = plane.chain;
            all.streams += plane.streams;
        }
        plane.entries.resize(plane.counts[0] * plane.counts[1], sentinel);
        first = c == 0 ? plane.counts : first;
        if (plane.counts != first) {
            plane.entries.assign(first[0] * first[1], 0);
            uneven = true;
        }
        std::copy(first.begin(), first.end(), size);
        all.entries.insert(all.entries.end(), plane.entries.begin(), plane.entries.end());
    }
    if (uneven && all.status == KO_OK) {
        all.cannot_read(path);
        all.chain.pop_back(); // which of the names is told is open
        all.only_starts = true;
    }
    return all;
}

// ---- the kinds ----

struct Kind {
    std::string name;
    std::function<std::unique_ptr<Subject>()> make;
    Reader read;
    std::vector<std::string> seeds;        // good files
    std::string suffix{};                  // where the file stands behind the path that is loaded
    std::vector<std::string> neighbours{}; // further suffixes, which hold the first seed
    std::vector<std::string> absurd{};     // files whose numbers cannot be meant
    std::vector<std::string> enormous{};   // files of a few bytes that ask for a gigabyte
    bool by_stream = false;                // the caller opens the file
};

void PrintTo(const Kind &kind, std::ostream *stream) { *stream << kind.name; }

template <class T> std::unique_ptr<Subject> make_subject() { return std::make_unique<T>(); }

std::string bytes(std::initializer_list<int> values) {
    std::string text;
    for (const int value : values) {
        text += static_cast<char>(value);
    }
    return text;
}

// The parts of a text between its bars.
std::vector<std::string> parts(const std::string &text) {
    std::vector<std::string> found{""};
    for (const char c : text) {
        if (c == '|') {
            found.emplace_back();
        } else {
            found.back() += c;
        }
    }
    return found;
}

const std::vector<std::string> absurd_bits =
    parts("0|1|3|10|28|29|30|31|32|33|34|64|66|4294967295|4294967296|4294967298|18446744073709551615|"
          "18446744073709551616|99999999999999999999|-1|-30|+2|0x2|2.9|1e3|2x|x|| |- 2|%d|%n%s");

const std::vector<std::string> absurd_strips =
    parts("0 0|0 3|3 0|0 65536|0 4294967295|4294967295 0|1 1|3|3 x|3 1 7|-1 0|-1 1|1 -1|-1 -1|65536 65536|"
          "65536 4294967295|4294967295 4294967295|2147483648 2|1073741824 4|2147483648 2147483648|4294967296 1|"
          "4294967297 1|99999999999999999999 1|1 99999999999999999999");

std::vector<std::string> with_bits(const std::string &start, const std::string &body) {
    std::vector<std::string> texts;
    for (const std::string &bits : absurd_bits) {
        texts.push_back(start + "bits " + bits + "\n" + body);
    }
    for (const char *line : {"", "2", "bits", "bits2", "bits\t2", "Bits 2", " bits 2", "bit 2", "bits 2 3 4 5"}) {
        texts.push_back(start + line + "\n" + body);
    }
    return texts;
}

const std::string rows_of_one = "1\n22\n4294967295\n-4\n";
const std::string rows_of_three = "1 2 3\n44 5 6\n7 4294967295 9\n-1 0 1\n";

Kind curve_kind() {
    const std::string start = "GrayLinear\n";
    return {.name = "Curve",
            .make = make_subject<CurveSubject>,
            .read = read_curve,
            .seeds = {start + "bits 2\n" + rows_of_one},
            .absurd = with_bits(start, rows_of_one),
            .enormous = {start + "bits 28\n5\n", start + "bits 60\n"}};
}

Kind color_curve_kind() {
    const std::string start = "RGBLinear\n";
    return {.name = "ColorCurve",
            .make = make_subject<ColorCurveSubject>,
            .read = read_color_curve,
            .seeds = {start + "bits 2\n" + rows_of_three},
            .absurd = with_bits(start, rows_of_three),
            .enormous = {start + "bits 28\n5 6 7\n", start + "bits 60\n"}};
}

Kind histogram_kind() {
    return {.name = "Histogram",
            .make = make_subject<HistogramSubject>,
            .read = read_histogram,
            .seeds = {"bits 2\n" + rows_of_one, "bits 1\n5\n6\n"},
            .absurd = with_bits("", rows_of_one),
            .enormous = {"bits 28\n5\n", "bits 60\n"}};
}

// Tokens of every form: three entries by literals and one run, four by bits, four by pairs of bits; short and long literals.
const std::string token_forms = bytes({0x38, 0x10, 0xFF, 0x43, 0x0E, 0x05, 0x1C, 0xE4});
// Tokens as long as they can be: 64 entries by bits, and twice 32 by pairs and by a run.
const std::string long_tokens =
    bytes({0xFE, 1, 2, 3, 4, 5, 6, 7, 8, 0xFC, 0x1B, 0xE4, 0x00, 0xFF, 0x55, 0xAA, 0x39, 0x93, 0xFF});

void add_absurd_grids(std::vector<std::string> *texts, const std::string &word, const std::string &body) {
    for (const char *bits : {"0", "2", "31", "-1"}) {
        for (const std::string &strips : absurd_strips) {
            texts->push_back(word + "\nbits " + bits + " " + strips + "\n" + body);
        }
    }
    for (const std::string &bits : absurd_bits) {
        texts->push_back(word + "\nbits " + bits + " 1 1\n" + body);
    }
}

std::vector<std::string> absurd_grids() {
    std::vector<std::string> texts;
    const std::string body = rows_of_one + rows_of_one + token_forms;
    for (const char *word : {"GrayLinear", "GrayLinearBinary", "GrayLinearEncoded"}) {
        add_absurd_grids(&texts, word, body);
    }
    for (const char *word : {"GrayLinearBinaryX", "GrayLinearEncodedX", "GrayLinearX", "grayLinear", "RGBLinear", ""}) {
        texts.push_back(std::string(word) + "\nbits 2 3 1\n" + body);
    }
    return texts;
}

Kind grid_kind() {
    const std::string text = "GrayLinear\nbits 2 3 1\n" + rows_of_one + rows_of_one + rows_of_one;
    const std::string binary = "GrayLinearBinary\nbits 2 3 1\n" + bytes({0, 1, 10, 13, 0x7F, 0x80, 0xFF, 26, 1, 2, 3, 4});
    const std::string encoded = "GrayLinearEncoded\nbits 2 3 1\n" + token_forms;
    const std::string larger = "GrayLinearEncoded\nbits 6 2 1\n" + long_tokens;
    return {.name = "Grid",
            .make = make_subject<GridSubject>,
            .read = read_grid,
            .seeds = {text, binary, encoded, larger},
            .absurd = absurd_grids(),
            .enormous = {"GrayLinear\nbits 28 1 1\n5\n", "GrayLinearBinary\nbits 20 16 16\n5",
                         "GrayLinearEncoded\nbits 28 1 1\n\x38", "GrayLinearEncoded\nbits 0 65536 4096\n\x38",
                         "GrayLinearEncoded\nbits 31 0 4294967295\n"}};
}

std::vector<std::string> absurd_color_grids() {
    std::vector<std::string> texts;
    const std::string body = rows_of_three + rows_of_three + rows_of_three;
    add_absurd_grids(&texts, "RGBLinear", body);
    for (const char *word : {"RGBLinearX", "RGBLinea", "rgbLinear", " RGBLinear", "GrayLinear", "GrayLinearBinary", ""}) {
        texts.push_back(std::string(word) + "\nbits 2 3 1\n" + body);
    }
    // Lines that hold too little, too much, or other things than decimal numbers.
    for (const std::string &row : parts("|1|1 2|1 2 |1 2 x|x 2 3|1 2 3 4|1,2,3|1 2,3|- 1 2|1.5 2.5 3.5|0x1 0x2 0x3|1e3 2 3|"
                                        "99999999999999999999 18446744073709551616 -18446744073709551615|%s %n %lu")) {
        texts.push_back("RGBLinear\nbits 1 2 1\n" + row + "\n" + rows_of_three);
        texts.push_back("RGBLinear\nbits 2 3 1\n" + rows_of_three + row + "\n" + rows_of_three + rows_of_three);
    }
    return texts;
}

Kind color_grid_kind() {
    const std::string start = "RGBLinear\n";
    return {.name = "ColorGrid",
            .make = make_subject<ColorGridSubject>,
            .read = read_color_grid,
            .seeds = {start + "bits 2 3 1\n" + rows_of_three + rows_of_three + rows_of_three,
                      start + "bits 1 1 2\n" + rows_of_three},
            .absurd = absurd_color_grids(),
            .enormous = {start + "bits 28 1 1\n5 6 7\n", start + "bits 0 65536 4096\n", start + "bits 31 0 4294967295\n"}};
}

// Every first byte, before bytes enough and before too few.
std::vector<std::string> token_beginnings() {
    std::vector<std::string> texts;
    for (int first = 0; first < 256; ++first) {
        for (const size_t length : {0u, 1u, 7u, 100u}) {
            texts.push_back(bytes({first}) + std::string(length, '\xA6'));
            texts.push_back(bytes({0x38, first}) + std::string(length, '\x48'));
        }
    }
    return texts;
}

template <uint64_t size> Kind token_kind() {
    return {.name = "TokensOf" + std::to_string(size),
            .make = make_subject<TokenSubject<size>>,
            .read = read_token_stream,
            .seeds = {long_tokens + token_forms + std::string(40, '\x48')},
            .absurd = token_beginnings(),
            .by_stream = true};
}

const std::vector<std::string> absurd_pictures =
    parts("1\n2\n3|1\n2\n3\n|1,2\n3\n4,5,6\n|1,2\n3\n4,5\n|1,2,3|1|1,|1\n|\n\n1\n|1,2\n\n3,4\n|,1\n|1,,2\n|"
          "1 2\n3 4\n|1;2\n3x4\n|1,2\nx,4\n|0x10,1e3\n-0X1.8p3,.5\n|0x,1\n|1e,2\n|1e+,2\n|"
          "1e999,-1e999\n1e-999,-0\n|3.4028236e38,1.4e-45\n|nan,inf\n-inf,-nan\n|nan(7),infinity\n|infin,1\n|"
          "na\n|+-1\n|1.2.3,4\n|99999999999999999999,-4294967296\n");

Kind picture_kind(const std::string &name, std::function<std::unique_ptr<Subject>()> make, Reader read,
                  const std::string &suffix, const std::vector<std::string> &neighbours) {
    return {.name = name,
            .make = std::move(make),
            .read = std::move(read),
            .seeds = {"1,-2.5\n300.25,4e1\n"},
            .suffix = suffix,
            .neighbours = neighbours,
            .absurd = absurd_pictures};
}

std::vector<Kind> kinds() {
    const auto color = make_subject<ColorPictureSubject>;
    return {curve_kind(),
            color_curve_kind(),
            histogram_kind(),
            grid_kind(),
            color_grid_kind(),
            token_kind<0>(),
            token_kind<1>(),
            token_kind<100>(),
            picture_kind("Picture", make_subject<PictureSubject>, read_text_picture, "", {}),
            picture_kind("GrayPlane", color, read_color_picture, "", {}),
            picture_kind("RedPlane", color, read_color_picture, ".R", {".G", ".B"}),
            picture_kind("GreenPlane", color, read_color_picture, ".G", {".R", ".B"}),
            picture_kind("BluePlane", color, read_color_picture, ".B", {".R", ".G"})};
}

// ---- open streams ----

#ifdef __linux__
// Those below 64, which are more than a test has.
std::set<int> open_descriptors() {
    std::array<pollfd, 64> all{};
    for (size_t i = 0; i < all.size(); ++i) {
        all[i].fd = static_cast<int>(i);
    }
    poll(all.data(), all.size(), 0);
    std::set<int> numbers;
    for (const pollfd &descriptor : all) {
        if ((descriptor.revents & POLLNVAL) == 0) {
            numbers.insert(descriptor.fd);
        }
    }
    return numbers;
}

// Closes the streams that were opened since; gives how many they were.
size_t close_new_streams(const std::set<int> &before) {
    size_t count = 0;
    for (const int number : open_descriptors()) {
        if (!before.contains(number)) {
            close(number);
            ++count;
        }
    }
    return count;
}
#else
std::set<int> open_descriptors() { return {}; }

size_t close_new_streams(const std::set<int> &) { return static_cast<size_t>(_fcloseall()); }
#endif

// ---- the tests ----

class HostileFiles : public LibraryTest, public testing::WithParamInterface<Kind> {
  protected:
    HostileFiles() : folder_("hostile"), path_(folder_.path() + "/file.txt"), good_path_(folder_.path() + "/good.txt") {
        std::filesystem::create_directory(folder_.path());
        write_bytes(good_path_ + kind().suffix, kind().seeds.front());
        for (const std::string &neighbour : kind().neighbours) {
            write_bytes(path_ + neighbour, kind().seeds.front());
            write_bytes(good_path_ + neighbour, kind().seeds.front());
        }
    }

    static const Kind &kind() { return GetParam(); }
    std::string file() const { return path_ + kind().suffix; }

    // A load of what stands at the path is a plain reading of it, and does not spoil the record.
    void expect_plain_load() {
        const std::unique_ptr<Subject> subject = kind().make();
        expect_plain_load(subject.get(), path_);
        expect_plain_load(subject.get(), good_path_);
    }

    void expect_plain_load(const std::string &bytes) {
        SCOPED_TRACE(testing::PrintToString(bytes.substr(0, 200)));
        write_bytes(file(), bytes);
        expect_plain_load();
    }

    void expect_plain_loads(const std::vector<std::string> &files) {
        for (const std::string &bytes : files) {
            expect_plain_load(bytes);
            if (HasFailure()) {
                return;
            }
        }
    }

    // Loads change(seed, place) for every place of every seed that it changes.
    void expect_plain_loads_of(const std::function<std::string(const std::string &seed, size_t place)> &change) {
        for (const std::string &seed : kind().seeds) {
            for (size_t place = 0; place < seed.size() && !HasFailure(); ++place) {
                const std::string changed = change(seed, place);
                if (changed != seed) {
                    expect_plain_load(changed);
                }
            }
        }
    }

  private:
    static constexpr uint64_t enormous = 1000000;

    static void expect_plain_load(Subject *subject, const std::string &path) {
        if (subject->entries() < enormous) {
            for (uint64_t i = 0; i < subject->entries(); ++i) {
                subject->set(i, sentinel);
            }
        }
        const Expected expected = kind().read(path, *subject);
        KoStatusClear();
        const std::set<int> before = open_descriptors();
        StderrCapture captured;
        EXPECT_EQ(subject->load(path.c_str()), expected.status);
        std::string printed = captured.stop();
        EXPECT_EQ(close_new_streams(before), expected.streams) << "streams left open";
        expect_words(expected, std::move(printed));
        ASSERT_EQ(subject->counts(), expected.counts);
        expect_entries(expected, *subject);
    }

    static void expect_words(const Expected &expected, std::string printed) {
        std::string chain = KoErrorGetLastErrorMessage();
        std::string told = expected.printed;
        std::erase(told, '\r'); // captured text comes without them
        if (expected.only_starts) {
            chain.resize(std::min(chain.size(), expected.chain.size()));
            printed.resize(std::min(printed.size(), told.size()));
        }
        EXPECT_EQ(KoErrorGetLastError(), expected.status);
        EXPECT_EQ(chain, expected.chain);
        EXPECT_EQ(printed, told);
    }

    // All entries are looked at; of enormous curves, one a page.
    static void expect_entries(const Expected &expected, const Subject &subject) {
        const uint64_t count = subject.entries();
        ASSERT_LE(expected.entries.size(), count);
        for (uint64_t i = 0; i < expected.entries.size(); ++i) {
            ASSERT_EQ(subject.get(i), expected.entries[i]) << "entry " << i;
        }
        const uint64_t step = count < enormous ? 1 : 1024;
        for (uint64_t i = expected.entries.size(); i < count; i += step) {
            const uint32_t entry = subject.get(i);
            if (expected.rest && i >= expected.entries.size() + expected.open) {
                ASSERT_EQ(entry, *expected.rest) << "entry " << i << " was not to be read";
            }
        }
        if (count > expected.entries.size() + expected.open && expected.rest) {
            ASSERT_EQ(subject.get(count - 1), *expected.rest) << "the last entry was not to be read";
        }
    }

    TemporaryFile folder_;

  protected:
    std::string path_;

  private:
    std::string good_path_;
};

// What the other tests break is good.
TEST_P(HostileFiles, SeedsLoad) {
    for (const std::string &seed : kind().seeds) {
        write_bytes(file(), seed);
        const std::unique_ptr<Subject> subject = kind().make();
        const std::set<int> before = open_descriptors();
        expect_success([&] { return subject->load(path_.c_str()); });
        close_new_streams(before);
        expect_plain_load(seed);
        expect_plain_load(seed + "what follows is not read\n");
    }
}

TEST_P(HostileFiles, TruncatedAtEveryLength) {
    expect_plain_loads_of([](const std::string &seed, size_t place) { return seed.substr(0, place); });
}

TEST_P(HostileFiles, EveryByteFlipped) {
    for (const int mask : {0xFF, 0x01, 0x02, 0x04, 0x08, 0x10, 0x20, 0x40, 0x80}) {
        expect_plain_loads_of([&](std::string seed, size_t place) {
            seed[place] = static_cast<char>(seed[place] ^ mask);
            return seed;
        });
    }
}

TEST_P(HostileFiles, AbsurdNumbers) { expect_plain_loads(kind().absurd); }

TEST_P(HostileFiles, LongLines) {
    for (const size_t length : {size_t{998}, size_t{999}, size_t{1000}, size_t{5000}}) {
        for (const char filler : {' ', 'x', '7', '0', '\0', '\r'}) {
            const std::string line(length, filler);
            expect_plain_loads({line, line + "\n", line + "\n" + kind().seeds.front(), kind().seeds.front() + line + "\n"});
            expect_plain_loads_of([&](const std::string &seed, size_t place) {
                return seed[place] == '\n' ? seed.substr(0, place) + line + seed.substr(place) : seed;
            });
        }
    }
}

TEST_P(HostileFiles, NulBytes) {
    const std::string nul(1, '\0');
    expect_plain_loads({nul, std::string(5000, '\0')});
    expect_plain_loads_of(
        [&](const std::string &seed, size_t place) { return seed.substr(0, place) + nul + seed.substr(place); });
    expect_plain_loads_of(
        [&](const std::string &seed, size_t place) { return seed.substr(0, place) + nul + seed.substr(place + 1); });
}

TEST_P(HostileFiles, OtherLineEnds) {
    for (const std::string end : {"\r\n", "\r", "\n\r", "\n\n", ""}) {
        for (const std::string &seed : kind().seeds) {
            std::string text;
            for (const char c : seed) {
                text += c == '\n' ? end : std::string(1, c);
            }
            expect_plain_load(text);
        }
        expect_plain_loads_of([&](const std::string &seed, size_t place) {
            return seed[place] == '\n' ? seed.substr(0, place) + end + seed.substr(place + 1) : seed;
        });
    }
}

template <class Condition> std::vector<Kind> kinds_where(Condition condition) {
    std::vector<Kind> chosen = kinds();
    std::erase_if(chosen, [=](const Kind &kind) { return !condition(kind); });
    return chosen;
}

std::string name_of(const testing::TestParamInfo<Kind> &kind) { return kind.param.name; }

TEST_P(HostileFiles, NoBytes) { expect_plain_load(""); }

// Those that the loader opens itself.
using HostilePaths = HostileFiles;

TEST_P(HostilePaths, NoFile) {
    std::filesystem::remove(file());
    expect_plain_load();
}

TEST_P(HostileFiles, AFolder) {
    std::filesystem::create_directory(file());
    std::FILE *stream = std::fopen(file().c_str(), "r");
    if (stream != nullptr) {
        std::fclose(stream);
    } else if (kind().by_stream) {
        return; // this system gives no stream of a folder, so there is nothing to read from
    }
    expect_plain_load();
}

// ---- time and memory ----

class HostileGrid : public LibraryTest {};

// Rows without strips, and strips without rows, are no work.
TEST_F(HostileGrid, FourBillionRowsOfNoStripsLoadAtOnce) {
    for (const std::string word : {"GrayLinear", "GrayLinearBinary", "GrayLinearEncoded"}) {
        for (const std::string strips : {" 0 4294967295", " 4294967295 0"}) {
            const TemporaryFile file("grid.txt", word + "\nbits 8" + strips + "\n");
            const TileTRCPtr grid(KoTileTRCNew(4, 1, 1));
            const std::clock_t begin = std::clock();
            expect_success([&] { return KoTileTRCLoad(grid.get(), file.c_str()); });
            EXPECT_LT(std::clock() - begin, CLOCKS_PER_SEC) << word << strips; // counting to four billion takes longer
            EXPECT_EQ(grid->array, nullptr);
            EXPECT_EQ(KoTileTRCGetNumStripsX(grid.get()) + KoTileTRCGetNumStripsY(grid.get()), 4294967295u);
        }
    }
}

TEST_F(HostileGrid, FourBillionRowsOfNoStripsLoadAtOnceInColor) {
    for (const std::string strips : {" 0 4294967295", " 4294967295 0"}) {
        const TemporaryFile file("grid.txt", "RGBLinear\nbits 8" + strips + "\n");
        const TileColorTRCPtr grid(KoTileColorTRCNew(4, 1, 1));
        const std::clock_t begin = std::clock();
        expect_success([&] { return KoTileColorTRCLoad(grid.get(), file.c_str()); });
        EXPECT_LT(std::clock() - begin, CLOCKS_PER_SEC) << strips; // counting to four billion takes longer
        EXPECT_EQ(grid->redArray, nullptr);
        EXPECT_EQ(KoTileColorTRCGetNumStripsX(grid.get()) + KoTileColorTRCGetNumStripsY(grid.get()), 4294967295u);
    }
}

#if defined(__linux__) && !defined(__SANITIZE_ADDRESS__)
uint64_t kilobytes_of(const std::string &name) {
    const std::string text = read_text("/proc/self/status");
    return std::stoull(text.substr(text.find(name) + name.size()));
}

using HostileHeaders = HostileFiles;

// A short file may ask for a gigabyte, which the system gives as promises: none of them is called in.
TEST_P(HostileHeaders, AnEnormousHeaderTouchesNoMemory) {
    for (const std::string &bytes : kind().enormous) {
        SCOPED_TRACE(testing::PrintToString(bytes));
        write_bytes(file(), bytes);
        const std::unique_ptr<Subject> subject = kind().make();
        write_bytes("/proc/self/clear_refs", "5\n"); // the peak begins anew
        const uint64_t before = kilobytes_of("VmHWM:");
        StderrCapture swallowed;
        const int32_t status = subject->load(path_.c_str());
        const std::string printed = swallowed.stop();
        EXPECT_LT(kilobytes_of("VmHWM:"), before + 16 * 1024);
        EXPECT_NE(status, KO_ERR_ALLOC) << printed;
    }
}

INSTANTIATE_TEST_SUITE_P(Kinds, HostileHeaders,
                         testing::ValuesIn(kinds_where([](const Kind &kind) { return !kind.enormous.empty(); })), name_of);
#endif

INSTANTIATE_TEST_SUITE_P(Kinds, HostileFiles, testing::ValuesIn(kinds()), name_of);
INSTANTIATE_TEST_SUITE_P(Kinds, HostilePaths, testing::ValuesIn(kinds_where([](const Kind &kind) { return !kind.by_stream; })),
                         name_of);

} // namespace
