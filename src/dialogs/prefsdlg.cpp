#include "prefsdlg.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QSpinBox>
#include <QTabWidget>
#include <QVBoxLayout>

#include "piv_record.h"

namespace {

const char* const kExtensions[11] = {"*.b16", "*.img", "*.ima", "*.imb", "*.bmp", "*.tif",
                                     "*.jpg", "*.png", "*.pbm", "*.pgm", "*.ppm"};
const char* const kDataExtensions[4] = {"*.piv", "*.nc", "*.cdf", "*.dat"};
// Keys and defaults of the image types, by PrefsImageType.
struct TypeKey {
    const char* key;
    const char* label;
    int32_t mask;
};
const TypeKey kTypes[IMAGE_TYPE_COUNT] = {
    {"/FileTypes/PIV-ImagePairs", "PIV image pairs", 5},
    {"/FileTypes/PCO-DoubleImages", "PCO double images", 1},
    {"/FileTypes/PIV-DoubleImages", "Double-exposed PIV images", 49},
    {"/FileTypes/ReferenceImages", "Reference images", 1},
    {"/FileTypes/DisplacedImages", "Displaced images", 1},
    {"/FileTypes/MaskImages", "Mask images", 49},
    {"/FileTypes/CalibrationImages", "Calibration images", 2097},
    {"/FileTypes/BackgroundImages", "Background images", 49},
};

}  // namespace

PREFS_CFG::PREFS_CFG() {
    PIV::ZeroRecord(*this);
    RecentImageCount = RecentFileCount = 4;
    ShowSplash = true;
    AlwaysSaveSettings = true;
    ToolButtonSize = 2;
    ToolButtonFontSize = DialogFontSize = 8;
    for (int t = 0; t < IMAGE_TYPE_COUNT; ++t) ImageTypeMask[t] = kTypes[t].mask;
    PivFileMask = 24576;
    OriginTopLeft = true;
    SamplingROI = 3;
    MaxThreads = 1;
}

void PrefsDlg::registryIO(MySettings& s, MySettings::AccessMode mode, PREFS_CFG& cfg) {
    s.serializeInt(mode, QStringLiteral("/Prefs/RecentImageCount"), &cfg.RecentImageCount);
    s.serializeInt(mode, QStringLiteral("/Prefs/RecentFileCount"), &cfg.RecentFileCount);
    s.serializeBool(mode, QStringLiteral("/Prefs/ShowSplash"), &cfg.ShowSplash);
    s.serializeBool(mode, QStringLiteral("/Prefs/CompressedTIFFOutput"), &cfg.CompressedTIFFOutput);
    s.serializeBool(mode, QStringLiteral("/Prefs/ShowExitPrompt"), &cfg.NoExitPrompt);
    s.serializeBool(mode, QStringLiteral("/Prefs/AlwaysSaveSettings"), &cfg.AlwaysSaveSettings);
    s.serializeInt(mode, QStringLiteral("/Prefs/ParFileFormat"), &cfg.ParFileFormat);
    s.serializeInt(mode, QStringLiteral("/Prefs/ToolButtonSize"), &cfg.ToolButtonSize);
    s.serializeBool(mode, QStringLiteral("/Prefs/ToolButtonText"), &cfg.ToolButtonText);
    s.serializeInt(mode, QStringLiteral("/Prefs/ToolButtonFontSize"), &cfg.ToolButtonFontSize);
    s.serializeInt(mode, QStringLiteral("/Prefs/DialogFontSize"), &cfg.DialogFontSize);
    for (int t = 0; t < IMAGE_TYPE_COUNT; ++t)
        s.serializeInt(mode, QLatin1String(kTypes[t].key), &cfg.ImageTypeMask[t]);
    s.serializeInt(mode, QStringLiteral("/FileTypes/PIV-Files"), &cfg.PivFileMask);
}

PrefsDlg::PrefsDlg(QWidget* parent) : QDialog(parent) {
    setWindowTitle(tr("Preferences"));
    auto* tabs = new QTabWidget;
    const auto page = [tabs](const QString& title) {
        auto* w = new QWidget;
        auto* form = new QFormLayout(w);
        tabs->addTab(w, title);
        return form;
    };
    const auto named = [](QWidget* w, const char* name) { w->setObjectName(name); };

    QFormLayout* general = page(tr("General"));
    named(m_form.integer(general, tr("Recent image files"), &m_cfg.RecentImageCount, 3, 10),
          "spinRecentImageFiles");
    named(m_form.integer(general, tr("Recent PIV files"), &m_cfg.RecentFileCount, 3, 10),
          "spinRecentPivFiles");
    named(m_form.check(general, tr("Show splash screen"), &m_cfg.ShowSplash),
          "chkShowSplashScreen");
    named(m_form.check(general, tr("Compressed TIFF output"), &m_cfg.CompressedTIFFOutput),
          "chkTIFFCompression");
    named(m_form.check(general, tr("No prompt on exit"), &m_cfg.NoExitPrompt),
          "chkDontPromptOnExit");
    named(m_form.check(general, tr("Always save settings"), &m_cfg.AlwaysSaveSettings),
          "chkAlwaysSaveSettings");
    named(m_form.choice(general, tr("Parameter file format"), &m_cfg.ParFileFormat,
                        {tr("Text file (ASC-II)"), tr("netCDF (binary)")}),
          "comboParameterFileFormat");
    named(m_form.choice(
              general, tr("Tool button size"), &m_cfg.ToolButtonSize,
              {tr("Tiny (8 pt)"), tr("Small (16 pt)"), tr("Medium (24 pt)"), tr("Large (32 pt)")}),
          "comboToolButtonSize");
    named(m_form.check(general, tr("Text under tool buttons"), &m_cfg.ToolButtonText),
          "chkToolButtonText");
    named(m_form.integer(general, tr("Tool button font size"), &m_cfg.ToolButtonFontSize, 5, 24),
          "spinFontSize");
    named(m_form.integer(general, tr("Dialog font size"), &m_cfg.DialogFontSize, 5, 24),
          "spinDialogFontSize");

    QFormLayout* session = page(tr("Evaluation"));
    m_form.check(session, tr("Auto-scale image intensity"), &m_cfg.AutoScale);
    m_form.check(session, tr("Relative paths in parameter files"), &m_cfg.RelativePaths);
    m_form.check(session, tr("Image origin at top left"), &m_cfg.OriginTopLeft);
    m_form.check(session, tr("Use SIMD instructions"), &m_cfg.SIMDEnable);
    m_form.choice(session, tr("Image interpolation"), &m_cfg.InterpolationMethod,
                  {tr("Shifted linear"), tr("Gaussian"), tr("B-spline"), tr("Bilinear"), tr("Sinc"),
                   tr("Polynomial")});
    m_form.choice(session, tr("Interpolation degree"), &m_cfg.InterpolationDegreeIndex,
                  {tr("1"), tr("3"), tr("5"), tr("7"), tr("9")});
    m_form.check(session, tr("Vector sampling with the mouse"), &m_cfg.VectorSampling);
    m_form.integer(session, tr("Vector sampling region"), &m_cfg.SamplingROI, 1, 15);
    m_threads = m_form.integer(session, tr("Threads"), &m_cfg.MaxThreads, 1, 1);

    auto* types = new QWidget;
    auto* typeLayout = new QVBoxLayout(types);
    m_imageTypes = new QComboBox;
    m_imageTypes->setObjectName(QStringLiteral("comboImageTypes"));
    for (const TypeKey& t : kTypes) m_imageTypes->addItem(tr(t.label));
    typeLayout->addWidget(m_imageTypes);
    auto* grid = new QGridLayout;
    for (int b = 0; b < 11; ++b) {
        m_extensions[b] = new QCheckBox(QLatin1String(kExtensions[b]));
        grid->addWidget(m_extensions[b], b / 4, b % 4);
    }
    typeLayout->addLayout(grid);
    auto* dataBox = new QGroupBox(tr("PIV data files"));
    auto* dataRow = new QHBoxLayout(dataBox);
    for (int b = 0; b < 4; ++b) {
        m_dataTypes[b] = new QCheckBox(QLatin1String(kDataExtensions[b]));
        dataRow->addWidget(m_dataTypes[b]);
    }
    m_dataTypes[0]->setObjectName(QStringLiteral("chkTypePIV"));
    typeLayout->addWidget(dataBox);
    typeLayout->addStretch();
    tabs->addTab(types, tr("File types"));
    // The boxes go into the type they showed before the next one is shown.
    connect(m_imageTypes, qOverload<int>(&QComboBox::currentIndexChanged), this, [this](int t) {
        storeTypeBoxes(m_cfg, m_shownType);
        loadTypeBoxes(t);
    });

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(tabs);
    layout->addWidget(buttons);
    setRecord(m_cfg);
}

void PrefsDlg::setMaxThreadsPossible(int count) {
    if (auto* spin = qobject_cast<QSpinBox*>(m_threads)) spin->setMaximum(count < 1 ? 1 : count);
    m_form.load(&m_cfg);
}

void PrefsDlg::storeTypeBoxes(PREFS_CFG& cfg, int type) const {
    int32_t mask = 0;
    for (int b = 0; b < 11; ++b)
        if (m_extensions[b]->isChecked()) mask |= 1 << b;
    cfg.ImageTypeMask[type] = mask;
}

void PrefsDlg::loadTypeBoxes(int type) {
    m_shownType = type;
    for (int b = 0; b < 11; ++b) m_extensions[b]->setChecked(m_cfg.ImageTypeMask[type] >> b & 1);
}

void PrefsDlg::setRecord(const PREFS_CFG& cfg) {
    m_cfg = cfg;
    m_form.load(&m_cfg);
    loadTypeBoxes(m_imageTypes->currentIndex());
    for (int b = 0; b < 4; ++b) m_dataTypes[b]->setChecked(cfg.PivFileMask >> (12 + b) & 1);
}

PREFS_CFG PrefsDlg::record() const {
    PREFS_CFG cfg = m_cfg;
    m_form.store(&cfg);
    storeTypeBoxes(cfg, m_shownType);
    cfg.PivFileMask &= ~(0xF << 12);
    for (int b = 0; b < 4; ++b)
        if (m_dataTypes[b]->isChecked()) cfg.PivFileMask |= 1 << (12 + b);
    return cfg;
}
