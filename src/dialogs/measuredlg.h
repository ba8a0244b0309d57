// MeasureDlg: one table row per measuring object with its length, area,
// circulation and entrainment, in physical or in pixel units.
#pragma once

#include <QDialog>
#include <QString>
#include <QVector>

#include "piv_data2d.h"

class QComboBox;
class QLabel;
class QTableWidget;

// One row of the table; `valid` false shows "-/-" for the integrals.
struct MEASURE_ROW {
    QString shape;  // empty: "unknown"
    bool closed;    // area and entrainment apply
    bool valid;
    INTEGRATION_DATA data;
};

class MeasureDlg : public QDialog {
    Q_OBJECT
public:
    explicit MeasureDlg(QWidget* parent = nullptr);

    // Shows as many rows as there are objects, hiding the others.
    void setRows(const QVector<MEASURE_ROW>& rows);
    // Writes the rows into the cells under the present unit headings.
    void updateCells();
    bool isPhysical() const { return m_physical; }
    // Pulse delay in microseconds; length scale in pixels per unit.
    void setConversion(double delayMicroseconds, double pixelsPerUnit, const QString& lengthUnit,
                       const QString& velocityUnit);
    QTableWidget* table() const { return m_table; }
    QString cellText(int row, int column) const;

public slots:
    void slotSetConversion(int index);

signals:
    // The unit choice changed: the owner measures again.
    void signalUpdate();

private:
    QComboBox* m_units;
    QLabel* m_delay;
    QLabel* m_scale;
    QTableWidget* m_table;
    QVector<MEASURE_ROW> m_rows;
    bool m_physical = true;
    QString m_lengthUnit = QStringLiteral("mm"), m_velocityUnit = QStringLiteral("m/s");
};
