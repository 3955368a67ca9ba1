// One tone curve as Python holds it; it does not change once made.
#ifndef KO_PYTHON_CURVE_H
#define KO_PYTHON_CURVE_H

#include <utility>

#include "ko.hpp"

namespace binding {

class Curve {
  public:
    // A curve with entries.
    explicit Curve(ko::TRCPtr curve) : curve_(std::move(curve)) {}

    const TRC &curve() const { return *curve_; }

  private:
    ko::TRCPtr curve_;
};

} // namespace binding

#endif
