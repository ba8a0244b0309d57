#include "kelvanedata.h"

#include <QMainWindow>

#include "kelvanedataobject.h"
#include "pivevalobj.h"
#include "qtwinprogresstoolbar.h"

KelvaneData::KelvaneData(KelvaneDataObject* dataObject, QMainWindow* window)
    : QObject(window),
      m_dataObject(dataObject),
      m_engine(new PIVevalEngine(dataObject, window)),
      m_bars(new QTwinProgressToolBar(window)) {
    connect(m_engine, &PIVevalEngine::signalShowProgress, m_bars,
            &QTwinProgressToolBar::slotShowProgress);
    connect(m_engine, &PIVevalEngine::signalMessage, m_bars, &QTwinProgressToolBar::setText);
    connect(m_bars, &QTwinProgressToolBar::signalAbort, this, &KelvaneData::slotCancelProcessing);
}

// The engine goes first: it waits for a run still going, whose signals
// would otherwise reach bars already gone.
KelvaneData::~KelvaneData() {
    delete m_engine;
}

void KelvaneData::slotEvaluateImage() {
    m_cancelled = false;
    m_engine->interrogateImage();
}

void KelvaneData::slotCancelProcessing() {
    m_bars->setVisible(false);
    m_batchMode = false;
    m_engine->setBatchMode(false);
    m_cancelled = true;
    m_engine->slotAbortProcessing();
}
