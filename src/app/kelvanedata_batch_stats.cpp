// The end of a PIV batch: the mean and rms fields of the series, and in a
// second pass over the written files the Reynolds stresses.
#include <QApplication>
#include <QFileInfo>
#include <QMainWindow>
#include <QMessageBox>

#include "kelvanedata.h"
#include "kelvanedata_batchrun.h"
#include "kelvanedataobject.h"
#include "piv_data2d.h"
#include "piv_messages.h"
#include "piv_params.h"
#include "piv_series_output.h"
#include "qpiv_imagepair.h"

bool KelvaneData::batchPostProcess(const BatchProcessOptions& o) {
    PIV_Data2D_Stats* stats = m_batch ? &m_batch->stats : nullptr;
    if (!stats || stats->dataSetCount() == 0) {
        DebugPrint("batchPostProcess() - no statistics data available\n");
        emit signalLogMessage(tr("batchPostProcess() - no statistics data available"));
        return false;
    }
    const std::string dir = _local(o.resultDir());
    const std::string stub = _local(QFileInfo(o.outputBase).fileName());
    const std::string mean = PIV::SeriesMeanName(dir, stub), rms = PIV::SeriesRmsName(dir, stub);
    const auto failures = [&] {
        return m_batch->failed == 0 ? QString()
                                    : tr("\n\n%1 of %2 files failed, see the log")
                                          .arg(m_batch->failed)
                                          .arg(o.fileList.size());
    };
    std::string why;
    if (!PIV::SaveSeriesStats(*stats, mean, rms, why)) {
        // A save goes to a temporary first: a name not a file now failed.
        QStringList lost;
        for (const std::string& name : {mean, rms})
            if (!QFileInfo(_fromLocal(name)).isFile()) lost << _fromLocal(name);
        if (lost.isEmpty()) lost << _fromLocal(mean) << _fromLocal(rms);
        m_batch->failed++;
        const QString text = tr("   Saving failed!\n   %1\n   %2")
                                 .arg(lost.join(QStringLiteral("\n   ")), _fromLocal(why));
        emit signalLogMessage(text);
        m_batchReport = text + failures();
        return false;
    }
    // The records of the session go with the fields, as with every result.
    PIV_Parameters params;
    params.setPivParameters(m_dataObject->parameters(0)->pivParameters());
    params.setImageCfg(m_dataObject->image(0)->imageCfg());
    params.setPostProcessCfg(m_dataObject->postProcessCfg());
    for (const std::string& name : {mean, rms})
        if (!params.save(name.c_str())) {
            m_batch->failed++;
            emit signalLogMessage(
                tr("   Saving failed!\n   %1\n   %2")
                    .arg(_fromLocal(name), _fromLocal(params.error().getLastError())));
        }
    QString report = tr("Final statistics data stored in directory:\n") + o.resultDir() +
                     tr("\n\nNetCDF - Mean Data: ") + QFileInfo(_fromLocal(mean)).fileName() +
                     tr("\nNetCDF - RMS Data : ") + QFileInfo(_fromLocal(rms)).fileName();
    if (o.outputOther) {
        const std::string format = _local(o.otherFormat());
        const char* labels[2][2] = {
            {"\n\nTecplot - Mean shifts: ", "\nTecplot - RMS shifts: "},
            {"\n\nTecplot - Mean velocity: ", "\nTecplot - RMS velocity : "}};
        for (bool velocity : {false, true}) {
            const OUTPUT_CFG cfg = o.otherOutputCfg(velocity);
            const std::string avgName =
                PIV::SeriesResultName(PIV::SeriesPath(dir, stub + "_avg"), format, velocity);
            const std::string rmsName =
                PIV::SeriesResultName(PIV::SeriesPath(dir, stub + "_rms"), format, velocity);
            for (const auto& [field, name] : {std::make_pair(stats->avgData(), &avgName),
                                              std::make_pair(stats->rmsData(), &rmsName)}) {
                if (field->save(name->c_str(), 0, cfg)) continue;
                m_batch->failed++;
                emit signalLogMessage(
                    tr("   Saving failed!\n   %1\n   %2")
                        .arg(_fromLocal(*name), _fromLocal(field->getLastError())));
            }
            report += tr(labels[velocity][0]) + QFileInfo(_fromLocal(avgName)).fileName() +
                      tr(labels[velocity][1]) + QFileInfo(_fromLocal(rmsName)).fileName();
        }
    }
    if (o.doReynoldsStresses && batchSecondPass(o))
        report += tr("\nReynolds stresses : ") +
                  QFileInfo(_fromLocal(PIV::SeriesReynoldsName(dir, stub))).fileName();
    report += failures();
    showBatchReport(report);
    emit signalOpenNewWindow(_fromLocal(mean));
    return true;
}

bool KelvaneData::batchSecondPass(const BatchProcessOptions& o) {
    const QStringList written = m_batch ? m_batch->written : QStringList();
    const auto skip = [this](const QString& line) {
        DebugPrint("%s", qPrintable(line));
        emit signalLogMessage(line);
        return false;
    };
    if (!o.outputNetCDF || written.isEmpty())
        return skip(tr("  -> not possible - no netCDF data?"));
    if (written.size() < 2)
        return skip(QString::asprintf("  -> not enough files...(%d) ", int(written.size())));
    const std::string dir = _local(o.resultDir());
    const std::string stub = _local(QFileInfo(o.outputBase).fileName());
    const std::string mean = PIV::SeriesMeanName(dir, stub);
    if (!QFileInfo::exists(_fromLocal(mean)))
        return skip(QString::asprintf("  -> missing average data: '%s' ", mean.c_str()));
    ReynoldsStresses stresses;
    stresses.error().setErrorHandling(PIVerror::ERROR_QUIET);
    if (!stresses.setMeanData(mean.c_str()))
        return skip(QString::asprintf("  -> missing average data: '%s' ", mean.c_str()));
    OUTPUT_CFG cfg = o.outputCfg();
    cfg.OutputFormat = 3;
    for (int i = 0; i < written.size(); ++i) {
        const std::string file = _local(written.at(i));
        DebugPrintExt(2, "=== %d ===  loading file: %s", i, file.c_str());
        if (!stresses.incrementPivData(file.c_str(), -1, 40)) {
            emit signalLogMessage(QString::asprintf("trouble loading file %d: '%s'\n   (Error: %s)",
                                                    i, file.c_str(), stresses.getLastError()));
            continue;
        }
        if (o.storeFluctuations) {
            const std::string diff = file.substr(0, file.size() - 3) + "_diff.nc";
            if (!stresses.saveCurrentDifference(diff.c_str(), cfg)) {
                m_batch->failed++;
                emit signalLogMessage(
                    tr("   Saving failed!\n   %1\n   %2")
                        .arg(_fromLocal(diff), _fromLocal(stresses.getLastError())));
            }
        }
    }
    if (!stresses.update())
        return skip(QString::asprintf("failure updating reynolds stresses: (Error: %s)",
                                      stresses.getLastError()));
    const std::string name = PIV::SeriesReynoldsName(dir, stub);
    emit signalLogMessage(tr("Saving Reynolds stresses in:\n   '%1'").arg(_fromLocal(name)));
    if (!stresses.save(name.c_str(), cfg)) {
        emit signalLogMessage(QString::asprintf("failure saving reynolds stresses: (Error: %s)",
                                                stresses.getLastError()));
        return skip(tr("   Saving failed!\n   %1").arg(_fromLocal(name)));
    }
    return true;
}

void KelvaneData::showBatchReport(const QString& report) {
    m_batchReport = report;
    emit signalLogMessage(report);
    // The report does not hold the event loop: a batch started unattended
    // ends with its files written whether anyone reads it or not.
    auto* box = new QMessageBox(QMessageBox::Information, QApplication::applicationName(), report,
                                QMessageBox::Ok, m_window);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->show();
}
