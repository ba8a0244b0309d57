// The windows that look at one spot or the whole field from another side:
// the correlation plane of a clicked spot and the histogram of displacements.
#include <QFileInfo>
#include <QMainWindow>

#include "corrplaneview.h"
#include "kelvanedata.h"
#include "kelvanedataobject.h"
#include "piv_params.h"
#include "pivevalobj.h"

void KelvaneData::createViews() {
    m_corrView = new CorrPlaneView(m_window);
    m_corrView->setPivEvalCfg(m_dataObject->parameters(0)->pivEvalCfg());
    connect(m_engine, &PIVevalEngine::signalDrawSamples, m_corrView,
            &CorrPlaneView::slotDrawSamples);
    connect(m_engine, &PIVevalEngine::signalDrawCorrelation, m_corrView,
            &CorrPlaneView::slotDrawCorrelation);
    connect(m_corrView, &CorrPlaneView::signalInterrogateAtPoint, this,
            [this](QPoint point) { slotCorrelateAtPoint(QPointF(point)); });
}

void KelvaneData::slotShowCorrelationPlane() {
    m_corrView->setStereoMode(m_dataObject->isStereoMode());
    m_corrView->show();
    m_corrView->raise();
}

void KelvaneData::slotSetNewDisplayParams(BMP_DISPLAY_PARAMS params) {
    m_corrView->setDisplayParams(params);
}
