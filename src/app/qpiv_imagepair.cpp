#include "qpiv_imagepair.h"

#include <QApplication>
#include <QCursor>

namespace {

QString _text(const char* text) {
    return QString::fromLocal8Bit(text ? text : "");
}

}  // namespace

QPIV_ImagePair::QPIV_ImagePair(QObject* parent) : QObject(parent) {}

bool QPIV_ImagePair::load(const QString& file, int separation, bool splitPCO, bool loadSecond) {
    return PIV_ImagePair::load(file.toLocal8Bit().constData(), separation, splitPCO, loadSecond);
}

bool QPIV_ImagePair::loadPair(const QString& fileA, const QString& fileB) {
    return PIV_ImagePair::loadPair(fileA.toLocal8Bit().constData(),
                                   fileB.toLocal8Bit().constData());
}

bool QPIV_ImagePair::loadMask(const QString& file) {
    return PIV_ImagePair::loadMask(file.toLocal8Bit().constData());
}

bool QPIV_ImagePair::save(const QDir& dir, const QString& extension, bool report) {
    const bool ok = PIV_ImagePair::save(dir.absolutePath().toLocal8Bit().constData(),
                                        extension.toLocal8Bit().constData());
    if (report && ok) emit signalMessage(QString::fromStdString(savedFilesText()));
    return ok;
}

void QPIV_ImagePair::setAltDir(const QString& dir) {
    PIV_ImagePair::setAltDir(dir.toLocal8Bit().constData());
}

void QPIV_ImagePair::setReferenceImage(const QString& path) {
    PIV_ImagePair::setReferenceImage(path.toLocal8Bit().constData());
}

void QPIV_ImagePair::setFileName(const QString& path, bool second) {
    PIV_ImagePair::setFileName(path.toLocal8Bit().constData(), second);
}

QString QPIV_ImagePair::lastImageFileA() const {
    return _text(PIV_ImagePair::lastImageFileA());
}

QString QPIV_ImagePair::lastImageFileB() const {
    return _text(PIV_ImagePair::lastImageFileB());
}

QString QPIV_ImagePair::referenceImage() const {
    return _text(PIV_ImagePair::referenceImage());
}

QString QPIV_ImagePair::filePath(bool second) const {
    return _text(PIV_ImagePair::filePath(second));
}

QString QPIV_ImagePair::baseName(bool second) const {
    return _text(PIV_ImagePair::baseName(second));
}

QString QPIV_ImagePair::fileName(bool second) const {
    return _text(PIV_ImagePair::fileName(second));
}

QString QPIV_ImagePair::extension(bool second) const {
    return _text(PIV_ImagePair::extension(second));
}

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
