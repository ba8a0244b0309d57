#include "imageviewer.h"

#include <QGraphicsScene>
#include <QGraphicsView>
#include <QVBoxLayout>

#include "image2d.h"
#include "image2ditem.h"

ImageViewer::ImageViewer(QWidget* parent) : QDialog(parent) {
    setWindowTitle(tr("Image viewer"));
    m_scene = new QGraphicsScene(this);
    m_item = new Image2DItem;
    m_scene->addItem(m_item);
    m_view = new QGraphicsView(m_scene);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_view);
    resize(640, 540);
}

// The frames of a pair die with the pair, whatever their count says, so the
// viewer shows a copy of its own: the session may replace its images while
// the window stays open.
void ImageViewer::setImage(const Image2D* image, const QString& title) {
    setWindowTitle(title);
    Image2D* copy = image ? new Image2D(*image) : nullptr;
    m_item->updateImage2D(copy);
    if (copy) copy->release();  // the item holds the only count
    m_item->autoScale();
    m_scene->setSceneRect(m_item->boundingRect());
    m_view->fitInView(m_item, Qt::KeepAspectRatio);
}

void ImageViewer::registryIO(MySettings& s, MySettings::AccessMode mode) {
    QSize size = this->size();
    int w = size.width(), h = size.height();
    s.serializeInt(mode, QStringLiteral("/ImageViewer/Width"), &w);
    s.serializeInt(mode, QStringLiteral("/ImageViewer/Height"), &h);
    if (mode == MySettings::READ && w > 200 && h > 200) resize(w, h);
}
