// The fit of a curve to one tile, and the token stream of a grid's curves through a temporary file.
#ifndef KO_BENCH_CURVE_JOBS_H
#define KO_BENCH_CURVE_JOBS_H

#include <cstdint>
#include <cstdio>
#include <memory>
#include <vector>

#include "inputs.h"

namespace ko_bench {

// A curve of 256 entries from a tile of the photograph to the same tile with its shadows opened.
class CurveFit {
  public:
    static constexpr Size size{500, 500};

    CurveFit();

    // Returns true on success.
    bool fit();

    const TRC *curve() const { return curve_.get(); }

  private:
    RealImagePtr image_;
    RealImagePtr target_;
    TRCPtr curve_;
};

using StreamPtr = std::unique_ptr<std::FILE, Deleter<std::fclose>>;

inline constexpr uint64_t room_of_token = 63; // entries that the last token may reach past its curve

// All entries of a grid, curve after curve.
std::vector<uint32_t> entries_of(const TileTRC *grid);

class CurveStream {
  public:
    explicit CurveStream(uint64_t curve_size) : compress_(KoTRCCompressNew(curve_size)), stream_(std::tmpfile()) {}

    bool good() const { return compress_ && stream_; }

    bool save(std::vector<uint32_t> &entries) {
        return for_each_curve(KoTRCCompressSave, entries.data(), entries.size()) && std::fflush(stream_.get()) == 0;
    }

    // Bytes written by the last save, to be called right after it.
    long bytes() const { return std::ftell(stream_.get()); }

    // entries has room_of_token elements more than the curves.
    bool load(std::vector<uint32_t> &entries) {
        return for_each_curve(KoTRCCompressLoad, entries.data(), entries.size() - room_of_token);
    }

  private:
    template <class Transfer> bool for_each_curve(Transfer transfer, uint32_t *entries, uint64_t count) {
        bool good = true;
        std::rewind(stream_.get());
        for (uint64_t first = 0; first < count; first += compress_->size) {
            KoTRCCompressSetTRC(compress_.get(), entries + first);
            good = transfer(compress_.get(), stream_.get(), "curves") == KO_OK && good;
        }
        return good;
    }

    TRCCompressPtr compress_;
    StreamPtr stream_;
};

} // namespace ko_bench

#endif
