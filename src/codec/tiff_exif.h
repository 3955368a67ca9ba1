// Inside the codec: Exif data in TIFF files. Other formats have it as a block with directories of its own; in a TIFF file its
// first directory is the one that also describes how the pixels are stored.
#ifndef KO_CODEC_TIFF_EXIF_H
#define KO_CODEC_TIFF_EXIF_H

#include "codec/tiff_common.h"
#include "codec/tiff_structure.h"

namespace codec {

// The Exif data in a TIFF file as a block. Empty if the first directory describes only how the pixels are stored. Adds a notice
// for what cannot be taken over.
Bytes exif_in_tiff(TiffStructure &file, const std::vector<TiffStructure::Entry> &first, Notices &notices);

// The first bytes of a TIFF file with Exif data: the block as it is, or laid out anew without its damaged parts. Adds a notice
// for what is left out.
Bytes exif_for_tiff(const Bytes &exif, Notices &notices);

// Puts Exif data into a file that is about to be written and whose first bytes are those of the block, so that all that the
// block points to is found where it was. Orientation and density, which a file has even without Exif data, are not put there,
// except for a density if the picture has none. Adds a notice for what has no place in the file.
void put_exif(TIFF *tiff, std::span<const uint8_t> exif, bool has_density, const TiffReports &reports, Notices &notices);

} // namespace codec

#endif
