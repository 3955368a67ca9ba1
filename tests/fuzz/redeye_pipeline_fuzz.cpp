// The red-eye correction on any small picture: the first byte is its width, and what follows are pixels, a byte a channel.
#include <algorithm>

#include "redeye_case.h"

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    ko_fuzz::start();
    if (size == 0) {
        return 0;
    }
    const uint32_t width = std::max<uint32_t>(data[0] % 64, 1);
    const auto height = static_cast<uint32_t>((size - 1) / 3 / width);
    const ko_test::ColorImagePtr image(
        KoColorImageNewFromByteArray(width, height, KO_COLORSPACE_RGB, data + 1, KO_BYTE_LAYOUT_INTERLEAVED));
    ko_fuzz::expect(ko_fuzz::correct(ko_fuzz::ModelFiles(), image.get()) == KO_OK, "any picture can be corrected");
    return 0;
}
