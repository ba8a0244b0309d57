// Writing vector fields as NetCDF: the native layout with its parameters and
// the PIVNET2 layout, both through a temporary file beside the target.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <ctime>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "piv_data2d.h"
#include "piv_data2d_export.h"
#include "piv_file.h"
#include "piv_messages.h"
#include "piv_ncfile.h"
#include "piv_util.h"

using namespace PIV::Export;

namespace {

using Value = std::function<double(const PIV_VECTOR&, int)>;

struct Span {
    int t0, t1;  // steps written, inclusive
    bool timeDim;
};

Span _span(int timeStep, int steps) {
    if (timeStep < 0) return {0, steps - 1, steps >= 2};
    const int t = std::min(timeStep, steps - 1);
    return {t, t, false};
}

void _check(bool ok, PIVerror::ErrorType code) {
    if (!ok) throw code;
}

// One variable over (time) depth height width (components), its values
// gathered node by node with the rows flipped: file row 0 is the last row of
// the field, the bottom of the image. The values wait in memory until
// flush(): a classic file that goes back to define mode after data were
// written moves all of them to make room in the header, once per variable.
class VarWriter {
public:
    VarWriter(PIV_NcFile& file, const PIV_DataBase& data, const Span& span, bool flipRows)
        : m_file(file), m_data(data), m_span(span), m_flip(flipRows) {}

    std::vector<const NcDim*> dims;  // without the component dimension

    NcVar* create(const char* name, NcType type, const NcDim* extra) {
        std::vector<const NcDim*> d = dims;
        if (extra) d.push_back(extra);
        NcVar* var = m_file.add_var(name, type, int(d.size()), d.data());
        if (!var || !var->is_valid()) {
            m_file.error().setMessage("variable could not be created: '%s'", name);
            throw PIVerror::NETCDF_CREATE_VAR;
        }
        return var;
    }

    template <typename Fn>
    void put(NcVar* var, NcType type, int comps, const Fn& value) {
        const DATA_GRID4D& g = m_data.grid();
        const int nx = g.nodes.width, ny = g.nodes.height, nz = std::max(1, g.nodes.depth);
        const long perStep = long(nx) * ny * nz;
        const long count = perStep * (m_span.t1 - m_span.t0 + 1) * comps;
        m_pending.push_back(Pending{var, type, {}, {}, {}});
        Pending& p = m_pending.back();
        if (type == ncByte)
            p.bytes.resize(size_t(count));
        else if (type == ncInt)
            p.ints.resize(size_t(count));
        else
            p.floats.resize(size_t(count));
        long n = 0;
        const PIV_VECTOR* all = m_data.data();
        for (int t = m_span.t0; t <= m_span.t1; t++)
            for (int k = 0; k < nz; k++)
                for (int r = 0; r < ny; r++) {
                    const int row = m_flip ? ny - 1 - r : r;
                    for (int i = 0; i < nx; i++) {
                        const PIV_VECTOR& v =
                            all[perStep * t + long(nx) * (row + long(ny) * k) + i];
                        for (int c = 0; c < comps; c++, n++) {
                            const double x = value(v, c);
                            if (type == ncByte)
                                p.bytes[size_t(n)] = static_cast<ncbyte>(int(x));
                            else if (type == ncInt)
                                p.ints[size_t(n)] = int(x);
                            else
                                p.floats[size_t(n)] = float(x);
                        }
                    }
                }
    }

    template <typename Fn>
    NcVar* write(const char* name, NcType type, const NcDim* extra, int comps, const Fn& value) {
        NcVar* var = create(name, type, extra);
        put(var, type, comps, value);
        return var;
    }

    // Writes the values put so far, in order; the file is in data mode after.
    void flush() {
        for (Pending& p : m_pending) {
            std::unique_ptr<long[]> edges(p.var->edges());
            NcBool ok = 0;
            if (p.type == ncByte)
                ok = p.var->put(p.bytes.data(), edges.get());
            else if (p.type == ncInt)
                ok = p.var->put(p.ints.data(), edges.get());
            else
                ok = p.var->put(p.floats.data(), edges.get());
            DebugPrintExt(3, " wrote variable: %s  (retVal: %d)", p.var->name(), int(ok));
            if (!ok) {
                m_file.error().setMessage("variable could not be written: '%s'", p.var->name());
                throw PIVerror::NETCDF_WRITE_VAR;
            }
        }
        m_pending.clear();
    }

private:
    struct Pending {
        NcVar* var;
        NcType type;
        std::vector<ncbyte> bytes;
        std::vector<int> ints;
        std::vector<float> floats;
    };
    PIV_NcFile& m_file;
    const PIV_DataBase& m_data;
    Span m_span;
    bool m_flip;
    std::vector<Pending> m_pending;
};

// Everything goes into one temporary beside the target, renamed over it
// once complete; the temporary is removed whatever goes wrong.
template <class Fn>
bool _saveAtomic(PIVerror& error, const char* target, const char* where, Fn write) {
    PIV::TempFile tmp(target);
    if (tmp.path().empty() || !tmp.closeStream()) {
        error.setMessage("Trouble writing netCDF data to: '%s'", target);
        error.handleError(PIVerror::FILE_WRITE_FAILED, where);
        return false;
    }
    bool written = false;
    // The variables of a large field are staged in memory before they go out.
    if (!PIV::Guarded(error, where, [&] { written = write(tmp.path().c_str()); }) || !written)
        return false;
    if (!tmp.commit(target)) {
        error.setMessage("Trouble writing netCDF data to: '%s'", target);
        error.handleError(PIVerror::FILE_WRITE_FAILED, where);
        return false;
    }
    return true;
}

// The caller's texts go after the file's own attributes. A name the file
// already has keeps the file's value: its readers rely on it. Returns the
// name the library refused, or null.
const std::string* _refusedAttribute(PIV_NcFile& file, const FileAttributes& attributes) {
    for (const auto& [name, text] : attributes) {
        if (std::unique_ptr<NcAtt>(file.get_att(name.c_str()))) {
            PrintWarning("saveNetCDF() - '%s' is an attribute of the file itself; not replaced",
                         name.c_str());
            continue;
        }
        if (!file.add_att(name.c_str(), text.c_str())) return &name;
    }
    return nullptr;
}

}  // namespace

bool PIV_DataBase::saveNetCDF(const char* fileName, int timeStep) {
    if (!fileName || !*fileName) {
        m_error.handleError(PIVerror::BAD_FILE_NAME, "saveNetCDF()");
        return false;
    }
    if (isNull()) {
        m_error.handleError(PIVerror::DATA_IS_NULL, "saveNetCDF()");
        return false;
    }
    if (!(m_dataType & PIV::DATA_DISPLACEMENT)) {
        DebugPrintExt(2, "ERROR: data doesn't contain displacement data");
        return false;
    }
    return _saveAtomic(m_error, fileName, "saveNetCDF()", [&](const char* tmp) {
        PIV_NcFile file(tmp, MyNcFile::WRITE, NcFile::Replace);
        if (!file.is_valid()) {
            m_error.setMessage("Trouble writing netCDF data to: '%s'", fileName);
            m_error.handleError(PIVerror::FILE_WRITE_FAILED, "saveNetCDF()");
            return false;
        }
        try {
            writeNetCDF(file, fileName, timeStep);
        } catch (PIVerror::ErrorType code) {
            m_error.setMessage("%s", file.error().message());
            m_error.handleError(code, "saveNetCDF()");
            return false;
        }
        // The parameters follow, into the same temporary: they write the
        // grid distances again, as a parameter file has them. The caller's
        // attributes come last.
        PIV_PARAMETERS params = m_params;
        const std::string* refused = nullptr;
        if (PIV::SerializeParametersNc(file, &params, 0) &&
            !(refused = _refusedAttribute(file, m_fileAttributes)) && file.close())
            return true;
        if (refused)
            m_error.setMessage("attribute could not be written: '%s'", refused->c_str());
        else
            m_error.setMessage("Trouble writing netCDF data to: '%s'", fileName);
        m_error.handleError(PIVerror::FILE_WRITE_FAILED, "saveNetCDF()");
        return false;
    });
}

void PIV_DataBase::writeNetCDF(PIV_NcFile& file, const char* longName, int timeStep) {
    const DATA_GRID4D& g = m_grid;
    const int nx = g.nodes.width, ny = g.nodes.height, nz = std::max(1, g.nodes.depth);
    const Span span = _span(timeStep, m_grid.timeSteps);
    const SIZE3D image = g.imageSize;
    const std::string date = PIV::CreationDate();

    file.add_att("file_content", "Kelvane Data");
    file.add_att("creation_date", date.c_str());
    file.add_att("software", PIV::SoftwareName());
    file.add_att("long_name", longName);
    if (image.width > 0) file.add_att("image_cols", int(image.width));
    if (image.height > 0) file.add_att("image_rows", int(image.height));
    if (image.depth > 0) file.add_att("image_depth", int(image.depth));
    if (image.width <= 0 || image.height < 0)
        DebugPrintExt(2, "save() - Warning: missing image size!");
    file.add_att("image_info", "image origin (0,0) at lower-left");
    const PIV_VECTOR* v = m_vectors.data();
    const PIV_VECTOR& origin = v[long(ny - 1) * nx];
    const bool deep = image.depth > 1;
    file.add_att("ev_origin_of_evaluation_x", int(origin.ix));
    file.add_att("ev_origin_of_evaluation_y", int(image.height - origin.iy));
    if (deep) file.add_att("ev_origin_of_evaluation_z", int(origin.iz));
    file.add_att("ev_origin_of_evaluation_units", "Pixel");
    const float originValues[3] = {float(origin.ix), float(image.height - origin.iy),
                                   float(origin.iz)};
    file.add_att("ev_origin_of_evaluation", deep ? 3 : 2, originValues);

    const NcDim* time = nullptr;
    if (span.timeDim) time = file.add_dim("data_array_time", span.t1 - span.t0 + 1);
    const NcDim* depth = file.add_dim("data_array_depth", nz);
    const NcDim* height = file.add_dim("data_array_height", ny);
    const NcDim* width = file.add_dim("data_array_width", nx);
    const int comps = is3C() ? 3 : 2;
    const NcDim* vecDims = file.add_dim("vec_dims", comps);
    const NcDim* peakComps = file.add_dim("data_array_peakcomps", 3);
    const NcDim* coordsPixel = m_sampledOffGrid ? file.add_dim("coords_pixel", 2) : nullptr;
    _check(depth && height && width && vecDims && peakComps, PIVerror::NETCDF_CREATE_VAR);

    VarWriter w(file, *this, span, true);
    if (time) w.dims.push_back(time);
    w.dims.push_back(depth);
    w.dims.push_back(height);
    w.dims.push_back(width);

    NcVar* tv = nullptr;
    if (time) {
        tv = file.add_var("time", ncFloat, time);
        _check(tv && tv->is_valid(), PIVerror::NETCDF_CREATE_VAR);
        tv->add_att("long_name", "time axis in [seconds]");
    }

    // Corners of the grid in pixels, y from the bottom of the image; the far
    // corner follows the spacing of the first nodes on long axes.
    const auto corner = [](int n, double first, double second, double last, double fallback,
                           double& spacing) {
        spacing = n > 1 ? second - first : fallback;
        return n > 3 ? first + (n - 1) * spacing : last;
    };
    const double minX = v[0].ix;
    const double minY = image.height - origin.iy;
    const double minZ = v[0].iz;
    double spX = 0, spY = 0, spZ = 0;
    const double maxX = corner(nx, minX, nx > 1 ? v[1].ix : minX, v[nx - 1].ix, g.step.width, spX);
    const double maxY = corner(ny, minY, ny > 1 ? image.height - v[long(ny - 2) * nx].iy : minY,
                               image.height - v[0].iy, g.step.height, spY);
    const double maxZ = corner(nz, minZ, nz > 1 ? v[long(nx) * ny].iz : minZ,
                               v[long(nx) * ny * (nz - 1)].iz, g.step.depth, spZ);
    file.add_att("ev_IS_grid_distance_x", int(std::lround(spX)));
    file.add_att("ev_IS_grid_distance_y", int(std::lround(spY)));
    file.add_att("ev_IS_grid_distance_z", int(std::lround(spZ)));
    const double coordMin[3] = {minX, minY, minZ};
    const double coordMax[3] = {maxX, maxY, maxZ};

    NcVar* piv = w.create("piv_data", ncFloat, vecDims);
    piv->add_att("long_name", "raw displacement data");
    piv->add_att("units", "pixel");
    piv->add_att("coord_units", "pixel");
    if (!span.timeDim) {
        piv->add_att("time_step_idx", span.t0);
        piv->add_att("time_step", timeAt(span.t0));
    }
    if (m_outputCfg.Title[0]) piv->add_att("title", m_outputCfg.Title);
    if (m_dataType & PIV::DATA_RMS) {
        piv->add_att("data_type", "RMS_data");
        const PIV_VECTOR& mean = vectorMean();
        const PIV_VECTOR& rms = vectorStdDev();
        piv->add_att("mean_dx", mean.dx);
        piv->add_att("mean_dy", mean.dy);
        if (comps == 3) piv->add_att("mean_dz", mean.dz);
        piv->add_att("rms_dx", rms.dx);
        piv->add_att("rms_dy", rms.dy);
        if (comps == 3) piv->add_att("rms_dz", rms.dz);
    }
    piv->add_att("coord_min", 3, coordMin);
    piv->add_att("coord_max", 3, coordMax);
    w.put(piv, ncFloat, comps, [](const PIV_VECTOR& x, int c) { return NodeValue(VV_DX + c, x); });

    if (coordsPixel)
        w.write("piv_coords_pixel", ncFloat, coordsPixel, 2,
                [](const PIV_VECTOR& x, int c) { return c == 0 ? double(x.ix) : double(x.iy); });
    w.write("piv_flags", ncByte, nullptr, 1, [](const PIV_VECTOR& x, int) {
         return x.flag;
     })->add_att("long_name", "validation flags");
    if (haveMultiplePeaks() && m_numberOfPeaks > 1) {
        file.add_att("number_of_peaks", m_numberOfPeaks);
        for (int p = 0; p < std::min(m_numberOfPeaks, 3); p++) {
            char name[32];
            std::snprintf(name, sizeof(name), "piv_peak%d", p + 1);
            w.write(name, ncFloat, peakComps, 3, [p](const PIV_VECTOR& x, int c) {
                 return PIV::PeakComponent(x.peak[p], c);
             })->add_att("long_name", "shift_x shift_y corr_coeff");
        }
    }
    w.write("piv_correlation_coeff", ncFloat, nullptr, 1, [](const PIV_VECTOR& x, int) {
         return x.corr;
     })->add_att("long_name", "maximum correlation coefficient");
    w.write("piv_snr_data", ncFloat, nullptr, 1, [](const PIV_VECTOR& x, int) {
         return x.snr;
     })->add_att("long_name", "signal-to-noise ratio of peak correlation");
    if (m_3CResiduals)
        w.write("piv_3c_residuals", ncFloat, nullptr, 1, [](const PIV_VECTOR& x, int) {
             return x.residual;
         })->add_att("long_name", "residuals from 3-C stereo reconstruction");
    if (m_statisticsData) {
        NcVar* count = w.write("vector_count", ncInt, nullptr, 1,
                               [](const PIV_VECTOR& x, int) { return x.count; });
        count->add_att("long_name", "valid vector count");
        count->add_att("unit", "");
    }

    // Velocity and speckle shifts carry their grid in physical units.
    const auto physical = [&](NcVar* var, const char* longN, const char* units) {
        var->add_att("long_name", longN);
        var->add_att("units", units);
        var->add_att("coord_units", gridUnit());
        if (m_outputCfg.Title[0]) var->add_att("title", m_outputCfg.Title);
        double lo[3] = {v[0].x, v[0].y, v[0].z}, hi[3] = {v[0].x, v[0].y, v[0].z};
        for (unsigned long k = 0; k < m_nodeCount / unsigned(m_grid.timeSteps); k++) {
            const float p[3] = {v[k].x, v[k].y, v[k].z};
            for (int a = 0; a < 3; a++) {
                lo[a] = std::min(lo[a], double(p[a]));
                hi[a] = std::max(hi[a], double(p[a]));
            }
        }
        var->add_att("coord_min", 3, lo);
        var->add_att("coord_max", 3, hi);
    };
    if ((m_dataType & PIV::DATA_VELOCITY) && !(m_dataType & PIV::DATA_SPECKLE)) {
        NcVar* vel = w.create("velocity", ncFloat, vecDims);
        physical(vel, "velocity data", velocityUnit());
        w.put(vel, ncFloat, comps,
              [](const PIV_VECTOR& x, int c) { return NodeValue(VV_U + c, x); });
    }
    if (m_dataType & PIV::DATA_SPECKLE) {
        NcVar* sp = w.create("speckle_shifts", ncFloat, vecDims);
        physical(sp, "speckle displacement", shiftUnit());
        w.put(sp, ncFloat, comps,
              [](const PIV_VECTOR& x, int c) { return NodeValue(VV_SX + c, x); });
    }

    const OUTPUT_CFG& o = m_outputCfg;
    if ((o.StoreDifferentials || o.StoreVorticity || o.StoreShear || o.StoreNStrain ||
         o.StoreLambda2 || o.StoreDiscriminant || o.StoreEnstrophy) &&
        m_diff.size() >= m_nodeCount)
        writeDifferentials(file, w.dims.data(), int(w.dims.size()), span.t0, span.t1);
    if (tv) {
        std::vector<float> t;
        for (int s = span.t0; s <= span.t1; s++) t.push_back(float(timeAt(s)));
        if (!tv->put(t.data(), long(t.size()))) {
            file.error().setMessage("saveVectorData() - failed with time variable");
            throw PIVerror::NETCDF_WRITE_VAR;
        }
    }
    w.flush();
}

void PIV_DataBase::writeDifferentials(PIV_NcFile& file, const NcDim* const* dims, int ndims, int t0,
                                      int t1) {
    const int nx = m_grid.nodes.width, ny = m_grid.nodes.height;
    const int nz = std::max(1, m_grid.nodes.depth);
    const int last = ndims - 1;
    if (dims[last]->size() != nx || dims[last - 1]->size() != ny || dims[last - 2]->size() != nz) {
        file.error().setMessage("saveDifferentials() - mismatch between netCDF file and data grid");
        throw PIVerror::GRID_MISMATCH;
    }
    struct Item {
        const char* name;
        const char* longName;
        bool on;
        int var;
    };
    const OUTPUT_CFG& o = m_outputCfg;
    // dvdx holds du/dx: the files have always held it so, and their readers
    // expect it.
    const Item items[] = {
        {"vorticity", "out-of-plane vorticity", o.StoreVorticity, VV_VORT_Z},
        {"shear", "shear strain", o.StoreShear, VV_SHEAR_Z},
        {"nstrain", "normal strain", o.StoreNStrain, VV_NSTRAIN},
        {"enstrophy", "out-of-plane enstrophy = vorticity * vorticity", o.StoreEnstrophy,
         VV_ENSTROPHY},
        {"lambda2", "vortex detection operator", o.StoreLambda2, VV_LAMBDA2},
        {"discriminant", "discriminant of gradient tensor", o.StoreDiscriminant, VV_DISCRIMINANT},
        {"dudx", "velocity gradient du/dx", o.StoreDifferentials, VV_DUDX},
        {"dudy", "velocity gradient du/dy", o.StoreDifferentials, VV_DUDX + 1},
        {"dvdx", "velocity gradient dv/dx", o.StoreDifferentials, VV_DUDX},
        {"dvdy", "velocity gradient dv/dy", o.StoreDifferentials, VV_DUDX + 4},
    };
    const PIV_VECTOR none;
    const long perStep = long(nx) * ny * nz;
    // All are defined before the first is written (see VarWriter).
    NcVar* vars[sizeof(items) / sizeof(items[0])] = {};
    for (size_t j = 0; j < sizeof(items) / sizeof(items[0]); j++) {
        const Item& item = items[j];
        if (!item.on) continue;
        NcVar* var = file.add_var(item.name, ncFloat, ndims, const_cast<const NcDim**>(dims));
        if (!var || !var->is_valid()) {
            file.error().setMessage("variable could not be created: '%s'", item.name);
            throw PIVerror::NETCDF_CREATE_VAR;
        }
        var->add_att("long_name", item.longName);
        vars[j] = var;
    }
    for (size_t j = 0; j < sizeof(items) / sizeof(items[0]); j++) {
        const Item& item = items[j];
        NcVar* var = vars[j];
        if (!var) continue;
        float* buffer = static_cast<float*>(file.allocTmpData(perStep * (t1 - t0 + 1), ncFloat));
        if (!buffer) throw PIVerror::NETCDF_VAR_NOT_FOUND;
        long n = 0;
        for (int t = t0; t <= t1; t++)
            for (int k = 0; k < nz; k++)
                for (int r = 0; r < ny; r++)
                    for (int i = 0; i < nx; i++)
                        buffer[n++] = float(
                            NodeValue(item.var, none,
                                      m_diff[size_t(perStep * t +
                                                    long(nx) * (ny - 1 - r + long(ny) * k) + i)]));
        std::unique_ptr<long[]> edges(var->edges());
        if (!var->put(buffer, edges.get())) {
            file.error().setMessage("variable could not be written: '%s'", item.name);
            throw PIVerror::NETCDF_WRITE_VAR;
        }
    }
}

// ---------------------------------------------------------------------------

bool PIV_DataBase::saveNetCDF_PIVNET2(const char* fileName, int timeStep) {
    if (!fileName || !*fileName) {
        m_error.handleError(PIVerror::BAD_FILE_NAME, "saveNetCDF_PIVNET2()");
        return false;
    }
    if (isNull()) {
        m_error.handleError(PIVerror::DATA_IS_NULL, "saveNetCDF_PIVNET2()");
        return false;
    }
    return _saveAtomic(m_error, fileName, "saveNetCDF_PIVNET2()", [&](const char* tmp) {
        PIV_NcFile file(tmp, MyNcFile::WRITE, NcFile::Replace);
        file.setFormat(PIV_NcFile::FORMAT_PIVNET2);
        bool ok = file.is_valid();
        if (ok) {
            try {
                writePIVNET2(file, fileName, timeStep);
            } catch (PIVerror::ErrorType) {
                DebugPrintExt(2, " netcdf error: %d", 0);
                ok = false;
            }
            ok = file.close() && ok;
        }
        if (!ok) {
            m_error.setMessage("saveNetCDF_PIVNET2() - failed while writing to '%s'", fileName);
            m_error.handleError(PIVerror::FILE_WRITE_FAILED, "saveNetCDF_PIVNET2()");
        }
        return ok;
    });
}

void PIV_DataBase::writePIVNET2(PIV_NcFile& file, const char* longName, int timeStep) {
    (void)longName;
    const DATA_GRID4D& g = m_grid;
    const int nx = g.nodes.width, ny = g.nodes.height, nz = std::max(1, g.nodes.depth);
    const Span all = _span(timeStep, g.timeSteps);
    const Span span = {all.t0, all.t1, true};
    const std::string date = PIV::CreationDate();
    file.add_att("Conventions", "PIVNET2");
    file.add_att("extensions", "base");
    file.add_att("file_format_version", 1.0f);
    file.add_att("file_content", "Kelvane Data");
    if (m_outputCfg.Title[0]) file.add_att("long_name", m_outputCfg.Title);
    file.add_att("creation_date", date.c_str());
    file.add_att("software", PIV::SoftwareName());
    file.add_att("source", "PIV");
    file.add_att("grid_type", "regular grid");
    file.add_att("dimensions", 4);
    if (g.imageSize.width > 0) file.add_att("image_cols", int(g.imageSize.width));
    if (g.imageSize.height > 0) file.add_att("image_rows", int(g.imageSize.height));
    if (g.imageSize.depth > 0) file.add_att("image_depth", int(g.imageSize.depth));
    file.add_att("image_info", "image origin (0,0) at upper-left");

    const NcDim* time = file.add_dim("data_dim_time", span.t1 - span.t0 + 1);
    const NcDim* dz = file.add_dim("data_dim_z", nz);
    const NcDim* dy = file.add_dim("data_dim_y", ny);
    const NcDim* dx = file.add_dim("data_dim_x", nx);
    _check(time && dz && dy && dx, PIVerror::NETCDF_CREATE_VAR);

    const PIV_VECTOR* v = m_vectors.data();
    const auto axis = [&](const char* name, const NcDim* d, const char* title, int n, long stride,
                          int which) {
        NcVar* var = file.add_var(name, ncFloat, d);
        if (!var || !var->is_valid()) {
            DebugPrint("savePIVNET2_Grid() - variable could not be created: '%s'", name);
            throw PIVerror::NETCDF_CREATE_VAR;
        }
        var->add_att("unit", "pixel");
        var->add_att("title", title);
        std::vector<float> values;
        for (int i = 0; i < n; i++) {
            const PIV_VECTOR& node = v[stride * i];
            values.push_back(float(which == 0 ? node.ix : which == 1 ? node.iy : node.iz));
        }
        const NcBool ok = var->put(values.data(), long(n));
        DebugPrintExt(3, " wrote variable: %s  (retVal: %d)", name, int(ok));
        _check(ok, PIVerror::NETCDF_WRITE_VAR);
    };
    axis("grid_x", dx, "X - [pixel]", nx, 1, 0);
    axis("grid_y", dy, "Y - [pixel]", ny, nx, 1);
    axis("grid_z", dz, "Z - [pixel]", nz, long(nx) * ny, 2);

    VarWriter w(file, *this, span, false);
    w.dims = {time, dz, dy, dx};
    const auto data = [&](const char* where, const char* name, NcType type, const char* unit,
                          const char* title, const Value& value) {
        NcVar* var = nullptr;
        try {
            var = w.create(name, type, nullptr);
        } catch (PIVerror::ErrorType) {
            DebugPrint("%s - variable could not be created: '%s'", where, name);
            throw;
        }
        if (unit) var->add_att("unit", unit);
        var->add_att("title", title);
        w.put(var, type, 1, value);
    };
    const char* d = "savePIVNET2_PIVdata()";
    data(d, "dx", ncFloat, "pixel", "Displacement X",
         [](const PIV_VECTOR& x, int) { return x.dx; });
    data(d, "dy", ncFloat, "pixel", "Displacement Y",
         [](const PIV_VECTOR& x, int) { return x.dy; });
    if (is3C())
        data(d, "dz", ncFloat, "pixel", "Displacement Z",
             [](const PIV_VECTOR& x, int) { return x.dz; });
    data(d, "flag", ncByte, nullptr, "Flag", [](const PIV_VECTOR& x, int) { return x.flag; });
    data(d, "corr", ncFloat, nullptr, "Correlation Coefficient",
         [](const PIV_VECTOR& x, int) { return x.corr; });
    data(d, "corr_avg", ncFloat, nullptr, "Correlation, mean-square",
         [](const PIV_VECTOR& x, int) { return std::sqrt(std::max(0.0f, x.meanSquaredCorr)); });
    if (m_dataType & PIV::DATA_VELOCITY) {
        data(d, "vel_x", ncFloat, velocityUnit(), "Velocity X",
             [](const PIV_VECTOR& x, int) { return x.u; });
        data(d, "vel_y", ncFloat, velocityUnit(), "Velocity Y",
             [](const PIV_VECTOR& x, int) { return x.v; });
        if (is3C())
            data(d, "vel_z", ncFloat, velocityUnit(), "Velocity Z",
                 [](const PIV_VECTOR& x, int) { return x.w; });
    }
    if (haveMultiplePeaks() && m_numberOfPeaks > 1) {
        const char* p = "savePIVNET2_PIVpeaks()";
        for (int k = 0; k < std::min(m_numberOfPeaks, 3); k++) {
            char name[32], title[48];
            std::snprintf(name, sizeof(name), "peak%d_dx", k + 1);
            std::snprintf(title, sizeof(title), "Peak%d, Displacement X", k + 1);
            data(p, name, ncFloat, nullptr, title,
                 [k](const PIV_VECTOR& x, int) { return x.peak[k].x; });
            std::snprintf(name, sizeof(name), "peak%d_dy", k + 1);
            std::snprintf(title, sizeof(title), "Peak%d, Displacement Y", k + 1);
            data(p, name, ncFloat, nullptr, title,
                 [k](const PIV_VECTOR& x, int) { return x.peak[k].y; });
            std::snprintf(name, sizeof(name), "peak%d_snr", k + 1);
            std::snprintf(title, sizeof(title), "Peak%d, SNR", k + 1);
            data(p, name, ncFloat, nullptr, title,
                 [k](const PIV_VECTOR& x, int) { return x.peak[k].value; });
        }
    }
    w.flush();
}
