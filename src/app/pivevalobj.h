// PIVevalEngine: decides whether an evaluation may start, runs it and hands
// the result to the session's data object.
//
// Checks, boxes and results stay on the windowing thread. The run itself goes
// to one long-lived worker thread, where an evaluator of the engine's own works
// on copies of the pair, the field and the parameters; the window never waits
// for it. Its hooks reach the engine as queued signals in the order the
// library calls them. A field that comes back after the image or the
// evaluation settings changed is dropped: it belongs to the old ones.
#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QPoint>
#include <QString>
#include <QThread>

#include <memory>

#include "piv_types.h"
#include "qpiv_eval2d.h"

class KelvaneDataObject;
class QPIV_ImagePair;
class QWidget;

class PIVevalEngine : public QObject {
    Q_OBJECT
public:
    PIVevalEngine(KelvaneDataObject* dataObject, QWidget* parentWidget, QObject* parent = nullptr);
    // A run still going is cancelled and waited for.
    ~PIVevalEngine() override;
    PIVevalEngine(const PIVevalEngine&) = delete;
    PIVevalEngine& operator=(const PIVevalEngine&) = delete;

    // The tests before a run, in order; false with the reason as status text.
    // With `ask` a multi-pass method without outlier detection asks first.
    bool isInterrogationPossible(bool ask);
    // Starts the run and returns true when it started; the end comes as
    // signalEvaluationFinished(whether raw data exist).
    bool interrogateImage();
    // One window on the windowing thread; refused while a run goes on.
    bool interrogateAtPoint(const QPoint& point, PIV_VECTOR* a, PIV_VECTOR* b);
    void updatePivImages(bool isNew);
    void doPostProcessing();
    void clear();
    void clearFlags();
    void setBatchMode(bool on) { m_batchMode = on; }
    bool isBatchMode() const { return m_batchMode; }
    void setPivEvalParameters(const PIVEVAL_CFG& cfg);
    void updatePivParameters();
    void closeDialogs() {}
    // The library's thread count; the evaluators are built anew for it once
    // no run goes on.
    void setThreadCount(int count);

    bool isEvaluationRunning() const { return m_running; }
    bool canProcess() const { return m_canProcess; }
    const QString& lastMessage() const { return m_lastMessage; }
    float processingTime() const { return m_processingTime; }
    float timePerVector() const { return m_timePerVector; }
    const QString& lastTimeText() const { return m_lastTimeText; }
    // The evaluator of a view on the session's data (one object for both).
    QPIV_Eval2D* evaluator(int view = 0) const { return m_eval[view > 0 ? 1 : 0]; }
    // Always false in this edition.
    bool isOnlineEvaluationEnabled() const { return false; }
    void setOnlineEvaluationEnabled(bool) {}

public slots:
    void slotAbortProcessing();
    void slotUpdatePivImages();
    void slotUpdatePivParameters() { updatePivParameters(); }
    void slotUpdateAnalysisMode();
    void slotUpdateCurrentView(int) {}
    void slotUpdateStereoMode() {}
    void slotUpdateStereoCfg() {}
    void slotToggleLiveProgress();
    void slotDrawSamples(const FloatPlane& a, const FloatPlane& b, int width, int index);
    void slotDrawCorrelation(const FloatPlane& plane, const PIV_VECTOR& vector, int index);

signals:
    void signalMessage(const QString& text);
    void signalLogMessage(const QString& text);
    void signalUpdateUI();
    void signalShowProgress(int done, int total);
    void signalDrawSamples(const FloatPlane& a, const FloatPlane& b, int width, int index);
    void signalDrawCorrelation(const FloatPlane& plane, const PIV_VECTOR& vector, int index);
    void signalEvaluationFinished(bool haveData);

private:
    void createEvaluators();
    void rebuildEvaluators();
    bool refuse(const QString& text);
    // A box on the windowing thread; the button pressed.
    int askGridMismatch(int view);
    // The worker's progress of one sample list, as a share of the whole run.
    void runProgress(int done, int total);
    void runField(const PIVFieldLoan& loan);
    void finishRun(bool ok, QSharedPointer<PIV_Data2D> field, const QString& error);
    // The image, the field and the evaluation settings are those the run started with.
    bool isRunCurrent() const;
    // The pair is copied a slice of rows per turn of the event loop, so that
    // the window never stands still for a whole copy; then the worker starts.
    void copyNextSlice();
    void startWorker();

    KelvaneDataObject* m_dataObject;
    QPIV_Eval2D* m_eval[2];
    bool m_canProcess = false;
    bool m_liveProgress = false;
    QString m_lastMessage;
    float m_processingTime = 0.0f;
    float m_timePerVector = 0.0f;
    QString m_lastTimeText;

    QWidget* m_parentWidget;
    bool m_batchMode = false;
    // The run: its worker, and what it started from.
    QThread m_thread;
    QPIV_Eval2D* m_runner;
    bool m_running = false;
    bool m_cancelRequested = false;
    bool m_rebuildPending = false;
    quint64 m_imageGeneration = 0, m_runImageGeneration = 0, m_runMaskRevision = 0;
    const QPIV_ImagePair* m_runPair = nullptr;
    PIV_Data2D* m_runTarget = nullptr;  // referenced while the run goes on
    PIV_PARAMETERS m_runParams;
    int m_runAnalysisMode = 0;
    int m_listsExpected = 1, m_listsDone = 0, m_lastPercent = 0;
    QElapsedTimer m_clock;
    struct Job;
    std::unique_ptr<Job> m_job;  // until the worker has it
    int64_t m_copyRow = 0;
};
