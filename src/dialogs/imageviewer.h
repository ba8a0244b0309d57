// ImageViewer: a window of its own that shows one image with an automatic
// intensity range, e.g. an ensemble correlation map or a frame of the pair.
#pragma once

#include <QDialog>

#include "mysettings.h"

class Image2D;
class Image2DItem;
class QGraphicsScene;
class QGraphicsView;

class ImageViewer : public QDialog {
    Q_OBJECT
public:
    explicit ImageViewer(QWidget* parent = nullptr);

    // Shows a copy of `image`; null clears.
    void setImage(const Image2D* image, const QString& title);
    const Image2DItem* item() const { return m_item; }
    // The window's size under "/ImageViewer".
    void registryIO(MySettings& settings, MySettings::AccessMode mode);

private:
    QGraphicsScene* m_scene;
    QGraphicsView* m_view;
    Image2DItem* m_item;
};
