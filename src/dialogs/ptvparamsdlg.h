// PTVParamsDlg: the tracker's settings: detection, search and the filters of
// its working copy of each frame.
#pragma once

#include <QDialog>

#include "ptv_types.h"
#include "recordform.h"

class PTVParamsDlg : public QDialog {
    Q_OBJECT
public:
    explicit PTVParamsDlg(QWidget* parent = nullptr);

    void setRecord(const PTV_PARAMS& cfg);
    PTV_PARAMS record() const;
    const RecordForm& form() const { return m_form; }

private:
    PTV_PARAMS m_cfg;
    RecordForm m_form{&m_cfg};
};
