#include "xyplotwindow.h"

#include <QPainter>
#include <QPolygonF>

#include <algorithm>

namespace {

const QColor kCurveColors[XYPlotWindow::kCurves] = {Qt::red, Qt::blue};
constexpr int kMargin = 40;

}  // namespace

XYPlotWindow::XYPlotWindow(const QString& title, QWidget* parent) : QWidget(parent, Qt::Tool) {
    setWindowTitle(title);
    setAttribute(Qt::WA_OpaquePaintEvent);
}

void XYPlotWindow::setCurve(int index, const QVector<double>& values) {
    if (index < 0 || index >= kCurves) return;
    m_curves[index] = values;
    updateRange();
    update();
}

void XYPlotWindow::clearCurves() {
    for (QVector<double>& c : m_curves) c.clear();
    updateRange();
    update();
}

void XYPlotWindow::setAxisTitles(const QString& x, const QString& y) {
    m_xTitle = x;
    m_yTitle = y;
    update();
}

void XYPlotWindow::updateRange() {
    bool any = false;
    for (const QVector<double>& c : m_curves)
        for (double v : c) {
            m_low = any ? std::min(m_low, v) : v;
            m_high = any ? std::max(m_high, v) : v;
            any = true;
        }
    if (!any) m_low = 0.0, m_high = 1.0;
    if (m_high <= m_low) m_high = m_low + 1.0;
}

void XYPlotWindow::paintEvent(QPaintEvent*) {
    QPainter p(this);
    p.fillRect(rect(), Qt::white);
    const QRectF plot = QRectF(rect()).adjusted(kMargin, kMargin / 2, -kMargin / 2, -kMargin);
    p.setPen(Qt::black);
    p.drawRect(plot);
    p.drawText(QRectF(0, plot.top() - 10, kMargin - 4, 20), Qt::AlignRight | Qt::AlignVCenter,
               QString::number(m_high, 'g', 4));
    p.drawText(QRectF(0, plot.bottom() - 10, kMargin - 4, 20), Qt::AlignRight | Qt::AlignVCenter,
               QString::number(m_low, 'g', 4));
    p.drawText(QRectF(plot.left(), plot.bottom() + 4, plot.width(), 20), Qt::AlignHCenter,
               m_xTitle);
    p.drawText(QRectF(4, plot.top(), 20, plot.height()), Qt::AlignCenter, m_yTitle);
    for (int i = 0; i < kCurves; ++i) {
        const QVector<double>& c = m_curves[i];
        if (c.size() < 2) continue;
        QPolygonF line;
        line.reserve(c.size());
        const double sx = plot.width() / (c.size() - 1), sy = plot.height() / (m_high - m_low);
        for (int x = 0; x < c.size(); ++x)
            line << QPointF(plot.left() + x * sx, plot.bottom() - (c[x] - m_low) * sy);
        p.setPen(QPen(kCurveColors[i], 0));
        p.drawPolyline(line);
    }
}
