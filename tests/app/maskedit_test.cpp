// The mask editor and its object file: masks drawn by mouse on a known
// image are counted pixel by pixel, files written by hand are read, and
// the program is run as a user runs it.
#include <QProcess>
#include <QSignalSpy>
#include <QStatusBar>
#include <QTest>
#include <cmath>
#include <sstream>

#include "box_watcher.h"
#include "imageview.h"
#include "kelvanedataview.h"
#include "kelvanesceneview.h"
#include "maskedit.h"
#include "measuredlg.h"
#include "qpiv_imagepair.h"
#include "window_fixture.h"

namespace {

class Mask : public MainWindow {
protected:
    // An editor over a 100 x 80 grey image, shown so that the mouse reaches it.
    std::unique_ptr<MaskEdit> editor() {
        auto e = std::make_unique<MaskEdit>(true, &settings);
        Image2D image(100, 80, IMAGE_UINT8);
        image.fill(90);
        e->updateImagePair(&image, nullptr);
        e->show();
        return e;
    }
    static void drag(QGraphicsView* view, QPointF from, QPointF to) {
        QWidget* port = view->viewport();
        QTest::mousePress(port, Qt::LeftButton, {}, view->mapFromScene(from));
        // A move with the button held, as a hand drags.
        QMouseEvent move(QEvent::MouseMove, view->mapFromScene(to), Qt::NoButton, Qt::LeftButton,
                         Qt::NoModifier);
        QApplication::sendEvent(port, &move);
        QTest::mouseRelease(port, Qt::LeftButton, {}, view->mapFromScene(to));
    }
    // Left clicks on the points, a right click to end.
    static void clickPath(QGraphicsView* v, std::initializer_list<QPointF> points) {
        for (QPointF p : points)
            QTest::mouseClick(v->viewport(), Qt::LeftButton, {}, v->mapFromScene(p));
        QTest::mouseClick(v->viewport(), Qt::RightButton, {}, v->mapFromScene(*points.begin()));
    }
    static int masked(const Image2D& m) {
        int n = 0;
        for (int y = 0; y < int(m.height()); ++y)
            for (int x = 0; x < int(m.width()); ++x) n += m.pixel(x, y) == 255.0f;
        return n;
    }
};

}  // namespace

// Areas: the rectangle (10,20)->(40,60) spans 30 x 40 pixels; the ellipse in
// the same box has pi*15*20 = 942.5; the triangle (10,10),(70,10),(10,50) has
// the shoelace area 1200 and a perimeter of 172.1, which bounds what the
// outline adds.
TEST_F(Mask, ShapesDrawnByMouseMaskTheirArea) {
    struct Case {
        int mode;
        double area, tolerance;
    } cases[] = {{MaskEdit::MASK_EDIT_RECT, 1200, 0},
                 {MaskEdit::MASK_EDIT_ELLIPSE, M_PI * 15 * 20, 0.01 * M_PI * 15 * 20},
                 {MaskEdit::MASK_EDIT_POLYGON, 1200, 60 + 40 + std::hypot(60, 40)}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.mode);
        auto e = editor();
        e->setMaskEditMode(c.mode);
        if (c.mode == MaskEdit::MASK_EDIT_POLYGON)
            clickPath(e->view(), {{10, 10}, {70, 10}, {10, 50}});
        else
            drag(e->view(), {10, 20}, {40, 60});
        ASSERT_TRUE(e->createMask());
        const int plain = masked(*e->maskImage());
        EXPECT_NEAR(plain, c.area, c.tolerance);
        // Inverted: the pixel negative, every pixel swapped.
        Image2D before(*e->maskImage());
        e->setFlagInverted(true);
        ASSERT_TRUE(e->createMask());
        int swapped = 0;
        for (int y = 0; y < 80; ++y)
            for (int x = 0; x < 100; ++x)
                swapped += e->maskImage()->pixel(x, y) == 255.0f - before.pixel(x, y);
        EXPECT_EQ(swapped, 8000);
        e->deleteAllObjects(false);
    }
}

// Editing by mouse: a vertex of the triangle (10,10),(70,10),(10,50) dragged
// to (90,10) makes it 80 x 40 / 2 = 1600 px^2; a rectangle dragged 20 px to
// the right masks column 45; a click in delete mode removes it.
TEST_F(Mask, VerticesMoveObjectsMoveAndClicksDelete) {
    auto e = editor();
    e->addPolygon(QPolygonF({QPointF(10, 10), QPointF(70, 10), QPointF(10, 50)}));
    e->setMaskEditMode(MaskEdit::MASK_EDIT_VERTEX);
    drag(e->view(), {70, 10}, {90, 10});
    ASSERT_TRUE(e->createMask());
    EXPECT_NEAR(masked(*e->maskImage()), 1600, 80 + 40 + std::hypot(80, 40));
    e->deleteAllObjects(false);
    e->addRectangle(QRectF(10, 20, 30, 40));
    e->setMaskEditMode(MaskEdit::MASK_EDIT_MOVE);
    QTest::mouseClick(e->view()->viewport(), Qt::LeftButton, {}, e->view()->mapFromScene(25, 40));
    drag(e->view(), {25, 40}, {45, 40});
    ASSERT_TRUE(e->createMask());
    EXPECT_EQ(e->maskImage()->pixel(45, 40), 255.0f);
    EXPECT_EQ(e->maskImage()->pixel(15, 40), 0.0f);
    EXPECT_EQ(masked(*e->maskImage()), 1200);
    e->setMaskEditMode(MaskEdit::MASK_EDIT_DELETE);
    QTest::mouseClick(e->view()->viewport(), Qt::LeftButton, {}, e->view()->mapFromScene(45, 40));
    EXPECT_TRUE(e->objectItems().isEmpty());
}

TEST_F(Mask, NoObjectsKeepTheMaskAndClosingCanBeCancelled) {
    test_support::WriteBytes(file("one.msk"), "Rectangle={\n pos=50,50\n width=5\n height=5\n}\n");
    auto e = editor();
    e->addRectangle(QRectF(0, 0, 10, 10));
    ASSERT_TRUE(e->loadMaskObjects(path("one.msk")));
    ASSERT_TRUE(e->createMask());
    // The drawn rectangle is in no file: Cancel keeps it, the loaded one and the window.
    {
        BoxWatcher box(QStringLiteral("Cancel"));
        EXPECT_FALSE(e->close());
        ASSERT_EQ(box.texts.size(), 1);
        EXPECT_EQ(box.texts[0], "Do you want to quit MaskEdit\nThere is unsaved mask data!");
    }
    EXPECT_EQ(e->objectItems().size(), 2);
    e->deleteAllObjects(false);
    EXPECT_FALSE(e->createMask());
    EXPECT_EQ(masked(*e->maskImage()), 100 + 25);
    // A row of 2^26 pixels at 32 bits is 2^31 bits, more than a QImage row
    // can count: the canvas cannot be made, a clear failure, the mask kept.
    Image2D wide(1 << 26, 1, IMAGE_UINT8);
    e->updateImagePair(&wide, nullptr);
    e->addRectangle(QRectF(0, 0, 10, 1));
    EXPECT_FALSE(e->createMask());
    EXPECT_EQ(e->statusBar()->currentMessage(),
              "createMask() - failed (no memory for 67108864 x 1 pixels)");
    EXPECT_EQ(masked(*e->maskImage()), 100 + 25);
}

// The PCO flag is written as "PCOmode" and read as "PCOMode": a restart
// always starts without it. The tool size comes back.
TEST_F(Mask, SettingsKeepToolSizeButNotThePcoFlag) {
    {
        MaskEdit e(true, &settings);
        e.loadImagePair(path("run0001a.tif"), QString(), true);
        ASSERT_TRUE(e.isPCOmode());
        e.slotToolSizeLarge();
        EXPECT_TRUE(e.close());
    }
    EXPECT_TRUE(settings.value("/MaskEdit/PCOmode").toBool());
    MaskEdit again(true, &settings);
    EXPECT_EQ(again.toolButtonSize(), QSize(48, 48));
    EXPECT_FALSE(again.isPCOmode());
}

// Saved, the mask reaches the session: "Yes, enable" puts it into the image
// settings, and "PIV process" leaves the masked left half without vectors.
TEST_F(Mask, SavedMaskIsEnabledAndMasksTheEvaluation) {
    auto w = window();
    ASSERT_TRUE(w->data()->loadFile(path("run0001a.tif"), false, false, false));
    MaskEdit* e = w->maskEdit();
    w->slotShowMaskEditor();
    ASSERT_EQ(e->image()->width(), uint64_t(kSize));  // fed by the new image
    e->addRectangle(QRectF(0, 0, kSize / 2, kSize));
    ASSERT_TRUE(e->createMask());
    {  // "/d" 1022 times and ".tif": 2048 bytes, one more than the settings hold
        BoxWatcher box(QStringLiteral("Yes, enable"));
        w->data()->slotUpdateMask(QString("/d").repeated(1022) + ".tif", 0, 0);
        EXPECT_TRUE(box.texts.value(0).startsWith("The mask image path is longer than 2047 bytes"));
        EXPECT_FALSE(w->dataObject()->image(0)->imageCfg().MaskEnable);
    }
    {
        BoxWatcher box(QStringLiteral("Yes, enable"));
        ASSERT_TRUE(e->saveMaskImage(path("mask.tif"), "tif"));
        ASSERT_EQ(box.texts.size(), 1);
        EXPECT_EQ(box.texts[0], "Use newly created mask image:\n'" + path("mask.tif") + "'");
    }
    Image2D back(file("mask.tif"));
    EXPECT_EQ(masked(back), kSize * kSize / 2);
    const IMAGE_CFG cfg = w->dataObject()->image(0)->imageCfg();
    EXPECT_TRUE(cfg.MaskEnable);
    EXPECT_EQ(QString(cfg.Mask), path("mask.tif"));
    ASSERT_TRUE(evaluate(*w));
    const PIV_Data2D* d = w->dataObject()->data(0);
    int left = 0, leftGood = 0, rightGood = 0;
    for (int i = 0; i < d->nodeCount(); ++i) {
        const PIV_VECTOR& v = d->data()[i];
        const bool good = !(v.flag & (VECTOR_NO_RESULT | VECTOR_OUTLIER));
        if (v.x < kSize / 2 - 16) left++, leftGood += good;
        if (v.x > kSize / 2 + 16) rightGood += good;
    }
    EXPECT_GT(left, 0);
    EXPECT_EQ(leftGood, 0);
    EXPECT_GT(rightGood, 0);
}

// The program as a user runs it: "-q" writes the mask and nothing else;
// bad use prints its text and writes nothing.
TEST_F(Mask, ProgramWritesTheMaskOrSaysWhyNot) {
    test_support::WriteBytes(file("objs.msk"),
                             "Rectangle={\n  pos=10, 20\n  width=30\n  height=40\n}\n");
    struct Case {
        QStringList args;
        const char* text;
        bool written;
    } cases[] = {
        {{"-q", "-m", "objs.msk", "-o", "mask.tif", "run0001a.tif"},
         " Mask image saved in 'mask.tif'",
         true},
        {{"-q", "-o", "mask.tif", "run0001a.tif"},
         "-q option requires the specification of both:",
         false},
        {{"-q", "-m", "objs.msk", "-o", "no/such/mask.tif", "run0001a.tif"},
         " bad output file name: 'no/such/mask.tif'",
         false},
        {{"-q", "-m", "none.msk", "-o", "mask.tif", "run0001a.tif"},
         " bad mask objects file name: 'none.msk'",
         false},
        {{"-q", "-m", "objs.msk", "-o", "mask.tif", "."},
         "MaskEdit::loadImage() - '.' is not a file",
         false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        QFile::remove(path("mask.tif"));
        QProcess p;
        p.setProcessChannelMode(QProcess::MergedChannels);
        // The offscreen platform drops its screen unfreed when the program's
        // application object ends; the editor's own code is leak-checked
        // in this process by the tests above.
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("ASAN_OPTIONS", env.value("ASAN_OPTIONS") + ":detect_leaks=0");
        p.setProcessEnvironment(env);
        p.setWorkingDirectory(QString::fromStdString(dir.path()));
        p.start(MASKEDIT_PROGRAM, c.args);
        ASSERT_TRUE(p.waitForFinished(60000));
        EXPECT_TRUE(QString(p.readAllStandardOutput()).contains(c.text));
        EXPECT_EQ(p.exitCode() == 0, c.written);
        ASSERT_EQ(QFile::exists(path("mask.tif")), c.written);
        if (c.written) {
            EXPECT_EQ(masked(Image2D(file("mask.tif"))), 1200);
        }
    }
}

// A file as a user writes it: comments in three styles, ";" and ":" for
// "=", an unknown block and a stray "}". The ellipse's pos is its centre.
TEST_F(Mask, HandWrittenObjectFileLoadsWhatItKnows) {
    test_support::WriteBytes(file("hand.msk"),
                             "% made by hand\r\n[section]\nRectangle={\n pos:10;20\n width=30\n"
                             "height = 40\n}\nCircle={\n pos=1,1\n}\n}\nEllipse={\n width=20\n"
                             "pos=50, 40\n height=10\n}\n# polygon\nPolygon={\npoint=0,0\n"
                             "point=4,0\npoint=4,3\n}\nLine={ \npoint1=1,2\npoint2=7,-6\n}\n");
    PlotObjects list;
    ASSERT_TRUE(list.load(file("hand.msk")));
    ASSERT_EQ(list.size(), 4u);
    struct Want {
        PlotObject::Shape shape;
        float left, top, right, bottom;
    } want[] = {{PlotObject::RECTANGLE, 10, 20, 40, 60},
                {PlotObject::ELLIPSE, 40, 35, 60, 45},
                {PlotObject::POLYGON, 0, 0, 4, 3},
                {PlotObject::LINE, 1, -6, 7, 2}};
    for (size_t i = 0; i < 4; ++i) {
        const PLOT_RECT& r = list.at(i)->rect();
        EXPECT_EQ(list.at(i)->shape(), want[i].shape);
        EXPECT_EQ(std::vector<float>({r.left, r.top, r.right, r.bottom}),
                  std::vector<float>({want[i].left, want[i].top, want[i].right, want[i].bottom}))
            << i;
    }
    // Saved and read again, every shape comes back as it was.
    auto polyLine = std::make_unique<PlotPolyLine>();
    polyLine->setPoints({{1.5f, 2.25f}, {8, 9}});
    list.add(std::move(polyLine));
    ASSERT_TRUE(list.save(file("again.msk")));
    const std::string before = test_support::ReadBytes(file("again.msk"));
    {  // a disk that fills up fails the save and keeps the file there before
        test_support::FileSizeLimit full(64);
        EXPECT_FALSE(list.save(file("again.msk")));
    }
    EXPECT_EQ(test_support::ReadBytes(file("again.msk")), before);
    PlotObjects back;
    ASSERT_TRUE(back.load(file("again.msk")));
    std::ostringstream a, b;
    list.write(a);
    back.write(b);
    EXPECT_EQ(a.str(), b.str());
    // Missing and binary files: false with the reason, list as it was.
    test_support::WriteBytes(file("image.msk"), std::string("II*\0\x08\0\0\0", 8));
    for (const char* name : {"none.msk", "image.msk"}) {
        EXPECT_FALSE(back.load(file(name)));
        EXPECT_NE(back.lastError().find(file(name)), std::string::npos);
        EXPECT_EQ(back.size(), 5u);
    }
    EXPECT_EQ(back.lastError().rfind("failed opening file: ", 0), std::string::npos);
}

// Measuring in the scene, in pixel units, on a solid rotation dx = w*row,
// dy = w*column (y up): shapes drawn by the mouse show the circulation 2wA,
// and a uniform stream none.
TEST_F(Mask, MeasuringShapesDrawnInTheScene) {
    const double w = 0.01;
    PIV_Data2D field;
    ASSERT_TRUE(field.createZeroData(SIZE3D{kSize, kSize, 1}, SIZE3D{8, 8, 1}, POINT3D{4, 4, 0},
                                     POINT3D{124, 124, 0}, 1));
    ASSERT_TRUE(field.initShift(1.0f, 0.0f, 0.0f));
    for (int k = 0; k < field.nodeCount(); ++k) {
        PIV_VECTOR& v = field.data()[k];
        v.dx = float(w * v.iy), v.dy = float(w * v.ix);
    }
    ASSERT_TRUE(field.saveNetCDF(file("spin.nc").c_str()));
    auto win = window();
    win->resize(900, 700);
    win->show();
    ASSERT_TRUE(win->loadFile(path("spin.nc")));
    KelvaneDataView* v = win->dataView();
    KelvaneSceneView* view = v->view(0);
    // Rectangle and ellipse in the box (32,32)-(96,80); the triangle (32,32),
    // (96,32),(32,80) with its corner dragged to (112,32) in the adjust mode,
    // 1920 px^2, the rectangle's corner there kept; an open polyline 64 + 24 px.
    win->setKelvaneMode(MODE_MEASURE_RECTANGLE, true);
    drag(view, {32, 32}, {96, 80});
    win->setKelvaneMode(MODE_MEASURE_ELLIPSE, true);
    drag(view, {32, 32}, {96, 80});
    win->setKelvaneMode(MODE_MEASURE_POLYGON, true);
    clickPath(view, {{32, 32}, {96, 32}, {32, 80}});
    win->setKelvaneMode(MODE_MEASURE_POLYLINE, true);
    clickPath(view, {{32, 96}, {96, 96}, {96, 120}});
    win->setKelvaneMode(MODE_MEASURE_ADJUST, true);
    drag(view, {96, 32}, {112, 32});
    ASSERT_EQ(v->measureItems().size(), 4);
    ASSERT_NE(v->measureDlg(), nullptr);
    v->measureDlg()->slotSetConversion(1);
    const double areas[] = {3072, M_PI * 32 * 24, 1920};
    const char* shapes[] = {"Rectangle", "Ellipse", "Polygon"};
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(v->measureDlg()->cellText(i, 0), shapes[i]);
        EXPECT_NEAR(v->measureDlg()->cellText(i, 3).toDouble(), 2 * w * areas[i],
                    0.02 * 2 * w * areas[i]);
        EXPECT_NEAR(v->measureDlg()->cellText(i, 4).toDouble(), 0, 0.02 * 2 * w * areas[i]);
    }
    EXPECT_NEAR(v->measureDlg()->cellText(3, 1).toDouble(), 88, 1);
    // A press away from every vertex moves nothing; deleted and added back,
    // the objects are the same.
    const auto objects = [v] {
        std::ostringstream text;
        v->measureObjectsCurrentList().write(text);
        return text.str();
    };
    const std::string adjusted = objects();
    drag(view, {64, 56}, {100, 100});
    EXPECT_EQ(objects(), adjusted);
    const PlotObjects list = v->measureObjectsCurrentList();
    v->slotMeasureObjectsDeleteAll();
    EXPECT_TRUE(v->measureItems().isEmpty());
    v->measureObjectsAdd(list);
    EXPECT_EQ(objects(), adjusted);
}
