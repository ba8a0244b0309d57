// PivStatsDlg: the summary statistics of the field on view, as text.
#pragma once

#include <QDialog>

class QPlainTextEdit;

class PivStatsDlg : public QDialog {
    Q_OBJECT
public:
    explicit PivStatsDlg(QWidget* parent = nullptr);
    void setText(const QString& title, const QString& text);
    QString text() const;

private:
    QPlainTextEdit* m_text;
};
