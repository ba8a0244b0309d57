#include "ptvoutputdlg.h"

#include <QFileDialog>
#include <QFormLayout>
#include <QLineEdit>
#include <QPushButton>

#include "dialogpages.h"

PTVoutputDlg::PTVoutputDlg(QWidget* parent) : QDialog(parent) {
    setWindowTitle(tr("Save PTV data"));
    auto* content = new QWidget;
    auto* rows = new QFormLayout(content);
    m_file =
        static_cast<QLineEdit*>(m_form.text(rows, tr("File"), m_cfg.File, int(sizeof m_cfg.File)));
    auto* browse = new QPushButton(tr("Browse..."));
    connect(browse, &QPushButton::clicked, this, &PTVoutputDlg::slotBrowse);
    rows->addRow(QString(), browse);
    DialogPages::finishDialog(this, content);
    setRecord(m_cfg);
}

void PTVoutputDlg::setRecord(const PTVOUTPUT_CFG& cfg) {
    m_cfg = cfg;
    m_form.load(&m_cfg);
}

PTVOUTPUT_CFG PTVoutputDlg::record() const {
    PTVOUTPUT_CFG cfg = m_cfg;
    m_form.store(&cfg);
    return cfg;
}

void PTVoutputDlg::setFileName(const QString& path) {
    m_file->setText(path);
}

QString PTVoutputDlg::fileName() const {
    return m_file->text();
}

void PTVoutputDlg::slotBrowse() {
    const QString file =
        QFileDialog::getSaveFileName(this, tr("Save PTV data"), fileName(), tr("Text (*.txt)"));
    if (!file.isEmpty()) setFileName(file);
}
