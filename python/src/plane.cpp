// Planes of floats, and what the library makes of them: blurs, other sizes, bytes.
#include "plane.h"

#include <cmath>
#include <string>

#include "arrays.h"
#include "families.h"

namespace binding {

namespace {

// Runs a step that makes a new image from one, without the interpreter's lock.
template <class Step> Plane made_by(const char *what, Step step) {
    RealImage *result = nullptr;
    const py::gil_scoped_release unlocked;
    KoStatusClear();
    const int32_t status = step(&result);
    ko::RealImagePtr owner(result);
    ko::check(status == KO_OK && owner != nullptr, what);
    return Plane(std::move(owner));
}

// Throws value_error if a side has no pixels, or too many, once multiplied by a factor.
void check_scaled(const RealImage &image, double factor) {
    const double width = std::floor(static_cast<double>(image.width) * factor);
    const double height = std::floor(static_cast<double>(image.height) * factor);
    if (width > static_cast<double>(largest_area) || height > static_cast<double>(largest_area)) {
        throw py::value_error("a factor of " + std::to_string(factor) + " makes too large a plane");
    }
    check_sides(static_cast<py::ssize_t>(width), static_cast<py::ssize_t>(height));
}

void check_factor(float factor) {
    if (!(factor >= 1.0f && std::isfinite(factor))) {
        throw py::value_error("a factor is a number of at least 1");
    }
}

Plane upsampled(const Plane &plane, float factor) {
    check_factor(factor);
    check_scaled(plane.image(), static_cast<double>(factor));
    return made_by("the plane cannot be enlarged",
                   [&](RealImage **result) { return KoRealImageUpsample(&plane.image(), factor, result); });
}

Plane downsampled(const Plane &plane, float factor) {
    check_factor(factor);
    check_scaled(plane.image(), 1.0 / static_cast<double>(factor));
    return made_by("the plane cannot be reduced",
                   [&](RealImage **result) { return KoRealImageDownsample(&plane.image(), factor, result); });
}

Plane resized(const Plane &plane, py::ssize_t width, py::ssize_t height) {
    check_sides(width, height);
    return made_by("the plane cannot be resized", [&](RealImage **result) {
        return KoRealImageResize(&plane.image(), static_cast<uint64_t>(width), static_cast<uint64_t>(height), result);
    });
}

Plane transposed(const Plane &plane) {
    return made_by("the plane cannot be transposed",
                   [&](RealImage **result) { return KoRealImageTranspose(&plane.image(), result); });
}

Plane bilateral(const Plane &plane, uint64_t levels) {
    return made_by("the plane cannot be filtered",
                   [&](RealImage **result) { return KoFilterBLFApplyToRealImage(&plane.image(), result, levels); });
}

py::tuple extremes(const Plane &plane) {
    float minimum = 0.0f;
    float maximum = 0.0f;
    {
        const py::gil_scoped_release unlocked;
        KoRealImageGetMinMax(&plane.image(), &minimum, &maximum);
    }
    return py::make_tuple(minimum, maximum);
}

Bytes to_bytes(const Plane &plane) {
    const RealImage &image = plane.image();
    Bytes bytes({image.height, image.width});
    uint8_t *const room = bytes.mutable_data();
    const py::gil_scoped_release unlocked;
    KoRealImageToByteArray(&image, room, 0, image.height, 0);
    return bytes;
}

// ---- Gaussian kernels

// Standard deviations and truncations are checked by the package, so that a kernel has a sensible width.
ko::KernelGaussianPtr make_kernel(float sigma, float truncation, bool recursive) {
    KoStatusClear();
    ko::KernelGaussianPtr kernel(KoKernelGaussianNewTune(sigma, truncation, recursive ? 1 : 0));
    ko::check(kernel != nullptr, "the kernel cannot be made");
    return kernel;
}

Plane blurred(const KernelGaussian &kernel, const Plane &plane) {
    return made_by("the plane cannot be blurred",
                   [&](RealImage **result) { return KoKernelGaussianConvolution(&kernel, &plane.image(), result); });
}

py::array_t<float> coefficients(const KernelGaussian &kernel) {
    return py::array_t<float>(static_cast<py::ssize_t>(kernel.width), kernel.coefficients);
}

} // namespace

Plane::Plane(ko::RealImagePtr image) : image_(std::move(image)) {
    ko::check(image_ != nullptr, "the plane cannot be made");
    if (image_->width == 0 || image_->height == 0) {
        throw py::value_error("the plane has no pixels");
    }
}

py::array_t<float> view_of(const py::object &self) {
    const RealImage &image = self.cast<const Plane &>().image();
    const uint64_t row_bytes = (image.width + image.padding) * sizeof(float);
    return {{image.height, image.width}, {row_bytes, uint64_t{sizeof(float)}}, image.rows[0], self};
}

py::array_t<float> view_of(Plane plane) { return view_of(py::cast(std::move(plane))); }

void add_plane(py::module_ &module) {
    py::class_<Plane>(module, "Plane")
        .def(py::init([](const py::object &array) {
                 KoStatusClear();
                 return Plane(plane_of(array));
             }),
             py::arg("array"))
        .def_property_readonly("array", [](const py::object &self) { return view_of(self); })
        .def("upsampled", upsampled, py::arg("factor"))
        .def("downsampled", downsampled, py::arg("factor"))
        .def("resized", resized, py::arg("width"), py::arg("height"))
        .def("transposed", transposed)
        .def("bilateral", bilateral, py::arg("levels"))
        .def("extremes", extremes)
        .def("to_bytes", to_bytes);
    py::class_<KernelGaussian, ko::KernelGaussianPtr>(module, "Kernel")
        .def(py::init(&make_kernel), py::arg("sigma"), py::arg("truncation"), py::arg("recursive"))
        .def("blurred", blurred, py::arg("plane"))
        .def_property_readonly("coefficients", coefficients);
}

} // namespace binding
