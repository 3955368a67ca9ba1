// What the comparison prints: the libraries with their levels, and a line per row.
#ifndef KO_BENCH_PEERS_REPORT_H
#define KO_BENCH_PEERS_REPORT_H

#include "race.h"

namespace ko_peers {

// True if the peers may use AVX2, which selects the goals.
bool peers_use_avx2();

void print_libraries();
void print_header();

// Prints a row's line. Returns false if it misses its goal by more than the noise.
bool print_row(const Row &row, const Result &result);

void print_failure(const Row &row, const char *reason);

} // namespace ko_peers

#endif
