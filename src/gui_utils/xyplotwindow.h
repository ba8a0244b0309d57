// XYPlotWindow: a small window that plots one or two curves of values over
// their index (an image row, a column, a histogram), frame A in one colour
// and frame B in another, scaled to the range of what it shows.
#pragma once

#include <QColor>
#include <QString>
#include <QVector>
#include <QWidget>

class XYPlotWindow : public QWidget {
    Q_OBJECT
public:
    static constexpr int kCurves = 2;

    explicit XYPlotWindow(const QString& title, QWidget* parent = nullptr);

    // Curve `index` over x = 0..n-1; an empty curve is not drawn.
    void setCurve(int index, const QVector<double>& values);
    const QVector<double>& curve(int index) const { return m_curves[index]; }
    void clearCurves();
    void setAxisTitles(const QString& x, const QString& y);
    // The smallest and largest value of all curves; (0, 1) without any.
    double minimum() const { return m_low; }
    double maximum() const { return m_high; }

    QSize sizeHint() const override { return QSize(480, 240); }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    void updateRange();

    QVector<double> m_curves[kCurves];
    QString m_xTitle, m_yTitle;
    double m_low = 0.0, m_high = 1.0;
};
