#include "kelvanedataview_bmpitems.h"

#include <QFont>
#include <QGraphicsRectItem>
#include <QGraphicsScene>
#include <QPen>

#include <cstring>
#include <tuple>

#include "axisitem.h"
#include "image2d.h"
#include "image2ditem.h"
#include "imagepairitem.h"
#include "kelvanestate.h"
#include "lutitem.h"
#include "markeritem.h"
#include "maskitem.h"
#include "piv_data2d.h"
#include "pivscalarmapitem.h"
#include "pivvectormapitem.h"
#include "ptv_data2d.h"
#include "ptvvectormapitem.h"
#include "qimageitem.h"
#include "randompivvectormapitem.h"
#include "refvectoritem.h"

namespace {

// Stacking above the scene number, lowest first.
constexpr qreal kZRoot = 10, kZAxes = 80, kZPair = 100, kZSecond = 104, kZMask = 105,
                kZContours = 120, kZVectors = 130, kZTracks = 135, kZRandom = 150,
                kZRefVector = 151, kZVectorLut = 159, kZContourLut = 160, kZImageLut = 161,
                kZTitle = 170, kZSubTitle = 171, kZLogo = 180, kZBackground = 181, kZOverlay = 182,
                kZRefPoint = 190;

BitmapLUT _lutOf(const PIVPLOT::LUT_CFG& cfg) {
    BitmapLUT lut;
    lut.setLUT(cfg.Index, cfg.UseDiscreteLevels ? cfg.Levels : BitmapLUT::kSize, cfg.Reversed);
    return lut;
}

QPointF _posOf(const PIVPLOT::ANNOTATION_CFG& a) {
    return QPointF(a.PosX, a.PosY);
}

}  // namespace

KelvaneBmpItems::KelvaneBmpItems(QGraphicsScene* scene, int sceneNumber)
    : m_scene(scene), m_number(sceneNumber) {
    const qreal base = sceneNumber;
    const auto add = [this, base](QGraphicsItem* item, qreal z, const QString& name = QString()) {
        item->setZValue(base + z);
        if (!name.isEmpty()) item->setData(0, name);
        m_scene->addItem(item);
        return item;
    };
    const QString view = QString::number(sceneNumber);
    m_root = new QGraphicsRectItem(0, 0, 2048, 2048);
    m_root->setPen(Qt::NoPen);
    add(m_root, kZRoot);
    m_items[ITEM_AXES] = add(m_axes = new AxisItem, kZAxes);
    m_items[ITEM_IMAGE] = add(m_pair = new ImagePairItem, kZPair, "m_pBmpPair - view" + view);
    m_items[ITEM_IMAGE2] = add(m_second = new Image2DItem, kZSecond, "m_pBmp2 - view" + view);
    m_items[ITEM_MASK] = add(m_mask = new MaskItem, kZMask, "m_pMask - view" + view);
    m_items[ITEM_CONTOURS] =
        add(m_contours = new PIVScalarMapItem, kZContours, "m_pContour - view" + view);
    m_items[ITEM_VECTORS] = add(m_vectors = new PIVVectorMapItem, kZVectors);
    m_items[ITEM_TRACKS] = add(m_tracks = new PTVVectorMapItem, kZTracks);
    m_items[ITEM_RANDOM_VECTORS] = add(m_random = new RandomPIVVectorMapItem, kZRandom);
    m_items[ITEM_REF_VECTOR] = add(m_refVector = new RefVectorItem, kZRefVector);
    m_items[ITEM_VECTOR_LUT] = add(m_vectorLut = new LutItem, kZVectorLut);
    m_items[ITEM_CONTOUR_LUT] = add(m_contourLut = new LutItem, kZContourLut);
    m_items[ITEM_IMAGE_LUT] = add(m_imageLut = new LutItem, kZImageLut);
    m_items[ITEM_TITLE] = add(m_title = new QImageItem, kZTitle);
    m_items[ITEM_SUBTITLE] = add(m_subTitle = new QImageItem, kZSubTitle);
    m_items[ITEM_LOGO] = add(m_logo = new QImageItem, kZLogo);
    m_items[ITEM_BACKGROUND] = add(m_background = new QImageItem, kZBackground);
    m_items[ITEM_OVERLAY] = add(m_overlay = new QImageItem, kZOverlay);
    m_items[ITEM_REF_POINT] = add(m_refPoint = new MarkerItem, kZRefPoint);
    // Both bitmaps of the pair share one colour table.
    m_second->setLUT(m_pair->lut());
    hideAll();
}

KelvaneBmpItems::~KelvaneBmpItems() = default;

void KelvaneBmpItems::show(Item which, bool on) {
    QGraphicsItem* item = m_items[which];
    if (item->isVisible() == on) return;
    item->setVisible(on);
    m_changed = true;
}

bool KelvaneBmpItems::isShown(Item which) const {
    return m_items[which]->isVisible();
}

void KelvaneBmpItems::hideAll() {
    for (QGraphicsItem* item : m_items) item->setVisible(false);
}

// ---- data -----------------------------------------------------------------

void KelvaneBmpItems::setPivData(PIV_Data2D* data, bool intermediate) {
    PIV_Data2D* shown = data;
    if (data && intermediate) {
        shown = new PIV_Data2D;
        *shown = *data;
    }
    m_vectors->setData(shown);
    m_field = shown;
    // The same field object may hold new vectors: the map is redone.
    feedContours(true);
    // The items hold their own references to the copy.
    if (shown != data) shown->release();
    m_changed = true;
}

const PIV_Data2D* KelvaneBmpItems::pivData() const {
    return m_vectors->data();
}

void KelvaneBmpItems::setPTVdata(std::shared_ptr<const PTV_Data2D> tracks) {
    m_tracks->setData(std::move(tracks));
    m_changed = true;
}

void KelvaneBmpItems::updateImagePair(Image2D* a, Image2D* b) {
    // The second bitmap shows a frame of its own only beside a stereo view;
    // here it stays empty and costs nothing.
    m_pair->updateImages(a, b);
    m_changed = true;
}

void KelvaneBmpItems::feedContours(bool force) {
    // A map of the image's size is computed only while contours are asked for.
    PIV_Data2D* wanted = m_cfg.contour.Show ? m_field : nullptr;
    if (wanted == m_contoursOf && !force) return;
    m_contours->updateData(wanted);
    m_contoursOf = wanted;
}

void KelvaneBmpItems::updateImagePairAndMask(Image2D* a, Image2D* b, Image2D* mask) {
    updateImagePair(a, b);
    updateMask(mask);
}

void KelvaneBmpItems::updateMask(Image2D* mask) {
    m_mask->updateImage2D(mask && !mask->isNull() ? mask : nullptr);
    m_changed = true;
}

void KelvaneBmpItems::setImageSize(const QSize& size) {
    if (size.width() < 25 || size.height() < 25 || size == m_imageSize) return;
    m_imageSize = size;
    m_root->setRect(0, 0, size.width(), size.height());
    m_axes->setImageSize(size.width(), size.height());
    m_changed = true;
}

void KelvaneBmpItems::setImageToggleMode(bool on) {
    m_toggle = on;
    if (!on) m_pair->setCombineMode(ImagePairItem::SHOW_PAIR_COLOR);
    m_changed = true;
}

void KelvaneBmpItems::showImageFrame(int frame) {
    m_pair->setCombineMode(frame == 1 ? ImagePairItem::SHOW_SECOND : ImagePairItem::SHOW_FIRST);
    m_changed = true;
}

void KelvaneBmpItems::setImageStacking(int order) {
    // Order 1 lays the contours under the image, for a see-through image.
    const qreal base = m_number;
    m_pair->setZValue(base + (order == 1 ? kZContours : kZPair));
    m_contours->setZValue(base + (order == 1 ? kZPair : kZContours));
    m_changed = true;
}

void KelvaneBmpItems::addRandomVector(const PIV_VECTOR& vector) {
    m_random->addVector(vector);
    m_changed = true;
}

void KelvaneBmpItems::clearRandomVectors() {
    m_random->clearVectors();
    m_changed = true;
}

int KelvaneBmpItems::randomVectorCount() const {
    return m_random->vectorCount();
}

// ---- image colours --------------------------------------------------------

void KelvaneBmpItems::setIntensityRange(double bottom, double top) {
    m_pair->setIntensityRange(bottom, top);
    m_second->setIntensityRange(bottom, top);
    m_cfg.image.lut.ValueMin = m_pair->minimum();
    m_cfg.image.lut.ValueMax = m_pair->maximum();
    m_imageLut->setLabelRange(m_pair->minimum(), m_pair->maximum());
    m_changed = true;
}

double KelvaneBmpItems::intensityBottom() const {
    return m_pair->minimum();
}

double KelvaneBmpItems::intensityTop() const {
    return m_pair->maximum();
}

void KelvaneBmpItems::brighter() {
    m_pair->brighter();
    setIntensityRange(m_pair->minimum(), m_pair->maximum());
}

void KelvaneBmpItems::darker() {
    m_pair->darker();
    setIntensityRange(m_pair->minimum(), m_pair->maximum());
}

void KelvaneBmpItems::setClipping(bool on) {
    m_pair->setClipping(on);
    m_second->setClipping(on);
    m_changed = true;
}

void KelvaneBmpItems::setImageLUT(int choice, bool reversed) {
    PIVPLOT::LUT_CFG& l = m_cfg.image.lut;
    l.Index = choice;
    l.Reversed = reversed;
    // The table is shared with the second bitmap; only its colours change.
    m_pair->setLUTChoice(choice, l.UseDiscreteLevels ? l.Levels : BitmapLUT::kSize, reversed);
    m_second->applyLUT();
    m_imageLut->setLUT(*m_pair->lut());
    m_changed = true;
}

bool KelvaneBmpItems::setUserLUT(const BitmapLUT& lut) {
    BitmapLUT& shared = *m_pair->lut();
    shared = lut;
    m_cfg.image.lut.Index = LUT_USER_DEFINED;
    m_pair->applyLUT();
    m_second->applyLUT();
    m_imageLut->setLUT(shared);
    m_changed = true;
    return true;
}

// ---- plot record ----------------------------------------------------------

void KelvaneBmpItems::setPlotCfg(const PIVPLOT::PLOT_CFG& cfg, bool positions) {
    // What the user arranged stays where it is unless positions are asked for.
    PIVPLOT::PLOT_CFG next = cfg;
    if (!positions) updateObjectPositions(next);
    const bool userLut =
        m_cfg.image.lut.Index == LUT_USER_DEFINED && next.image.lut.Index == LUT_USER_DEFINED;
    const PIVPLOT::PLOT_CFG previous = m_cfg;
    m_cfg = next;
    const PIVPLOT::LUT_CFG& il = next.image.lut;
    if (!userLut) setImageLUT(il.Index, il.Reversed);
    setIntensityRange(il.ValueMin, il.ValueMax);
    m_imageLut->setConfig(il);
    m_imageLut->setLUT(*m_pair->lut());
    m_imageLut->setLabelRange(m_pair->minimum(), m_pair->maximum());

    m_vectors->setVectorCfg(next.vector);
    m_vectors->setColorCfg(next.colors);
    m_vectors->setLUT(_lutOf(next.vector.lut));
    m_random->setVectorCfg(next.vector);
    m_random->setColorCfg(next.colors);
    m_random->setLUT(_lutOf(next.vector.lut));
    m_tracks->setVectorCfg(next.vector);
    m_tracks->setColorCfg(next.colors);
    m_tracks->setLUT(_lutOf(next.vector.lut));
    m_vectorLut->setConfig(next.vector.lut);
    m_vectorLut->setLUT(_lutOf(next.vector.lut));
    m_contours->setContourCfg(next.contour);
    feedContours(false);
    m_contourLut->setConfig(next.contour.lut);
    m_contourLut->setLUT(_lutOf(next.contour.lut));
    m_refVector->setConfig(next.refVector, next.vector.Stretch);
    m_axes->setConfig(next.xAxis, next.yAxis);
    m_mask->setMaskColor(QColor::fromRgba(next.colors.Mask));
    m_mask->setMaskOpacity(next.image.MaskOpacity);

    QFont font(QString::fromLatin1(next.Font));
    font.setPointSize(next.title.Size > 0 ? next.title.Size : 12);
    m_title->setText(QString::fromLatin1(next.title.Text), font,
                     QColor::fromRgba(next.colors.Text));
    font.setPointSize(next.subTitle.Size > 0 ? next.subTitle.Size : 12);
    m_subTitle->setText(QString::fromLatin1(next.subTitle.Text), font,
                        QColor::fromRgba(next.colors.Text));
    // The bitmaps are read only when their file changed.
    for (auto [item, text, old] : {std::tuple{m_logo, next.logo.Text, previous.logo.Text},
                                   {m_background, next.background.Text, previous.background.Text},
                                   {m_overlay, next.overlay.Text, previous.overlay.Text}}) {
        if (std::strcmp(text, old) == 0) continue;
        if (text[0])
            item->setLogo(QString::fromLocal8Bit(text));
        else
            item->setLogo(QImage());
    }
    m_title->setPos(_posOf(next.title));
    m_subTitle->setPos(_posOf(next.subTitle));
    m_logo->setPos(_posOf(next.logo));
    m_background->setPos(_posOf(next.background));
    m_overlay->setPos(_posOf(next.overlay));
    m_changed = true;
}

void KelvaneBmpItems::updateObjectPositions(PIVPLOT::PLOT_CFG& cfg) const {
    const auto take = [](const QGraphicsItem* item, int32_t& x, int32_t& y) {
        x = int32_t(qRound(item->pos().x()));
        y = int32_t(qRound(item->pos().y()));
    };
    take(m_title, cfg.title.PosX, cfg.title.PosY);
    take(m_subTitle, cfg.subTitle.PosX, cfg.subTitle.PosY);
    take(m_logo, cfg.logo.PosX, cfg.logo.PosY);
    take(m_background, cfg.background.PosX, cfg.background.PosY);
    take(m_overlay, cfg.overlay.PosX, cfg.overlay.PosY);
    take(m_refVector, cfg.refVector.PosX, cfg.refVector.PosY);
    take(m_vectorLut, cfg.vector.lut.PosX, cfg.vector.lut.PosY);
    take(m_contourLut, cfg.contour.lut.PosX, cfg.contour.lut.PosY);
    take(m_imageLut, cfg.image.lut.PosX, cfg.image.lut.PosY);
}

void KelvaneBmpItems::resetObjectPositions() {
    const PIVPLOT::PLOT_CFG d = PIVPLOT::DefaultPlotCfg();
    PIVPLOT::PLOT_CFG cfg = m_cfg;
    for (auto [to, from] : {std::pair{&cfg.title, &d.title},
                            {&cfg.subTitle, &d.subTitle},
                            {&cfg.logo, &d.logo},
                            {&cfg.background, &d.background},
                            {&cfg.overlay, &d.overlay}}) {
        to->PosX = from->PosX;
        to->PosY = from->PosY;
    }
    cfg.refVector.PosX = d.refVector.PosX;
    cfg.refVector.PosY = d.refVector.PosY;
    for (auto [to, from] : {std::pair{&cfg.vector.lut, &d.vector.lut},
                            {&cfg.contour.lut, &d.contour.lut},
                            {&cfg.image.lut, &d.image.lut}}) {
        to->PosX = from->PosX;
        to->PosY = from->PosY;
    }
    setPlotCfg(cfg, true);
}

void KelvaneBmpItems::setTitles(const QString& title, const QString& subTitle) {
    QFont font(QString::fromLatin1(m_cfg.Font));
    const QColor text = QColor::fromRgba(m_cfg.colors.Text);
    font.setPointSize(m_cfg.title.Size > 0 ? m_cfg.title.Size : 12);
    if (m_title->text() != title) m_title->setText(title, font, text);
    font.setPointSize(m_cfg.subTitle.Size > 0 ? m_cfg.subTitle.Size : 12);
    if (m_subTitle->text() != subTitle) m_subTitle->setText(subTitle, font, text);
}

void KelvaneBmpItems::setRefPoint(const QPointF& point) {
    m_refPoint->setPos(point);
}

bool KelvaneBmpItems::updateBoundingRect() {
    QRectF rect = m_root->rect();
    for (QGraphicsItem* item : m_items)
        if (item->isVisible() && item != m_refPoint) rect |= item->sceneBoundingRect();
    rect = rect.toAlignedRect();
    if (rect == m_scene->sceneRect()) return false;
    m_scene->setSceneRect(rect);
    return true;
}

QRectF KelvaneBmpItems::dataRect(bool withMargin) const {
    const QRectF r = m_root->rect();
    return withMargin ? r.adjusted(-20, -20, 20, 20) : r;
}

QPointF KelvaneBmpItems::mapFromScene(const QPointF& point) const {
    if (m_originAtTop) return point;
    return QPointF(point.x(), m_root->rect().height() - point.y());
}

void KelvaneBmpItems::setKelvaneMode(int mode, bool stereo) {
    const bool arrange = mode == MODE_ARRANGE_PLOT;
    for (Item i : {ITEM_REF_VECTOR, ITEM_VECTOR_LUT, ITEM_CONTOUR_LUT, ITEM_IMAGE_LUT, ITEM_TITLE,
                   ITEM_SUBTITLE, ITEM_LOGO, ITEM_BACKGROUND, ITEM_OVERLAY})
        m_items[i]->setFlag(QGraphicsItem::ItemIsMovable, arrange);
    m_refPoint->setFlag(QGraphicsItem::ItemIsMovable, mode == MODE_CALIBRATION && !stereo);
}
