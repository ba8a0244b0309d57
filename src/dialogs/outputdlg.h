// OutputDlg: what "Save" writes: the file, its format, the raw or the
// post-processed field, and the quantities of the output record.
#pragma once

#include <QDialog>

#include "piv_types.h"
#include "recordform.h"

class QCheckBox;
class QComboBox;
class QLineEdit;

class OutputDlg : public QDialog {
    Q_OBJECT
public:
    explicit OutputDlg(QWidget* parent = nullptr);

    // The record fills the check boxes and the format; record() reads them.
    void setRecord(const OUTPUT_CFG& cfg);
    OUTPUT_CFG record() const;

    void setFileName(const QString& path);
    QString fileName() const;
    // The entry of the format list: 0 NetCDF, 1 Tecplot binary, 2 Tecplot
    // text, 3 plain text.
    int formatIndex() const;
    void setFormatIndex(int index);
    bool postProcessed() const;
    void setPostProcessed(bool on, bool available);

    // The OUTPUT_CFG format of a list entry, and back.
    static int formatOfIndex(int index);
    static int indexOfFormat(int format);

private slots:
    void slotBrowse();
    void slotFormatChanged(int index);

private:
    OUTPUT_CFG m_cfg;
    RecordForm m_form{&m_cfg};
    QLineEdit* m_file;
    QComboBox* m_format;
    QCheckBox* m_post;
};
