// Stands in for exif.cpp where Exiv2 is not packaged. Without it a change cannot be compared with what was there, so only a block
// without entries is changed.
#include <algorithm>

#include "metadata/exif.h"
#include "metadata/exif_block.h"

namespace metadata {

namespace {

void check(const Bytes &block) {
    if (block != empty_exif()) {
        throw Error("the Exif data cannot be changed by this build");
    }
}

} // namespace

Exif read_exif(const Bytes &block) {
    check(block);
    return {};
}

Bytes changed_exif(const Bytes &block, const ExifChange &change) {
    check(block);
    ExifBlock changed(block);
    if (change.software) {
        changed.set_software(*change.software);
    }
    return changed.bytes();
}

} // namespace metadata
