// A race: ko and other libraries do the same work on the same input, in turn, on one thread of one process.
//
// A round runs every contender once. The row's ratio is ko's median time to that of the fastest peer. Times are processor
// time of the process, so that threads which a library starts on its own count as well.
#ifndef KO_BENCH_PEERS_RACE_H
#define KO_BENCH_PEERS_RACE_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace ko_peers {

// A job by one library. A job makes its result anew where ko's interface makes it anew, and fills one that exists where ko
// fills one.
struct Contender {
    std::string name;
    std::function<void()> work;             // throws if it fails
    std::function<void()> clean_up = [] {}; // outside of the time
    double items = 1.0;                     // divides the time
};

struct Race {
    Contender ko;
    std::vector<Contender> peers;
    // Called once, when each contender has run and none has cleaned up: throws unless the results are those of the same work,
    // so that a peer that did nothing cannot win.
    std::function<void()> check;
    int repeats = 1; // of a contender per round, for jobs that are too short for the clock
    std::function<std::string()> remark = [] { return std::string(); }; // for the row, after the check
};

// Highest permitted ratios: where the libraries may use AVX2, and where they are held to SSE2; no value is no goal.
struct Goals {
    double avx2;
    std::optional<double> sse2;
};

// The input of a race is made by prepare and lives as long as the race.
struct Row {
    std::string name;
    Goals goals;
    int rounds;
    std::function<Race()> prepare;
};

struct Result {
    double ko_seconds = 0.0; // per item, medians
    double peer_seconds = 0.0;
    std::string fastest_peer;
    double ratio = 0.0;
    double low_ratio = 0.0; // lower quartile over the rounds
    std::string remark;
};

// Runs each contender once, checks, and then measures. Throws what a contender or the check throws.
Result run(const Race &race, int rounds);

// Throws a std::runtime_error that says what unless the condition holds.
void require(bool condition, const std::string &what);

// Throw a std::runtime_error of ko's last message unless a call succeeded.
void require_done(bool success);
void require_ok(int32_t status);

} // namespace ko_peers

#endif
