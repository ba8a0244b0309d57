// QPTV_Eval2D: the tracker with its hooks turned into signals. It runs on a
// worker thread, so each hook only emits a copy of its text; the receivers
// connect queued and read it on the windowing thread.
#pragma once

#include <QObject>
#include <QString>

#include "ptv_eval2d.h"

class QPTV_Eval2D : public QObject, public PTV_Eval2D {
    Q_OBJECT
public:
    QPTV_Eval2D() = default;

    void appendToLogFile(const char* text) override;
    void showStatusMessage(const char* text) override;
    void showNewPTVdata() override;

signals:
    void signalLogMessage(const QString& text);
    void signalMessage(const QString& text);
    void signalNewPTVdata();
};
