#include "image2d_deformation.h"

#include <omp.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "image2d_deformation_simd.h"
#include "image2d_pixel.h"
#include "image_spline.h"
#include "piv_data2d_deformation.h"
#include "piv_database.h"
#include "piv_messages.h"
#include "piv_util.h"

Image2D_Deformation::Image2D_Deformation() {
    m_error.setName("Image2D_Deformation");
    setImageDefCfg(m_cfg);
}

void Image2D_Deformation::setImageDefCfg(const IMAGEDEF_CFG& cfg) {
    if (cfg.Method != m_cfg.Method || cfg.Order != m_cfg.Order) clearSplineCoeffs();
    m_cfg = cfg;
    setInterpolationMethod(cfg.Method, cfg.Order);
}

bool Image2D_Deformation::deformWithPivData(const Image2D& src, Image2D& dst,
                                            const PIV_DataBase& field, double factor) {
    const DEFORM_FRAME frame{&src, &dst, nullptr, factor};
    return warp(frame, nullptr, nullptr, field, "deformWithPivData()");
}

bool Image2D_Deformation::deformWithMaskedPivData(const Image2D& src, Image2D& dst,
                                                  const Image2D& mask, const PIV_DataBase& field,
                                                  double factor) {
    const DEFORM_FRAME frame{&src, &dst, &mask, factor};
    return warp(frame, nullptr, nullptr, field, "deformWithMaskedPivData()");
}

bool Image2D_Deformation::deformPairWithPivData(const DEFORM_FRAME& first,
                                                Image2D_Deformation& other,
                                                const DEFORM_FRAME& second,
                                                const PIV_DataBase& field) {
    return warp(first, &other, &second, field, "deformPairWithPivData()");
}

namespace {

// Cubic B-spline weights at fraction t for the samples -1 .. +2 around it.
inline void CubicWeightsAt(float t, float w[4]) {
    const float t2 = t * t, t3 = t2 * t;
    const float u = 1.0f - t;
    w[0] = u * u * u * (1.0f / 6.0f);
    w[1] = 2.0f / 3.0f - t2 + 0.5f * t3;
    w[2] = 1.0f / 6.0f + 0.5f * (t + t2 - t3);
    w[3] = t3 * (1.0f / 6.0f);
}

// The same for the samples floor(x)-1 .. floor(x)+2; returns the first.
inline int CubicWeights(float x, float w[4]) {
    const float f = std::floor(x);
    CubicWeightsAt(x - f, w);
    return int(f) - 1;
}

}  // namespace

float Image2D_Deformation::sourceValue(const Image2D& src, float x, float y) const {
    const float w = float(m_coeffWidth), h = float(m_coeffHeight);
    // Written so that NaN fails it too: a position from a displacement that
    // is no number, or one far beyond int, reads as outside the image and
    // never reaches a conversion to int.
    if (!(x > -0.5f && y > -0.5f && x < float(src.width()) - 0.5f &&
          y < float(src.height()) - 0.5f))
        return 0.0f;
    const bool spline =
        m_method == PIV::INTERPOLATE_BSPLINE || m_method == PIV::INTERPOLATE_SHIFTED_LINEAR;
    if (!spline) return kernelValue(src, x, y);
    if (m_method == PIV::INTERPOLATE_BSPLINE && m_degree == 3) {
        // The common case gets its own loop: four weights per axis, and no
        // folding away from the border.
        float wx[4], wy[4];
        const int i0 = CubicWeights(x, wx), j0 = CubicWeights(y, wy);
        const float* c = m_coeffs.data();
        const int width = m_coeffWidth;
        if (i0 >= 0 && j0 >= 0 && float(i0 + 3) < w && float(j0 + 3) < h) {
            float sum = 0.0f;
            for (int l = 0; l < 4; l++) {
                const float* r = c + size_t(j0 + l) * size_t(width) + size_t(i0);
                sum += wy[l] * (wx[0] * r[0] + wx[1] * r[1] + wx[2] * r[2] + wx[3] * r[3]);
            }
            return sum;
        }
    }
    return float(InterpolatedSplineValue2D(
        m_coeffs.data(), m_coeffWidth, m_coeffHeight, x, y,
        m_method == PIV::INTERPOLATE_SHIFTED_LINEAR ? 1 : getDeformOrder(m_degree, m_method)));
}

bool Image2D_Deformation::planFrame(const DEFORM_FRAME& f, Plan& plan, const char* where) {
    const Image2D& src = *f.src;
    if (f.mask && (f.mask->isNull() || !f.mask->isSameSize(src, false))) {
        m_error.handleError(PIVerror::IMAGE_SIZE_MISMATCH, where);
        return false;
    }
    if (f.factor == 0.0) {
        m_error.setMessage("%s - deformation factor 0", where);
        m_error.handleError(PIVerror::BAD_PARAMETERS, where);
        return false;
    }
    if (&src == f.dst) {
        m_error.setMessage("%s - source and target are the same image", where);
        m_error.handleError(PIVerror::BAD_PARAMETERS, where);
        return false;
    }
    if (!f.dst->resize(int(src.width()), int(src.height()), IMAGE_FLOAT)) {
        m_error.handleError(f.dst->error().getLastErrorCode(), where);
        return false;
    }
    Image2D& source = const_cast<Image2D&>(src);  // statistics are cached, not content
    plan.frame = &f;
    plan.low = float(source.minimum());
    plan.high = float(source.maximum());
    plan.inv = float(1.0 / (-1.0 / f.factor));
    plan.vectorDegree = 0;
    return true;
}

bool Image2D_Deformation::prepareFrame(Plan& plan) {
    const Image2D& src = *plan.frame->src;
    const int width = int(src.width()), height = int(src.height());
    const bool spline =
        m_method == PIV::INTERPOLATE_BSPLINE || m_method == PIV::INTERPOLATE_SHIFTED_LINEAR;
    if (spline &&
        (!m_coeffsReady || m_source != &src || m_coeffWidth != width || m_coeffHeight != height)) {
        if (!prepareSplineCoefficients(src, m_method, m_degree)) return false;
        m_source = &src;
    }
    // The cubic and the quintic go through the vector loop, whose offsets
    // into the coefficients are 32-bit and which reads a whole stencil from
    // the corner even for points outside: the image must be larger than it.
    if (m_vectorised && m_method == PIV::INTERPOLATE_BSPLINE && (m_degree == 3 || m_degree == 5) &&
        m_coeffWidth == width && m_coeffHeight == height && width > m_degree && height > m_degree &&
        uint64_t(width) * uint64_t(height) < (uint64_t(1) << 31))
        plan.vectorDegree = m_degree;
    return true;
}

void Image2D_Deformation::warpRow(const Plan& plan, int row, const float* dxRow, const float* dyRow,
                                  int* pending, float* keep) const {
    const Image2D& src = *plan.frame->src;
    const Image2D* mask = plan.frame->mask;
    const int width = int(src.width());
    const float inv = plan.inv, low = plan.low, high = plan.high;
    float* out = plan.frame->dst->scanLine<float>(uint64_t(row));
    // The mask's row, and the source's where the mask holds pixels back:
    // whole rows, for a pixel read through the image's type costs more
    // than the warp of that pixel.
    const bool masked = mask && mask->getRow(keep, row) &&
                        std::any_of(keep, keep + width, [](float m) { return m != 0.0f; });
    float* source = keep + width;
    if (masked) src.getRow(source, row);
    if (plan.vectorDegree) {
        // Interior pixels many at a time; those whose stencil crosses the
        // border take the folding evaluation.
        const int border =
            PIV::WarpSplineRow(m_coeffs.data(), width, int(src.height()), plan.vectorDegree, row,
                               dxRow, dyRow, inv, low, high, out, pending);
        for (int k = 0; k < border; k++) {
            const int col = pending[k];
            const float x = float(col) + dxRow[size_t(col)] * inv;
            const float y = float(row) - dyRow[size_t(col)] * inv;
            out[col] = std::min(std::max(sourceValue(src, x, y), low), high);
        }
        if (masked)
            for (int col = 0; col < width; col++)
                if (keep[col] != 0.0f) out[col] = source[col];
        return;
    }
    for (int col = 0; col < width; col++) {
        if (masked && keep[col] != 0.0f) {
            out[col] = source[col];
            continue;
        }
        const float x = float(col) + dxRow[size_t(col)] * inv;
        const float y = float(row) - dyRow[size_t(col)] * inv;
        // Kernel overshoot must not invent intensities beyond the source's
        // range.
        out[col] = std::min(std::max(sourceValue(src, x, y), low), high);
    }
}

bool Image2D_Deformation::warp(const DEFORM_FRAME& first, Image2D_Deformation* other,
                               const DEFORM_FRAME* second, const PIV_DataBase& field,
                               const char* where) {
    const int count = other && second ? 2 : 1;
    Image2D_Deformation* owners[2] = {this, other};
    const DEFORM_FRAME* frames[2] = {&first, second};
    // The other deformer's failure, told by this one.
    const auto failed = [&](int i) {
        if (i > 0) {
            m_error.setMessage("%s", other->m_error.getLastError());
            m_error.handleError(other->m_error.getLastErrorCode(), where);
        }
        return false;
    };
    for (int i = 0; i < count; i++) {
        const Image2D* src = frames[i]->src;
        if (!src || !frames[i]->dst || src->isNull() || src->isZero()) {
            m_error.setMessage("%s - source image is empty", where);
            m_error.handleError(PIVerror::IMAGE_IS_NULL, where);
            return false;
        }
    }
    if (count == 2 && (other == this || first.dst == second->dst || first.dst == second->src ||
                       second->dst == first.src)) {
        // One deformer holds the coefficients of one source, and a target
        // written while the other frame reads it would change its result.
        m_error.setMessage("%s - the frames share a deformer or an image", where);
        m_error.handleError(PIVerror::BAD_PARAMETERS, where);
        return false;
    }
    if (count == 2 && !first.src->isSameSize(*second->src, false)) {
        m_error.setMessage("%s - the frames differ in size", where);
        m_error.handleError(PIVerror::IMAGE_SIZE_MISMATCH, where);
        return false;
    }
    if (field.isNull() || !field.haveRawData()) {
        m_error.setMessage("%s - missing displacement data!", where);
        m_error.handleError(PIVerror::CORRUPT_DATA, where);
        return false;
    }
    Plan plans[2];
    for (int i = 0; i < count; i++)
        if (!planFrame(*frames[i], plans[i], where)) return false;
    const int width = int(first.src->width()), height = int(first.src->height());

    PIV_Data2D_Deformation shift(&field, 0);
    shift.setMethod(PIV::INTERPOLATE_BSPLINE, 3);
    if (shift.isNull() || shift.isZero()) {
        // Nothing moves: the target is the source in float.
        for (int i = 0; i < count; i++) {
            for (int j = 0; j < height; j++)
                frames[i]->src->getRow(frames[i]->dst->scanLine<float>(uint64_t(j)), j);
            frames[i]->dst->doStatistics(true);
        }
        return true;
    }
    if (!shift.prepareSplineCoefficients()) {
        m_error.handleError(PIVerror::OPERATION_FAILED, where);
        return false;
    }
    shift.prepareColumns(width);
    for (int i = 0; i < count; i++)
        if (!owners[i]->prepareFrame(plans[i])) return failed(i);
    const int threads = PIV::MaxThreads();
    // Every worker's rows and scratch are allocated here, before the
    // workers start: an allocation that failed inside the parallel region
    // could only end the process.
    // Per worker: the field's dx and dy, then a mask row and a source row.
    const size_t perRows = 4 * size_t(width), perLines = shift.mapScratchSize();
    std::vector<float> rows;
    std::vector<double> lines;
    std::vector<int> pending;
    try {
        rows.resize(perRows * size_t(threads));
        lines.resize(std::max<size_t>(perLines, 1) * size_t(threads));
        pending.resize(size_t(width) * size_t(threads));
    } catch (const std::bad_alloc&) {
        m_error.setMessage("%s - no memory for %d rows of %d pixels", where, threads, width);
        m_error.handleError(PIVerror::ALLOCATION_FAILED, where);
        return false;
    }
    bool ok = true;
#pragma omp parallel num_threads(threads)
    {
        const size_t me = size_t(omp_get_thread_num());
        float* dxRow = rows.data() + me * perRows;
        float* dyRow = dxRow + width;
        double* scratch = lines.data() + me * std::max<size_t>(perLines, 1);
        int* pendingRow = pending.data() + me * size_t(width);
#pragma omp for schedule(static)
        for (int row = 0; row < height; row++) {
            if (!shift.mapData(row, width, dxRow, dyRow, scratch)) {
#pragma omp atomic write
                ok = false;
                continue;
            }
            for (int i = 0; i < count; i++)
                owners[i]->warpRow(plans[i], row, dxRow, dyRow, pendingRow, dyRow + width);
        }
    }
    if (!ok) {
        m_error.handleError(PIVerror::OPERATION_FAILED, where);
        return false;
    }
    for (int i = 0; i < count; i++) {
        frames[i]->dst->setFlagNeedStatistics(true);
        frames[i]->dst->setFlagChanged(true);
    }
    return true;
}
