// BatchProcessOptions: everything one batch run needs, as the batch dialog
// gives it back; a value, copied at the start so that the dialog may change
// while the run goes on.
#pragma once

#include <QString>
#include <QStringList>

#include "mysettings.h"
#include "piv_corr2d_average.h"
#include "piv_types.h"

class BatchProcessOptions {
public:
    BatchProcessOptions() { init(); }
    // The defaults; directories are the current one.
    void init();
    // The fields under `group` of the store, both directions.
    void registryIO(MySettings& s, MySettings::AccessMode mode, const QString& group);
    // The output block of the stored switches and the format.
    OUTPUT_CFG outputCfg() const;
    // The ASCII or Tecplot results: their suffix ("plt" for Tecplot, else
    // "dat") and their record, in shifts or in velocities.
    QString otherFormat() const {
        return outputFormat == 2 ? QStringLiteral("plt") : QStringLiteral("dat");
    }
    OUTPUT_CFG otherOutputCfg(bool velocity) const;
    // The ensemble record with the switches of the dialog.
    CORR_AVERAGE_PARAMS ensembleParams() const;
    // Fills fileList from the dropped files, else from the source directory
    // (empty when it is not there) and the filter, then takes the
    // sub-series; the count of files before the sub-series.
    int updateFileList();
    // Every listed file and its partner by the naming rules, as clean
    // absolute paths: what no output of a run may be written onto.
    QStringList inputFrames() const;
    // Where the results go: the destination, or the source directory.
    QString resultDir() const { return dataDestDirEnable ? destDir : sourceDir; }
    // The file types of the list; "PCO-Double" marks split images.
    static QStringList fileTypes();
    bool isSplitType() const;

    QString sourceDir;
    int fileType;
    QString fileFilter;
    bool fileSubSet;
    int fileIndexStart, fileIndexIncr;
    QString fileStub;
    QString destDir;
    bool dataDestDirEnable;
    QString displFile;
    bool displFileEnable;
    QString parFile;
    bool parFileEnable;
    int outputFormat;  // an OUTPUT_CFG format: 3 NetCDF, 2 Tecplot binary, else text
    bool outputNetCDF, outputOther;
    bool storeIntermediate, storeRawData, storeMagnitude, storeAllPeaks, storeCorrCoeff,
        storeSNRData, storeVelocity, storeDifferentials, storeVorticity, storeShear, storeNStrain,
        storeDiscriminant, storeEnstrophy, storeLambda2, storeZCoords, outputSkipOutliers;
    QString plotExportFormat;  // empty: no plot beside the results
    bool plotHideImage;
    bool doPostProcessing;
    int imageFrameSeparation;
    bool doReynoldsStresses, storeFluctuations;
    bool imageSeqCalcMinimum, imageSeqCalcMaximum, imageSeqCalcAverage, imageSeqCalcAverageMod;
    int imageSeqCalcAverageModOffset;
    bool imageSeqCalcRMS;
    bool imageDestDirEnable, imageFilesArePairs;
    bool updateAutomatically;
    bool ensembleEnable, ensembleSaveData, ensembleDisplayImage, ensembleSaveImage,
        ensembleCalcAutocorr;
    int ensembleEvalMethod, ensembleEvalPasses, ensembleMinFiles;
    bool ensembleVaryStride, ensembleSaveIntermediate;
    int ensembleMultiGridStartWin, ensemblePeakFitMethod;
    float ensemblePeakRelThresh;
    // Files dropped on the dialog, full paths in the order dropped: while
    // there are any they are the files, instead of the folder and the filter.
    // Not stored: a drop chooses for one run.
    QStringList droppedFiles;

    // Computed at the start of a run.
    QStringList fileList;  // absolute paths
    QString outputBase;    // result directory and stub
    QString meanFileName;

private:
    explicit BatchProcessOptions(int);
};
