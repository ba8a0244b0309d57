// PTVevalObj: runs the tracker of the session on a worker thread of its own.
//
// A run takes copies of the two frames, the session's mask and the guiding
// field, so that the window goes on while it runs and may even load another
// pair; the tracks come back by a queued call and go into the data object on
// the windowing thread, unless the pair changed meanwhile: then they belong
// to the old one and are dropped.
#pragma once

#include <QObject>
#include <QString>
#include <QThread>

#include <memory>

class KelvaneDataObject;
class PIV_Data2D;
class PTV_Data2D;
class QPTV_Eval2D;

class PTVevalObj : public QObject {
    Q_OBJECT
public:
    explicit PTVevalObj(KelvaneDataObject* dataObject, QObject* parent = nullptr);
    // A run still going is waited for; its tracks are dropped.
    ~PTVevalObj() override;
    PTVevalObj(const PTVevalObj&) = delete;
    PTVevalObj& operator=(const PTVevalObj&) = delete;

    // Starts tracking the session's pair under `guide`, for the tracks of
    // `view`; false with the reason when one runs already or the copies
    // cannot be had. The end comes as signalFinished.
    bool process(const PIV_Data2D& guide, int view);
    bool isRunning() const { return m_running; }

signals:
    void signalMessage(const QString& text);
    void signalLogMessage(const QString& text);
    // On success the tracks are in the data object; otherwise `why` says
    // what went wrong.
    void signalFinished(bool ok, const QString& why);

private:
    void finish(bool ok, const std::shared_ptr<PTV_Data2D>& tracks, const QString& why);
    bool refuse(const QString& why);

    KelvaneDataObject* m_dataObject;
    QThread m_thread;
    QPTV_Eval2D* m_runner;
    bool m_running = false;
    int m_runView = -1;
    quint64 m_imageGeneration = 0, m_runGeneration = 0;
};
