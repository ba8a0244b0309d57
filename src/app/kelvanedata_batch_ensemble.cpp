// The ensemble batch: the correlation planes of all pairs summed into one
// field. The run goes to a thread of its own; the window saves what it
// made once it has finished, so that a stopped run leaves nothing behind.
#include <QApplication>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QMainWindow>
#include <QMessageBox>
#include <QThread>

#include "image_types.h"
#include "imageviewer.h"
#include "kelvanedata.h"
#include "kelvanedata_batchrun.h"
#include "kelvanedataobject.h"
#include "piv_data2d.h"
#include "piv_filelist.h"
#include "piv_filename.h"
#include "piv_messages.h"
#include "piv_params.h"
#include "piv_series_output.h"
#include "piv_util.h"
#include "pivevalobj.h"
#include "qpiv_imagepair.h"
#include "qpivensemblecorr.h"
#include "qtwinprogresstoolbar.h"
#include "recordpath.h"

namespace {

// The stub of an ensemble run's files.
std::string _ensembleStub(const BatchProcessOptions& o) {
    return o.fileStub.isEmpty() ? std::string("ensemble") : _local(o.fileStub);
}

PIV::ENSEMBLE_FILES _files(const BatchProcessOptions& o) {
    return PIV::EnsembleFiles(_local(o.resultDir()), _ensembleStub(o));
}

// The mean field in Tecplot form, in shifts or in velocities.
std::string _tecplotName(const BatchProcessOptions& o, bool velocity) {
    const std::string base = PIV::SeriesPath(_local(o.resultDir()), _ensembleStub(o) + "_avg");
    return PIV::SeriesResultName(base, _local(o.otherFormat()), velocity);
}

// Every file the run of `o` writes: with the data the mean field, its
// Tecplot forms and the planes; with the image the image of the planes and
// of the autocorrelation planes.
QStringList _ensembleFiles(const BatchProcessOptions& o) {
    const PIV::ENSEMBLE_FILES f = _files(o);
    QStringList names;
    if (o.ensembleSaveData)
        names << _fromLocal(f.field) << _fromLocal(_tecplotName(o, false))
              << _fromLocal(_tecplotName(o, true)) << _fromLocal(f.planes);
    if (o.ensembleSaveImage) names << _fromLocal(f.planesImage);
    if (o.ensembleSaveImage && o.ensembleCalcAutocorr) names << _fromLocal(f.autoPlanesImage);
    return names;
}

}  // namespace

bool KelvaneData::doEnsembleCorrelation(const BatchProcessOptions& options) {
    if (m_ensemble || m_batch || m_batchMode || m_engine->isEvaluationRunning()) return false;
    BatchProcessOptions o = options;
    if (!fillBatchFileList(o)) return false;
    if (o.parFileEnable) {
        if (!QFileInfo(o.parFile).isFile()) {
            const QString text = tr("Parameter file does not exist:\n  %1").arg(o.parFile);
            emit signalLogMessage(text);
            QMessageBox::warning(m_window, QApplication::applicationName(), text);
            return false;
        }
        if (!m_dataObject->loadParameters(o.parFile)) {
            QMessageBox::warning(
                m_window, QApplication::applicationName(),
                tr("Failure loading parameter file!\n%1").arg(m_dataObject->lastError()));
            return false;
        }
    }
    if (!overWriteFileList(_ensembleFiles(o), o.resultDir())) return false;

    auto corr = std::make_unique<QPIVensembleCorr>();
    connect(corr.get(), &QPIVensembleCorr::signalLogMessage, this, &KelvaneData::signalLogMessage);
    connect(corr.get(), &QPIVensembleCorr::signalMessage, this, &KelvaneData::signalMessage);
    connect(corr.get(), &QPIVensembleCorr::signalShowProgress, m_bars,
            &QTwinProgressToolBar::slotShowProgress);
    connect(corr.get(), &QPIVensembleCorr::signalShowProgressOverall, m_bars,
            &QTwinProgressToolBar::slotShowProgress2);
    connect(corr.get(), &QPIVensembleCorr::signalMessage2, m_bars, &QTwinProgressToolBar::setText2);
    corr->clear();
    corr->setPivParameters(m_dataObject->parameters(0)->pivParameters());
    corr->setPostProcessCfg(m_dataObject->postProcessCfg());
    CORR_AVERAGE_PARAMS params = o.ensembleParams();
    params.peakFitMethod = m_dataObject->parameters(0)->pivEvalCfg().Type;
    // A cut folder name would put the work files somewhere else.
    if (!StorePath(params.workDir, o.resultDir()) ||
        !StorePath(params.workFile, QString::fromLocal8Bit(_ensembleStub(o).c_str()))) {
        QMessageBox::warning(m_window, QApplication::applicationName(),
                             tr("The result folder's path is too long for the ensemble run:\n%1")
                                 .arg(o.resultDir()));
        return false;
    }
    corr->setEnsembleCorrParams(params);
    corr->setPeakThreshold(o.ensemblePeakRelThresh);
    corr->setImagePreProcessing(m_dataObject->image(0)->imageCfg());
    if (o.displFileEnable) {
        // The correlator keeps its own reference; ours goes at the end of this block.
        PIV_Data2D* field = new PIV_Data2D;
        const bool loaded = field->load(_local(o.displFile).c_str());
        if (loaded) {
            corr->setOffsetData(field);
        } else {
            QMessageBox::warning(
                m_window, QApplication::applicationName(),
                tr("Trouble loading file\n%1\n%2").arg(o.displFile, field->getLastError()));
        }
        field->release();
        if (!loaded) return false;
    }
    auto pairs = std::make_shared<FilePairList>();
    for (const QString& file : o.fileList) {
        const std::string a = _local(file);
        const std::string b = PIV::GetSecondImageName(a.c_str(), o.imageFrameSeparation);
        pairs->append(FILE_PAIR(a.c_str(), b.c_str()));
    }
    m_ensemble = std::move(corr);
    m_ensembleOptions = o;
    m_cancelled = false;
    m_batchFailures = 0;
    emit signalLogMessage(tr("Ensemble correlation processing on %1 files ").arg(pairs->count()));
    DebugPrintExt(1, "============== START ENSEMBLE CORRELATION =============");
    setBatchMode(true);
    m_bars->setVisible(true);
    QApplication::setOverrideCursor(Qt::WaitCursor);
    QPIVensembleCorr* run = m_ensemble.get();
    m_ensembleThread.reset(QThread::create(
        [run, pairs, this] { m_ensembleOk = run->processImageSeries(pairs.get()); }));
    connect(m_ensembleThread.get(), &QThread::finished, this, &KelvaneData::ensembleFinished);
    m_ensembleThread->start();
    return true;
}

void KelvaneData::ensembleFinished() {
    m_ensembleThread->wait();
    std::unique_ptr<QPIVensembleCorr> corr = std::move(m_ensemble);
    const BatchProcessOptions& o = m_ensembleOptions;
    m_bars->reset();
    m_bars->setVisible(false);
    setBatchMode(false);
    QApplication::restoreOverrideCursor();
    if (m_cancelled || !m_ensembleOk) {
        m_batchReport = m_cancelled ? tr("Ensemble correlation processing aborted!")
                                    : tr("Ensemble correlation failed: %1")
                                          .arg(QString::fromLocal8Bit(corr->getLastError()));
        emit signalMessage(m_batchReport);
        emit signalLogMessage(m_batchReport);
        emit signalBatchFinished();
        return;
    }
    emit signalLogMessage(tr("  Processing %1 images took %2 seconds")
                              .arg(corr->imagesProcessed())
                              .arg(corr->totalProcessingTime()));
    const PIV::ENSEMBLE_FILES f = _files(o);
    const QStringList names = {_fromLocal(f.field), _fromLocal(f.planes), _fromLocal(f.planesImage),
                               _fromLocal(f.autoPlanesImage)};
    QString report = tr("Final ensemble correlation data stored in directory:\n") + o.resultDir();
    int failed = 0;
    const auto fail = [&](const QString& name, const char* why) {
        failed++;
        const QString text = tr("   Saving failed!\n   %1").arg(name) + QStringLiteral("\n   ") +
                             QString::fromLocal8Bit(why);
        emit signalLogMessage(text);
        report += QLatin1Char('\n') + text;
    };
    if (o.ensembleSaveData) {
        OUTPUT_CFG out = o.outputCfg();
        out.OutputFormat = 3;
        if (corr->pivData()->save(_local(names[0]).c_str(), 0, out)) {
            emit signalLogMessage(tr("  NetCDF - Mean Data: '%1'").arg(names[0]));
            report += tr("\n\nNetCDF - Mean Data: ") + QFileInfo(names[0]).fileName();
        } else {
            fail(names[0], corr->pivData()->getLastError());
        }
        const char* labels[2][2] = {
            {"  Tecplot - Mean shifts: '%1'", "\nTecplot - Mean shifts: "},
            {"  Tecplot - Mean velocity: '%1'", "\n\nTecplot - Mean velocity: "}};
        for (bool velocity : {true, false}) {
            const QString name = _fromLocal(_tecplotName(o, velocity));
            if (corr->pivData()->save(_local(name).c_str(), 0, o.otherOutputCfg(velocity))) {
                emit signalLogMessage(tr(labels[velocity][0]).arg(name));
                report += tr(labels[velocity][1]) + QFileInfo(name).fileName();
            } else {
                fail(name, corr->pivData()->getLastError());
            }
        }
        if (corr->saveCorrelationPlanes(_local(names[1]).c_str())) {
            emit signalLogMessage(
                tr("  Averaged correlation planes stored in: '%1'").arg(names[1]));
            report += tr("\nAveraged correlation planes: ") + QFileInfo(names[1]).fileName();
        } else {
            fail(names[1], corr->getLastError());
        }
    }
    if (o.ensembleSaveImage || o.ensembleDisplayImage) {
        for (int autoCorr = 0; autoCorr < 2; ++autoCorr) {
            if (autoCorr && !(o.ensembleCalcAutocorr && corr->haveAutoCorrelationData())) break;
            Image2D image;
            if (!corr->createImage(&image, autoCorr, true)) continue;
            const QString& name = names[2 + autoCorr];
            if (o.ensembleSaveImage) {
                image.setFlagCompressionEnabled(m_dataObject->isTIFFCompression());
                if (image.save(_local(name).c_str(), PIV::FORMAT_TIFF))
                    emit signalLogMessage(
                        tr("  Image of averaged correlation planes stored in: '%1'").arg(name));
                else
                    fail(name, image.error().getLastError());
            }
            // The viewer takes a copy: this image goes with the block.
            if (o.ensembleDisplayImage && !autoCorr) {
                m_imageViewer->setImage(
                    &image, tr("Ensemble correlation map: %1").arg(_fromLocal(_ensembleStub(o))));
                m_imageViewer->show();
                m_imageViewer->raise();
            }
        }
    }
    m_batchFailures = failed;
    if (failed > 0) report += tr("\n\nFiles not saved: %1, see the log").arg(failed);
    showBatchReport(report);
    emit signalUpdateUI();
    emit signalBatchFinished();
}
