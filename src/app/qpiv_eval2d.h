// QPIV_Eval2D: the library's evaluator with its hooks turned into signals.
// An evaluator may run on a thread of its own: then every hook only stores
// or emits, and what a signal carries is a copy that the receiving thread
// may keep (the planes the correlators write are reused at the next window).
#pragma once

#include <QElapsedTimer>
#include <QMetaType>
#include <QObject>
#include <QSemaphore>
#include <QSharedPointer>
#include <QString>

#include <atomic>
#include <functional>
#include <vector>

#include "piv_data2d.h"
#include "piv_eval2d.h"

class QWidget;

// A block of floats copied out of a correlator, shared read-only.
struct FloatPlane {
    QSharedPointer<const std::vector<float>> values;
    int width = 0, height = 0;

    // The block as the library's array record, depth 1; null when empty.
    FLOAT_ARRAY array() const;
};

// The field of a running evaluation, lent to the windowing thread between
// two passes instead of copied: a second field of that size would be memory
// that no synchronous run needs. The lender waits until the field comes
// back, or gives up once cancelled if nobody has begun to read it.
class FieldLoan {
public:
    explicit FieldLoan(const PIV_Data2D* field) : m_field(field) {}
    // Reads the field (or nothing, where the lender gave up) and returns it;
    // a receiver that does not want it passes an empty function.
    void read(const std::function<void(const PIV_Data2D&)>& reader);
    // The lender's side: false when it gave up because `cancelled` said so.
    bool waitReturned(const std::function<bool()>& cancelled);

private:
    enum State { LENT, READING, RETURNED, ABANDONED };
    std::atomic<int> m_state{LENT};
    QSemaphore m_returned;
    const PIV_Data2D* m_field;
};
using PIVFieldLoan = QSharedPointer<FieldLoan>;

Q_DECLARE_METATYPE(FloatPlane)
Q_DECLARE_METATYPE(PIV_VECTOR)
Q_DECLARE_METATYPE(PIVFieldLoan)

class QPIV_Eval2D : public QObject, public PIV_Eval2D {
    Q_OBJECT
public:
    // data and parameters as PIV_Eval2D takes them (a reference on each).
    QPIV_Eval2D(PIV_Data2D* data, PIV_Parameters* parameters, QWidget* parentWidget = nullptr);

    // The status flag on, the cancel flags off.
    void init();
    // true starts the clock and returns 0; false gives the milliseconds since.
    int getTime(bool start);

    // Safe from any thread: the run stops at its next window.
    void cancelProcessing();
    bool isProcessingCancelled() const { return m_cancelledByUser.load(); }
    void showProgressDialog();
    void hideProgressDialog();
    const QString& progressText() const { return m_progressText; }
    void setProgressText(const QString& text) { m_progressText = text; }

    // Works on `data` from now on (null: on a field of its own), as when a
    // load replaced the session's field.
    void setPivData(PIV_Data2D* data);
    // The run state, for an evaluator that stands for one running elsewhere.
    void setFlagEvaluationRunning(bool on) { m_evaluationRunning = on; }

    // ---- hooks, in the order of the base classes' table -------------------------
    void showStatusMessage(const char* text) override;
    void appendToLogFile(const char* text) override;
    void showProgress(int step, int steps) override;
    void updateProgressDialog(const char* text, bool show) override;
    bool wasCancelled() override;
    void drawSamples(float* a, float* b, const SIZE2D& sizeA, const SIZE2D& sizeB, int width,
                     int index, bool fft) override;
    void drawCorrelation(float* plane, const SIZE2D& size, const PIV_VECTOR& vector,
                         int index) override;
    void showNewPivData() override;

signals:
    void signalShowProgress(int done, int total);
    void signalMessage(const QString& text);
    void signalLogMessage(const QString& text);
    void signalDrawSamples(const FloatPlane& a, const FloatPlane& b, int width, int index);
    void signalDrawCorrelation(const FloatPlane& plane, const PIV_VECTOR& vector, int index);
    // The field as far as the run came, lent while live evaluation is on
    // (null otherwise): the evaluator waits until the receiver read it.
    void signalNewPivData(const PIVFieldLoan& field);

private:
    enum Picture { SAMPLES, CORRELATION, FIELD, PICTURES };
    // During a run a display gets at most 30 pictures of a kind a second;
    // a single correlation always gets its own.
    bool pictureDue(Picture kind);

    std::atomic<bool> m_cancelledByUser{false};
    QWidget* m_parentWidget;
    bool m_progressDialogShown = false;
    QElapsedTimer m_time;
    QString m_progressText;
    QString m_lastProgressMessage;
    QElapsedTimer m_lastPicture[PICTURES];
};
