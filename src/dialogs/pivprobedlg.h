// PivProbeDlg: the vector under the mouse or the last single correlation,
// every quantity of the node in its own read-only field.
#pragma once

#include <QDialog>

#include "piv_types.h"
#include "recordform.h"

class QLabel;

class PivProbeDlg : public QDialog {
    Q_OBJECT
public:
    explicit PivProbeDlg(QWidget* parent = nullptr);

    void setRecord(const PIV_VECTOR& vector);
    PIV_VECTOR record() const;
    const RecordForm& form() const { return m_form; }
    QString statusText() const;

private:
    PIV_VECTOR m_vector;
    RecordForm m_form{&m_vector};
    QLabel* m_status;
};
