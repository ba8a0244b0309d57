// The state of one batch run of KelvaneData, between turns of the event loop.
#pragma once

#include <QStringList>

#include "batchprocessoptions.h"
#include "piv_data2d_stats.h"

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
