// The reading of a curve's token stream with a bound, for files whose curves lie one behind the other.
#ifndef KO_SRC_TRCCOMPRESS_H
#define KO_SRC_TRCCOMPRESS_H

#include "ko/trccompress.h"

namespace ko {

// Reads tokens until size entries are filled, as KoTRCCompressLoad does. The last token may go past size; what it has for
// entries from room on is dropped.
[[nodiscard]] int32_t read_tokens(uint32_t *entries, uint64_t size, uint64_t room, FILE *stream, const char *path);

} // namespace ko

#endif
