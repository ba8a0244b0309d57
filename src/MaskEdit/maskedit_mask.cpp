// MaskEdit: the objects and the mask made from them.
#include <QFileDialog>
#include <QFileInfo>
#include <QGraphicsEllipseItem>
#include <QGraphicsPolygonItem>
#include <QGraphicsRectItem>
#include <QGraphicsScene>
#include <QImage>
#include <QMessageBox>
#include <QPainter>
#include <cmath>

#include "image2d.h"
#include "itemeditor.h"
#include "maskedit.h"
#include "maskitem.h"
#include "piv_messages.h"

bool _convertFromQImage(const QImage& source, Image2D& target) {
    if (source.depth() != 8) {
        DebugPrint("convertFromQImage() - unsupported image depth: %d", source.depth());
        return false;
    }
    if (!target.alloc(source.width(), source.height(), IMAGE_UINT8)) return false;
    for (int y = 0; y < source.height(); ++y)
        std::copy_n(source.constScanLine(y), source.width(), target.scanLine<uint8_t>(y));
    target.setFlagNeedStatistics(true);
    return true;
}

namespace {

// The pixel span of a scene rectangle: position and size truncated, the far
// edge at position plus size less one, so (10,20)->(40,60) covers 30 x 40.
QRectF _pixelRect(const QRectF& r) {
    return QRectF(static_cast<int>(r.left()), static_cast<int>(r.top()),
                  static_cast<int>(r.width()), static_cast<int>(r.height()));
}

const QColor kObjectColor(0, 255, 0);

}  // namespace

// ---- objects -------------------------------------------------------------------

void MaskEdit::addItem(QGraphicsItem* item) {
    auto* shape = static_cast<QAbstractGraphicsShapeItem*>(item);
    QPen pen(kObjectColor);
    pen.setCosmetic(true);
    shape->setPen(pen);
    shape->setBrush(QColor(0, 255, 0, 60));
    item->setZValue(20);
    m_scene->addItem(item);
    m_items.append(item);
    m_modified = true;
    m_maskValid = false;
    updateCaption();
}

void MaskEdit::addRectangle(const QRectF& rect) {
    addItem(new QGraphicsRectItem(rect.normalized()));
}

void MaskEdit::addEllipse(const QRectF& rect) {
    addItem(new QGraphicsEllipseItem(rect.normalized()));
}

void MaskEdit::addPolygon(const QPolygonF& polygon) {
    if (polygon.size() < 3) return;
    addItem(new QGraphicsPolygonItem(polygon));
}

void MaskEdit::deleteAllObjects(bool ask) {
    if (ask && !m_items.isEmpty() &&
        QMessageBox::question(this, QStringLiteral("MaskEdit"), tr("Delete all objects?")) !=
            QMessageBox::Yes)
        return;
    m_editor->releaseItem();
    m_editor->hide();
    qDeleteAll(m_items);
    m_items.clear();
    m_objects.clear();
    m_modified = false;
    m_maskValid = false;
    updateCaption();
}

void MaskEdit::lockAllObjects(bool lock) {
    for (QGraphicsItem* item : m_items) item->setEnabled(!lock);
}

void MaskEdit::showAllObjects(bool show) {
    for (QGraphicsItem* item : m_items) item->setVisible(show);
}

void MaskEdit::updateObjectList() {
    m_objects.clear();
    m_objects.setImage(m_imageFile.toStdString(), static_cast<int>(m_image->width()),
                       static_cast<int>(m_image->height()));
    for (QGraphicsItem* item : m_items) {
        if (auto* r = qgraphicsitem_cast<QGraphicsRectItem*>(item)) {
            const QRectF s = r->mapRectToScene(r->rect());
            auto o = std::make_unique<PlotRectangle>();
            o->setRect(s.left(), s.top(), s.width(), s.height());
            m_objects.add(std::move(o));
        } else if (auto* e = qgraphicsitem_cast<QGraphicsEllipseItem*>(item)) {
            const QRectF s = e->mapRectToScene(e->rect());
            auto o = std::make_unique<PlotEllipse>();
            o->setRect(s.left(), s.top(), s.width(), s.height());
            m_objects.add(std::move(o));
        } else if (auto* p = qgraphicsitem_cast<QGraphicsPolygonItem*>(item)) {
            auto o = std::make_unique<PlotPolygon>();
            for (const QPointF& q : p->mapToScene(p->polygon()))
                o->addPoint({static_cast<float>(q.x()), static_cast<float>(q.y())});
            m_objects.add(std::move(o));
        }
    }
}

bool MaskEdit::loadMaskObjects(const QString& file) {
    PlotObjects loaded;
    if (!loaded.load(file.toStdString())) {
        message(QString::fromStdString(loaded.lastError()));
        return false;
    }
    // The loaded objects join those already there: the list is then in no
    // file unless it was empty, and an unsaved change stays unsaved.
    const bool unsaved = m_modified || !m_items.isEmpty();
    for (size_t i = 0; i < loaded.size(); ++i) {
        const PlotObject* o = loaded.at(i);
        const PLOT_RECT& r = o->rect();
        const QRectF rect(r.left, r.top, r.right - r.left, r.bottom - r.top);
        if (o->shape() == PlotObject::RECTANGLE) {
            addRectangle(rect);
        } else if (o->shape() == PlotObject::ELLIPSE) {
            addEllipse(rect);
        } else if (o->shape() == PlotObject::POLYGON) {
            QPolygonF polygon;
            for (const FPOINT2D& p : static_cast<const PlotPolygon*>(o)->points())
                polygon << QPointF(p.x, p.y);
            addPolygon(polygon);
        }
    }
    m_objectsFile = file;
    m_modified = unsaved;
    updateCaption();
    return true;
}

bool MaskEdit::saveMaskObjects(const QString& file) {
    updateObjectList();
    if (!m_objects.save(file.toStdString())) {
        message(QString::fromStdString(m_objects.lastError()));
        return false;
    }
    m_objectsFile = file;
    m_modified = false;
    updateCaption();
    return true;
}

// ---- the mask ------------------------------------------------------------------

bool MaskEdit::createMask() {
    if (!m_items.isEmpty()) updateObjectList();
    if (m_items.isEmpty() || m_objects.empty()) {
        message(tr("  createMask() - failed (no objects)"));
        return false;
    }
    if (m_image->isNull()) {
        message(tr("createMask() - failed (no image)"));
        return false;
    }
    const int w = static_cast<int>(m_image->width()), h = static_cast<int>(m_image->height());
    // A null image is what a failed allocation leaves: its lines are no memory.
    const auto tooLarge = [&](const QImage& image) {
        if (!image.isNull()) return false;
        message(tr("createMask() - failed (no memory for %1 x %2 pixels)").arg(w).arg(h));
        return true;
    };
    QImage canvas(w, h, QImage::Format_RGB32);
    if (tooLarge(canvas)) return false;
    canvas.fill(Qt::black);
    {
        QPainter painter(&canvas);
        painter.setPen(Qt::black);
        painter.setBrush(Qt::black);
        painter.drawRect(0, 0, w - 1, h - 1);
        // Filled without an outline: a pen would add its width to every
        // shape, so an ellipse would cover more than pi*a*b.
        painter.setPen(Qt::NoPen);
        painter.setBrush(Qt::white);
        for (size_t i = 0; i < m_objects.size(); ++i) {
            const PlotObject* o = m_objects.at(i);
            const PLOT_RECT& r = o->rect();
            const QRectF rect(r.left, r.top, r.right - r.left, r.bottom - r.top);
            if (o->shape() == PlotObject::RECTANGLE) {
                DebugPrintExt(2, " drawing rectangle");
                painter.drawRect(_pixelRect(rect));
            } else if (o->shape() == PlotObject::ELLIPSE) {
                DebugPrintExt(2, "   drawing ellipse");
                painter.drawEllipse(_pixelRect(rect));
            } else if (o->shape() == PlotObject::POLYGON) {
                DebugPrintExt(2, "   drawing polygon");
                QPolygonF polygon;
                for (const FPOINT2D& p : static_cast<const PlotPolygon*>(o)->points())
                    polygon << QPointF(std::floor(p.x), std::floor(p.y));
                painter.drawPolygon(polygon);
            }
        }
    }
    QImage grey(w, h, QImage::Format_Grayscale8);
    if (tooLarge(grey)) return false;
    for (int y = 0; y < h; ++y) {
        const QRgb* in = reinterpret_cast<const QRgb*>(canvas.constScanLine(y));
        uchar* out = grey.scanLine(y);
        for (int x = 0; x < w; ++x)
            out[x] =
                static_cast<uchar>((11 * qRed(in[x]) + 16 * qGreen(in[x]) + 5 * qBlue(in[x])) / 32);
    }
    Image2D mask;
    if (!_convertFromQImage(grey, mask) || !mask.binarize(1.0f, false)) return false;
    if (m_inverted && !mask.negative(0)) return false;
    if (!m_mask->copy(mask)) return false;
    m_maskValid = true;
    m_maskItem->updateImage2D(m_mask);
    return true;
}

bool MaskEdit::saveMaskImage(const QString& file, const QString& format) {
    const bool pco = format.compare(QLatin1String("b16"), Qt::CaseInsensitive) == 0;
    m_mask->setFlagCompressionEnabled(m_compression);
    if (!m_mask->save(file.toLocal8Bit().constData(), pco ? PIV::FORMAT_PCO : PIV::FORMAT_TIFF)) {
        message(tr("Failed saving image: ") + file);
        return false;
    }
    message(tr("Saved image (%1W %2H %3 bpp) in ")
                .arg(m_mask->width())
                .arg(m_mask->height())
                .arg(m_mask->bitsPerPixel()) +
            file);
    m_maskFile = file;
    m_modified = false;
    updateCaption();
    emit signalNewMask(file, m_cameraView, 0);
    return true;
}

void MaskEdit::slotSaveMask() {
    if (!m_maskValid && !createMask()) return;
    const QString file = QFileDialog::getSaveFileName(this, tr("Store mask image"), m_maskFile,
                                                      tr("TIFF images (*.tif);;All files (*.*)"),
                                                      nullptr, QFileDialog::DontConfirmOverwrite);
    if (file.isEmpty()) return;
    if (QFileInfo::exists(file) &&
        QMessageBox::question(this, tr("%1 - File exists").arg(QStringLiteral("MaskEdit")),
                              tr("Overwrite existing file?\n") + file) != QMessageBox::Yes)
        return;
    const QString suffix = QFileInfo(file).suffix();
    QString format = suffix.isEmpty() ? QStringLiteral("TIF") : suffix;
    if (m_pcoMode) format = QStringLiteral("b16");
    saveMaskImage(file, format);
}
