// PIVPostProcessDlg: the chain that turns the raw field into the shown
// result: combination with another field, transformation, smoothing, median
// filter, filling of disabled vectors and a mask.
#pragma once

#include <QDialog>

#include "piv_types.h"
#include "recordform.h"

class PIVPostProcessDlg : public QDialog {
    Q_OBJECT
public:
    explicit PIVPostProcessDlg(QWidget* parent = nullptr);

    void setRecord(const POSTPROCESS_CFG& cfg);
    // The record as the controls hold it.
    POSTPROCESS_CFG record() const;
    const RecordForm& form() const { return m_form; }
    // True when the record asks for any step that changes the field.
    bool requirePostProcessing() const;

private:
    POSTPROCESS_CFG m_cfg;
    RecordForm m_form{&m_cfg};
};
