#include "race.h"

#include <algorithm>
#include <cstddef>
#include <functional>
#include <iterator>
#include <stdexcept>

#include "inputs.h"

namespace ko_peers {

namespace {

double timed(const Contender &contender, int repeats) {
    const double total = ko_bench::seconds([&] {
        for (int i = 0; i < repeats; ++i) {
            contender.work();
        }
    });
    contender.clean_up();
    return total / repeats / contender.items;
}

double lower_quartile(std::vector<double> values) {
    const auto quartile = values.begin() + static_cast<std::ptrdiff_t>((values.size() - 1) / 4);
    std::nth_element(values.begin(), quartile, values.end());
    return *quartile;
}

void warm_up(const Race &race) {
    race.ko.work();
    for (const Contender &peer : race.peers) {
        peer.work();
    }
    race.check();
    race.ko.clean_up();
    for (const Contender &peer : race.peers) {
        peer.clean_up();
    }
}

} // namespace

Result run(const Race &race, int rounds) {
    warm_up(race);
    std::vector<double> ko_times;
    std::vector<std::vector<double>> peer_times(race.peers.size());
    for (int round = 0; round < rounds; ++round) {
        ko_times.push_back(timed(race.ko, race.repeats));
        for (std::size_t i = 0; i < race.peers.size(); ++i) {
            peer_times[i].push_back(timed(race.peers[i], race.repeats));
        }
    }
    const auto fastest = std::min_element(peer_times.begin(), peer_times.end(), [](const auto &a, const auto &b) {
        return ko_bench::median(a) < ko_bench::median(b);
    });
    std::vector<double> ratios;
    std::transform(ko_times.begin(), ko_times.end(), fastest->begin(), std::back_inserter(ratios), std::divides<>());
    Result result;
    result.remark = race.remark();
    result.ko_seconds = ko_bench::median(ko_times);
    result.peer_seconds = ko_bench::median(*fastest);
    result.fastest_peer = race.peers[static_cast<std::size_t>(fastest - peer_times.begin())].name;
    result.ratio = result.ko_seconds / result.peer_seconds;
    result.low_ratio = lower_quartile(ratios);
    return result;
}

void require(bool condition, const std::string &what) {
    if (!condition) {
        throw std::runtime_error(what);
    }
}

void require_done(bool success) { require(success, KoErrorGetLastErrorMessage()); }

void require_ok(int32_t status) { require_done(status == KO_OK); }

} // namespace ko_peers
