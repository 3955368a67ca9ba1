#include "webp_files.h"

#include <stdexcept>
#include <vector>

#include <webp/decode.h>
#include <webp/encode.h>
#include <webp/mux.h>

namespace ko_test {

namespace {

void check(bool good) {
    if (!good) {
        throw std::runtime_error("no WebP file");
    }
}

std::string text_of(const uint8_t *bytes, size_t size) { return {reinterpret_cast<const char *>(bytes), size}; }

WebPData data_of(const std::string &text) { return {reinterpret_cast<const uint8_t *>(text.data()), text.size()}; }

std::string encoded(const WebpRecipe &recipe, const Sample &sample) {
    WebPConfig config;
    WebPPicture picture;
    check(WebPConfigInit(&config) != 0 && WebPPictureInit(&picture) != 0);
    config.lossless = recipe.lossless ? 1 : 0;
    config.exact = 1;
    config.quality = recipe.quality;
    picture.use_argb = 1;
    picture.width = static_cast<int>(recipe.width);
    picture.height = static_cast<int>(recipe.height);
    check(WebPPictureAlloc(&picture) != 0);
    for (uint32_t y = 0; y < recipe.height; ++y) {
        for (uint32_t x = 0; x < recipe.width; ++x) {
            const uint32_t alpha = recipe.alpha ? sample(x, y, 3) : 255;
            picture.argb[y * static_cast<uint32_t>(picture.argb_stride) + x] =
                alpha << 24 | sample(x, y, 0) << 16 | sample(x, y, 1) << 8 | sample(x, y, 2);
        }
    }
    WebPMemoryWriter writer;
    WebPMemoryWriterInit(&writer);
    picture.writer = WebPMemoryWrite;
    picture.custom_ptr = &writer;
    check(WebPEncode(&config, &picture) != 0);
    std::string file = text_of(writer.mem, writer.size);
    WebPMemoryWriterClear(&writer);
    WebPPictureFree(&picture);
    return file;
}

std::vector<Chunk> chunks_of(const std::string &file) {
    std::vector<Chunk> chunks;
    for (size_t position = 12; position + 8 <= file.size();) {
        size_t size = 0;
        for (size_t i = 4; i-- > 0;) {
            size = size << 8 | static_cast<uint8_t>(file.at(position + 4 + i));
        }
        chunks.emplace_back(file.substr(position, 4), file.substr(position + 8, size));
        position += 8 + size + size % 2;
    }
    return chunks;
}

} // namespace

std::string webp_file(const WebpRecipe &recipe, const Sample &sample) {
    const std::string plain = encoded(recipe, sample);
    if (recipe.chunks.empty()) {
        return plain;
    }
    WebPMux *mux = WebPMuxNew();
    const WebPData image = data_of(plain);
    check(WebPMuxSetImage(mux, &image, 1) == WEBP_MUX_OK);
    for (const auto &[type, data] : recipe.chunks) {
        const WebPData chunk = data_of(data);
        check(WebPMuxSetChunk(mux, type.c_str(), &chunk, 1) == WEBP_MUX_OK);
    }
    WebPData assembled;
    check(WebPMuxAssemble(mux, &assembled) == WEBP_MUX_OK);
    std::string file = text_of(assembled.bytes, assembled.size);
    WebPDataClear(&assembled);
    WebPMuxDelete(mux);
    return file;
}

std::string webp_animation() {
    WebPMux *mux = WebPMuxNew();
    const std::string image = encoded({}, [](uint32_t x, uint32_t y, uint32_t c) { return x + y + c; });
    for (int i = 0; i < 2; ++i) {
        WebPMuxFrameInfo frame{};
        frame.bitstream = data_of(image);
        frame.duration = 100;
        frame.id = WEBP_CHUNK_ANMF;
        check(WebPMuxPushFrame(mux, &frame, 1) == WEBP_MUX_OK);
    }
    const WebPMuxAnimParams parameters{0, 0};
    check(WebPMuxSetAnimationParams(mux, &parameters) == WEBP_MUX_OK);
    WebPData assembled;
    check(WebPMuxAssemble(mux, &assembled) == WEBP_MUX_OK);
    std::string file = text_of(assembled.bytes, assembled.size);
    WebPDataClear(&assembled);
    WebPMuxDelete(mux);
    return file;
}

std::string webp_chunk_data(const std::string &file, const std::string &type) {
    for (const auto &[found, data] : chunks_of(file)) {
        if (found == type) {
            return data;
        }
    }
    return "";
}

std::string webp_chunk_types(const std::string &file) {
    std::string types;
    for (const auto &[type, data] : chunks_of(file)) {
        types += type + " ";
    }
    return types;
}

Pixels webp_pixels(const std::string &file, bool alpha) {
    int width = 0;
    int height = 0;
    const auto *bytes = reinterpret_cast<const uint8_t *>(file.data());
    uint8_t *pixels = (alpha ? WebPDecodeRGBA : WebPDecodeRGB)(bytes, file.size(), &width, &height);
    check(pixels != nullptr);
    Pixels found{static_cast<uint32_t>(width), static_cast<uint32_t>(height), alpha ? 4u : 3u, {}};
    found.bytes.assign(pixels, pixels + size_t{found.width} * found.height * found.channels);
    WebPFree(pixels);
    return found;
}

} // namespace ko_test
