#include "imagepreprocessdlg.h"

#include <QFileInfo>
#include <QFormLayout>
#include <QPushButton>
#include <QTabWidget>

#include "dialogpages.h"

using namespace DialogPages;

IMAGEPROC_CFG::IMAGEPROC_CFG() {
    PIV::ZeroRecord(*this);
    view[0] = view[1] = IMAGE_CFG();
}

namespace {

void addImagePages(RecordForm& f, QTabWidget* tabs, const IMAGE_CFG& c, const QString& name) {
    const int size = sizeof c.Mask;
    QFormLayout* page = addPage(tabs, QObject::tr("View %1").arg(name));
    QFormLayout* g = addGroup(page, QObject::tr("Frames"));
    f.check(g, QObject::tr("Split double frames"), &c.SplitPCO);
    f.integer(g, QObject::tr("Split mode"), &c.SplitMode);
    f.integer(g, QObject::tr("Z direction"), &c.ZDirection);
    f.choice(g, QObject::tr("Interpolation"), &c.InterpolationMethod,
             {QObject::tr("Shifted linear"), QObject::tr("Gaussian"), QObject::tr("B-spline"),
              QObject::tr("Bilinear"), QObject::tr("Sinc"), QObject::tr("Polynomial")});
    f.integer(g, QObject::tr("Interpolation degree"), &c.InterpolationDegree);
    f.integer(g, QObject::tr("Rotation"), &c.Rotation);
    f.integer(g, QObject::tr("Flip"), &c.Flip);
    f.check(g, QObject::tr("Crop"), &c.Crop);
    f.integer(g, QObject::tr("Crop left"), &c.CropRect.left);
    f.integer(g, QObject::tr("Crop right"), &c.CropRect.right);
    f.integer(g, QObject::tr("Crop top"), &c.CropRect.top);
    f.integer(g, QObject::tr("Crop bottom"), &c.CropRect.bottom);
    f.integer(g, QObject::tr("Crop front"), &c.CropRect.front);
    f.integer(g, QObject::tr("Crop back"), &c.CropRect.back);
    g = addGroup(page, QObject::tr("Background and mask"));
    f.check(g, QObject::tr("Subtract background"), &c.BkgdSubtract);
    f.text(g, QObject::tr("Background image"), c.Bkgd, size);
    f.check(g, QObject::tr("Subtract second background"), &c.Bkgd2Subtract);
    f.text(g, QObject::tr("Second background image"), c.Bkgd2, size);
    f.integer(g, QObject::tr("Subtraction method"), &c.BkgdSubtractMethod);
    f.real(g, QObject::tr("Background scale"), &c.BkgdSubtractScaleFactor);
    f.check(g, QObject::tr("Apply mask"), &c.MaskEnable);
    f.text(g, QObject::tr("Mask image"), c.Mask, size);
    f.check(g, QObject::tr("Apply second mask"), &c.Mask2Enable);
    f.text(g, QObject::tr("Second mask image"), c.Mask2, size);
    f.check(g, QObject::tr("Invert mask"), &c.MaskInvert);
    f.check(g, QObject::tr("Randomize masked pixels"), &c.MaskRandomize);
    g = addGroup(page, QObject::tr("Dewarping"));
    f.check(g, QObject::tr("Dewarp"), &c.Dewarp);
    f.check(g, QObject::tr("Calibrate"), &c.DewarpCalibrate);
    f.integer(g, QObject::tr("Camera view"), &c.DewarpView);
    f.text(g, QObject::tr("Mapping file"), c.DewarpFile, size);

    page = addPage(tabs, QObject::tr("Filters %1").arg(name));
    addImageFilters(f, addGroup(page, QObject::tr("Filters")), c.filters);
    addTransformation(f, addGroup(page, QObject::tr("Transformation")), c.transformation);
}

}  // namespace

ImagePreProcessDlg::ImagePreProcessDlg(QWidget* parent) : QDialog(parent) {
    setWindowTitle(tr("Image pre-processing"));
    auto* tabs = new QTabWidget;
    addImagePages(m_form, tabs, m_cfg.view[0], QStringLiteral("A"));
    addImagePages(m_form, tabs, m_cfg.view[1], QStringLiteral("B"));
    auto* reference = new QPushButton(tr("Set reference image"));
    connect(reference, &QPushButton::clicked, this,
            &ImagePreProcessDlg::signalChooseReferenceImage);
    tabs->setCornerWidget(reference);
    finishDialog(this, tabs);
    resize(700, 600);
    setRecord(m_cfg);
}

void ImagePreProcessDlg::setRecord(const IMAGEPROC_CFG& cfg) {
    m_cfg = cfg;
    m_form.load(&m_cfg);
}

IMAGEPROC_CFG ImagePreProcessDlg::record() const {
    IMAGEPROC_CFG cfg = m_cfg;
    m_form.store(&cfg);
    return cfg;
}

void ImagePreProcessDlg::setImageCfg(const IMAGE_CFG& cfg, int view) {
    IMAGEPROC_CFG all = record();
    all.view[view > 0 ? 1 : 0] = cfg;
    setRecord(all);
}

QString ImagePreProcessDlg::missingFile(const IMAGE_CFG& c) {
    const struct {
        bool on;
        const char* file;
    } files[] = {{c.BkgdSubtract, c.Bkgd},
                 {c.Bkgd2Subtract, c.Bkgd2},
                 {c.MaskEnable, c.Mask},
                 {c.Mask2Enable, c.Mask2},
                 {c.Dewarp, c.DewarpFile}};
    for (const auto& f : files) {
        const QString name = QString::fromLocal8Bit(f.file, int(qstrnlen(f.file, sizeof c.Mask)));
        const QFileInfo info(name);
        if (f.on && !name.isEmpty() && !(info.isFile() && info.isReadable())) return name;
    }
    return QString();
}
