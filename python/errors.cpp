#include <sys/stat.h>
#include <cerrno>
#include <cstring>

#include "module.h"
#include "piv_error.h"

namespace kelvane_py {

namespace {
PyObject* g_error = nullptr;  // kelvane.Error, alive as long as the module
}

void Raise(PyObject* type, int code, const std::string& message, const std::string& path) {
    py::object exception;
    if (!path.empty() && PyType_IsSubtype(reinterpret_cast<PyTypeObject*>(type),
                                          reinterpret_cast<PyTypeObject*>(PyExc_OSError))) {
        const int number = type == PyExc_FileNotFoundError ? ENOENT : EIO;
        exception = py::reinterpret_borrow<py::object>(type)(number, message, path);
    } else {
        exception = py::reinterpret_borrow<py::object>(type)(message);
    }
    exception.attr("code") = code;
    PyErr_SetObject(type, exception.ptr());
    throw py::error_already_set();
}

void RaiseError(int code, const std::string& message) {
    Raise(g_error, code, message);
}

void RaiseFileError(int code, const std::string& message, const std::string& path) {
    Raise(code == PIVerror::FILE_NOT_FOUND ? PyExc_FileNotFoundError : PyExc_OSError, code, message,
          path);
}

void RequireFile(const std::string& path, const char* what) {
    struct stat info;
    if (::stat(path.c_str(), &info) != 0)
        Raise(errno == ENOENT ? PyExc_FileNotFoundError : PyExc_OSError, PIVerror::FILE_NOT_FOUND,
              std::string("cannot read ") + what + " " + path + ": " + std::strerror(errno), path);
}

void RegisterErrors(py::module_& m) {
    static py::exception<std::exception> error(m, "Error");
    error.attr("__doc__") =
        "The library refused or failed: `code` is its PIVerror code, the message its text.";
    g_error = error.ptr();
}

}  // namespace kelvane_py
