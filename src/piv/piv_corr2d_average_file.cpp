// The planes of an ensemble run on disk: the NetCDF plane file that keeps
// them for another fit, the text dump of one plane and the image of all.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <string>

#include "piv_corr2d_average.h"
#include "piv_data2d.h"
#include "piv_enums.h"
#include "piv_file.h"
#include "piv_messages.h"
#include "piv_ncfile.h"
#include "piv_params.h"
#include "piv_util.h"

namespace {

constexpr const char* kFileContent = "Kelvane Ensemble Correlation Data";

struct PlaneVars {
    const char* name;
    const char* longName;
};
constexpr PlaneVars kCorrVar{"piv_ensemble_corr_data", "ensemble correlation plane data"};
constexpr PlaneVars kAutoVar{"piv_ensemble_autocorr_data", "ensemble autocorrelation plane data"};
constexpr PlaneVars kIntVars[5] = {
    {"piv_ensemble_corr_count", "number of correlation planes averaged"},
    {"piv_ensemble_corr_offset_x", "x-offset of correlation planes"},
    {"piv_ensemble_corr_offset_y", "y-offset of correlation planes"},
    {"piv_ensemble_corr_pos_x", "x-position of correlation planes"},
    {"piv_ensemble_corr_pos_y", "y-position of correlation planes"},
};

int32_t* _intField(CORR_PLANE_DATA& p, int which) {
    switch (which) {
        case 0:
            return &p.count;
        case 1:
            return &p.offset.x;
        case 2:
            return &p.offset.y;
        case 3:
            return &p.pos.x;
        default:
            return &p.pos.y;
    }
}

int _intAtt(const PIV_NcFile& file, const char* name, int fallback) {
    const std::vector<double> v = file.attValues(name);
    return v.empty() ? fallback : int(v[0]);
}

void _check(bool ok) {
    if (!ok) throw PIVerror::NETCDF_WRITE_VAR;
}

}  // namespace

bool PIV_Corr2D_Average::saveCorrelationPlanes(const char* fileName) {
    const char* where = "saveCorrelationPlanes()";
    if (!fileName || !fileName[0]) return fail(PIVerror::BAD_FILE_NAME, where);
    if (m_planes.empty()) {
        m_error.setMessage("no correlation planes to save");
        return fail(PIVerror::DATA_IS_NULL, where);
    }
    PIV::TempFile tmp(fileName);
    if (tmp.path().empty() || !tmp.closeStream()) {
        m_error.setMessage("Trouble writing netCDF data");
        return fail(PIVerror::FILE_WRITE_FAILED, where);
    }
    const PIVEVAL_CFG cfg = m_params->pivEvalCfg();
    const DATA_GRID4D& g = m_data->grid();
    const long nodes = long(m_planes.size());
    const SIZE3D s = m_planes[0].size;
    try {
        PIV_NcFile file(tmp.path().c_str(), MyNcFile::WRITE, NcFile::Replace);
        _check(file.is_valid());
        _check(file.add_att("file_content", kFileContent));
        _check(file.add_att("creation_date", PIV::CreationDate().c_str()));
        _check(file.add_att("software", PIV::SoftwareName()));
        _check(file.add_att("image_cols", int(g.imageSize.width)));
        _check(file.add_att("image_rows", int(g.imageSize.height)));
        _check(file.add_att("image_info", "image origin (0,0) at upper-left"));
        _check(file.add_att("ev_origin_of_evaluation_x", int(g.first.x)));
        _check(file.add_att("ev_origin_of_evaluation_y", int(g.first.y)));
        _check(file.add_att("ev_origin_of_evaluation_units", "Pixel"));
        _check(file.add_att("ev_IS_grid_distance_x", int(g.step.width)));
        _check(file.add_att("ev_IS_grid_distance_y", int(g.step.height)));
        _check(file.add_att("corr_mode", int(cfg.CorrelationMode)));
        _check(file.add_att("corr_plane_width", int(m_planeSize.width)));
        _check(file.add_att("corr_plane_height", int(m_planeSize.height)));
        _check(file.add_att("corr_plane_roi_enable", int(m_roiCells > 0)));
        _check(file.add_att("corr_plane_roi_width", int(m_roiBox.width)));
        _check(file.add_att("corr_plane_roi_height", int(m_roiBox.height)));
        const NcDim* depth = file.add_dim("data_array_depth", nodes);
        const NcDim* height = file.add_dim("data_array_height", s.height);
        const NcDim* width = file.add_dim("data_array_width", s.width);
        _check(depth && height && width);
        const long cells = long(s.width) * s.height;
        std::vector<float> values(size_t(nodes * cells));
        for (bool autoPlanes : {false, true}) {
            if (autoPlanes && !m_haveAuto) continue;
            const PlaneVars& pv = autoPlanes ? kAutoVar : kCorrVar;
            NcVar* var = file.add_var(pv.name, ncFloat, depth, height, width);
            _check(var && var->add_att("long_name", pv.longName));
            if (!autoPlanes) _check(var->add_att("coord_units", "Pixel"));
            for (long k = 0; k < nodes; k++) {
                const std::vector<float>& sum =
                    autoPlanes ? m_planes[size_t(k)].autoSum : m_planes[size_t(k)].corrSum;
                std::copy(sum.begin(), sum.end(), values.begin() + k * cells);
            }
            _check(var->put(values.data(), nodes, s.height, s.width));
        }
        std::vector<int> ints(static_cast<size_t>(nodes));
        for (int which = 0; which < 5; which++) {
            NcVar* var = file.add_var(kIntVars[which].name, ncInt, depth);
            _check(var && var->add_att("long_name", kIntVars[which].longName));
            for (long k = 0; k < nodes; k++)
                ints[size_t(k)] = *_intField(m_planes[size_t(k)], which);
            _check(var->put(ints.data(), nodes));
        }
        _check(file.close());
    } catch (PIVerror::ErrorType) {
        m_error.setMessage("Trouble writing netCDF data");
        return fail(PIVerror::FILE_WRITE_FAILED, where);
    } catch (const std::bad_alloc&) {
        return fail(PIVerror::ALLOCATION_FAILED, where);
    }
    if (!tmp.commit(fileName)) {
        m_error.setMessage("Trouble writing netCDF data");
        return fail(PIVerror::FILE_WRITE_FAILED, where);
    }
    return true;
}

bool PIV_Corr2D_Average::loadCorrelationPlanes(const char* fileName) {
    const char* where = "loadCorrelationPlanes()";
    if (!fileName || !fileName[0]) return fail(PIVerror::BAD_FILE_NAME, where);
    PIV_NcFile file(fileName, MyNcFile::READ, NcFile::ReadOnly);
    if (!file.is_valid()) {
        m_error.setMessage("'%s' is no NetCDF file", fileName);
        return fail(PIVerror::FILE_OPEN_FAILED, where);
    }
    if (!(file.content() & 0x200000)) {
        m_error.setMessage("'%s' holds no ensemble correlation data", fileName);
        return fail(PIVerror::INVALID_FILE_CONTENT, where);
    }
    const int mode = _intAtt(file, "corr_mode", -1);
    const SIZE2D plane{_intAtt(file, "corr_plane_width", 0), _intAtt(file, "corr_plane_height", 0)};
    const bool roi = _intAtt(file, "corr_plane_roi_enable", 0) != 0;
    const SIZE2D roiBox{_intAtt(file, "corr_plane_roi_width", 0),
                        _intAtt(file, "corr_plane_roi_height", 0)};
    DATA_GRID4D g = m_params->dataGrid();
    g.imageSize = SIZE3D{_intAtt(file, "image_cols", 0), _intAtt(file, "image_rows", 0), 1};
    g.first = POINT3D{_intAtt(file, "ev_origin_of_evaluation_x", 0),
                      _intAtt(file, "ev_origin_of_evaluation_y", 0), 0};
    g.step = SIZE3D{_intAtt(file, "ev_IS_grid_distance_x", 0),
                    _intAtt(file, "ev_IS_grid_distance_y", 0), 1};
    NcDim* depthDim = file.get_dim("data_array_depth");
    NcDim* heightDim = file.get_dim("data_array_height");
    NcDim* widthDim = file.get_dim("data_array_width");
    NcVar* corrVar = file.get_var(kCorrVar.name);
    if (mode < 0 || mode > PIV::CORR_ERROR_FUNCTION || plane.width < 1 || plane.height < 1 ||
        !depthDim || !heightDim || !widthDim || !corrVar || g.step.width < 1 || g.step.height < 1) {
        m_error.setMessage("'%s' lacks the layout of an ensemble correlation file", fileName);
        return fail(PIVerror::INVALID_FILE_CONTENT, where);
    }
    const long nodes = depthDim->size();
    const SIZE3D s{int(widthDim->size()), int(heightDim->size()), 1};
    const long cells = long(s.width) * s.height;
    // A box the header turns on but that packs nothing leaves whole planes
    // expected; a file that stored them packed all the same is refused.
    const SIZE2D box = roi ? peakRoiBox(roiBox, plane) : SIZE2D{0, 0};
    const long expected =
        box.width > 0 ? long(box.width) * box.height : long(plane.width) * plane.height;
    if (nodes < 1 || cells != expected) {
        m_error.setMessage("'%s': planes of %ld cells, the header says %ld", fileName, cells,
                           expected);
        return fail(PIVerror::CORRUPT_DATA, where);
    }
    // Everything is read into a new set; the object keeps its own on failure.
    std::vector<CORR_PLANE_DATA> planes;
    NcVar* autoVar = file.get_var(kAutoVar.name);
    try {
        planes.resize(size_t(nodes));
        std::vector<float> values(size_t(nodes * cells));
        for (bool autoPlanes : {false, true}) {
            NcVar* var = autoPlanes ? autoVar : corrVar;
            if (!var) continue;
            if (!var->get(values.data(), nodes, s.height, s.width)) throw PIVerror::NETCDF_READ_VAR;
            for (long k = 0; k < nodes; k++) {
                std::vector<float>& sum =
                    autoPlanes ? planes[size_t(k)].autoSum : planes[size_t(k)].corrSum;
                sum.assign(values.begin() + k * cells, values.begin() + (k + 1) * cells);
            }
        }
        std::vector<int> ints(static_cast<size_t>(nodes));
        for (int which = 0; which < 5; which++) {
            NcVar* var = file.get_var(kIntVars[which].name);
            if (!var || !var->get(ints.data(), nodes)) throw PIVerror::NETCDF_READ_VAR;
            for (long k = 0; k < nodes; k++) *_intField(planes[size_t(k)], which) = ints[size_t(k)];
        }
    } catch (PIVerror::ErrorType code) {
        m_error.setMessage("'%s' could not be read whole", fileName);
        return fail(code, where);
    } catch (const std::bad_alloc&) {
        return fail(PIVerror::ALLOCATION_FAILED, where);
    }
    int nx = 1;
    while (nx < nodes && planes[size_t(nx)].pos.y == planes[0].pos.y) nx++;
    for (long k = 0; k < nodes; k++) {
        CORR_PLANE_DATA& p = planes[size_t(k)];
        p.size = s;
        if (p.count < 0 || p.pos.x != g.first.x + int(k % nx) * g.step.width) {
            DebugPrint("Fail: i=%ld r=%ld c=%ld", k, k / nx, k % nx);
            m_error.setMessage("'%s': plane %ld is off the grid", fileName, k);
            return fail(PIVerror::CORRUPT_DATA, where);
        }
    }
    g.nodes = SIZE3D{nx, int(nodes / nx), 1};
    if (long(g.nodes.width) * g.nodes.height != nodes) {
        m_error.setMessage("'%s': %ld planes make no grid", fileName, nodes);
        return fail(PIVerror::CORRUPT_DATA, where);
    }
    // The correlators are set up to hand back planes of the stored size.
    PIVEVAL_CFG cfg = m_params->pivEvalCfg();
    cfg.CorrelationMode = mode;
    cfg.MultiCorr = false;
    if (mode < PIV::CORR_MQD) {
        cfg.SampleSize = SIZE3D{plane.width, plane.height, 1};
    } else {
        cfg.ScanRange = SIZE3D{plane.width / 2, plane.height / 2, 0};
        cfg.SampleSize =
            SIZE3D{std::max(cfg.SampleSize.width, 1), std::max(cfg.SampleSize.height, 1), 1};
    }
    cfg.FFTSize = cfg.SampleSize;
    cfg.grid = g;
    m_params->setPivEvalCfg(cfg, false);
    if (!m_data->create(g)) return fail(PIVerror::ALLOCATION_FAILED, where);
    m_data->setPivParameters(m_params->pivParameters());
    for (PIV_Corr2D* c : m_corr) c->setPivEvalCfg(cfg);
    clear();
    m_planeSize = plane;
    m_avg.peakRoiEnable = roi;
    if (roi) {
        m_avg.peakRoiSize = roiBox;
        buildPeakRoi(plane);
    }
    m_planes.swap(planes);
    m_haveAuto = autoVar != nullptr;
    for (PIV_Corr2D* c : m_corr) c->keepAutoCorrelation(m_haveAuto);
    m_imagesProcessed = m_planes[0].count;
    DebugPrintExt(1, "PIV_Corr2D_Average::loadCorrelationPlanes() - successfully read %d planes",
                  int(nodes));
    return true;
}

bool PIV_Corr2D_Average::saveSingleCorrelationPlane(int index, const char* fileName) {
    const char* where = "saveSingleCorrelationPlane()";
    if (m_planes.empty()) {
        m_error.setMessage("saveSingleCorrelationPlane() - no data available");
        return fail(PIVerror::DATA_IS_NULL, where);
    }
    if (index < 0 || index >= int(m_planes.size())) {
        m_error.setMessage("saveSingleCorrelationPlane() - invalid index: %d", index);
        return fail(PIVerror::BAD_RANGE, where);
    }
    if (!fileName || !fileName[0]) {
        m_error.setMessage("saveSingleCorrelationPlane() - invalid output file specified!");
        return fail(PIVerror::BAD_FILE_NAME, where);
    }
    const CORR_PLANE_DATA& p = m_planes[size_t(index)];
    const int mode = m_params->pivEvalCfg().CorrelationMode;
    const int w = m_planeSize.width, h = m_planeSize.height, cells = w * h;
    const uint8_t* mask = m_roiCells > 0 ? m_peakRoi.data() : nullptr;
    std::vector<float> corr(static_cast<size_t>(cells)), autoCorr;
    float lo = 0.0f, hi = 0.0f, alo = 0.0f, ahi = 0.0f;
    _restoreCorrData(p.corrSum.data(), corr.data(), mask, cells, p.count, &lo, &hi, nullptr,
                     nullptr);
    const bool fft = mode < PIV::CORR_MQD;
    if (fft) {
        autoCorr.assign(size_t(cells), 0.0f);
        if (!p.autoSum.empty())
            _restoreCorrData(p.autoSum.data(), autoCorr.data(), mask, cells, p.count, &alo, &ahi,
                             nullptr, nullptr);
        PIV::UnFoldFFTData(corr.data(), w, h);
        PIV::UnFoldFFTData(autoCorr.data(), w, h);
    }
    PIV::TempFile tmp(fileName);
    std::FILE* f = tmp.file();
    if (!f) {
        m_error.setMessage("failed creating file: '%s'", fileName);
        return fail(PIVerror::FILE_CREATE_FAILED, where);
    }
    if (fft) {
        std::fprintf(f, "# Ensemble correlation data at position: %d,%d\n", p.pos.x, p.pos.y);
        std::fprintf(f, "# cross-correlation range: %g, %g\n", double(lo), double(hi));
        std::fprintf(f, "# autocorrelation range:   %g, %g\n", double(alo), double(ahi));
        std::fprintf(f, "VARIABLES = \"c\"  \"r\"  \"xcorr\"  \"acorr\"\n");
        std::fprintf(f, "ZONE I=%d, J=%d, F=POINT, T=\"Corr at [%d,%d]\"\n", w, h, p.pos.x,
                     p.pos.y);
    } else {
        const char* what = mode == PIV::CORR_MQD              ? "MQD correlation data"
                           : mode == PIV::CORR_ERROR_FUNCTION ? "error correlation function data"
                                                              : "direct correlation data";
        const char* range = mode == PIV::CORR_MQD ? "MQD range" : "correlation range";
        const char* var = mode == PIV::CORR_MQD              ? "mqd"
                          : mode == PIV::CORR_ERROR_FUNCTION ? "ecf"
                                                             : "dxcorr";
        const char* zone = mode == PIV::CORR_MQD              ? "MQD"
                           : mode == PIV::CORR_ERROR_FUNCTION ? "ECF"
                                                              : "DCC";
        std::fprintf(f, "# Ensemble %s at position: %d,%d\n", what, p.pos.x, p.pos.y);
        std::fprintf(f, "# %s: %g, %g\n", range, double(lo), double(hi));
        std::fprintf(f, "VARIABLES = \"c\"  \"r\"  \"%s\" \n", var);
        std::fprintf(f, "ZONE I=%d, J=%d, F=POINT, T=\"%s at [%d,%d]\"\n", w, h, zone, p.pos.x,
                     p.pos.y);
    }
    for (int r = 0; r < h; r++)
        for (int c = 0; c < w; c++) {
            const size_t k = size_t(r) * size_t(w) + size_t(c);
            if (fft)
                std::fprintf(f, "%3d %4d  %g  %g\n", c - w / 2, r - h / 2, double(corr[k]),
                             double(autoCorr[k]));
            else
                std::fprintf(f, "%3d %4d  %g\n", c - w / 2, r - h / 2, double(corr[k]));
        }
    if (!tmp.commit(fileName)) {
        m_error.setMessage("failed creating file: '%s'", fileName);
        return fail(PIVerror::FILE_WRITE_FAILED, where);
    }
    return true;
}

bool PIV_Corr2D_Average::createImage(Image2D* image, bool autoCorr, bool normalize) {
    const char* where = "createImage()";
    if (!image) return fail(PIVerror::INVALID_POINTER, where);
    if (m_planes.empty() || (autoCorr && !m_haveAuto)) {
        m_error.setMessage("no correlation planes for an image");
        return fail(PIVerror::DATA_IS_NULL, where);
    }
    const DATA_GRID4D& g = m_data->grid();
    const int nx = std::max(1, g.nodes.width), ny = int(m_planes.size()) / nx;
    const int w = m_planeSize.width, h = m_planeSize.height, cells = w * h;
    // Each plane takes a tile of its own size at most, centred on zero shift.
    const int tw = std::min(w, std::max(3, m_avg.imageTileSize.width));
    const int th = std::min(h, std::max(3, m_avg.imageTileSize.height));
    if (!image->alloc(int64_t(nx) * tw, int64_t(ny) * th, IMAGE_FLOAT))
        return fail(PIVerror::ALLOCATION_FAILED, where);
    const bool fft = m_params->pivEvalCfg().CorrelationMode < PIV::CORR_MQD;
    const uint8_t* mask = m_roiCells > 0 ? m_peakRoi.data() : nullptr;
    std::vector<float> plane(static_cast<size_t>(cells)), row(static_cast<size_t>(tw));
    for (int k = 0; k < nx * ny; k++) {
        const CORR_PLANE_DATA& p = m_planes[size_t(k)];
        const std::vector<float>& sum = autoCorr ? p.autoSum : p.corrSum;
        float lo = 0.0f, hi = 0.0f;
        _restoreCorrData(sum.data(), plane.data(), mask, cells, p.count, &lo, &hi, nullptr,
                         nullptr);
        if (fft) PIV::UnFoldFFTData(plane.data(), w, h);
        const float span = hi > lo ? hi - lo : 1.0f;
        const int x0 = (w - tw) / 2, y0 = (h - th) / 2;
        for (int r = 0; r < th; r++) {
            for (int c = 0; c < tw; c++) {
                const float v = plane[size_t(y0 + r) * size_t(w) + size_t(x0 + c)];
                row[size_t(c)] = normalize ? (v - lo) / span : v;
            }
            float* dst = image->scanLine<float>(uint64_t((k / nx) * th + r)) + (k % nx) * tw;
            std::copy(row.begin(), row.end(), dst);
        }
    }
    return true;
}
