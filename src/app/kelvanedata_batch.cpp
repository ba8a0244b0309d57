// The PIV batch: a list of images (or vector files) evaluated one after the
// other with the session's parameters, each result saved, and the series'
// statistics at the end. The run lives in the event loop: each file is one
// step, the evaluation goes to the engine's worker and the next step starts
// when the engine says it finished, so the window never waits and no slot
// runs inside another.
#include <QApplication>
#include <QDir>
#include <QFileInfo>
#include <QMainWindow>
#include <QMessageBox>
#include <QPushButton>
#include <QTimer>

#include "app_messages.h"
#include "kelvanedata.h"
#include "kelvanedata_batchrun.h"
#include "kelvanedataobject.h"
#include "piv_data2d.h"
#include "piv_filename.h"
#include "piv_messages.h"
#include "piv_params.h"
#include "piv_series_output.h"
#include "pivbatchdlg.h"
#include "pivevalobj.h"
#include "pivpostprocessdlg.h"
#include "qpiv_imagepair.h"
#include "qtwinprogresstoolbar.h"

namespace {

// The directory and base name a file's results go under.
std::string _resultBase(const BatchProcessOptions& o, const QString& file) {
    const QByteArray path = file.toLocal8Bit();
    return PIV::SeriesPath(_local(o.resultDir()), PIV::GetBaseNameFromPath(path.constData()));
}

// The stub of the statistics files: the dialog's, else "batch".
std::string _stub(const BatchProcessOptions& o) {
    return o.fileStub.isEmpty() ? std::string("batch") : _local(o.fileStub);
}

// The plot written beside a result: the format is its extension.
QString _plotName(const BatchProcessOptions& o, const std::string& base) {
    return _fromLocal(base) + QLatin1Char('.') + o.plotExportFormat;
}

bool _isVectorFile(const QString& file) {
    const QString suffix = QFileInfo(file).suffix().toLower();
    return suffix == QLatin1String("nc") || suffix == QLatin1String("cdf");
}

}  // namespace

QStringList KelvaneData::batchOutputFiles(const BatchProcessOptions& o) const {
    QStringList names;
    const std::string dir = _local(o.resultDir()), stub = _stub(o);
    for (const QString& file : o.fileList) {
        if (_isVectorFile(file)) continue;
        const std::string base = _resultBase(o, file);
        if (o.outputNetCDF) names << _fromLocal(PIV::SeriesResultName(base, "nc", false));
        if (o.outputOther)
            names << _fromLocal(
                PIV::SeriesResultName(base, _local(o.otherFormat()), o.storeVelocity));
        if (o.doReynoldsStresses && o.storeFluctuations && o.outputNetCDF)
            names << _fromLocal(base + "_diff.nc");
        if (!o.plotExportFormat.isEmpty()) names << _plotName(o, base);
    }
    names << _fromLocal(PIV::SeriesMeanName(dir, stub))
          << _fromLocal(PIV::SeriesRmsName(dir, stub));
    if (o.outputOther)
        for (const char* kind : {"_avg", "_rms"})
            for (bool velocity : {false, true})
                names << _fromLocal(PIV::SeriesResultName(PIV::SeriesPath(dir, stub + kind),
                                                          _local(o.otherFormat()), velocity));
    if (o.doReynoldsStresses && o.outputNetCDF)
        names << _fromLocal(PIV::SeriesReynoldsName(dir, stub));
    return names;
}

bool KelvaneData::overWriteFileList(const QStringList& files, const QString& dir) {
    bool any = false;
    for (const QString& file : files) any = any || QFileInfo::exists(file);
    if (!any) return true;
    QMessageBox box(QMessageBox::Warning, tr("Output files exist!"),
                    tr("Some output files/images in\n'") + dir +
                        tr("'\nalready exist!\nDo you want to overwrite these files?"),
                    QMessageBox::NoButton, m_window);
    QPushButton* yes = box.addButton(tr("Yes, overwrite files"), QMessageBox::YesRole);
    QPushButton* no = box.addButton(tr("No, cancel"), QMessageBox::RejectRole);
    box.setDefaultButton(no);
    box.exec();
    return box.clickedButton() == yes;
}

bool KelvaneData::fillBatchFileList(BatchProcessOptions& o) {
    if (!o.fileList.isEmpty()) return true;
    if (!QFileInfo(o.sourceDir).isDir()) {
        const QString text = tr("Source directory does not exist:\n  %1").arg(o.sourceDir);
        emit signalLogMessage(text);
        QMessageBox::warning(m_window, QApplication::applicationName(), text);
        return false;
    }
    o.updateFileList();
    return !o.fileList.isEmpty();
}

PIVBatchDlg* KelvaneData::batchDlg() {
    if (!m_batchDlg) m_batchDlg = new PIVBatchDlg(m_settings, 0, m_window);
    return m_batchDlg;
}

void KelvaneData::slotPivBatchProcess() {
    if (m_batch || m_ensemble || m_batchMode || m_engine->isEvaluationRunning()) return;
    PIVBatchDlg* dialog = batchDlg();
    BatchProcessOptions options = dialog->getBatchOptions();
    const OUTPUT_CFG& out = m_file.output();
    options.storeVelocity = out.StoreVelocity;
    options.storeMagnitude = out.StoreMagnitude;
    options.imageFrameSeparation = m_dataObject->image(0)->frameSeparation();
    dialog->setBatchOpts(options);
    if (dialog->exec() != QDialog::Accepted) return;
    options = dialog->getBatchOptions();
    if (options.fileList.isEmpty()) return;
    if (options.ensembleEnable)
        doEnsembleCorrelation(options);
    else
        startBatch(options);
}

bool KelvaneData::startBatch(const BatchProcessOptions& options) {
    if (m_batch || m_ensemble || m_batchMode || m_engine->isEvaluationRunning()) return false;
    auto run = std::make_unique<BatchRun>();
    BatchProcessOptions& o = run->options;
    o = options;
    if (!fillBatchFileList(o)) return false;
    m_dataObject->image(0)->setFrameSeparation(o.imageFrameSeparation);
    o.outputBase = _fromLocal(PIV::SeriesPath(_local(o.resultDir()), _stub(o)));
    o.meanFileName = _fromLocal(PIV::SeriesMeanName(_local(o.resultDir()), _stub(o)));
    if (o.parFileEnable && !QFileInfo(o.parFile).isFile()) {
        const QString text = tr("Parameter file does not exist:\n  %1").arg(o.parFile);
        emit signalLogMessage(text);
        QMessageBox::warning(m_window, QApplication::applicationName(), text);
        return false;
    }
    // Every name the run may write is asked about here, once: a long batch
    // must not stop at its end to ask. A plot named like its own image (a
    // "bmp" plot of bmp frames beside them) would destroy a frame not yet read.
    const QStringList outputs = batchOutputFiles(o), inputs = o.inputFrames();
    for (const QString& name : outputs) {
        if (!inputs.contains(QDir::cleanPath(QFileInfo(name).absoluteFilePath()))) continue;
        const QString text = tr("A result would overwrite an image of the series:\n  %1\n"
                                "Choose another destination directory or plot format.")
                                 .arg(name);
        emit signalLogMessage(text);
        QMessageBox::warning(m_window, QApplication::applicationName(), text);
        return false;
    }
    if (!overWriteFileList(outputs, o.resultDir())) return false;
    if (o.fileList.size() > 10) {
        const QString text = QString::asprintf(
            "Selected %d files for batch processing:\n\nFirst file: "
            "'%s'\nLast file:  '%s'\n\nProcessing may take some time\n"
            "Continue ?",
            int(o.fileList.size()), qPrintable(o.fileList.first()), qPrintable(o.fileList.last()));
        QMessageBox box(QMessageBox::Question, QApplication::applicationName(), text,
                        QMessageBox::NoButton, m_window);
        QPushButton* yes = box.addButton(tr("Yes, continue"), QMessageBox::YesRole);
        box.addButton(tr("Cancel"), QMessageBox::RejectRole);
        box.exec();
        if (box.clickedButton() != yes) return false;
    }
    if (o.parFileEnable && !m_dataObject->loadParameters(o.parFile)) {
        QMessageBox::warning(
            m_window, QApplication::applicationName(),
            tr("Failure loading parameter file!\n%1").arg(m_dataObject->lastError()));
        return false;
    }
    m_file.output() = o.outputCfg();
    m_batch = std::move(run);
    m_batchFailures = 0;
    m_batchReport.clear();
    m_cancelled = false;
    emit signalSetCaption(tr("%1 | PIV Batch").arg(QApplication::applicationName()));
    setBatchMode(true);
    m_bars->setVisible(true);
    QApplication::setOverrideCursor(Qt::WaitCursor);
    QTimer::singleShot(0, this, &KelvaneData::batchNextFile);
    return true;
}

void KelvaneData::batchNextFile() {
    BatchRun& run = *m_batch;
    const int total = run.options.fileList.size();
    if (m_cancelled || ++run.index >= total) return batchFinish();
    const QString file = run.options.fileList.at(run.index);
    m_bars->slotShowProgress2(run.index + 1, total);
    m_bars->setText2(tr("Processing file %1 of %2").arg(run.index + 1).arg(total));
    m_dataObject->clearPivData();
    const LibraryReport report;
    if (!QFileInfo(file).isReadable())
        return batchFileDone(false, tr("File does not exist or cannot be read"));
    if (!loadFile(file, false, false, run.options.isSplitType()))
        return batchFileDone(false, report.explain(m_dataObject->lastError()));
    if (m_dataObject->isFileData(-1)) {
        emit signalMessage(
            tr("File %1 of %2 - Updating parameters ").arg(run.index + 1).arg(total));
        if (run.options.doPostProcessing) m_dataObject->doPostProcessing();
        return batchFileDone(true, QString());
    }
    emit signalMessage(tr("Wait! Evaluating image..."));
    // A stop taken while the message was shown came before the engine ran,
    // and the engine forgets it at its start: the evaluation is not begun.
    if (m_cancelled) return batchFinish();
    run.evaluating = true;
    if (!m_engine->interrogateImage()) {
        run.evaluating = false;
        batchFileDone(false, m_engine->lastMessage());
    }
}

void KelvaneData::batchFileEvaluated(bool haveData) {
    BatchRun& run = *m_batch;
    run.evaluating = false;
    // A stopped file is neither saved nor counted, whatever it holds.
    if (m_cancelled) return batchFinish();
    if (!haveData) return batchFileDone(false, m_engine->lastMessage());
    if (run.options.doPostProcessing) {
        m_dataObject->setPostProcessCfg(m_postDlg->record());
        m_dataObject->doPostProcessing();
    }
    if (!batchSaveData(run.options)) return batchFileDone(false, run.saveError);
    batchFileDone(true, QString());
}

// The statistics take a field once its file is written: the mean, the rms
// and the second pass then cover the same files.
void KelvaneData::batchFileDone(bool ok, const QString& why) {
    BatchRun& run = *m_batch;
    const QString file = run.options.fileList.at(run.index);
    if (ok) {
        const int total = run.options.fileList.size();
        emit signalMessage(
            tr("File %1 of %2 - Incrementing statistics").arg(run.index + 1).arg(total));
        const int view = run.options.doPostProcessing && m_dataObject->haveData(3) ? 3 : -1;
        if (!run.stats.increment(m_dataObject->data(view), 0, 0))
            emit signalLogMessage(tr("'%1' left out of the statistics: %2")
                                      .arg(file, QString::fromLocal8Bit(run.stats.getLastError())));
        if (run.options.updateAutomatically)
            emit m_dataObject->signalHaveNewData(m_dataObject->currentView());
    } else {
        run.failed++;
        run.failures << file + QStringLiteral(": ") + why;
        emit signalLogMessage(tr("Batch: file '%1' failed: %2").arg(file, why));
    }
    QTimer::singleShot(0, this, &KelvaneData::batchNextFile);
}

void KelvaneData::batchFinish() {
    m_bars->reset();
    m_bars->setVisible(false);
    setBatchMode(false);
    QApplication::restoreOverrideCursor();
    if (m_cancelled) {
        m_batchReport = tr("Evaluation aborted!");
        emit signalMessage(m_batchReport);
        emit signalLogMessage(m_batchReport);
    } else {
        emit signalMessage(tr("Post-processing %1 files ").arg(m_batch->options.fileList.size()));
        batchPostProcess(m_batch->options);
    }
    // After the post-processing: a result it could not write counts too.
    m_batchFailures = m_batch->failed;
    m_batch.reset();
    emit signalUpdateUI();
    emit signalBatchFinished();
}

bool KelvaneData::batchSaveData(const BatchProcessOptions& o) {
    const QString image = m_dataObject->image(0)->filePath(false);
    const std::string base = _resultBase(o, image);
    emit signalMessage(tr("Evaluation done, saving data for '%1'").arg(image));
    emit signalLogMessage(tr("Evaluation done, saving data for '%1'").arg(image));
    const int view = m_dataObject->haveData(3) ? 3 : m_dataObject->currentView();
    PIV_Data2D* data = m_dataObject->data(view);
    OUTPUT_CFG cfg = o.outputCfg();
    QStringList failed;
    if (o.outputNetCDF) {
        cfg.OutputFormat = 3;
        const std::string name = PIV::SeriesResultName(base, "nc", false);
        DebugPrintExt(2, "batchSaveData() - netCDF: %s", name.c_str());
        bool ok = data->save(name.c_str(), 0, cfg);
        QString why = QString::fromLocal8Bit(data->getLastError());
        if (ok) {
            PIV_Parameters params;
            params.setPivParameters(m_dataObject->parameters(view)->pivParameters());
            params.setImageCfg(m_dataObject->image(0)->imageCfg());
            params.setPostProcessCfg(m_dataObject->postProcessCfg());
            ok = params.save(name.c_str());
            if (!ok) why = QString::fromLocal8Bit(params.error().getLastError());
        }
        if (ok && m_batch) m_batch->written << _fromLocal(name);
        if (!ok) failed << tr("'%1': %2").arg(_fromLocal(name), why);
    }
    if (o.outputOther) {
        cfg = o.otherOutputCfg(o.storeVelocity);
        const std::string name =
            PIV::SeriesResultName(base, _local(o.otherFormat()), o.storeVelocity);
        if (!data->save(name.c_str(), 0, cfg))
            failed << tr("'%1': %2")
                          .arg(_fromLocal(name), QString::fromLocal8Bit(data->getLastError()));
    }
    if (!o.plotExportFormat.isEmpty()) {
        emit signalMessage(tr("Creating plot "));
        emit signalExportPlot(_plotName(o, base), view, o.plotExportFormat, o.plotHideImage);
    }
    if (failed.isEmpty()) return true;
    const QString why = tr("Saving failed: %1").arg(failed.join(QStringLiteral("; ")));
    if (m_batch) m_batch->saveError = why;
    emit signalLogMessage(why);
    return false;
}
