#include "batchprocessoptions.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>

#include "piv_enums.h"
#include "piv_filename.h"

void BatchProcessOptions::init() {
    *this = BatchProcessOptions(0);
}

// All fields by name, so that init() cannot miss one that a later member adds.
BatchProcessOptions::BatchProcessOptions(int)
    : sourceDir(QDir::currentPath()),
      fileType(0),
      fileFilter(QStringLiteral("*")),
      fileSubSet(false),
      fileIndexStart(0),
      fileIndexIncr(1),
      destDir(QDir::currentPath()),
      dataDestDirEnable(false),
      displFile(QStringLiteral("disparity.nc")),
      displFileEnable(false),
      parFileEnable(false),
      outputFormat(3),
      outputNetCDF(true),
      outputOther(false),
      storeIntermediate(false),
      storeRawData(false),
      storeMagnitude(false),
      storeAllPeaks(false),
      storeCorrCoeff(false),
      storeSNRData(false),
      storeVelocity(false),
      storeDifferentials(false),
      storeVorticity(false),
      storeShear(false),
      storeNStrain(false),
      storeDiscriminant(false),
      storeEnstrophy(false),
      storeLambda2(false),
      storeZCoords(false),
      outputSkipOutliers(false),
      plotExportFormat(QStringLiteral("bmp")),
      plotHideImage(false),
      doPostProcessing(false),
      imageFrameSeparation(1),
      doReynoldsStresses(false),
      storeFluctuations(false),
      imageSeqCalcMinimum(false),
      imageSeqCalcMaximum(false),
      imageSeqCalcAverage(false),
      imageSeqCalcAverageMod(false),
      imageSeqCalcAverageModOffset(0),
      imageSeqCalcRMS(false),
      imageDestDirEnable(false),
      imageFilesArePairs(false),
      updateAutomatically(false),
      ensembleEnable(false),
      ensembleSaveData(true),
      ensembleDisplayImage(false),
      ensembleSaveImage(false),
      ensembleCalcAutocorr(false),
      ensembleEvalMethod(0),
      ensembleEvalPasses(1),
      ensembleMinFiles(2),
      ensembleVaryStride(false),
      ensembleSaveIntermediate(false),
      ensembleMultiGridStartWin(64),
      ensemblePeakFitMethod(0),
      ensemblePeakRelThresh(0.5f) {}

void BatchProcessOptions::registryIO(MySettings& s, MySettings::AccessMode mode,
                                     const QString& group) {
    const auto key = [&group](const char* name) {
        return group + QLatin1Char('/') + QLatin1String(name);
    };
    s.serializeString(mode, key("SourceDir"), &sourceDir);
    s.serializeInt(mode, key("FileType"), &fileType);
    s.serializeString(mode, key("FileFilter"), &fileFilter);
    s.serializeBool(mode, key("FileSubSet"), &fileSubSet);
    s.serializeInt(mode, key("FileIndexStart"), &fileIndexStart);
    s.serializeInt(mode, key("FileIndexIncr"), &fileIndexIncr);
    s.serializeString(mode, key("FileStub"), &fileStub);
    s.serializeString(mode, key("DestDir"), &destDir);
    s.serializeBool(mode, key("DataDestDirEnable"), &dataDestDirEnable);
    s.serializeString(mode, key("DisplFile"), &displFile);
    s.serializeBool(mode, key("DisplFileEnable"), &displFileEnable);
    s.serializeString(mode, key("ParFile"), &parFile);
    s.serializeBool(mode, key("ParFileEnable"), &parFileEnable);
    s.serializeInt(mode, key("OutputFormat"), &outputFormat);
    s.serializeBool(mode, key("OutputNetCDF"), &outputNetCDF);
    s.serializeBool(mode, key("OutputOther"), &outputOther);
    const struct {
        const char* name;
        bool* value;
    } flags[] = {
        {"StoreIntermediate", &storeIntermediate},
        {"StoreRawData", &storeRawData},
        {"StoreMagnitude", &storeMagnitude},
        {"StoreAllPeaks", &storeAllPeaks},
        {"StoreCorrCoeff", &storeCorrCoeff},
        {"StoreSNRData", &storeSNRData},
        {"StoreVelocity", &storeVelocity},
        {"StoreDifferentials", &storeDifferentials},
        {"StoreVorticity", &storeVorticity},
        {"StoreShear", &storeShear},
        {"StoreNStrain", &storeNStrain},
        {"StoreDiscriminant", &storeDiscriminant},
        {"StoreEnstrophy", &storeEnstrophy},
        {"StoreLambda2", &storeLambda2},
        {"StoreZCoords", &storeZCoords},
        {"OutputSkipOutliers", &outputSkipOutliers},
        {"PlotHideImage", &plotHideImage},
        {"DoPostProcessing", &doPostProcessing},
        {"DoReynoldsStresses", &doReynoldsStresses},
        {"StoreFluctuations", &storeFluctuations},
        {"ImageSeqCalcMinimum", &imageSeqCalcMinimum},
        {"ImageSeqCalcMaximum", &imageSeqCalcMaximum},
        {"ImageSeqCalcAverage", &imageSeqCalcAverage},
        {"ImageSeqCalcAverageMod", &imageSeqCalcAverageMod},
        {"ImageSeqCalcRMS", &imageSeqCalcRMS},
        {"ImageDestDirEnable", &imageDestDirEnable},
        {"ImageFilesArePairs", &imageFilesArePairs},
        {"UpdateAutomatically", &updateAutomatically},
        {"EnsembleCorrelation/Enable", &ensembleEnable},
        {"EnsembleCorrelation/SaveData", &ensembleSaveData},
        {"EnsembleCorrelation/DisplayImage", &ensembleDisplayImage},
        {"EnsembleCorrelation/SaveImage", &ensembleSaveImage},
        {"EnsembleCorrelation/CalcAutocorr", &ensembleCalcAutocorr},
        {"EnsembleCorrelation/VaryStride", &ensembleVaryStride},
        {"EnsembleCorrelation/SaveIntermediate", &ensembleSaveIntermediate},
    };
    for (const auto& f : flags) s.serializeBool(mode, key(f.name), f.value);
    s.serializeString(mode, key("PlotExportFormat"), &plotExportFormat);
    s.serializeInt(mode, key("ImageFrameSeparation"), &imageFrameSeparation);
    s.serializeInt(mode, key("ImageSeqCalcAverageModOffset"), &imageSeqCalcAverageModOffset);
    s.serializeInt(mode, key("EnsembleCorrelation/EvalMethod"), &ensembleEvalMethod);
    s.serializeInt(mode, key("EnsembleCorrelation/EvalPasses"), &ensembleEvalPasses);
    s.serializeInt(mode, key("EnsembleCorrelation/MinFiles"), &ensembleMinFiles);
    s.serializeInt(mode, key("EnsembleCorrelation/MultiGridStartWin"), &ensembleMultiGridStartWin);
    s.serializeInt(mode, key("EnsembleCorrelation/PeakFitMethod"), &ensemblePeakFitMethod);
    s.serializeFloat(mode, key("EnsembleCorrelation/PeakRelThresh"), &ensemblePeakRelThresh);
}

OUTPUT_CFG BatchProcessOptions::otherOutputCfg(bool velocity) const {
    OUTPUT_CFG cfg = outputCfg();
    cfg.OutputFormat = outputFormat == 2 ? 2 : 1;
    cfg.StoreVelocity = velocity;
    return cfg;
}

OUTPUT_CFG BatchProcessOptions::outputCfg() const {
    OUTPUT_CFG cfg;
    cfg.OutputFormat = outputFormat;
    cfg.StoreIntermediate = storeIntermediate;
    cfg.StoreRawData = storeRawData;
    cfg.StoreMagnitude = storeMagnitude;
    cfg.StoreAllPeaks = storeAllPeaks;
    cfg.StoreCorrCoeff = storeCorrCoeff;
    cfg.StoreSNRData = storeSNRData;
    cfg.StoreVelocity = storeVelocity;
    cfg.StoreDifferentials = storeDifferentials;
    cfg.StoreVorticity = storeVorticity;
    cfg.StoreShear = storeShear;
    cfg.StoreNStrain = storeNStrain;
    cfg.StoreDiscriminant = storeDiscriminant;
    cfg.StoreEnstrophy = storeEnstrophy;
    cfg.StoreLambda2 = storeLambda2;
    cfg.StoreZCoords = storeZCoords;
    cfg.OutputSkipOutliers = outputSkipOutliers;
    return cfg;
}

CORR_AVERAGE_PARAMS BatchProcessOptions::ensembleParams() const {
    CORR_AVERAGE_PARAMS p;
    p.mode = ensembleEvalMethod;
    p.passCount = ensembleEvalPasses;
    p.minFiles = ensembleMinFiles;
    p.varyStride = ensembleVaryStride;
    p.saveIntermediate = ensembleSaveIntermediate;
    p.startWin = SIZE2D{ensembleMultiGridStartWin, ensembleMultiGridStartWin};
    p.peakFitMethod = ensemblePeakFitMethod;
    p.calcAutoCorr = ensembleCalcAutocorr;
    p.saveData = ensembleSaveData;
    p.saveImage = ensembleSaveImage;
    p.displayImage = ensembleDisplayImage;
    return p;
}

QStringList BatchProcessOptions::fileTypes() {
    return {QStringLiteral("Single images"), QStringLiteral("PCO-Double"),
            QStringLiteral("Vector files")};
}

bool BatchProcessOptions::isSplitType() const {
    return fileTypes().value(fileType) == QLatin1String("PCO-Double");
}

int BatchProcessOptions::updateFileList() {
    fileList.clear();
    QStringList all = droppedFiles;
    if (all.isEmpty()) {
        // A missing folder lists nothing: the working directory is never a stand-in.
        const QDir dir(sourceDir);
        if (sourceDir.isEmpty() || !dir.exists()) return 0;
        const QStringList filters =
            fileFilter.split(QRegularExpression(QStringLiteral("[;\\s]+")), Qt::SkipEmptyParts);
        for (const QString& name : dir.entryList(filters, QDir::Files, QDir::Name))
            all << dir.absoluteFilePath(name);
    }
    const int start = fileSubSet ? qMax(0, fileIndexStart) : 0;
    const int step = fileSubSet ? qMax(1, fileIndexIncr) : 1;
    for (int i = start; i < all.size(); i += step) fileList << all.at(i);
    return all.size();
}

QStringList BatchProcessOptions::inputFrames() const {
    QStringList frames;
    for (const QString& file : fileList) {
        const QByteArray path = file.toLocal8Bit();
        const QString partner =
            QString::fromLocal8Bit(PIV::GetSecondImageName(path.constData(), imageFrameSeparation));
        for (const QString& f : {file, partner})
            if (!f.isEmpty()) frames << QDir::cleanPath(QFileInfo(f).absoluteFilePath());
    }
    return frames;
}
