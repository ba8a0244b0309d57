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
    return warp(src, dst, nullptr, field, factor, "deformWithPivData()");
}

bool Image2D_Deformation::deformWithMaskedPivData(const Image2D& src, Image2D& dst,
                                                  const Image2D& mask, const PIV_DataBase& field,
                                                  double factor) {
    if (mask.isNull() || !mask.isSameSize(src, false)) {
        m_error.handleError(PIVerror::IMAGE_SIZE_MISMATCH, "deformWithMaskedPivData()");
        return false;
    }
    return warp(src, dst, &mask, field, factor, "deformWithMaskedPivData()");
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

bool Image2D_Deformation::warp(const Image2D& src, Image2D& dst, const Image2D* mask,
                               const PIV_DataBase& field, double factor, const char* where) {
    if (src.isNull() || src.isZero()) {
        m_error.setMessage("%s - source image is empty", where);
        m_error.handleError(PIVerror::IMAGE_IS_NULL, where);
        return false;
    }
    if (field.isNull() || !field.haveRawData()) {
        m_error.setMessage("%s - missing displacement data!", where);
        m_error.handleError(PIVerror::CORRUPT_DATA, where);
        return false;
    }
    if (factor == 0.0) {
        m_error.setMessage("%s - deformation factor 0", where);
        m_error.handleError(PIVerror::BAD_PARAMETERS, where);
        return false;
    }
    if (&src == &dst) {
        m_error.setMessage("%s - source and target are the same image", where);
        m_error.handleError(PIVerror::BAD_PARAMETERS, where);
        return false;
    }
    const int width = int(src.width()), height = int(src.height());
    if (!dst.resize(width, height, IMAGE_FLOAT)) {
        m_error.handleError(dst.error().getLastErrorCode(), where);
        return false;
    }
    Image2D& source = const_cast<Image2D&>(src);  // statistics are cached, not content
    const double low = source.minimum(), high = source.maximum();

    PIV_Data2D_Deformation shift(&field, 0);
    shift.setMethod(PIV::INTERPOLATE_BSPLINE, 3);
    if (shift.isNull() || shift.isZero()) {
        // Nothing moves: the target is the source in float.
        for (int j = 0; j < height; j++) {
            float* out = dst.scanLine<float>(uint64_t(j));
            src.getRow(out, j);
        }
        dst.doStatistics(true);
        return true;
    }
    if (!shift.prepareSplineCoefficients()) {
        m_error.handleError(PIVerror::OPERATION_FAILED, where);
        return false;
    }
    shift.prepareColumns(width);
    const bool spline =
        m_method == PIV::INTERPOLATE_BSPLINE || m_method == PIV::INTERPOLATE_SHIFTED_LINEAR;
    if (spline &&
        (!m_coeffsReady || m_source != &src || m_coeffWidth != width || m_coeffHeight != height)) {
        if (!prepareSplineCoefficients(src, m_method, m_degree)) return false;
        m_source = &src;
    }
    const float lowF = float(low), highF = float(high);
    // The cubic and the quintic go through the vector loop, whose offsets
    // into the coefficients are 32-bit and which reads a whole stencil from
    // the corner even for points outside: the image must be larger than it.
    int vectorDegree = 0;
    if (m_vectorised && m_method == PIV::INTERPOLATE_BSPLINE && (m_degree == 3 || m_degree == 5) &&
        m_coeffWidth == width && m_coeffHeight == height && width > m_degree && height > m_degree &&
        uint64_t(width) * uint64_t(height) < (uint64_t(1) << 31))
        vectorDegree = m_degree;
    const double scale = -1.0 / factor;
    const float inv = float(1.0 / scale);
    const int threads = PIV::MaxThreads();
    // Every worker's rows and scratch are allocated here, before the
    // workers start: an allocation that failed inside the parallel region
    // could only end the process.
    const size_t perRows = 2 * size_t(width), perLines = shift.mapScratchSize();
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
            float* out = dst.scanLine<float>(uint64_t(row));
            if (!shift.mapData(row, width, dxRow, dyRow, scratch)) {
#pragma omp atomic write
                ok = false;
                continue;
            }
            if (vectorDegree) {
                // Interior pixels many at a time; those whose stencil
                // crosses the border take the folding evaluation.
                const int border =
                    PIV::WarpSplineRow(m_coeffs.data(), width, height, vectorDegree, row, dxRow,
                                       dyRow, inv, lowF, highF, out, pendingRow);
                for (int k = 0; k < border; k++) {
                    const int col = pendingRow[k];
                    const float x = float(col) + dxRow[size_t(col)] * inv;
                    const float y = float(row) - dyRow[size_t(col)] * inv;
                    out[col] = std::min(std::max(sourceValue(src, x, y), lowF), highF);
                }
                if (mask)
                    for (int col = 0; col < width; col++)
                        if (mask->pixel(col, row) != 0.0f) out[col] = src.pixel(col, row);
                continue;
            }
            for (int col = 0; col < width; col++) {
                if (mask && mask->pixel(col, row) != 0.0f) {
                    out[col] = src.pixel(col, row);
                    continue;
                }
                const float x = float(col) + dxRow[size_t(col)] * inv;
                const float y = float(row) - dyRow[size_t(col)] * inv;
                // Kernel overshoot must not invent intensities beyond the
                // source's range.
                out[col] = std::min(std::max(sourceValue(src, x, y), lowF), highF);
            }
        }
    }
    if (!ok) {
        m_error.handleError(PIVerror::OPERATION_FAILED, where);
        return false;
    }
    dst.setFlagNeedStatistics(true);
    dst.setFlagChanged(true);
    return true;
}
