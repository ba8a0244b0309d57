// The image batch from the window: its dialog, its questions, and its thread.
#include <QApplication>
#include <QDir>
#include <QMainWindow>
#include <QMessageBox>

#include "kelvanedata.h"
#include "kelvanedataobject.h"
#include "kelvaneimagebatch.h"
#include "pivbatchdlg.h"
#include "qpiv_imagepair.h"
#include "qtwinprogresstoolbar.h"

void KelvaneData::slotImageBatchProcess() {
    if (m_imageBatch && m_imageBatch->isRunning()) {
        m_imageBatch->setAbortFlag(true);
        return;
    }
    if (m_batch || m_ensemble || m_batchMode) return;
    if (!m_imageBatchDlg) m_imageBatchDlg = new PIVBatchDlg(m_settings, 1, m_window);
    if (m_imageBatchDlg->exec() != QDialog::Accepted) return;
    startImageBatch(m_imageBatchDlg->getBatchOptions());
}

bool KelvaneData::startImageBatch(const BatchProcessOptions& options) {
    if (m_batch || m_ensemble || m_batchMode || (m_imageBatch && m_imageBatch->isRunning()))
        return false;
    BatchProcessOptions o = options;
    if (!fillBatchFileList(o)) return false;
    if (!m_dataObject->image(0)->requiresImagePreProcessing() &&
        !KelvaneImageBatch::wantsStatistics(o)) {
        QMessageBox::information(
            m_window, QApplication::applicationName(),
            tr("Images do not need any pre-processing!\nCheck Pre-Processing Settings"));
        return false;
    }
    const QString dir = o.imageDestDirEnable ? o.destDir : o.sourceDir;
    QStringList outputs = KelvaneImageBatch::statisticsFiles(o);
    if (m_dataObject->image(0)->requiresImagePreProcessing()) {
        // A copy written over a frame of the series would lose the original
        // and feed the copy to the statistics: such a run does not start.
        const QStringList inputs = o.inputFrames();
        const QStringList copies = KelvaneImageBatch::copyFiles(o);
        for (const QString& copy : copies) {
            if (!inputs.contains(copy)) continue;
            const QString text =
                tr("Pre-processed images would overwrite their source images:\n  %1\n"
                   "Choose another destination directory.")
                    .arg(copy);
            emit signalLogMessage(text);
            QMessageBox::warning(m_window, QApplication::applicationName(), text);
            return false;
        }
        outputs << copies;
    }
    if (!overWriteFileList(outputs, dir)) return false;
    if (!m_imageBatch) {
        m_imageBatch = new KelvaneImageBatch(this);
        connect(m_imageBatch, &QThread::finished, this, &KelvaneData::slotImageBatchFinished);
        connect(m_imageBatch, &KelvaneImageBatch::signalProgress, m_bars,
                &QTwinProgressToolBar::slotShowProgress2);
        connect(m_imageBatch, &KelvaneImageBatch::signalMessage, this, &KelvaneData::signalMessage);
        connect(m_imageBatch, &KelvaneImageBatch::signalLogMessage, this,
                &KelvaneData::signalLogMessage);
    }
    m_imageBatch->setBatchOptions(o);
    m_imageBatch->setImageCfg(m_dataObject->image(0)->imageCfg());
    m_imageBatch->setImageCompression(m_dataObject->isTIFFCompression());
    m_imageBatch->setFileList(o.fileList);
    m_imageBatch->setAbortFlag(false);
    setBatchMode(true);
    m_bars->setVisible(true);
    m_imageBatch->start();
    return true;
}

void KelvaneData::slotImageBatchFinished() {
    m_batchReport = m_imageBatch->logMessage();
    emit signalLogMessage(m_batchReport);
    m_bars->setVisible(false);
    setBatchMode(false);
    emit signalMessage(tr("Finished image batch processing"));
    emit signalBatchFinished();
}
