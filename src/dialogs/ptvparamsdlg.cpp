#include "ptvparamsdlg.h"

#include <QFormLayout>
#include <QTabWidget>

#include "dialogpages.h"

using namespace DialogPages;

PTVParamsDlg::PTVParamsDlg(QWidget* parent) : QDialog(parent) {
    setWindowTitle(tr("PTV parameters"));
    auto* tabs = new QTabWidget;
    RecordForm& f = m_form;
    const PTV_PARAMS& c = m_cfg;
    QFormLayout* page = addPage(tabs, tr("Tracking"));
    QFormLayout* g = addGroup(page, tr("Detection"));
    f.real(g, tr("Detection threshold"), &c.DetectThresh);
    f.choice(g, tr("Pixel connectivity"), &c.PixelConnectivity,
             {tr("4 (edges)"), tr("8 (edges and corners)")}, {4, 8});
    f.integer(g, tr("Maximum region size"), &c.MaxRegionSize, 1);
    g = addGroup(page, tr("Matching"));
    f.real(g, tr("Search radius"), &c.SearchRadius);
    f.real(g, tr("Valid radius"), &c.ValidRadius);
    f.integer(g, tr("Sort box width"), &c.SortBoxWidth, 1);
    f.integer(g, tr("Sort box height"), &c.SortBoxHeight, 1);
    g = addGroup(page, tr("Label images"));
    f.check(g, tr("Save label images"), &c.LabelImagesSave);
    f.text(g, tr("Label image prefix"), c.LabelImagesPrefix, int(sizeof c.LabelImagesPrefix));

    page = addPage(tabs, tr("Image filters"));
    g = addGroup(page, tr("Background"));
    f.check(g, tr("Subtract background"), &c.imageCfg.BkgdSubtract);
    f.text(g, tr("Background image"), c.imageCfg.Bkgd, int(sizeof c.imageCfg.Bkgd));
    addImageFilters(f, addGroup(page, tr("Filters")), c.imageCfg.filters);
    finishDialog(this, tabs);
    setRecord(m_cfg);
}

void PTVParamsDlg::setRecord(const PTV_PARAMS& cfg) {
    m_cfg = cfg;
    m_form.load(&m_cfg);
}

PTV_PARAMS PTVParamsDlg::record() const {
    PTV_PARAMS cfg = m_cfg;
    m_form.store(&cfg);
    return cfg;
}
