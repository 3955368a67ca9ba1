// The fit of a curve beside a copy of the bytes that it goes through, and the token stream of a grid's curves beside general
// compression, both through a temporary file.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>

#include <zstd.h>

#include "curve_jobs.h"
#include "enhancement_job.h"
#include "rows.h"

namespace ko_peers {

namespace {

using namespace ko_bench;

constexpr std::size_t fit_bytes = 3'300'000; // both tiles, the table of costs and what stands beside it
constexpr int compression_level = 3;

Race curve_fit() {
    const auto job = std::make_shared<CurveFit>();
    const auto source = std::make_shared<std::vector<uint8_t>>(fit_bytes, uint8_t{0x5a});
    const auto target = std::make_shared<std::vector<uint8_t>>(fit_bytes, uint8_t{0xa5});
    const auto copy = [=] { std::memcpy(target->data(), source->data(), source->size()); };
    return {{"ko", [=] { require_done(job->fit()); }},
            {{"memcpy of 3.3 MB", copy}},
            [=] {
                require(*source == *target, "no copy");
                require(job->curve()->array[0] < job->curve()->array[job->curve()->size - 1], "no curve");
            },
            10};
}

// Bytes in a temporary file, compressed as one frame.
class CompressedFile {
  public:
    explicit CompressedFile(std::size_t bytes) : stream_(std::tmpfile()), frame_(ZSTD_compressBound(bytes)) {}

    void save(const void *data, std::size_t bytes) {
        std::rewind(stream_.get());
        size_ = ZSTD_compressCCtx(compression_.get(), frame_.data(), frame_.size(), data, bytes, compression_level);
        require(!ZSTD_isError(size_) && std::fwrite(frame_.data(), 1, size_, stream_.get()) == size_ &&
                    std::fflush(stream_.get()) == 0,
                "zstd cannot save");
    }

    void load(void *data, std::size_t bytes) {
        std::rewind(stream_.get());
        require(std::fread(frame_.data(), 1, size_, stream_.get()) == size_ &&
                    ZSTD_decompressDCtx(decompression_.get(), data, bytes, frame_.data(), size_) == bytes,
                "zstd cannot load");
    }

    std::size_t size() const { return size_; }

  private:
    StreamPtr stream_;
    std::unique_ptr<ZSTD_CCtx, Deleter<ZSTD_freeCCtx>> compression_{ZSTD_createCCtx()};
    std::unique_ptr<ZSTD_DCtx, Deleter<ZSTD_freeDCtx>> decompression_{ZSTD_createDCtx()};
    std::vector<uint8_t> frame_;
    std::size_t size_ = 0;
};

// The curves of a photograph, and where both libraries save them and load them again.
struct Curves {
    Curves()
        : grid(photograph_curves()), entries(entries_of(grid.get())), ko_loaded(entries.size() + room_of_token),
          peer_loaded(entries.size()), ko(grid->size), peer(bytes()) {}

    std::size_t bytes() const { return entries.size() * sizeof(entries[0]); }
    void save() { require_done(ko.save(entries)); }
    void load() { require_done(ko.load(ko_loaded)); }
    void save_peer() { peer.save(entries.data(), bytes()); }
    void load_peer() { peer.load(peer_loaded.data(), bytes()); }

    // Throws unless both streams give the curves back and ko's is the smaller one.
    void check() {
        save();
        ko_size = static_cast<std::size_t>(ko.bytes());
        load();
        load_peer();
        require(std::equal(entries.begin(), entries.end(), ko_loaded.begin()) && entries == peer_loaded,
                "the curves do not survive a stream");
        require(ko_size < peer.size(), "ko's stream is not the smaller one");
    }

    std::string remark() const { return std::to_string(ko_size) + " to " + std::to_string(peer.size()) + " bytes"; }

    TileTRCPtr grid;
    std::vector<uint32_t> entries;
    std::vector<uint32_t> ko_loaded;
    std::vector<uint32_t> peer_loaded;
    CurveStream ko;
    CompressedFile peer;
    std::size_t ko_size = 0;
};

Race stream_race(void (Curves::*work)(), void (Curves::*peer_work)(), int repeats) {
    const auto curves = std::make_shared<Curves>();
    curves->save();
    curves->save_peer();
    return {{"ko", [=] { (*curves.*work)(); }},
            {{"zstd, level 3", [=] { (*curves.*peer_work)(); }}},
            [=] { curves->check(); },
            repeats,
            [=] { return curves->remark(); }};
}

Race save_curves() { return stream_race(&Curves::save, &Curves::save_peer, 200); }
Race load_curves() { return stream_race(&Curves::load, &Curves::load_peer, 500); }

} // namespace

std::vector<Row> curve_rows() {
    return {{"curve fit, tile of 500 x 500", {9.0, {}}, 15, curve_fit},
            {"token stream save, 64 curves", {0.9, {}}, 15, save_curves},
            {"token stream load, 64 curves", {0.7, {}}, 15, load_curves}};
}

} // namespace ko_peers
