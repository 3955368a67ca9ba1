// Inside the codec: which chunks of a PNG file may be carried into a file with other pixels. A chunk's name says so; if the
// picture's size and colours are kept, a few more may.
#ifndef KO_CODEC_PNG_CHUNKS_H
#define KO_CODEC_PNG_CHUNKS_H

#include "codec/codec.h"

namespace codec {

class ChunkSorter {
  public:
    // plain_colours is true for a file whose pixels are not expanded or reduced: chunks that refer to their values stay valid.
    explicit ChunkSorter(bool plain_colours) : plain_colours_(plain_colours) {}

    // Adds a chunk to the metadata, or names it.
    void add(const PngChunk &chunk, Metadata &metadata, Notices &notices) const;

  private:
    bool plain_colours_;
};

} // namespace codec

#endif
