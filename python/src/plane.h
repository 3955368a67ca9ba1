// One plane of floats as Python holds it, and its pixels as an array that shares them.
#ifndef KO_PYTHON_PLANE_H
#define KO_PYTHON_PLANE_H

#include <utility>

#include <pybind11/numpy.h>

#include "ko.hpp"

namespace binding {

class Plane {
  public:
    // Throws ko::Error for a null image, and value_error for one without pixels.
    explicit Plane(ko::RealImagePtr image);

    const RealImage &image() const { return *image_; }
    RealImage &image() { return *image_; }

  private:
    ko::RealImagePtr image_;
};

// The pixels of a plane, or of a Python object that is one, which the array keeps alive.
pybind11::array_t<float> view_of(Plane plane);
pybind11::array_t<float> view_of(const pybind11::object &self);

} // namespace binding

#endif
