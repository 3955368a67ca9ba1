// The text files of curves and histograms.
#include "textfile.h"

#include <cmath>
#include <cstring>

#include "platform.h"
#include "report.h"

namespace ko {

void close_file(FILE *file) { std::fclose(file); }

int32_t TextReader::open(const char *mode) {
    file_.reset(std::fopen(path_, mode));
    return file_ ? static_cast<int32_t>(KO_OK) : KO_REPORT(KO_LEVEL_ERROR, KO_ERR_OPEN_READ, path_);
}

int32_t TextReader::next() {
    ++line_number_;
    if (std::fgets(line_, sizeof(line_), file_.get()) != nullptr) {
        return KO_OK;
    }
    tell("can't read file");
    return report();
}

bool TextReader::begins_with(const char *word) const { return std::strncmp(line_, word, std::strlen(word)) == 0; }

bool TextReader::scan(const char *format, int count, uint32_t *numbers) const {
    unsigned long long scanned[3] = {};
    if (std::sscanf(line_, format, &scanned[0], &scanned[1], &scanned[2]) < count) {
        return false;
    }
    for (int i = 0; i < count; ++i) {
        numbers[i] = static_cast<uint32_t>(scanned[i]);
    }
    return true;
}

int32_t TextReader::reject(const char *why) const {
    if (bad_line_ == BadLine::numbered) {
        tell(why);
    } else {
        std::fprintf(stderr, "[ERROR] \"%s\", line %d: \"%s\": %s\n", path_, line_number_, line_, why);
    }
    return report();
}

void TextReader::tell(const char *why) const {
    std::fprintf(stderr, "[ERROR] \"%s\", line %d: %s\n", path_, line_number_, why);
}

int32_t TextReader::report() const { return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_READ_LINE, path_, line_number_); }

int32_t read_word(TextReader *reader, const char *word, const char *why_not_word) {
    const int32_t status = reader->next();
    return status != KO_OK || reader->begins_with(word) ? status : reader->reject(why_not_word);
}

int32_t read_bits(TextReader *reader, uint64_t *size) {
    const int32_t status = reader->next();
    if (status != KO_OK) {
        return status;
    }
    uint32_t bits = 0;
    if (!reader->scan("bits %llu", 1, &bits)) {
        return reader->reject("Invalid value, must be bits <bit per pixel>");
    }
    *size = size_of_bits(bits);
    return KO_OK;
}

int32_t read_numbers(TextReader *reader, const char *why_not_number, uint32_t *numbers, uint64_t count) {
    for (uint64_t i = 0; i < count; ++i) {
        const int32_t status = reader->next();
        if (status != KO_OK) {
            return status;
        }
        if (!reader->scan("%llu", 1, &numbers[i])) {
            return reader->reject(why_not_number);
        }
    }
    return KO_OK;
}

int32_t read_triples(TextReader *reader, uint32_t *red, uint32_t *green, uint32_t *blue, uint64_t count) {
    for (uint64_t i = 0; i < count; ++i) {
        const int32_t status = reader->next();
        if (status != KO_OK) {
            return status;
        }
        uint32_t numbers[3];
        if (!reader->scan("%llu %llu %llu", 3, numbers)) {
            return reader->reject("Invalid value, <RED> <GREEN> <BLUE>");
        }
        red[i] = numbers[0];
        green[i] = numbers[1];
        blue[i] = numbers[2];
    }
    return KO_OK;
}

int32_t read_curve_header(TextReader *reader, const char *word, const char *why_not_word, uint64_t *size) {
    const int32_t status = read_word(reader, word, why_not_word);
    return status == KO_OK ? read_bits(reader, size) : status;
}

int32_t open_for_writing(const char *path, const char *mode, int32_t overwrite, File *file) {
    if (overwrite == 0 && file_exists(path)) {
        return KO_REPORT(KO_LEVEL_ERROR, KO_ERR_FILE_EXISTS, path);
    }
    file->reset(std::fopen(path, mode));
    return *file ? static_cast<int32_t>(KO_OK) : KO_REPORT(KO_LEVEL_ERROR, KO_ERR_OPEN_WRITE, path);
}

void write_numbers(FILE *stream, const uint32_t *numbers, uint64_t count) {
    for (uint64_t i = 0; i < count; ++i) {
        std::fprintf(stream, "%d\n", static_cast<int32_t>(numbers[i]));
    }
}

uint32_t truncated_log2(uint64_t size) {
    return size == 0 ? 0 : static_cast<uint32_t>(std::log(static_cast<double>(size)) / std::log(2.0));
}

} // namespace ko
