#include "outputdlg.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QFileInfo>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

namespace {

// List entry i writes OUTPUT_CFG format kFormats[i].
constexpr int kFormats[] = {3, 2, 1, 0};
const char* const kExtensions[] = {".nc", ".plt", ".dat", ".dat"};

}  // namespace

int OutputDlg::formatOfIndex(int index) {
    return index >= 0 && index < 4 ? kFormats[index] : 3;
}

int OutputDlg::indexOfFormat(int format) {
    for (int i = 0; i < 4; ++i)
        if (kFormats[i] == format) return i;
    return 0;
}

OutputDlg::OutputDlg(QWidget* parent) : QDialog(parent) {
    setWindowTitle(tr("Save PIV data"));
    auto* form = new QFormLayout;
    auto* fileRow = new QHBoxLayout;
    m_file = new QLineEdit;
    m_file->setMinimumWidth(320);
    auto* browse = new QPushButton(tr("Browse..."));
    connect(browse, &QPushButton::clicked, this, &OutputDlg::slotBrowse);
    fileRow->addWidget(m_file);
    fileRow->addWidget(browse);
    form->addRow(tr("File"), fileRow);
    m_format = new QComboBox;
    m_format->addItems({tr("NetCDF (*.nc)"), tr("Tecplot binary (*.plt)"),
                        tr("Tecplot ASCII (*.dat)"), tr("ASCII text (*.dat)")});
    connect(m_format, qOverload<int>(&QComboBox::currentIndexChanged), this,
            &OutputDlg::slotFormatChanged);
    form->addRow(tr("Format"), m_format);
    m_post = new QCheckBox(tr("Save post-processed data"));
    form->addRow(m_post);

    m_form.text(form, tr("Title"), m_cfg.Title, sizeof(m_cfg.Title));
    m_form.text(form, tr("Comment"), m_cfg.Comment, sizeof(m_cfg.Comment));
    m_form.check(form, tr("Skip outliers"), &m_cfg.OutputSkipOutliers);
    m_form.check(form, tr("Store raw data"), &m_cfg.StoreRawData);
    m_form.check(form, tr("Store velocity"), &m_cfg.StoreVelocity);
    m_form.check(form, tr("Store all peaks"), &m_cfg.StoreAllPeaks);
    m_form.check(form, tr("Store magnitude"), &m_cfg.StoreMagnitude);
    m_form.check(form, tr("Store differentials"), &m_cfg.StoreDifferentials);
    m_form.check(form, tr("Store vorticity"), &m_cfg.StoreVorticity);
    m_form.check(form, tr("Store correlation coefficient"), &m_cfg.StoreCorrCoeff);
    m_form.check(form, tr("Store signal-to-noise ratio"), &m_cfg.StoreSNRData);

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Save | QDialogButtonBox::Cancel);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(form);
    layout->addWidget(buttons);
    setRecord(m_cfg);
}

void OutputDlg::setRecord(const OUTPUT_CFG& cfg) {
    m_cfg = cfg;
    m_form.load(&m_cfg);
    setFormatIndex(indexOfFormat(cfg.OutputFormat));
}

OUTPUT_CFG OutputDlg::record() const {
    OUTPUT_CFG cfg = m_cfg;
    m_form.store(&cfg);
    cfg.OutputFormat = formatOfIndex(formatIndex());
    return cfg;
}

void OutputDlg::setFileName(const QString& path) {
    m_file->setText(path);
}

QString OutputDlg::fileName() const {
    return m_file->text().trimmed();
}

int OutputDlg::formatIndex() const {
    return m_format->currentIndex();
}

void OutputDlg::setFormatIndex(int index) {
    m_format->setCurrentIndex(index);
}

bool OutputDlg::postProcessed() const {
    return m_post->isChecked();
}

void OutputDlg::setPostProcessed(bool on, bool available) {
    m_post->setChecked(on && available);
    m_post->setEnabled(available);
}

void OutputDlg::slotBrowse() {
    const QString file =
        QFileDialog::getSaveFileName(this, windowTitle(), fileName(), m_format->currentText(),
                                     nullptr, QFileDialog::DontConfirmOverwrite);
    if (!file.isEmpty()) m_file->setText(file);
}

// A name proposed with the old format's extension takes the new one.
void OutputDlg::slotFormatChanged(int index) {
    const QString name = fileName();
    if (name.isEmpty() || index < 0 || index > 3) return;
    const QFileInfo info(name);
    const QString suffix = QStringLiteral(".") + info.suffix();
    for (const char* known : kExtensions)
        if (suffix == QLatin1String(known)) {
            m_file->setText(name.left(name.size() - suffix.size()) +
                            QLatin1String(kExtensions[index]));
            return;
        }
}
