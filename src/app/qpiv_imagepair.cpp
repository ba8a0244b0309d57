#include "qpiv_imagepair.h"

#include <QApplication>
#include <QCursor>

QPIV_ImagePair::QPIV_ImagePair(QObject* parent) : QObject(parent) {}

void QPIV_ImagePair::takeSettings(const QPIV_ImagePair& other) {
    const IMAGE_CFG& cfg = other.imageCfg();
    setImageCfg(cfg);
    setPCOMode(other.isPCOMode());
    setInterpolationMethod(cfg.InterpolationMethod, cfg.InterpolationDegree);
    setPivConvertCfg(other.pivConvertCfg());
    setAnalysisMode(other.analysisMode());
    setReferenceImage(other.referenceImage());
    setFrameSeparation(other.frameSeparation());
    setView(other.view());
    setAltDir(other.imgA()->altDir());
    setStereoMode(other.imgA()->isStereoMode());
    setFlagImagePreProcess(other.imgA()->imagePreProcess());
}

void QPIV_ImagePair::showStatus(const char* text) {
    PIV_ImagePair::showStatus(text);
    emit signalMessage(QString::fromLocal8Bit(text));
}

void QPIV_ImagePair::setWaitCursor(bool on) {
    if (!qobject_cast<QApplication*>(QCoreApplication::instance())) return;
    if (on)
        QApplication::setOverrideCursor(QCursor(Qt::WaitCursor));
    else
        QApplication::restoreOverrideCursor();
}

QString QPIV_ImagePair::lastErrorText() const {
    auto* self = const_cast<QPIV_ImagePair*>(this);
    for (const char* text : {self->error().getLastError(), imgA()->error().getLastError(),
                             imgB()->error().getLastError()})
        if (text && text[0]) return QString::fromLocal8Bit(text);
    return QString();
}
