// PivSetupDlg: the evaluation settings of a session in one record: the
// evaluation block, validation for views A and B, conversion to physical
// units and differentiation. For a field read from a file only the records
// that act on existing vectors can be edited.
#pragma once

#include <QDialog>

#include "piv_types.h"
#include "recordform.h"

class QCheckBox;
class QWidget;

struct PIVSETUP_CFG {
    PIVEVAL_CFG eval;
    OUTLIER_CFG outlier[2];  // views A and B
    PIVCONVERT_CFG convert;
    DIFFERENTIATE_CFG differentiate;

    PIVSETUP_CFG();
};

class PivSetupDlg : public QDialog {
    Q_OBJECT
public:
    explicit PivSetupDlg(QWidget* parent = nullptr);

    void setRecord(const PIVSETUP_CFG& cfg);
    PIVSETUP_CFG record() const;
    const RecordForm& form() const { return m_form; }

    // File data cannot be evaluated again: the evaluation page is locked, and
    // trying other peaks is offered only when the file holds several.
    void setFileOnly(bool on, bool multiplePeaks);
    bool isFileOnly() const { return m_fileOnly; }

private:
    PIVSETUP_CFG m_cfg;
    RecordForm m_form{&m_cfg};
    QWidget* m_evalPages[2];
    QWidget* m_tryOtherPeaks[2];
    QCheckBox* m_multiplePeaks;
    bool m_fileOnly = false;
};
