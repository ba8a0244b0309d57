// Colours in the plot records are 32-bit integers. One with a zero alpha byte
// was written as 0xRRGGBB (the settings store and older plot files) and is
// opaque; any other carries its own alpha.
#pragma once

#include <QColor>
#include <cstdint>

inline QRgb RecordRgb(uint32_t value) {
    return (value & 0xff000000u) ? QRgb(value) : QRgb(value | 0xff000000u);
}

inline QColor RecordColor(uint32_t value) {
    return QColor::fromRgba(RecordRgb(value));
}
