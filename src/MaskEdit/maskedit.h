// MaskEdit: a main window in which rectangles, ellipses and polygons are
// drawn on an image and turned into a binary mask (255 masked, 0 free). It
// serves the application as a window of its own and runs as a program that
// can make a mask from the command line and quit.
#pragma once

#include <QList>
#include <QMainWindow>
#include <QPolygonF>
#include <QRectF>
#include <QSize>
#include <QStringList>

#include "plotobjects.h"

class Image2D;
class Image2DItem;
class ImageView;
class ItemEditor;
class MaskItem;
class QAction;
class QGraphicsItem;
class QGraphicsPolygonItem;
class QGraphicsScene;
class QImage;
class QMouseEvent;
class QSettings;
class QToolBar;

// Copies an 8-bit QImage into an 8-bit Image2D row by row; other depths are
// refused.
bool _convertFromQImage(const QImage& source, Image2D& target);

class MaskEdit : public QMainWindow {
    Q_OBJECT
public:
    enum MaskEditMode {
        MASK_EDIT_NONE = 0,
        MASK_EDIT_SHOW = 1,
        MASK_EDIT_MOVE = 2,
        MASK_EDIT_VERTEX = 3,
        MASK_EDIT_RECT = 4,
        MASK_EDIT_ELLIPSE = 5,
        MASK_EDIT_POLYGON = 6,
        MASK_EDIT_DELETE = 7,
    };

    MaskEdit(bool standalone, QSettings* settings, QWidget* parent = nullptr,
             Qt::WindowFlags flags = Qt::WindowFlags());
    ~MaskEdit() override;

    bool loadImagePair(const QString& a, const QString& b, bool pcoMode);
    void updateImagePair(Image2D* a, Image2D* b);
    bool loadFile(const QString& file);
    bool loadMaskObjects(const QString& file);
    bool saveMaskObjects(const QString& file);
    bool saveMaskImage(const QString& file, const QString& format);
    bool createMask();
    void addRectangle(const QRectF& rect);
    void addEllipse(const QRectF& rect);
    void addPolygon(const QPolygonF& polygon);
    // With `ask`, a box has to agree first.
    void deleteAllObjects(bool ask);
    void lockAllObjects(bool lock);
    void showAllObjects(bool show);
    void updateObjectList();
    void setTIFFCompressionEnabled(bool on) { m_compression = on; }
    void setCameraView(int view) { m_cameraView = view; }
    int cameraView() const { return m_cameraView; }
    // Saved masks are announced to `receiver` through signalNewMask.
    void enableFeedBackSignals(QWidget* receiver);
    void setToolbarOptions(QSize iconSize, bool showText, int style);
    void updateCaption();
    // Reads the program's own arguments; see the usage text.
    bool processCommandLine();
    bool processCommandLine(const QStringList& arguments);
    // The command line asked for a mask and an end ("-q").
    bool quitRequested() const { return m_quit; }

    void setMaskEditMode(int mode);
    int maskEditMode() const { return m_mode; }
    void setFlagInverted(bool on) { m_inverted = on; }
    bool isInverted() const { return m_inverted; }
    bool isModified() const { return m_modified; }
    bool isPCOmode() const { return m_pcoMode; }
    const Image2D* maskImage() const { return m_mask; }
    const Image2D* image() const { return m_image; }
    const PlotObjects& objects() const { return m_objects; }
    ImageView* view() const { return m_view; }
    QList<QGraphicsItem*> objectItems() const { return m_items; }
    const QString& lastMaskFile() const { return m_maskFile; }
    QSize toolButtonSize() const { return m_toolSize; }
    void registryIO(bool write);

public slots:
    void slotToggleMask();
    void slotInvertMask();
    void slotEditMode() { setMaskEditMode(MASK_EDIT_MOVE); }
    void slotVertexMode() { setMaskEditMode(MASK_EDIT_VERTEX); }
    void slotRectangleMode() { setMaskEditMode(MASK_EDIT_RECT); }
    void slotEllipseMode();
    void slotRadiusEllipseMode();
    void slotPolygonMode();
    void slotDeleteObject() { setMaskEditMode(MASK_EDIT_DELETE); }
    void slotOpenImage();
    void slotLoadObjects();
    void slotSaveObjects();
    void slotSaveMask();
    void slotToolSizeTiny() { setToolbarOptions(QSize(16, 16), m_toolText, 0); }
    void slotToolSizeSmall() { setToolbarOptions(QSize(22, 22), m_toolText, 0); }
    void slotToolSizeMedium() { setToolbarOptions(QSize(32, 32), m_toolText, 0); }
    void slotToolSizeLarge() { setToolbarOptions(QSize(48, 48), m_toolText, 0); }
    void slotToolShowText(bool on) { setToolbarOptions(m_toolSize, on, 0); }
    void slotMousePress(QMouseEvent* event, QPointF pos);
    void slotMouseMove(QMouseEvent* event, QPointF pos);
    void slotMouseRelease(QMouseEvent* event, QPointF pos);

signals:
    void signalNewMask(QString file, int view, int slot);

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    void createActions();
    QGraphicsItem* itemAt(const QPointF& pos) const;
    void addItem(QGraphicsItem* item);
    void message(const QString& text);
    bool loadImage(const QString& file, int split);
    void setImageSize(int width, int height);

    bool m_standalone;
    QSettings* m_settings;
    QGraphicsScene* m_scene = nullptr;
    ImageView* m_view = nullptr;
    ItemEditor* m_editor = nullptr;
    MaskItem* m_maskItem = nullptr;
    Image2DItem* m_imageItem = nullptr;
    QGraphicsPolygonItem* m_drawing = nullptr;  // the polygon being drawn
    QList<QGraphicsItem*> m_items;
    Image2D* m_image = nullptr;
    Image2D* m_mask = nullptr;
    int m_cameraView = 0;
    PlotObjects m_objects;
    QString m_imageFile, m_objectsFile, m_maskFile;
    bool m_modified = false, m_inverted = false, m_pcoMode = false, m_compression = false;
    bool m_maskValid = false, m_centered = false, m_quit = false, m_toolText = false;
    int m_mode = MASK_EDIT_NONE;
    int m_vertexItem = -1, m_vertex = -1;
    QSize m_toolSize = QSize(22, 22);
    QToolBar* m_toolBar = nullptr;
    QAction* m_rectAction = nullptr;
};
