// ko_peers: ko's hot paths beside other libraries, as a table. With an argument, only the rows whose names contain it. Fails
// if a row misses its goal by more than the noise, if a job fails, or if no row is left.
#include <algorithm>
#include <cstdio>
#include <exception>
#include <iterator>
#include <string>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/core/ocl.hpp>

#include "gegl_graph.h"
#include "inputs.h"
#include "report.h"
#include "rows.h"

namespace {

using namespace ko_peers;

std::vector<Row> rows_with(const std::string &filter) {
    std::vector<Row> rows;
    for (const auto &family : {tile_rows(), blur_rows(), bilateral_rows(), kernel_rows(), plane_rows(), histogram_rows(),
                               resize_rows(), curve_rows(), detection_rows(), enhancement_rows()}) {
        std::copy_if(family.begin(), family.end(), std::back_inserter(rows),
                     [&](const Row &row) { return row.name.find(filter) != std::string::npos; });
    }
    return rows;
}

bool run_row(const Row &row) {
    try {
        return print_row(row, run(row.prepare(), row.rounds));
    } catch (const std::exception &failure) {
        print_failure(row, failure.what());
        return false;
    }
}

bool run_rows(const std::string &filter) {
    const std::vector<Row> rows = rows_with(filter);
    if (rows.empty()) {
        std::fprintf(stderr, "ko_peers: no row's name contains \"%s\"\n", filter.c_str());
        return false;
    }
    print_libraries();
    print_header();
    bool good = true;
    for (const Row &row : rows) {
        good = run_row(row) && good;
    }
    return good;
}

} // namespace

int main(int argc, char **argv) {
    if (argc > 2) {
        std::fprintf(stderr, "usage: ko_peers [FILTER]\n");
        return 2;
    }
    cv::setNumThreads(1);
    cv::ocl::setUseOpenCL(false);
    const GeglSession gegl;
    KoInit(nullptr, nullptr);
    const bool good = run_rows(argc == 2 ? argv[1] : "");
    KoRelease();
    return good ? 0 : 1;
}
