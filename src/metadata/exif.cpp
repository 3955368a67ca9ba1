// A changed block is read again before it is given out.
#include "metadata/exif.h"

#include "metadata/exif_block.h"
#include "metadata/exif_values.h"

namespace metadata {

namespace {

void check(const Bytes &block, const Bytes &result, const ExifChange &change) {
    const Exif found = read_exif(result);
    const bool has_software = !change.software || found.software == *change.software;
    const bool has_thumbnail =
        change.thumbnail ? found.thumbnail == change.thumbnail->jpeg : !change.drop_thumbnail || !found.has_thumbnail;
    if (!has_software || !has_thumbnail || lasting_values(block) != lasting_values(result)) {
        throw Error("the Exif data cannot be changed without harm");
    }
}

} // namespace

Bytes changed_exif(const Bytes &block, const ExifChange &change) {
    ExifBlock changed(block);
    if (change.thumbnail) {
        changed.set_thumbnail(*change.thumbnail);
    } else if (change.drop_thumbnail) {
        changed.drop_thumbnail();
    }
    if (change.software) {
        changed.set_software(*change.software);
    }
    check(block, changed.bytes(), change);
    return changed.bytes();
}

} // namespace metadata
