// The views of one spot and of the whole field, on synthetic pairs whose
// particles move a known shift: the correlation plane of a clicked window and
// the histogram of the evaluated displacements.
#include <QFile>
#include <QMouseEvent>
#include <QTextStream>

#include <algorithm>
#include <cmath>
#include <numeric>

#include "box_watcher.h"
#include "corrplaneview.h"
#include "hist2dview.h"
#include "piv_data2d.h"
#include "session_fixture.h"
#include "xyplotwindow.h"

namespace {

class PlaneView : public SessionTest {
protected:
    CorrPlaneView& view() { return *controller.corrPlaneView(); }
    // The pixel of the plane's largest value, found by walking the values.
    static QPoint argmax(const FloatPlane& p) {
        const auto& v = *p.values;
        const long k = long(std::max_element(v.begin(), v.end()) - v.begin());
        return QPoint(int(k % p.width), int(k / p.width));
    }
    // A square plane of one value.
    static FloatPlane flat(int side, float value = 1.0f) {
        FloatPlane p;
        p.values = QSharedPointer<const std::vector<float>>::create(size_t(side * side), value);
        p.width = p.height = side;
        return p;
    }
    // The pixel of the largest value in a saved "x y value" file.
    static QPoint fileMax(const QString& path) {
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::ReadOnly | QIODevice::Text)) << path.toStdString();
        QTextStream in(&file);
        double best = -1e30;
        QPoint at(-1, -1);
        while (!in.atEnd()) {
            const QStringList f = in.readLine().split(' ');
            if (f.size() != 3 || f[0].startsWith('#')) continue;
            if (f[2].toDouble() > best)
                best = f[2].toDouble(), at = QPoint(f[0].toInt(), f[1].toInt());
        }
        return at;
    }
};

}  // namespace

// The pair moves (2.30, -1.40) image pixels and the windows are offset by
// (2, -1), a y the library counts upwards: the peak of a 64 px plane sits at
// (32 + 0.3, 32 - 1.4 - 1) = (32.3, 29.6), and the marker on it. While the
// window is hidden nothing reaches it.
TEST_F(PlaneView, ClickFillsTheShownViewWithTheMarkerOnThePeak) {
    loadPair(2.30, -1.40);
    for (const QPointF at : {QPointF(64, 64), QPointF(48, 80)}) {
        view().hide();
        const auto before = view().plane(0).values;
        controller.slotCorrelateAtPoint(at);
        EXPECT_EQ(view().plane(0).values, before);
        controller.slotShowCorrelationPlane();
        controller.slotCorrelateAtPoint(at);
        ASSERT_TRUE(view().haveData());
        const FloatPlane& plane = view().plane(0);
        EXPECT_EQ(plane.width, 64);
        EXPECT_EQ(view().sample(0, 1).height, 64);
        const QPoint peak = argmax(plane);
        EXPECT_LE(std::abs(peak.x() - 32) + std::abs(peak.y() - 30), 1);
        const QPointF marker = view().markerPosition();
        EXPECT_NEAR(marker.x(), peak.x(), 1.0);
        EXPECT_NEAR(marker.y(), peak.y(), 1.0);
    }
}

// The files hold what was shown: their maximum is the marker's pixel. The
// same plane is not written twice; a folder that cannot take the files says
// which file failed; planes of 128 px ask first (3 x 16384 lines of text).
TEST_F(PlaneView, SaveWritesThreeFilesOnceAndSaysWhyNot) {
    loadPair(2.30, -1.40);
    controller.slotShowCorrelationPlane();
    {
        BoxWatcher boxes;
        view().slotSaveCorr();
        EXPECT_EQ(boxes.texts.value(0), "Missing correlation samples - can not save this plane!");
    }
    controller.slotCorrelateAtPoint(QPointF(64, 64));
    BoxWatcher boxes;
    view().slotSaveCorr();
    view().slotSaveCorr();
    ASSERT_EQ(boxes.texts.size(), 2);
    EXPECT_TRUE(boxes.texts[0].startsWith("Correlation plane data was stored as follows:"));
    EXPECT_EQ(boxes.texts[1], "This correlation data was already saved!");
    const QString corr = QString::fromStdString(dir.file("corr_r64_c64.dat"));
    EXPECT_TRUE(boxes.texts[0].contains(corr)) << boxes.texts[0].toStdString();
    const QPointF marker = view().markerPosition();
    const QPoint saved = fileMax(corr);
    EXPECT_NEAR(saved.x(), marker.x(), 1.0);
    EXPECT_NEAR(saved.y(), marker.y(), 1.0);
    for (const char* name : {"sample1_r64_c64.dat", "sample2_r64_c64.dat"})
        EXPECT_TRUE(QFile::exists(QString::fromStdString(dir.file(name)))) << name;

    // A disk that fills up fails the save and keeps the file there before.
    test_support::WriteBytes(dir.file("corr_r0_c0.dat"), "old");
    view().slotDrawSamples(flat(32), flat(32), 32, 0);
    view().slotDrawCorrelation(flat(32), PIV_VECTOR(), 0);
    {
        test_support::FileSizeLimit full(64);
        view().slotSaveCorr();
    }
    EXPECT_EQ(test_support::ReadBytes(dir.file("corr_r0_c0.dat")), "old");
    boxes.texts.clear();
    view().setDirectory(QString::fromStdString(dir.file("missing/folder")));
    view().slotDrawSamples(flat(32), flat(32), 32, 0);
    view().slotDrawCorrelation(flat(32), PIV_VECTOR(), 0);
    view().slotSaveCorr();
    view().slotDrawSamples(flat(128), flat(128), 128, 0);
    view().slotDrawCorrelation(flat(128), PIV_VECTOR(), 0);
    view().slotSaveCorr();
    ASSERT_EQ(boxes.texts.size(), 2);
    EXPECT_EQ(boxes.texts[0],
              QString("Trouble saving file: '%1'")
                  .arg(QString::fromStdString(dir.file("missing/folder/corr_r0_c0.dat"))));
    EXPECT_TRUE(boxes.texts[1].startsWith(
        "The file size for the correlation plane data\nmay exceed 1 MByte"));
}

// A press on the plane asks for the window whose particles the pixel under
// it points at: the spot shifted by the pixel's distance from the centre.
TEST_F(PlaneView, PressOnThePlaneAsksForTheShiftedSpot) {
    controller.slotShowCorrelationPlane();
    PIV_VECTOR v;
    v.ix = 100;
    v.iy = 50;
    view().slotDrawCorrelation(flat(32, 0.0f), v, 0);
    QSignalSpy asked(&view(), &CorrPlaneView::signalInterrogateAtPoint);
    QMouseEvent e(QEvent::MouseButtonPress, QPointF(), Qt::LeftButton, Qt::LeftButton,
                  Qt::NoModifier);
    view().slotMousePressEvent(&e, QPointF(16 + 3.5, 16 - 2 + 0.5));
    view().slotMousePressEvent(&e, QPointF(-5, 10));  // beside the plane
    ASSERT_EQ(asked.count(), 1);
    EXPECT_EQ(asked.at(0).at(0).toPoint(), QPoint(103, 48));
}

namespace {

// The evaluated pair moving (2.30, -1.40) image pixels: 7 x 7 nodes that all
// find about dx = 2.30, dy = +1.40 (dy counts upwards).
class Histogram : public SessionTest {
protected:
    void SetUp() override {
        loadPair(2.30, -1.40);
        ASSERT_TRUE(evaluate());
        field = object.data(0);
        controller.slotShowHistogram();
    }
    Hist2DView& view() { return *controller.hist2DView(); }
    static double sum(const std::vector<double>& bins) {
        return std::accumulate(bins.begin(), bins.end(), 0.0);
    }
    // The first `count` nodes get a wild shift, in the result and in the raw
    // peak that validation starts from; `flag` says how they count.
    void makeWild(int count, uint8_t flag) {
        for (int k = 0; k < count; ++k) {
            PIV_VECTOR v = field->getVector(k);
            v.dx += 5.0f;
            v.peak[0].x += 5.0f;
            v.flag = flag;
            field->setVector(k, v);
        }
    }
    // Rows of seven, dx 2.0..2.6 and dy from 1.1, 0.1 px apart.
    void spread() {
        for (int k = 0; k < field->nodeCount(); ++k) {
            PIV_VECTOR v = field->getVector(k);
            v.dx = v.peak[0].x = 2.0f + 0.1f * float(k % 7);
            v.dy = v.peak[0].y = 1.1f + 0.1f * float(k / 7 % 7);
            field->setVector(k, v);
        }
    }
    PIV_Data2D* field = nullptr;
};

}  // namespace

// Only enabled, finite vectors count, in every bin and in the range: five
// disabled vectors 5 px off and two enabled ones at NaN / infinity add
// nothing and leave the bins round the cluster. The fraction of 2.30 falls
// in bin 3 of ten, that of 1.40 in bin 4 (one bin either side for the
// evaluation's error).
TEST_F(Histogram, BinsCountTheEnabledVectorsOnly) {
    const int nodes = field->nodeCount();
    const struct {
        int disabled, nonFinite, counted;
    } cases[] = {{0, 0, nodes}, {5, 0, nodes - 5}, {5, 2, nodes - 7}, {nodes, 0, 0}};
    for (const auto& c : cases) {
        makeWild(c.disabled, VECTOR_OUTLIER);
        for (int k = 5; k < 5 + c.nonFinite; ++k) {
            PIV_VECTOR v = field->getVector(k);
            v.dx = std::nanf("");
            v.dy = INFINITY;
            field->setVector(k, v);
        }
        view().updatePivData(field, object.parameters(0)->pivEvalCfg());
        for (Hist2DView::Pdf p : {Hist2DView::PDF_X, Hist2DView::PDF_Y, Hist2DView::PDF_SUBPIXEL_X,
                                  Hist2DView::PDF_SUBPIXEL_Y})
            EXPECT_EQ(sum(view().bins(p)), c.counted) << c.disabled << " pdf " << p;
        if (c.counted == 0) continue;
        EXPECT_LT(view().low(0) + view().bins(Hist2DView::PDF_X).size() * view().binWidth(), 5.0);
        for (int axis : {0, 1}) {
            const auto& sub = view().bins(Hist2DView::Pdf(Hist2DView::PDF_SUBPIXEL_X + axis));
            const long peak = long(std::max_element(sub.begin(), sub.end()) - sub.begin());
            EXPECT_NEAR(peak, axis == 0 ? 3 : 4, 1) << "axis " << axis;
        }
    }
    view().show1DPDFs(true);
    EXPECT_EQ(view().pdfWindow(Hist2DView::PDF_SUBPIXEL_Y)->windowTitle(),
              "Subpixel-PDF for vertical displacements");
    // A disk that fills up fails the save and keeps the file there before.
    const QString saved = QString::fromStdString(dir.file("hist.dat"));
    ASSERT_TRUE(view().saveHistogram(saved));
    const std::string before = test_support::ReadBytes(saved.toStdString());
    {
        test_support::FileSizeLimit full(64);
        EXPECT_FALSE(view().saveHistogram(saved));
    }
    EXPECT_EQ(test_support::ReadBytes(saved.toStdString()), before);
}

// Three regions exist: a fourth add changes nothing. The 25 nodes are
// spread over rows of seven, dx 2.0..2.6 and dy 1.1..1.4, 0.1 px apart, and
// six of them moved 5 px right. A rectangle round the rows, dx 1.9..2.7 and
// dy 1.0..1.5, validates the field: the six are flagged, the window is stored
// relative to the expected shift (2, -1). Each dot then shows its vector's
// validation colour: valid green, interpolated cyan, replaced yellow,
// outlier red.
TEST_F(Histogram, RegionRoundTheClusterFlagsTheOutliersAndIsStored) {
    ASSERT_EQ(field->nodeCount(), 25);
    for (int k = 0; k < 4; ++k) view().slotAddROI();
    EXPECT_EQ(view().roiCount(), 3);

    spread();
    makeWild(6, VECTOR_ENABLED);
    view().setBinsPerPixel(50);
    const DATA_ROI window[3] = {{1.9f - 2, 2.7f - 2, 1.0f + 1, 1.5f + 1, false, false}, {}, {}};
    const bool used[3] = {true, false, false};
    view().setROI(window, used);
    view().slotValidate();

    const PIV_Data2D* result = object.data(0);
    for (int k = 0; k < result->nodeCount(); ++k)
        EXPECT_EQ((result->getVector(k).flag & VECTOR_OUTLIER) != 0, k < 6) << k;
    const QStringList stored = settings.value("/Outliers/GlobalHistROI0").toStringList();
    ASSERT_EQ(stored.size(), 4);
    EXPECT_NEAR(stored[0].toDouble(), -0.1, 0.02);
    EXPECT_NEAR(stored[3].toDouble(), 2.5, 0.02);

    const struct {
        int node;
        uint8_t flag;
        QRgb colour;
    } dots[] = {{7, VECTOR_ENABLED, 0xff00ff00u},
                {12, VECTOR_ENABLED | VECTOR_INTERPOLATED, 0xff00ffffu},
                {18, VECTOR_ENABLED | VECTOR_LOWER_PEAK, 0xffffff00u},
                {24, VECTOR_OUTLIER, 0xffff0000u}};
    for (const auto& d : dots) {
        PIV_VECTOR v = field->getVector(d.node);
        v.flag = d.flag;
        field->setVector(d.node, v);
    }
    view().updatePivData(field, object.parameters(0)->pivEvalCfg());
    for (const auto& d : dots) {
        const PIV_VECTOR v = field->getVector(d.node);
        const QPointF at = view().toScene(v.dx, v.dy);
        EXPECT_EQ(view().dots().pixel(int(at.x()), int(at.y())), d.colour) << d.node;
    }
    const QString shots = qEnvironmentVariable("KELVANE_SCREENSHOTS");
    if (shots.isEmpty()) return;
    view().slotChangedDotSize(3.0);
    view().resize(640, 720);
    view().slotSetZoom(4);
    EXPECT_TRUE(view().grab().save(shots + "/histogram2d.png"));
}

// With the window closed the session frees the field it showed: its slots
// still run, and opened again it counts the new field (five switched off).
TEST_F(Histogram, ClosedWindowOutlivesTheFieldItShowed) {
    const std::string first = dir.file("first.nc"), next = dir.file("next.nc");
    ASSERT_TRUE(field->saveNetCDF(first.c_str()));
    makeWild(5, VECTOR_OUTLIER);
    ASSERT_TRUE(field->saveNetCDF(next.c_str()));
    ASSERT_TRUE(controller.loadFile(QString::fromStdString(first), false, false, false));
    view().slotAddROI();
    view().close();
    ASSERT_TRUE(controller.loadFile(QString::fromStdString(next), false, false, false));
    view().slotFitROI();
    controller.slotShowHistogram();
    EXPECT_EQ(sum(view().bins(Hist2DView::PDF_X)), 25 - 5);
}

// A fitted region holds every vector of the rows (dx 2.0..2.6, dy 1.1..1.4)
// with a dot's width (2 bins of 0.02 px) to spare left of dx 2.0 and, for
// the ellipse, the half-width 0.3 grown by sqrt(2) to reach the corners.
TEST_F(Histogram, FittedRegionHoldsTheRowsInEitherShape) {
    spread();
    PIV_VECTOR lost = field->getVector(0);  // enabled, but of no size: left out
    lost.dx = std::nanf("");
    field->setVector(0, lost);
    view().setBinsPerPixel(50);
    view().slotAddROI();
    const struct {
        bool ellipse;
        double spare;
    } cases[] = {{false, 0.04}, {true, 0.04 + 0.3 * (M_SQRT2 - 1)}};
    for (const auto& c : cases) {
        if (c.ellipse) view().slotConvertROIShape();
        view().slotFitROI();
        const DATA_ROI r = view().getROI()[0];
        EXPECT_EQ(r.type1, c.ellipse);
        // The window is kept relative to the expected shift (2, -1).
        const double x0 = r.xMin + 2, x1 = r.xMax + 2, y0 = r.yMin - 1, y1 = r.yMax - 1;
        EXPECT_NEAR(x0, 2.0 - c.spare, 0.03);
        for (int k = 1; k < field->nodeCount(); ++k) {
            const PIV_VECTOR v = field->getVector(k);
            const double u = (v.dx - (x0 + x1) / 2) / ((x1 - x0) / 2);
            const double w = (v.dy - (y0 + y1) / 2) / ((y1 - y0) / 2);
            EXPECT_LE(c.ellipse ? std::hypot(u, w) : std::max(std::abs(u), std::abs(w)), 1.0) << k;
        }
    }
}
