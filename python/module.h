// What the parts of the module kelvane share: the evaluation a result
// keeps alive, and the exceptions that carry the library's codes.
#pragma once

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <memory>
#include <mutex>
#include <string>

#include "eval_options.h"
#include "eval_run.h"
#include "piv_params.h"

namespace kelvane_py {

namespace py = pybind11;

// One evaluation with all it needs; a Result and every view of its field
// hold it, so the field lives while any of them does.
struct Session {
    eval_tool::Options options;
    PIV_Parameters params;
    eval_tool::Calibration calibration;
    std::unique_ptr<eval_tool::Evaluator> evaluator;
    eval_tool::PairResult outcome;
    // The library's messages of the run; workers append without the GIL.
    std::mutex logMutex;
    std::string log;

    // An evaluator of `options` over the tool's defaults and its parameter
    // file; false with the reason in `error`.
    bool prepare(std::string& error);
    PIV_Data2D& field() { return evaluator->result(); }
    void appendLog(const std::string& text) {
        std::lock_guard<std::mutex> lock(logMutex);
        log += text;
    }
};

// str(object) and os.fspath(path) as C++ strings.
inline std::string Text(const py::handle& object) {
    return py::str(object);
}
inline std::string PathOf(const py::handle& path) {
    return Text(py::module_::import("os").attr("fspath")(path));
}

// Raises `type` (a Python exception class) with the message, its `code`
// attribute the library's code; `path` adds errno-style arguments for the
// OSError family. Never returns.
[[noreturn]] void Raise(PyObject* type, int code, const std::string& message,
                        const std::string& path = std::string());
// kelvane.Error.
[[noreturn]] void RaiseError(int code, const std::string& message);
// A file the library failed on: FileNotFoundError for code 28, else OSError.
[[noreturn]] void RaiseFileError(int code, const std::string& message, const std::string& path);
// FileNotFoundError when `path` is missing, else nothing.
void RequireFile(const std::string& path, const char* what);

// A read-only view of `rows` x `cols` elements at `data` with the strides
// given in bytes, keeping `owner` alive.
template <class T, class Owner>
py::array View(const std::shared_ptr<Owner>& owner, const void* data, ssize_t rows, ssize_t cols,
               ssize_t rowStride, ssize_t colStride) {
    py::capsule base(new std::shared_ptr<Owner>(owner),
                     [](void* p) { delete static_cast<std::shared_ptr<Owner>*>(p); });
    py::array_t<T> view({rows, cols}, {rowStride, colStride}, static_cast<const T*>(data), base);
    py::detail::array_proxy(view.ptr())->flags &= ~py::detail::npy_api::NPY_ARRAY_WRITEABLE_;
    return std::move(view);
}

// The tool's switches from keyword arguments: `window=32` is --window 32,
// `deform=False` is --no-deform. Raises ValueError naming a key it does not
// know or a value the tool refuses.
void ParseOverrides(const py::dict& overrides, const char* caller, eval_tool::Options& options);

void RegisterErrors(py::module_& m);
void RegisterResult(py::module_& m);
void RegisterParameters(py::module_& m);
void RegisterImages(py::module_& m);
void RegisterEvaluate(py::module_& m);

}  // namespace kelvane_py
