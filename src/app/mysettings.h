// The settings store: QSettings with typed members that serve both directions.
#pragma once

#include <QSettings>
#include <QString>

class MySettings : public QSettings {
public:
    enum Mode { READ = 0, WRITE = 1 };

    MySettings(const QString& organization, const QString& application);

    // READ takes the stored value with the field's value as default; WRITE stores the field.
    void serializeBool(int mode, const QString& key, bool* value);
    void serializeInt(int mode, const QString& key, int* value);
    void serializeDouble(int mode, const QString& key, double* value);
    void serializeString(int mode, const QString& key, QString* value);

private:
    template <typename T>
    void serializeValue(int mode, const QString& key, T* value);
};
