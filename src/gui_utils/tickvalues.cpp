#include "tickvalues.h"

#include <algorithm>
#include <cmath>

QVector<TickValue> TickValues(double anchor, double incr, double lo, double hi, int minor) {
    QVector<TickValue> ticks;
    if (!(incr > 0) || !std::isfinite(anchor) || !std::isfinite(lo) || !std::isfinite(hi))
        return ticks;
    if (lo > hi) std::swap(lo, hi);
    const long per = std::max(0, minor) + 1L;
    const double step = incr / double(per);
    // A tick a hair outside by rounding still counts.
    const double first = std::ceil((lo - anchor) / step - 1e-9);
    const double last = std::floor((hi - anchor) / step + 1e-9);
    // Also no ticks so far from the anchor that their numbers leave the
    // exactly countable range of a double.
    constexpr double kCountable = 9007199254740992.0;  // 2^53
    if (!(last - first < 10000) || !(std::fabs(first) < kCountable) ||
        !(std::fabs(last) < kCountable))
        return ticks;
    for (long j = long(first); j <= long(last); j++)
        ticks.append(TickValue{anchor + double(j) * step, ((j % per) + per) % per == 0});
    return ticks;
}

QString TickLabel(double value, double incr) {
    if (std::fabs(value) < 1e-9 * std::fabs(incr)) value = 0;
    return QString::number(value, 'g', 6);
}
