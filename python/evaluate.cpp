// kelvane.evaluate: two arrays through the tool's evaluation, the GIL
// released while it runs, Ctrl+C honoured at its progress checks.
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <vector>

#include "module.h"
#include "piv_error.h"
#include "piv_messages.h"
#include "piv_util.h"
#include "tool_args.h"

namespace kelvane_py {

namespace {

// The library has one message hook for the process. A message goes to the
// log of the evaluation on whose thread it is said; a worker of the
// evaluator has none, and its message goes to every running evaluation,
// since which one it serves cannot be told.
std::mutex g_runningMutex;
std::vector<Session*> g_running;
thread_local Session* t_session = nullptr;

extern "C" void ToLog(const char* text) {
    // A line each: the library's status lines come without their end.
    std::string line = text;
    if (line.empty() || line.back() != '\n') line += '\n';
    if (Session* own = t_session) return own->appendLog(line);
    std::lock_guard<std::mutex> lock(g_runningMutex);
    if (g_running.empty()) std::fputs(line.c_str(), stderr);
    for (Session* s : g_running) s->appendLog(line);
}

class Running {
public:
    explicit Running(Session* s) : m_session(s) {
        t_session = s;
        std::lock_guard<std::mutex> lock(g_runningMutex);
        g_running.push_back(s);
    }
    ~Running() {
        t_session = nullptr;
        std::lock_guard<std::mutex> lock(g_runningMutex);
        g_running.erase(std::find(g_running.begin(), g_running.end(), m_session));
    }
    Running(const Running&) = delete;
    Running& operator=(const Running&) = delete;

private:
    Session* m_session;
};

// Ctrl+C: Python's handler only runs on the main thread, and only when
// asked while the GIL is held. The evaluator asks at its progress checks on
// the thread that called it; the exception is kept and raised on return.
class Interrupt {
public:
    Interrupt() {
        py::object threading = py::module_::import("threading");
        m_main = threading.attr("current_thread")().is(threading.attr("main_thread")());
        m_caller = std::this_thread::get_id();
    }
    ~Interrupt() {
        Py_XDECREF(m_type);
        Py_XDECREF(m_value);
        Py_XDECREF(m_trace);
    }
    Interrupt(const Interrupt&) = delete;
    Interrupt& operator=(const Interrupt&) = delete;

    bool check() {
        if (m_hit) return true;
        if (!m_main || std::this_thread::get_id() != m_caller) return false;
        py::gil_scoped_acquire gil;
        if (PyErr_CheckSignals() != 0) {
            PyErr_Fetch(&m_type, &m_value, &m_trace);
            m_hit = true;
        }
        return m_hit;
    }
    // With the GIL: raises what the handler raised, if it did.
    void raiseIfHit() {
        if (!m_hit) return;
        PyErr_Restore(m_type, m_value, m_trace);
        m_type = m_value = m_trace = nullptr;
        throw py::error_already_set();
    }

private:
    bool m_main = false, m_hit = false;
    std::thread::id m_caller;
    PyObject *m_type = nullptr, *m_value = nullptr, *m_trace = nullptr;
};

// A frame as the pair takes it: 2-D, of a type the library holds, rows of
// contiguous pixels at a positive stride (other layouts are copied first).
struct Frame {
    py::array array;
    int depth = 0;
    bool isFloat = false;
};

Frame CheckFrame(const py::handle& object, const char* name) {
    py::array array = py::array::ensure(object);
    if (!array)
        Raise(PyExc_ValueError, PIVerror::INVALID_POINTER,
              std::string("frame ") + name + " is not an array");
    if (array.ndim() != 2)
        Raise(PyExc_ValueError, PIVerror::BAD_DIMENSIONS,
              std::string("frame ") + name + " has " + std::to_string(array.ndim()) +
                  " dimensions: a frame is 2-D, rows by columns");
    const py::dtype type = array.dtype();
    Frame f;
    if (type.equal(py::dtype::of<uint8_t>()))
        f.depth = 8;
    else if (type.equal(py::dtype::of<uint16_t>()))
        f.depth = 16;
    else if (type.equal(py::dtype::of<float>()))
        f.depth = 32, f.isFloat = true;
    else
        Raise(PyExc_ValueError, PIVerror::IMAGE_TYPE_UNSUPPORTED,
              std::string("frame ") + name + " is of type " + Text(type) +
                  ": frames are uint8, uint16 or float32");
    if (array.shape(0) < 2 || array.shape(1) < 2)
        Raise(PyExc_ValueError, PIVerror::BAD_IMAGE_SIZE,
              std::string("frame ") + name + " is " + std::to_string(array.shape(1)) + "x" +
                  std::to_string(array.shape(0)) + " px: at least 2x2 is needed");
    if (array.shape(0) > INT32_MAX / 2 || array.shape(1) > INT32_MAX / 8)
        Raise(PyExc_ValueError, PIVerror::BAD_IMAGE_SIZE,
              std::string("frame ") + name + " is too large");
    if (array.strides(1) != array.itemsize() || array.strides(0) > INT32_MAX ||
        array.strides(0) < array.shape(1) * array.itemsize())
        array = py::module_::import("numpy").attr("ascontiguousarray")(array);
    f.array = array;
    return f;
}

std::string Shape(const py::array& a) {
    return std::to_string(a.shape(0)) + "x" + std::to_string(a.shape(1));
}

// The exception for an evaluation that did not give a field.
[[noreturn]] void RaiseFailure(const eval_tool::PairResult& r) {
    if (r.exit == tool::kUsage) Raise(PyExc_ValueError, r.code ? r.code : 4, r.message);
    RaiseError(r.code, r.message);
}

// A Parameters object is given to the tool as the parameter file it saves.
class TemporaryPar {
public:
    explicit TemporaryPar(PIV_Parameters& params) {
        const char* dir = std::getenv("TMPDIR");
        std::string name = std::string(dir && *dir ? dir : "/tmp") + "/kelvane-XXXXXX.par";
        std::vector<char> buffer(name.begin(), name.end());
        buffer.push_back('\0');
        const int fd = ::mkstemps(buffer.data(), 4);
        if (fd < 0)
            Raise(PyExc_OSError, PIVerror::FILE_CREATE_FAILED,
                  "cannot hand the parameters over: no temporary file in " + name, name);
        ::close(fd);
        m_path = buffer.data();
        if (!params.saveASCII(m_path.c_str()))
            RaiseFileError(
                PIVerror::FILE_WRITE_FAILED,
                std::string("cannot hand the parameters over: ") + params.error().getLastError(),
                m_path);
    }
    ~TemporaryPar() {
        if (!m_path.empty()) ::unlink(m_path.c_str());
    }
    TemporaryPar(const TemporaryPar&) = delete;
    TemporaryPar& operator=(const TemporaryPar&) = delete;
    const std::string& path() const { return m_path; }

private:
    std::string m_path;
};

}  // namespace

bool Session::prepare(std::string& error) {
    if (!eval_tool::ApplyParameters(options, params, calibration, error)) return false;
    evaluator.reset(new eval_tool::Evaluator(options, params, calibration));
    return evaluator->prepare(error);
}

PIV_Parameters& ParametersOf(const py::handle& object);

py::object Evaluate(const py::object& a, const py::object& b, const py::object& params,
                    const py::kwargs& overrides) {
    Frame fa = CheckFrame(a, "a"), fb = CheckFrame(b, "b");
    if (fa.array.shape(0) != fb.array.shape(0) || fa.array.shape(1) != fb.array.shape(1) ||
        fa.depth != fb.depth || fa.isFloat != fb.isFloat)
        Raise(PyExc_ValueError, PIVerror::IMAGE_SIZE_MISMATCH,
              "the frames differ: " + Shape(fa.array) + " " + Text(fa.array.dtype()) + " and " +
                  Shape(fb.array) + " " + Text(fb.array.dtype()));
    auto session = std::make_shared<Session>();
    eval_tool::Options& o = session->options;
    ParseOverrides(overrides, "evaluate", o);
    o.quiet = true;
    std::unique_ptr<TemporaryPar> par;
    if (py::isinstance<py::str>(params) || py::hasattr(params, "__fspath__")) {
        o.parFile = PathOf(params);
        RequireFile(o.parFile, "parameter file");
    } else if (!params.is_none()) {
        par.reset(new TemporaryPar(ParametersOf(params)));
        o.parFile = par->path();
    }
    std::string error;
    if (!session->prepare(error)) {
        // The parameter file, or with the evaluator made, the mask.
        const bool mask = session->evaluator != nullptr;
        const std::string& path = mask ? o.mask : o.parFile;
        RequireFile(path, mask ? "mask" : "parameter file");
        const int code = mask ? 0 : session->params.error().getLastErrorCode();
        RaiseFileError(code ? code : PIVerror::FILE_READ_FAILED, error, path);
    }
    par.reset();
    o.commandLine = "kelvane.evaluate(a, b";
    for (const auto& item : overrides)
        o.commandLine += ", " + Text(item.first) + "=" + py::repr(item.second).cast<std::string>();
    o.commandLine += ")";

    Interrupt interrupt;
    eval_tool::Evaluator& evaluator = *session->evaluator;
    evaluator.setStopCheck([&interrupt] { return interrupt.check(); });
    // The pair takes one row stride for both frames.
    if (fa.array.strides(0) != fb.array.strides(0)) {
        py::object packed = py::module_::import("numpy").attr("ascontiguousarray");
        fa.array = packed(fa.array);
        fb.array = packed(fb.array);
    }
    const int rows = int(fa.array.strides(0));
    bool loaded = false;
    std::string why;
    int code = 0;
    {
        py::gil_scoped_release release;
        Running running(session.get());
        PIV_ImagePair& pair = evaluator.pair();
        loaded = pair.loadFromBuffer(fa.array.data(), fb.array.data(), int(fa.array.shape(1)),
                                     int(fa.array.shape(0)), fa.depth, rows, 0, fa.isFloat);
        if (!loaded) {
            const PIVerror& e = pair.imgA()->error().getLastErrorCode() ? pair.imgA()->error()
                                                                        : pair.imgB()->error();
            why = eval_tool::Reason(e);
            code = e.getLastErrorCode();
        } else {
            session->outcome = evaluator.evaluateLoaded({"(array a)", 0}, {"(array b)", 0});
        }
        // The frames were copied in; the field is all a result keeps.
        pair.clear();
    }
    evaluator.setStopCheck(nullptr);
    interrupt.raiseIfHit();
    if (!loaded) Raise(PyExc_ValueError, code, "cannot take the frames: " + why);
    const eval_tool::PairResult& r = session->outcome;
    if (!r.warnings.empty()) session->appendLog(r.warnings);
    if (r.exit != tool::kOk) RaiseFailure(r);
    return py::cast(session);
}

void RegisterEvaluate(py::module_& m) {
    SetMessageHook(ToLog);
    m.def("evaluate", &Evaluate, py::arg("a"), py::arg("b"), py::arg("params") = py::none(),
          R"(Evaluates the pair of frames `a` and `b` as kelvane-eval does.

Frames are 2-D arrays, rows being image rows, of uint8, uint16 or float32,
each copied once. `params` is None (the tool's defaults, validation on), a
path of a .par or NetCDF file, or a Parameters object (taken as the
parameter file it saves). Keyword overrides are the tool's switches:
window, step, method ('single', 'multipass', 'multigrid'), passes, deform,
fit, mask (a file), correlation, scan_range, median, noise_floor, min_snr,
min_peak_ratio, max_displacement, validation_passes, no_replace,
validation=False. The GIL is released while it runs; Ctrl+C stops it at the
next progress check with KeyboardInterrupt.)");
    m.def(
        "set_threads",
        [](int n) {
            if (n < 0) Raise(PyExc_ValueError, PIVerror::BAD_RANGE, "threads: 0 (all) or more");
            PIV::SetMaxThreads(n);
            return PIV::MaxThreads();
        },
        py::arg("n"),
        "Threads of the evaluations started from now on (0: all the machine has); returns the "
        "count that applies.");
    m.def(
        "set_debug_level", [](int level) { SetDebugLevel(level); }, py::arg("level"),
        "The library's debug level: above 0 its reports and status lines go to the log of the "
        "evaluation that says them (0, the default, keeps warnings only).");
}

}  // namespace kelvane_py
