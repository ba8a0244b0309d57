#include "kelvanedata.h"

#include <QApplication>
#include <QMainWindow>
#include <QMessageBox>
#include <QPushButton>
#include <QThread>

#include "corrplaneview.h"
#include "hist2dview.h"
#include "imagepreprocessdlg.h"
#include "imageviewer.h"
#include "kelvanedata_batchrun.h"
#include "kelvanedataobject.h"
#include "kelvaneimagebatch.h"
#include "loadpairdlg.h"
#include "outputdlg.h"
#include "piv_data2d.h"
#include "piv_enums.h"
#include "pivbatchdlg.h"
#include "pivcalib2cdlg.h"
#include "pivevalobj.h"
#include "pivpostprocessdlg.h"
#include "pivprobedlg.h"
#include "pivsetupdlg.h"
#include "pivstatsdlg.h"
#include "ptvevalobj.h"
#include "qpivensemblecorr.h"
#include "qtwinprogresstoolbar.h"
#include "xyplotwindow.h"

KelvaneData::KelvaneData(KelvaneDataObject* dataObject, QMainWindow* window, MySettings* settings)
    : QObject(window),
      m_dataObject(dataObject),
      m_settings(settings),
      m_window(window),
      m_engine(new PIVevalEngine(dataObject, window)),
      m_ptvEval(new PTVevalObj(dataObject, this)),
      m_bars(new QTwinProgressToolBar(window)),
      m_outputDlg(new OutputDlg(window)) {
    connect(m_engine, &PIVevalEngine::signalShowProgress, m_bars,
            &QTwinProgressToolBar::slotShowProgress);
    connect(m_engine, &PIVevalEngine::signalMessage, m_bars, &QTwinProgressToolBar::setText);
    connect(m_engine, &PIVevalEngine::signalMessage, this, &KelvaneData::signalMessage);
    connect(m_engine, &PIVevalEngine::signalLogMessage, this, &KelvaneData::signalLogMessage);
    connect(m_engine, &PIVevalEngine::signalUpdateUI, this, &KelvaneData::signalUpdateUI);
    // The bar shows as the run starts, before the start returns: the
    // actions that a run locks must follow at once.
    connect(m_engine, &PIVevalEngine::signalShowProgress, this, [this](int done, int) {
        if (done == 1 || done < 0) emit signalUpdateUI();
    });
    connect(m_engine, &PIVevalEngine::signalEvaluationFinished, this,
            &KelvaneData::evaluationFinished);
    connect(m_ptvEval, &PTVevalObj::signalMessage, this, &KelvaneData::signalMessage);
    connect(m_ptvEval, &PTVevalObj::signalLogMessage, this, &KelvaneData::signalLogMessage);
    connect(m_ptvEval, &PTVevalObj::signalFinished, this, &KelvaneData::ptvFinished);
    connect(m_bars, &QTwinProgressToolBar::signalAbort, this, &KelvaneData::slotCancelProcessing);
    connect(dataObject, &KelvaneDataObject::signalChangedAnalysisMode, this, [this] {
        m_file.setSpeckleMode(m_dataObject->analysisMode() == PIV::ANALYSIS_SPECKLE);
    });
    createDialogs();
    createViews();
    if (m_settings) registryIO(MySettings::READ);
}

// The engine goes first: it waits for a run still going, whose signals
// would otherwise reach bars already gone.
KelvaneData::~KelvaneData() {
    if (m_ensemble) m_ensemble->cancel();
    if (m_ensembleThread) m_ensembleThread->wait();
    delete m_imageBatch;
    delete m_engine;
    delete m_ptvEval;
}

LoadPairDlg* KelvaneData::loadPairDlg() {
    if (!m_loadPairDlg) {
        m_loadPairDlg = new LoadPairDlg(m_window);
        m_loadPairDlg->setFileFilters(m_imageFilters);
        connect(m_loadPairDlg, &LoadPairDlg::signalLoadPair, this,
                &KelvaneData::loadPairFromDialog);
    }
    return m_loadPairDlg;
}

void KelvaneData::warn(const QString& title, const QString& text) {
    if (m_batchMode) return;
    QMessageBox::warning(m_window, title, text);
}

void KelvaneData::slotEvaluateImage() {
    const QString notPossible = tr("PIV evaluation not possible");
    // A batch evaluates through the engine itself; nothing else may meanwhile.
    if (m_batchMode) {
        emit signalMessage(notPossible);
        return;
    }
    if (m_dataObject->isEvaluated(-1) && !m_batchMode) {
        if (m_dataObject->isFileData(-1)) {
            warn(QApplication::applicationName(), tr("File data cannot be re-evaluated!"));
            emit signalMessage(notPossible);
            return;
        }
        QMessageBox box(QMessageBox::Question,
                        tr("%1- Re-evaluate?").arg(QApplication::applicationName()),
                        tr("Image is already evaluated!\nDo you want to re-evaluate it anyway?"),
                        QMessageBox::NoButton, m_window);
        QPushButton* yes = box.addButton(tr("&Yes"), QMessageBox::YesRole);
        box.addButton(tr("&No"), QMessageBox::NoRole);
        box.exec();
        if (box.clickedButton() != yes) {
            emit signalMessage(notPossible);
            return;
        }
        m_dataObject->setEvaluated(false);
    }
    if (m_dataObject->isImagePair() && m_dataObject->kelvaneMode() == MODE_DATA &&
        !m_dataObject->isEvaluated(-1)) {
        m_cancelled = false;
        m_bars->slotShowProgress2(-1, 100);
        m_engine->setBatchMode(false);
        m_evaluating = m_engine->interrogateImage();
        if (!m_evaluating) {
            m_bars->setVisible(false);
            warn(tr("%1 - Interrogation failed!").arg(QApplication::applicationName()),
                 m_engine->lastMessage());
        }
    }
    emit signalUpdateUI();
}

// The second half of "PIV process", when the worker is done.
void KelvaneData::evaluationFinished(bool haveData) {
    if (m_batch && m_batch->evaluating) return batchFileEvaluated(haveData);
    if (!m_evaluating) return;
    m_evaluating = false;
    m_bars->setVisible(false);
    // A stop asked for by the user needs no box to say it stopped.
    if (!haveData && !m_cancelled)
        warn(tr("%1 - Interrogation failed!").arg(QApplication::applicationName()),
             m_engine->lastMessage());
    if (haveData && m_postDlg->requirePostProcessing()) {
        m_dataObject->setPostProcessCfg(m_postDlg->record());
        m_dataObject->doPostProcessing();
    }
    emit signalUpdateUI();
}

// A batch ends at its next step: after the file in hand, which is then
// neither saved nor counted.
void KelvaneData::slotCancelProcessing() {
    m_cancelled = true;
    m_engine->slotAbortProcessing();
    if (m_ensemble) m_ensemble->cancel();
    const bool imagesRunning = m_imageBatch && m_imageBatch->isRunning();
    if (imagesRunning) m_imageBatch->setAbortFlag(true);
    // A running thread ends batch mode itself when it has finished.
    if (m_batch || m_ensemble || imagesRunning) return;
    m_bars->setVisible(false);
    setBatchMode(false);
}

void KelvaneData::setBatchMode(bool on) {
    m_batchMode = on;
    m_engine->setBatchMode(on);
    m_bars->setSecondBarInUse(on);
    emit signalUpdateUI();
}

void KelvaneData::closeDialogs() {
    if (m_loadPairDlg) m_loadPairDlg->hide();
    for (QWidget* dialog :
         std::initializer_list<QWidget*>{m_outputDlg, m_setupDlg, m_imageDlg, m_postDlg, m_calibDlg,
                                         m_probeDlg, m_statsDlg, m_imageViewer})
        dialog->hide();
    if (m_histogram) m_histogram->hide();
    m_engine->closeDialogs();
}

void KelvaneData::registryIO(MySettings::AccessMode mode) {
    if (!m_settings) return;
    MySettings& s = *m_settings;
    s.serializeDouble(mode, QStringLiteral("/Conversion/RulerLength"), &m_rulerLength);
    s.serializeInt(mode, QStringLiteral("/PIV/DataFileLoadType"), &m_dataFileLoadType);
    s.serializeBool(mode, QStringLiteral("/Prefs/VectorSamplingEnabled"), &m_vectorSampling);
    s.serializeInt(mode, QStringLiteral("/Prefs/VectorSamplingROI"), &m_samplingROI);
    s.serializeBool(mode, QStringLiteral("/Output/StoreMagnitude"), &m_storeMagnitude);
    s.serializeInt(mode, QStringLiteral("/Output/Format"), &m_outputFormat);
    m_imageViewer->registryIO(s, mode);
    m_corrView->registryIO(m_settings, mode);
    m_hist2D->registryIO(m_settings, mode);
    for (PIVBatchDlg* dialog : {m_batchDlg, m_imageBatchDlg})
        if (dialog && mode == MySettings::WRITE) dialog->registryIO(mode);
    if (mode == MySettings::READ) {
        m_file.output().StoreMagnitude = m_storeMagnitude;
        m_file.setFormat(OutputDlg::formatOfIndex(m_outputFormat));
    }
}
