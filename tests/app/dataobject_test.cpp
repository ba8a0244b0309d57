// The session's data object on synthetic particle images and fields written here.
#include <gtest/gtest.h>

#include <QApplication>
#include <QDir>
#include <QFileInfo>
#include <QSignalSpy>

#include <netcdf.h>

#include <string>

#include "offscreen_app.h"
#include "image2d.h"
#include "kelvanedataobject.h"
#include "message_capture.h"
#include "piv_data2d.h"
#include "piv_params.h"
#include "piv_params_io.h"
#include "piv_postprocess.h"
#include "piv_record.h"
#include "qpiv_imagepair.h"
#include "scratch_files.h"
#include "synthetic_images.h"

namespace {

constexpr int kSize = 64;

class DataObject : public ::testing::Test {
protected:
    static void SetUpTestSuite() { EnsureOffscreenApplication(); }
    void SetUp() override {
        synth::SynthParams p;
        p.width = p.height = kSize;
        const synth::SyntheticPair pair = synth::RenderPair(p, synth::UniformFlow(2.0, 1.0));
        writeImage("img0007.tif", [&](int x, int y) { return pair.pixelA(x, y); });
        writeImage("img0008.tif", [&](int x, int y) { return pair.pixelB(x, y); });
        // A uniform field of (1.5, -0.5) px on a 7 x 7 grid, with one node off.
        PIV_Data2D field;
        ASSERT_TRUE(field.createZeroData(SIZE3D{kSize, kSize, 1}, SIZE3D{8, 8, 1}, POINT3D{8, 8, 0},
                                         POINT3D{56, 56, 0}, 1));
        ASSERT_TRUE(field.initShift(1.5f, -0.5f, 0.0f));
        field.pivVector(3, 3)->flag = VECTOR_OUTLIER;
        ASSERT_TRUE(field.saveNetCDF(file("field.nc").c_str()));
    }
    // A parameter file moves the working directory to its own.
    void TearDown() override { QDir::setCurrent(cwd); }
    template <typename F>
    void writeImage(const char* name, F pixel, int size = kSize) {
        Image2D image(size, size, IMAGE_UINT8);
        for (int y = 0; y < size; ++y)
            for (int x = 0; x < size; ++x) image.setPixel(x, y, pixel(x, y));
        ASSERT_TRUE(image.save(file(name).c_str()));
    }
    QString path(const char* name) const { return QString::fromStdString(dir.file(name)); }
    std::string file(const char* name) const { return dir.file(name); }

    const QString cwd = QDir::currentPath();
    test_support::ScratchDir dir;
    MessageCapture quiet;
    MySettings settings{QString::fromStdString(dir.file("store.ini")), QSettings::IniFormat};
    KelvaneState state;
    KelvaneDataObject object{&state, &settings};
};

std::string Bytes(const PIV_Data2D& d) {
    std::string s(reinterpret_cast<const char*>(d.data()), d.nodeCount() * sizeof(PIV_VECTOR));
    if (d.diffData())
        s.append(reinterpret_cast<const char*>(d.diffData()),
                 d.nodeCount() * sizeof(DIFFERENTIALS));
    return s;
}

}  // namespace

// Views 1 and 2 have no slots of their own with stereo off; -1 is the current view.
TEST_F(DataObject, ViewsMapToSlotsZeroAndThreeAndStereoStaysOff) {
    object.setFlagStereoMode(true);
    EXPECT_FALSE(object.isStereoMode());
    EXPECT_FALSE(object.loadStereoProject(path("project.par")));
    struct Case {
        int shown, asked, current, slot;
    } const cases[] = {{0, -1, 0, 0}, {0, 0, 0, 0},  {0, 1, 0, 3},  {0, 2, 0, 3}, {0, 3, 0, 3},
                       {1, -1, 0, 0}, {2, -1, 0, 0}, {3, -1, 3, 3}, {3, 0, 3, 0}, {3, 2, 3, 3}};
    for (const Case& c : cases) {
        object.setCurrentView(c.shown);
        EXPECT_EQ(object.currentView(), c.current) << "shown " << c.shown;
        EXPECT_EQ(object.slotOfView(c.asked), c.slot)
            << "shown " << c.shown << " asked " << c.asked;
        EXPECT_EQ(object.haveImage(c.asked), false);
    }
    EXPECT_EQ(object.data(1), object.data(3));
    EXPECT_NE(object.data(0), object.data(3));
}

// Equal names are one image, whose partner comes by the naming rules (the
// next number), never the same frame twice; a load in view 3 returns to 0.
TEST_F(DataObject, EqualNamesLoadOneImageWithItsPartnerAndShowViewZero) {
    // New settings before any image: a grid without nodes and fields without
    // vectors have nothing to allocate or post-process, and log no error.
    PIV_PARAMETERS p = object.parameters(0)->pivParameters();
    p.eval.grid.step = SIZE3D{8, 8, 1};
    object.setPivParameters(p, p);
    object.setCurrentView(3);
    QSignalSpy views(&object, &KelvaneDataObject::signalChangedView);
    const QString a = path("img0007.tif");
    ASSERT_TRUE(object.loadPivImage(a, a, false, 0)) << object.lastError().toStdString();
    const QPIV_ImagePair* pair = object.image();
    EXPECT_TRUE(pair->isImagePair());
    EXPECT_FALSE(pair->sameFrameTwice());
    EXPECT_EQ(pair->fileName(true), "img0008.tif");
    EXPECT_EQ(object.currentView(), 0);
    ASSERT_EQ(views.count(), 1);
    EXPECT_EQ(views[0][0].toInt(), 0);
    EXPECT_TRUE(object.haveImage(0));
    EXPECT_EQ(object.parameters(0)->dataGrid().imageSize.width, kSize);
    EXPECT_EQ(quiet.all().find("ERROR"), std::string::npos) << quiet.all();
}

// Whatever fails to load names its file and leaves the session as it was.
TEST_F(DataObject, BadFilesLeaveTheSessionAlone) {
    ASSERT_TRUE(object.loadPivImage(path("img0007.tif"), path("img0008.tif"), false, 0));
    writeImage("mask.pgm", [](int x, int) { return x < 8 ? 255.0f : 0.0f; });
    ASSERT_TRUE(object.loadMaskImage(path("mask.pgm"), 0));
    ASSERT_TRUE(object.loadPivData(path("field.nc"), 0, false));
    const std::string nc = test_support::ReadBytes(file("field.nc"));
    test_support::WriteBytes(file("cut.tif"),
                             test_support::ReadBytes(file("img0007.tif")).substr(0, 300));
    test_support::WriteBytes(file("text.tif"), "not an image\n");
    test_support::WriteBytes(file("corrupt.nc"), nc.substr(0, nc.size() / 2));
    test_support::WriteBytes(file("text.par"), "SampleSize = 8\n");
    // Another field under conventions of another program, which hide its
    // parameters: loaded with them, it must not be taken alone.
    PIV_Data2D other(file("field.nc").c_str());
    ASSERT_TRUE(other.initShift(-3.0f, 2.0f, 0.0f) && other.saveNetCDF(file("foreign.nc").c_str()));
    int id = 0;
    ASSERT_TRUE(!nc_open(file("foreign.nc").c_str(), NC_WRITE, &id) && !nc_redef(id) &&
                !nc_put_att_text(id, NC_GLOBAL, "Conventions", 6, "CF-1.6") && !nc_close(id));

    const QString caption = object.caption();
    const std::string raw = Bytes(*object.data(0)), result = Bytes(*object.data(3));
    const PIV_PARAMETERS params = object.parameters(0)->pivParameters();
    const POSTPROCESS_CFG post = object.postProcessCfg();
    // Beside a parameter file in 7 nested folders of 200 bytes, an 809-byte mask name
    // made absolute passes 809 + 1407 = 2216 > 2047 bytes.
    const std::string deep = (QString(200, 'd') + "/").repeated(7).toStdString() + "long.par";
    IMAGE_CFG far;
    PIV::CopyText(far.Mask, ((QString(200, 'm') + "/").repeated(4) + "m.tif").toLatin1().data());
    ASSERT_TRUE(QDir().mkpath(QFileInfo(path(deep.c_str())).path()) &&
                PIV::SaveParametersASCII(file(deep.c_str()).c_str(), &params, &far, &post, 0));
    const QPIV_ImagePair* pair = object.image();

    enum Loader { IMAGE, MASK, DATA, DATA_PARAMS, PARAMS };
    struct Case {
        Loader loader;
        const char* file;
    } const cases[] = {{IMAGE, "missing.tif"},  {IMAGE, "cut.tif"},   {IMAGE, "text.tif"},
                       {DATA, "missing.nc"},    {DATA, "corrupt.nc"}, {DATA, "text.par"},
                       {PARAMS, "missing.par"}, {PARAMS, "text.par"}, {PARAMS, "cut.tif"},
                       {MASK, "missing.tif"},   {MASK, "text.tif"},   {DATA_PARAMS, "foreign.nc"},
                       {PARAMS, deep.c_str()}};
    for (const Case& c : cases) {
        const QString name = path(c.file);
        const bool ok = c.loader == IMAGE  ? object.loadPivImage(name, QString(), false, 0)
                        : c.loader == MASK ? object.loadMaskImage(name, 0)
                        : c.loader == DATA || c.loader == DATA_PARAMS
                            ? object.loadPivData(name, 0, c.loader == DATA_PARAMS)
                            : object.loadParameters(name);
        EXPECT_FALSE(ok) << c.file;
        EXPECT_TRUE(object.lastError().contains(name)) << object.lastError().toStdString();
        EXPECT_EQ(object.caption().toStdString(), caption.toStdString()) << c.file;
        EXPECT_EQ(object.image(), pair) << c.file;
        EXPECT_EQ(pair->fileName(true), "img0008.tif") << c.file;
        EXPECT_FALSE(pair->imgA()->imageMask()->isNull()) << c.file;
        EXPECT_TRUE(Bytes(*object.data(0)) == raw && Bytes(*object.data(3)) == result) << c.file;
        EXPECT_TRUE(PIV::SameRecord(object.parameters(0)->pivParameters(), params)) << c.file;
        EXPECT_TRUE(PIV::SameRecord(object.postProcessCfg(), post)) << c.file;
    }
}

// The window's chain is the library's, with its mask kept for the views; a
// step that fails says why and leaves what the steps before it made.
TEST_F(DataObject, PostProcessingIsTheLibraryChainAndReportsTheFailingStep) {
    writeImage("full.pgm", [](int, int) { return 255.0f; });
    writeImage(
        "small.pgm", [](int, int) { return 255.0f; }, kSize / 2);
    struct Case {
        const char* mask;
        float smooth;    // 0 makes the smoothing step fail
        bool transform;  // a transform of vectors always fails,
        bool merge;      // a merge too, but the chain goes on
        const char* error;
        int masked;
    } const cases[] = {{"full.pgm", 1.0f, false, false, nullptr, 49},
                       {"small.pgm", 1.0f, false, false, nullptr, 0},
                       {"", 1.0f, false, true, nullptr, 0},
                       {"", 0.0f, false, false, "Smoothing of data failed", 0},
                       {"", 1.0f, true, false, "Transform of data failed", 0}};
    for (const Case& c : cases) {
        POSTPROCESS_CFG cfg;
        cfg.MedianApply = true;
        cfg.MedianSize = 3;
        cfg.SmoothApply = true;
        cfg.SmoothKernel = c.smooth;
        cfg.transformation.Enable = c.transform;
        cfg.combine.Apply = c.merge;
        cfg.MaskEnable = c.mask[0] != 0;
        PIV::CopyText(cfg.MaskFile, path(c.mask).toLocal8Bit().constData());
        object.setPostProcessCfg(cfg);
        QSignalSpy messages(&object, &KelvaneDataObject::signalMessage);
        const bool ok = object.loadPivData(path("field.nc"), 0, false);

        // The same file through the library's chain alone.
        PIV_Data2D source(file("field.nc").c_str()), expected;
        PIV::PostProcessData(source, expected, cfg, object.parameters(0));
        if (c.error) {
            // What the chain made before the failing step: a copy, median
            // filtered unless the transform before the filter failed.
            expected = source;
            if (!c.transform) expected.medianFilter(3);
        }
        EXPECT_EQ(ok, c.error == nullptr) << c.mask;
        EXPECT_TRUE(Bytes(*object.data(3)) == Bytes(expected)) << c.mask << " " << c.smooth;
        EXPECT_EQ(int(object.data(3)->vectorsMasked()), c.masked) << c.mask;
        // Median and smoothing leave a uniform (1.5, -0.5) px field as it is.
        for (int k = 0; !c.error && c.masked == 0 && k < object.data(3)->nodeCount(); k++) {
            EXPECT_NEAR(object.data(3)->data()[k].dx, 1.5, 1e-5) << k;
            EXPECT_NEAR(object.data(3)->data()[k].dy, -0.5, 1e-5) << k;
        }
        const QString last = messages.isEmpty() ? QString() : messages.last()[0].toString();
        EXPECT_EQ(last,
                  c.error ? QStringLiteral("ERROR while post processing: ") + c.error : QString());
        const int code = object.error().getLastErrorCode();
        EXPECT_TRUE(!(c.error || c.merge) || code == PIVerror::OPERATION_FAILED) << code;
    }
}

// A parameter file with a finer grid and a mask named beside it: the grid is
// laid anew on the loaded image, the mask's name is made absolute and the
// frames are loaded again under the new image record.
TEST_F(DataObject, AParameterFileTakesEffectWithItsNamesMadeAbsolute) {
    ASSERT_TRUE(object.loadPivImage(path("img0007.tif"), path("img0008.tif"), false, 0));
    PIV_PARAMETERS params = object.parameters(0)->pivParameters();
    params.eval.SampleSize = SIZE3D{16, 16, 1};
    params.eval.grid.step = SIZE3D{8, 8, 1};
    IMAGE_CFG image;
    image.MaskEnable = true;
    PIV::CopyText(image.Mask, "mask.tif");
    POSTPROCESS_CFG post;
    ASSERT_TRUE(PIV::SaveParametersASCII(file("run.par").c_str(), &params, &image, &post, 0));
    QSignalSpy announced(&object, &KelvaneDataObject::signalHaveNewParameters);

    ASSERT_TRUE(object.loadParameters(path("run.par")));
    EXPECT_EQ(announced.count(), 1);
    // Nodes 8 px apart, as far as a 16 px window fits in 64 px: 8, 16, ... 56.
    EXPECT_EQ(object.data(0)->grid().nodes.width, 7);
    EXPECT_EQ(object.image()->imageCfg().Mask, file("mask.tif"));
    EXPECT_EQ(object.image()->fileName(true), "img0008.tif");
}

// Only view A's records are written; its post-processing block is the result's.
TEST_F(DataObject, TheStoreKeepsTheSessionSettingsOfTheResultSlot) {
    POSTPROCESS_CFG post;
    post.MedianApply = true;
    object.setPostProcessCfg(post);
    object.parameters(0)->setPostProcessCfg(POSTPROCESS_CFG());
    object.doCleanUp(true);
    KelvaneDataObject next(&state, &settings);
    EXPECT_TRUE(next.postProcessCfg().MedianApply);
}

// New conversion settings reach the result at once: the first node, 8 px from
// the origin, lies 4 mm from it at 2 px per mm, and its 1.5 px are 0.75 mm.
TEST_F(DataObject, NewConversionSettingsRunThePostProcessingAgain) {
    ASSERT_TRUE(object.loadPivData(path("field.nc"), 0, false));
    PIV_PARAMETERS params = object.parameters(0)->pivParameters();
    params.convert.ImageOrigin = POINT3D{0, 0, 0};
    params.convert.PhysicalOrigin = FPOINT3D{0, 0, 0};
    params.convert.LengthConversion[0] = params.convert.LengthConversion[1] = 2.0;
    PIV::CopyText(params.convert.LengthConversionUnits, "mm");
    PIV::CopyText(params.convert.DisplacementUnits, "mm");
    EXPECT_TRUE(object.setPivParameters(params, params));
    const PIV_VECTOR first = object.data(3)->getVector2D(0, 0);
    EXPECT_FLOAT_EQ(first.x, 4.0f);
    EXPECT_FLOAT_EQ(first.sx, 0.75f);
    // Pointer positions by the same rule: row 8 lies 4 mm below the origin
    // at the top; counted from the bottom of 64 rows it is row 55.
    EXPECT_DOUBLE_EQ(object.physicalX(8.0), 4.0);
    EXPECT_DOUBLE_EQ(object.physicalY(8.0, true), -4.0);
    EXPECT_DOUBLE_EQ(object.physicalY(8.0, false), -27.5);
}
