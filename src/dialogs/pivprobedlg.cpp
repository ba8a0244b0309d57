#include "pivprobedlg.h"

#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QVBoxLayout>

PivProbeDlg::PivProbeDlg(QWidget* parent) : QDialog(parent) {
    setWindowTitle(tr("PIV data probe"));
    auto* rows = new QFormLayout;
    const PIV_VECTOR& v = m_vector;
    RecordForm& f = m_form;
    f.integer(rows, tr("Column [px]"), &v.ix);
    f.integer(rows, tr("Row [px]"), &v.iy);
    const struct {
        const float* field;
        const char* label;
    } reals[] = {{&v.x, "X"},
                 {&v.y, "Y"},
                 {&v.dx, "Dx [px]"},
                 {&v.dy, "Dy [px]"},
                 {&v.u, "U"},
                 {&v.v, "V"},
                 {&v.sx, "Shift X"},
                 {&v.sy, "Shift Y"},
                 {&v.corr, "Correlation"},
                 {&v.snr, "Signal-to-noise ratio"},
                 {&v.residual, "Residuals [px]"}};
    for (const auto& r : reals) f.real(rows, tr(r.label), r.field);
    f.integer(rows, tr("Samples"), &v.count);
    for (QLineEdit* edit : findChildren<QLineEdit*>()) edit->setReadOnly(true);
    m_status = new QLabel;
    rows->addRow(tr("Status"), m_status);
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(rows);
    setRecord(m_vector);
}

void PivProbeDlg::setRecord(const PIV_VECTOR& vector) {
    m_vector = vector;
    m_form.load(&m_vector);
    m_status->setText(QString::fromLatin1(PIV::VectorFlagText(vector.flag)));
}

PIV_VECTOR PivProbeDlg::record() const {
    PIV_VECTOR v = m_vector;
    m_form.store(&v);
    return v;
}

QString PivProbeDlg::statusText() const {
    return m_status->text();
}
