// Histograms of planes. Threads that use one take turns.
#include <mutex>
#include <string>

#include "arrays.h"
#include "curve.h"
#include "families.h"
#include "plane.h"

namespace binding {

namespace {

class Counts {
  public:
    // Size and range are checked by the package.
    Counts(uint32_t size, float minimum, float maximum) {
        KoStatusClear();
        histogram_.reset(KoHistogramNew(size, minimum, maximum));
        ko::check(histogram_ != nullptr && histogram_->values != nullptr, "the histogram cannot be made");
    }

    void count(const py::object &array) {
        Plane plane(plane_of(array));
        const py::gil_scoped_release unlocked;
        const std::lock_guard<std::mutex> turn(turn_);
        KoStatusClear();
        ko::check(KoHistogramCompute(histogram_.get(), &plane.image()) == KO_OK, "the plane cannot be counted");
    }

    // Curves are looked at by their size alone: an entry past the end counts into the last bin.
    void push(const Curve &curve) {
        if (curve.curve().size != histogram_->size) {
            throw py::value_error("a curve of " + std::to_string(curve.curve().size) + " entries for " +
                                  std::to_string(histogram_->size) + " bins");
        }
        const py::gil_scoped_release unlocked;
        const std::lock_guard<std::mutex> turn(turn_);
        KoStatusClear();
        ko::check(KoHistogramApplyTRC(histogram_.get(), &curve.curve()) == KO_OK, "the curve cannot be applied");
    }

    py::array_t<uint32_t> values() {
        py::array_t<uint32_t> values(static_cast<py::ssize_t>(histogram_->size));
        uint32_t *const room = values.mutable_data();
        const py::gil_scoped_release unlocked;
        const std::lock_guard<std::mutex> turn(turn_);
        std::copy_n(histogram_->values, histogram_->size, room);
        return values;
    }

    float value_at(float fraction) {
        const py::gil_scoped_release unlocked;
        const std::lock_guard<std::mutex> turn(turn_);
        return KoHistogramGetValueAtPercentile(histogram_.get(), fraction);
    }

    uint32_t pixels() {
        const py::gil_scoped_release unlocked;
        const std::lock_guard<std::mutex> turn(turn_);
        return KoHistogramGetNumPixels(histogram_.get());
    }

  private:
    ko::HistogramPtr histogram_;
    std::mutex turn_; // taken without the interpreter's lock alone
};

} // namespace

void add_histogram(py::module_ &module) {
    py::class_<Counts>(module, "Counts")
        .def(py::init<uint32_t, float, float>(), py::arg("size"), py::arg("minimum"), py::arg("maximum"))
        .def("count", &Counts::count, py::arg("plane"))
        .def("push", &Counts::push, py::arg("curve"))
        .def("value_at", &Counts::value_at, py::arg("fraction"))
        .def_property_readonly("pixels", &Counts::pixels)
        .def_property_readonly("values", &Counts::values);
}

} // namespace binding
