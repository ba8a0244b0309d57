// QPIV_ImagePair: the library's image pair with its status texts as a signal
// and its names as QStrings (in the local 8-bit encoding of the file system).
#pragma once

#include <QDir>
#include <QObject>
#include <QSize>
#include <QString>

#include "piv_imagepair.h"

class QPIV_ImagePair : public QObject, public PIV_ImagePair {
    Q_OBJECT
public:
    explicit QPIV_ImagePair(QObject* parent = nullptr);

    // Everything a load depends on besides the file names: image and
    // conversion records, analysis mode, reference frame, separation, view,
    // and the flags of both frames. Pixels and names stay behind, and so does
    // TIFF compression, which the owner sets.
    void takeSettings(const QPIV_ImagePair& other);

    // The library's char* loaders and setters stay callable beside these; its
    // getters, which these hide, through PIV_ImagePair::.
    using PIV_ImagePair::load;
    using PIV_ImagePair::loadMask;
    using PIV_ImagePair::loadPair;
    using PIV_ImagePair::save;
    using PIV_ImagePair::setAltDir;
    using PIV_ImagePair::setFileName;
    using PIV_ImagePair::setReferenceImage;

    bool load(const QString& file, int separation, bool splitPCO, bool loadSecond);
    bool loadPair(const QString& fileA, const QString& fileB);
    bool loadMask(const QString& file);
    // Both frames into `dir`; with `report` the "Stored images:" list goes
    // out as a message too.
    bool save(const QDir& dir, const QString& extension, bool report);
    void setAltDir(const QString& dir);
    void setReferenceImage(const QString& path);
    void setFileName(const QString& path, bool second);

    QString lastImageFileA() const;
    QString lastImageFileB() const;
    QString referenceImage() const;
    QString filePath(bool second) const;
    QString baseName(bool second) const;
    QString fileName(bool second) const;
    QString extension(bool second) const;
    QSize size() const { return QSize(width(), height()); }

    void showStatus(const char* text) override;
    void setWaitCursor(bool on) override;

    // The library's last error of this pair and of its frames, for a
    // message that says why a load failed; empty when none was recorded.
    QString lastErrorText() const;

signals:
    void signalMessage(const QString& text);
};
