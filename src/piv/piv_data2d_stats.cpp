// One-field statistics of PIV_Data2D: what validation tests against and the
// status line shows.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>

#include "piv_data2d.h"

namespace {

// The float members of a vector from dx on: dx .. residual and the peaks.
constexpr int kFloats = 22;
static_assert(offsetof(PIV_VECTOR, flag) - offsetof(PIV_VECTOR, dx) == kFloats * sizeof(float),
              "the float members of PIV_VECTOR run unbroken from dx to the last peak");

// Running minimum, maximum, mean and second moment, updated one value at a time.
struct Accumulator {
    double mean = 0.0, m2 = 0.0, minimum = 0.0, maximum = 0.0;
    void add(double x, double n) {
        if (n == 1.0) {
            minimum = maximum = x;
        } else {
            minimum = std::min(minimum, x);
            maximum = std::max(maximum, x);
        }
        const double delta = x - mean;
        const double deltaN = delta / n;
        mean += deltaN;
        m2 += delta * deltaN * (n - 1.0);
    }
};

}  // namespace

bool PIV_Data2D::doStatistics() {
    if (!haveRawData()) return m_error.handleError(PIVerror::DATA_IS_NULL, "doStatistics()"), false;
    Accumulator acc[kFloats + 1];
    double n = 0.0;
    const int nodes = nodeCount();
    m_active = m_masked = m_interpolated = m_replaced = m_disabled = 0;
    for (int k = 0; k < nodes; k++) {
        const PIV_VECTOR& v = m_vectors[size_t(k)];
        const uint8_t f = v.flag;
        if (f & VECTOR_ENABLED) m_active++;
        if (f & VECTOR_MASKED) m_masked++;
        if (f & VECTOR_INTERPOLATED) m_interpolated++;
        if (f & VECTOR_LOWER_PEAK) m_replaced++;
        if (f & VECTOR_OUTLIER) m_disabled++;
        if (!(f & VECTOR_ENABLED)) continue;
        n += 1.0;
        float values[kFloats];
        std::memcpy(values, &v.dx, sizeof(values));
        for (int i = 0; i < kFloats; i++) acc[i].add(values[i], n);
        acc[kFloats].add(v.count, n);
    }
    for (PIV_VECTOR& s : m_stats) s = PIV_VECTOR();
    if (n == 0.0) {
        m_error.setMessage("doStatistics() - no valid data in set!");
        m_error.handleError(PIVerror::OPERATION_FAILED, "doStatistics()");
        return false;
    }
    float minimum[kFloats], maximum[kFloats], mean[kFloats], deviation[kFloats];
    for (int i = 0; i < kFloats; i++) {
        minimum[i] = float(acc[i].minimum);
        maximum[i] = float(acc[i].maximum);
        mean[i] = float(acc[i].mean);
        deviation[i] = float(std::sqrt(acc[i].m2 / n));
    }
    std::memcpy(&m_stats[0].dx, minimum, sizeof(minimum));
    std::memcpy(&m_stats[1].dx, maximum, sizeof(maximum));
    std::memcpy(&m_stats[2].dx, mean, sizeof(mean));
    std::memcpy(&m_stats[3].dx, deviation, sizeof(deviation));
    const Accumulator& c = acc[kFloats];
    m_stats[0].count = int32_t(c.minimum);
    m_stats[1].count = int32_t(c.maximum);
    m_stats[2].count = int32_t(c.mean);
    m_stats[3].count = int32_t(std::sqrt(c.m2 / n));
    return true;
}
