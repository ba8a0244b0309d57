#include "mysettings.h"

#include <QStringList>
#include <QVariant>

#include <algorithm>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstring>
#include <vector>

#include "piv_record.h"

namespace {

bool _parseFloat(const QVariant& v, float* out) {
    constexpr double limit = 3.4028235e38;  // the texts that still round to FLT_MAX
    bool ok = false;
    const double d = v.toDouble(&ok);
    if (!ok || !(std::fabs(d) <= limit)) return false;
    *out = float(std::clamp(d, -double(FLT_MAX), double(FLT_MAX)));
    return true;
}

// The shortest text that reads back as the same float, so that the store shows
// "0.2" rather than the digits of the float's double.
QString _floatText(float v) {
    QString text;
    for (int digits = 6; digits <= 9; ++digits) {
        text = QString::number(double(v), 'g', digits);
        float back = 0.0f;
        if (_parseFloat(text, &back) && back == v) break;
    }
    return text;
}

// A list entry: a number of any form, truncated towards zero.
bool _parseTruncated(const QString& text, int* out) {
    bool ok = false;
    const double d = text.trimmed().toDouble(&ok);
    if (!ok || !(d > double(INT_MIN) - 1.0 && d < double(INT_MAX) + 1.0)) return false;
    *out = int(d);
    return true;
}

}  // namespace

MySettings::MySettings(const QString& organization, const QString& application)
    : QSettings(organization, application) {}

MySettings::MySettings(const QString& fileName, QSettings::Format format)
    : QSettings(fileName, format) {}

void MySettings::serializeBool(AccessMode mode, const QString& key, bool* value) {
    if (!value) return;
    if (mode == WRITE) {
        setValue(key, *value);
        return;
    }
    if (!contains(key)) return;
    const QVariant v = QSettings::value(key);
    if (v.type() == QVariant::Bool) {
        *value = v.toBool();
        return;
    }
    if (v.type() != QVariant::String) return;
    const QString text = v.toString().trimmed().toLower();
    if (text == QLatin1String("true") || text == QLatin1String("1"))
        *value = true;
    else if (text == QLatin1String("false") || text == QLatin1String("0"))
        *value = false;
}

void MySettings::serializeInt(AccessMode mode, const QString& key, int* value) {
    if (!value) return;
    if (mode == WRITE) {
        setValue(key, *value);
        return;
    }
    if (!contains(key)) return;
    bool ok = false;
    const int n = QSettings::value(key).toInt(&ok);
    if (ok) *value = n;
}

void MySettings::serializeFloat(AccessMode mode, const QString& key, float* value) {
    if (!value) return;
    if (mode == WRITE)
        setValue(key, _floatText(*value));
    else if (contains(key))
        _parseFloat(QSettings::value(key), value);
}

void MySettings::serializeDouble(AccessMode mode, const QString& key, double* value) {
    if (!value) return;
    if (mode == WRITE) {
        setValue(key, *value);
        return;
    }
    if (!contains(key)) return;
    bool ok = false;
    const double d = QSettings::value(key).toDouble(&ok);
    if (ok && std::isfinite(d)) *value = d;
}

void MySettings::serializeString(AccessMode mode, const QString& key, QString* value) {
    if (!value) return;
    if (mode == WRITE) {
        setValue(key, *value);
        return;
    }
    if (!contains(key)) return;
    // A hand-written text with commas comes back from the INI reader as a list.
    const QVariant v = QSettings::value(key);
    *value = v.type() == QVariant::StringList ? v.toStringList().join(QLatin1String(", "))
                                              : v.toString();
}

void MySettings::serializeCharString(AccessMode mode, const QString& key, char* buffer, int size) {
    if (!buffer || size < 1) return;
    QString text = QString::fromLatin1(buffer, int(::strnlen(buffer, size_t(size))));
    serializeString(mode, key, &text);
    if (mode == READ && contains(key))
        PIV::CopyText(buffer, size_t(size), text.toLatin1().constData());
}

void MySettings::serializeInts(AccessMode mode, const QString& key, int* values, int count) {
    if (mode == WRITE) {
        QStringList list;
        for (int i = 0; i < count; ++i) list << QStringLiteral("%1").arg(values[i]);
        setValue(key, list);
        return;
    }
    if (!contains(key)) return;
    const QStringList list = QSettings::value(key).toStringList();
    if (list.size() != count) return;
    std::vector<int> parsed(size_t(count), 0);
    for (int i = 0; i < count; ++i)
        if (!_parseTruncated(list[i], &parsed[size_t(i)])) return;
    std::copy(parsed.begin(), parsed.end(), values);
}

void MySettings::serializeFloats(AccessMode mode, const QString& key, float* values, int count) {
    if (!values || count < 1) return;
    if (mode == WRITE) {
        QStringList list;
        for (int i = 0; i < count; ++i) list << _floatText(values[i]);
        setValue(key, list);
        return;
    }
    if (!contains(key)) return;
    const QStringList list = QSettings::value(key).toStringList();
    if (list.size() != count) return;
    std::vector<float> parsed(size_t(count), 0.0f);
    for (int i = 0; i < count; ++i)
        if (!_parseFloat(list[i].trimmed(), &parsed[size_t(i)])) return;
    std::copy(parsed.begin(), parsed.end(), values);
}

void MySettings::serializePoint3D(AccessMode mode, const QString& key, POINT3D* value) {
    if (!value) return;
    int v[3] = {value->x, value->y, value->z};
    serializeInts(mode, key, v, 3);
    *value = POINT3D{v[0], v[1], v[2]};
}

void MySettings::serializeSize3D(AccessMode mode, const QString& key, SIZE3D* value) {
    if (!value) return;
    int v[3] = {value->width, value->height, value->depth};
    serializeInts(mode, key, v, 3);
    *value = SIZE3D{v[0], v[1], v[2]};
}

void MySettings::serializeRect3D(AccessMode mode, const QString& key, RECT3D* value) {
    if (!value) return;
    int v[6] = {value->left, value->right, value->top, value->bottom, value->front, value->back};
    serializeInts(mode, key, v, 6);
    *value = RECT3D{v[0], v[1], v[2], v[3], v[4], v[5]};
}
