// The plot dialog: every field of the plot record has a control, the
// settings store keeps every field, and applying reports real changes only.
#include <gtest/gtest.h>

#include <QCheckBox>
#include <QSettings>
#include <QSignalSpy>
#include <cstdio>
#include <cstring>

#include "offscreen_app.h"
#include "piv_plot_fields.h"
#include "pivplotsetupdlg.h"
#include "scratch_files.h"

using namespace PIVPLOT;

namespace {

// Gives every listed field a value unlike the default, so that a field
// without a control or without a key comes back with the default instead.
// Whole numbers become 1, which every spin box and list can show, so that
// they travel through their controls and not around them.
struct Perturb {
    int k = 0;
    void field(const char*, bool* v) { *v = !*v; }
    void field(const char*, int32_t* v) { *v = *v == 1 ? 2 : 1; }
    void field(const char*, uint32_t* v) { *v = 0x80a0c000u + ++k; }
    void field(const char*, float* v) { *v = 0.25f + ++k; }
    void field(const char*, double* v) { *v = 0.1 + ++k; }
    void text(const char*, char* v, int size) {
        std::memset(v, 0, size_t(size));  // records holding one text compare equal
        std::snprintf(v, size, "text %d", ++k);
    }
};

PLOT_CFG perturbed() {
    PLOT_CFG c = DefaultPlotCfg();
    Perturb p;
    VisitPlotFields(p, &c);
    for (ANNOTATION_CFG* a : {&c.logo, &c.background, &c.overlay, &c.title, &c.subTitle})
        VisitAnnotationFields(p, a);
    VisitImageFields(p, &c.image);
    VisitVectorFields(p, &c.vector);
    VisitRefVectorFields(p, &c.refVector);
    VisitContourFields(p, &c.contour);
    for (LUT_CFG* l : {&c.image.lut, &c.vector.lut, &c.contour.lut}) VisitLutFields(p, l);
    for (OPACITY_CFG* o : {&c.image.opacity, &c.contour.opacity}) VisitOpacityFields(p, o);
    for (AXIS_CFG* a : {&c.xAxis, &c.yAxis}) VisitAxisFields(p, a);
    VisitColorFields(p, &c.colors);
    c.contour.DataAreaOnly = !c.contour.DataAreaOnly;  // a switch of the window, not of the file
    return c;
}

bool same(const PLOT_CFG& a, const PLOT_CFG& b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

}  // namespace

TEST(PlotSetupDialog, EveryFieldHasAControlAndKeyOfItsOwn) {
    EnsureOffscreenApplication();
    const PLOT_CFG want = perturbed();
    ASSERT_FALSE(same(want, DefaultPlotCfg()));

    // Controls: loaded from the perturbed record, stored over the defaults.
    // The fields of the records, counted by hand: plot 5, five annotations
    // of 5, image 3, three colour tables of 26, two opacities of 4, vectors
    // 22, reference vector 16, contours 6, two axes of 18, colours 9.
    PIVPlotSetupDlg dlg;
    EXPECT_EQ(dlg.form().count(), 5 + 25 + 3 + 78 + 8 + 22 + 16 + 6 + 36 + 9);
    dlg.form().load(&want);
    PLOT_CFG fromControls = DefaultPlotCfg();
    dlg.form().store(&fromControls);
    EXPECT_TRUE(same(fromControls, want));

    // Settings: written by one dialog, read by a fresh one.
    test_support::ScratchDir dir;
    const QString ini = QString::fromStdString(dir.path() + "/plot.ini");
    {
        MySettings s(ini, QSettings::IniFormat);
        dlg.setRecord(want);
        dlg.registryIO(s, MySettings::WRITE);
    }
    MySettings s(ini, QSettings::IniFormat);
    PIVPlotSetupDlg fresh;
    fresh.registryIO(s, MySettings::READ);
    EXPECT_TRUE(same(fresh.record(), want));
    EXPECT_TRUE(same(fresh.controlsRecord(), want));
    // Colours are kept as integers: 0xAARRGGBB read as a signed number.
    EXPECT_EQ(s.value("/PlotSetup/Colors/Valid").toString().toLongLong(),
              static_cast<int32_t>(want.colors.Valid));
}

TEST(PlotSetupDialog, ApplyReportsOnlyRealChangesAndCancelRestoresTheControls) {
    EnsureOffscreenApplication();
    PIVPlotSetupDlg dlg;
    QSignalSpy applied(&dlg, &PIVPlotSetupDlg::signalApply);
    QCheckBox* showImage = nullptr;
    for (QCheckBox* box : dlg.findChildren<QCheckBox*>())
        if (box->text() == "Show image") showImage = box;
    ASSERT_NE(showImage, nullptr);

    dlg.slotApply();
    EXPECT_EQ(applied.count(), 0);  // nothing changed
    showImage->setChecked(!showImage->isChecked());
    dlg.slotApply();
    EXPECT_EQ(applied.count(), 1);
    EXPECT_EQ(dlg.record().image.Show, !DefaultPlotCfg().image.Show);

    showImage->setChecked(!showImage->isChecked());
    dlg.reject();
    EXPECT_EQ(applied.count(), 1);
    EXPECT_EQ(showImage->isChecked(), dlg.record().image.Show);
}
