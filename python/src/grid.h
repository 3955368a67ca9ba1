// A grid of tone curves as Python holds it. It does not change once made, so any number of threads may use one.
#ifndef KO_PYTHON_GRID_H
#define KO_PYTHON_GRID_H

#include <cstdint>
#include <filesystem>
#include <memory>

#include <pybind11/numpy.h>

#include "ko.hpp"
#include "kohost/pixels.h"

namespace binding {

class Grid {
  public:
    // Curves of at least 256 entries, each below their number, and at least one of them.
    explicit Grid(ko::TileTRCPtr curves) : curves_(std::move(curves)) {}

    const TileTRC &curves() const { return *curves_; }
    uint64_t columns() const { return KoTileTRCGetNumStripsX(curves_.get()); }
    uint64_t rows() const { return KoTileTRCGetNumStripsY(curves_.get()); }
    uint64_t entries() const { return KoTileTRCGetSize(curves_.get()); }

    // Throws value_error for a picture with less than two pixels per tile in a direction of several tiles.
    void check_fit(kohost::Size picture) const;

  private:
    ko::TileTRCPtr curves_;
};

} // namespace binding

#endif
