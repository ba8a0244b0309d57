#include "eval_cf.h"

#include <netcdf.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "piv_file.h"
#include "piv_units.h"

namespace eval_tool {

namespace {

// The status bits of a node go to the file as they are, so one table names
// them for the flag_meanings and flag_masks of the flags variable.
struct FlagBit {
    short mask;
    const char* meaning;
};
constexpr FlagBit kFlagBits[] = {
    {VECTOR_ENABLED, "valid"},
    {VECTOR_MASKED, "masked"},
    {VECTOR_NO_RESULT, "no_correlation_peak"},
    {VECTOR_OUTLIER, "outlier"},
    {VECTOR_FILTERED, "filtered"},
    {VECTOR_INTERPOLATED, "replaced_by_interpolation"},
    {VECTOR_LOWER_PEAK, "replaced_by_other_peak"},
    {VECTOR_EDITED, "edited"},
};

struct Refused {
    std::string why;
};

void Check(int status, const char* what) {
    if (status != NC_NOERR) throw Refused{std::string(what) + ": " + nc_strerror(status)};
}

// A netCDF file being created; closed on every way out.
class NcCreated {
public:
    explicit NcCreated(const std::string& path) {
        Check(nc_create(path.c_str(), NC_CLOBBER | NC_64BIT_OFFSET, &m_id), "cannot create it");
    }
    ~NcCreated() {
        if (m_id >= 0) nc_close(m_id);
    }
    NcCreated(const NcCreated&) = delete;
    NcCreated& operator=(const NcCreated&) = delete;
    int id() const { return m_id; }
    // The data reach the disk here; a failure is a failed write.
    void close() {
        const int id = m_id;
        m_id = -1;
        Check(nc_close(id), "cannot finish it");
    }

    void text(int var, const char* name, const std::string& value) {
        Check(nc_put_att_text(m_id, var, name, value.size(), value.data()), name);
    }
    int variable(const char* name, nc_type type, int rank, const int* dims) {
        int var = -1;
        Check(nc_def_var(m_id, name, type, rank, dims, &var), name);
        return var;
    }

private:
    int m_id = -1;
};

// The plane as the file holds it: rows from the bottom up, columns as
// their coordinates grow.
struct Plane {
    std::vector<float> x, y, u, v, corr;
    std::vector<short> flags;
};

// A vector with the field's physical values: the field's own when it is
// converted, else converted here by the field's record.
PIV_VECTOR Physical(const PIV_Data2D& field, const PIV_VECTOR& node) {
    if (field.isConverted()) return node;
    PIV_VECTOR v = node;
    PIV::ConvertVector(&v, field.pivParameters().convert);
    return v;
}

// Empty with the reason in `why` when the field cannot go on CF axes.
Plane Gather(const PIV_Data2D& field, bool calibrated, std::string& why) {
    Plane p;
    const DATA_GRID4D& g = field.grid();
    const int nx = g.nodes.width, ny = g.nodes.height;
    if (field.isNull() || nx < 1 || ny < 1) {
        why = "the field is empty";
        return p;
    }
    if (g.nodes.depth > 1 || g.timeSteps > 1) {
        why = "the file holds one plane of one time step; the field has " +
              std::to_string(g.nodes.depth) + " planes and " + std::to_string(g.timeSteps) +
              " steps";
        return p;
    }
    const double toMm = PIV::GetGridUnitFactor(PIV::GetGridUnitIndex(field.gridUnit())) /
                        PIV::GetGridUnitFactor(PIV::GetGridUnitIndex("mm"));
    const double toMps =
        PIV::GetVelocityUnitFactor(PIV::GetVelocityUnitIndex(field.velocityUnit())) /
        PIV::GetVelocityUnitFactor(PIV::GetVelocityUnitIndex("m/s"));
    const PIV_VECTOR* nodes = field.data();
    const auto position = [&](int row, int col, bool alongX) {
        const PIV_VECTOR& n = nodes[long(row) * nx + col];
        if (calibrated) {
            const PIV_VECTOR v = Physical(field, n);
            return float((alongX ? v.x : v.y) * toMm);
        }
        // Pixels, y counted from the bottom of the image as in the native file.
        return float(alongX ? n.ix : g.imageSize.height - n.iy);
    };
    // Each axis from the first row and column, turned where it falls.
    for (int i = 0; i < nx; i++) p.x.push_back(position(0, i, true));
    for (int j = 0; j < ny; j++) p.y.push_back(position(j, 0, false));
    const bool flipX = nx > 1 && p.x.front() > p.x.back();
    const bool flipY = ny > 1 && p.y.front() > p.y.back();
    if (flipX) std::reverse(p.x.begin(), p.x.end());
    if (flipY) std::reverse(p.y.begin(), p.y.end());
    for (const std::vector<float>* axis : {&p.x, &p.y})
        for (size_t k = 1; k < axis->size(); k++)
            if (!((*axis)[k] > (*axis)[k - 1])) {
                why = std::string("the ") + (axis == &p.x ? "x" : "y") +
                      " coordinates of the nodes do not grow steadily (is the scale set?)";
                return Plane();
            }
    const float none = std::numeric_limits<float>::quiet_NaN();
    for (int r = 0; r < ny; r++)
        for (int c = 0; c < nx; c++) {
            const PIV_VECTOR& n =
                nodes[long(flipY ? ny - 1 - r : r) * nx + (flipX ? nx - 1 - c : c)];
            const bool valid = (n.flag & VECTOR_ENABLED) && !(n.flag & VECTOR_OUTLIER);
            const PIV_VECTOR v = calibrated ? Physical(field, n) : n;
            p.u.push_back(!valid ? none : calibrated ? float(v.u * toMps) : v.dx);
            p.v.push_back(!valid ? none : calibrated ? float(v.v * toMps) : v.dy);
            p.corr.push_back(n.corr);
            p.flags.push_back(n.flag);
        }
    return p;
}

void Write(const std::string& path, const PIV_Data2D& field, const CfInfo& info, const Plane& p) {
    NcCreated nc(path);
    const int id = nc.id();
    int old = 0;
    Check(nc_set_fill(id, NC_NOFILL, &old), "fill mode");
    const bool cal = info.calibrated;
    const std::string title =
        field.outputCfg().Title[0]
            ? std::string(field.outputCfg().Title)
            : std::string("PIV ") + (cal ? "velocity" : "displacement") + " field";
    nc.text(NC_GLOBAL, "Conventions", "CF-1.8");
    nc.text(NC_GLOBAL, "title", title);
    nc.text(NC_GLOBAL, "history", info.history);
    nc.text(NC_GLOBAL, "source", info.imageA + "; " + info.imageB);
    nc.text(NC_GLOBAL, "image_a", info.imageA);
    nc.text(NC_GLOBAL, "image_b", info.imageB);

    int dims[2];
    Check(nc_def_dim(id, "y", p.y.size(), &dims[0]), "y");
    Check(nc_def_dim(id, "x", p.x.size(), &dims[1]), "x");
    const char* length = cal ? "mm" : "pixel";
    const int x = nc.variable("x", NC_FLOAT, 1, &dims[1]);
    nc.text(x, "long_name", "x position");
    nc.text(x, "units", length);
    nc.text(x, "axis", "X");
    const int y = nc.variable("y", NC_FLOAT, 1, &dims[0]);
    nc.text(y, "long_name", "y position, upwards");
    nc.text(y, "units", length);
    nc.text(y, "axis", "Y");

    const std::string quantity = cal ? "velocity" : "displacement";
    const float fill = std::numeric_limits<float>::quiet_NaN();
    const auto component = [&](const char* name, const char* axis) {
        const int var = nc.variable(name, NC_FLOAT, 2, dims);
        nc.text(var, "long_name", quantity + ", " + axis + " component");
        nc.text(var, "units", cal ? "m s-1" : "pixel");
        Check(nc_put_att_float(id, var, "_FillValue", NC_FLOAT, 1, &fill), name);
        return var;
    };
    const int u = component("u", "x");
    const int v = component("v", "y (upwards)");

    const int flags = nc.variable("flags", NC_SHORT, 2, dims);
    nc.text(flags, "long_name", "vector status");
    std::vector<short> masks;
    std::string meanings;
    for (const FlagBit& b : kFlagBits) {
        masks.push_back(b.mask);
        meanings += (meanings.empty() ? "" : " ") + std::string(b.meaning);
    }
    Check(nc_put_att_short(id, flags, "flag_masks", NC_SHORT, masks.size(), masks.data()),
          "flag_masks");
    nc.text(flags, "flag_meanings", meanings);

    const int corr = nc.variable("corr", NC_FLOAT, 2, dims);
    nc.text(corr, "long_name", "correlation coefficient");
    nc.text(corr, "units", "1");
    Check(nc_enddef(id), "header");

    Check(nc_put_var_float(id, x, p.x.data()), "x");
    Check(nc_put_var_float(id, y, p.y.data()), "y");
    Check(nc_put_var_float(id, u, p.u.data()), "u");
    Check(nc_put_var_float(id, v, p.v.data()), "v");
    Check(nc_put_var_short(id, flags, p.flags.data()), "flags");
    Check(nc_put_var_float(id, corr, p.corr.data()), "corr");
    nc.close();
}

}  // namespace

bool WriteCF(const PIV_Data2D& field, const CfInfo& info, const std::string& path,
             std::string& error) {
    const auto fail = [&](const std::string& why) {
        error = "cannot write " + path + ": " + why;
        return false;
    };
    if (path.empty()) return fail("no file name");
    std::string why;
    const Plane plane = Gather(field, info.calibrated, why);
    if (!why.empty()) return fail(why);
    PIV::TempFile tmp(path);
    if (tmp.path().empty()) return fail(std::strerror(errno));
    if (!tmp.closeStream()) return fail("cannot write beside it");
    try {
        Write(tmp.path(), field, info, plane);
    } catch (const Refused& r) {
        return fail(r.why);
    }
    if (!tmp.commit(path.c_str()))
        return fail(std::string("cannot replace it: ") + std::strerror(errno));
    return true;
}

}  // namespace eval_tool
