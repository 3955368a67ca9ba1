// Inside the codec: a block of Exif data laid out from the directories of a TIFF file or of a damaged block.
#ifndef KO_CODEC_EXIF_LAYOUT_H
#define KO_CODEC_EXIF_LAYOUT_H

#include "codec/tiff_structure.h"

namespace codec {

struct ExifLayout {
    Bytes block;
    bool damaged = false;   // values or directories below the first one were left out
    bool too_large = false; // values were left out, since the block would exceed a megabyte
    bool moved_maker_note = false;
};

// Lays out a block with the entries of a first directory and the directories that Exif data has below it.
ExifLayout lay_out_exif(TiffStructure &source, const std::vector<TiffStructure::Entry> &first);

} // namespace codec

#endif
