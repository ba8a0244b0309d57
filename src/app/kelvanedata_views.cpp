// The windows that look at one spot or the whole field from another side:
// the correlation plane of a clicked spot and the histogram of displacements.
#include <QFileInfo>
#include <QMainWindow>

#include "corrplaneview.h"
#include "hist2dview.h"
#include "kelvanedata.h"
#include "kelvanedataobject.h"
#include "piv_data2d.h"
#include "piv_parametersqt.h"
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

    m_hist2D = new Hist2DView(m_window);
    connect(m_hist2D, &Hist2DView::signalValidate, this, &KelvaneData::slotHistWindowValidate);
    connect(m_dataObject, &KelvaneDataObject::signalHaveNewData, this,
            &KelvaneData::updateHistogram);
}

void KelvaneData::slotShowCorrelationPlane() {
    m_corrView->setStereoMode(m_dataObject->isStereoMode());
    m_corrView->show();
    m_corrView->raise();
}

void KelvaneData::slotSetNewDisplayParams(BMP_DISPLAY_PARAMS params) {
    m_corrView->setDisplayParams(params);
}

void KelvaneData::slotShowHistogram() {
    m_hist2D->show();
    m_hist2D->raise();
    updateHistogram();
}

void KelvaneData::updateHistogram() {
    if (!m_hist2D->isVisible()) return;
    m_hist2D->updatePivData(m_dataObject->data(-1), m_dataObject->parameters(0)->pivEvalCfg());
}

void KelvaneData::slotHistWindowValidate() {
    const DATA_ROI* rois = m_hist2D->getROI();
    const bool enable = m_hist2D->roiCount() > 0;
    bool changed = false;
    for (int view = 0; view < (m_dataObject->isStereoMode() ? 2 : 1); ++view) {
        changed |= m_dataObject->setGlobalHistograms(rois, enable, view);
        // The field was validated under the old windows.
        m_dataObject->data(view)->setFlagValidated(false);
        // Windows that nobody applies would only look like validation.
        PIV_Parameters* p = m_dataObject->parameters(view);
        if (enable && !p->outlierCfg().Enable) {
            OUTLIER_CFG cfg = p->outlierCfg();
            cfg.Enable = true;
            p->setOutlierCfg(cfg);
            changed = true;
        }
    }
    if (m_settings)
        PIV_ParametersQT(m_dataObject->parameters(0), m_settings).registryIO(MySettings::WRITE);
    if (changed) emit signalNewPivParameters();
    m_engine->doPostProcessing();
}
