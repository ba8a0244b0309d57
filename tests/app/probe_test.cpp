// The mouse over the field, driven as the scene drives the controller: a
// click correlates or samples, a move reports the pixel and vector under it.
// The pair's particles move (2.30, -1.40) image pixels, y down the rows.
#include <QMouseEvent>
#include <QRegularExpression>

#include "image2d.h"
#include "piv_data2d.h"
#include "pivprobedlg.h"
#include "session_fixture.h"

namespace {

class Probe : public SessionTest {
protected:
    void SetUp() override {
        loadPair(2.30, -1.40);
        ASSERT_TRUE(evaluate());
        const PIV_Data2D* d = object.data(0);
        const SIZE3D n = d->grid().nodes;
        middle = d->getVector(n.width * (n.height / 2) + n.width / 2);
        for (QSignalSpy* spy : {&status, &log, &drawn}) spy->clear();
        qRegisterMetaType<QMouseEvent*>("QMouseEvent*");
    }
    void press(Qt::MouseButton button, QPointF at) {
        QMouseEvent e(QEvent::MouseButtonPress, at, button, button, Qt::NoModifier);
        controller.slotProcessMousePress(&e, at, true);
    }
    QPointF at(const PIV_VECTOR& v) const { return QPointF(v.ix, v.iy); }

    PIV_VECTOR middle;
    QSignalSpy status{&controller, &KelvaneData::signalMessage};
    QSignalSpy log{&controller, &KelvaneData::signalLogMessage};
    QSignalSpy drawn{&controller, &KelvaneData::signalDrawVector};
};

}  // namespace

// The status shows the shift in the user's axes: with the origin at the top
// y counts down the rows as the flow was made; at the bottom it counts up.
// Two decimals for the shift, one for the signal-to-noise ratio; one window
// of 64 px offset by the whole pixels finds the shift within 0.03 px. In
// speckle mode the converted shift is a "Shift", not a velocity.
TEST_F(Probe, ClickOnANodeCorrelatesItWithYFollowingTheOrigin) {
    const struct {
        bool originTop;
        int row;
        double dy;
        int mode;
        const char* word;
    } cases[] = {{true, middle.iy, -1.40, 1, "Vel"},
                 {false, 127 - middle.iy, 1.40, 1, "Vel"},
                 {true, middle.iy, -1.40, 3, "Shift"}};
    const QRegularExpression shown(
        R"(^Pos\((\d+),(\d+)\)  Dx=(-?\d+\.\d\d) Dy=(-?\d+\.\d\d) \(SNR=\d+\.\d\) (\w+)=)");
    for (const auto& c : cases) {
        object.setOriginTopLeft(c.originTop);
        object.setAnalysisMode(c.mode);
        status.clear();
        press(Qt::LeftButton, at(middle));
        const QRegularExpressionMatch m = shown.match(texts(status).value(0));
        ASSERT_TRUE(m.hasMatch()) << texts(status).join('|').toStdString();
        EXPECT_EQ(m.captured(1).toInt(), middle.ix);
        EXPECT_EQ(m.captured(2).toInt(), c.row);
        EXPECT_NEAR(m.captured(3).toDouble(), 2.30, 0.03);
        EXPECT_NEAR(m.captured(4).toDouble(), c.dy, 0.03);
        EXPECT_EQ(m.captured(5), c.word);
    }
    EXPECT_EQ(drawn.count(), 3);
}

TEST_F(Probe, SamplingGivesTheHeadAndASquareOfNodesInsideTheGrid) {
    controller.setVectorSampling(true, 3);
    const PIV_VECTOR corner = object.data(0)->getVector(0);
    for (QPointF point : {at(middle), at(corner)}) {
        log.clear();
        drawn.clear();
        press(Qt::LeftButton, point);
        const QStringList lines = texts(log).join('\n').split('\n', Qt::SkipEmptyParts);
        ASSERT_EQ(lines.size(), 5 + 9);
        EXPECT_EQ(lines[0], "# vectors nearest to cursor");
        EXPECT_EQ(lines[3], "# velocity unit: m/s");
        EXPECT_EQ(lines[4], "# imgX imgY  dX dY  physX physY  velX velY");
        EXPECT_EQ(drawn.count(), 9);
    }
    // At the corner the square lies inward: it starts at the corner node.
    EXPECT_TRUE(texts(log)[1].startsWith(QStringLiteral("%1 %2  ").arg(corner.ix).arg(corner.iy)));
}

// What a click does besides correlating: refused in a batch, handed on for
// the right button, and no correlation outside the data mode.
TEST_F(Probe, ClicksThatDoNotCorrelate) {
    QSignalSpy right(&controller, &KelvaneData::signalProcessRightButton);
    controller.setBatchMode(true);
    press(Qt::LeftButton, at(middle));
    EXPECT_EQ(texts(status), QStringList{"Batch processing in progress..."});
    controller.setBatchMode(false);
    press(Qt::RightButton, at(middle));
    EXPECT_EQ(right.count(), 1);
    object.setKelvaneMode(MODE_ARRANGE_PLOT);
    press(Qt::LeftButton, at(middle));
    EXPECT_EQ(texts(log), QStringList{" not in data display mode"});
    EXPECT_EQ(drawn.count(), 0);
}

// A click on a single image logs the pixel and the spot it shows; the spot
// follows the pixel alone, wherever the origin is drawn: at 2 px per mm from
// the top-left pixel, (10, 20) lies 5 mm right and 10 mm down.
TEST_F(Probe, ClickOnASingleImageLogsItsSpot) {
    // Auto-correlation reads one frame only.
    const std::string single = dir.file("single.tif");
    ASSERT_TRUE(Image2D(128, 128, IMAGE_UINT8).save(single.c_str()));
    object.setAnalysisMode(PIV::ANALYSIS_AUTO_CORRELATION);
    ASSERT_TRUE(object.loadPivImage(QString::fromStdString(single), QString(), false, 0));
    PIV_PARAMETERS p = object.parameters(0)->pivParameters();
    p.convert.ImageOrigin = POINT3D{0, 0, 0};
    p.convert.PhysicalOrigin = FPOINT3D{0, 0, 0};
    p.convert.LengthConversion[0] = p.convert.LengthConversion[1] = 2.0;
    object.setPivParameters(p, p);
    for (bool top : {true, false}) {
        object.setOriginTopLeft(top);
        log.clear();
        press(Qt::LeftButton, QPointF(10, 20));
        EXPECT_EQ(texts(log), QStringList{"  10   20     5  -10"}) << top;
    }
}

// Bit 7 toggles, and enabled (bit 0) and outlier (bit 3) trade places.
TEST_F(Probe, ToggledTwiceAVectorHasItsFlagsBack) {
    const struct {
        uint8_t before, once;
        const char* status;  // the status word after the first toggle
    } cases[] = {{0x01, 0x88, "disabled"},
                 {0x08, 0x81, "valid"},
                 {0x09, 0x89, "valid"},
                 {0x03, 0x8a, "masked"}};
    PIV_Data2D* d = object.data(0);
    for (const auto& c : cases) {
        d->pivVector(0, 0)->flag = c.before;
        controller.toggleVectorFlag(at(d->getVector(0)), 0);
        EXPECT_EQ(d->getVector(0).flag, c.once);
        status.clear();
        controller.slotProcessMouseMove(nullptr, at(d->getVector(0)), true);
        EXPECT_TRUE(texts(status).value(0).endsWith(QStringLiteral("Status=(%1)").arg(c.status)));
        controller.toggleVectorFlag(at(d->getVector(0)), 0);
        EXPECT_EQ(d->getVector(0).flag, c.before);
    }
}

// The pixel values are those written to the files.
TEST_F(Probe, MoveReportsPixelsAndTheNearestVector) {
    Image2D a, b;
    ASSERT_TRUE(a.load(dir.file("run0001a.tif").c_str()));
    ASSERT_TRUE(b.load(dir.file("run0001b.tif").c_str()));
    const int x = middle.ix + 1, y = middle.iy;
    controller.slotProcessMouseMove(nullptr, QPointF(x, y), true);
    controller.slotProcessMouseMove(nullptr, QPointF(128, 5), true);  // beyond the image
    ASSERT_EQ(status.count(), 1);
    const QString text = status.at(0).at(0).toString();
    EXPECT_TRUE(text.startsWith(QStringLiteral("ViewA : Pos ( %1,%2 )  Phys [").arg(x).arg(y)));
    EXPECT_TRUE(text.contains(QStringLiteral("  ImgA=%1  ImgB=%2 -> Vel (")
                                  .arg(double(a.pixel(x, y)))
                                  .arg(double(b.pixel(x, y)))))
        << text.toStdString();
    EXPECT_TRUE(text.endsWith("Status=(valid)"));
    EXPECT_EQ(controller.probeDlg()->record().ix, middle.ix);  // the probe shows the node
}
