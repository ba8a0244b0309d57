// The dialogs the controller owns: evaluation settings, image pre-processing,
// post-processing, calibration, statistics and the image viewer. Each is
// filled from the session when it opens and hands back only what changed.
#include <QApplication>
#include <QMainWindow>
#include <QMessageBox>
#include <QPushButton>
#include <QStringList>
#include <cstring>

#include "image2d.h"
#include "imagepreprocessdlg.h"
#include "imageviewer.h"
#include "kelvanedata.h"
#include "kelvanedataobject.h"
#include "piv_data2d.h"
#include "piv_params.h"
#include "piv_units.h"
#include "pivcalib2cdlg.h"
#include "pivevalobj.h"
#include "pivpostprocessdlg.h"
#include "pivprobedlg.h"
#include "pivsetupdlg.h"
#include "pivstatsdlg.h"
#include "qpiv_imagepair.h"
#include "recordpath.h"

namespace {

void showAndRaise(QWidget* w) {
    w->show();
    w->raise();
    w->activateWindow();
}

QString triple(const int32_t* v) {
    return QStringLiteral("%1 x %2 x %3").arg(v[0]).arg(v[1]).arg(v[2]);
}

}  // namespace

void KelvaneData::createDialogs() {
    m_setupDlg = new PivSetupDlg(m_window);
    m_imageDlg = new ImagePreProcessDlg(m_window);
    m_postDlg = new PIVPostProcessDlg(m_window);
    m_calibDlg = new PIVCalib2CDlg(m_window);
    m_probeDlg = new PivProbeDlg(m_window);
    m_statsDlg = new PivStatsDlg(m_window);
    m_imageViewer = new ImageViewer(m_window);
    connect(m_setupDlg, &QDialog::accepted, this, &KelvaneData::slotGetParamsFromDialog);
    connect(m_imageDlg, &QDialog::accepted, this, &KelvaneData::applyImageCfg);
    connect(m_imageDlg, &ImagePreProcessDlg::signalChooseReferenceImage, this,
            &KelvaneData::slotFileChooseReferenceImage);
    connect(m_postDlg, &QDialog::accepted, this, &KelvaneData::applyPostProcessCfg);
    connect(m_calibDlg, &PIVCalib2CDlg::signalApply, this, &KelvaneData::applyCalibration);
    connect(m_dataObject, &KelvaneDataObject::signalHaveNewParameters, this,
            &KelvaneData::slotUpdatePivParameters);
}

// ---- evaluation settings -------------------------------------------------------

void KelvaneData::fillSetupDlg() {
    const PIV_PARAMETERS a = m_dataObject->parameters(0)->pivParameters();
    PIVSETUP_CFG cfg;
    cfg.eval = a.eval;
    cfg.outlier[0] = a.outlier;
    cfg.outlier[1] = m_dataObject->parameters(1)->outlierCfg();
    cfg.convert = a.convert;
    cfg.differentiate = a.differentiate;
    m_setupDlg->setRecord(cfg);
    m_setupDlg->setFileOnly(m_dataObject->isFileData(0), m_dataObject->haveMultiplePeaks(0));
}

void KelvaneData::slotShowPIVParameters() {
    fillSetupDlg();
    showAndRaise(m_setupDlg);
}

void KelvaneData::slotUpdatePivParameters() {
    if (!m_setupDlg->isVisible()) fillSetupDlg();
    m_postDlg->setRecord(m_dataObject->postProcessCfg());
}

bool KelvaneData::mendParameters(PIVEVAL_CFG* eval, PIVCONVERT_CFG& convert) {
    QStringList reasons;
    if (eval) {
        PIVEVAL_CFG& cfg = *eval;
        PIVEVAL_CFG mended = cfg;
        PIV_Parameters::checkPivEvalCfg(mended);
        // The FFT size follows the window size without a word: it is derived.
        const struct {
            const char* name;
            const int32_t* asked;
            const int32_t* taken;
        } groups[] = {
            {"Window size", &cfg.SampleSize.width, &mended.SampleSize.width},
            {"Grid step", &cfg.grid.step.width, &mended.grid.step.width},
            {"Window offset", &cfg.SampleOffset.x, &mended.SampleOffset.x},
            {"First node", &cfg.grid.first.x, &mended.grid.first.x},
            {"Nodes", &cfg.grid.nodes.width, &mended.grid.nodes.width},
            {"Image size", &cfg.grid.imageSize.width, &mended.grid.imageSize.width},
        };
        for (const auto& g : groups)
            if (triple(g.asked) != triple(g.taken))
                reasons << tr("%1 %2 is not possible, set to %3")
                               .arg(tr(g.name), triple(g.asked), triple(g.taken));
        cfg = mended;
    }
    // A unit the tables do not know becomes the one they fall back to.
    PIVCONVERT_CFG known = convert;
    PIV::UpdateConversionFactors(&known);
    const struct {
        const char* name;
        const char* asked;
        const char* taken;
    } units[] = {
        {"Length unit", convert.LengthConversionUnits, known.LengthConversionUnits},
        {"Velocity unit", convert.VelocityUnits, known.VelocityUnits},
        {"Displacement unit", convert.DisplacementUnits, known.DisplacementUnits},
    };
    for (const auto& u : units)
        if (std::strcmp(u.asked, u.taken) != 0)
            reasons << tr("%1 '%2' is not known, set to '%3'")
                           .arg(tr(u.name), QString::fromLatin1(u.asked),
                                QString::fromLatin1(u.taken));
    convert = known;
    if (reasons.isEmpty()) return true;
    const QString text = tr("Parameters corrected:\n") + reasons.join('\n');
    emit signalLogMessage(text);
    warn(tr("%1 - PIV parameters").arg(QApplication::applicationName()), text);
    return false;
}

void KelvaneData::slotGetParamsFromDialog() {
    if (m_batchMode || m_engine->isEvaluationRunning()) {
        emit signalMessage(tr("Parameters cannot change during an evaluation"));
        return;
    }
    PIVSETUP_CFG cfg = m_setupDlg->record();
    PIV_PARAMETERS a = m_dataObject->parameters(0)->pivParameters();
    PIV_PARAMETERS b = m_dataObject->parameters(1)->pivParameters();
    // A field read from a file keeps the settings it was made with.
    const bool fileData = m_dataObject->isFileData(0) || m_setupDlg->isFileOnly();
    if (fileData) cfg.eval = a.eval;
    mendParameters(fileData ? nullptr : &cfg.eval, cfg.convert);
    const bool changed =
        !PIV::SameRecord(cfg.eval, a.eval) || !PIV::SameRecord(cfg.convert, a.convert) ||
        !PIV::SameRecord(cfg.differentiate, a.differentiate) ||
        !PIV::SameRecord(cfg.outlier[0], a.outlier) || !PIV::SameRecord(cfg.outlier[1], b.outlier);
    if (!changed) {
        fillSetupDlg();  // shows what a correction left
        return;
    }
    const bool hadData = m_dataObject->haveData(0);
    a.eval = cfg.eval;
    a.convert = cfg.convert;
    a.differentiate = cfg.differentiate;
    a.outlier = cfg.outlier[0];
    b = a;
    b.outlier = cfg.outlier[1];
    m_dataObject->setPivParameters(a, b);
    m_engine->setPivEvalParameters(m_dataObject->parameters(0)->pivEvalCfg());
    fillSetupDlg();
    emit signalNewPivParameters();
    if (hadData && !m_dataObject->haveData(0)) emit m_dataObject->signalHaveNewData(0);
    emit signalUpdateUI();
}

// ---- images --------------------------------------------------------------------

void KelvaneData::slotOpenImageProcDlg() {
    const IMAGE_CFG cfg = m_dataObject->image(0)->imageCfg();
    m_imageDlg->setImageCfg(cfg, 0);
    m_imageDlg->setImageCfg(m_dataObject->isStereoMode() ? m_dataObject->image(1)->imageCfg() : cfg,
                            1);
    showAndRaise(m_imageDlg);
}

void KelvaneData::applyImageCfg() {
    const IMAGE_CFG cfg = m_imageDlg->record().view[0];
    const IMAGE_CFG before = m_dataObject->image(0)->imageCfg();
    if (PIV::SameRecord(cfg, before)) return;
    const QString missing = ImagePreProcessDlg::missingFile(cfg);
    if (!missing.isEmpty()) {
        const QString text = tr("File does not exist or cannot be read:\n") + missing;
        warn(QApplication::applicationName(), text);
        emit signalLogMessage(text);
        return;
    }
    m_dataObject->image(0)->setImageCfg(cfg);
    if (!m_dataObject->haveImage(0)) return;
    if (!m_dataObject->reloadImage()) {
        m_dataObject->image(0)->setImageCfg(before);
        warn(QApplication::applicationName(), m_dataObject->lastError());
    }
}

void KelvaneData::slotUpdateMask(QString file, int view, int) {
    char name[sizeof(IMAGE_CFG::Mask)];
    if (!StorePath(name, file)) {
        warn(QApplication::applicationName(),
             tr("The mask image path is longer than %1 bytes and cannot be used:\n'%2'")
                 .arg(int(sizeof name) - 1)
                 .arg(file));
        return;
    }
    QMessageBox box(QMessageBox::Question, QApplication::applicationName(),
                    tr("Use newly created mask image:\n'%1'").arg(file), QMessageBox::NoButton,
                    m_window);
    QPushButton* yes = box.addButton(tr("Yes, enable"), QMessageBox::YesRole);
    box.setEscapeButton(box.addButton(tr("No"), QMessageBox::NoRole));
    box.exec();
    if (box.clickedButton() != yes) return;
    IMAGE_CFG cfg = m_dataObject->image(view)->imageCfg();
    PIV::CopyText(cfg.Mask, name);
    cfg.MaskEnable = true;
    m_dataObject->image(view)->setImageCfg(cfg);
    if (m_dataObject->haveImage(view) && !m_dataObject->reloadImage())
        warn(QApplication::applicationName(), m_dataObject->lastError());
}

void KelvaneData::slotShowImageViewer() {
    if (!m_dataObject->haveImage(-1)) {
        emit signalMessage(tr("No image loaded"));
        return;
    }
    QPIV_ImagePair* pair = m_dataObject->image(-1);
    m_imageViewer->setImage(pair->imgA(), pair->fileName(false));
    showAndRaise(m_imageViewer);
}

// ---- post-processing -------------------------------------------------------------

void KelvaneData::slotPostProcessMenu() {
    m_postDlg->setRecord(m_dataObject->postProcessCfg());
    showAndRaise(m_postDlg);
}

void KelvaneData::applyPostProcessCfg() {
    if (m_dataObject->setPostProcessCfg(m_postDlg->record())) m_engine->doPostProcessing();
    emit signalUpdateUI();
}

void KelvaneData::slotPostProcess() {
    m_dataObject->setPostProcessCfg(m_postDlg->record());
    m_engine->doPostProcessing();
    emit signalUpdateUI();
}

// ---- statistics ------------------------------------------------------------------

void KelvaneData::slotPivStats() {
    if (!m_dataObject->haveData(-1)) {
        emit signalMessage(tr("Data not available"));
        return;
    }
    m_dataObject->calcPivStats();
    m_statsDlg->setText(m_dataObject->title(-1),
                        QString::fromLatin1(m_dataObject->data(-1)->formattedStats()));
    showAndRaise(m_statsDlg);
}

void KelvaneData::slotShowProbleDlg() {
    showAndRaise(m_probeDlg);
}

// ---- calibration -------------------------------------------------------------------

void KelvaneData::updateKelvaneMode(KelvaneMode mode) {
    if (mode != MODE_CALIBRATION || m_dataObject->isStereoMode()) {
        m_calibDlg->hide();
        return;
    }
    const PIVCONVERT_CFG c = m_dataObject->parameters(0)->pivConvertCfg();
    CALIB2C_CFG cfg;
    cfg.RulerLength = m_rulerLength;
    if (c.LengthConversionUnits[0]) PIV::CopyText(cfg.Units, c.LengthConversionUnits);
    m_calibDlg->setRecord(cfg);
    m_calibDlg->setMagnification(c.LengthConversion[0], QString::fromLatin1(cfg.Units));
    showAndRaise(m_calibDlg);
}

void KelvaneData::slotSetRulerLength(double pixels) {
    m_rulerPixels = pixels;
    applyCalibration();
}

// The ruler's pixels over the length typed in the panel give the scale.
void KelvaneData::applyCalibration() {
    const CALIB2C_CFG cfg = m_calibDlg->record();
    if (!(cfg.RulerLength > 0.0)) {
        emit signalMessage(tr("The ruler length must be above zero"));
        return;
    }
    m_rulerLength = cfg.RulerLength;
    PIVCONVERT_CFG c = m_dataObject->parameters(0)->pivConvertCfg();
    PIV::CopyText(c.LengthConversionUnits, cfg.Units);
    if (m_rulerPixels > 0.0)
        c.LengthConversion[0] = c.LengthConversion[1] = c.LengthConversion[2] =
            m_rulerPixels / m_rulerLength;
    m_dataObject->setPivConvertCfg(c);
    m_calibDlg->setMagnification(m_dataObject->parameters(0)->pivConvertCfg().LengthConversion[0],
                                 QString::fromLatin1(cfg.Units));
}

void KelvaneData::slotSetReferencePoint(QPointF point) {
    m_dataObject->setOrigin(FPOINT2D{float(point.x()), float(point.y())});
}

void KelvaneData::slotSetROI(QRect rect) {
    m_dataObject->setROI(rect);
    emit signalUpdateUI();
}
