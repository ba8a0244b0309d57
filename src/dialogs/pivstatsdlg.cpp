#include "pivstatsdlg.h"

#include <QDialogButtonBox>
#include <QFontDatabase>
#include <QPlainTextEdit>
#include <QVBoxLayout>

PivStatsDlg::PivStatsDlg(QWidget* parent) : QDialog(parent) {
    setWindowTitle(tr("PIV Statistics"));
    m_text = new QPlainTextEdit;
    m_text->setReadOnly(true);
    m_text->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::hide);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(m_text);
    layout->addWidget(buttons);
    resize(560, 320);
}

void PivStatsDlg::setText(const QString& title, const QString& text) {
    setWindowTitle(tr("PIV Statistics: %1").arg(title));
    m_text->setPlainText(text);
}

QString PivStatsDlg::text() const {
    return m_text->toPlainText();
}
