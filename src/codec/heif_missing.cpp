// Stands in for the reader of HEIC and AVIF files where libheif was not found.
#include "codec/formats.h"

namespace codec {

std::unique_ptr<Reader> open_heif(Input &, const std::string &kind) { throw Error(kind + ", which this build cannot read"); }

} // namespace codec
