// File names going into the library's records, whose text fields are fixed
// arrays: a name is stored whole or not at all, since a cut name names
// another file.
#pragma once

#include <QByteArray>
#include <QString>
#include <cstddef>

#include "piv_record.h"

// False, with `field` left as it was, when the name in the local encoding
// does not fit beside its terminator.
template <std::size_t N>
bool StorePath(char (&field)[N], const QString& path) {
    const QByteArray name = path.toLocal8Bit();
    if (std::size_t(name.size()) >= N) return false;
    PIV::CopyText(field, name.constData());
    return true;
}
