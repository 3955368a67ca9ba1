// numpy's arrays as pictures: what is accepted, as bytes with no copy where the layout allows, and results in the same form.
#ifndef KO_PYTHON_ARRAYS_H
#define KO_PYTHON_ARRAYS_H

#include <cstdint>

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include "ko.hpp"
#include "kohost/pixels.h"

namespace py = pybind11;

namespace binding {

// numpy's flag for numbers that lie where a processor may read them; a view of other bytes may lie anywhere.
inline constexpr int aligned = 0x0100;

// Contiguous bytes in row order.
using Bytes = py::array_t<uint8_t, py::array::c_style>;

// Most pixels of a picture, as of the program's.
inline constexpr uint64_t largest_area = 250'000'000;

// An accepted picture.
struct Form {
    kohost::Size size;
    uint32_t channels = 0;
    bool is_float = false;
};

// The form of an object that is a picture. Throws type_error for what is no array of uint8 or float32 in native byte order,
// and value_error for a shape that no picture has.
Form form_of(const py::object &object);

// The same for rows of a picture and for planes: shapes of two axes alone.
Form form_of_plane(const py::object &object);

// Throws value_error for sides that no picture has.
void check_sides(py::ssize_t width, py::ssize_t height);

// The levels of a picture as bytes: the array's own memory where that is possible. Floats are rounded to the nearest level,
// halves to the even one. Throws value_error for a level that is not between 0 and 255.
Bytes bytes_of(const py::object &object, const Form &form);

// The same in new memory.
Bytes new_bytes_of(const py::object &object, const Form &form);

// Bytes as an array of the picture's type.
py::array like(const Bytes &bytes, const Form &form);

// A copy of an array without gaps.
py::array copy_of(const py::object &object, const Form &form);

// Contiguous bytes as the shared code sees them. The array must outlive the result.
kohost::Pixels pixels_of(const Bytes &bytes, const Form &form);

// A plane in the library's form. Throws what form_of_plane does, and ko::Error.
ko::RealImagePtr plane_of(const py::object &object);

// The number of the fewest digits that is this one in single precision: 0.35 stays 0.35.
py::float_ shortest(float number);

// New memory of an array; throws std::bad_alloc if there is none, like all functions here.
template <class Array> Array present(Array array) {
    if (!array) {
        PyErr_Clear();
        throw std::bad_alloc();
    }
    return array;
}

} // namespace binding

#endif
