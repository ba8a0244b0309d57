// Plots leave the window as bitmaps, PDF pages or on paper, always on a
// white ground whatever the screen shows around the image.
#include <QApplication>
#include <QDir>
#include <QFileInfo>
#include <QGraphicsScene>
#include <QImage>
#include <QPageSize>
#include <QPainter>
#include <QPrinter>

#include <cmath>

#include "kelvanedataview.h"
#include "kelvanedataview_bmpitems.h"
#include "kelvanesceneview.h"
#include "qimageitem.h"

namespace {

// The white ground for the time of one rendering.
class WhiteGround {
public:
    explicit WhiteGround(QGraphicsScene* scene) : m_scene(scene), m_old(scene->backgroundBrush()) {
        scene->setBackgroundBrush(Qt::white);
    }
    ~WhiteGround() { m_scene->setBackgroundBrush(m_old); }
    WhiteGround(const WhiteGround&) = delete;
    WhiteGround& operator=(const WhiteGround&) = delete;

private:
    QGraphicsScene* m_scene;
    QBrush m_old;
};

}  // namespace

bool KelvaneDataView::exportPlot(const QString& file, const QString& format, bool vectorFormat) {
    return renderTo(file, format, vectorFormat, true);
}

bool KelvaneDataView::exportCurrentView(const QString& file, const QString& format,
                                        bool vectorFormat) {
    return renderTo(file, format, vectorFormat, false);
}

bool KelvaneDataView::renderTo(const QString& file, const QString& format, bool vectorFormat,
                               bool wholeScene) {
    QGraphicsScene* scene = m_scene[m_currentScene];
    KelvaneSceneView* view = m_view[m_currentScene];
    const QRectF sceneRect = scene->sceneRect();
    const QRect viewport = view->viewport()->rect();
    const QSizeF size = wholeScene ? sceneRect.size() : QSizeF(viewport.size());
    const auto fail = [this, &file] {
        emit signalMessage(tr("Cannot write plot to file: %1").arg(file));
        return false;
    };
    if (file.isEmpty() || size.isEmpty()) return fail();
    const WhiteGround white(scene);
    const auto render = [&](QPainter& painter, const QRectF& target) {
        if (wholeScene)
            scene->render(&painter, target, sceneRect);
        else
            view->render(&painter, target, viewport);
    };
    if (vectorFormat) {
        QPrinter printer(QPrinter::ScreenResolution);
        printer.setOutputFormat(QPrinter::PdfFormat);
        printer.setOutputFileName(file);
        printer.setPageSize(QPageSize(size, QPageSize::Point));
        printer.setPageMargins(QMarginsF(0, 0, 0, 0));
        printer.setFullPage(true);
        QPainter painter;
        if (!painter.begin(&printer)) return fail();
        render(painter, QRectF(painter.viewport()));
        if (!painter.end()) return fail();
        return QFileInfo(file).size() > 0 || fail();
    }
    const double zoom = wholeScene ? currentZoomFactor() : 1.0;
    const QSize pixels(int(std::lround(size.width() * zoom)),
                       int(std::lround(size.height() * zoom)));
    QImage image(pixels, QImage::Format_ARGB32_Premultiplied);
    if (image.isNull()) return fail();
    image.fill(Qt::white);
    {
        QPainter painter(&image);
        painter.setRenderHint(QPainter::Antialiasing);
        render(painter, QRectF(image.rect()));
    }
    const QByteArray fmt = format.toLatin1();
    if (!image.save(file, fmt.isEmpty() ? nullptr : fmt.constData())) return fail();
    return true;
}

void KelvaneDataView::print() {
    QGraphicsScene* scene = m_scene[m_currentScene];
    const WhiteGround white(scene);
    QApplication::setOverrideCursor(Qt::WaitCursor);
    QPainter painter;
    if (painter.begin(m_printer)) {
        const QRectF source = scene->sceneRect();
        const QRect page = painter.viewport();
        const double ratio =
            std::min(page.width() / source.width(), page.height() / source.height());
        scene->render(&painter, QRectF(0, 0, source.width() * ratio, source.height() * ratio),
                      source);
        painter.end();
    } else {
        emit signalMessage(tr("Printing failed"));
    }
    QApplication::restoreOverrideCursor();
}

void KelvaneDataView::slotBatchExportPlot(const QString& file, int scene, const QString& format,
                                          bool hideImage) {
    const bool vectorFormat = format.contains(QLatin1String("PDF"), Qt::CaseInsensitive) ||
                              format.contains(QLatin1String("PS"), Qt::CaseInsensitive);
    // The export borrows the screen: the user's plot settings and scene come back after it.
    const PIVPLOT::PLOT_CFG saved = record();
    const int shown = m_currentScene;
    if (hideImage) {
        if (!saved.vector.Show && !saved.contour.Show) setVectorsVisible(true);
        setImageVisible(false);
    }
    slotSetCurrentScene(scene);
    redraw();
    if (!exportPlot(file, format, vectorFormat))
        emit signalLogMessage(tr("Cannot write plot to file: %1").arg(file));
    if (hideImage) changeRecord([&saved](PIVPLOT::PLOT_CFG& c) { c = saved; });
    slotSetCurrentScene(shown);
    redraw();
}

void KelvaneDataView::slotBackgroundAlign() {
    alignImage(KelvaneBmpItems::ITEM_BACKGROUND, record().background.Text);
}

void KelvaneDataView::slotOverlayAlign() {
    alignImage(KelvaneBmpItems::ITEM_OVERLAY, record().overlay.Text);
}

void KelvaneDataView::alignImage(int which, const char* file) {
    // Scaled from the file each time, so that aligning twice loses nothing.
    const QImage source(QString::fromLocal8Bit(file));
    if (source.isNull()) {
        emit signalMessage(tr("Cannot read image: %1").arg(QString::fromLocal8Bit(file)));
        return;
    }
    for (KelvaneBmpItems* items : m_items) {
        auto* item = static_cast<QImageItem*>(items->item(KelvaneBmpItems::Item(which)));
        const QRectF r = items->dataRect();
        item->setLogo(source.scaled(r.size().toSize()));
        item->setPos(r.topLeft());
    }
    ++m_needsRedraw;
}
