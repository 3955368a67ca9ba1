// What the parts of the extension add to its module.
#ifndef KO_PYTHON_FAMILIES_H
#define KO_PYTHON_FAMILIES_H

#include <pybind11/pybind11.h>

namespace binding {

void add_components(pybind11::module_ &module);
void add_curve(pybind11::module_ &module);
void add_enhancement(pybind11::module_ &module);
void add_grid(pybind11::module_ &module);
void add_histogram(pybind11::module_ &module);
void add_plane(pybind11::module_ &module);
void add_red_eyes(pybind11::module_ &module);

} // namespace binding

#endif
