#include "pivpostprocessdlg.h"

#include <QFormLayout>
#include <QTabWidget>

#include "dialogpages.h"

using namespace DialogPages;

PIVPostProcessDlg::PIVPostProcessDlg(QWidget* parent) : QDialog(parent) {
    setWindowTitle(tr("Post-processing"));
    auto* tabs = new QTabWidget;
    const POSTPROCESS_CFG& c = m_cfg;
    RecordForm& f = m_form;
    QFormLayout* page = addPage(tabs, tr("Filters"));
    QFormLayout* g = addGroup(page, tr("Field filters"));
    f.check(g, tr("Smooth"), &c.SmoothApply);
    f.real(g, tr("Smoothing kernel"), &c.SmoothKernel);
    f.check(g, tr("Median filter"), &c.MedianApply);
    f.integer(g, tr("Median size"), &c.MedianSize);
    f.check(g, tr("Fill disabled vectors"), &c.InterpolateDisabledVectors);
    g = addGroup(page, tr("Mask"));
    f.check(g, tr("Apply mask"), &c.MaskEnable);
    f.check(g, tr("Invert mask"), &c.MaskInvert);
    f.text(g, tr("Mask image"), c.MaskFile, sizeof c.MaskFile);

    page = addPage(tabs, tr("Combine"));
    g = addGroup(page, tr("Second field"));
    f.check(g, tr("Combine with a field"), &c.combine.Apply);
    f.text(g, tr("Field file"), c.combine.File, sizeof c.combine.File);
    f.integer(g, tr("Operation"), &c.combine.Mode);
    f.check(g, tr("Fit a surface"), &c.combine.FitApply);
    f.integer(g, tr("Fit order X"), &c.combine.FitOrderX);
    f.integer(g, tr("Fit order Y"), &c.combine.FitOrderY);
    f.check(g, tr("Interpolate"), &c.combine.Interpolate);
    f.real(g, tr("Interpolation radius"), &c.combine.InterpolateRadius);
    addTransformation(f, addGroup(page, tr("Transformation")), c.transformation);
    finishDialog(this, tabs);
    setRecord(m_cfg);
}

void PIVPostProcessDlg::setRecord(const POSTPROCESS_CFG& cfg) {
    m_cfg = cfg;
    m_form.load(&m_cfg);
}

POSTPROCESS_CFG PIVPostProcessDlg::record() const {
    POSTPROCESS_CFG cfg = m_cfg;
    m_form.store(&cfg);
    return cfg;
}

bool PIVPostProcessDlg::requirePostProcessing() const {
    const POSTPROCESS_CFG c = record();
    return c.SmoothApply || c.MedianApply || c.InterpolateDisabledVectors || c.MaskEnable ||
           c.combine.Apply || c.transformation.Enable;
}
