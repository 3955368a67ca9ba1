// The text files of curves: a plain reader to compare the loaders with, and texts that are broken in every way.
#ifndef KO_TESTS_CURVE_TEXTS_H
#define KO_TESTS_CURVE_TEXTS_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "capture.h"
#include "files.h"
#include "ko/error.h"
#include "ko/trc.h"
#include "library_test.h"
#include "pictures.h"

namespace ko_test {

inline TRCPtr make_trc(const std::vector<uint32_t> &entries) {
    TRCPtr trc(KoTRCNew(entries.size()));
    KoTRCSetArray(trc.get(), entries.data(), entries.size());
    return trc;
}

inline std::vector<uint32_t> entries_of(const TRC *trc) { return {trc->array, trc->array + trc->size}; }

// count entries below limit
inline std::vector<uint32_t> noise_entries(uint64_t count, uint32_t limit, uint32_t seed) {
    Noise noise(seed);
    std::vector<uint32_t> entries(count);
    std::generate(entries.begin(), entries.end(), [&] { return noise.next() % limit; });
    return entries;
}

// What stands in the files of one kind of curve.
struct CurveForm {
    std::string word;
    std::string bad_entry;
    size_t columns;
};

inline const CurveForm gray_form{"GrayLinear", "Invalid value, <GRAY>", 1};
inline const CurveForm color_form{"RGBLinear", "Invalid value, <RED> <GREEN> <BLUE>", 3};

// The lines of 2 to the power bits entries; entry i of column c is 10 * i + c.
inline std::string entry_lines(const CurveForm &form, uint32_t bits) {
    std::string text;
    for (size_t i = 0; i < size_t{1} << bits; ++i) {
        for (size_t c = 0; c < form.columns; ++c) {
            text += std::to_string(10 * i + c) + (c + 1 < form.columns ? " " : "\n");
        }
    }
    return text;
}

inline std::string curve_text(const CurveForm &form, uint32_t bits) {
    return form.word + "\nbits " + std::to_string(bits) + "\n" + entry_lines(form, bits);
}

namespace curve_texts {

inline void add_truncated(std::vector<std::string> &texts, const std::string &good) {
    for (size_t length = 0; length < good.size(); ++length) {
        texts.push_back(good.substr(0, length));
    }
}

inline void add_flipped(std::vector<std::string> &texts, const std::string &good) {
    for (size_t place = 0; place < good.size(); ++place) {
        for (const int mask : {0x01, 0x02, 0x04, 0x08, 0x10, 0x20, 0x40, 0x80, 0xFF}) {
            texts.push_back(good);
            texts.back()[place] = static_cast<char>(texts.back()[place] ^ mask);
        }
    }
}

// A byte put before, and in the place of, every byte.
inline void add_intruders(std::vector<std::string> &texts, const std::string &good) {
    for (size_t place = 0; place < good.size(); ++place) {
        for (const char byte : {'\0', '\n', '\r', '\t', '1'}) {
            texts.push_back(good.substr(0, place) + byte + good.substr(place + 1));
            texts.push_back(good.substr(0, place) + byte + good.substr(place));
        }
    }
}

inline std::string with_carriage_returns(const std::string &text) {
    std::string result;
    for (const char c : text) {
        result += c == '\n' ? std::string("\r\n") : std::string(1, c);
    }
    return result;
}

inline void add_long_lines(std::vector<std::string> &texts, const CurveForm &form) {
    const std::string lines = entry_lines(form, 2);
    const std::string row = lines.substr(0, lines.find('\n'));
    for (const size_t length : {size_t{998}, size_t{999}, size_t{1000}, size_t{5000}}) {
        for (const char filler : {' ', 'x', '7'}) {
            const auto filled = [&](const std::string &start) {
                return start + std::string(length - start.size(), filler) + "\n";
            };
            texts.push_back(filled(form.word) + "bits 2\n" + lines);
            if (filler != '7') { // a number that no machine word holds is no matter of this list
                texts.push_back(form.word + "\n" + filled("bits 2") + lines);
                texts.push_back(form.word + "\nbits 2\n" + filled(row) + lines);
            }
        }
    }
    texts.push_back(std::string(5000, 'x'));
    texts.push_back(form.word + "\n" + std::string(5000, ' ') + "bits 2\n" + lines);
}

inline void add_headers(std::vector<std::string> &texts, const CurveForm &form) {
    const std::string lines = entry_lines(form, 2);
    for (const char *word : {"Binary", "Encoded", " 7", "GrayLinear"}) {
        texts.push_back(form.word + word + "\nbits 2\n" + lines);
    }
    for (const char *word : {" ", "\n", "gray", "\xEF\xBB\xBF"}) {
        texts.push_back(word + form.word + "\nbits 2\n" + lines);
    }
    for (const char *bits : {"bits2",   "bits\t2", "bits 2 3 4", "bits +2", "bits 2.9",  "bits 2x", "bits 34",
                             "bits 66", "bits 32", "bits 0",     "bits 1",  "bits 3",    "bits 10", "Bits 2",
                             " bits 2", "bits",    "bits x",     "bit 2",   "bits2bits", "",        "2"}) {
        texts.push_back(form.word + "\n" + bits + "\n" + lines);
    }
}

inline void add_entries(std::vector<std::string> &texts, const CurveForm &form) {
    const std::string start = form.word + "\nbits 1\n";
    for (const char *row : {"\n", " \n", "x\n", "1,2,3\n", "1 2\n", "1 2 3\n", "1 2 x\n", "1 2 3 4\n", "  1\t2   3\n", "-\n",
                            "-1 -2 -3\n", "+1 +2 +3\n", "1.5 2.5 3.5\n", "0x10 0x20 0x30\n", "007 008 009\n", "1e3 1e3 1e3\n",
                            "4294967295 2147483648 2147483647\n", "1 2 3 trailing words\n"}) {
        texts.push_back(start + row + row);
        texts.push_back(start + "5 6 7\n" + row);
        texts.push_back(start + "5 6 7\n" + row + "8 9 10\n");
    }
}

} // namespace curve_texts

// Broken, odd and absurd variants of a text of four entries.
inline std::vector<std::string> broken_curve_texts(const CurveForm &form) {
    const std::string good = curve_text(form, 2);
    std::vector<std::string> texts{good, good + "what follows is not read", curve_texts::with_carriage_returns(good)};
    curve_texts::add_truncated(texts, good);
    curve_texts::add_flipped(texts, good);
    curve_texts::add_intruders(texts, good);
    curve_texts::add_long_lines(texts, form);
    curve_texts::add_headers(texts, form);
    curve_texts::add_entries(texts, form);
    return texts;
}

// Texts whose header asks for more entries than can be had.
inline std::vector<std::string> greedy_curve_texts(const CurveForm &form) {
    std::vector<std::string> texts;
    for (const char *bits : {"29", "30", "31", "61", "4294967295", "-1", "-2"}) {
        texts.push_back(form.word + "\nbits " + bits + "\n" + entry_lines(form, 2));
    }
    return texts;
}

// What a plain reading of a file gives.
struct PlainReading {
    int32_t status = KO_OK;
    std::string chain;
    std::string printed;
    bool sized = false; // the header was good and its entries can be had
    uint64_t size = 0;
    std::vector<std::vector<uint32_t>> rows; // those that were read
};

// Reads a file line by line, as the form says.
class PlainReader {
  public:
    PlainReader(const CurveForm &form, const std::string &path) : form_(form), path_(path) {}

    PlainReading read() {
        file_ = std::fopen(path_.c_str(), "r");
        if (file_ == nullptr) {
            reading_.status = KO_ERR_OPEN_READ;
            reading_.chain = "[ERROR] Cannot open file \"" + path_ + "\" for reading";
            return reading_;
        }
        if (read_word() && read_bits()) {
            read_rows();
        }
        std::fclose(file_);
        return reading_;
    }

  private:
    bool next_line() {
        ++line_;
        if (std::fgets(buffer_, sizeof buffer_, file_) == nullptr) {
            return fail("can't read file");
        }
        return true;
    }

    bool fail(const std::string &words) {
        const std::string place = "\"" + path_ + "\", line " + std::to_string(line_);
        reading_.status = KO_ERR_READ_LINE;
        reading_.chain = "[ERROR] Read error in file " + place;
        reading_.printed = "[ERROR] " + place + ": " + words + "\n";
        return false;
    }

    // The line is shown as it was read, with its line end.
    bool fail_with_line(const std::string &words) {
        return fail(std::string("\"").append(buffer_).append("\": ").append(words));
    }

    bool read_word() {
        if (!next_line()) {
            return false;
        }
        if (std::string(buffer_).rfind(form_.word, 0) != 0) {
            return fail_with_line("Invalid value, must be " + form_.word);
        }
        return true;
    }

    bool read_bits() {
        unsigned long bits = 0;
        if (!next_line()) {
            return false;
        }
        if (std::sscanf(buffer_, "bits %lu", &bits) != 1) {
            return fail_with_line("Invalid value, must be bits <bit per pixel>");
        }
        reading_.size = uint64_t{1} << (bits % 32);
        const uint64_t bytes = reading_.size * sizeof(uint32_t);
        if (bytes > 0x7FFFFFFF) {
            const std::string shown = std::to_string(static_cast<int32_t>(static_cast<uint32_t>(bytes)));
            reading_.status = KO_ERR_ALLOC;
            reading_.chain = "Cannot allocate " + shown + " bytes";
            reading_.printed = "[ERROR] Memory allocation failed: can't allocated " + shown + " bytes of memory\n";
            return false;
        }
        reading_.sized = true;
        return true;
    }

    void read_rows() {
        while (reading_.rows.size() < reading_.size) {
            unsigned long v[3] = {0, 0, 0};
            if (!next_line()) {
                return;
            }
            const int found = form_.columns == 1 ? std::sscanf(buffer_, "%lu\n", &v[0])
                                                 : std::sscanf(buffer_, "%lu %lu %lu\n", &v[0], &v[1], &v[2]);
            if (found != static_cast<int>(form_.columns)) {
                fail_with_line(form_.bad_entry);
                return;
            }
            const std::vector<uint32_t> row{static_cast<uint32_t>(v[0]), static_cast<uint32_t>(v[1]),
                                            static_cast<uint32_t>(v[2])};
            reading_.rows.emplace_back(row.begin(), row.begin() + static_cast<std::ptrdiff_t>(form_.columns));
        }
    }

    const CurveForm &form_;
    const std::string path_;
    std::FILE *file_ = nullptr;
    char buffer_[1000] = {};
    int line_ = 0;
    PlainReading reading_;
};

// The curves that a loader works on, as they are at the moment.
struct CurveView {
    uint64_t size;
    std::vector<uint32_t *> columns;
};

// Captured text comes without them.
inline std::string without_carriage_returns(std::string text) {
    std::erase(text, '\r');
    return text;
}

inline void expect_rows(const PlainReading &expected, const CurveView &curves) {
    for (size_t i = 0; i < expected.rows.size(); ++i) {
        for (size_t c = 0; c < curves.columns.size(); ++c) {
            ASSERT_EQ(curves.columns[c][i], expected.rows[i][c]) << "entry " << i << " of column " << c;
        }
    }
}

// Entries behind the last row read stay; of a row of several that failed, a part may have been scanned.
inline void expect_kept(const PlainReading &expected, const CurveView &curves, uint32_t sentinel) {
    const size_t untouched = expected.rows.size() + (expected.sized && curves.columns.size() > 1 ? 1 : 0);
    for (size_t i = untouched; i < curves.size; ++i) {
        for (const uint32_t *column : curves.columns) {
            ASSERT_EQ(column[i], sentinel) << "entry " << i;
        }
    }
}

// Loads the path and compares status, chain, the standard error stream and all entries with a plain reading of the same file.
// The curves are filled beforehand: what the reading does not reach must stay as it was.
inline void expect_plain_load(const CurveForm &form, const std::string &path, const std::function<CurveView()> &view,
                              const std::function<int32_t(const char *path)> &load) {
    constexpr uint32_t sentinel = 777777;
    const CurveView before = view();
    for (uint32_t *column : before.columns) {
        std::fill_n(column, before.size, sentinel);
    }
    const PlainReading expected = PlainReader(form, path).read();
    KoStatusClear();
    StderrCapture captured;
    EXPECT_EQ(load(path.c_str()), expected.status);
    EXPECT_EQ(captured.stop(), without_carriage_returns(expected.printed));
    expect_status(expected.status, expected.chain);
    const CurveView after = view();
    ASSERT_EQ(after.size, expected.sized ? expected.size : before.size);
    if (after.size == before.size) {
        EXPECT_EQ(after.columns, before.columns) << "the arrays were replaced";
        expect_kept(expected, after, sentinel);
    }
    expect_rows(expected, after);
}

} // namespace ko_test

#endif
