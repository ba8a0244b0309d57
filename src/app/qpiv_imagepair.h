// QPIV_ImagePair: the library's image pair with its status texts as a signal.
#pragma once

#include <QObject>
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

    void showStatus(const char* text) override;
    void setWaitCursor(bool on) override;

    // The library's last error of this pair and of its frames, for a
    // message that says why a load failed; empty when none was recorded.
    QString lastErrorText() const;

signals:
    void signalMessage(const QString& text);
};
