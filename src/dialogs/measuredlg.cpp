#include "measuredlg.h"

#include <QComboBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QTableWidget>
#include <QVBoxLayout>

MeasureDlg::MeasureDlg(QWidget* parent) : QDialog(parent) {
    setWindowTitle(tr("Measurements"));
    m_units = new QComboBox(this);
    m_units->addItems({tr("Physical units"), tr("Pixel units")});
    m_delay = new QLabel(this);
    m_scale = new QLabel(this);
    m_table = new QTableWidget(0, 5, this);
    m_table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_table->setColumnWidth(0, 60);
    for (int c = 1; c < 5; ++c) m_table->setColumnWidth(c, 80);
    auto* top = new QHBoxLayout;
    top->addWidget(m_units);
    top->addWidget(m_delay);
    top->addWidget(m_scale);
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(top);
    layout->addWidget(m_table);
    connect(m_units, QOverload<int>::of(&QComboBox::currentIndexChanged), this,
            &MeasureDlg::slotSetConversion);
    resize(420, 240);
    updateCells();
}

void MeasureDlg::slotSetConversion(int index) {
    m_physical = index == 0;
    if (m_units->currentIndex() != index) m_units->setCurrentIndex(index);
    updateCells();
    emit signalUpdate();
}

void MeasureDlg::setConversion(double delay, double pixelsPerUnit, const QString& lengthUnit,
                               const QString& velocityUnit) {
    m_lengthUnit = lengthUnit;
    m_velocityUnit = velocityUnit;
    if (delay >= 1e6)
        m_delay->setText(tr("delay: %1 s").arg(delay * 1e-6));
    else if (delay >= 1e3)
        m_delay->setText(tr("delay: %1 ms").arg(delay * 1e-3));
    else
        m_delay->setText(tr("delay: %1 us").arg(delay));
    m_scale->setText(tr("scale: %1 px/%2").arg(pixelsPerUnit).arg(lengthUnit));
    updateCells();
}

void MeasureDlg::setRows(const QVector<MEASURE_ROW>& rows) {
    m_rows = rows;
    if (m_table->rowCount() < rows.size()) m_table->setRowCount(rows.size());
    for (int r = 0; r < m_table->rowCount(); ++r) m_table->setRowHidden(r, r >= rows.size());
    updateCells();
}

QString MeasureDlg::cellText(int row, int column) const {
    const QTableWidgetItem* item = m_table->item(row, column);
    return item ? item->text() : QString();
}

void MeasureDlg::updateCells() {
    const QString len = m_physical ? m_lengthUnit : QStringLiteral("pixel");
    const QString vel = m_physical ? m_velocityUnit : QStringLiteral("pixel");
    const QString area =
        m_physical ? QStringLiteral("[%1^2]").arg(len) : QStringLiteral("[pixel^2]");
    const QString flow = QStringLiteral("[%1*%2]").arg(vel, len);
    m_table->setHorizontalHeaderLabels(
        {tr("Shape"), tr("Length") + QStringLiteral(" [%1]").arg(len), tr("Area") + " " + area,
         tr("Circulation") + " " + flow, tr("Entrainment") + " " + flow});
    const QString none = QStringLiteral("-/-");
    for (int r = 0; r < m_rows.size(); ++r) {
        const MEASURE_ROW& row = m_rows[r];
        const INTEGRATION_DATA& d = row.data;
        const QString cells[5] = {row.shape.isEmpty() ? tr("unknown") : row.shape,
                                  row.valid ? QString::number(d.length, 'g', 5) : none,
                                  row.valid && row.closed ? QString::number(d.area, 'g', 5) : none,
                                  row.valid ? QString::number(d.circulation, 'g', 5) : none,
                                  row.valid ? QString::number(d.entrainment, 'g', 5) : none};
        for (int c = 0; c < 5; ++c) {
            if (!m_table->item(r, c)) m_table->setItem(r, c, new QTableWidgetItem);
            m_table->item(r, c)->setText(cells[c]);
        }
    }
}
