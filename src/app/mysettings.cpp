#include "mysettings.h"

MySettings::MySettings(const QString& organization, const QString& application)
    : QSettings(organization, application) {}

template <typename T>
void MySettings::serializeValue(int mode, const QString& key, T* value) {
    if (!value) return;
    if (mode == WRITE)
        setValue(key, *value);
    else
        *value = QSettings::value(key, *value).template value<T>();
}

void MySettings::serializeBool(int mode, const QString& key, bool* value) {
    serializeValue(mode, key, value);
}
void MySettings::serializeInt(int mode, const QString& key, int* value) {
    serializeValue(mode, key, value);
}
void MySettings::serializeDouble(int mode, const QString& key, double* value) {
    serializeValue(mode, key, value);
}
void MySettings::serializeString(int mode, const QString& key, QString* value) {
    serializeValue(mode, key, value);
}
