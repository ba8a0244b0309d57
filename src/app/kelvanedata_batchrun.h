// The state of one batch run of KelvaneData, between turns of the event loop.
#pragma once

#include <QStringList>

#include <string>

#include "batchprocessoptions.h"
#include "piv_data2d_stats.h"

// File names between Qt and the library, which takes them in the local
// 8-bit encoding.
inline std::string _local(const QString& text) {
    return text.toLocal8Bit().toStdString();
}
inline QString _fromLocal(const std::string& text) {
    return QString::fromLocal8Bit(text.c_str());
}

struct KelvaneData::BatchRun {
    BatchProcessOptions options;
    int index = -1;  // the file in hand
    int failed = 0;
    bool evaluating = false;
    QStringList written;   // NetCDF results, for the second pass
    QStringList failures;  // "file: why"
    QString saveError;     // why the last file was not saved
    PIV_Data2D_Stats stats;
};
