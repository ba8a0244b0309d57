// The plot scene in the window: what each state of the session shows, what
// the keys change, when it is drawn and what leaves it as a file.
#include <QComboBox>
#include <QFile>
#include <QGraphicsRectItem>
#include <QGraphicsScene>
#include <QPrinter>
#include <QRegularExpression>
#include <QStatusBar>
#include <QTest>

#include <cmath>
#include <cstdio>
#include <functional>
#include <numeric>

#include "box_watcher.h"
#include "imagepairitem.h"
#include "kelvanedataview.h"
#include "kelvanedataview_bmpitems.h"
#include "kelvanesceneview.h"
#include "piv_record.h"
#include "pivcalib2cdlg.h"
#include "pivplotsetupdlg.h"
#include "pivscalarmapitem.h"
#include "qpiv_imagepair.h"
#include "ruleritem.h"
#include "window_fixture.h"
#include "xyplotwindow.h"

namespace {

using I = KelvaneBmpItems;

class PlotScene : public MainWindow {
protected:
    std::unique_ptr<Kelvane> shownWindow() {
        auto w = window();
        w->resize(900, 700);
        w->show();
        return w;
    }
    // Pearson correlation of the grey values on screen with a rendered frame.
    double correlation(KelvaneDataView* v, bool second) const {
        KelvaneSceneView* view = v->view(v->currentViewIndex());
        const QImage shot = view->viewport()->grab().toImage();
        double sx = 0, sy = 0, sxx = 0, syy = 0, sxy = 0;
        const double n = kSize * kSize;
        for (int y = 0; y < kSize; ++y)
            for (int x = 0; x < kSize; ++x) {
                const QPoint at = view->mapFromScene(QPointF(x, y));
                const double a = qGray(shot.pixel(at)),
                             b = second ? truth.pixelB(x, y) : truth.pixelA(x, y);
                sx += a, sy += b, sxx += a * a, syy += b * b, sxy += a * b;
            }
        return (sxy - sx * sy / n) / std::sqrt((sxx - sx * sx / n) * (syy - sy * sy / n));
    }
    static bool shownEverywhere(KelvaneDataView* v, I::Item item, bool on) {
        for (int s = 0; s < KelvaneDataView::kSceneCount; ++s)
            if (v->items(s)->isShown(item) != on) return false;
        return true;
    }
    // A 100 x 100 16-bit frame: 400 pixels at `high`, the rest at `low`.
    void writeFrame(const char* name, int low, int high) const {
        Image2D image(100, 100, IMAGE_UINT16);
        for (int i = 0; i < 10000; ++i) image.setPixel(i % 100, i / 100, i < 400 ? high : low);
        // Saved without a format, a 16-bit frame becomes a camera double frame.
        ASSERT_TRUE(image.save(file(name).c_str(), PIV::FORMAT_TIFF));
    }
};

}  // namespace

// At zoom 1 the grey table shows frame A as it was rendered; Space shows B
// and then A again; "+" stops at 2000 %; a 20 px pair leaves the scene as it was.
TEST_F(PlotScene, ZoomOneShowsTheFramesAndPlusStopsAtTwenty) {
    auto w = shownWindow();
    ASSERT_TRUE(w->loadFile(path("run0001a.tif")));
    KelvaneDataView* v = w->dataView();
    w->slotUpdateUI();
    EXPECT_GE(correlation(v, false), 0.99);
    w->action("actionImageTogglePair")->trigger();
    w->slotUpdateUI();
    EXPECT_GE(correlation(v, true), 0.99);
    EXPECT_LT(correlation(v, false), 0.5);
    w->action("actionImageTogglePair")->trigger();
    w->slotUpdateUI();
    EXPECT_GE(correlation(v, false), 0.99);

    for (int press = 0; press < 20; ++press) w->action("actionImageZoomIn")->trigger();
    EXPECT_EQ(v->zoomIndex(), 17);
    EXPECT_FALSE(v->canZoomIn());
    EXPECT_FALSE(w->action("actionImageZoomIn")->isEnabled());
    EXPECT_EQ(static_cast<QComboBox*>(v->createZoomWidget())->currentText(), "2000%");
    EXPECT_EQ(KelvaneSceneView::zoomIndexOf(0.33), 4);  // within 0.01 of 1/3
    EXPECT_EQ(KelvaneSceneView::zoomIndexOf(0.9), 7);   // nothing near: factor 1

    const QRectF before = v->scene(0)->sceneRect();
    for (const char* name : {"tiny0001a.tif", "tiny0001b.tif"})
        ASSERT_TRUE(Image2D(20, 20, IMAGE_UINT8).save(file(name).c_str()));
    ASSERT_TRUE(w->loadFile(path("tiny0001a.tif")));
    w->slotUpdateUI();
    EXPECT_EQ(v->scene(0)->sceneRect(), before);
}

// Toggles only count; the timer draws. V alone keeps the vectors (a field
// always shows something), V then C leaves contours alone, L recolours the
// image under unchanged vectors. While a run is on, nothing is drawn.
TEST_F(PlotScene, KeysOnlyCountAndTheTimerDrawsThem) {
    auto w = shownWindow();
    ASSERT_TRUE(w->loadFile(path("run0001a.tif")));
    ASSERT_TRUE(evaluate(*w));
    KelvaneDataView* v = w->dataView();
    w->slotUpdateUI();
    const int passes = v->sceneItemUpdates(), updates = v->sceneUpdates();
    w->action("actionPlotVectors")->trigger();
    EXPECT_EQ(v->sceneItemUpdates(), passes);
    EXPECT_EQ(v->sceneUpdates(), updates);
    v->autoRedraw(false);
    EXPECT_EQ(v->sceneItemUpdates(), passes + 1);
    EXPECT_EQ(v->sceneUpdates(), updates + 1);
    EXPECT_TRUE(v->isVectorMapVisible());
    EXPECT_FALSE(v->isContourMapVisible());
    w->action("actionPlotContours")->trigger();
    v->autoRedraw(false);
    EXPECT_FALSE(v->isVectorMapVisible());
    EXPECT_TRUE(v->isContourMapVisible());
    w->action("actionPlotContours")->trigger();
    w->action("actionPlotVectors")->trigger();
    v->autoRedraw(false);

    // Valid vectors are pure green; the image is grey.
    const QImage before = v->view(0)->viewport()->grab().toImage();
    w->action("actionImageChangeLUT")->trigger();
    w->action("actionImageChangeLUT")->trigger();
    w->slotUpdateUI();
    const QImage after = v->view(0)->viewport()->grab().toImage();
    int vectorPixels = 0, vectorChanged = 0, bright = 0, brightChanged = 0;
    for (int y = 0; y < kSize; ++y)
        for (int x = 0; x < kSize; ++x) {
            const QPoint at = v->view(0)->mapFromScene(QPointF(x, y));
            const QRgb b = before.pixel(at), a = after.pixel(at);
            if (b == qRgb(0, 255, 0)) {
                ++vectorPixels;
                vectorChanged += a != b;
            } else if (qGray(b) >= 64 && qRed(b) == qGreen(b) && qGreen(b) == qBlue(b)) {
                ++bright;
                brightChanged += a != b;
            }
        }
    EXPECT_GT(vectorPixels, 100);
    EXPECT_EQ(vectorChanged, 0);
    EXPECT_GT(brightChanged, bright * 9 / 10);

    w->dataObject()->state()->setProcessingFlag(true);
    w->action("actionPlotContours")->trigger();
    v->autoRedraw(true);
    EXPECT_EQ(v->sceneItemUpdates(), passes + 5);  // each L drew at once
    EXPECT_EQ(w->statusBar()->currentMessage(), "online processing - redraw delayed!");
    w->dataObject()->state()->setProcessingFlag(false);
}

// What each session state shows, the same in all four scenes. A field of a
// running evaluation is drawn from a copy, a final one from the session's.
TEST_F(PlotScene, EachStateShowsItsItemsInAllScenes) {
    PIV_Data2D field;
    ASSERT_TRUE(field.createZeroData(SIZE3D{kSize, kSize, 1}, SIZE3D{16, 16, 1}, POINT3D{8, 8, 0},
                                     POINT3D{120, 120, 0}, 1));
    ASSERT_TRUE(field.initShift(1.5f, -0.5f, 0.0f));
    ASSERT_TRUE(field.saveNetCDF(file("field.nc").c_str()));
    PIV_Data2D tiny;  // 2 x 2 nodes on a 10 px image: too small to draw
    ASSERT_TRUE(tiny.createZeroData(SIZE3D{10, 10, 1}, SIZE3D{4, 4, 1}, POINT3D{2, 2, 0},
                                    POINT3D{6, 6, 0}, 1));
    ASSERT_TRUE(tiny.initShift(1.0f, 0.0f, 0.0f));
    ASSERT_TRUE(tiny.saveNetCDF(file("tiny.nc").c_str()));
    auto w = shownWindow();
    KelvaneDataView* v = w->dataView();
    KelvaneDataObject* o = w->dataObject();
    PIVPLOT::PLOT_CFG beforeTiny;
    const auto contours = [v](bool on) {
        PIVPLOT::PLOT_CFG c = v->plotDlg()->record();
        c.contour.Show = on;
        v->plotDlg()->setRecord(c);
    };
    struct Case {
        const char* state;
        std::function<void()> enter;
        bool image, vectors, contours, random, refPoint, ruler, roi;
    } const cases[] = {
        {"pair", [&] { ASSERT_TRUE(w->loadFile(path("run0001a.tif"))); }, 1, 0, 0, 1, 0, 0, 0},
        {"evaluated", [&] { ASSERT_TRUE(evaluate(*w)); }, 1, 1, 0, 1, 0, 0, 0},
        {"running",
         [&] {
             contours(true);
             o->setIntermediateData(true, 0);
             emit o->signalHaveNewData(0);
         },
         1, 1, 0, 1, 0, 0, 0},
        {"final",
         [&] {
             o->setIntermediateData(false, 0);
             emit o->signalHaveNewData(0);
         },
         1, 1, 1, 1, 0, 0, 0},
        {"calibration", [&] { w->setKelvaneMode(MODE_CALIBRATION, true); }, 1, 0, 0, 1, 1, 1, 0},
        {"roi", [&] { w->setKelvaneMode(MODE_ROI_EDIT, true); }, 1, 0, 0, 1, 1, 0, 1},
        {"arrange",
         [&] {
             w->setKelvaneMode(MODE_ARRANGE_PLOT, true);
             w->action("actionPlotVectors")->trigger();
         },
         1, 1, 1, 1, 0, 0, 0},
        {"file data",
         [&] {
             w->setKelvaneMode(MODE_DATA, true);
             contours(false);
             ASSERT_TRUE(w->loadFile(path("field.nc")));
         },
         0, 1, 0, 0, 0, 0, 0},
        {"10 px file data",
         [&] {
             beforeTiny = v->plotDlg()->record();
             ASSERT_TRUE(w->loadFile(path("tiny.nc")));
         },
         0, 0, 0, 0, 0, 0, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.state);
        c.enter();
        v->slotRedrawAll();
        EXPECT_TRUE(shownEverywhere(v, I::ITEM_IMAGE, c.image));
        EXPECT_TRUE(shownEverywhere(v, I::ITEM_VECTORS, c.vectors));
        EXPECT_TRUE(shownEverywhere(v, I::ITEM_CONTOURS, c.contours));
        if (c.contours) {
            EXPECT_FALSE(v->items(0)->contourMap()->indexImage().isNull());
        }
        EXPECT_TRUE(shownEverywhere(v, I::ITEM_RANDOM_VECTORS, c.random));
        EXPECT_TRUE(shownEverywhere(v, I::ITEM_REF_POINT, c.refPoint));
        EXPECT_EQ(v->ruler()->isVisible(), c.ruler);
        EXPECT_EQ(v->roiItem()->isVisible(), c.roi);
        EXPECT_EQ(v->items(0)->pivData() == o->data(0),
                  o->haveData(0) && !o->isIntermediateData(0));
    }
    w->action("actionImageTogglePair")->trigger();  // file data have no frames
    EXPECT_EQ(v->imageFrame(), 0);
    EXPECT_TRUE(PIV::SameRecord(beforeTiny, v->plotDlg()->record()));  // hidden, not switched off
}

// Auto-scale from the larger mean and sigma of the two frames: mean + 2 sigma
// rounded up to a power of two, less one. 400 of 10,000 pixels at high:
// mean = low + 0.04 (high - low), sigma = 0.196 (high - low).
TEST_F(PlotScene, AutoScaleRoundsMeanPlusTwoSigmaUpToAPowerOfTwo) {
    struct Case {
        int lowA, highA, lowB, highB;
        double bottom, top;
    } const cases[] = {
        {1000, 6000, 1000, 6000, 0, 4095},  // 1200 + 2 x 980 = 3160
        {500, 3000, 500, 3000, 0, 2047},    // 600 + 2 x 490 = 1580
        {500, 3000, 1000, 6000, 0, 4095},   // frame B's 3160 wins
        {0, 1, 0, 1, 0, 0.432},             // 0.04 + 2 x 0.196: below 1, kept
    };
    for (const Case& c : cases) {
        writeFrame("auto0001a.tif", c.lowA, c.highA);
        writeFrame("auto0001b.tif", c.lowB, c.highB);
        auto w = window();
        ASSERT_TRUE(w->loadFile(path("auto0001a.tif")));
        w->action("actionImageAutoScale")->trigger();
        for (int s = 0; s < KelvaneDataView::kSceneCount; ++s) {
            EXPECT_EQ(w->dataView()->items(s)->intensityBottom(), c.bottom) << c.highB;
            EXPECT_NEAR(w->dataView()->items(s)->intensityTop(), c.top, 0.001) << c.highB;
        }
    }
}

// An aligned overlay covers the image. A PNG is the scene rectangle times
// the zoom, a PDF page the rectangle in points, the current view its viewport. What cannot be
// written or read says so and leaves the plot as it was.
TEST_F(PlotScene, ExportsHaveTheScenesSizeAndBadFilesChangeNothing) {
    auto w = shownWindow();
    ASSERT_TRUE(w->loadFile(path("run0001a.tif")));
    KelvaneDataView* v = w->dataView();
    QImage logo(10, 20, QImage::Format_RGB32);
    logo.fill(Qt::blue);
    ASSERT_TRUE(logo.save(path("logo.png")));
    PIVPLOT::PLOT_CFG withOverlay = v->plotDlg()->record();
    std::snprintf(withOverlay.overlay.Text, sizeof(withOverlay.overlay.Text), "%s",
                  file("logo.png").c_str());
    v->plotDlg()->setRecord(withOverlay);
    v->slotApplyPlotSettings();
    for (int twice = 0; twice < 2; ++twice) v->slotOverlayAlign();  // over the 128 px image
    EXPECT_EQ(v->items(0)->item(I::ITEM_OVERLAY)->sceneBoundingRect(), QRectF(0, 0, kSize, kSize));
    v->slotSetZoom(9);  // factor 2
    w->slotUpdateUI();
    const QRectF rect = v->scene(0)->sceneRect();
    ASSERT_TRUE(v->exportPlot(path("plot.png"), "PNG", false));
    EXPECT_EQ(QImage(path("plot.png")).size(), (rect.size() * 2).toSize());
    ASSERT_TRUE(v->exportCurrentView(path("view.png"), "PNG", false));
    EXPECT_EQ(QImage(path("view.png")).size(), v->view(0)->viewport()->size());
    ASSERT_TRUE(v->exportPlot(path("plot.pdf"), "PDF", true));
    const std::string pdf = test_support::ReadBytes(file("plot.pdf"));
    EXPECT_EQ(pdf.substr(0, 4), "%PDF");
    const QRegularExpressionMatch box = QRegularExpression(R"(/MediaBox \[0 0 ([\d.]+) ([\d.]+)\])")
                                            .match(QString::fromStdString(pdf));
    ASSERT_TRUE(box.hasMatch());
    EXPECT_EQ(QSizeF(box.captured(1).toDouble(), box.captured(2).toDouble()), rect.size());

    const PIVPLOT::PLOT_CFG record = v->plotDlg()->record();
    QSignalSpy messages(v, &KelvaneDataView::signalMessage);
    const QString nowhere = path("no/such/dir/plot.png");
    EXPECT_FALSE(v->exportPlot(nowhere, "PNG", false));
    test_support::WriteBytes(file("empty.cfg"), "");
    EXPECT_FALSE(v->loadPlotConfig(path("empty.cfg")));
    EXPECT_FALSE(v->loadUserLUT(path("missing.lut")));
    ASSERT_EQ(messages.count(), 3);
    EXPECT_TRUE(messages.at(0).at(0).toString().contains(nowhere));
    EXPECT_TRUE(PIV::SameRecord(record, v->plotDlg()->record()));
    EXPECT_EQ(v->scene(0)->sceneRect(), rect);
}

// The mouse by mode: in data mode the profiles follow it and a press is
// handed on with whether it hit the image; a calibration drag sets the ruler; dragging the region's
// top left handle gives the new region on release.
TEST_F(PlotScene, TheMouseActsByMode) {
    auto w = shownWindow();
    ASSERT_TRUE(w->loadFile(path("run0001a.tif")));
    KelvaneDataView* v = w->dataView();
    w->slotUpdateUI();
    QWidget* port = v->view(0)->viewport();
    const auto at = [v](double x, double y) { return v->view(0)->mapFromScene(QPointF(x, y)); };
    const auto drag = [&](QPointF from, QPointF to) {
        QTest::mousePress(port, Qt::LeftButton, Qt::NoModifier, at(from.x(), from.y()));
        // QTest's move carries no button; a held button is what a drag is.
        QMouseEvent move(QEvent::MouseMove, at(to.x(), to.y()), Qt::NoButton, Qt::LeftButton,
                         Qt::NoModifier);
        QApplication::sendEvent(port, &move);
        QTest::mouseRelease(port, Qt::LeftButton, Qt::NoModifier, at(to.x(), to.y()));
    };
    QSignalSpy presses(v, &KelvaneDataView::signalMousePressAt);
    QSignalSpy rulers(v, &KelvaneDataView::signalNewRulerLength);
    QSignalSpy rois(v, &KelvaneDataView::signalNewROI);
    // Profiles follow the pointer: row 7 and column 5 of both frames; the
    // histogram counts every pixel of a frame once.
    w->action("actionImageProfileX")->trigger();
    w->action("actionImageProfileY")->trigger();
    w->action("actionImageHistogram")->trigger();
    QMouseEvent hover(QEvent::MouseMove, at(5, 7), Qt::NoButton, Qt::NoButton, Qt::NoModifier);
    QApplication::sendEvent(port, &hover);
    QVector<double> rowB, columnA, zeroA(1);
    for (int i = 0; i < kSize; ++i) {
        rowB << truth.pixelB(i, 7);
        columnA << truth.pixelA(5, i);
        for (int x = 0; x < kSize; ++x) zeroA[0] += truth.pixelA(x, i) == 0;
    }
    EXPECT_EQ(v->profile(0)->curve(1), rowB);
    EXPECT_EQ(v->profile(1)->curve(0), columnA);
    const QVector<double>& bins = w->data()->imageHistogram()->curve(0);
    ASSERT_EQ(bins.size(), 256);
    EXPECT_EQ(std::accumulate(bins.begin(), bins.end(), 0.0), kSize * kSize);
    EXPECT_EQ(bins[0], zeroA[0]);

    QTest::mouseClick(port, Qt::LeftButton, Qt::NoModifier, at(64, 64));
    QTest::mouseClick(port, Qt::LeftButton, Qt::NoModifier, at(64, 300));
    ASSERT_EQ(presses.count(), 2);
    EXPECT_EQ(presses.at(0).at(1).toPointF(), QPointF(64, 64));
    EXPECT_TRUE(presses.at(0).at(2).toBool());
    EXPECT_FALSE(presses.at(1).at(2).toBool());

    w->setKelvaneMode(MODE_CALIBRATION, true);
    w->slotUpdateUI();
    drag({10, 64}, {110, 64});
    ASSERT_EQ(rulers.count(), 1);
    EXPECT_DOUBLE_EQ(rulers.at(0).at(0).toDouble(), 100.0);
    // ...and reaches the calibration panel: 100 px over its default 10 mm.
    EXPECT_EQ(w->data()->calibDlg()->magnificationText(), "10 px/mm");

    w->setKelvaneMode(MODE_ROI_EDIT, true);
    w->slotUpdateUI();
    drag({100, 150}, {20, 30});  // the region starts at (100, 150), 200 x 300
    ASSERT_EQ(rois.count(), 1);
    EXPECT_EQ(rois.at(0).at(0).toRect(), QRect(20, 30, 280, 420));
    EXPECT_EQ(presses.count(), 3);  // calibration hands its press on, the region editor not
}

// Printing and a batch export write PDF on a white ground and leave the
// screen's ground, image and scene as they were; the dialog places the colour bar; zoom and ruler
// survive a restart under their keys.
TEST_F(PlotScene, PrintBatchExportAndSettings) {
    {
        auto w = shownWindow();
        ASSERT_TRUE(w->loadFile(path("run0001a.tif")));
        ASSERT_TRUE(evaluate(*w));  // with vectors to show, the image may go
        KelvaneDataView* v = w->dataView();
        w->slotUpdateUI();
        const QBrush ground = v->scene(0)->backgroundBrush();
        v->printer()->setOutputFormat(QPrinter::PdfFormat);
        v->printer()->setOutputFileName(path("print.pdf"));
        v->print();
        EXPECT_EQ(test_support::ReadBytes(file("print.pdf")).substr(0, 4), "%PDF");
        // Scene 1 without the image, format in lower case: the shown scene
        // and image come back.
        v->slotBatchExportPlot(path("batch.pdf"), 1, "pdf", true);
        EXPECT_EQ(test_support::ReadBytes(file("batch.pdf")).substr(0, 4), "%PDF");
        EXPECT_TRUE(v->isImageVisible());
        EXPECT_EQ(v->currentViewIndex(), 0);
        QSignalSpy log(v, &KelvaneDataView::signalLogMessage);
        v->slotBatchExportPlot(path("gone/batch.png"), 0, "PNG", false);
        EXPECT_EQ(log.count(), 1);  // a folder that is not there
        EXPECT_EQ(v->scene(0)->backgroundBrush(), ground);
        PIVPLOT::PLOT_CFG placed = v->plotDlg()->record();
        placed.image.lut.PosX = 300;  // the dialog places the colour bar
        placed.image.lut.PosY = 40;
        v->plotDlg()->setRecord(placed);
        v->slotApplyPlotSettings();
        for (int s = 0; s < KelvaneDataView::kSceneCount; ++s)
            EXPECT_EQ(v->items(s)->item(I::ITEM_IMAGE_LUT)->pos(), QPointF(300, 40));
        v->slotSetZoom(12);
        w->action("actionCalibResetRuler")->trigger();  // a quarter to three quarters
        w->registryIO(MySettings::WRITE);
    }
    EXPECT_EQ(settings.value("/MainWin/ZoomIndex").toInt(), 12);
    EXPECT_EQ(settings.value("/Conversion/RulerPt1").toPointF(), QPointF(32, 64));
    auto w = window();
    EXPECT_EQ(w->dataView()->zoomIndex(), 12);
    EXPECT_EQ(w->dataView()->ruler()->second(), QPointF(96, 64));
}

// Dragged while the plot is arranged, a colour bar keeps its new place: the
// record takes it when arranging ends, and every scene shows it there. In
// data mode the same drag moves nothing.
TEST_F(PlotScene, ArrangedItemsKeepTheirPlace) {
    auto w = shownWindow();
    ASSERT_TRUE(w->loadFile(path("run0001a.tif")));
    KelvaneDataView* v = w->dataView();
    QWidget* port = v->view(0)->viewport();
    QGraphicsItem* bar = v->items(0)->item(I::ITEM_IMAGE_LUT);
    const auto dragBar = [&] {
        const QPoint from = v->view(0)->mapFromScene(bar->sceneBoundingRect().center());
        QTest::mousePress(port, Qt::LeftButton, Qt::NoModifier, from);
        QMouseEvent move(QEvent::MouseMove, from + QPoint(40, 30), Qt::NoButton, Qt::LeftButton,
                         Qt::NoModifier);
        QApplication::sendEvent(port, &move);
        QTest::mouseRelease(port, Qt::LeftButton, Qt::NoModifier, from + QPoint(40, 30));
    };
    w->setKelvaneMode(MODE_ARRANGE_PLOT, true);
    w->slotUpdateUI();
    const QPointF start = bar->pos();
    dragBar();
    EXPECT_EQ(bar->pos(), start + QPointF(40, 30));
    w->setKelvaneMode(MODE_DATA, true);
    const PIVPLOT::LUT_CFG& placed = v->plotDlg()->record().image.lut;
    EXPECT_EQ(QPointF(placed.PosX, placed.PosY), start + QPointF(40, 30));
    EXPECT_EQ(v->items(3)->item(I::ITEM_IMAGE_LUT)->pos(), start + QPointF(40, 30));
    PIVPLOT::PLOT_CFG shown = v->plotDlg()->record();
    shown.image.lut.Show = true;
    v->plotDlg()->setRecord(shown);
    v->slotApplyPlotSettings();
    w->slotUpdateUI();
    dragBar();
    EXPECT_EQ(bar->pos(), start + QPointF(40, 30));
}

// B halves the top of the grey range and D doubles it back; Ctrl+R turns the
// table round: in every scene, and a pixel of grey g takes index g 255 / top.
TEST_F(PlotScene, BrightnessAndTableKeysReachEveryScene) {
    auto w = window();
    ASSERT_TRUE(w->loadFile(path("run0001a.tif")));
    KelvaneDataView* v = w->dataView();
    w->slotUpdateUI();
    int px = 0, py = 0;  // a particle pixel of middle grey
    for (int i = 0; i < kSize * kSize; ++i)
        if (truth.pixelA(i % kSize, i / kSize) >= 60 && truth.pixelA(i % kSize, i / kSize) < 120) {
            px = i % kSize, py = i / kSize;
            break;
        }
    const double grey = truth.pixelA(px, py);
    ASSERT_GE(grey, 60);
    struct Case {
        const char* action;
        double top;
        bool reversed;
    } const cases[] = {{"actionImageBrighter", 127, false},
                       {"actionImageDarker", 255, false},
                       {"actionImageReverseLUT", 255, true}};
    for (const Case& c : cases) {
        w->action(c.action)->trigger();
        for (int s = 0; s < KelvaneDataView::kSceneCount; ++s) {
            EXPECT_EQ(v->items(s)->intensityTop(), c.top) << c.action;
            EXPECT_EQ(v->items(s)->imagePair()->lut()->isReversed(), c.reversed) << c.action;
        }
        for (int s : {0, 3})
            EXPECT_NEAR(v->items(s)->imagePair()->indexImage().pixelIndex(px, py),
                        std::min(255.0, grey * 255 / c.top), 1.0)
                << c.action;
    }
}
