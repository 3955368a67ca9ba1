// Failures as Python's exceptions.
#ifndef KO_PYTHON_FAILURES_H
#define KO_PYTHON_FAILURES_H

#include <pybind11/pybind11.h>

namespace binding {

// Adds Error to a module. From then on the library's failures, and those of a model's gate, are raised as Error, with the
// library's status in the attribute `status`; exhausted memory is raised as MemoryError.
void add_failures(pybind11::module_ &module);

} // namespace binding

#endif
