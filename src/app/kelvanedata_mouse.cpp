// The mouse over the plot: a click correlates one window or samples the
// field, a move tells what lies under the pointer. Positions are image
// pixels; y is shown counted from the origin the user chose, so with the
// origin at the top rows and displacements count downwards.
#include <QFileInfo>
#include <QMouseEvent>
#include <QPoint>
#include <algorithm>

#include "corrplaneview.h"
#include "image2d.h"
#include "kelvanedata.h"
#include "kelvanedataobject.h"
#include "piv_data2d.h"
#include "piv_enums.h"
#include "piv_params.h"
#include "piv_vector_status.h"
#include "pivevalobj.h"
#include "pivprobedlg.h"
#include "qpiv_imagepair.h"

namespace {

QString fixed(double v, int decimals) {
    return QString::number(v, 'f', decimals);
}

QString significant(double v) {
    return QString::number(v, 'g', 4);
}

}  // namespace

QString KelvaneData::vectorText(const PIV_VECTOR& v) const {
    const bool top = m_dataObject->isOriginTopLeft();
    const float flip = top ? -1.0f : 1.0f;
    const PIVCONVERT_CFG c = m_dataObject->parameters(0)->pivConvertCfg();
    const bool speckle = m_dataObject->analysisMode() == PIV::ANALYSIS_SPECKLE;
    const QString text = speckle ? tr("Dx=%1 Dy=%2 (SNR=%3) Shift=%4,%5 %6")
                                 : tr("Dx=%1 Dy=%2 (SNR=%3) Vel=%4,%5 %6");
    return text.arg(fixed(v.dx, 2), fixed(flip * v.dy, 2), fixed(v.snr, 1))
        .arg(significant(speckle ? v.sx : v.u), significant(flip * (speckle ? v.sy : v.v)),
             QString::fromLatin1(speckle ? c.DisplacementUnits : c.VelocityUnits));
}

void KelvaneData::slotProcessMousePress(QMouseEvent* event, QPointF point, bool inImage) {
    if (m_batchMode) {
        emit signalMessage(tr("Batch processing in progress..."));
        return;
    }
    if (!event) return;
    if (event->button() == Qt::RightButton) {
        emit signalProcessRightButton(event);
        return;
    }
    if (event->button() != Qt::LeftButton || !inImage) return;
    if (m_dataObject->haveData(-1) && m_vectorSampling) {
        sampleAtPoint(point);
    } else if (m_dataObject->isImagePair()) {
        slotCorrelateAtPoint(point);
    } else {
        // The point is an image pixel, rows counted from the top whatever
        // origin is shown.
        emit signalLogMessage(QStringLiteral("%1 %2  %3 %4")
                                  .arg(int(point.x()), 4)
                                  .arg(int(point.y()), 4)
                                  .arg(m_dataObject->physicalX(point.x()), 4)
                                  .arg(m_dataObject->physicalY(point.y(), true), 4));
    }
}

void KelvaneData::slotCorrelateAtPoint(QPointF point) {
    if (m_dataObject->kelvaneMode() != MODE_DATA) {
        emit signalLogMessage(tr(" not in data display mode"));
        return;
    }
    // The plane view draws while the window is correlated and saves beside the image.
    m_corrView->setPivEvalCfg(m_dataObject->parameters(0)->pivEvalCfg());
    m_corrView->setDirectory(QFileInfo(m_dataObject->filePath(0)).absolutePath());
    PIV_VECTOR a, b;
    if (!m_engine->interrogateAtPoint(QPoint(int(point.x()), int(point.y())), &a, &b)) {
        emit signalMessage(m_engine->lastMessage());
        return;
    }
    emit signalDrawVector(a, m_dataObject->currentView());
    m_probeDlg->setRecord(a);
    const int height = m_dataObject->imageSize(0).height;
    const int y = m_dataObject->isOriginTopLeft() ? a.iy : height - 1 - a.iy;
    emit signalMessage(tr("Pos(%1,%2)  ").arg(a.ix).arg(y) + vectorText(a));
}

void KelvaneData::slotProcessMouseMove(QMouseEvent*, QPointF point, bool inImage) {
    const PIV_Data2D* field = m_dataObject->data(-1);
    if (!field->haveRawData() && !inImage) return;
    const SIZE2D size = m_dataObject->imageSize(-1);
    const int x = int(point.x()), y = int(point.y());
    if (x < 0 || y < 0 || x >= size.width || y >= size.height) return;
    const bool top = m_dataObject->isOriginTopLeft();
    const PIVCONVERT_CFG c = m_dataObject->parameters(0)->pivConvertCfg();
    static const char* const kViews[] = {"A", "B", "3C", "R"};
    const int view = std::clamp(m_dataObject->currentView(), 0, 3);
    QString text = tr("View%1 : Pos ( %2,%3 )  Phys [%4] ( %5,%6 )")
                       .arg(QLatin1String(kViews[view]))
                       .arg(x)
                       .arg(top ? y : size.height - 1 - y)
                       .arg(QString::fromLatin1(c.LengthConversionUnits))
                       .arg(significant(m_dataObject->physicalX(x)),
                            significant(m_dataObject->physicalY(y, true)));
    if (m_dataObject->haveImage(-1)) {
        const QPIV_ImagePair* pair = m_dataObject->image(-1);
        text += tr("  ImgA=%1").arg(double(pair->imgA()->pixel(x, y)));
        if (pair->isImagePair()) text += tr("  ImgB=%1").arg(double(pair->imgB()->pixel(x, y)));
    }
    bool found = false;
    const PIV_VECTOR v = field->haveRawData()
                             ? m_dataObject->getNearestVector(FPOINT2D{float(x), float(y)}, &found)
                             : PIV_VECTOR();
    if (found) {
        const bool speckle = m_dataObject->analysisMode() == PIV::ANALYSIS_SPECKLE;
        const float flip = top ? -1.0f : 1.0f;
        text +=
            tr(" -> %1(%2,%3 %4)  Status=(%5)")
                .arg(speckle ? tr("Shift ") : tr("Vel "))
                .arg(significant(speckle ? v.sx : v.u), significant(flip * (speckle ? v.sy : v.v)),
                     QString::fromLatin1(speckle ? c.DisplacementUnits : c.VelocityUnits),
                     QString::fromLatin1(PIV_GetVectorStatus(v.flag)));
        if (v.residual != 0.0f) text += tr(" Residuals=%1 px").arg(significant(v.residual));
        m_probeDlg->setRecord(v);
    }
    emit signalMessage(text);
}

void KelvaneData::sampleAtPoint(const QPointF& point) {
    if (!m_dataObject->isEvaluated(-1) || !m_vectorSampling) return;
    const PIV_Data2D* field = m_dataObject->data(-1);
    bool found = false;
    const long nearest = field->nearestVectorIndex(int(point.x()), int(point.y()), 0, &found);
    if (!found) return;
    const SIZE3D nodes = field->grid().nodes;
    // The square keeps its side and moves inward at the edges of the grid.
    const int side = std::clamp(m_samplingROI, 1, std::min(nodes.width, nodes.height));
    const int col = int(nearest % nodes.width), row = int(nearest / nodes.width % nodes.height);
    const int left = std::clamp(col - side / 2, 0, nodes.width - side);
    const int first = std::clamp(row - side / 2, 0, nodes.height - side);

    const bool top = m_dataObject->isOriginTopLeft();
    const bool speckle = m_dataObject->analysisMode() == PIV::ANALYSIS_SPECKLE;
    const PIVCONVERT_CFG c = m_dataObject->parameters(0)->pivConvertCfg();
    QString head = tr("# vectors nearest to cursor\n");
    head += tr("# pixel coordinates measured from %1 left (0,0)\n# grid unit: %2\n")
                .arg(top ? tr("top") : tr("bottom"), QString::fromLatin1(c.LengthConversionUnits));
    head += speckle
                ? tr("# displacement unit: %1\n").arg(QString::fromLatin1(c.DisplacementUnits)) +
                      tr("# imgX imgY  dX dY  physX physY  shiftX shiftY\n")
                : tr("# velocity unit: %1\n").arg(QString::fromLatin1(c.VelocityUnits)) +
                      tr("# imgX imgY  dX dY  physX physY  velX velY\n");
    emit signalLogMessage(head);
    const int height = m_dataObject->imageSize(-1).height;
    const float flip = top ? -1.0f : 1.0f;
    const int view = m_dataObject->currentView();
    for (int r = first; r < first + side; ++r)
        for (int k = left; k < left + side; ++k) {
            const PIV_VECTOR v = field->getVector(k + long(r) * nodes.width);
            emit signalLogMessage(QStringLiteral("%1 %2  %3 %4  %5 %6  %7 %8")
                                      .arg(v.ix)
                                      .arg(top ? v.iy : height - 1 - v.iy)
                                      .arg(fixed(v.dx, 2), fixed(flip * v.dy, 2),
                                           significant(m_dataObject->physicalX(v.ix)),
                                           significant(m_dataObject->physicalY(v.iy, true)),
                                           significant(speckle ? v.sx : v.u),
                                           significant(flip * (speckle ? v.sy : v.v))));
            emit signalDrawVector(v, view);
        }
}

// Bit 7 marks a vector switched off by hand; enabled and outlier trade
// places, so that a second toggle gives the vector back as it was.
void KelvaneData::toggleVectorFlag(const QPointF& point, int view) {
    PIV_Data2D* field = m_dataObject->data(view);
    bool found = false;
    const long k = field->nearestVectorIndex(int(point.x()), int(point.y()), 0, &found);
    if (!found) return;
    PIV_VECTOR v = field->getVector(k);
    const uint8_t enabled = v.flag & VECTOR_ENABLED, outlier = v.flag & VECTOR_OUTLIER;
    v.flag ^= VECTOR_EDITED;
    if (enabled != 0 || outlier != 0) {
        v.flag &= uint8_t(~(VECTOR_ENABLED | VECTOR_OUTLIER));
        v.flag |= (enabled ? VECTOR_OUTLIER : 0) | (outlier ? VECTOR_ENABLED : 0);
    }
    field->setVector(k, v);
    emit m_dataObject->signalHaveNewData(view);
}
