#include "pivcalib2cdlg.h"

#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

PIVCalib2CDlg::PIVCalib2CDlg(QWidget* parent) : QDialog(parent) {
    setWindowTitle(tr("Calibration"));
    auto* rows = new QFormLayout;
    m_form.real(rows, tr("Ruler length"), &m_cfg.RulerLength);
    m_form.text(rows, tr("Unit"), m_cfg.Units, sizeof m_cfg.Units);
    m_scale = new QLabel;
    rows->addRow(tr("Magnification"), m_scale);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Apply | QDialogButtonBox::Close);
    connect(buttons->button(QDialogButtonBox::Apply), &QPushButton::clicked, this,
            &PIVCalib2CDlg::signalApply);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::hide);
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(rows);
    layout->addWidget(buttons);
    setRecord(m_cfg);
}

void PIVCalib2CDlg::setRecord(const CALIB2C_CFG& cfg) {
    m_cfg = cfg;
    m_form.load(&m_cfg);
}

CALIB2C_CFG PIVCalib2CDlg::record() const {
    CALIB2C_CFG cfg = m_cfg;
    m_form.store(&cfg);
    return cfg;
}

void PIVCalib2CDlg::setMagnification(double pixelsPerUnit, const QString& unit) {
    m_scale->setText(tr("%1 px/%2").arg(pixelsPerUnit, 0, 'g', 6).arg(unit));
}

QString PIVCalib2CDlg::magnificationText() const {
    return m_scale->text();
}
