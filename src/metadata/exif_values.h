// The values in Exif data, by which a change is checked. One back end with Exiv2, which knows maker notes too (exif_exiv2.cpp),
// and one without (exif_plain.cpp).
#ifndef KO_METADATA_EXIF_VALUES_H
#define KO_METADATA_EXIF_VALUES_H

#include <string>
#include <utility>
#include <vector>

#include "metadata/exif.h"

namespace metadata {

// A name and bytes.
using Value = std::pair<std::string, Bytes>;

// All values that a change must not affect, sorted. Throws Error if the block is damaged.
std::vector<Value> lasting_values(const Bytes &block);

} // namespace metadata

#endif
