// The text files of curves and histograms: lines read one by one with their number, and the words in which a bad line is told.
#ifndef KO_SRC_TEXTFILE_H
#define KO_SRC_TEXTFILE_H

#include <cstdint>
#include <cstdio>

#include "alloc.h"

namespace ko {

void close_file(FILE *file);
using File = Owned<FILE, close_file>;

// How a reader tells of a bad line on the standard error stream: with the line's text, or by its number alone.
enum class BadLine { quoted, numbered };

// Reads a file line by line into a buffer of 1000 characters; a longer line arrives in pieces. There are no comments and no
// blank lines: every line counts, from 1.
class TextReader {
  public:
    explicit TextReader(const char *path, BadLine bad_line = BadLine::quoted) : path_(path), bad_line_(bad_line) {}

    // Gives KO_OK, or reports KO_ERR_OPEN_READ.
    [[nodiscard]] int32_t open(const char *mode);

    // The file, for what follows the lines of a header.
    FILE *stream() const { return file_.get(); }

    // Reads the next line. Gives KO_OK; a line that is not there is told and reported as KO_ERR_READ_LINE.
    [[nodiscard]] int32_t next();

    // True if the line begins with word.
    bool begins_with(const char *word) const;

    // Scans the line by a format of count "%llu", whatever follows on it. A number is cut to 32 bits, a negative one wraps.
    bool scan(const char *format, int count, uint32_t *numbers) const;

    // Tells on the standard error stream what is wrong with the line, and reports KO_ERR_READ_LINE.
    int32_t reject(const char *why) const;

  private:
    void tell(const char *why) const;
    int32_t report() const;

    const char *path_;
    BadLine bad_line_;
    File file_;
    int line_number_ = 0;
    char line_[1000];
};

// The size that a header's bits stand for: a 32-bit shift, its count taken modulo 32.
constexpr uint64_t size_of_bits(uint32_t bits) { return uint64_t{1} << (bits % 32); }

// Reads a line that begins with word. Gives KO_OK, or the status of a failure; why_not_word tells what a bad one should be.
[[nodiscard]] int32_t read_word(TextReader *reader, const char *word, const char *why_not_word);

// Reads the line "bits" with a number. Gives KO_OK with the size that the bits stand for, or the status of a failure.
[[nodiscard]] int32_t read_bits(TextReader *reader, uint64_t *size);

// Reads count lines of one number each; why_not_number tells what a bad one should have been. Gives KO_OK, or the status of the
// line that failed; numbers read so far stay.
[[nodiscard]] int32_t read_numbers(TextReader *reader, const char *why_not_number, uint32_t *numbers, uint64_t count);

// Reads the two header lines of a file of curves of one size: a line that begins with word, and "bits" with a number. Gives
// KO_OK with the size that the bits stand for, or the status of the line that failed.
[[nodiscard]] int32_t read_curve_header(TextReader *reader, const char *word, const char *why_not_word, uint64_t *size);

// The files of three channels begin with this word.
constexpr char three_channel_word[] = "RGBLinear";
constexpr char not_three_channels[] = "Invalid value, must be RGBLinear";

// Reads count lines of three numbers each into three arrays. Gives KO_OK, or the status of the line that failed; numbers read
// so far stay.
[[nodiscard]] int32_t read_triples(TextReader *reader, uint32_t *red, uint32_t *green, uint32_t *blue, uint64_t count);

// Opens a file for writing. Gives KO_OK, or reports KO_ERR_FILE_EXISTS (overwrite is 0 and the path exists) or
// KO_ERR_OPEN_WRITE.
[[nodiscard]] int32_t open_for_writing(const char *path, const char *mode, int32_t overwrite, File *file);

// Writes count lines of one number each, as signed 32-bit numbers.
void write_numbers(FILE *stream, const uint32_t *numbers, uint64_t count);

// The base-2 logarithm by way of natural ones in double precision, truncated; 0 for 0.
uint32_t truncated_log2(uint64_t size);

} // namespace ko

#endif
