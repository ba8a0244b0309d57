#include "dialogpages.h"

#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QScrollArea>
#include <QTabWidget>
#include <QVBoxLayout>

namespace DialogPages {

QFormLayout* addPage(QTabWidget* tabs, const QString& title) {
    auto* area = new QScrollArea;
    auto* inner = new QWidget;
    auto* rows = new QFormLayout(inner);
    area->setWidget(inner);
    area->setWidgetResizable(true);
    tabs->addTab(area, title);
    return rows;
}

QFormLayout* addGroup(QFormLayout* page, const QString& title) {
    auto* box = new QGroupBox(title);
    auto* rows = new QFormLayout(box);
    page->addRow(box);
    return rows;
}

void addTriple(RecordForm& form, QFormLayout* rows, const QString& label, const int32_t* first,
               int count, int minimum) {
    static const char* const kAxes[] = {"X", "Y", "Z"};
    auto* line = new QWidget;
    auto* across = new QHBoxLayout(line);
    across->setContentsMargins(0, 0, 0, 0);
    for (int i = 0; i < count; ++i) {
        auto* axis = new QFormLayout;
        across->addLayout(axis);
        QWidget* spin = form.integer(axis, QLatin1String(kAxes[i]), first + i, minimum);
        spin->setObjectName(QStringLiteral("%1 %2").arg(label, QLatin1String(kAxes[i])));
    }
    rows->addRow(label, line);
}

}  // namespace DialogPages

#include <QDialog>
#include <QDialogButtonBox>

#include "piv_types.h"

namespace DialogPages {

void addTransformation(RecordForm& f, QFormLayout* g, const IMAGE_TRANSFORMATION_CFG& t) {
    f.check(g, QObject::tr("Transform"), &t.Enable);
    f.real(g, QObject::tr("Translate X"), &t.TranslateX);
    f.real(g, QObject::tr("Translate Y"), &t.TranslateY);
    f.real(g, QObject::tr("Stretch X"), &t.StretchX);
    f.real(g, QObject::tr("Stretch Y"), &t.StretchY);
    f.real(g, QObject::tr("Skew X"), &t.SkewX);
    f.real(g, QObject::tr("Skew Y"), &t.SkewY);
    f.real(g, QObject::tr("Rotate [deg]"), &t.Rotate);
    f.real(g, QObject::tr("Origin X"), &t.OriginX);
    f.real(g, QObject::tr("Origin Y"), &t.OriginY);
    f.check(g, QObject::tr("Second image only"), &t.SecondImageOnly);
}

void addImageFilters(RecordForm& f, QFormLayout* rows, const IMAGE_FILTER_CFG& p) {
    f.check(rows, QObject::tr("Work in floating point"), &p.UseFloat);
    f.check(rows, QObject::tr("Invert"), &p.Invert);
    f.check(rows, QObject::tr("Median"), &p.Median);
    f.integer(rows, QObject::tr("Median size"), &p.MedianSize);
    f.check(rows, QObject::tr("Histogram equalisation"), &p.HistEqual);
    f.real(rows, QObject::tr("Histogram minimum"), &p.HistMin);
    f.real(rows, QObject::tr("Histogram maximum"), &p.HistMax);
    f.check(rows, QObject::tr("Min/max normalisation"), &p.MinMax);
    f.integer(rows, QObject::tr("Min/max kernel"), &p.MinMaxKernel);
    f.check(rows, QObject::tr("High-pass"), &p.Highpass);
    f.check(rows, QObject::tr("High-pass Gaussian"), &p.HighpassUseGauss);
    f.check(rows, QObject::tr("Clip negative"), &p.HighpassClipNegative);
    f.real(rows, QObject::tr("High-pass cut-off"), &p.HighpassCutOff);
    f.check(rows, QObject::tr("Threshold"), &p.Threshold);
    f.real(rows, QObject::tr("Threshold level"), &p.ThresholdLevel);
    f.check(rows, QObject::tr("Binarize"), &p.ThresholdBinarize);
    f.check(rows, QObject::tr("Low-pass"), &p.Lowpass);
    f.check(rows, QObject::tr("Low-pass Gaussian"), &p.LowpassUseGauss);
    f.check(rows, QObject::tr("Centred Gaussian"), &p.CenteredGauss);
    f.real(rows, QObject::tr("Low-pass cut-off"), &p.LowpassCutOff);
}

void finishDialog(QDialog* dialog, QWidget* content) {
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel);
    QObject::connect(buttons, &QDialogButtonBox::accepted, dialog, &QDialog::accept);
    QObject::connect(buttons, &QDialogButtonBox::rejected, dialog, &QDialog::reject);
    auto* layout = new QVBoxLayout(dialog);
    layout->addWidget(content);
    layout->addWidget(buttons);
}

}  // namespace DialogPages
