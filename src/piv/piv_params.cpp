#include "piv_params.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "piv_grid.h"
#include "piv_messages.h"
#include "piv_units.h"

namespace {

bool sameSize(const SIZE3D& a, const SIZE3D& b) {
    return a.width == b.width && a.height == b.height && a.depth == b.depth;
}

bool samePoint(const POINT3D& a, const POINT3D& b) {
    return a.x == b.x && a.y == b.y && a.z == b.z;
}

// The peak detection settings are one contiguous block of the record, Type to ROI.
bool samePeakBlock(const PIVEVAL_CFG& a, const PIVEVAL_CFG& b) {
    const std::size_t begin = offsetof(PIVEVAL_CFG, Type);
    const std::size_t end = offsetof(PIVEVAL_CFG, ROI) + sizeof(bool);
    return std::memcmp(reinterpret_cast<const char*>(&a) + begin,
                       reinterpret_cast<const char*>(&b) + begin, end - begin) == 0;
}

}  // namespace

PIV_Parameters::PIV_Parameters() : m_error("PIV_Parameters"), m_refCount(1) {}

PIV_Parameters::~PIV_Parameters() = default;

uint32_t PIV_Parameters::release() {
    if (m_refCount <= 1) {
        delete this;
        return 0;
    }
    return --m_refCount;
}

bool PIV_Parameters::createGrid() {
    return PIV::CreateDataGrid4D(m_params.eval.grid, m_params.eval.SampleSize);
}

bool PIV_Parameters::setPivEvalCfg(const PIVEVAL_CFG& cfg, bool lay) {
    const PIVEVAL_CFG& old = m_params.eval;
    const bool changed = !PIV::SameRecord(old.grid, cfg.grid) || isNewMethod(cfg) ||
                         isNewPeakDetection(cfg) || !samePoint(old.SampleOffset, cfg.SampleOffset);
    m_params.eval = cfg;
    if (lay) createGrid();
    return changed;
}

void PIV_Parameters::setPivParameters(const PIV_PARAMETERS& params) {
    m_params = params;
}

bool PIV_Parameters::setPivConvertCfg(const PIVCONVERT_CFG& cfg) {
    PIVCONVERT_CFG next = cfg;
    PIV::UpdateConversionFactors(&next);
    const bool changed = !PIV::SameRecord(next, m_params.convert);
    m_params.convert = next;
    return changed;
}

bool PIV_Parameters::requiresNewGrid(const PIVEVAL_CFG& cfg) {
    DATA_GRID4D grid = cfg.grid;
    if (!PIV::CreateDataGrid4D(grid, cfg.SampleSize)) {
        m_error.setMessage("requiresNewGrid() - trouble with grid calculation");
        m_error.handleError(PIVerror::BAD_GRID_DIMENSION, "requiresNewGrid()");
        return true;
    }
    const PIVEVAL_CFG& held = m_params.eval;
    const DATA_GRID4D& g = held.grid;
    return !sameSize(grid.nodes, g.nodes) || !sameSize(grid.step, g.step) ||
           !samePoint(grid.first, g.first) || grid.align != g.align ||
           grid.roiEnabled != g.roiEnabled || !grid.roi.isIdentical(g.roi) ||
           !sameSize(cfg.SampleSize, held.SampleSize);
}

bool PIV_Parameters::isNewMethod(const PIVEVAL_CFG& cfg) const {
    const PIVEVAL_CFG& o = m_params.eval;
    if (cfg.Method != o.Method || cfg.Passes != o.Passes ||
        cfg.CorrFilter_WindowType != o.CorrFilter_WindowType ||
        cfg.CorrFilter_Nyquist != o.CorrFilter_Nyquist || cfg.MultiCorr != o.MultiCorr ||
        cfg.MultiCorr_Offset.x != o.MultiCorr_Offset.x ||
        cfg.MultiCorr_Offset.y != o.MultiCorr_Offset.y ||
        cfg.MultiCorr_Count != o.MultiCorr_Count || cfg.MultiCorr_Average != o.MultiCorr_Average ||
        !PIV::SameRecord(cfg.ImageMapping2D, o.ImageMapping2D) ||
        !sameSize(cfg.MultiGrid_SampleSize, o.MultiGrid_SampleSize) ||
        !sameSize(cfg.MultiGrid_SampleStep, o.MultiGrid_SampleStep) ||
        cfg.MultiGrid_Desample != o.MultiGrid_Desample ||
        cfg.SpeedOptimization != o.SpeedOptimization)
        return true;
    // Only the direct and MQD correlators scan a range.
    return cfg.CorrelationMode > 1 && !sameSize(cfg.ScanRange, o.ScanRange);
}

bool PIV_Parameters::isNewPeakDetection(const PIVEVAL_CFG& cfg) const {
    return !samePeakBlock(cfg, m_params.eval);
}

void PIV_Parameters::checkPivEvalCfg(PIVEVAL_CFG& cfg) {
    DATA_GRID4D& g = cfg.grid;
    g.nodes.width = std::max(g.nodes.width, 1);
    g.nodes.height = std::max(g.nodes.height, 1);
    g.nodes.depth = std::max(g.nodes.depth, 1);
    if (g.imageSize.width < 1) g.imageSize.width = 0;
    if (g.imageSize.height < 1) g.imageSize.height = 0;
    if (g.imageSize.depth < 1) g.imageSize.depth = 0;
    if (g.step.width < 1) g.step.width = 16;
    if (g.step.height < 1) g.step.height = 16;
    if (g.step.depth < 1) g.step.depth = 16;
    if (cfg.SampleSize.width < 2) cfg.SampleSize.width = 32;
    if (cfg.SampleSize.height < 2) cfg.SampleSize.height = 32;
    if (cfg.SampleSize.depth < 2) cfg.SampleSize.depth = 32;
    cfg.FFTSize.width = cfg.SampleSize.width;
    cfg.FFTSize.height = cfg.SampleSize.height;
    if (cfg.FFTSize.depth < 2) cfg.FFTSize.depth = 32;
    auto mendOffset = [](int32_t& v) {
        if (v > 1000 || v < -1000) v = 0;
    };
    mendOffset(cfg.SampleOffset.x);
    mendOffset(cfg.SampleOffset.y);
    mendOffset(cfg.SampleOffset.z);
    g.first.x = std::max(g.first.x, 0);
    g.first.y = std::max(g.first.y, 0);
    g.first.z = std::max(g.first.z, 0);
}

bool PIV_Parameters::isNewImageSize(int width, int height, int depth) const {
    const SIZE3D& s = m_params.eval.grid.imageSize;
    return s.width != width || s.height != height || s.depth != depth;
}

bool PIV_Parameters::setImageSize(int width, int height, int depth, bool lay) {
    const bool changed = isNewImageSize(width, height, depth);
    m_params.eval.grid.imageSize = SIZE3D{width, height, depth};
    if (lay) createGrid();
    return changed;
}

bool PIV_Parameters::setDataGrid(const DATA_GRID4D& grid) {
    const bool changed = !PIV::SameRecord(grid, m_params.eval.grid);
    m_params.eval.grid = grid;
    return changed;
}

bool PIV_Parameters::setROI(const RECT3D& roi, bool lay) {
    DATA_GRID4D& g = m_params.eval.grid;
    RECT3D r = roi;
    if (r.right < r.left) std::swap(r.left, r.right);
    if (r.bottom < r.top) std::swap(r.top, r.bottom);
    auto clip = [](int32_t& v, int top) { v = std::clamp(v, 0, std::max(top, 0)); };
    if (g.imageSize.width > 0) {
        clip(r.left, g.imageSize.width);
        clip(r.right, g.imageSize.width);
    }
    if (g.imageSize.height > 0) {
        clip(r.top, g.imageSize.height);
        clip(r.bottom, g.imageSize.height);
    }
    const bool changed = !g.roiEnabled || !r.isIdentical(g.roi);
    g.roi = r;
    g.roiEnabled = true;
    if (lay) createGrid();
    return changed;
}

bool PIV_Parameters::setOrigin(const POINT3D& imageOrigin) {
    PIVCONVERT_CFG& c = m_params.convert;
    const bool changed = !samePoint(c.ImageOrigin, imageOrigin);
    c.ImageOrigin = imageOrigin;
    return changed;
}

bool PIV_Parameters::setScaleFactor(double pixelsPerUnit) {
    PIVCONVERT_CFG next = m_params.convert;
    next.LengthConversion[0] = next.LengthConversion[1] = next.LengthConversion[2] = pixelsPerUnit;
    return setPivConvertCfg(next);
}

bool PIV_Parameters::updateConversionFactors() {
    return PIV::UpdateConversionFactors(&m_params.convert);
}

bool PIV_Parameters::update() {
    const DATA_GRID4D before = m_params.eval.grid;
    createGrid();
    const bool gridChanged = !PIV::SameRecord(before, m_params.eval.grid);
    const bool factorsChanged = updateConversionFactors();
    return gridChanged || factorsChanged;
}

void PIV_Parameters::convertVector(PIV_VECTOR* vector) const {
    PIV::ConvertVector(vector, m_params.convert);
}
