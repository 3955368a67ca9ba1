// The extension module of the Python package. Its parts take arrays and plain values; the package around it checks options and
// gives the results their names.
#include <pybind11/pybind11.h>

#include "failures.h"
#include "families.h"
#include "ko.hpp"

PYBIND11_MODULE(_ko, module) {
    // Never ended: a thread of the interpreter may be inside a call when the process ends.
    KoInit(nullptr, nullptr);
    module.attr("version") = KO_VERSION;
    binding::add_failures(module);
    binding::add_plane(module);
    binding::add_curve(module);
    binding::add_grid(module);
    binding::add_enhancement(module);
    binding::add_red_eyes(module);
    binding::add_histogram(module);
    binding::add_components(module);
}
