// KelvaneDataView: the controller of what is drawn. It owns four scenes, one
// per data slot, each with its view and item set, keeps the plot record in
// the plot dialog and turns the user's toggles and the mouse into item
// changes. Drawing is deferred: changes count in needsRedraw and the
// window's timer (autoRedraw) or slotRedrawAll draws them.
#pragma once

#include <QList>
#include <QMouseEvent>
#include <QObject>
#include <QPointF>
#include <QPolygonF>
#include <QRect>
#include <QString>

#include <functional>

#include "kelvanestate.h"
#include "mysettings.h"
#include "piv_plot.h"
#include "piv_types.h"

class ItemEditor;
class MeasureDlg;
class PlotObjects;
class QGraphicsItem;
class QGraphicsPathItem;
class KelvaneBmpItems;
class KelvaneDataObject;
class KelvaneSceneView;
class PIVPlotSetupDlg;
class QComboBox;
class QGraphicsRectItem;
class QGraphicsScene;
class QMouseEvent;
class QPrinter;
class QStackedWidget;
class QWidget;
class RulerItem;
class XYPlotWindow;

// The intensity range and table of the image, as the image dialogs take it.
struct BMP_DISPLAY_PARAMS {
    double MinValue, MaxValue;
    int32_t LUTIndex;
    bool Reversed;
    bool Clip;

    BMP_DISPLAY_PARAMS() { PIV::ZeroRecord(*this); }
};

class KelvaneDataView : public QObject {
    Q_OBJECT
public:
    static constexpr int kSceneCount = 4;

    KelvaneDataView(QWidget* parent, QPrinter* printer, KelvaneDataObject* dataObject,
                    MySettings* settings, QStackedWidget* sceneStack);
    ~KelvaneDataView() override;

    // ---- redraw policy ----------------------------------------------------
    // From the window's timer: counts what the items report, then redraw().
    void autoRedraw(bool force);
    // Acts only when something counted: updateSceneItems, then the scenes.
    void redraw();
    void updateSceneItems();
    int needsRedraw() const { return m_needsRedraw; }
    // How often updateSceneItems and a scene update ran: for the bench and
    // for checking that changes wait for the timer.
    int sceneItemUpdates() const { return m_sceneItemUpdates; }
    int sceneUpdates() const { return m_sceneUpdates; }

    void updateKelvaneMode();
    void copyObjectPositions();
    void updateAnnotations();
    void setDataSize(const QSize& size);
    void closeDialogs();
    void registryIO(MySettings::AccessMode mode);

    // ---- output -----------------------------------------------------------
    // The whole scene at the current zoom: a PNG-like bitmap of the scene
    // rectangle times the zoom, or with vectorFormat a PDF ("PDF") or
    // PostScript page of the scene rectangle. False with a message if the
    // file cannot be written.
    bool exportPlot(const QString& file, const QString& format, bool vectorFormat);
    // The visible part of the current view only.
    bool exportCurrentView(const QString& file, const QString& format, bool vectorFormat);
    void print();

    QWidget* createZoomWidget();
    void setVectorsVisible(bool on);
    void setImageVisible(bool on);
    void setPTVmapVisible(bool on);

    bool isVectorMapVisible() const;
    bool isContourMapVisible() const;
    bool isAxisVisible() const;
    bool isImageVisible() const;
    bool isImageLUTVisible() const;
    bool isImageLUTReversed() const;
    bool isMeanVectorSubtracted() const;
    bool canZoomIn() const { return m_zoomIndex < 17; }
    bool canZoomOut() const { return m_zoomIndex > 0; }
    int currentViewIndex() const { return m_currentScene; }
    double currentZoomFactor() const;
    int zoomIndex() const { return m_zoomIndex; }
    PIVPlotSetupDlg* plotDlg() const { return m_plotDlg; }
    QPrinter* printer() const { return m_printer; }

    QGraphicsScene* scene(int i) const { return m_scene[i]; }
    KelvaneSceneView* view(int i) const { return m_view[i]; }
    KelvaneBmpItems* items(int i) const { return m_items[i]; }
    RulerItem* ruler() const { return m_ruler; }
    QGraphicsRectItem* roiItem() const { return m_roi; }
    ItemEditor* itemEditor(int i) const { return m_editor[i]; }
    int imageFrame() const { return m_frame; }
    // Null until first shown.
    XYPlotWindow* profile(int axis) const { return m_profile[axis]; }
    bool isProfileVisible(int axis) const;

    // ---- measuring objects of the current scene (kelvanedataview_measure.cpp)
    void measureObjectsAdd(const PlotObjects& objects);
    PlotObjects measureObjectsCurrentList() const;
    QGraphicsItem* getMeasureObjectAt(const QPointF& point) const;
    QList<QGraphicsItem*> measureItems() const { return m_measure[m_currentScene]; }
    // Null until first measured.
    MeasureDlg* measureDlg() const { return m_measureDlg; }

public slots:
    void slotMeasureObjectsUpdate();
    void slotMeasureObjectsSave();
    void slotMeasureObjectsLoad();
    void slotMeasureObjectsDeleteAll();
    void slotSetCurrentScene(int scene);
    void slotUpdateImage(int view);
    void slotUpdateData(int view);
    void slotRedrawAll();
    void slotApplyPlotSettings();
    void slotUpdatePivParameters();
    void slotUpdateOrigin();
    void slotShowMask(int view, bool show);
    void slotAddRandomVector(PIV_VECTOR vector, int view);
    void slotClearRandomVectors();
    void slotMousePressEvent(QMouseEvent* event, QPointF point);
    void slotMouseMoveEvent(QMouseEvent* event, QPointF point);
    void slotMouseReleaseEvent(QMouseEvent* event, QPointF point);
    void slotSetZoom(int index);
    void slotZoomIn() { slotSetZoom(m_zoomIndex + 1); }
    void slotZoomOut() { slotSetZoom(m_zoomIndex - 1); }
    void slotSetImageStacking(int order);
    // Horizontal (0) and vertical (1) profiles of the frames under the pointer.
    void slotImageProfileX(bool show) { showProfile(0, show); }
    void slotImageProfileY(bool show) { showProfile(1, show); }
    void slotBackgroundAlign();
    void slotOverlayAlign();

    void slotShowFilteredData();
    void slotCenterOrigin();
    void slotResetRuler();
    void slotAutoScale();
    void slotChangeLUT();
    void slotPreviousLUT();
    void slotClipLUT();
    void slotReverseLUT();
    void slotImageShowLUT();
    void slotLoadUserLUT();
    bool loadUserLUT(const QString& file);
    void slotBrighter();
    void slotDarker();
    void slotShowImage();
    void slotToggleImagePair();
    void slotOverlapImagePair();
    void slotShowPlotDialog();
    void slotShowVectors();
    void slotShowContours();
    void slotShowAxis();
    void slotSubtractMeanVector();
    void slotResetObjects();
    void slotPlotConfigSave();
    void slotPlotConfigLoad();
    bool loadPlotConfig(const QString& file);
    // From a batch: "PDF" or "PS" in the format asks for vector output.
    void slotBatchExportPlot(const QString& file, int scene, const QString& format, bool hideImage);

signals:
    void signalSetCurrentScene(int scene);
    void signalUpdateUI();
    void signalMessage(QString text);
    void signalLogMessage(QString text);
    void signalFileDropEvent(QString path);
    void signalMousePressAt(QMouseEvent* event, QPointF point, bool inImage);
    void signalMouseMoveAt(QMouseEvent* event, QPointF point, bool inImage);
    void signalNewDisplayParams(BMP_DISPLAY_PARAMS params);
    void signalNewReferencePoint(QPointF point);
    void signalNewRulerLength(double length);
    void signalNewROI(QRect rect);
    void signalUpdateColors(PIVPLOT::COLOR_CFG colors);

protected:
    void connectNotify(const QMetaMethod& signal) override;

private:
    void createScene(int i);
    // The record with `change` applied, stored in the dialog, one redraw more.
    void changeRecord(const std::function<void(PIVPLOT::PLOT_CFG&)>& change);
    const PIVPLOT::PLOT_CFG& record() const;
    bool isOnline() const;
    bool isArranging() const;
    bool haveFileData() const;
    void emitDisplayParams();
    // The image table's range becomes the plot record's, then all is redrawn.
    void setImageRange(double bottom, double top);
    void showProfile(int axis, bool show);
    // Background or overlay image, from its file, over the data rectangle.
    void alignImage(int which, const char* file);
    void updateProfiles(const QPointF& point);
    // The mouse in the measuring modes: drawing, choosing, deleting.
    void measurePress(QMouseEvent* event, const QPointF& point);
    // A vertex taken by a press in the adjust mode follows the pointer.
    void measureMove(const QPointF& point);
    void measureRelease(QMouseEvent* event, const QPointF& point);
    void addMeasureItem(QGraphicsItem* item);
    // Renders the scene rectangle of the current scene on a white ground.
    bool renderTo(const QString& file, const QString& format, bool vectorFormat, bool wholeScene);

    QWidget* m_parent;
    QPrinter* m_printer;
    bool m_ownPrinter = false;
    KelvaneDataObject* m_dataObject;
    int m_currentScene = 0;
    int m_needsRedraw = 0;
    bool m_autoScaleOnLoad = false;
    bool m_relativePaths = false;
    bool m_showGrid = false;
    bool m_toggleState = false;
    QGraphicsScene* m_scene[kSceneCount] = {};
    KelvaneSceneView* m_view[kSceneCount] = {};
    KelvaneBmpItems* m_items[kSceneCount] = {};
    bool m_haveView[kSceneCount] = {};
    QStackedWidget* m_sceneStack;
    MySettings* m_settings;
    PIVPlotSetupDlg* m_plotDlg;
    int m_zoomIndex;
    QComboBox* m_zoomCombo = nullptr;
    RulerItem* m_ruler;
    ItemEditor* m_editor[kSceneCount] = {};
    QGraphicsRectItem* m_roi;
    QString m_userLUTFile;
    QString m_configFile;
    XYPlotWindow* m_profile[2] = {};
    QList<QGraphicsItem*> m_measure[kSceneCount];
    QPolygonF m_measurePoints;  // the polygon or polyline being drawn
    QGraphicsPathItem* m_measureDraft = nullptr;
    MeasureDlg* m_measureDlg = nullptr;
    QGraphicsItem* m_vertexItem = nullptr;  // the object whose vertex m_vertex is dragged
    int m_vertex = -1;

    int m_frame = 0;
    bool m_showPTV = true;
    bool m_dropsForwarded = false;
    bool m_dataTooSmall = false;
    KelvaneMode m_lastMode = MODE_DATA;
    QPointF m_lastPointer;
    int m_sceneItemUpdates = 0;
    int m_sceneUpdates = 0;
};
