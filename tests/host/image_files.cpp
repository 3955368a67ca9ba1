#include "image_files.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <vector>

#include <jpeglib.h>
#include <png.h>
#include <zlib.h>

namespace ko_test {

namespace {

uint32_t number_at(const std::string &text, size_t position, size_t size) {
    uint32_t value = 0;
    for (size_t i = 0; i < size; ++i) {
        value = value << 8 | static_cast<uint8_t>(text.at(position + i));
    }
    return value;
}

uint32_t png_channels(int colour) {
    switch (colour) {
    case png_gray_alpha:
        return 2;
    case png_rgb:
        return 3;
    case png_rgba:
        return 4;
    default:
        return 1;
    }
}

// One step of the walk over an interlaced picture, or the whole of another.
struct Pass {
    uint32_t x, y, step_x, step_y;
};

constexpr std::array<Pass, 7> interlaced_passes = {
    {{0, 0, 8, 8}, {4, 0, 8, 8}, {0, 4, 4, 8}, {2, 0, 4, 4}, {0, 2, 2, 4}, {1, 0, 2, 2}, {0, 1, 1, 2}}};

void add_row(std::string &rows, const PngRecipe &recipe, const Pass &pass, uint32_t y, const Sample &sample) {
    rows += '\0'; // no filter
    uint32_t bits = 0;
    int count = 0;
    for (uint32_t x = pass.x; x < recipe.width; x += pass.step_x) {
        for (uint32_t c = 0; c < png_channels(recipe.colour); ++c) {
            bits = bits << recipe.depth | sample(x, y, c);
            count += recipe.depth;
            for (; count >= 8; count -= 8) {
                rows += static_cast<char>(bits >> (count - 8) & 0xff);
            }
        }
    }
    if (count > 0) {
        rows += static_cast<char>(bits << (8 - count) & 0xff);
    }
}

std::string png_rows(const PngRecipe &recipe, const Sample &sample) {
    std::string rows;
    const std::vector<Pass> passes = recipe.interlaced ? std::vector<Pass>(interlaced_passes.begin(), interlaced_passes.end())
                                                       : std::vector<Pass>{{0, 0, 1, 1}};
    for (const Pass &pass : passes) {
        if (pass.x >= recipe.width) {
            continue;
        }
        for (uint32_t y = pass.y; y < recipe.height; y += pass.step_y) {
            add_row(rows, recipe, pass, y, sample);
        }
    }
    return rows;
}

std::string deflated(const std::string &text) {
    uLongf size = compressBound(text.size());
    std::string out(size, '\0');
    compress(reinterpret_cast<Bytef *>(out.data()), &size, reinterpret_cast<const Bytef *>(text.data()), text.size());
    out.resize(size);
    return out;
}

std::string chunks_text(const std::vector<Chunk> &chunks) {
    std::string text;
    for (const auto &[type, data] : chunks) {
        text += png_chunk(type, data);
    }
    return text;
}

constexpr std::string_view icc_mark("ICC_PROFILE\0", 12);

J_COLOR_SPACE given_space(JpegColour colour) {
    switch (colour) {
    case JpegColour::gray:
        return JCS_GRAYSCALE;
    case JpegColour::cmyk:
    case JpegColour::ycck:
        return JCS_CMYK;
    case JpegColour::two_unknown:
        return JCS_UNKNOWN;
    default:
        return JCS_RGB;
    }
}

J_COLOR_SPACE stored_space(JpegColour colour) {
    switch (colour) {
    case JpegColour::ycc:
        return JCS_YCbCr;
    case JpegColour::ycck:
        return JCS_YCCK;
    default:
        return given_space(colour);
    }
}

int given_components(J_COLOR_SPACE space) {
    switch (space) {
    case JCS_GRAYSCALE:
        return 1;
    case JCS_UNKNOWN:
        return 2;
    case JCS_CMYK:
        return 4;
    default:
        return 3;
    }
}

constexpr std::array<jpeg_scan_info, 2> two_scans = {{{1, {0, 0, 0, 0}, 0, 0, 0, 0}, {1, {0, 0, 0, 0}, 1, 63, 0, 0}}};

void use_tables(jpeg_compress_struct &info, const std::vector<JpegTable> &tables) {
    for (size_t i = 0; i < tables.size(); ++i) {
        const std::vector<unsigned int> steps(tables[i].begin(), tables[i].end());
        jpeg_add_quant_table(&info, static_cast<int>(i), steps.data(), 100, FALSE);
        info.comp_info[i].quant_tbl_no = static_cast<int>(i);
    }
}

void configure(jpeg_compress_struct &info, const JpegRecipe &recipe) {
    info.image_width = recipe.width;
    info.image_height = recipe.height;
    info.in_color_space = given_space(recipe.colour);
    info.input_components = given_components(info.in_color_space);
    jpeg_set_defaults(&info);
    jpeg_set_colorspace(&info, stored_space(recipe.colour));
    jpeg_set_quality(&info, recipe.quality, TRUE);
    if (info.num_components == 3) {
        info.comp_info[0].h_samp_factor = recipe.sampling_x;
        info.comp_info[0].v_samp_factor = recipe.sampling_y;
        for (const size_t colour : {1, 2}) {
            info.comp_info[colour].h_samp_factor = recipe.colour_sampling_x[colour - 1];
            info.comp_info[colour].v_samp_factor = recipe.colour_sampling_y[colour - 1];
        }
    }
    use_tables(info, recipe.tables);
    if (recipe.progressive) {
        jpeg_simple_progression(&info);
    }
    if (recipe.two_scans) {
        info.scan_info = two_scans.data();
        info.num_scans = static_cast<int>(two_scans.size());
    }
    info.write_JFIF_header = recipe.density_unit >= 0 ? TRUE : FALSE;
    info.density_unit = static_cast<UINT8>(std::max(recipe.density_unit, 0));
    info.X_density = static_cast<UINT16>(recipe.density_x);
    info.Y_density = static_cast<UINT16>(recipe.density_y);
}

} // namespace

std::ostream &operator<<(std::ostream &stream, const Pixels &pixels) {
    stream << pixels.width << " x " << pixels.height << " x " << pixels.channels << ", bytes";
    for (size_t i = 0; i < pixels.bytes.size() && i < 24; ++i) {
        stream << ' ' << static_cast<int>(pixels.bytes[i]);
    }
    return stream << " ...";
}

std::string big_endian(uint32_t value) {
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8) {
        text += static_cast<char>(value >> shift & 0xff);
    }
    return text;
}

std::string png_chunk(const std::string &type, const std::string &data) {
    const std::string body = type + data;
    const uLong sum = crc32(0, reinterpret_cast<const Bytef *>(body.data()), static_cast<uInt>(body.size()));
    return big_endian(static_cast<uint32_t>(data.size())) + body + big_endian(static_cast<uint32_t>(sum));
}

std::string png_header(uint32_t width, uint32_t height, int depth, int colour, int interlace) {
    std::string data = big_endian(width) + big_endian(height);
    for (const int value : {depth, colour, 0, 0, interlace}) {
        data += static_cast<char>(value);
    }
    return "\x89PNG\r\n\x1a\n" + png_chunk("IHDR", data);
}

std::string png_file(const PngRecipe &recipe, const Sample &sample) {
    return png_header(recipe.width, recipe.height, recipe.depth, recipe.colour, recipe.interlaced) +
           chunks_text(recipe.before) + png_chunk("IDAT", deflated(png_rows(recipe, sample))) + chunks_text(recipe.after) +
           png_chunk("IEND", "");
}

std::vector<Chunk> png_chunks(const std::string &file) {
    std::vector<Chunk> chunks;
    for (size_t position = 8; position < file.size();) {
        const uint32_t size = number_at(file, position, 4);
        chunks.emplace_back(file.substr(position + 4, 4), file.substr(position + 8, size));
        position += size + 12;
    }
    return chunks;
}

std::string png_chunk_data(const std::string &file, const std::string &type) {
    for (const auto &[found, data] : png_chunks(file)) {
        if (found == type) {
            return data;
        }
    }
    return "";
}

Pixels png_pixels(const std::string &file) {
    struct Source {
        const std::string &file;
        size_t position;
    } source{file, 0};
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_set_read_fn(png, &source, [](png_structp reader, png_bytep out, size_t count) {
        auto &from = *static_cast<Source *>(png_get_io_ptr(reader));
        from.file.copy(reinterpret_cast<char *>(out), count, from.position);
        from.position += count;
    });
    png_read_png(png, info, PNG_TRANSFORM_IDENTITY, nullptr);
    Pixels pixels{png_get_image_width(png, info), png_get_image_height(png, info), png_get_channels(png, info), {}};
    for (uint32_t y = 0; y < pixels.height; ++y) {
        const png_bytep row = png_get_rows(png, info)[y];
        pixels.bytes.insert(pixels.bytes.end(), row, row + png_get_rowbytes(png, info));
    }
    png_destroy_read_struct(&png, &info, nullptr);
    return pixels;
}

std::string jpeg_file(const JpegRecipe &recipe, const Sample &sample) {
    jpeg_compress_struct info{};
    jpeg_error_mgr errors{};
    info.err = jpeg_std_error(&errors);
    jpeg_create_compress(&info);
    unsigned char *bytes = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&info, &bytes, &size);
    configure(info, recipe);
    jpeg_start_compress(&info, TRUE);
    for (const auto &[marker, data] : recipe.segments) {
        jpeg_write_marker(&info, marker, reinterpret_cast<const JOCTET *>(data.data()), static_cast<unsigned int>(data.size()));
    }
    const auto channels = static_cast<uint32_t>(info.input_components);
    std::vector<JSAMPLE> row(recipe.width * channels);
    for (uint32_t y = 0; y < recipe.height; ++y) {
        for (uint32_t i = 0; i < row.size(); ++i) {
            row[i] = static_cast<JSAMPLE>(sample(i / channels, y, i % channels));
        }
        JSAMPROW address = row.data();
        jpeg_write_scanlines(&info, &address, 1);
    }
    jpeg_finish_compress(&info);
    jpeg_destroy_compress(&info);
    std::string file(reinterpret_cast<const char *>(bytes), size);
    std::free(bytes);
    return file;
}

std::vector<Segment> jpeg_segments(const std::string &file) {
    std::vector<Segment> segments;
    for (size_t position = 2; position < file.size();) {
        const int marker = static_cast<uint8_t>(file.at(position + 1));
        const uint32_t size = number_at(file, position + 2, 2);
        segments.emplace_back(marker, file.substr(position + 4, size - 2));
        if (marker == 0xda) {
            break;
        }
        position += size + 2;
    }
    return segments;
}

std::string jpeg_segment(const std::string &file, int marker, const std::string &beginning) {
    for (const auto &[found, data] : jpeg_segments(file)) {
        if (found == marker && data.starts_with(beginning)) {
            return data;
        }
    }
    return "";
}

std::string jpeg_sampling(const std::string &file) {
    std::string text;
    for (const auto &[marker, data] : jpeg_segments(file)) {
        if (marker < 0xc0 || marker > 0xc2) {
            continue;
        }
        for (size_t component = 0; component < number_at(data, 5, 1); ++component) {
            const uint32_t factors = number_at(data, 7 + 3 * component, 1);
            text += text.empty() ? "" : " ";
            text += std::to_string(factors >> 4) + std::to_string(factors & 15);
        }
    }
    return text;
}

int jpeg_first_factor(const std::string &file) { return static_cast<int>(number_at(jpeg_segment(file, 0xdb), 1, 1)); }

std::vector<JpegTable> jpeg_tables(const std::string &file) {
    jpeg_decompress_struct info{};
    jpeg_error_mgr errors{};
    info.err = jpeg_std_error(&errors);
    jpeg_create_decompress(&info);
    jpeg_mem_src(&info, reinterpret_cast<const unsigned char *>(file.data()), static_cast<unsigned long>(file.size()));
    jpeg_read_header(&info, TRUE);
    std::vector<JpegTable> tables(static_cast<size_t>(info.num_components));
    for (size_t i = 0; i < tables.size(); ++i) {
        std::copy_n(info.quant_tbl_ptrs[info.comp_info[i].quant_tbl_no]->quantval, tables[i].size(), tables[i].begin());
    }
    jpeg_destroy_decompress(&info);
    return tables;
}

bool jpeg_is_progressive(const std::string &file) {
    const std::vector<Segment> segments = jpeg_segments(file);
    return std::any_of(segments.begin(), segments.end(), [](const Segment &segment) { return segment.first == 0xc2; });
}

Pixels jpeg_pixels(const std::string &file, unsigned int divisor) {
    jpeg_decompress_struct info{};
    jpeg_error_mgr errors{};
    info.err = jpeg_std_error(&errors);
    jpeg_create_decompress(&info);
    jpeg_mem_src(&info, reinterpret_cast<const unsigned char *>(file.data()), static_cast<unsigned long>(file.size()));
    jpeg_read_header(&info, TRUE);
    info.scale_denom = divisor;
    jpeg_start_decompress(&info);
    Pixels pixels{info.output_width, info.output_height, static_cast<uint32_t>(info.output_components), {}};
    const size_t row_bytes = size_t{pixels.width} * pixels.channels;
    pixels.bytes.resize(row_bytes * pixels.height);
    while (info.output_scanline < info.output_height) {
        JSAMPROW row = pixels.bytes.data() + info.output_scanline * row_bytes;
        jpeg_read_scanlines(&info, &row, 1);
    }
    jpeg_finish_decompress(&info);
    jpeg_destroy_decompress(&info);
    return pixels;
}

std::string icc_profile(const std::string &space, uint32_t size) {
    const uint32_t whole = (std::max(size, 160u) + 3) / 4 * 4;
    std::string profile(whole, '\0');
    const auto put = [&profile](size_t position, const std::string &text) { profile.replace(position, text.size(), text); };
    for (size_t i = 160; i < whole; ++i) { // something that does not compress to nothing
        profile[i] = static_cast<char>(i * i >> 3);
    }
    put(0, big_endian(whole));
    put(8, big_endian(0x02400000));
    put(12, "mntr" + space + "XYZ ");
    put(36, "acsp");
    put(68, big_endian(0x0000f6d6) + big_endian(0x00010000) + big_endian(0x0000d32d)); // the light of the connection space
    put(128, big_endian(1) + "desc" + big_endian(144) + big_endian(whole - 144));
    put(144, "desc");
    return profile;
}

std::vector<Segment> icc_segments(const std::string &profile) {
    constexpr size_t most = 65519;
    const size_t count = (profile.size() + most - 1) / most;
    std::vector<Segment> segments;
    for (size_t i = 0; i < count; ++i) {
        std::string data(icc_mark);
        data += static_cast<char>(i + 1);
        data += static_cast<char>(count);
        segments.emplace_back(0xe2, data + profile.substr(i * most, most));
    }
    return segments;
}

std::string jpeg_icc_profile(const std::string &file) {
    std::string profile;
    for (const auto &[marker, data] : jpeg_segments(file)) {
        if (marker == 0xe2 && data.starts_with(icc_mark)) {
            profile += data.substr(14);
        }
    }
    return profile;
}

std::string exif_block(size_t size) {
    std::string block("MM\0*\0\0\0\x08", 8);
    while (block.size() < size) {
        block += static_cast<char>(block.size() * 7);
    }
    return block;
}

} // namespace ko_test
