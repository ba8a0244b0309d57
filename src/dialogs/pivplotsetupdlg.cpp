#include "pivplotsetupdlg.h"

#include <QDialogButtonBox>
#include <QFileDialog>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QMessageBox>
#include <QPushButton>
#include <QScrollArea>
#include <QTabWidget>
#include <QVBoxLayout>

#include "bitmap_lut.h"
#include "piv_plot_fields.h"
#include "piv_record.h"

using namespace PIVPLOT;

namespace {

const char* const kRoot = "/PlotSetup/";

// Walks the shared field lists into the settings store, one group per record.
struct SettingsFields {
    MySettings& s;
    MySettings::AccessMode mode;
    QString group;

    QString key(const char* name) const { return kRoot + group + "/" + name; }
    void field(const char* name, bool* v) { s.serializeBool(mode, key(name), v); }
    void field(const char* name, int32_t* v) { s.serializeInt(mode, key(name), v); }
    void field(const char* name, float* v) { s.serializeFloat(mode, key(name), v); }
    void field(const char* name, double* v) { s.serializeDouble(mode, key(name), v); }
    // Colours are stored as integers, as 0xAARRGGBB read as a signed number.
    void field(const char* name, uint32_t* v) {
        int32_t i = static_cast<int32_t>(*v);
        s.serializeInt(mode, key(name), &i);
        *v = static_cast<uint32_t>(i);
    }
    void text(const char* name, char* v, int size) {
        s.serializeCharString(mode, key(name), v, size);
    }
};

template <class Record>
void serializeGroup(MySettings& s, MySettings::AccessMode mode, const QString& group, Record* cfg,
                    void (*visit)(SettingsFields&, Record*)) {
    SettingsFields v{s, mode, group};
    visit(v, cfg);
}

QStringList names(const char* (*name)(int), int count) {
    QStringList list;
    for (int i = 0; i < count; ++i) list << QString::fromLatin1(name(i));
    return list;
}

}  // namespace

void PIVPlotSetupDlg::_serializeLUT(MySettings& s, MySettings::AccessMode mode,
                                    const QString& group, LUT_CFG* cfg) {
    serializeGroup(s, mode, group, cfg, &VisitLutFields<SettingsFields>);
}

void PIVPlotSetupDlg::_serializeOpacity(MySettings& s, MySettings::AccessMode mode,
                                        const QString& group, OPACITY_CFG* cfg) {
    serializeGroup(s, mode, group, cfg, &VisitOpacityFields<SettingsFields>);
}

void PIVPlotSetupDlg::_serializeAnnotation(MySettings& s, MySettings::AccessMode mode,
                                           const QString& group, ANNOTATION_CFG* cfg) {
    serializeGroup(s, mode, group, cfg, &VisitAnnotationFields<SettingsFields>);
}

void PIVPlotSetupDlg::_serializeAxis(MySettings& s, MySettings::AccessMode mode,
                                     const QString& group, AXIS_CFG* cfg) {
    serializeGroup(s, mode, group, cfg, &VisitAxisFields<SettingsFields>);
}

void PIVPlotSetupDlg::registryIO(MySettings& s, MySettings::AccessMode mode) {
    PLOT_CFG* c = &m_cfg;
    serializeGroup(s, mode, "Plot", c, &VisitPlotFields<SettingsFields>);
    _serializeAnnotation(s, mode, "Logo", &c->logo);
    _serializeAnnotation(s, mode, "Background", &c->background);
    _serializeAnnotation(s, mode, "Overlay", &c->overlay);
    _serializeAnnotation(s, mode, "Title", &c->title);
    _serializeAnnotation(s, mode, "SubTitle", &c->subTitle);
    serializeGroup(s, mode, "Image", &c->image, &VisitImageFields<SettingsFields>);
    _serializeLUT(s, mode, "ImageLUT", &c->image.lut);
    _serializeOpacity(s, mode, "ImageOpacity", &c->image.opacity);
    serializeGroup(s, mode, "Vector", &c->vector, &VisitVectorFields<SettingsFields>);
    _serializeLUT(s, mode, "VectorLUT", &c->vector.lut);
    serializeGroup(s, mode, "RefVector", &c->refVector, &VisitRefVectorFields<SettingsFields>);
    serializeGroup(s, mode, "Contour", &c->contour, &VisitContourFields<SettingsFields>);
    // Not a key of the plot file, so not in its list.
    s.serializeBool(mode, QString(kRoot) + "Contour/DataAreaOnly", &c->contour.DataAreaOnly);
    _serializeLUT(s, mode, "ContourLUT", &c->contour.lut);
    _serializeOpacity(s, mode, "ContourOpacity", &c->contour.opacity);
    _serializeAxis(s, mode, "XAxis", &c->xAxis);
    _serializeAxis(s, mode, "YAxis", &c->yAxis);
    serializeGroup(s, mode, "Colors", &c->colors, &VisitColorFields<SettingsFields>);
    if (mode == MySettings::READ) m_form.load(&m_cfg);
}

PIVPlotSetupDlg::PIVPlotSetupDlg(QWidget* parent) : QDialog(parent), m_cfg(DefaultPlotCfg()) {
    setWindowTitle(tr("Plot Setup"));
    auto* tabs = new QTabWidget;
    const PLOT_CFG& c = m_cfg;

    QFormLayout* page = addPage(tabs, tr("Image"));
    QFormLayout* g = addGroup(page, tr("Image display"));
    m_form.check(g, tr("Show image"), &c.image.Show);
    m_form.integer(g, tr("Palette length"), &c.image.PalLen, 1, 256);
    m_form.real(g, tr("Mask opacity"), &c.image.MaskOpacity);
    addLut(page, tr("Image colour bar"), &c.image.lut);
    addOpacity(page, tr("Image opacity"), &c.image.opacity);

    page = addPage(tabs, tr("Vectors"));
    g = addGroup(page, tr("Vectors"));
    const VECTOR_CFG& v = c.vector;
    m_form.check(g, tr("Show vectors"), &v.Show);
    m_form.choice(
        g, tr("Colour code"), &v.ColorCode,
        {ColorCodingName(CC_MAGNITUDE), ColorCodingName(CC_SNR), ColorCodingName(CC_CORRELATION),
         tr("Black"), tr("Grey"), tr("White"), tr("Green"), tr("Red"), tr("Blue"),
         ColorCodingName(CC_X_COMPONENT), ColorCodingName(CC_Y_COMPONENT),
         ColorCodingName(CC_Z_COMPONENT), ColorCodingName(CC_VECTOR_COUNT),
         ColorCodingName(CC_RESIDUALS), tr("Validation")});
    m_form.real(g, tr("Longest vector drawn [pixel]"), &v.MaxVector);
    m_form.real(g, tr("Colour range minimum"), &v.MinColor);
    m_form.real(g, tr("Colour range maximum"), &v.MaxColor);
    m_form.real(g, tr("Stretch"), &v.Stretch);
    m_form.integer(g, tr("Skip x"), &v.SkipX, 1, 1000);
    m_form.integer(g, tr("Skip y"), &v.SkipY, 1, 1000);
    m_form.choice(g, tr("Subtract"), &v.OffsetType,
                  {tr("Nothing"), tr("Mean vector"), tr("Nothing (2)"), tr("Offset below")});
    m_form.real(g, tr("Offset x"), &v.OffsetX);
    m_form.real(g, tr("Offset y"), &v.OffsetY);
    m_form.choice(g, tr("Outliers"), &v.OutlierDisplay,
                  {tr("Show"), tr("Mark outliers with X"), tr("Hide")});
    m_form.real(g, tr("Head width"), &v.HeadWidth);
    m_form.real(g, tr("Head length"), &v.HeadLength);
    m_form.check(g, tr("Fill arrow head"), &v.FillArrowHead);
    m_form.real(g, tr("Line width"), &v.LineWidth);
    m_form.check(g, tr("Anchor at the midpoint"), &v.MidPointAnchor);
    m_form.check(g, tr("Uniform head"), &v.UniformHead);
    m_form.real(g, tr("Uniform head size"), &v.UniformHeadSize);
    m_form.check(g, tr("Uniform vectors"), &v.UniformVectors);
    m_form.real(g, tr("Uniform vector length"), &v.UniformVectorLength);
    m_form.colour(g, tr("Uniform vector colour"), &v.UniformVectorColor);
    addLut(page, tr("Vector colour bar"), &v.lut);

    page = addPage(tabs, tr("Reference vector"));
    g = addGroup(page, tr("Reference vector"));
    const REFVECTOR_CFG& r = c.refVector;
    m_form.check(g, tr("Show reference vector"), &r.Show);
    m_form.integer(g, tr("Position x"), &r.PosX);
    m_form.integer(g, tr("Position y"), &r.PosY);
    m_form.real(g, tr("Shift [pixel]"), &r.PixelShift);
    m_form.real(g, tr("Velocity"), &r.Velocity);
    m_form.check(g, tr("Velocity in pixels"), &r.VelocityInPixels);
    m_form.real(g, tr("Physical shift"), &r.PhysShift);
    m_form.check(g, tr("Physical shift in pixels"), &r.PhysShiftInPixels);
    m_form.text(g, tr("Shift unit"), r.ShiftUnit, TextLength);
    m_form.text(g, tr("Velocity unit"), r.VelUnit, TextLength);
    m_form.choice(g, tr("Label"), &r.DisplayMode,
                  {tr("Shift in pixels"), tr("Velocity"), tr("Physical shift")});
    m_form.integer(g, tr("Font size"), &r.FontSize, 1, 200);
    m_form.colour(g, tr("Colour"), &r.Color);
    m_form.colour(g, tr("Background colour"), &r.ColorBkgd);
    m_form.check(g, tr("Frame"), &r.Frame);
    m_form.check(g, tr("Fill background"), &r.FillBkgd);

    page = addPage(tabs, tr("Contours"));
    g = addGroup(page, tr("Contours"));
    const CONTOUR_CFG& k = c.contour;
    m_form.check(g, tr("Show contours"), &k.Show);
    m_form.choice(g, tr("Quantity"), &k.Coding, names(&ColorCodingName, CC_COUNT));
    m_form.choice(g, tr("Units"), &k.ConvertMode, {tr("Pixels"), tr("Velocity"), tr("Shift")});
    m_form.check(g, tr("Fill background"), &k.FillBkgd);
    m_form.real(g, tr("Fill value"), &k.FillValue);
    m_form.check(g, tr("Only the area the nodes span"), &k.DataAreaOnly);
    addLut(page, tr("Contour colour bar"), &k.lut);
    addOpacity(page, tr("Contour opacity"), &k.opacity);

    page = addPage(tabs, tr("Axes"));
    addAxis(page, tr("X axis"), &c.xAxis);
    addAxis(page, tr("Y axis"), &c.yAxis);

    page = addPage(tabs, tr("Annotations"));
    g = addGroup(page, tr("Plot"));
    m_form.integer(g, tr("Stacking order"), &c.StackingOrder, 0, 16);
    m_form.integer(g, tr("Plot position x"), &c.PlotPosX);
    m_form.integer(g, tr("Plot position y"), &c.PlotPosY);
    m_form.check(g, tr("Show origin"), &c.ShowOrigin);
    m_form.text(g, tr("Font"), c.Font, TextLength);
    addAnnotation(page, tr("Title"), &c.title);
    addAnnotation(page, tr("Subtitle"), &c.subTitle);
    addAnnotation(page, tr("Logo"), &c.logo);
    addAnnotation(page, tr("Background image"), &c.background);
    addAnnotation(page, tr("Overlay image"), &c.overlay);

    page = addPage(tabs, tr("Colours"));
    g = addGroup(page, tr("Colours"));
    const COLOR_CFG& col = c.colors;
    m_form.colour(g, tr("Background"), &col.Bkgd);
    m_form.colour(g, tr("Valid vectors"), &col.Valid);
    m_form.colour(g, tr("Outliers"), &col.Outlier);
    m_form.colour(g, tr("Replaced vectors"), &col.Replaced);
    m_form.colour(g, tr("Interpolated vectors"), &col.Interpolated);
    m_form.colour(g, tr("Edited vectors"), &col.Edited);
    m_form.colour(g, tr("Mask"), &col.Mask);
    m_form.colour(g, tr("Text"), &col.Text);
    m_form.colour(g, tr("Data area"), &col.DataArea);

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Apply |
                                         QDialogButtonBox::Cancel);
    QPushButton* load = buttons->addButton(tr("Load..."), QDialogButtonBox::ActionRole);
    QPushButton* save = buttons->addButton(tr("Save..."), QDialogButtonBox::ActionRole);
    connect(buttons, &QDialogButtonBox::accepted, this, &PIVPlotSetupDlg::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &PIVPlotSetupDlg::reject);
    connect(buttons->button(QDialogButtonBox::Apply), &QPushButton::clicked, this,
            &PIVPlotSetupDlg::slotApply);
    connect(load, &QPushButton::clicked, this, &PIVPlotSetupDlg::slotLoadFile);
    connect(save, &QPushButton::clicked, this, &PIVPlotSetupDlg::slotSaveFile);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(tabs);
    layout->addWidget(buttons);
    m_form.load(&m_cfg);
    resize(680, 640);
}

QFormLayout* PIVPlotSetupDlg::addPage(QTabWidget* tabs, const QString& title) {
    auto* inner = new QWidget;
    auto* form = new QFormLayout(inner);
    auto* scroll = new QScrollArea;
    scroll->setWidget(inner);
    scroll->setWidgetResizable(true);
    tabs->addTab(scroll, title);
    return form;
}

QFormLayout* PIVPlotSetupDlg::addGroup(QFormLayout* page, const QString& title) {
    auto* box = new QGroupBox(title);
    auto* form = new QFormLayout(box);
    page->addRow(box);
    return form;
}

void PIVPlotSetupDlg::addLut(QFormLayout* page, const QString& title, const LUT_CFG* l) {
    QFormLayout* g = addGroup(page, title);
    m_form.check(g, tr("Show colour bar"), &l->Show);
    m_form.integer(g, tr("Palette length"), &l->PalLength, 1, 256);
    m_form.choice(g, tr("Lookup Table"), &l->Index, names(&BitmapLUTName, LUT_USER_DEFINED + 1));
    m_form.real(g, tr("Value minimum"), &l->ValueMin);
    m_form.real(g, tr("Value maximum"), &l->ValueMax);
    m_form.real(g, tr("Value increment"), &l->ValueIncr);
    m_form.check(g, tr("Discrete levels"), &l->UseDiscreteLevels);
    m_form.integer(g, tr("Levels"), &l->Levels, 1, 256);
    m_form.check(g, tr("Reversed"), &l->Reversed);
    m_form.check(g, tr("Wrap around"), &l->Wrap);
    m_form.integer(g, tr("Position x"), &l->PosX);
    m_form.integer(g, tr("Position y"), &l->PosY);
    m_form.choice(g, tr("Orientation"), &l->Orientation, {tr("Horizontal"), tr("Vertical")});
    m_form.check(g, tr("Frame"), &l->Frame);
    m_form.check(g, tr("Fill background"), &l->FillBkgd);
    m_form.colour(g, tr("Colour"), &l->Color);
    m_form.colour(g, tr("Background colour"), &l->ColorBkgd);
    m_form.integer(g, tr("Length"), &l->Length, 1, 10000);
    m_form.integer(g, tr("Width"), &l->Width, 1, 10000);
    m_form.real(g, tr("Line width"), &l->LineWidth);
    m_form.check(g, tr("Show title"), &l->ShowTitle);
    m_form.check(g, tr("Show labels"), &l->ShowLabels);
    m_form.integer(g, tr("Minor ticks"), &l->MinorTicks, 0, 100);
    m_form.check(g, tr("Show minor ticks"), &l->MinorTicksShow);
    m_form.check(g, tr("Label minor ticks"), &l->MinorTicksLabelShow);
    m_form.integer(g, tr("Minor tick labels skipped"), &l->MinorTicksLabelSkip, 0, 100);
}

void PIVPlotSetupDlg::addOpacity(QFormLayout* page, const QString& title, const OPACITY_CFG* o) {
    QFormLayout* g = addGroup(page, title);
    m_form.choice(g, tr("Mode"), &o->Mode,
                  {tr("None"), tr("Constant"), tr("Ramp"), tr("Double Ramp")});
    m_form.real(g, tr("Opacity"), &o->Opacity);
    m_form.colour(g, tr("Transparent colour"), &o->ColorTrans);
    m_form.check(g, tr("Make that colour transparent"), &o->ColorTransEnable);
}

void PIVPlotSetupDlg::addAnnotation(QFormLayout* page, const QString& title,
                                    const ANNOTATION_CFG* a) {
    QFormLayout* g = addGroup(page, title);
    m_form.check(g, tr("Show"), &a->Show);
    m_form.text(g, tr("Text or file"), a->Text, TextLength);
    m_form.integer(g, tr("Size"), &a->Size, 1, 1000);
    m_form.integer(g, tr("Position x"), &a->PosX);
    m_form.integer(g, tr("Position y"), &a->PosY);
}

void PIVPlotSetupDlg::addAxis(QFormLayout* page, const QString& title, const AXIS_CFG* a) {
    QFormLayout* g = addGroup(page, title);
    m_form.check(g, tr("Show axis"), &a->Show);
    m_form.check(g, tr("Physical units"), &a->UsePhysUnit);
    m_form.check(g, tr("Show title"), &a->ShowTitle);
    m_form.text(g, tr("Title"), a->Title, TextLength);
    m_form.text(g, tr("Title in physical units"), a->PhysTitle, TextLength);
    m_form.integer(g, tr("Title size"), &a->TitleSize, 1, 200);
    m_form.integer(g, tr("Label size"), &a->LabelSize, 1, 200);
    m_form.integer(g, tr("Labels skipped"), &a->Skip, 0, 100);
    m_form.integer(g, tr("Minor ticks"), &a->MinorTicks, 0, 100);
    m_form.integer(g, tr("Minor tick size"), &a->MinorTickSize, 0, 100);
    m_form.integer(g, tr("Major tick size"), &a->MajorTickSize, 0, 100);
    m_form.check(g, tr("Show labels"), &a->ShowLabels);
    m_form.real(g, tr("Anchor [pixel]"), &a->PixAnchor);
    m_form.real(g, tr("Increment [pixel]"), &a->PixIncr);
    m_form.real(g, tr("Anchor (physical)"), &a->PhysAnchor);
    m_form.real(g, tr("Increment (physical)"), &a->PhysIncr);
    m_form.real(g, tr("Line width"), &a->LineWidth);
    m_form.integer(g, tr("Transparency [%]"), &a->Transparency, 0, 100);
}

void PIVPlotSetupDlg::setRecord(const PLOT_CFG& cfg) {
    m_cfg = cfg;
    m_form.load(&m_cfg);
}

PLOT_CFG PIVPlotSetupDlg::controlsRecord() const {
    PLOT_CFG cfg = m_cfg;
    m_form.store(&cfg);
    return cfg;
}

void PIVPlotSetupDlg::slotApply() {
    const PLOT_CFG cfg = controlsRecord();
    if (PIV::SameRecord(cfg, m_cfg)) return;
    m_cfg = cfg;
    emit signalApply();
}

void PIVPlotSetupDlg::accept() {
    slotApply();
    QDialog::accept();
}

void PIVPlotSetupDlg::reject() {
    m_form.load(&m_cfg);
    QDialog::reject();
}

bool PIVPlotSetupDlg::loadPlotFile(const QString& fileName) {
    PLOT_CFG cfg = controlsRecord();
    if (!LoadPivPlotConfigurationASCII(QFile::encodeName(fileName).constData(), &cfg)) return false;
    m_form.load(&cfg);
    return true;
}

bool PIVPlotSetupDlg::savePlotFile(const QString& fileName) const {
    const PLOT_CFG cfg = controlsRecord();
    return SavePivPlotConfigurationASCII(QFile::encodeName(fileName).constData(), &cfg);
}

void PIVPlotSetupDlg::slotLoadFile() {
    const QString file =
        QFileDialog::getOpenFileName(this, tr("Open a plot configuration file"), QString(),
                                     tr("Plot files (*.cfg *.par *.txt);;All files (*)"));
    if (!file.isEmpty() && !loadPlotFile(file))
        QMessageBox::warning(this, windowTitle(),
                             tr("Failure loading plot configuration file!\n%1").arg(file));
}

void PIVPlotSetupDlg::slotSaveFile() {
    const QString file =
        QFileDialog::getSaveFileName(this, tr("Save the plot configuration"), QString(),
                                     tr("Plot files (*.cfg);;All files (*)"));
    if (!file.isEmpty() && !savePlotFile(file))
        QMessageBox::warning(this, windowTitle(),
                             tr("Failure saving plot configuration file!\n%1").arg(file));
}
