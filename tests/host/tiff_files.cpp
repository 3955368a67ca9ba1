#include "tiff_files.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <stdexcept>

#include <tiffio.h>

namespace ko_test {

namespace {

struct Memory {
    std::string bytes;
    size_t position = 0;
};

Memory &memory_of(thandle_t data) { return *static_cast<Memory *>(data); }

tmsize_t read_memory(thandle_t data, void *room, tmsize_t size) {
    Memory &memory = memory_of(data);
    const size_t rest = memory.bytes.size() - std::min(memory.position, memory.bytes.size());
    const size_t count = std::min(static_cast<size_t>(size), rest);
    std::memcpy(room, memory.bytes.data() + memory.position, count);
    memory.position += count;
    return static_cast<tmsize_t>(count);
}

tmsize_t write_memory(thandle_t data, void *bytes, tmsize_t size) {
    Memory &memory = memory_of(data);
    memory.bytes.resize(std::max(memory.bytes.size(), memory.position + static_cast<size_t>(size)));
    std::memcpy(memory.bytes.data() + memory.position, bytes, static_cast<size_t>(size));
    memory.position += static_cast<size_t>(size);
    return size;
}

toff_t seek_memory(thandle_t data, toff_t offset, int whence) {
    Memory &memory = memory_of(data);
    memory.position = offset + (whence == SEEK_CUR ? memory.position : whence == SEEK_END ? memory.bytes.size() : 0);
    return memory.position;
}

using TiffPtr = std::unique_ptr<TIFF, decltype([](TIFF *tiff) { TIFFClose(tiff); })>;

using OptionsPtr = std::unique_ptr<TIFFOpenOptions, decltype([](TIFFOpenOptions *options) { TIFFOpenOptionsFree(options); })>;

// Fields that libtiff does not know are no reason to write to the standard error stream.
TiffPtr open_memory(Memory &memory, const char *mode) {
    const OptionsPtr options(TIFFOpenOptionsAlloc());
    TIFFOpenOptionsSetWarningHandlerExtR(
        options.get(), [](TIFF *, void *, const char *, const char *, va_list) { return 1; }, nullptr);
    TiffPtr tiff(TIFFClientOpenExt(
        "memory", mode, &memory, read_memory, write_memory, seek_memory, [](thandle_t) { return 0; },
        [](thandle_t data) -> toff_t { return memory_of(data).bytes.size(); }, nullptr, nullptr, options.get()));
    if (!tiff) {
        throw std::runtime_error("no TIFF file");
    }
    return tiff;
}

TiffPtr open_first(Memory &memory) { return open_memory(memory, "r"); }

void set_layout(TIFF *tiff, const TiffRecipe &recipe) {
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, recipe.width);
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, recipe.height);
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, recipe.bits);
    TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, recipe.channels);
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, recipe.kind);
    TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, recipe.apart ? PLANARCONFIG_SEPARATE : PLANARCONFIG_CONTIG);
    TIFFSetField(tiff, TIFFTAG_COMPRESSION, recipe.compression);
    if (recipe.compression == COMPRESSION_JPEG && recipe.kind == PHOTOMETRIC_YCBCR) {
        TIFFSetField(tiff, TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB);
    } else if (recipe.kind == PHOTOMETRIC_YCBCR) {
        TIFFSetField(tiff, TIFFTAG_YCBCRSUBSAMPLING, 1, 1);
    }
    if (!recipe.extra.empty()) {
        TIFFSetField(tiff, TIFFTAG_EXTRASAMPLES, static_cast<int>(recipe.extra.size()), recipe.extra.data());
    }
    if (recipe.predictor != 0) {
        TIFFSetField(tiff, TIFFTAG_PREDICTOR, recipe.predictor);
    }
    if (recipe.tile != 0) {
        TIFFSetField(tiff, TIFFTAG_TILEWIDTH, recipe.tile);
        TIFFSetField(tiff, TIFFTAG_TILELENGTH, recipe.tile);
    } else {
        TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, recipe.strip);
    }
}

void set_colours(TIFF *tiff, const TiffRecipe &recipe) {
    std::vector<uint16_t> levels[3];
    for (size_t i = 0; i < size_t{1} << recipe.bits; ++i) {
        for (size_t c = 0; c < 3; ++c) {
            levels[c].push_back(3 * i + c < recipe.colours.size() ? recipe.colours[3 * i + c] : uint16_t{0});
        }
    }
    TIFFSetField(tiff, TIFFTAG_COLORMAP, levels[0].data(), levels[1].data(), levels[2].data());
}

void set_the_rest(TIFF *tiff, const TiffRecipe &recipe) {
    const auto set_if = [tiff](uint32_t tag, int value) {
        if (value != 0) {
            TIFFSetField(tiff, tag, value);
        }
    };
    set_if(TIFFTAG_ORIENTATION, recipe.orientation);
    set_if(TIFFTAG_SAMPLEFORMAT, recipe.sample_form);
    set_if(TIFFTAG_SUBFILETYPE, recipe.subfile);
    set_if(TIFFTAG_RESOLUTIONUNIT, recipe.density_unit);
    if (recipe.density_unit != 0) {
        TIFFSetField(tiff, TIFFTAG_XRESOLUTION, recipe.density_x);
        TIFFSetField(tiff, TIFFTAG_YRESOLUTION, recipe.density_y);
    }
    if (!recipe.profile.empty()) {
        TIFFSetField(tiff, TIFFTAG_ICCPROFILE, static_cast<uint32_t>(recipe.profile.size()), recipe.profile.data());
    }
    if (recipe.dng_version != nullptr) {
        TIFFSetField(tiff, TIFFTAG_DNGVERSION, recipe.dng_version);
    }
    if (!recipe.colours.empty()) {
        set_colours(tiff, recipe);
    }
}

// Packs a sample after others of a row.
void pack(std::vector<uint8_t> &row, size_t number, size_t bits, uint32_t value) {
    const size_t place = number * bits;
    if (bits == 16 || bits == 32) {
        std::memcpy(row.data() + place / 8, &value, bits / 8);
        return;
    }
    for (size_t bit = 0; bit < bits; ++bit) {
        const bool is_set = (value >> (bits - 1 - bit) & 1) != 0;
        const size_t where = place + bit;
        row[where / 8] = static_cast<uint8_t>(row[where / 8] | (is_set ? 0x80 >> where % 8 : 0));
    }
}

struct Part {
    uint32_t x, y, width, height; // as they are stored
    uint32_t first, count;        // channels
};

std::vector<uint8_t> packed(const TiffRecipe &recipe, const Part &part, const Sample &sample) {
    const auto bits = static_cast<size_t>(recipe.bits);
    std::vector<uint8_t> bytes;
    for (uint32_t y = part.y; y < part.y + part.height; ++y) {
        std::vector<uint8_t> row((size_t{part.width} * part.count * bits + 7) / 8);
        for (uint32_t x = 0; x < part.width; ++x) {
            for (uint32_t c = 0; c < part.count; ++c) {
                const bool inside = part.x + x < recipe.width && y < recipe.height;
                pack(row, size_t{x} * part.count + c, bits, inside ? sample(part.x + x, y, part.first + c) : 0);
            }
        }
        bytes.insert(bytes.end(), row.begin(), row.end());
    }
    return bytes;
}

void write_plane(TIFF *tiff, const TiffRecipe &recipe, uint16_t first, uint32_t count, const Sample &sample) {
    const uint32_t step_y = recipe.tile != 0 ? recipe.tile : recipe.strip;
    for (uint32_t y = 0; y < recipe.height; y += step_y) {
        if (recipe.tile == 0) {
            const uint32_t rows = std::min(recipe.strip, recipe.height - y);
            std::vector<uint8_t> bytes = packed(recipe, {0, y, recipe.width, rows, first, count}, sample);
            TIFFWriteEncodedStrip(tiff, TIFFComputeStrip(tiff, y, first), bytes.data(), static_cast<tmsize_t>(bytes.size()));
            continue;
        }
        for (uint32_t x = 0; x < recipe.width; x += recipe.tile) {
            std::vector<uint8_t> bytes = packed(recipe, {x, y, recipe.tile, recipe.tile, first, count}, sample);
            const uint32_t tile = TIFFComputeTile(tiff, x, y, 0, first);
            TIFFWriteEncodedTile(tiff, tile, bytes.data(), static_cast<tmsize_t>(bytes.size()));
        }
    }
}

} // namespace

std::string tiff_pages(const std::vector<TiffRecipe> &recipes, const Sample &sample) {
    Memory memory;
    {
        const TiffPtr tiff = open_memory(memory, recipes.front().mode);
        for (const TiffRecipe &recipe : recipes) {
            set_layout(tiff.get(), recipe);
            set_the_rest(tiff.get(), recipe);
            for (uint16_t plane = 0; plane < (recipe.apart ? recipe.channels : 1); ++plane) {
                write_plane(tiff.get(), recipe, plane, recipe.apart ? 1 : static_cast<uint32_t>(recipe.channels), sample);
            }
            TIFFWriteDirectory(tiff.get());
        }
    }
    return memory.bytes;
}

std::string tiff_file(const TiffRecipe &recipe, const Sample &sample) { return tiff_pages({recipe}, sample); }

uint32_t tiff_number(const std::string &file, uint32_t tag) {
    Memory memory{file};
    uint32_t value = 0; // holds a short as well: the order of bytes is that of the machine
    TIFFGetField(open_first(memory).get(), tag, &value);
    return value;
}

double tiff_real(const std::string &file, uint32_t tag) {
    Memory memory{file};
    float value = 0;
    TIFFGetField(open_first(memory).get(), tag, &value);
    return value;
}

std::string tiff_bytes(const std::string &file, uint32_t tag) {
    Memory memory{file};
    const TiffPtr tiff = open_first(memory);
    uint32_t size = 0;
    const char *bytes = nullptr;
    return TIFFGetField(tiff.get(), tag, &size, &bytes) != 0 ? std::string(bytes, size) : "";
}

Pixels tiff_pixels(const std::string &file) {
    Memory memory{file};
    const TiffPtr tiff = open_first(memory);
    Pixels pixels{tiff_number(file, TIFFTAG_IMAGEWIDTH),
                  tiff_number(file, TIFFTAG_IMAGELENGTH),
                  tiff_number(file, TIFFTAG_SAMPLESPERPIXEL),
                  {}};
    std::vector<uint8_t> strip(static_cast<size_t>(TIFFStripSize(tiff.get())));
    for (uint32_t number = 0; number < TIFFNumberOfStrips(tiff.get()); ++number) {
        const tmsize_t size = TIFFReadEncodedStrip(tiff.get(), number, strip.data(), static_cast<tmsize_t>(strip.size()));
        pixels.bytes.insert(pixels.bytes.end(), strip.begin(), strip.begin() + size);
    }
    return pixels;
}

} // namespace ko_test
