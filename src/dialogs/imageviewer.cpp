#include "imageviewer.h"

#include <QGraphicsScene>
#include <QGraphicsView>
#include <QVBoxLayout>

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

void ImageViewer::setImage(Image2D* image, const QString& title) {
    setWindowTitle(title);
    m_item->updateImage2D(image);
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
