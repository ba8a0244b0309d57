// KelvaneData: the window's controller of evaluation. It owns the engine and
// the progress bars and joins them: the bars follow the engine's progress,
// and their stop button cancels the run.
#pragma once

#include <QObject>

class KelvaneDataObject;
class PIVevalEngine;
class QMainWindow;
class QTwinProgressToolBar;

class KelvaneData : public QObject {
    Q_OBJECT
public:
    KelvaneData(KelvaneDataObject* dataObject, QMainWindow* window);
    ~KelvaneData() override;

    PIVevalEngine* engine() const { return m_engine; }
    QTwinProgressToolBar* progressBars() const { return m_bars; }
    bool isBatchMode() const { return m_batchMode; }
    bool wasCancelled() const { return m_cancelled; }

public slots:
    // "PIV process": starts the evaluation of the current pair.
    void slotEvaluateImage();
    void slotCancelProcessing();

private:
    KelvaneDataObject* m_dataObject;
    PIVevalEngine* m_engine;
    QTwinProgressToolBar* m_bars;
    bool m_batchMode = false;
    bool m_cancelled = false;
};
