// The settings store: QSettings with typed members that serve both directions.
#pragma once

#include <QSettings>
#include <QString>

#include "piv_types.h"

class MySettings : public QSettings {
public:
    enum AccessMode { READ = 0, WRITE = 1 };

    MySettings(const QString& organization, const QString& application);
    // A store in a file of its own, such as the INI file of a test.
    MySettings(const QString& fileName, QSettings::Format format);

    // READ takes the stored value with the field's value as default, so an
    // absent key leaves the field alone; WRITE stores the field. The store is
    // a text file that users edit: a value that does not parse as the field's
    // type, or lies outside its range, also leaves the field alone.
    void serializeBool(AccessMode mode, const QString& key, bool* value);
    void serializeInt(AccessMode mode, const QString& key, int* value);
    void serializeFloat(AccessMode mode, const QString& key, float* value);
    void serializeDouble(AccessMode mode, const QString& key, double* value);
    void serializeString(AccessMode mode, const QString& key, QString* value);
    // Latin-1 text in a fixed buffer of size bytes. A longer stored text is cut
    // to its first size - 1 characters; the rest of the buffer is cleared, so
    // that records holding the same text compare equal byte for byte.
    void serializeCharString(AccessMode mode, const QString& key, char* buffer, int size);
    // "x, y, z"; read only when the list has exactly three numbers, each
    // truncated to an integer.
    void serializePoint3D(AccessMode mode, const QString& key, POINT3D* value);
    void serializeSize3D(AccessMode mode, const QString& key, SIZE3D* value);
    // "left, right, top, bottom, front, back"; read only with exactly six numbers.
    void serializeRect3D(AccessMode mode, const QString& key, RECT3D* value);
    // A list of count floats, read only when it has exactly count numbers.
    void serializeFloats(AccessMode mode, const QString& key, float* values, int count);

private:
    void serializeInts(AccessMode mode, const QString& key, int* values, int count);
};
