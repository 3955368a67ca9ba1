#include "report.h"

#include <cstdio>
#include <filesystem>
#include <optional>
#include <string>

#include <dlfcn.h>

#include <gegl.h>
#include <opencv2/core.hpp>

namespace ko_peers {

namespace {

constexpr int name_width = 36;
constexpr int peer_width = 36;

std::filesystem::path loaded_ko() {
    Dl_info info{};
    void *symbol = dlsym(RTLD_DEFAULT, "KoInit");
    return symbol != nullptr && dladdr(symbol, &info) != 0 ? info.dli_fname : "";
}

// The last components of a path, as far as they say which build it is.
std::string tail_of(const std::filesystem::path &path) {
    const std::filesystem::path folder = path.parent_path();
    const std::filesystem::path outer = folder.parent_path();
    return (outer.filename() / folder.filename() / path.filename()).string();
}

bool ko_uses_avx2() { return loaded_ko().string().find("x86-64-v3") != std::string::npos; }

std::optional<double> goal_of(const Row &row) { return peers_use_avx2() ? row.goals.avx2 : row.goals.sse2; }

const char *verdict(const Result &result, double goal) {
    if (result.ratio <= goal) {
        return "met";
    }
    return result.low_ratio <= goal ? "within noise" : "MISSED";
}

} // namespace

bool peers_use_avx2() { return cv::checkHardwareSupport(CV_CPU_AVX2); }

void print_libraries() {
    std::printf("compiler: %s\n", KO_BENCH_COMPILER);
    std::printf("ko:       %s\n", tail_of(loaded_ko()).c_str());
    std::printf("OpenCV:   %s, %s\n", cv::getVersionString().c_str(), cv::getCPUFeaturesLine().c_str());
    std::printf("GEGL:     %d.%d.%d\n", GEGL_MAJOR_VERSION, GEGL_MINOR_VERSION, GEGL_MICRO_VERSION);
    std::printf("goals:    for %s\n", peers_use_avx2() ? "AVX2" : "SSE2");
    if (ko_uses_avx2() != peers_use_avx2()) {
        std::printf("          ko %s AVX2, its peers %s\n", ko_uses_avx2() ? "uses" : "does not use",
                    peers_use_avx2() ? "do" : "do not");
    }
}

void print_header() {
    std::printf("\n%-*s %10s %10s  %-*s %7s %7s\n", name_width, "", "ko ms", "peer ms", peer_width, "fastest peer", "ratio",
                "goal");
    std::fflush(stdout);
}

bool print_row(const Row &row, const Result &result) {
    const std::optional<double> goal = goal_of(row);
    const std::string mark = goal ? verdict(result, *goal) : "";
    const std::string peer = result.fastest_peer + (result.remark.empty() ? "" : ", " + result.remark);
    std::printf("%-*s %10.3f %10.3f  %-*s %7.3f ", name_width, row.name.c_str(), result.ko_seconds * 1e3,
                result.peer_seconds * 1e3, peer_width, peer.c_str(), result.ratio);
    if (goal) {
        std::printf("%7g  %s", *goal, mark.c_str());
    }
    std::printf("\n");
    std::fflush(stdout);
    return mark != "MISSED";
}

void print_failure(const Row &row, const char *reason) {
    std::printf("%-*s failed: %s\n", name_width, row.name.c_str(), reason);
    std::fflush(stdout);
}

} // namespace ko_peers
