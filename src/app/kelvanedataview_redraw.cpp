// What the scenes show, when they are drawn, and the toggles that change it.
#include <QFileDialog>
#include <QGraphicsScene>
#include <QStackedWidget>

#include <algorithm>
#include <cmath>

#include "bitmap_lut.h"
#include "image2d.h"
#include "itemeditor.h"
#include "kelvanedataobject.h"
#include "kelvanedataview.h"
#include "kelvanedataview_bmpitems.h"
#include "kelvanesceneview.h"
#include "pivplotsetupdlg.h"
#include "qpiv_imagepair.h"
#include "ruleritem.h"

void KelvaneDataView::changeRecord(const std::function<void(PIVPLOT::PLOT_CFG&)>& change) {
    PIVPLOT::PLOT_CFG cfg = record();
    change(cfg);
    m_plotDlg->setRecord(cfg);
    for (KelvaneBmpItems* items : m_items) items->setPlotCfg(cfg, !isArranging());
    ++m_needsRedraw;
}

bool KelvaneDataView::isArranging() const {
    return m_lastMode == MODE_ARRANGE_PLOT;
}

// ---- redraw policy --------------------------------------------------------------

void KelvaneDataView::autoRedraw(bool force) {
    if (force) ++m_needsRedraw;
    for (KelvaneBmpItems* items : m_items)
        if (items->itemsChanged()) ++m_needsRedraw;
    redraw();
}

void KelvaneDataView::redraw() {
    if (isOnline()) {
        if (m_needsRedraw > 0) emit signalMessage(tr("online processing - redraw delayed!"));
        return;
    }
    if (m_needsRedraw <= 0) return;
    updateSceneItems();
    for (QGraphicsScene* scene : m_scene) scene->update();
    ++m_sceneUpdates;
    m_needsRedraw = 0;
    for (KelvaneBmpItems* items : m_items) items->setFlagItemsChanged(false);
}

void KelvaneDataView::updateSceneItems() {
    if (isOnline()) {
        emit signalMessage(tr("online processing - redraw delayed!"));
        return;
    }
    ++m_sceneItemUpdates;
    using I = KelvaneBmpItems;
    const KelvaneDataObject* o = m_dataObject;
    const PIVPLOT::PLOT_CFG& c = record();
    const KelvaneMode mode = o->kelvaneMode();
    const bool data = o->haveData(-1);
    const bool fileData = data && o->isFileData(-1);
    const bool intermediate = data && o->isIntermediateData(-1);
    const bool image = o->haveImage(0) && !fileData;
    const PIV_Image2D* a = o->image(0)->imgA();
    const bool mask = a->isMaskAvailable() && !a->imageMask()->isNull();
    const bool ptv = o->havePTVdata(-1);

    // Image, vectors and contours by the record; a running
    // evaluation's field shows as vectors alone.
    const bool showImage = image && (c.image.Show || !data);
    bool vectors = c.vector.Show && data;
    bool contours = c.contour.Show && data && !intermediate;
    bool tracks = ptv && m_showPTV && !intermediate;
    if (intermediate) vectors = true;
    // A field always shows something.
    if (data && !vectors && !contours) {
        if (ptv)
            tracks = true;
        else
            vectors = true;
    }
    if (m_dataTooSmall) vectors = contours = false;
    bool shown[I::ITEM_COUNT] = {};
    shown[I::ITEM_IMAGE] = showImage;
    shown[I::ITEM_VECTORS] = vectors;
    shown[I::ITEM_CONTOURS] = contours;
    shown[I::ITEM_TRACKS] = tracks;
    // The mask matters under what is drawn from the field; probed vectors
    // belong to a live image.
    shown[I::ITEM_MASK] = mask && (vectors || contours || tracks);
    shown[I::ITEM_RANDOM_VECTORS] = showImage && !fileData;
    // Colour bars by the record and what they stand for.
    shown[I::ITEM_IMAGE_LUT] = c.image.lut.Show && showImage;
    shown[I::ITEM_VECTOR_LUT] = c.vector.lut.Show && (vectors || tracks);
    shown[I::ITEM_CONTOUR_LUT] = c.contour.lut.Show && contours;
    shown[I::ITEM_REF_VECTOR] = c.refVector.Show && (vectors || tracks);
    shown[I::ITEM_AXES] = c.xAxis.Show || c.yAxis.Show;
    shown[I::ITEM_TITLE] = c.title.Show;
    shown[I::ITEM_SUBTITLE] = c.subTitle.Show;
    shown[I::ITEM_LOGO] = c.logo.Show;
    shown[I::ITEM_BACKGROUND] = c.background.Show;
    shown[I::ITEM_OVERLAY] = c.overlay.Show;
    shown[I::ITEM_REF_POINT] = c.ShowOrigin;
    if (mode == MODE_ARRANGE_PLOT)
        for (I::Item i : {I::ITEM_IMAGE_LUT, I::ITEM_VECTOR_LUT, I::ITEM_CONTOUR_LUT,
                          I::ITEM_VECTORS, I::ITEM_REF_VECTOR})
            shown[i] = true;
    // Calibration and region of interest work on the bare image.
    bool ruler = false;
    if (mode <= MODE_ROI_EDIT) {
        shown[I::ITEM_IMAGE] = image;
        shown[I::ITEM_REF_POINT] = true;
        for (I::Item i : {I::ITEM_VECTORS, I::ITEM_CONTOURS, I::ITEM_TRACKS, I::ITEM_VECTOR_LUT,
                          I::ITEM_CONTOUR_LUT, I::ITEM_REF_VECTOR, I::ITEM_MASK})
            shown[i] = false;
        ruler = mode <= MODE_CALIBRATION && !o->isStereoMode();
    }

    m_sceneStack->setCurrentWidget(m_view[m_currentScene]);
    // Only items whose state changes are touched: hiding and showing every
    // item again would have each scene repaint all of them.
    for (int s = 0; s < kSceneCount; ++s) m_scene[s]->setBackgroundBrush(QColor::fromRgba(c.colors.Bkgd));
    m_ruler->setVisible(ruler);
    bool resized = false;
    for (int s = 0; s < kSceneCount; ++s) {
        for (int i = 0; i < I::ITEM_COUNT; ++i) m_items[s]->show(I::Item(i), shown[i]);
        resized |= m_items[s]->updateBoundingRect();
    }
    // The region of interest may reach past the image; it must stay reachable.
    if (m_roi->isVisible() && !m_scene[0]->sceneRect().contains(m_roi->sceneBoundingRect())) {
        m_scene[0]->setSceneRect(m_scene[0]->sceneRect() | m_roi->sceneBoundingRect());
        resized = true;
    }
    if (resized) ++m_needsRedraw;
}

void KelvaneDataView::slotRedrawAll() {
    ++m_needsRedraw;
    updateAnnotations();
    redraw();
}

// ---- what is shown ------------------------------------------------------------------

void KelvaneDataView::setVectorsVisible(bool on) {
    changeRecord([on](PIVPLOT::PLOT_CFG& c) { c.vector.Show = on; });
}

void KelvaneDataView::setImageVisible(bool on) {
    changeRecord([on](PIVPLOT::PLOT_CFG& c) { c.image.Show = on; });
}

void KelvaneDataView::setPTVmapVisible(bool on) {
    m_showPTV = on;
    ++m_needsRedraw;
}

void KelvaneDataView::slotShowVectors() {
    setVectorsVisible(!record().vector.Show);
}

void KelvaneDataView::slotShowContours() {
    changeRecord([](PIVPLOT::PLOT_CFG& c) { c.contour.Show = !c.contour.Show; });
}

void KelvaneDataView::slotShowAxis() {
    const bool on = !isAxisVisible();
    changeRecord([on](PIVPLOT::PLOT_CFG& c) { c.xAxis.Show = c.yAxis.Show = on; });
}

void KelvaneDataView::slotShowImage() {
    setImageVisible(!record().image.Show);
}

void KelvaneDataView::slotImageShowLUT() {
    changeRecord([](PIVPLOT::PLOT_CFG& c) { c.image.lut.Show = !c.image.lut.Show; });
}

void KelvaneDataView::slotSubtractMeanVector() {
    changeRecord(
        [](PIVPLOT::PLOT_CFG& c) { c.vector.OffsetType = c.vector.OffsetType == 1 ? 0 : 1; });
}

void KelvaneDataView::slotShowFilteredData() {
    const bool result = m_currentScene != 3 && m_dataObject->haveData(3);
    slotSetCurrentScene(result ? 3 : 0);
    emit signalSetCurrentScene(result ? 3 : 0);
}

bool KelvaneDataView::isVectorMapVisible() const {
    return m_items[m_currentScene]->isShown(KelvaneBmpItems::ITEM_VECTORS);
}

bool KelvaneDataView::isContourMapVisible() const {
    return m_items[m_currentScene]->isShown(KelvaneBmpItems::ITEM_CONTOURS);
}

bool KelvaneDataView::isAxisVisible() const {
    return record().xAxis.Show || record().yAxis.Show;
}

bool KelvaneDataView::isImageVisible() const {
    return m_items[m_currentScene]->isShown(KelvaneBmpItems::ITEM_IMAGE);
}

bool KelvaneDataView::isImageLUTVisible() const {
    return record().image.lut.Show;
}

bool KelvaneDataView::isImageLUTReversed() const {
    return record().image.lut.Reversed;
}

bool KelvaneDataView::isMeanVectorSubtracted() const {
    return record().vector.OffsetType == 1;
}

// ---- the image's intensity and colours --------------------------------------------

void KelvaneDataView::emitDisplayParams() {
    const PIVPLOT::LUT_CFG& l = record().image.lut;
    BMP_DISPLAY_PARAMS p;
    p.MinValue = l.ValueMin;
    p.MaxValue = l.ValueMax;
    p.LUTIndex = l.Index;
    p.Reversed = l.Reversed;
    p.Clip = !l.Wrap;
    emit signalNewDisplayParams(p);
}

void KelvaneDataView::slotAutoScale() {
    QPIV_ImagePair* pair = m_dataObject->image(0);
    if (pair->isNull()) return;
    Image2D* frames[2] = {pair->imgA(), pair->isImagePair() ? pair->imgB() : pair->imgA()};
    double mean = 0, sigma = 0, high = 0, low = 0;
    for (int f = 0; f < 2; ++f) {
        Image2D* im = frames[f];
        im->doStatistics(true);
        const double m = im->mean(), s = std::sqrt(std::max(0.0, im->variance()));
        mean = f ? std::max(mean, m) : m;
        sigma = f ? std::max(sigma, s) : s;
        high = f ? std::max(high, im->maximum()) : im->maximum();
        low = f ? std::min(low, im->minimum()) : im->minimum();
    }
    double top = std::min(mean + 2 * sigma, high);
    double bottom = std::min(0.0, low);
    if (top > 1) {
        double x = 1;
        while (x < top) x *= 2;
        if (x > 2) {
            top = x - 1;
            bottom = 0;
        }
    }
    setImageRange(bottom, top);
}

void KelvaneDataView::setImageRange(double bottom, double top) {
    changeRecord([bottom, top](PIVPLOT::PLOT_CFG& c) {
        c.image.lut.ValueMin = bottom;
        c.image.lut.ValueMax = top;
    });
    emitDisplayParams();
    slotRedrawAll();
}

void KelvaneDataView::slotBrighter() {
    m_items[0]->brighter();
    setImageRange(m_items[0]->intensityBottom(), m_items[0]->intensityTop());
}

void KelvaneDataView::slotDarker() {
    m_items[0]->darker();
    setImageRange(m_items[0]->intensityBottom(), m_items[0]->intensityTop());
}

void KelvaneDataView::slotChangeLUT() {
    // The user's table has no successor; the list starts over.
    changeRecord([](PIVPLOT::PLOT_CFG& c) {
        c.image.lut.Index = (c.image.lut.Index + 1) % LUT_USER_DEFINED;
    });
    emitDisplayParams();
    slotRedrawAll();
}

void KelvaneDataView::slotPreviousLUT() {
    changeRecord([](PIVPLOT::PLOT_CFG& c) {
        c.image.lut.Index = (c.image.lut.Index + LUT_USER_DEFINED - 1) % LUT_USER_DEFINED;
    });
    emitDisplayParams();
    slotRedrawAll();
}

void KelvaneDataView::slotReverseLUT() {
    changeRecord([](PIVPLOT::PLOT_CFG& c) { c.image.lut.Reversed = !c.image.lut.Reversed; });
    emitDisplayParams();
    slotRedrawAll();
}

void KelvaneDataView::slotClipLUT() {
    changeRecord([](PIVPLOT::PLOT_CFG& c) { c.image.lut.Wrap = !c.image.lut.Wrap; });
    for (KelvaneBmpItems* items : m_items) items->setClipping(!record().image.lut.Wrap);
    emitDisplayParams();
    slotRedrawAll();
}

void KelvaneDataView::slotLoadUserLUT() {
    const QString file =
        QFileDialog::getOpenFileName(m_parent, tr("Load Look-Up Table"), m_userLUTFile);
    if (!file.isEmpty()) loadUserLUT(file);
}

bool KelvaneDataView::loadUserLUT(const QString& file) {
    BitmapLUT lut;
    if (!lut.load(QFile::encodeName(file).constData())) {
        emit signalMessage(tr("Failed loading color table: %1").arg(file));
        return false;
    }
    m_userLUTFile = file;
    for (KelvaneBmpItems* items : m_items) items->setUserLUT(lut);
    changeRecord([](PIVPLOT::PLOT_CFG& c) { c.image.lut.Index = LUT_USER_DEFINED; });
    slotRedrawAll();
    return true;
}

// ---- the pair's frames ---------------------------------------------------------------

void KelvaneDataView::slotToggleImagePair() {
    if (haveFileData() || !m_dataObject->isImagePair()) return;
    m_toggleState = true;
    m_frame = 1 - m_frame;
    for (KelvaneBmpItems* items : m_items) {
        items->setImageToggleMode(true);
        items->showImageFrame(m_frame);
    }
    ++m_needsRedraw;
}

void KelvaneDataView::slotOverlapImagePair() {
    m_toggleState = false;
    for (KelvaneBmpItems* items : m_items) items->setImageToggleMode(false);
    ++m_needsRedraw;
}

void KelvaneDataView::slotSetImageStacking(int order) {
    changeRecord([order](PIVPLOT::PLOT_CFG& c) { c.StackingOrder = order; });
    for (KelvaneBmpItems* items : m_items) items->setImageStacking(order);
}

// ---- plot arrangement ------------------------------------------------------------------

void KelvaneDataView::copyObjectPositions() {
    PIVPLOT::PLOT_CFG cfg = record();
    m_items[m_currentScene]->updateObjectPositions(cfg);
    m_plotDlg->setRecord(cfg);
    for (KelvaneBmpItems* items : m_items) items->setPlotCfg(cfg, true);
}

void KelvaneDataView::slotResetObjects() {
    for (KelvaneBmpItems* items : m_items) items->resetObjectPositions();
    m_plotDlg->setRecord(m_items[0]->currentPlotCfg());
    slotRedrawAll();
}

void KelvaneDataView::updateKelvaneMode() {
    const KelvaneMode mode = m_dataObject->kelvaneMode();
    if (m_lastMode > MODE_DATA && mode != m_lastMode) copyObjectPositions();
    for (int i = 0; i < kSceneCount; ++i) {
        m_items[i]->setKelvaneMode(mode, m_dataObject->isStereoMode());
        m_view[i]->setKelvaneMode(mode);
        if (mode != m_lastMode) m_editor[i]->releaseItem();
    }
    m_roi->setVisible(mode == MODE_ROI_EDIT);
    if (mode == MODE_ROI_EDIT) m_editor[0]->selectItem(m_roi);
    m_lastMode = mode;
    ++m_needsRedraw;
}

void KelvaneDataView::slotShowPlotDialog() {
    m_plotDlg->setRecord(record());
    m_plotDlg->show();
    m_plotDlg->raise();
}

void KelvaneDataView::slotPlotConfigSave() {
    const QString file =
        QFileDialog::getSaveFileName(m_parent, tr("Save plot configuration"), m_configFile);
    if (file.isEmpty()) return;
    if (!m_plotDlg->savePlotFile(file)) {
        emit signalMessage(tr("Failed saving plot configuration: %1").arg(file));
        return;
    }
    m_configFile = file;
}

void KelvaneDataView::slotPlotConfigLoad() {
    const QString file =
        QFileDialog::getOpenFileName(m_parent, tr("Load plot configuration"), m_configFile);
    if (!file.isEmpty()) loadPlotConfig(file);
}

bool KelvaneDataView::loadPlotConfig(const QString& file) {
    const PIVPLOT::PLOT_CFG before = record();
    if (!m_plotDlg->loadPlotFile(file)) {
        emit signalMessage(tr("Failed loading plot configuration: %1").arg(file));
        return false;
    }
    m_configFile = file;
    m_plotDlg->slotApply();
    if (PIV::SameRecord(before, record())) return true;
    slotRedrawAll();
    return true;
}
