#include "loadpairdlg.h"

#include <QDialogButtonBox>
#include <QFileDialog>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

#include "piv_record.h"

IMAGEPAIR_FILES::IMAGEPAIR_FILES() {
    PIV::ZeroRecord(*this);
}

LoadPairDlg::LoadPairDlg(QWidget* parent) : QDialog(parent) {
    setWindowTitle(tr("Load image pair"));
    auto* form = new QFormLayout;
    const auto row = [&](const QString& label, const QString& title) {
        auto* edit = new QLineEdit;
        edit->setMinimumWidth(320);
        auto* button = new QPushButton(tr("Browse..."));
        connect(button, &QPushButton::clicked, this, [this, edit, title] { browse(edit, title); });
        auto* line = new QHBoxLayout;
        line->addWidget(edit);
        line->addWidget(button);
        form->addRow(label, line);
        return edit;
    };
    m_fileA = row(tr("First image"), tr("Select first image"));
    m_fileB = row(tr("Second image"), tr("Select second image"));
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Cancel);
    QPushButton* load = buttons->addButton(tr("Load"), QDialogButtonBox::AcceptRole);
    connect(load, &QPushButton::clicked, this, [this] {
        if (m_fileA->text().trimmed().isEmpty() || m_fileB->text().trimmed().isEmpty()) return;
        hide();
        emit signalLoadPair();
    });
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::hide);
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(form);
    layout->addWidget(buttons);
}

void LoadPairDlg::setRecord(const IMAGEPAIR_FILES& files) {
    m_fileA->setText(QString::fromLocal8Bit(files.FileA));
    m_fileB->setText(QString::fromLocal8Bit(files.FileB));
}

IMAGEPAIR_FILES LoadPairDlg::record() const {
    IMAGEPAIR_FILES files;
    PIV::CopyText(files.FileA, m_fileA->text().trimmed().toLocal8Bit().constData());
    PIV::CopyText(files.FileB, m_fileB->text().trimmed().toLocal8Bit().constData());
    return files;
}

void LoadPairDlg::browse(QLineEdit* edit, const QString& title) {
    const QString file = QFileDialog::getOpenFileName(this, title, edit->text(), m_filters);
    if (!file.isEmpty()) edit->setText(file);
}
