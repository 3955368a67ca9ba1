// The rows of the comparison, by family.
#ifndef KO_BENCH_PEERS_ROWS_H
#define KO_BENCH_PEERS_ROWS_H

#include <vector>

#include "race.h"

namespace ko_peers {

std::vector<Row> tile_rows();
std::vector<Row> blur_rows();
std::vector<Row> bilateral_rows();
std::vector<Row> kernel_rows();
std::vector<Row> plane_rows();
std::vector<Row> histogram_rows();
std::vector<Row> resize_rows();
std::vector<Row> curve_rows();
std::vector<Row> detection_rows();

// To be run last: one of them changes how the process takes memory from the system.
std::vector<Row> enhancement_rows();

} // namespace ko_peers

#endif
