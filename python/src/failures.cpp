#include "failures.h"

#include <exception>
#include <string>

#include "ko.hpp"
#include "kohost/gate.h"

namespace py = pybind11;

namespace binding {

namespace {

PyObject *error_class = nullptr; // lives as long as the process

// The library gives up an object for lack of memory alone: the arguments of every creation are checked before.
bool short_of_memory(int32_t status) { return status == KO_ERR_ALLOC || status == KO_ERR_CREATE_OBJECT; }

void raise(const char *text, int32_t status) {
    if (short_of_memory(status)) {
        PyErr_SetString(PyExc_MemoryError, text);
        return;
    }
    const py::str message = py::reinterpret_steal<py::str>(
        PyUnicode_DecodeUTF8(text, static_cast<Py_ssize_t>(std::char_traits<char>::length(text)), "replace"));
    const py::object error = py::handle(error_class)(message);
    error.attr("status") = status;
    PyErr_SetObject(error_class, error.ptr());
}

void translate(std::exception_ptr failure) {
    try {
        if (failure) {
            std::rethrow_exception(failure);
        }
    } catch (const ko::Error &error) {
        raise(error.what(), error.status());
    } catch (const kohost::GateError &error) {
        raise(error.what(), KO_ERR_READ_FILE);
    }
}

} // namespace

void add_failures(py::module_ &module) {
    error_class = PyErr_NewExceptionWithDoc("ko.Error",
                                            "A call of the library failed.\n\n"
                                            "The text is what the call was about, then the library's chain of messages, newest "
                                            "first.\n`status` is the library's status, a number of ko/error.h.",
                                            PyExc_RuntimeError, nullptr);
    if (error_class == nullptr) {
        throw py::error_already_set();
    }
    module.add_object("Error", py::reinterpret_borrow<py::object>(error_class));
    py::register_exception_translator(translate);
}

} // namespace binding
