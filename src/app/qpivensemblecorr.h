// QPIVensembleCorr: the ensemble correlation of the library with its hooks
// turned into signals. It runs on a thread of its own; the signals reach
// the window queued, and a stop is one atomic flag the run looks at.
#pragma once

#include <QObject>
#include <QString>

#include <atomic>

#include "piv_corr2d_average.h"

class QPIVensembleCorr : public QObject, public PIV_Corr2D_Average {
    Q_OBJECT
public:
    explicit QPIVensembleCorr(QObject* parent = nullptr) : QObject(parent) {}

    // From any thread: the run ends at its next check.
    void cancel() { m_cancel = true; }

    void showErrorMessage(const char* text) override;
    void showProgressMessage(const char* text, bool show) override;
    void showProgressMessage2(const char* text) override;
    bool wasCancelled() override { return m_cancel; }
    void showProgress(int step, int steps) override { emit signalShowProgress(step, steps); }
    void showProgressSeries(int step, int steps) override {
        emit signalShowProgressOverall(step, steps);
    }
    void showStatusMessage(const char* text) override;

signals:
    void signalShowProgress(int step, int steps);
    void signalShowProgressOverall(int step, int steps);
    void signalMessage(const QString& text);
    void signalMessage2(const QString& text);
    void signalLogMessage(const QString& text);

private:
    std::atomic<bool> m_cancel{false};
};
