// PIV_Data2D: spatial derivatives of a finished field and the three smoothers
// that the iterative evaluations and the post-processing chain apply.
#include <algorithm>
#include <cmath>
#include <vector>

#include "piv_data2d.h"
#include "piv_messages.h"
#include "piv_units.h"

namespace {

// A filter works on displacement and the physical values alike, so that a
// converted field stays consistent.
constexpr int kComponents = PIV::kTripleComponents;
constexpr const auto& kComponent = PIV::kTripleMembers;

// Median of `count` values, the mean of the middle two for an even count.
float MedianOf(float* values, int count) {
    std::sort(values, values + count);
    return (count & 1) ? values[count / 2] : 0.5f * (values[count / 2 - 1] + values[count / 2]);
}

// Median of the cells reached from `index` by the offsets; 3 to 9 cells.
float MedianFilter3x3(const float* data, long index, const long* offsets, int count) {
    if (count < 3 || count > 9) return 0.0f;
    float cells[9];
    for (int i = 0; i < count; i++) cells[i] = data[index + offsets[i]];
    return MedianOf(cells, count);
}

// Median filter of one array: size 3 by neighbour lists that shrink at the
// edges and corners, size 5 over the block of that radius clipped at the grid.
void MedianFilterDataArray2D(const float* in, float* out, int width, int height, int size,
                             int radius) {
    const long w = width;
    if (size == 3) {
        for (int j = 0; j < height; j++)
            for (int i = 0; i < width; i++) {
                long offsets[9];
                int n = 0;
                for (int dj = -1; dj <= 1; dj++)
                    for (int di = -1; di <= 1; di++) {
                        if (i + di < 0 || i + di >= width || j + dj < 0 || j + dj >= height)
                            continue;
                        offsets[n++] = dj * w + di;
                    }
                out[j * w + i] = MedianFilter3x3(in, j * w + i, offsets, n);
            }
        return;
    }
    for (int j = 0; j < height; j++)
        for (int i = 0; i < width; i++) {
            float cells[25];
            int n = 0;
            for (int b = std::max(j - radius, 0); b <= std::min(j + radius, height - 1); b++)
                for (int a = std::max(i - radius, 0); a <= std::min(i + radius, width - 1); a++)
                    cells[n++] = in[b * w + a];
            out[j * w + i] = MedianOf(cells, n);
        }
}

// Weighted mean over the square of `half` nodes around each node, clipped at
// the grid and normalised by the weights that took part; disabled vectors
// take part only with `useDisabled`. The results go to the enabled vectors.
// `out` holds nx * ny * kComponents values.
void SmoothPlane(PIV_VECTOR* v, int nx, int ny, int half, const std::vector<double>& weight,
                 bool useDisabled, std::vector<float>& out) {
    for (int j = 0; j < ny; j++)
        for (int i = 0; i < nx; i++) {
            double sum[kComponents] = {};
            double total = 0.0;
            for (int b = std::max(j - half, 0); b <= std::min(j + half, ny - 1); b++)
                for (int a = std::max(i - half, 0); a <= std::min(i + half, nx - 1); a++) {
                    const PIV_VECTOR& o = v[long(b) * nx + a];
                    if (!useDisabled && !(o.flag & VECTOR_ENABLED)) continue;
                    const double wt =
                        weight[size_t(std::abs(a - i))] * weight[size_t(std::abs(b - j))];
                    for (int c = 0; c < kComponents; c++) sum[c] += wt * (o.*kComponent[c]);
                    total += wt;
                }
            float* dst = &out[(size_t(j) * nx + i) * kComponents];
            const PIV_VECTOR& self = v[long(j) * nx + i];
            for (int c = 0; c < kComponents; c++)
                dst[c] = total > 0.0 ? float(sum[c] / total) : self.*kComponent[c];
        }
    for (long k = 0; k < long(nx) * ny; k++) {
        PIV_VECTOR& o = v[k];
        if (!(o.flag & VECTOR_ENABLED)) continue;
        for (int c = 0; c < kComponents; c++) o.*kComponent[c] = out[size_t(k) * kComponents + c];
        o.flag |= VECTOR_FILTERED;
    }
}

}  // namespace

bool PIV_Data2D::differentiate() {
    if (isNull()) return m_error.handleError(PIVerror::DATA_IS_NULL, "differentiate()"), false;
    PIVCONVERT_CFG& cv = m_params.convert;
    PIV::UpdateConversionFactors(&cv);
    const int nx = m_grid.nodes.width, ny = m_grid.nodes.height;
    const int nz = std::max(m_grid.nodes.depth, 1);
    const PIV_VECTOR* v = m_vectors.data();
    // Spacing from the nodes themselves, in physical units where known.
    double dx = nx > 1 ? std::abs(v[1].ix - v[0].ix) : 0.0;
    double dy = ny > 1 ? std::abs(v[nx].iy - v[0].iy) : 0.0;
    if (cv.LengthConversion[0] != 0.0) dx /= cv.LengthConversion[0];
    if (cv.LengthConversion[1] != 0.0) dy /= cv.LengthConversion[1];
    DebugPrintExt(2, "differentiate():  dx=%g  dy=%g", dx, dy);
    if (!allocDifferentials()) {
        m_error.handleError(PIVerror::OPERATION_FAILED, "differentiate()");
        return false;
    }
    std::fill(m_diff.begin(), m_diff.end(), DIFFERENTIALS());
    const double D = 4.0 * dx * dy * cv.velocityFactor;
    const bool speckle = m_analysisMode == PIV::ANALYSIS_SPECKLE;
    float PIV_VECTOR::*const fu = speckle ? &PIV_VECTOR::sx : &PIV_VECTOR::u;
    float PIV_VECTOR::*const fv = speckle ? &PIV_VECTOR::sy : &PIV_VECTOR::v;
    if (D != 0.0 && std::isfinite(D) && nx >= 3 && ny >= 3) {
        // Rows and columns may run against the physical axes: take the
        // direction from the node positions.
        const long right = v[1].ix >= v[0].ix ? 1 : -1;
        const long up = v[nx].iy <= v[0].iy ? long(nx) : -long(nx);
        for (int p = 0; p < nz * m_grid.timeSteps; p++) {
            const long base = long(p) * nx * ny;
            for (int j = 1; j < ny - 1; j++)
                for (int i = 1; i < nx - 1; i++) {
                    const long k = base + long(j) * nx + i;
                    // Trapezoid rule over the two segments of each edge of the block.
                    auto row = [&](long c, float PIV_VECTOR::*f) {
                        return 0.5 * dx *
                               (double(v[c - 1].*f) + 2.0 * double(v[c].*f) + double(v[c + 1].*f));
                    };
                    auto column = [&](long c, float PIV_VECTOR::*f) {
                        return 0.5 * dy *
                               (double(v[c - nx].*f) + 2.0 * double(v[c].*f) +
                                double(v[c + nx].*f));
                    };
                    DIFFERENTIALS& d = m_diff[size_t(k)];
                    d.dudy = float((row(k + up, fu) - row(k - up, fu)) / D);
                    d.dvdy = float((row(k + up, fv) - row(k - up, fv)) / D);
                    d.dudx = float((column(k + right, fu) - column(k - right, fu)) / D);
                    d.dvdx = float((column(k + right, fv) - column(k - right, fv)) / D);
                }
        }
    } else if (nx >= 3 && ny >= 3) {
        PrintWarning("differentiate() - no node spacing; the differentials stay zero");
    }
    m_differentiated = true;
    m_needsDifferentiation = false;
    // A gradient across an outlier would only spread its error.
    for (unsigned long k = 0; k < m_nodeCount && k < m_diff.size(); k++)
        if (m_vectors[k].flag & VECTOR_OUTLIER) m_diff[k] = DIFFERENTIALS();
    return true;
}

bool PIV_Data2D::medianFilter(int kernel, bool) {
    if (isNull()) return m_error.handleError(PIVerror::DATA_IS_NULL, "medianFilter()"), false;
    if (m_medianFiltered) {
        m_error.setMessage("medianFilter() - data is already median filtered!");
        return m_error.handleError(PIVerror::OPERATION_FAILED, "medianFilter()"), false;
    }
    const int nx = m_grid.nodes.width, ny = m_grid.nodes.height;
    if (nx < 3 || ny < 3) {
        m_error.setMessage("medianFilter() - data grid too small: %d x %d", nx, ny);
        return m_error.handleError(PIVerror::BAD_GRID_DIMENSION, "medianFilter()"), false;
    }
    int size = kernel < 4 ? 3 : 5;
    const int radius = kernel < 4 ? 1 : 2;
    DebugPrintExt(2, "medianFilter() - kernelSize = %d", size);
    if (size > nx || size > ny) size = 3;
    const size_t plane = size_t(nx) * ny;
    std::vector<float> in, out;
    if (!PIV::Guarded(m_error, "medianFilter()", [&] {
            in.resize(plane);
            out.resize(plane);
        }))
        return false;
    const int planes = std::max(m_grid.nodes.depth, 1) * m_grid.timeSteps;
    for (int p = 0; p < planes; p++) {
        PIV_VECTOR* v = m_vectors.data() + size_t(p) * plane;
        for (float PIV_VECTOR::*f : kComponent) {
            for (size_t k = 0; k < plane; k++) in[k] = v[k].*f;
            MedianFilterDataArray2D(in.data(), out.data(), nx, ny, size, radius);
            // Disabled vectors fed their neighbours' medians but keep their own value.
            for (size_t k = 0; k < plane; k++)
                if (v[k].flag & VECTOR_ENABLED) {
                    v[k].*f = out[k];
                    v[k].flag |= VECTOR_FILTERED;
                }
        }
    }
    m_medianFiltered = true;
    return true;
}

bool PIV_Data2D::smooth(int kernel, bool useDisabled) {
    if (isNull()) return m_error.handleError(PIVerror::DATA_IS_NULL, "smooth()"), false;
    if (m_smoothed) {
        m_error.setMessage("smooth() - data already is smoothed!");
        return m_error.handleError(PIVerror::OPERATION_NOT_POSSIBLE, "smooth()"), false;
    }
    const int nx = m_grid.nodes.width, ny = m_grid.nodes.height;
    if (nx < 3 || ny < 3) {
        m_error.setMessage("smooth() - data grid too small: %d x %d", nx, ny);
        return m_error.handleError(PIVerror::OPERATION_NOT_POSSIBLE, "smooth()"), false;
    }
    if (kernel < 2 || kernel > std::min(nx, ny)) kernel = 3;
    DebugPrintExt(2, "PIV_Data2D::smoothing - kernel=%d", kernel);
    const int half = kernel / 2;
    std::vector<double> box;
    std::vector<float> out;
    if (!PIV::Guarded(m_error, "smooth()", [&] {
            box.assign(size_t(half) + 1, 1.0);
            out.resize(size_t(nx) * ny * kComponents);
        }))
        return false;
    const int planes = std::max(m_grid.nodes.depth, 1) * m_grid.timeSteps;
    for (int p = 0; p < planes; p++)
        SmoothPlane(m_vectors.data() + size_t(p) * nx * ny, nx, ny, half, box, useDisabled, out);
    m_smoothed = true;
    return true;
}

bool PIV_Data2D::smoothGauss(double width, double cutOff, bool useDisabled) {
    if (isNull()) return m_error.handleError(PIVerror::DATA_IS_NULL, "smoothGauss()"), false;
    if (m_smoothed) {
        m_error.setMessage("smoothGauss() - data already is smoothed!");
        return m_error.handleError(PIVerror::OPERATION_NOT_POSSIBLE, "smoothGauss()"), false;
    }
    if (!(width > 0.0)) {
        m_error.setMessage("smoothGauss() - bad kernel width: %g", width);
        return m_error.handleError(PIVerror::BAD_KERNEL_SIZE, "smoothGauss()"), false;
    }
    if (!(cutOff > 0.0) || cutOff > 1.0) {
        m_error.setMessage("smoothGauss() - bad cut-off value: %g", cutOff);
        return m_error.handleError(PIVerror::BAD_PARAMETERS, "smoothGauss()"), false;
    }
    const int nx = m_grid.nodes.width, ny = m_grid.nodes.height;
    auto weightAt = [width](int i) { return std::exp(-double(i) * i / (2.0 * width * width)); };
    // The kernel ends at the first distance whose weight has fallen to the
    // cut-off; it never needs to reach beyond the grid.
    const int reach = std::max(nx, ny);
    int half = 0;
    while (weightAt(half) > cutOff && half < reach) half++;
    DebugPrintExt(2, "smoothGauss() - width2sigma=%g  w=%d  cutOff=%g", width, 2 * half + 1,
                  cutOff);
    std::vector<double> weight;
    std::vector<float> out;
    if (!PIV::Guarded(m_error, "smoothGauss()", [&] {
            weight.resize(size_t(half) + 1);
            out.resize(size_t(nx) * ny * kComponents);
        }))
        return false;
    for (int i = 0; i <= half; i++) weight[size_t(i)] = weightAt(i);
    const int planes = std::max(m_grid.nodes.depth, 1) * m_grid.timeSteps;
    for (int p = 0; p < planes; p++)
        SmoothPlane(m_vectors.data() + size_t(p) * nx * ny, nx, ny, half, weight, useDisabled, out);
    m_smoothed = true;
    return true;
}
