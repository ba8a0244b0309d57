// Tick values of a colour bar or an axis scale: anchor + k·incr, with
// `minor` minor ticks between two major ones.
#pragma once

#include <QString>
#include <QVector>

// Pixels between a tick and its label, and between a scale and its title.
constexpr double kLabelGap = 2;

struct TickValue {
    double value;
    bool major;
};

// The ticks within [lo, hi] (either order), ascending. None for an increment
// that is not positive, or when there would be more than 10000.
QVector<TickValue> TickValues(double anchor, double incr, double lo, double hi, int minor);
// A tick label: six significant digits, and 0 for the rounding noise of a
// tick that should be zero.
QString TickLabel(double value, double incr);
