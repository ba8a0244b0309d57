// PIVCalib2CDlg: the calibration panel. The user lays the ruler over a known
// length in the image and types that length here; the panel shows the
// magnification that follows, in pixels per unit.
#pragma once

#include <QDialog>

#include "piv_record.h"
#include "recordform.h"

class QLabel;

struct CALIB2C_CFG {
    double RulerLength;  // in Units
    char Units[16];

    CALIB2C_CFG() {
        PIV::ZeroRecord(*this);
        RulerLength = 10.0;
        PIV::CopyText(Units, "mm");
    }
};

class PIVCalib2CDlg : public QDialog {
    Q_OBJECT
public:
    explicit PIVCalib2CDlg(QWidget* parent = nullptr);

    void setRecord(const CALIB2C_CFG& cfg);
    CALIB2C_CFG record() const;
    const RecordForm& form() const { return m_form; }
    // Shows "<pixels per unit> px/<unit>".
    void setMagnification(double pixelsPerUnit, const QString& unit);
    QString magnificationText() const;

signals:
    // "Apply": the ruler's length or unit changed.
    void signalApply();

private:
    CALIB2C_CFG m_cfg;
    RecordForm m_form{&m_cfg};
    QLabel* m_scale;
};
