// One-field statistics of a vector field: what validation tests against and
// the status line shows.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include "piv_database.h"
#include "piv_messages.h"

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

bool PIV_DataBase::doStatistics() {
    if (!haveRawData()) return m_error.handleError(PIVerror::DATA_IS_NULL, "doStatistics()"), false;
    Accumulator acc[kFloats + 1];
    double n = 0.0;
    const unsigned long nodes = m_nodeCount;
    m_active = m_masked = m_interpolated = m_replaced = m_disabled = 0;
    for (unsigned long k = 0; k < nodes; k++) {
        const PIV_VECTOR& v = m_vectors[k];
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
    for (DIFFERENTIALS& s : m_diffStats) s = DIFFERENTIALS();
    if (n == 0.0) {
        std::memset(m_formattedStats, 0, sizeof(m_formattedStats));
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
    formatStatistics();
    if (m_differentiated) return doDiffStatistics();
    return true;
}

bool PIV_DataBase::doDiffStatistics() {
    if (m_diff.empty() || m_diff.size() < m_nodeCount)
        return m_error.handleError(PIVerror::DATA_IS_NULL, "doDiffStatistics()"), false;
    constexpr int kDiff = 9;
    Accumulator acc[kDiff];
    double n = 0.0;
    for (unsigned long k = 0; k < m_nodeCount; k++) {
        if (!(m_vectors[k].flag & VECTOR_ENABLED)) continue;
        n += 1.0;
        float values[kDiff];
        std::memcpy(values, &m_diff[k], sizeof(values));
        for (int i = 0; i < kDiff; i++) acc[i].add(values[i], n);
    }
    for (DIFFERENTIALS& s : m_diffStats) s = DIFFERENTIALS();
    if (n == 0.0) return true;
    float minimum[kDiff], maximum[kDiff], mean[kDiff], deviation[kDiff];
    for (int i = 0; i < kDiff; i++) {
        minimum[i] = float(acc[i].minimum);
        maximum[i] = float(acc[i].maximum);
        mean[i] = float(acc[i].mean);
        deviation[i] = float(std::sqrt(acc[i].m2 / n));
    }
    std::memcpy(&m_diffStats[0], minimum, sizeof(minimum));
    std::memcpy(&m_diffStats[1], maximum, sizeof(maximum));
    std::memcpy(&m_diffStats[2], mean, sizeof(mean));
    std::memcpy(&m_diffStats[3], deviation, sizeof(deviation));
    return true;
}

void PIV_DataBase::formatStatistics() {
    char* buf = m_formattedStats;
    const size_t size = sizeof(m_formattedStats);
    const SIZE3D& nodes = m_grid.nodes;
    int len;
    if (nodes.depth < 2)
        len = std::snprintf(buf, size, "\tGrid size: %d x %d  (%d time steps) = %lu vectors",
                            nodes.width, nodes.height, m_grid.timeSteps, m_nodeCount);
    else
        len = std::snprintf(buf, size, "\tGrid size: %d x %d x %d (%d time steps) = %lu vectors",
                            nodes.width, nodes.height, nodes.depth, m_grid.timeSteps, m_nodeCount);
    auto append = [&](const char* format, auto... args) {
        if (len < 0 || size_t(len) >= size) return;
        const int n = std::snprintf(buf + len, size - size_t(len), format, args...);
        if (n > 0) len += n;
    };
    // Active, replaced and interpolated are shares of the nodes outside the
    // mask; disabled (less the masked ones) and masked are shares of all.
    const double all = double(std::max<unsigned long>(m_nodeCount, 1));
    const double unmasked = double(std::max<unsigned long>(m_nodeCount - m_masked, 1));
    const unsigned long disabled = m_disabled > m_masked ? m_disabled - m_masked : 0;
    append(
        "\n\t%7lu active       (%.1f%% w/o mask)\n\t%7lu disabled     (%.1f%% w/o mask)"
        "\n\t%7lu masked       (%.1f%%)\n\t%7lu replaced     (%.1f%% w/o mask)"
        "\n\t%7lu interpolated (%.1f%% w/o mask)",
        m_active, 100.0 * double(m_active) / unmasked, disabled, 100.0 * double(disabled) / all,
        m_masked, 100.0 * double(m_masked) / all, m_replaced, 100.0 * double(m_replaced) / unmasked,
        m_interpolated, 100.0 * double(m_interpolated) / unmasked);
    const PIV_VECTOR& lo = m_stats[0];
    const PIV_VECTOR& hi = m_stats[1];
    const PIV_VECTOR& mean = m_stats[2];
    const PIV_VECTOR& dev = m_stats[3];
    append(
        "\n\tshift X[px]: %.3f +/- %.4f   Range: ( %g, %g )"
        "\n\tshift Y[px]: %.3f +/- %.4f   Range: ( %g, %g )",
        double(mean.dx), double(dev.dx), double(lo.dx), double(hi.dx), double(mean.dy),
        double(dev.dy), double(lo.dy), double(hi.dy));
    if (m_3C)
        append("\n\tshift Z[px]: %.3f +/- %.4f   Range: ( %g, %g )", double(mean.dz),
               double(dev.dz), double(lo.dz), double(hi.dz));
    DebugPrintExt(2, "%s", buf);
    DebugPrintExt(3, "\t(size of buf: %d)", int(std::strlen(buf)));
}
