// The views of one spot and of the whole field, on synthetic pairs whose
// particles move a known shift: the correlation plane of a clicked window and
// the histogram of the evaluated displacements.
#include <QFile>
#include <QMouseEvent>
#include <QTextStream>

#include <algorithm>
#include <cmath>

#include "box_watcher.h"
#include "corrplaneview.h"
#include "session_fixture.h"

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
    const struct { QPointF at; } cases[] = {{QPointF(64, 64)}, {QPointF(48, 80)}};
    loadPair(2.30, -1.40);
    for (const auto& c : cases) {
        view().hide();
        const auto before = view().plane(0).values;
        controller.slotCorrelateAtPoint(c.at);
        EXPECT_EQ(view().plane(0).values, before);
        controller.slotShowCorrelationPlane();
        controller.slotCorrelateAtPoint(c.at);
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

    const auto plane = [](int side) {
        FloatPlane p;
        p.values = QSharedPointer<const std::vector<float>>::create(size_t(side * side), 1.0f);
        p.width = p.height = side;
        return p;
    };
    boxes.texts.clear();
    view().setDirectory(QString::fromStdString(dir.file("missing/folder")));
    view().slotDrawSamples(plane(32), plane(32), 32, 0);
    view().slotDrawCorrelation(plane(32), PIV_VECTOR(), 0);
    view().slotSaveCorr();
    view().slotDrawSamples(plane(128), plane(128), 128, 0);
    view().slotDrawCorrelation(plane(128), PIV_VECTOR(), 0);
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
    FloatPlane p;
    p.values = QSharedPointer<const std::vector<float>>::create(size_t(32 * 32), 0.0f);
    p.width = p.height = 32;
    PIV_VECTOR v;
    v.ix = 100;
    v.iy = 50;
    view().slotDrawCorrelation(p, v, 0);
    QSignalSpy asked(&view(), &CorrPlaneView::signalInterrogateAtPoint);
    QMouseEvent e(QEvent::MouseButtonPress, QPointF(), Qt::LeftButton, Qt::LeftButton,
                  Qt::NoModifier);
    view().slotMousePressEvent(&e, QPointF(16 + 3.5, 16 - 2 + 0.5));
    view().slotMousePressEvent(&e, QPointF(-5, 10));  // beside the plane
    ASSERT_EQ(asked.count(), 1);
    EXPECT_EQ(asked.at(0).at(0).toPoint(), QPoint(103, 48));
}
