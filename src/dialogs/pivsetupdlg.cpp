#include "pivsetupdlg.h"

#include <QCheckBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QTabWidget>
#include <QVBoxLayout>

#include "dialogpages.h"

using DialogPages::addGroup;
using DialogPages::addPage;
using DialogPages::addTriple;

PIVSETUP_CFG::PIVSETUP_CFG() {
    PIV::ZeroRecord(*this);
    eval = PIVEVAL_CFG();
    outlier[0] = outlier[1] = OUTLIER_CFG();
    convert = PIVCONVERT_CFG();
    differentiate = DIFFERENTIATE_CFG();
}

namespace {

void addDeformation(RecordForm& f, QFormLayout* g, const IMAGEDEF_CFG& d) {
    f.choice(g, QObject::tr("Mode"), &d.Mode,
             {QObject::tr("Disabled"), QObject::tr("Final pass"), QObject::tr("All passes")});
    f.choice(g, QObject::tr("Interpolation"), &d.Method,
             {QObject::tr("Shifted linear"), QObject::tr("Gaussian"), QObject::tr("B-spline"),
              QObject::tr("Bilinear"), QObject::tr("Sinc"), QObject::tr("Polynomial")});
    f.integer(g, QObject::tr("Order"), &d.Order);
    f.integer(g, QObject::tr("Passes"), &d.Passes);
    f.real(g, QObject::tr("Least deviation [px]"), &d.MinDeviation);
    f.text(g, QObject::tr("File prefix"), d.FilePrefix, sizeof d.FilePrefix);
    f.check(g, QObject::tr("Store final images"), &d.StoreFinal);
    f.check(g, QObject::tr("Store all images"), &d.StoreAll);
}

QWidget* addOutliers(RecordForm& f, QFormLayout* page, const OUTLIER_CFG& o) {
    QFormLayout* g = addGroup(page, QObject::tr("Validation"));
    f.check(g, QObject::tr("Enable validation"), &o.Enable);
    f.integer(g, QObject::tr("Passes"), &o.NumberOfPasses);
    QWidget* tryOther = f.check(g, QObject::tr("Try other peaks"), &o.TryOtherPeaks);
    f.check(g, QObject::tr("Interpolate outliers"), &o.InterpolateOutliers);
    g = addGroup(page, QObject::tr("Tests and thresholds"));
    const struct {
        const bool* on;
        const float* value;
        const char* label;
    } tests[] = {
        {&o.CheckDisplacement, &o.MaxDisplacement, "Maximum displacement [px]"},
        {&o.CheckDifference, &o.MaxDifference, "Maximum difference to neighbours [px]"},
        {&o.CheckMedian, &o.MedianThreshold, "Median test threshold [px]"},
        {&o.CheckNormalizedMedian, &o.NormalizedMedianThreshold, "Normalized median threshold"},
        {&o.CheckDynMean, &o.DynMeanC1, "Dynamic mean C1"},
        {&o.CheckCorrelation, &o.MinCorrelation, "Minimum correlation"},
        {&o.CheckSNR, &o.MinSNR, "Minimum signal-to-noise ratio"},
        {&o.CheckPeakRatio, &o.MinPeakRatio, "Minimum peak ratio"},
        {&o.CheckResiduals, &o.MaxResiduals, "Maximum residuals [px]"},
        {&o.CheckZScore, &o.ZScoreThreshold, "Z-score threshold"},
        {&o.CheckChauvenet, &o.ChauvenetThreshold, "Chauvenet threshold"},
    };
    for (const auto& t : tests) {
        f.check(g, QObject::tr("Test: %1").arg(QObject::tr(t.label)), t.on);
        f.real(g, QObject::tr(t.label), t.value);
    }
    f.real(g, QObject::tr("Normalized median noise floor [px]"), &o.NormalizedMedianNoiseFloor);
    f.real(g, QObject::tr("Dynamic mean C2"), &o.DynMeanC2);
    g = addGroup(page, QObject::tr("Global histogram"));
    f.check(g, QObject::tr("Test: global histogram"), &o.CheckGlobalHist);
    for (int i = 0; i < PIV::MaxGlobalHistROI(); ++i) {
        const GLOBALHIST_ROI& r = o.GlobalHist[i];
        const QString n = QObject::tr("Region %1").arg(i + 1);
        f.real(g, n + QObject::tr(" x min"), &r.xMin);
        f.real(g, n + QObject::tr(" x max"), &r.xMax);
        f.real(g, n + QObject::tr(" y min"), &r.yMin);
        f.real(g, n + QObject::tr(" y max"), &r.yMax);
        f.check(g, n + QObject::tr(" type 1"), &r.type1);
        f.check(g, n + QObject::tr(" type 2"), &r.type2);
    }
    return tryOther;
}

}  // namespace

PivSetupDlg::PivSetupDlg(QWidget* parent) : QDialog(parent) {
    setWindowTitle(tr("PIV parameters"));
    auto* tabs = new QTabWidget;
    const PIVSETUP_CFG& c = m_cfg;
    const PIVEVAL_CFG& e = c.eval;
    RecordForm& f = m_form;

    QFormLayout* page = addPage(tabs, tr("Evaluation"));
    m_evalPages[0] = page->parentWidget();
    QFormLayout* g = addGroup(page, tr("Interrogation"));
    f.choice(g, tr("Method"), &e.Method, {tr("Single pass"), tr("Multi-pass"), tr("Multi-grid")});
    f.choice(g, tr("Correlation"), &e.CorrelationMode,
             {tr("FFT cross-correlation"), tr("Phase-only correlation"),
              tr("Minimum quadratic difference"), tr("Direct cross-correlation"),
              tr("Error correlation function")});
    addTriple(f, g, tr("Window size"), &e.SampleSize.width);
    addTriple(f, g, tr("FFT size"), &e.FFTSize.width);
    addTriple(f, g, tr("Scan range"), &e.ScanRange.width);
    addTriple(f, g, tr("Window offset"), &e.SampleOffset.x);
    f.integer(g, tr("Passes"), &e.Passes);
    f.integer(g, tr("Speed optimization"), &e.SpeedOptimization);
    f.choice(g, tr("Correlation window"), &e.CorrFilter_WindowType,
             {tr("None"), tr("Tukey"), tr("Blackman"), tr("Hann"), tr("Hamming"), tr("Cosine"),
              tr("Gaussian"), tr("LFC 1"), tr("LFC 2"), tr("LFC 3")});
    f.check(g, tr("Nyquist filter"), &e.CorrFilter_Nyquist);
    f.check(g, tr("Show intermediate results"), &e.ShowIntermediate);

    g = addGroup(page, tr("Grid"));
    const DATA_GRID4D& grid = e.grid;
    addTriple(f, g, tr("Nodes"), &grid.nodes.width);
    f.integer(g, tr("Time steps"), &grid.timeSteps);
    addTriple(f, g, tr("Grid step"), &grid.step.width);
    addTriple(f, g, tr("Image size"), &grid.imageSize.width);
    addTriple(f, g, tr("Margin"), &grid.margin.width);
    addTriple(f, g, tr("First node"), &grid.first.x);
    addTriple(f, g, tr("Anchor"), &grid.anchor.x);
    f.check(g, tr("Region of interest"), &grid.roiEnabled);
    f.integer(g, tr("ROI left"), &grid.roi.left);
    f.integer(g, tr("ROI right"), &grid.roi.right);
    f.integer(g, tr("ROI top"), &grid.roi.top);
    f.integer(g, tr("ROI bottom"), &grid.roi.bottom);
    f.integer(g, tr("ROI front"), &grid.roi.front);
    f.integer(g, tr("ROI back"), &grid.roi.back);
    f.integer(g, tr("Alignment"), &grid.align);

    page = addPage(tabs, tr("Peak detection"));
    m_evalPages[1] = page->parentWidget();
    g = addGroup(page, tr("Peak fit"));
    f.choice(g, tr("Fit"), &e.Type,
             {tr("Three-point Gaussian"), tr("3x3 Gaussian"), tr("Parabolic"), tr("Centroid"),
              tr("Whittaker"), tr("Non-linear Gaussian"), tr("Blob fit"), tr("Rectangle fit")});
    f.integer(g, tr("Fit size"), &e.Size);
    f.real(g, tr("Cut-off"), &e.CutOff);
    f.integer(g, tr("Iterations"), &e.MaxIter);
    f.check(g, tr("Eliminate self-correlation"), &e.SelfCorrelation_Eliminate);
    f.real(g, tr("Self-correlation radius [px]"), &e.SelfCorrelation_Radius);
    f.check(g, tr("Peak search region"), &e.ROI);
    addTriple(f, g, tr("Search region"), &e.ROI_Size.width);
    f.check(g, tr("Final-pass search region"), &e.FinalROI);
    addTriple(f, g, tr("Final search region"), &e.FinalROI_Size.width);
    g = addGroup(page, tr("Multiple correlation"));
    f.check(g, tr("Correlate several windows"), &e.MultiCorr);
    f.check(g, tr("Windows on the grid"), &e.MultiCorrUseGrid);
    f.check(g, tr("Average the planes"), &e.MultiCorr_Average);
    f.integer(g, tr("Window count"), &e.MultiCorr_Count);
    addTriple(f, g, tr("Window spacing"), &e.MultiCorr_Offset.x, 2);
    g = addGroup(page, tr("Multi-grid"));
    addTriple(f, g, tr("Start window"), &e.MultiGrid_SampleSize.width);
    addTriple(f, g, tr("Start step"), &e.MultiGrid_SampleStep.width);
    f.integer(g, tr("Desampling"), &e.MultiGrid_Desample);
    f.integer(g, tr("Final scans"), &e.MultiGrid_FinalScans);
    f.check(g, tr("Desample images"), &e.DesampleEnable);
    f.check(g, tr("Fast pyramid"), &e.MultiGrid_FastPyramid);
    f.check(g, tr("Re-evaluate bad data"), &e.MultiGrid_ReevaluateBaddata);
    f.check(g, tr("Central difference on final pass"), &e.MultiGrid_DCConFinalPass);
    addDeformation(f, addGroup(page, tr("Image deformation")), e.ImageMapping2D);
    addDeformation(f, addGroup(page, tr("Volume deformation")), e.VolumeDeform);

    for (int view = 0; view < 2; ++view) {
        page = addPage(tabs, view == 0 ? tr("Validation A") : tr("Validation B"));
        m_tryOtherPeaks[view] = addOutliers(f, page, c.outlier[view]);
    }

    page = addPage(tabs, tr("Conversion"));
    const PIVCONVERT_CFG& v = c.convert;
    g = addGroup(page, tr("Time"));
    f.real(g, tr("Pulse delay"), &v.PulseDelay);
    f.text(g, tr("Pulse delay unit"), v.PulseDelayUnits, sizeof v.PulseDelayUnits);
    g = addGroup(page, tr("Length"));
    f.real(g, tr("Magnification X [px/unit]"), &v.LengthConversion[0]);
    f.real(g, tr("Magnification Y [px/unit]"), &v.LengthConversion[1]);
    f.real(g, tr("Magnification Z [px/unit]"), &v.LengthConversion[2]);
    f.text(g, tr("Length unit"), v.LengthConversionUnits, sizeof v.LengthConversionUnits);
    f.text(g, tr("Displacement unit"), v.DisplacementUnits, sizeof v.DisplacementUnits);
    f.text(g, tr("Velocity unit"), v.VelocityUnits, sizeof v.VelocityUnits);
    f.real(g, tr("Velocity factor"), &v.velocityFactor);
    f.real(g, tr("Displacement factor"), &v.displacementFactor);
    g = addGroup(page, tr("Origin"));
    addTriple(f, g, tr("Image origin [px]"), &v.ImageOrigin.x);
    f.real(g, tr("Physical origin X"), &v.PhysicalOrigin.x);
    f.real(g, tr("Physical origin Y"), &v.PhysicalOrigin.y);
    f.real(g, tr("Physical origin Z"), &v.PhysicalOrigin.z);
    g = addGroup(page, tr("Differentiation"));
    f.check(g, tr("Spacing from the grid"), &c.differentiate.CalculateSpacing);
    addTriple(f, g, tr("Spacing"), &c.differentiate.Spacing.width);

    m_multiplePeaks = new QCheckBox(tr("The data hold several correlation peaks"));
    m_multiplePeaks->setEnabled(false);
    m_multiplePeaks->hide();
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(tabs);
    layout->addWidget(m_multiplePeaks);
    layout->addWidget(buttons);
    resize(760, 640);
    setRecord(m_cfg);
}

void PivSetupDlg::setRecord(const PIVSETUP_CFG& cfg) {
    m_cfg = cfg;
    m_form.load(&m_cfg);
}

PIVSETUP_CFG PivSetupDlg::record() const {
    PIVSETUP_CFG cfg = m_cfg;
    m_form.store(&cfg);
    return cfg;
}

void PivSetupDlg::setFileOnly(bool on, bool multiplePeaks) {
    m_fileOnly = on;
    for (QWidget* page : m_evalPages) page->setEnabled(!on);
    for (QWidget* box : m_tryOtherPeaks) box->setEnabled(!on || multiplePeaks);
    m_multiplePeaks->setChecked(multiplePeaks);
    m_multiplePeaks->setVisible(on);
}
