// PTVoutputDlg: where "Save PTV data" writes the tracks as a text table.
#pragma once

#include <QDialog>

#include "piv_record.h"
#include "recordform.h"

class QLineEdit;

struct PTVOUTPUT_CFG {
    char File[2048];

    PTVOUTPUT_CFG() { PIV::ZeroRecord(*this); }
};

class PTVoutputDlg : public QDialog {
    Q_OBJECT
public:
    explicit PTVoutputDlg(QWidget* parent = nullptr);

    void setRecord(const PTVOUTPUT_CFG& cfg);
    PTVOUTPUT_CFG record() const;
    void setFileName(const QString& path);
    QString fileName() const;

private slots:
    void slotBrowse();

private:
    PTVOUTPUT_CFG m_cfg;
    RecordForm m_form{&m_cfg};
    QLineEdit* m_file;
};
