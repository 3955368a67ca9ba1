// numpy copies what is strided; an array of whole rows without gaps is used where it lies. A caller may change an array while
// another thread reads it, so a float is read once: what is checked is what is converted.
#include "arrays.h"

#include <array>
#include <charconv>
#include <cmath>
#include <new>
#include <span>
#include <string>
#include <vector>

namespace binding {

namespace {

constexpr int always_copied = 0x0020; // numpy's flag for a result that is never the argument

using Floats = py::array_t<float, py::array::c_style | aligned>;

std::string shape_text(const py::array &array) { return py::str(array.attr("shape")).cast<std::string>(); }

py::array array_of(const py::object &object) {
    if (!py::isinstance<py::array>(object)) {
        throw py::type_error("a picture is a numpy array, not " + std::string(Py_TYPE(object.ptr())->tp_name));
    }
    return py::reinterpret_borrow<py::array>(object);
}

bool is_float(const py::array &array) {
    if (py::isinstance<py::array_t<float>>(array)) {
        return true;
    }
    if (!py::isinstance<py::array_t<uint8_t>>(array)) {
        throw py::type_error("levels are uint8 or float32 in native byte order, not " +
                             py::str(static_cast<py::object>(array.dtype())).cast<std::string>());
    }
    return false;
}

Form checked(const py::array &array, uint32_t channels) {
    Form form;
    form.is_float = is_float(array);
    check_sides(array.shape(1), array.shape(0));
    form.size = {static_cast<uint32_t>(array.shape(1)), static_cast<uint32_t>(array.shape(0))};
    form.channels = channels;
    return form;
}

std::vector<py::ssize_t> shape_of(const Form &form) {
    std::vector<py::ssize_t> shape = {form.size.height, form.size.width};
    if (form.channels != 1) {
        shape.push_back(form.channels);
    }
    return shape;
}

uint64_t values_of(const Form &form) { return form.size.area() * form.channels; }

// Throws value_error for a level out of range, without the interpreter's lock.
Bytes rounded(const py::object &object, const Form &form) {
    const Floats floats = present(Floats::ensure(object));
    Bytes bytes(shape_of(form));
    const float *from = floats.data();
    uint8_t *to = bytes.mutable_data();
    bool fits = true;
    {
        const py::gil_scoped_release unlocked;
        for (uint64_t i = 0; i < values_of(form); ++i) {
            const float level = from[i];
            const bool inside = level >= 0.0f && level <= 255.0f;
            fits &= inside;
            to[i] = static_cast<uint8_t>(inside ? std::nearbyint(level) : 0.0f);
        }
    }
    if (!fits) {
        throw py::value_error("a level of a float32 picture is not a number from 0 to 255");
    }
    return bytes;
}

} // namespace

void check_sides(py::ssize_t width, py::ssize_t height) {
    if (width <= 0 || height <= 0) {
        throw py::value_error("the picture has no pixels");
    }
    if (static_cast<uint64_t>(height) > largest_area / static_cast<uint64_t>(width)) {
        throw py::value_error("a picture of " + std::to_string(width) + " x " + std::to_string(height) + " pixels; at most " +
                              std::to_string(largest_area) + " can be processed");
    }
}

Form form_of(const py::object &object) {
    const py::array array = array_of(object);
    const bool colour = array.ndim() == 3 && array.shape(2) == 3;
    if (array.ndim() != 2 && !colour) {
        throw py::value_error("a picture has the shape (height, width) or (height, width, 3), not " + shape_text(array));
    }
    return checked(array, colour ? 3 : 1);
}

Form form_of_plane(const py::object &object) {
    const py::array array = array_of(object);
    if (array.ndim() != 2) {
        throw py::value_error("a plane has the shape (height, width), not " + shape_text(array));
    }
    return checked(array, 1);
}

Bytes bytes_of(const py::object &object, const Form &form) {
    return form.is_float ? rounded(object, form) : present(Bytes::ensure(object));
}

Bytes new_bytes_of(const py::object &object, const Form &form) {
    using Copied = py::array_t<uint8_t, py::array::c_style | always_copied>;
    return form.is_float ? rounded(object, form) : py::reinterpret_borrow<Bytes>(present(Copied::ensure(object)));
}

py::array like(const Bytes &bytes, const Form &form) {
    return form.is_float ? present(Floats::ensure(bytes)) : py::array(bytes);
}

py::array copy_of(const py::object &object, const Form &form) {
    using Copied = py::array_t<float, py::array::c_style | always_copied>;
    return form.is_float ? py::array(present(Copied::ensure(object))) : py::array(new_bytes_of(object, form));
}

kohost::Pixels pixels_of(const Bytes &bytes, const Form &form) { return {bytes.data(), form.size, form.channels}; }

ko::RealImagePtr plane_of(const py::object &object) {
    const Form form = form_of_plane(object);
    if (form.is_float) {
        const Floats floats = present(Floats::ensure(object));
        const std::span<const float> levels(floats.data(), form.size.area());
        const py::gil_scoped_release unlocked;
        return ko::real_image(levels, form.size.width, form.size.height);
    }
    const Bytes bytes = bytes_of(object, form);
    const std::span<const uint8_t> levels(bytes.data(), form.size.area());
    const py::gil_scoped_release unlocked;
    return ko::real_image(levels, form.size.width, form.size.height);
}

py::float_ shortest(float number) {
    std::array<char, 64> room;
    const char *end = std::to_chars(room.data(), room.data() + room.size(), number).ptr;
    double value = 0.0;
    std::from_chars(room.data(), end, value);
    return py::float_(value);
}

} // namespace binding
