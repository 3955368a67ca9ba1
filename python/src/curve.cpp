// Single tone curves: from and to arrays, composed, resized, applied to planes, and fitted from a pair of planes.
#include "curve.h"

#include <algorithm>
#include <string>

#include "arrays.h"
#include "families.h"
#include "plane.h"

namespace binding {

namespace {

constexpr py::ssize_t most_entries = 65536;

ko::TRCPtr make_curve(uint64_t size) {
    KoStatusClear();
    ko::TRCPtr curve(KoTRCNew(size));
    ko::check(curve != nullptr, "the curve cannot be made");
    return curve;
}

Curve from_array(const py::array &array) {
    if (array.ndim() != 1 || array.shape(0) == 0 || array.shape(0) > most_entries) {
        throw py::value_error("a curve has the shape (entries,), with 1 to 65536 entries");
    }
    using Numbers = py::array_t<int64_t, py::array::c_style | aligned | py::array::forcecast>;
    const Numbers numbers = present(Numbers::ensure(array));
    ko::TRCPtr curve = make_curve(static_cast<uint64_t>(array.shape(0)));
    for (uint64_t i = 0; i < curve->size; ++i) {
        const int64_t number = numbers.data()[i];
        if (number < 0 || number > UINT32_MAX) {
            throw py::value_error("entry " + std::to_string(i) + " is not between 0 and 4294967295");
        }
        curve->array[i] = static_cast<uint32_t>(number);
    }
    return Curve(std::move(curve));
}

py::array_t<uint32_t> array_of(const py::object &self) {
    const TRC &curve = self.cast<const Curve &>().curve();
    py::array_t<uint32_t> array(static_cast<py::ssize_t>(curve.size), curve.array, self);
    array.attr("setflags")(py::arg("write") = false);
    return array;
}

// The first curve is applied first.
Curve composed(const Curve &first, const Curve &second) {
    const TRC &inner = first.curve();
    const auto past = [&](uint32_t entry) { return entry >= second.curve().size; };
    if (std::any_of(inner.array, inner.array + inner.size, past)) {
        throw py::value_error("an entry of the first curve is past the end of the second");
    }
    KoStatusClear();
    ko::TRCPtr curve(KoTRCNewCompose(inner.array, second.curve().array, inner.size));
    ko::check(curve != nullptr && curve->array != nullptr, "the curves cannot be composed");
    return Curve(std::move(curve));
}

Curve resized(const Curve &curve, uint64_t size) {
    ko::TRCPtr copy = make_curve(curve.curve().size);
    ko::check(KoTRCSetArray(copy.get(), curve.curve().array, curve.curve().size) == KO_OK, "the curve cannot be copied");
    ko::check(KoTRCResize(copy.get(), size) == KO_OK, "the curve cannot be resized");
    return Curve(std::move(copy));
}

py::array_t<float> apply(const Curve &curve, const py::object &array) {
    Plane plane(plane_of(array));
    {
        const py::gil_scoped_release unlocked;
        KoStatusClear();
        ko::check(KoTRCApplyToRealImage(&curve.curve(), &plane.image()) == KO_OK, "the curve cannot be applied");
    }
    return view_of(std::move(plane));
}

Curve fitted(const py::object &input, const py::object &target, uint64_t size) {
    Plane from(plane_of(input));
    Plane to(plane_of(target));
    if (from.image().width != to.image().width || from.image().height != to.image().height) {
        throw py::value_error("the planes differ in size");
    }
    ko::TRCPtr curve = make_curve(size);
    const py::gil_scoped_release unlocked;
    RealImageLineIterator from_lines{};
    RealImageLineIterator to_lines{};
    KoRealImageLineIteratorInit(&from_lines, &from.image());
    KoRealImageLineIteratorInit(&to_lines, &to.image());
    ko::check(KoTRCCompute(curve.get(), &from_lines, &to_lines) == KO_OK && curve->array != nullptr,
              "the curve cannot be fitted");
    return Curve(std::move(curve));
}

} // namespace

void add_curve(py::module_ &module) {
    py::class_<Curve>(module, "Curve")
        .def(py::init(&from_array), py::arg("array"))
        .def_static("composed", composed, py::arg("first"), py::arg("second"))
        .def_static("fitted", fitted, py::arg("input"), py::arg("target"), py::arg("size"))
        .def("resized", resized, py::arg("size"))
        .def("apply", apply, py::arg("plane"))
        .def_property_readonly("array", array_of);
}

} // namespace binding
