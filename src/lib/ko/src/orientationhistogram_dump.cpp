// The dump of patches: their features as text, a file a channel, and as one binary file for study. It reports on the standard
// error stream alone.
#include <algorithm>
#include <cstdio>

#include "alloc.h"
#include "bits.h"
#include "ko/orientationhistogram.h"
#include "textfile.h"

namespace {

using namespace ko;

// The files, in the order in which they are opened, written and closed.
enum { red_file, green_file, blue_file, projected_file, coordinate_file, binary_file, file_count };

struct DumpFile {
    const char *format; // of directory, name and suffix
    const char *mode;
};
constexpr DumpFile dump_files[file_count] = {{"%s%s_%s_feats_R.txt", "w"}, {"%s%s_%s_feats_G.txt", "w"},
                                             {"%s%s_%s_feats_B.txt", "w"}, {"%s%s_%s_prjFeats.txt", "w"},
                                             {"%s%s_%s_coord.txt", "w"},   {"%s%s_%s_feats.par", "wb"}};

constexpr uint64_t channels = 3;

// A path that is too long for its buffer cannot be opened.
FILE *open_file(const DumpFile &file, const char *directory, const char *name, const char *suffix) {
    char path[272];
    const int length = std::snprintf(path, sizeof(path), file.format, directory, name, suffix);
    FILE *stream = length >= 0 && static_cast<size_t>(length) < sizeof(path) ? std::fopen(path, file.mode) : nullptr;
    if (stream == nullptr) {
        std::fprintf(stderr, "error in xfopen\ncould not open file %s\n", path);
    }
    return stream;
}

void shut_file(FILE *stream) {
    const int status = std::fclose(stream);
    if (status != 0) {
        std::fprintf(stderr, "error in xfclose\nstatus = %d\n", status);
    }
}

// Value i of the values of a patch; what lies past its own counts as 0.
float value_at(const float *values, uint64_t own, uint64_t i) { return values != nullptr && i < own ? values[i] : 0.0f; }

void write_line(FILE *stream, const float *values, uint64_t own, uint64_t count) {
    for (uint64_t i = 0; i < count; ++i) {
        std::fprintf(stream, "%f\t", static_cast<double>(value_at(values, own, i)));
    }
    std::fputs(" \n", stream);
}

void write_word(FILE *stream, uint32_t word) {
    const uint8_t bytes[] = {static_cast<uint8_t>(word), static_cast<uint8_t>(word >> 8), static_cast<uint8_t>(word >> 16),
                             static_cast<uint8_t>(word >> 24)};
    std::fwrite(bytes, 1, sizeof(bytes), stream);
}

void write_float(FILE *stream, float value) { write_word(stream, bit_cast<uint32_t>(value)); }

void write_binary(FILE *stream, const OrientationHistogram *oh, const RedEyePatch *patches, uint32_t count) {
    const auto length = static_cast<uint64_t>(std::max(oh->layout->feature_length, 0));
    write_word(stream, 1);
    write_word(stream, static_cast<uint32_t>(channels * length));
    write_word(stream, static_cast<uint32_t>(oh->patch_count));
    for (uint32_t p = 0; p < count; ++p) {
        for (uint64_t c = 0; c < channels; ++c) {
            for (uint64_t i = 0; i < length; ++i) {
                write_float(stream, value_at(patches[p].feature_rows[c], length, i));
            }
        }
    }
    for (uint32_t p = 0; p < count; ++p) {
        write_word(stream, patches[p].center_x);
    }
    for (uint32_t p = 0; p < count; ++p) {
        write_word(stream, patches[p].center_y);
    }
    for (uint32_t p = 0; p < count; ++p) {
        write_float(stream, static_cast<float>(patches[p].size));
    }
}

// Channels that a patch has features of, from the first on.
uint64_t enabled_channels(const RedEyePatch &patch) {
    uint64_t count = 0;
    while (count < channels && patch.feature_rows[count] != nullptr) {
        ++count;
    }
    return count;
}

// The count of values a line is taken from the step of positions, not from the features: the two agree on a grid of 4 by 4, and
// otherwise a line ends early or goes on into the next channel.
void write_patch(FILE *const *streams, const OrientationHistogram *oh, const RedEyePatch &patch) {
    const auto length = static_cast<uint64_t>(std::max(oh->layout->feature_length, 0));
    const auto values =
        static_cast<uint64_t>(std::max(int64_t{oh->geometry->position_step} * oh->layout->bin_count, int64_t{0}));
    const uint64_t enabled = enabled_channels(patch);
    for (uint64_t c = 0; c < channels; ++c) {
        write_line(streams[red_file + c], patch.feature_rows[c], c < enabled ? (enabled - c) * length : 0, values);
    }
    write_line(streams[projected_file], patch.projected, enabled * length, values);
    std::fprintf(streams[coordinate_file], "%d\t%d\t%d\t%d\n", static_cast<int>(patch.x0), static_cast<int>(patch.x1),
                 static_cast<int>(patch.y0), static_cast<int>(patch.y1));
}

} // namespace

int32_t KoOrientationHistogramDumpPatches(const OrientationHistogram *oh, const RedEyePatch *patches, uint32_t count,
                                          const char *directory, const char *name, const char *suffix) {
    FILE *streams[file_count];
    int32_t missing = 0;
    for (int i = 0; i < file_count; ++i) {
        streams[i] = open_file(dump_files[i], directory, name, suffix);
        missing += streams[i] == nullptr;
    }
    if (missing == 0) {
        for (uint32_t p = 0; p < count; ++p) {
            write_patch(streams, oh, patches[p]);
        }
        write_binary(streams[binary_file], oh, patches, count);
    }
    for (FILE *stream : streams) {
        if (stream != nullptr) {
            shut_file(stream);
        }
    }
    return missing;
}
