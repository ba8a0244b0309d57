// kelvane.Result: the field of an evaluation as read-only views, and its
// files; kelvane.load_field reads one back.
#include <cstddef>

#include "module.h"
#include "piv_data2d.h"
#include "piv_error.h"
#include "tool_args.h"

namespace kelvane_py {

namespace {

using SessionPtr = std::shared_ptr<Session>;

// One member of every node, as a grid of rows (y) by columns (x).
template <class T>
py::array Member(const SessionPtr& s, size_t offset) {
    PIV_Data2D& field = s->field();
    const DATA_GRID4D& grid = field.grid();
    const ssize_t node = sizeof(PIV_VECTOR);
    if (field.isNull()) return View<T>(s, nullptr, 0, 0, node, node);
    return View<T>(s, reinterpret_cast<const char*>(field.data()) + offset, grid.nodes.height,
                   grid.nodes.width, node * grid.nodes.width, node);
}

py::array Valid(const SessionPtr& s) {
    py::array flags = Member<uint8_t>(s, offsetof(PIV_VECTOR, flag));
    py::array_t<bool> valid({flags.shape(0), flags.shape(1)});
    auto out = valid.mutable_unchecked<2>();
    auto in = py::array_t<uint8_t>(flags).unchecked<2>();
    for (ssize_t j = 0; j < flags.shape(0); j++)
        for (ssize_t i = 0; i < flags.shape(1); i++) out(j, i) = eval_tool::KeptNode(in(j, i));
    return std::move(valid);
}

void Save(Session& s, const py::object& where, const std::string& format) {
    const std::string path = PathOf(where);
    std::string kind = format;
    if (kind.empty()) {
        const std::string ext = tool::Extension(path);
        if (ext != ".nc" && ext != ".dat" && ext != ".plt" && ext != ".txt")
            Raise(PyExc_ValueError, PIVerror::BAD_FILE_NAME,
                  "cannot write " + path + ": the extension must be .nc, .dat, .plt or .txt");
        kind = ext.substr(1);
    } else if (kind != "nc" && kind != "dat" && kind != "plt" && kind != "txt" && kind != "cf") {
        Raise(PyExc_ValueError, PIVerror::FILE_FORMAT_UNSUPPORTED,
              "unknown format \"" + kind + "\": the formats are nc, dat, plt, txt and cf");
    }
    std::string error;
    const std::string why = eval_tool::UnwritablePath(path);
    if (!why.empty())
        Raise(PyExc_OSError, PIVerror::FILE_CREATE_FAILED, "cannot write " + path + ": " + why,
              path);
    if (!s.evaluator->save(path, kind, error))
        RaiseFileError(s.field().error().getLastErrorCode() ? s.field().error().getLastErrorCode()
                                                            : PIVerror::FILE_WRITE_FAILED,
                       error, path);
}

py::object ToXarray(const SessionPtr& s) {
    py::object xr = py::module_::import("xarray");
    py::object x = Member<int32_t>(s, offsetof(PIV_VECTOR, ix));
    py::object y = Member<int32_t>(s, offsetof(PIV_VECTOR, iy));
    auto var = [](const py::object& values, const char* units, const char* about) {
        py::dict attrs;
        attrs["units"] = units;
        attrs["long_name"] = about;
        return py::make_tuple(py::make_tuple("y", "x"), values, attrs);
    };
    py::dict data;
    data["dx"] =
        var(Member<float>(s, offsetof(PIV_VECTOR, dx)), "pixel", "displacement along the columns");
    data["dy"] = var(Member<float>(s, offsetof(PIV_VECTOR, dy)), "pixel",
                     "displacement upwards, against the image rows");
    data["corr"] = var(Member<float>(s, offsetof(PIV_VECTOR, corr)), "1", "correlation peak");
    data["flags"] = var(Member<uint8_t>(s, offsetof(PIV_VECTOR, flag)), "1", "node status bits");
    data["valid"] = var(Valid(s), "1", "measured and kept by the validation");
    py::dict coords;
    coords["x"] = py::make_tuple(
        "x", x.attr("__getitem__")(0),
        py::dict(py::arg("units") = "pixel", py::arg("long_name") = "image column of the node"));
    coords["y"] =
        py::make_tuple("y", y.attr("T").attr("__getitem__")(0),
                       py::dict(py::arg("units") = "pixel",
                                py::arg("long_name") = "image row of the node, downwards"));
    py::dict attrs;
    attrs["y_convention"] = "y is the image row: it grows downwards";
    attrs["dy_convention"] = "dy counts upwards, against the image rows: a move down is negative";
    attrs["log"] = s->log;
    return xr.attr("Dataset")(data, coords, attrs);
}

}  // namespace

void RegisterResult(py::module_& m) {
    py::class_<Session, SessionPtr>(m, "Result", R"(The field of an evaluation.

x, y (node position in pixels, y the image row, growing downwards), dx, dy
(pixels, dy upwards), corr and flags are read-only views into the field,
rows by columns; each keeps the field alive. valid is a new array.)")
        .def_property_readonly(
            "x", [](const SessionPtr& s) { return Member<int32_t>(s, offsetof(PIV_VECTOR, ix)); })
        .def_property_readonly(
            "y", [](const SessionPtr& s) { return Member<int32_t>(s, offsetof(PIV_VECTOR, iy)); })
        .def_property_readonly(
            "dx", [](const SessionPtr& s) { return Member<float>(s, offsetof(PIV_VECTOR, dx)); })
        .def_property_readonly(
            "dy", [](const SessionPtr& s) { return Member<float>(s, offsetof(PIV_VECTOR, dy)); })
        .def_property_readonly(
            "corr",
            [](const SessionPtr& s) { return Member<float>(s, offsetof(PIV_VECTOR, corr)); })
        .def_property_readonly(
            "flags",
            [](const SessionPtr& s) { return Member<uint8_t>(s, offsetof(PIV_VECTOR, flag)); })
        .def_property_readonly("valid", &Valid)
        .def_property_readonly("log",
                               [](Session& s) {
                                   std::lock_guard<std::mutex> lock(s.logMutex);
                                   return s.log;
                               })
        .def_property_readonly("summary",
                               [](Session& s) {
                                   const eval_tool::PairResult& r = s.outcome;
                                   py::dict d;
                                   d["nodes"] = r.nodes;
                                   d["valid"] = r.valid;
                                   d["outliers"] = r.outliers;
                                   d["replaced"] = r.replaced;
                                   d["seconds"] = r.seconds;
                                   return d;
                               })
        .def("save", &Save, py::arg("path"), py::arg("format") = std::string(),
             "Writes the field as kelvane-eval -o does, the format by the extension (.nc, .dat, "
             ".plt, .txt), or format='cf' for CF-1.8 NetCDF.")
        .def("to_xarray", &ToXarray, "An xarray.Dataset of the field, dims y and x in grid order.");

    m.def(
        "load_field",
        [](const py::object& where) {
            const std::string path = PathOf(where);
            RequireFile(path, "field");
            auto s = std::make_shared<Session>();
            std::string error;
            if (!s->prepare(error)) RaiseError(PIVerror::BAD_PARAMETERS, error);
            PIV_Data2D& field = s->field();
            field.error().setErrorHandling(PIVerror::ERROR_QUIET);
            if (!field.load(path.c_str()) || field.isNull())
                RaiseFileError(
                    field.error().getLastErrorCode() ? field.error().getLastErrorCode()
                                                     : PIVerror::INVALID_FILE_CONTENT,
                    "cannot read field " + path + ": " + eval_tool::Reason(field.error()), path);
            return s;
        },
        py::arg("path"), "Reads a field file (NetCDF, Tecplot) into a Result.");
}

}  // namespace kelvane_py
