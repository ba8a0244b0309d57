#include "maskedit.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QFileDialog>
#include <QFileInfo>
#include <QGraphicsScene>
#include <QMenuBar>
#include <QMessageBox>
#include <QPushButton>
#include <QSettings>
#include <QStatusBar>
#include <QToolBar>

#include "image2d.h"
#include "image2ditem.h"
#include "imageview.h"
#include "itemeditor.h"
#include "maskitem.h"
#include "piv_messages.h"

MaskEdit::MaskEdit(bool standalone, QSettings* settings, QWidget* parent, Qt::WindowFlags flags)
    : QMainWindow(parent, flags), m_standalone(standalone), m_settings(settings) {
    m_image = new Image2D;
    m_mask = new Image2D;
    m_scene = new QGraphicsScene(0, 0, 512, 512, this);
    m_scene->setItemIndexMethod(QGraphicsScene::NoIndex);
    m_view = new ImageView(m_scene, this);
    setCentralWidget(m_view);
    m_imageItem = new Image2DItem;
    m_imageItem->setZValue(0);
    m_scene->addItem(m_imageItem);
    m_maskItem = new MaskItem;
    m_maskItem->setZValue(10);
    m_maskItem->setMaskColor(Qt::white);
    m_maskItem->setMaskOpacity(1.0);
    m_maskItem->hide();
    m_scene->addItem(m_maskItem);
    m_editor = new ItemEditor(-1, -65536);
    m_editor->setZValue(500);
    m_editor->hide();
    m_scene->addItem(m_editor);
    connect(m_view, &ImageView::signalMousePressEvent, this, &MaskEdit::slotMousePress);
    connect(m_view, &ImageView::signalMouseMoveEvent, this, &MaskEdit::slotMouseMove);
    connect(m_view, &ImageView::signalMouseReleaseEvent, this, &MaskEdit::slotMouseRelease);
    createActions();
    registryIO(false);
    updateCaption();
}

MaskEdit::~MaskEdit() {
    // The items hold references to the images; they go first.
    m_imageItem->updateImage2D(nullptr);
    m_maskItem->updateImage2D(nullptr);
    m_image->release();
    m_mask->release();
}

void MaskEdit::createActions() {
    QMenu* file = menuBar()->addMenu(tr("&File"));
    file->addAction(tr("Open image..."), this, &MaskEdit::slotOpenImage);
    file->addAction(tr("Load mask objects..."), this, &MaskEdit::slotLoadObjects);
    file->addAction(tr("Save mask objects..."), this, &MaskEdit::slotSaveObjects);
    file->addAction(tr("Save mask image..."), this, &MaskEdit::slotSaveMask);
    file->addSeparator();
    file->addAction(m_standalone ? tr("&Quit") : tr("&Close"), this, &QWidget::close);

    m_toolBar = addToolBar(tr("Tools"));
    QMenu* edit = menuBar()->addMenu(tr("&Edit"));
    auto add = [&](const QString& text, void (MaskEdit::*slot)()) {
        QAction* a = m_toolBar->addAction(text, this, slot);
        edit->addAction(a);
        return a;
    };
    add(tr("Show mask"), &MaskEdit::slotToggleMask);
    add(tr("Invert mask"), &MaskEdit::slotInvertMask);
    add(tr("Edit objects"), &MaskEdit::slotEditMode);
    m_rectAction = add(tr("Add rectangle"), &MaskEdit::slotRectangleMode);
    add(tr("Add ellipse"), &MaskEdit::slotEllipseMode);
    add(tr("Add centered ellipse"), &MaskEdit::slotRadiusEllipseMode);
    add(tr("Add polygon"), &MaskEdit::slotPolygonMode);
    add(tr("Adjust vertices"), &MaskEdit::slotVertexMode);
    add(tr("Delete object"), &MaskEdit::slotDeleteObject);
    edit->addAction(tr("Delete all objects"), this, [this] { deleteAllObjects(true); });

    QMenu* tools = menuBar()->addMenu(tr("&Tool bar"));
    tools->addAction(tr("Tiny"), this, &MaskEdit::slotToolSizeTiny);
    tools->addAction(tr("Small"), this, &MaskEdit::slotToolSizeSmall);
    tools->addAction(tr("Medium"), this, &MaskEdit::slotToolSizeMedium);
    tools->addAction(tr("Large"), this, &MaskEdit::slotToolSizeLarge);
    QAction* text = tools->addAction(tr("Show text"));
    text->setCheckable(true);
    connect(text, &QAction::toggled, this, &MaskEdit::slotToolShowText);
}

void MaskEdit::message(const QString& text) {
    statusBar()->showMessage(text);
    ShowStatus("%s\n", text.toLocal8Bit().constData());
}

void MaskEdit::updateCaption() {
    QString caption = QStringLiteral("MaskEdit");
    if (!m_imageFile.isEmpty())
        caption += QStringLiteral(" - ") + QFileInfo(m_imageFile).fileName();
    if (m_modified) caption += QStringLiteral(" *");
    setWindowTitle(caption);
}

void MaskEdit::setToolbarOptions(QSize iconSize, bool showText, int style) {
    m_toolSize = iconSize;
    m_toolText = showText;
    m_toolBar->setIconSize(iconSize);
    if (style == 0)
        m_toolBar->setToolButtonStyle(showText ? Qt::ToolButtonTextUnderIcon
                                               : Qt::ToolButtonIconOnly);
    else
        m_toolBar->setToolButtonStyle(static_cast<Qt::ToolButtonStyle>(style));
}

void MaskEdit::enableFeedBackSignals(QWidget* receiver) {
    m_standalone = receiver == nullptr;
}

// The PCO flag is written under one spelling and read under another, so a
// restart always begins with the default (false); older files keep working.
void MaskEdit::registryIO(bool write) {
    if (!m_settings) return;
    if (write) {
        m_settings->setValue("/MaskEdit/Size", size());
        m_settings->setValue("/MaskEdit/Pos", pos());
        m_settings->setValue("/MaskEdit/MaskObjects", m_objectsFile);
        m_settings->setValue("/MaskEdit/ImageFile", m_imageFile);
        m_settings->setValue("/MaskEdit/ToolButtonSize", m_toolSize);
        m_settings->setValue("/MaskEdit/PCOmode", m_pcoMode);
        return;
    }
    resize(m_settings->value("/MaskEdit/Size", QSize(800, 600)).toSize());
    move(m_settings->value("/MaskEdit/Pos", pos()).toPoint());
    m_objectsFile = m_settings->value("/MaskEdit/MaskObjects", m_objectsFile).toString();
    m_imageFile = m_settings->value("/MaskEdit/ImageFile", m_imageFile).toString();
    const QSize tool = m_settings->value("/MaskEdit/ToolButtonSize", m_toolSize).toSize();
    setToolbarOptions(tool.isValid() ? tool : m_toolSize, m_toolText, 0);
    m_pcoMode = m_settings->value("/MaskEdit/PCOMode", false).toBool();
}

void MaskEdit::setMaskEditMode(int mode) {
    if (mode < MASK_EDIT_NONE || mode > MASK_EDIT_DELETE) return;
    m_editor->releaseItem();
    m_editor->hide();
    if (m_drawing && mode != MASK_EDIT_POLYGON) {
        delete m_drawing;
        m_drawing = nullptr;
    }
    m_mode = mode;
    if (mode > MASK_EDIT_SHOW) {
        m_maskItem->hide();
        showAllObjects(true);
    }
    static const ImageView::ImageViewMode viewModes[] = {
        ImageView::VIEW_PLAIN, ImageView::VIEW_PLAIN,     ImageView::VIEW_PLAIN,
        ImageView::VIEW_PLAIN, ImageView::VIEW_RECTANGLE, ImageView::VIEW_ELLIPSE,
        ImageView::VIEW_PLAIN, ImageView::VIEW_PLAIN};
    m_view->setEditMode(m_centered && mode == MASK_EDIT_ELLIPSE ? ImageView::VIEW_LINE
                                                                : viewModes[mode]);
    static const Qt::CursorShape cursors[] = {
        Qt::ArrowCursor, Qt::ArrowCursor, Qt::SizeAllCursor, Qt::PointingHandCursor,
        Qt::CrossCursor, Qt::CrossCursor, Qt::CrossCursor,   Qt::ForbiddenCursor};
    m_view->viewport()->setCursor(cursors[mode]);
    if (mode == MASK_EDIT_POLYGON)
        statusBar()->showMessage(tr("Left mouse button to add vertices, right button to finish"));
    else
        statusBar()->clearMessage();
}

void MaskEdit::slotEllipseMode() {
    m_centered = false;
    setMaskEditMode(MASK_EDIT_ELLIPSE);
}

void MaskEdit::slotRadiusEllipseMode() {
    m_centered = true;
    setMaskEditMode(MASK_EDIT_ELLIPSE);
}

void MaskEdit::slotPolygonMode() {
    setMaskEditMode(MASK_EDIT_POLYGON);
}

void MaskEdit::slotToggleMask() {
    if (m_maskItem->isVisible()) {
        setMaskEditMode(MASK_EDIT_MOVE);
        return;
    }
    if (!m_maskValid && !createMask()) return;
    setMaskEditMode(MASK_EDIT_SHOW);
    showAllObjects(false);
    m_maskItem->updateImage2D(m_mask);
    m_maskItem->show();
}

void MaskEdit::slotInvertMask() {
    m_inverted = !m_inverted;
    m_maskValid = false;
    if (createMask()) {
        setMaskEditMode(MASK_EDIT_SHOW);
        showAllObjects(false);
        m_maskItem->updateImage2D(m_mask);
        m_maskItem->show();
    }
}

// ---- images --------------------------------------------------------------------

void MaskEdit::setImageSize(int width, int height) {
    m_scene->setSceneRect(0, 0, width, height);
    m_maskValid = false;
}

bool MaskEdit::loadImage(const QString& file, int split) {
    if (QFileInfo(file).isDir()) {
        message(QString::asprintf("MaskEdit::loadImage() - '%s' is not a file",
                                  file.toLocal8Bit().constData()));
        return false;
    }
    auto* image =
        split ? new Image2D(file.toLocal8Bit().constData(), static_cast<PCO_SplitMode>(split))
              : new Image2D;
    const bool ok = split ? !image->isNull() : image->load(file.toLocal8Bit().constData());
    if (!ok) {
        image->release();
        message(tr("Failed loading image: ") + file);
        return false;
    }
    updateImagePair(image, nullptr);
    image->release();
    m_imageFile = file;
    updateCaption();
    return true;
}

bool MaskEdit::loadImagePair(const QString& a, const QString&, bool pcoMode) {
    m_pcoMode = pcoMode;
    return loadImage(a, pcoMode ? PCO_SPLIT_FIRST : PCO_SPLIT_NONE);
}

void MaskEdit::updateImagePair(Image2D* a, Image2D*) {
    if (!a || a->isNull()) return;
    if (!m_image->copy(*a)) return;
    m_imageItem->updateImage2D(m_image);
    setImageSize(static_cast<int>(m_image->width()), static_cast<int>(m_image->height()));
}

bool MaskEdit::loadFile(const QString& file) {
    if (file.endsWith(QLatin1String(".msk"), Qt::CaseInsensitive)) return loadMaskObjects(file);
    return loadImage(file, m_pcoMode ? PCO_SPLIT_FIRST : PCO_SPLIT_NONE);
}

void MaskEdit::slotOpenImage() {
    const QString file = QFileDialog::getOpenFileName(this, tr("Open image"), m_imageFile);
    if (!file.isEmpty()) loadFile(file);
}

void MaskEdit::slotLoadObjects() {
    const QString file = QFileDialog::getOpenFileName(this, tr("Load mask objects"), m_objectsFile,
                                                      tr("Mask objects (*.msk);;All files (*.*)"));
    if (!file.isEmpty()) loadMaskObjects(file);
}

void MaskEdit::slotSaveObjects() {
    const QString file = QFileDialog::getSaveFileName(this, tr("Save mask objects"), m_objectsFile,
                                                      tr("Mask objects (*.msk);;All files (*.*)"));
    if (!file.isEmpty()) saveMaskObjects(file);
}

// ---- closing -------------------------------------------------------------------

void MaskEdit::closeEvent(QCloseEvent* event) {
    if (m_modified) {
        QMessageBox box(QMessageBox::Question, QStringLiteral("MaskEdit"),
                        tr("Do you want to quit MaskEdit\nThere is unsaved mask data!"),
                        QMessageBox::NoButton, this);
        QPushButton* save = box.addButton(tr("&Save changes"), QMessageBox::AcceptRole);
        QPushButton* discard = box.addButton(tr("&Discard changes"), QMessageBox::DestructiveRole);
        QPushButton* cancel = box.addButton(tr("Cancel"), QMessageBox::RejectRole);
        box.setEscapeButton(cancel);
        box.exec();
        if (box.clickedButton() == save) {
            slotSaveMask();
            if (m_modified) {
                event->ignore();
                return;
            }
        } else if (box.clickedButton() == discard) {
            deleteAllObjects(false);
        } else {
            event->ignore();
            return;
        }
    }
    registryIO(true);
    event->accept();
}
