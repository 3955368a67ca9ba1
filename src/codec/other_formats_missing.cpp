// Stands in for the formats that the program reads and writes through libraries which are not packaged for Windows.
#include "codec/formats.h"

namespace codec {

std::unique_ptr<Reader> open_tiff(Input &) { throw Error("a TIFF file, which this build cannot read"); }

std::unique_ptr<Reader> open_webp(Input &) { throw Error("a WebP file, which this build cannot read"); }

std::unique_ptr<Writer> create_tiff(Output &, const Description &, Notices &) {
    throw Error("this build cannot write TIFF files");
}

std::unique_ptr<Writer> create_webp(Output &, const Description &, std::optional<int>, Notices &) {
    throw Error("this build cannot write WebP files");
}

} // namespace codec
