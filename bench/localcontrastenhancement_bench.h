// The whole enhancement of a picture, as a host does it, and the curves on its way.
#ifndef KO_BENCH_LOCALCONTRASTENHANCEMENT_BENCH_H
#define KO_BENCH_LOCALCONTRASTENHANCEMENT_BENCH_H

#include <cstdint>
#include <vector>

#include "support.h"

namespace ko_bench {

inline constexpr Size size_1_megapixel{1156, 867};
inline constexpr Size size_4_megapixels{2312, 1734};
inline constexpr Size size_16_megapixels{4624, 3468};

// The curves of the photograph of 1 megapixel as the enhancement gives them: 256 entries, an 8 by 8 grid. Null on failure.
TileTrcPtr photograph_curves();

// From interleaved RGB bytes to enhanced bytes, with the default curves on an 8 by 8 grid. Returns true on success.
bool enhance(Size size, const std::vector<uint8_t> &input, std::vector<uint8_t> &output);

} // namespace ko_bench

#endif
