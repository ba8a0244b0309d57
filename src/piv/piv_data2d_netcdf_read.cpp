// Reading vector fields from NetCDF: the native layout (which EUROPIV files
// share) and PIVNET2; and PIV_Data2D::save, which picks the writer.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "piv_data2d.h"
#include "piv_file_bounds.h"
#include "piv_grid.h"
#include "piv_messages.h"
#include "piv_nc_header.h"
#include "piv_ncfile.h"

namespace {

// Saturates instead of overflowing on dimensions no file can hold.
long _valueCount(NcVar* var) {
    std::unique_ptr<long[]> edges(var->edges());
    long n = 1;
    for (int i = 0; i < var->num_dims(); i++)
        if (edges[size_t(i)] < 0 || __builtin_mul_overflow(n, edges[size_t(i)], &n))
            return std::numeric_limits<long>::max() / 8;
    return n;
}

// Attribute values are doubles of any size; a converted one stays inside
// int, and NaN counts as 0.
int _toInt(double v) {
    if (!(v == v)) return 0;
    return int(std::clamp(v, double(std::numeric_limits<int>::min()),
                          double(std::numeric_limits<int>::max())));
}

// Sums of node positions, steps and window sizes from a file are formed in
// 64 bits and kept inside int, however damaged the file.
int _clampToInt(int64_t v) {
    return int(
        std::clamp<int64_t>(v, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
}

// Bytes of one value of the type in the file.
uint64_t _externalBytes(NcType type) {
    switch (type) {
        case ncByte:
        case ncChar:
            return 1;
        case ncShort:
            return 2;
        case ncDouble:
            return 8;
        default:
            return 4;
    }
}

// All values of a variable as floats; at least `needed` of them or error 55.
// Dimensions cost nothing in a classic file, so the values a variable
// claims are held against the file's size before they are read.
std::vector<float> _readFloats(NcVar* var, long needed, const char* what, PIVerror& error,
                               const char* path) {
    const long n = _valueCount(var);
    if (n < needed) {
        DebugPrint("too few data points in %s", what);
        throw PIVerror::NETCDF_READ_VAR;
    }
    const int64_t size = PIV::FileBounds::SizeOf(path);
    if (size >= 0)
        PIV::FileBounds::RequireOrThrow(error, "load()", path, what,
                                        static_cast<uint64_t>(n) * _externalBytes(var->type()),
                                        static_cast<uint64_t>(size), true);
    std::vector<float> values(size_t(std::max(n, 1L)));
    std::unique_ptr<long[]> edges(var->edges());
    if (!var->get(values.data(), edges.get())) throw PIVerror::FILE_READ_FAILED;
    return values;
}

using Assign = std::function<void(PIV_VECTOR&, int, float)>;

bool _isFinite(const PIV_VECTOR& v) {
    for (int t = 0; t < 3; t++)
        for (int c = 0; c < 3; c++)
            if (!std::isfinite(PIV::Component(v, t, c))) return false;
    for (float x : {v.corr, v.snr, v.meanSquaredCorr, v.residual})
        if (!std::isfinite(x)) return false;
    for (const PIV_PEAK& p : v.peak)
        for (int c = 0; c < 3; c++)
            if (!std::isfinite(PIV::PeakComponent(p, c))) return false;
    return true;
}

// A value that is no number cannot be a displacement, nor be turned into a
// pixel position by those who take the field as a predictor: the node
// becomes one without result, like a window that could not be evaluated.
int _disableNonFinite(std::vector<PIV_VECTOR>& vectors) {
    int disabled = 0;
    for (PIV_VECTOR& v : vectors) {
        if (_isFinite(v)) continue;
        for (int t = 0; t < 3; t++)
            for (int c = 0; c < 3; c++) PIV::Component(v, t, c) = 0.0f;
        for (PIV_PEAK& p : v.peak) p = PIV_PEAK{0.0f, 0.0f, 0.0f};
        v.residual = 0.0f;
        v.setFailed();
        disabled++;
    }
    return disabled;
}

}  // namespace

PIV_Data2D::PIV_Data2D(const char* fileName) {
    m_error.setName("PIV_Data2D");
    load(fileName);
}

bool PIV_Data2D::save(const char* fileName, int timeStep, const OUTPUT_CFG& cfg) {
    if (!haveRawData()) {
        m_error.setMessage("save(%s) - the field holds no evaluated data",
                           fileName ? fileName : "");
        m_error.handleError(PIVerror::DATA_IS_NULL, "save()");
        return false;
    }
    if (m_sampledOffGrid) m_dataType |= PIV::DATA_PIXEL_COORDINATES;
    m_outputCfg = cfg;
    OUTPUT_CFG& o = m_outputCfg;
    if ((o.StoreDifferentials || o.StoreVorticity || o.StoreShear || o.StoreNStrain ||
         o.StoreLambda2 || o.StoreDiscriminant || o.StoreEnstrophy) &&
        (m_diff.size() < m_nodeCount || m_diffCount < m_nodeCount) && !differentiate()) {
        m_error.setMessage("save() - failed in calculation of differentials");
        m_error.handleError(PIVerror::OPERATION_FAILED, "save()");
        o.StoreDifferentials = o.StoreVorticity = o.StoreShear = o.StoreNStrain = false;
        o.StoreLambda2 = o.StoreDiscriminant = o.StoreEnstrophy = false;
    }
    switch (o.OutputFormat) {
        case 0:
        case 1:
            return saveASCII(fileName, timeStep, true);
        case 2:
            return saveTecplotBinary(fileName, timeStep,
                                     !o.OutputSkipOutliers && !o.OutputPointFormat);
        case 3:
            return saveNetCDF(fileName, timeStep);
        case 4:
            return saveNetCDF_PIVNET2(fileName, timeStep);
        default:
            m_error.setMessage("save() - unknown output format %d", o.OutputFormat);
            m_error.handleError(PIVerror::FILE_FORMAT_UNSUPPORTED, "save()");
            return false;
    }
}

bool PIV_Data2D::load(const char* fileName) {
    m_fileData = false;
    m_dataType = 0;
    if (!fileName || !*fileName) {
        m_error.handleError(PIVerror::BAD_FILE_NAME, "load()");
        return false;
    }
    PIV_PARAMETERS params = m_params;
    PIV::ReadParameters(fileName, &params, 0);
    try {
        std::string why;
        if (!PIV::NcHeaderIsSound(fileName, &why)) {
            m_error.setMessage("%s", why.c_str());
            throw PIVerror::FILE_READ_FAILED;
        }
        PIV_NcFile file(fileName);
        if (!file.is_valid() ||
            (!file.isPivData() && file.format() != PIV_NcFile::FORMAT_PIVNET2)) {
            m_error.setMessage("load(%s)", fileName);
            throw PIVerror::INVALID_FILE_CONTENT;
        }
        const int nx = std::max(1, file.nx()), ny = std::max(1, file.ny());
        const int nz = std::max(1, file.nz()), nt = std::max(1, file.timeSteps());
        SIZE3D image = params.eval.grid.imageSize;
        const std::vector<double> cols = file.attValues("image_cols");
        const std::vector<double> rows = file.attValues("image_rows");
        const std::vector<double> depth = file.attValues("image_depth");
        bool sizeKnown = false;
        if (!cols.empty() && !rows.empty() && cols[0] > 0 && rows[0] > 0) {
            image.width = _toInt(cols[0]);
            image.height = _toInt(rows[0]);
            if (!depth.empty() && depth[0] > 0) image.depth = _toInt(depth[0]);
            sizeKnown = true;
            DebugPrintExt(2, "PIV_Data2D::read(%s) - got image size: %d x %d", fileName,
                          image.width, image.height);
        }
        const SIZE3D& win = params.eval.SampleSize;
        int origin[3] = {0, 0, 0};
        std::vector<double> o = file.attValues("ev_origin_of_evaluation");
        if (o.size() >= 2) {
            for (size_t a = 0; a < std::min<size_t>(3, o.size()); a++) origin[a] = _toInt(o[a]);
        } else {
            const char* names[3] = {"ev_origin_of_evaluation_x", "ev_origin_of_evaluation_y",
                                    "ev_origin_of_evaluation_z"};
            for (int a = 0; a < 3; a++) {
                o = file.attValues(names[a]);
                if (!o.empty()) origin[a] = _toInt(o[0]);
            }
        }
        const int halves[3] = {win.width / 2, win.height / 2, win.depth / 2};
        for (int a = 0; a < 3; a++)
            if (origin[a] < 1) origin[a] = halves[a];
        const SIZE3D step = params.eval.grid.step;
        const int lastX = _clampToInt(origin[0] + int64_t(nx - 1) * step.width);
        const int lastY = _clampToInt(origin[1] + int64_t(ny - 1) * step.height);
        if (lastX > image.width) {
            image.width = _clampToInt(int64_t(lastX) + halves[0]);
            DebugPrint("--- increasing width: max=%d -> %d", lastX, image.width);
        }
        if (lastY > image.height) {
            image.height = _clampToInt(int64_t(lastY) + halves[1]);
            DebugPrint("--- increasing height: max=%d -> %d", lastY, image.height);
        }
        DATA_GRID4D g = params.eval.grid;
        g.align = 2;
        g.first = {origin[0], origin[1], origin[2]};
        g.step = step;
        if (nz == 1) g.step.depth = 0;
        g.nodes = {nx, ny, nz};
        g.timeSteps = nt;
        g.imageSize = image;
        // Every node of every step has at least one float in the file; a
        // grid its dimensions claim beyond that is not allocated.
        uint64_t nodes = 1;
        for (int d : {nx, ny, nz, nt})
            if (__builtin_mul_overflow(nodes, static_cast<uint64_t>(d), &nodes))
                nodes = UINT64_MAX / 4;
        const int64_t fileBytes = PIV::FileBounds::SizeOf(fileName);
        if (fileBytes >= 0)
            PIV::FileBounds::RequireOrThrow(m_error, "load()", fileName, "vector data", nodes * 4,
                                            static_cast<uint64_t>(fileBytes), true);
        if (!PIV::GridPositionsFit(g)) {
            m_error.setMessage("load() - '%s' places its nodes beyond %d pixels", fileName,
                               PIV::kMaxGridPixels);
            throw PIVerror::INVALID_FILE_CONTENT;
        }
        if (!initializeGrid(g)) throw PIVerror::ALLOCATION_FAILED;
        const long perStep = long(nx) * ny * nz;
        for (int t = 0; t < nt; t++)
            for (int k = 0; k < nz; k++)
                for (int j = 0; j < ny; j++)
                    for (int i = 0; i < nx; i++) {
                        PIV_VECTOR& v =
                            m_vectors[size_t(perStep * t + long(nx) * (j + long(ny) * k) + i)];
                        v.iy = _clampToInt(int64_t(image.height) - origin[1] -
                                           int64_t(ny - 1 - j) * step.height);
                        v.ix = _clampToInt(origin[0] + int64_t(i) * step.width);
                        v.iz = _clampToInt(origin[2] + int64_t(k) * g.step.depth);
                        v.x = float(v.ix);
                        v.y = float(int64_t(image.height) - v.iy);
                        v.z = float(v.iz);
                    }
        DebugPrintExt(2, "  Grid info   x:[%d,%d]  y:[%d,%d]  z:[%d,%d]  step:[%d,%d]", origin[0],
                      lastX, origin[1], lastY, origin[2],
                      _clampToInt(origin[2] + int64_t(nz - 1) * g.step.depth), step.width,
                      step.height);
        m_params = params;
        m_params.eval.grid = m_grid;
        const bool ok = file.format() == PIV_NcFile::FORMAT_PIVNET2
                            ? readPIVNET2(file, m_params, image, sizeKnown)
                            : readEUROPIV(file, m_params, image, sizeKnown);
        if (!ok) {
            if (m_error.getLastErrorCode() == PIVerror::NETCDF_READ_VAR) return false;
            // Memory, not the file, failed: say so.
            if (m_error.getLastErrorCode() == PIVerror::ALLOCATION_FAILED)
                throw PIVerror::ALLOCATION_FAILED;
            m_error.setMessage("load(%s)", fileName);
            throw PIVerror::FILE_READ_FAILED;
        }
        m_grid.imageSize = image;
        m_params.eval.grid = m_grid;
        if (const int bad = _disableNonFinite(m_vectors))
            PrintWarning(
                "load(%s) - %d of %lu vectors hold values that are no numbers; "
                "they are disabled",
                fileName, bad, m_nodeCount);
    } catch (PIVerror::ErrorType code) {
        m_error.handleError(code, "load()");
        init();
        return false;
    } catch (const std::bad_alloc&) {
        m_error.handleError(PIVerror::ALLOCATION_FAILED, "load()");
        init();
        return false;
    }
    setName(fileName);
    doStatistics();
    return true;
}

bool PIV_Data2D::readVectorData(PIV_NcFile& file, int timeStep) {
    try {
        if (!file.pivData) throw PIVerror::VARIABLE_NOT_FOUND;
        const int nx = m_grid.nodes.width, ny = m_grid.nodes.height;
        const int nz = std::max(1, m_grid.nodes.depth);
        const long perStep = long(nx) * ny * nz;
        const int fileSteps = std::max(1, file.timeSteps());
        const int t0 = timeStep < 0 ? 0 : std::min(timeStep, fileSteps - 1);
        const int t1 = timeStep < 0 ? std::min(fileSteps, m_grid.timeSteps) - 1 : t0;
        const int steps = t1 - t0 + 1;
        // Copies one quantity into the vectors, rows flipped back.
        const auto restore = [&](NcVar* var, int comps, const char* what, const Assign& assign) {
            const std::vector<float> values =
                _readFloats(var, perStep * (t0 + steps) * comps, what, m_error, file.fileName());
            long n = perStep * t0 * comps;
            for (int t = 0; t < steps; t++)
                for (int k = 0; k < nz; k++)
                    for (int r = 0; r < ny; r++)
                        for (int i = 0; i < nx; i++) {
                            PIV_VECTOR& v = m_vectors[size_t(
                                perStep * t + long(nx) * (ny - 1 - r + long(ny) * k) + i)];
                            for (int c = 0; c < comps; c++) assign(v, c, values[size_t(n++)]);
                        }
        };
        const int comps = std::max(2, std::min(3, file.vectorComponents()));
        m_3C = comps == 3;
        restore(file.pivData, comps, "piv_data", [](PIV_VECTOR& v, int c, float x) {
            PIV::Component(v, PIV::TRIPLE_DISPLACEMENT, c) = x;
        });
        m_dataType |= PIV::DATA_DISPLACEMENT;
        char text[64];
        if (file.attText(file.pivData, "data_type", text, sizeof(text)) &&
            std::strcmp(text, "RMS_data") == 0)
            m_dataType |= PIV::DATA_RMS;

        // The pixel grid from the corners of the displacement variable.
        std::vector<double> lo = file.attValues(file.pivData, "coord_min");
        std::vector<double> hi = file.attValues(file.pivData, "coord_max");
        lo.resize(3, 0.0);
        hi.resize(3, 1.0);
        const int n[3] = {nx, ny, nz};
        double sp[3];
        for (int a = 0; a < 3; a++) sp[a] = n[a] > 1 ? (hi[a] - lo[a]) / (n[a] - 1) : 1.0;
        const SIZE3D& win = m_params.eval.SampleSize;
        if (lo[0] < 0) lo[0] = win.width / 2;
        if (lo[1] < 0) lo[1] = win.height / 2;
        SIZE3D& image = m_grid.imageSize;
        const double farX = lo[0] + (nx - 1) * sp[0], farY = lo[1] + (ny - 1) * sp[1];
        if (farX > image.width) image.width = _toInt(std::ceil(farX));
        if (farY > image.height) image.height = _toInt(std::ceil(farY));
        for (int t = 0; t < m_grid.timeSteps; t++)
            for (int k = 0; k < nz; k++)
                for (int j = 0; j < ny; j++)
                    for (int i = 0; i < nx; i++) {
                        PIV_VECTOR& v =
                            m_vectors[size_t(perStep * t + long(nx) * (j + long(ny) * k) + i)];
                        v.ix = _toInt(std::round(lo[0] + i * sp[0]));
                        v.iy = _toInt(std::round(image.height - (lo[1] + (ny - 1 - j) * sp[1])));
                        v.iz = _toInt(std::round(lo[2] + k * sp[2]));
                    }

        int peaks = 0;
        for (int p = 0; p < 3; p++) {
            if (!file.peaks[p]) continue;
            char name[32];
            std::snprintf(name, sizeof(name), "piv_peak%d", p + 1);
            restore(file.peaks[p], 3, name,
                    [p](PIV_VECTOR& v, int c, float x) { PIV::PeakComponent(v.peak[p], c) = x; });
            peaks = p + 1;
        }
        if (peaks) {
            DebugPrintExt(2, "  _NCDFReadPeaks(): Peak data read success");
            m_multiplePeaks = true;
            const std::vector<double> np = file.attValues("number_of_peaks");
            m_numberOfPeaks = np.empty() ? peaks : std::clamp(_toInt(np[0]), 1, 3);
            m_dataType |= PIV::DATA_PEAKS;
        }
        if (file.corrCoeff)
            restore(file.corrCoeff, 1, "piv_correlation_coeff",
                    [](PIV_VECTOR& v, int, float x) { v.corr = x; });
        if (file.snrData)
            restore(file.snrData, 1, "piv_snr_data",
                    [](PIV_VECTOR& v, int, float x) { v.snr = x; });
        if (file.pivFlags) {
            restore(file.pivFlags, 1, "piv_flags",
                    [](PIV_VECTOR& v, int, float x) { v.flag = uint8_t(_toInt(x)); });
            m_dataType |= PIV::DATA_FLAGS;
        }
        if (file.vectorCount) {
            restore(file.vectorCount, 1, "piv_data",
                    [](PIV_VECTOR& v, int, float x) { v.count = _toInt(x); });
            m_statisticsData = true;
            m_dataType |= PIV::DATA_COUNTS;
        }
        if (file.residuals) {
            restore(file.residuals, 1, "piv_3c_residuals",
                    [](PIV_VECTOR& v, int, float x) { v.residual = x; });
            m_3CResiduals = true;
            m_dataType |= PIV::DATA_3C_RESIDUALS;
        }
        // Velocity and shifts bring their grid in physical units.
        const auto physical = [&](NcVar* var, int triple, char* units, int size) {
            restore(var, comps, var->name(),
                    [triple](PIV_VECTOR& v, int c, float x) { PIV::Component(v, triple, c) = x; });
            char unitText[16];
            if (file.attText(var, "coord_units", unitText, sizeof(unitText)))
                PIV::CopyText(m_params.convert.LengthConversionUnits, unitText);
            if (file.attText(var, "units", unitText, sizeof(unitText)))
                PIV::CopyText(units, size_t(size), unitText);
            std::vector<double> pl = file.attValues(var, "coord_min");
            std::vector<double> ph = file.attValues(var, "coord_max");
            pl.resize(3, 0.0);
            ph.resize(3, 1.0);
            double ps[3];
            for (int a = 0; a < 3; a++) ps[a] = n[a] > 1 ? (ph[a] - pl[a]) / (n[a] - 1) : 1.0;
            for (int t = 0; t < m_grid.timeSteps; t++)
                for (int k = 0; k < nz; k++)
                    for (int j = 0; j < ny; j++)
                        for (int i = 0; i < nx; i++) {
                            PIV_VECTOR& v =
                                m_vectors[size_t(perStep * t + long(nx) * (j + long(ny) * k) + i)];
                            v.x = float(pl[0] + i * ps[0]);
                            v.y = float(ph[1] - j * ps[1]);
                            v.z = float(pl[2] + k * ps[2]);
                        }
        };
        if (file.velocity) {
            physical(file.velocity, PIV::TRIPLE_VELOCITY, m_params.convert.VelocityUnits,
                     int(sizeof(m_params.convert.VelocityUnits)));
            m_dataType |= PIV::DATA_VELOCITY;
            m_converted = true;
        }
        if (file.speckleShifts) {
            physical(file.speckleShifts, PIV::TRIPLE_SHIFT, m_params.convert.DisplacementUnits,
                     int(sizeof(m_params.convert.DisplacementUnits)));
            m_dataType |= PIV::DATA_SPECKLE;
        }
        NcVar* pixel = file.get_var("piv_coords_pixel");
        if (pixel) {
            restore(pixel, 2, "piv_coords_pixel", [](PIV_VECTOR& v, int c, float x) {
                (c == 0 ? v.ix : v.iy) = _toInt(std::round(x));
            });
            m_sampledOffGrid = true;
            m_dataType |= PIV::DATA_PIXEL_COORDINATES;
        }
        NcVar* time = file.get_var("time");
        if (time && timeStep < 0) {
            const std::vector<float> t = _readFloats(time, steps, "time", m_error, file.fileName());
            for (int s = 0; s < steps; s++) m_time[size_t(s)] = t[size_t(s)];
        }
    } catch (PIVerror::ErrorType code) {
        if (code == PIVerror::NETCDF_READ_VAR)
            m_error.setMessage("readDisplacements() - too few data points in data set");
        m_error.handleError(code, "readVectorData()");
        return false;
    } catch (const std::bad_alloc&) {
        m_error.handleError(PIVerror::ALLOCATION_FAILED, "readVectorData()");
        return false;
    }
    return true;
}

bool PIV_Data2D::readEUROPIV(PIV_NcFile& file, PIV_PARAMETERS& params, SIZE3D& imageSize,
                             bool sizeKnown) {
    if (!readVectorData(file, -1)) {
        const int code = m_error.getLastErrorCode();
        if (code == PIVerror::NETCDF_READ_VAR || code == PIVerror::ALLOCATION_FAILED) return false;
        m_error.setMessage("read() - PIV data not found in file: %s", file.fileName());
        m_error.handleError(PIVerror::INVALID_FILE_CONTENT, "read()");
        return false;
    }
    imageSize = m_grid.imageSize;
    DebugPrintExt(2, "  Displacements read OK - image size %d x %d  (in par: %d x %d)",
                  imageSize.width, imageSize.height, params.eval.grid.imageSize.width,
                  params.eval.grid.imageSize.height);
    if (!sizeKnown) {
        int maxX = 0, maxY = 0;
        for (unsigned long k = 0; k < m_nodeCount; k++) {
            maxX = std::max(maxX, m_vectors[k].ix);
            maxY = std::max(maxY, m_vectors[k].iy);
        }
        auto estimate = [](int last, int window) {
            return std::max(0, _clampToInt(int64_t(last) + window / 2));
        };
        imageSize.width = estimate(maxX, params.eval.SampleSize.width);
        imageSize.height = estimate(maxY, params.eval.SampleSize.height);
        DebugPrintExt(2, "  Estimating image size: %dx%d", imageSize.width, imageSize.height);
    }
    // Infinite values stand for "no number" in some writers' files.
    const double limit = std::numeric_limits<double>::max();
    int invalid = 0;
    for (unsigned long k = 0; k < m_nodeCount; k++) {
        PIV_VECTOR& v = m_vectors[k];
        bool bad = std::fabs(double(v.dx)) > limit || std::fabs(double(v.dy)) > limit ||
                   std::fabs(double(v.dz)) > limit;
        for (const PIV_PEAK& p : v.peak) bad = bad || std::fabs(double(p.x)) > limit;
        if (!bad) continue;
        v.dx = v.dy = v.dz = v.u = v.v = v.w = v.sx = v.sy = v.sz = 0;
        for (PIV_PEAK& p : v.peak) p.x = p.y = 0;
        v.flag = VECTOR_OUTLIER;
        invalid++;
    }
    DebugPrintExt(2, "  found %d non-valid vectors in %lu total", invalid, m_nodeCount);
    if ((file.content() & 0x20000) && (file.content() & 0x40000)) {
        int updated = 0;
        for (unsigned long k = 0; k < m_nodeCount; k++) {
            PIV_VECTOR& v = m_vectors[k];
            const float d = v.peak[0].value > 0 ? v.peak[0].value : v.snr;
            v.meanSquaredCorr = d > 0 ? v.corr * v.corr / d : 0;
            if (d > 0) updated++;
        }
        DebugPrintExt(2, "  updated correlation mean value on %d of %lu vectors", updated,
                      m_nodeCount);
    }
    m_fileData = true;
    m_rawData = true;
    if (file.content() & PIV::DATA_FLAGS) {
        m_skipValidation = true;
        m_validated = true;
    }
    return true;
}

bool PIV_Data2D::readPIVNET2(PIV_NcFile& file, PIV_PARAMETERS& params, SIZE3D& imageSize,
                             bool sizeKnown) {
    (void)params;
    (void)sizeKnown;
    try {
        const int nx = m_grid.nodes.width, ny = m_grid.nodes.height;
        const int nz = std::max(1, m_grid.nodes.depth);
        const long perStep = long(nx) * ny * nz;
        const int nt = m_grid.timeSteps;
        const auto each = [&](const auto& fn) {
            for (int t = 0; t < nt; t++)
                for (long k = 0; k < perStep; k++)
                    fn(m_vectors[size_t(perStep * t + k)], perStep * t + k);
        };
        const int n[3] = {nx, ny, nz};
        const char* gridNames[3] = {"grid_x", "grid_y", "grid_z"};
        for (int a = 0; a < 3; a++) {
            NcVar* var = file.get_var(gridNames[a]);
            if (!var) continue;
            const std::vector<float> g =
                _readFloats(var, n[a], gridNames[a], m_error, file.fileName());
            if (a < 2 && n[a] > 1) {
                const float st = g[1] - g[0];
                bool regular = true;
                for (int i = 2; i < n[a]; i++)
                    regular = regular && g[size_t(i)] - g[size_t(i - 1)] == st;
                if (regular) DebugPrintExt(2, "Grid %c is regular: step %d", "XY"[a], int(st));
            }
            each([&](PIV_VECTOR& v, long k) {
                // k counts over all time steps; the grid is that of one.
                const long i = k % nx, j = (k / nx) % ny, z = (k / (long(nx) * ny)) % nz;
                const float value = g[size_t(a == 0 ? i : a == 1 ? j : z)];
                int& target = a == 0 ? v.ix : a == 1 ? v.iy : v.iz;
                target = _toInt(std::round(value));
            });
        }
        bool grew = false;
        for (unsigned long k = 0; k < m_nodeCount; k++) {
            const PIV_VECTOR& v = m_vectors[k];
            if (v.ix > imageSize.width) imageSize.width = v.ix, grew = true;
            if (v.iy > imageSize.height) imageSize.height = v.iy, grew = true;
        }
        if (grew) DebugPrintExt(2, "new image size: %d x %d", imageSize.width, imageSize.height);
        each([&](PIV_VECTOR& v, long) {
            v.x = float(v.ix);
            v.y = float(int64_t(imageSize.height) - v.iy);
            v.z = float(v.iz);
        });
        const long all = perStep * nt;
        const auto field = [&](const char* name, const char* message,
                               const std::function<void(PIV_VECTOR&, float)>& assign) {
            NcVar* var = file.get_var(name);
            if (!var) return false;
            const std::vector<float> values = _readFloats(var, all, name, m_error, file.fileName());
            DebugPrintExt(2, message, int(all));
            each([&](PIV_VECTOR& v, long k) { assign(v, values[size_t(k)]); });
            return true;
        };
        if (field("flag", "read flags: %d values",
                  [](PIV_VECTOR& v, float x) { v.flag = uint8_t(_toInt(x)); }))
            m_dataType |= PIV::DATA_FLAGS;
        if (field("dx", "read displacement X: %d values", [](PIV_VECTOR& v, float x) { v.dx = x; }))
            m_dataType |= PIV::DATA_DISPLACEMENT;
        field("dy", "read displacement Y: %d values", [](PIV_VECTOR& v, float x) { v.dy = x; });
        if (field("dz", "read displacement Z: %d values", [](PIV_VECTOR& v, float x) { v.dz = x; }))
            m_3C = true;
        if (field("vx", "read velocity X: %d values", [](PIV_VECTOR& v, float x) { v.u = x; }))
            m_dataType |= PIV::DATA_VELOCITY;
        field("vy", "read velocity Y: %d values", [](PIV_VECTOR& v, float x) { v.v = x; });
        field("vz", "read velocity Z: %d values", [](PIV_VECTOR& v, float x) { v.w = x; });
        field("corr", "read correlation data: %d values",
              [](PIV_VECTOR& v, float x) { v.corr = x; });
        field("corr_rms", "read correlation RMS data: %d values",
              [](PIV_VECTOR& v, float x) { v.meanSquaredCorr = x * x; });
        field("corr_avg", "read correlation avg data: %d values",
              [](PIV_VECTOR& v, float x) { v.meanSquaredCorr = x * x; });
    } catch (PIVerror::ErrorType code) {
        if (code == PIVerror::NETCDF_READ_VAR)
            m_error.setMessage("readDisplacements() - too few data points in data set");
        m_error.handleError(code, "PIVNET2_read()");
        return false;
    } catch (const std::bad_alloc&) {
        m_error.handleError(PIVerror::ALLOCATION_FAILED, "PIVNET2_read()");
        return false;
    }
    m_fileData = true;
    m_rawData = true;
    if (m_dataType & PIV::DATA_FLAGS) {
        m_skipValidation = true;
        m_validated = true;
    }
    return true;
}
