// kelvane.Parameters: the tool's parameters (defaults, a .par file, the
// switches), read and set by the names of its switches.
#include <cstring>
#include <vector>

#include "module.h"
#include "piv_enums.h"
#include "piv_error.h"

namespace kelvane_py {

namespace {

// Keyword, switch, and how a value becomes the switch: kValue "--key V",
// kSwitch "--key" for True (and `negated` for False), kOff the switch for
// False only.
enum Form { kValue, kSwitch, kOff };
struct Override {
    const char* key;
    const char* option;
    Form form;
    const char* negated;
};
const Override kOverrides[] = {
    {"window", "--window", kValue, nullptr},
    {"step", "--step", kValue, nullptr},
    {"method", "--method", kValue, nullptr},
    {"passes", "--passes", kValue, nullptr},
    {"deform", "--deform", kSwitch, "--no-deform"},
    {"fit", "--fit", kValue, nullptr},
    {"mask", "--mask", kValue, nullptr},
    {"correlation", "--correlation", kValue, nullptr},
    {"scan_range", "--scan-range", kValue, nullptr},
    {"median", "--median", kValue, nullptr},
    {"noise_floor", "--noise-floor", kValue, nullptr},
    {"min_snr", "--min-snr", kValue, nullptr},
    {"min_peak_ratio", "--min-peak-ratio", kValue, nullptr},
    {"max_displacement", "--max-displacement", kValue, nullptr},
    {"validation_passes", "--validation-passes", kValue, nullptr},
    {"no_replace", "--no-replace", kSwitch, nullptr},
    {"validation", "--no-validation", kOff, nullptr},
};

const char* const kMethods[] = {"single", "multipass", "multigrid"};

std::string Known() {
    std::string list;
    for (const Override& o : kOverrides) list += std::string(list.empty() ? "" : ", ") + o.key;
    return list;
}

struct ParametersObject {
    PIV_Parameters params;
};

// The evaluation keys of a Parameters object: those an evaluation reads back.
py::object Get(PIV_Parameters& params, const std::string& key) {
    const PIVEVAL_CFG cfg = params.pivEvalCfg();
    if (key == "window") return py::int_(cfg.SampleSize.width);
    if (key == "step") return py::int_(cfg.grid.step.width);
    if (key == "method")
        return cfg.Method >= 0 && cfg.Method < 3 ? py::object(py::str(kMethods[cfg.Method]))
                                                 : py::object(py::int_(cfg.Method));
    if (key == "passes") return py::int_(cfg.Passes);
    if (key == "deform") return py::bool_(cfg.ImageMapping2D.Mode != PIV::DEFORM_DISABLED);
    if (key == "fit") return py::int_(cfg.Type);
    Raise(PyExc_KeyError, PIVerror::BAD_PARAMETERS,
          "unknown key " + key + ": the keys are window, step, method, passes, deform, fit");
}

}  // namespace

void ParseOverrides(const py::dict& overrides, const char* caller, eval_tool::Options& options) {
    // Through the tool's own parser, so that ranges and words are its own;
    // the file names and -o only complete its command line.
    std::vector<std::string> args{"kelvane"};
    for (const auto& item : overrides) {
        const std::string key = py::str(item.first);
        const Override* found = nullptr;
        for (const Override& o : kOverrides)
            if (key == o.key) found = &o;
        if (!found)
            Raise(PyExc_ValueError, PIVerror::BAD_PARAMETERS,
                  std::string(caller) + ": unknown override " + key + " (the overrides are " +
                      Known() + ")");
        const py::handle value = item.second;
        if (found->form == kValue) {
            if (py::isinstance<py::bool_>(value))
                Raise(PyExc_ValueError, PIVerror::BAD_PARAMETERS,
                      std::string(caller) + ": " + key + " takes a number or a word, not " +
                          py::repr(value).cast<std::string>());
            args.push_back(found->option);
            args.push_back(py::str(value));
            continue;
        }
        if (!py::isinstance<py::bool_>(value))
            Raise(PyExc_ValueError, PIVerror::BAD_PARAMETERS,
                  std::string(caller) + ": " + key + " takes True or False, not " +
                      py::repr(value).cast<std::string>());
        const bool on = value.cast<bool>();
        if (found->form == kSwitch && on) args.push_back(found->option);
        if (found->form == kSwitch && !on && found->negated) args.push_back(found->negated);
        if (found->form == kOff && !on) args.push_back(found->option);
    }
    args.insert(args.end(), {"-o", "result.nc", "a"});
    std::vector<char*> argv;
    for (std::string& a : args) argv.push_back(&a[0]);
    std::string error;
    if (eval_tool::ParseOptions(int(argv.size()), argv.data(), options, error) != 0)
        Raise(PyExc_ValueError, PIVerror::BAD_PARAMETERS, std::string(caller) + ": " + error);
}

PIV_Parameters& ParametersOf(const py::handle& object) {
    if (!py::isinstance<ParametersObject>(object))
        Raise(PyExc_ValueError, PIVerror::BAD_PARAMETERS,
              "params: None, a file name or a kelvane.Parameters, not " +
                  py::repr(object).cast<std::string>());
    return object.cast<ParametersObject&>().params;
}

void RegisterParameters(py::module_& m) {
    py::class_<ParametersObject>(m, "Parameters", R"(The parameters of an evaluation.

Parameters() holds the defaults of kelvane-eval; Parameters.load(path) those
with a .par (or NetCDF) file read over them. Items are read and set by the
names of evaluate's overrides (window, step, method, passes, deform, fit).
Given to evaluate, the object counts as a parameter file: its validation
runs as written.)")
        .def(py::init([] {
            auto p = std::make_unique<ParametersObject>();
            eval_tool::Calibration calibration;
            std::string error;
            eval_tool::ApplyParameters(eval_tool::Options(), p->params, calibration, error);
            return p;
        }))
        .def_static(
            "load",
            [](const py::object& path) {
                eval_tool::Options o;
                o.parFile = PathOf(path);
                RequireFile(o.parFile, "parameter file");
                auto p = std::make_unique<ParametersObject>();
                eval_tool::Calibration calibration;
                std::string error;
                if (!eval_tool::ApplyParameters(o, p->params, calibration, error))
                    RaiseFileError(p->params.error().getLastErrorCode(), error, o.parFile);
                return p;
            },
            py::arg("path"))
        .def(
            "save",
            [](ParametersObject& self, const py::object& path) {
                const std::string name = PathOf(path);
                const std::string why = eval_tool::UnwritablePath(name);
                if (!why.empty())
                    Raise(PyExc_OSError, PIVerror::FILE_CREATE_FAILED,
                          "cannot write " + name + ": " + why, name);
                if (!self.params.saveASCII(name.c_str()))
                    RaiseFileError(
                        self.params.error().getLastErrorCode(),
                        "cannot write " + name + ": " + eval_tool::Reason(self.params.error()),
                        name);
            },
            py::arg("path"), "Writes a .par file.")
        .def("__getitem__",
             [](ParametersObject& self, const std::string& key) { return Get(self.params, key); })
        .def("__setitem__",
             [](ParametersObject& self, const std::string& key, const py::object& value) {
                 Get(self.params, key);  // a key it cannot read back is refused
                 py::dict one;
                 one[py::str(key)] = value;
                 eval_tool::Options o;
                 ParseOverrides(one, "Parameters", o);
                 eval_tool::ApplySwitches(o, self.params);
             })
        .def("keys", [](ParametersObject&) {
            return py::make_tuple("window", "step", "method", "passes", "deform", "fit");
        });
}

}  // namespace kelvane_py
