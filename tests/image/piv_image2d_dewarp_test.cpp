// Dewarping on load: a view calibration file with two mappings, a recorded
// calibration target, and the dewarped frame whose dots sit on their nodes.

#include <cmath>

#include "dot_grid.h"
#include "image_test_support.h"
#include "piv3c_params.h"
#include "piv_image2d.h"
#include "piv_imagepair.h"

using namespace image_test;

namespace {

constexpr int kDest = 320, kSource = 360;

// View 0 sees the target in perspective, view 1 through a distorting lens;
// dewarped images of 2 px per mm with the object origin 10 mm right of and
// 20 mm below the corner.
PIV3C_Parameters TwoViews() {
    PIV3C_Parameters p;
    p.setViewCount(2);
    p.setMagnification(2.0, 2.0, 2.0);
    // View 0 as a calibration would give it: fitted to points of the known
    // perspective, so that its coefficients have all their digits.
    const MAPPING_FXN_2D known = dot_grid::Perspective(kDest, kDest);
    std::vector<POINT_PAIR> points;
    for (int j = 0; j <= 8; j++)
        for (int i = 0; i <= 8; i++) {
            const double X = 40.0 * i, Y = 40.0 * j;
            double x, y;
            known.mappedPoint(X, Y, x, y);
            points.emplace_back(x, y, X / 2.0 - 10.0, Y / 2.0 - 20.0);
        }
    MAPPING_FXN_2D v0 = known, v1 = dot_grid::Barrel(kDest, kDest);
    for (MAPPING_FXN_2D* m : {&v0, &v1}) {
        m->magnification = 2.0;
        m->obj_x_offset = 10.0;
        m->obj_y_offset = 20.0;
    }
    EXPECT_TRUE(PIV::CalculateProjectionMatrix(points.data(), static_cast<int>(points.size()), &v0,
                                               PIV::MAPPING_NONLINEAR1, 1, 1));
    p.setMapping(0, v0);
    p.setMapping(1, v1);
    p.setGridUnit(0, "mm");
    p.setGridUnit(1, "a rather long unit name");
    return p;
}

double WorstPositionDifference(const MAPPING_FXN_2D& a, const MAPPING_FXN_2D& b) {
    double worst = 0.0;
    for (double X = 0; X <= kDest; X += 20)
        for (double Y = 0; Y <= kDest; Y += 20) {
            double xa, ya, xb, yb;
            a.mappedPoint(X, Y, xa, ya);
            b.mappedPoint(X, Y, xb, yb);
            worst = std::max(worst, std::hypot(xa - xb, ya - yb));
        }
    return worst;
}

}  // namespace

// The two views read back from their file, and dewarp recorded targets on load.
TEST(PIV_Image2D, TwoViewsReadBackAndDewarpTheirDotsOntoTheNodes) {
    ScratchDir dir;
    PIV3C_Parameters written = TwoViews();
    const std::string path = dir.file("views.cal");
    ASSERT_TRUE(written.save(path.c_str()));

    PIV3C_Parameters read;
    ASSERT_TRUE(read.load(path.c_str()));
    EXPECT_EQ(read.viewCount(), 2);
    EXPECT_STREQ(read.gridUnit(1), "a rather long unit name");
    for (int v = 0; v < 2; v++) {
        EXPECT_EQ(read.mapping(v).dest_img_width, kDest);
        // Six significant digits per coefficient: positions within 1e-3 px.
        const double worst = WorstPositionDifference(read.mapping(v), written.mapping(v));
        EXPECT_LT(worst, 1e-3) << "view " << v;
    }
    // The object origin lies at (10, 20) mm * 2 px/mm in the dewarped image.
    const POINT3D origin = read.imageOrigin(1, 1);
    EXPECT_TRUE(origin.x == 20 && origin.y == 40);

    EXPECT_EQ(FailCode(read, read.load(dir.file("none.cal").c_str())), PIVerror::FILE_NOT_FOUND);
    WriteBytes(dir.file("other.par"), "Something = 1\n");
    EXPECT_EQ(FailCode(read, read.load(dir.file("other.par").c_str())),
              PIVerror::INVALID_FILE_CONTENT);
    EXPECT_EQ(read.viewCount(), 2);  // a failed load keeps what was there

    // Dewarped on load through the file, the recorded dots sit on their nodes.
    const std::vector<FPOINT2D> nodes = dot_grid::GridNodes(kDest);
    for (int view = 0; view < 2; view++) {
        const std::string frame = dir.file("target" + std::to_string(view) + ".tif");
        ASSERT_TRUE(dot_grid::Render(kSource, kSource, written.mapping(view), nodes)
                        .saveTIFF(frame.c_str()));
        IMAGE_CFG cfg;
        cfg.Dewarp = true;
        cfg.DewarpView = view;
        cfg.DewarpCalibrate = true;
        cfg.InterpolationMethod = PIV::INTERPOLATE_BSPLINE;
        cfg.InterpolationDegree = 4;
        PIV::CopyText(cfg.DewarpFile, dir.file("views.cal").c_str());
        PIV_Image2D img;
        img.setImageCfg(cfg);
        ASSERT_TRUE(img.load(frame.c_str(), false));
        EXPECT_EQ(Shape(img), Shape(kDest, kDest, IMAGE_FLOAT));
        const double worst = dot_grid::WorstCentroidError(img, nodes);
        EXPECT_LT(worst, 0.05) << "view " << view;

        // The conversion comes from the calibration; the unit is cut to 15.
        const PIVCONVERT_CFG& c = img.pivConvertCfg();
        EXPECT_DOUBLE_EQ(c.LengthConversion[0], 2.0);
        EXPECT_TRUE(c.ImageOrigin.x == 20 && c.ImageOrigin.y == 40);
        EXPECT_STREQ(c.LengthConversionUnits, view == 0 ? "mm" : "a rather long u");
    }
}

TEST(PIV_Image2D, DewarpWithoutItsFileLoadsTheFrameAsItIs) {
    ScratchDir dir;
    Image2D raw(40, 30, IMAGE_UINT8);
    raw.testPattern(0, 1, 1);
    ASSERT_TRUE(raw.saveTIFF(dir.file("f.tif").c_str()));
    IMAGE_CFG cfg;
    cfg.Dewarp = true;
    // A file of one view, asked for the default view 1; a file of other keys.
    PIV3C_Parameters oneView;
    oneView.setMapping(0, dot_grid::Barrel(kDest, kDest));
    ASSERT_TRUE(oneView.save(dir.file("one.cal").c_str()));
    WriteBytes(dir.file("other.par"), "Something = 1\n");
    Messages messages;
    for (const char* file : {"gone.cal", "one.cal", "other.par"}) {
        PIV::CopyText(cfg.DewarpFile, dir.file(file).c_str());
        PIV_Image2D img;
        img.setImageCfg(cfg);
        ASSERT_TRUE(img.load(dir.file("f.tif").c_str(), false)) << file;
        EXPECT_EQ(Pixels(img), Pixels(raw)) << file;
    }
    EXPECT_TRUE(HasText(messages.all(), "holds no mapping for view 1"));
}

namespace {

// A frame of 360 x 100 grey 80, its mask covering columns below 250, and a
// view calibration that shifts by 200 px onto a 300 x 100 dewarped frame: its
// columns 0..49 see masked pixels, 50..159 free ones, 160 on nothing.
struct ShiftedScene {
    ScratchDir dir;
    PIV3C_Parameters views;
    IMAGE_CFG cfg;

    ShiftedScene() {
        Image2D raw(360, 100, IMAGE_UINT8);
        raw.fill(80.0f);
        EXPECT_TRUE(raw.saveTIFF(dir.file("s.tif").c_str()));
        Image2D mask(360, 100, IMAGE_UINT8);
        for (int y = 0; y < 100; y++)
            for (int x = 0; x < 360; x++) mask.setPixel(x, y, x < 250 ? 255.0f : 0.0f);
        EXPECT_TRUE(mask.saveTIFF(dir.file("mask.tif").c_str()));
        MAPPING_FXN_2D shift;
        shift.setOrder(0);
        shift.px[0] = 200.0;
        shift.magnification = 1.0;
        shift.dest_img_width = 300;
        shift.dest_img_height = 100;
        views.setViewCount(2);
        views.setMapping(0, shift);
        views.setMapping(1, shift);
        EXPECT_TRUE(views.save(dir.file("shift.cal").c_str()));
        cfg.MaskEnable = true;
        cfg.MaskRandomize = false;
        PIV::CopyText(cfg.Mask, dir.file("mask.tif").c_str());
    }
};

}  // namespace

// Three ways to the dewarped frame of view 1: dewarping on load, and a
// stereo view with and without a mask file; without one the mask marks only
// what the view does not see (column 160 reads source column 360).
TEST(PIV_Image2D, MaskIsDewarpedWithItsFrame) {
    for (int mode : {0, 1, 2}) {
        SCOPED_TRACE(mode);
        ShiftedScene scene;
        PIV_Image2D img(PIV_IMAGE_B);
        const bool maskFile = mode < 2;
        scene.cfg.MaskEnable = maskFile;
        scene.cfg.Dewarp = mode == 0;
        scene.cfg.DewarpView = 1;
        PIV::CopyText(scene.cfg.DewarpFile, scene.dir.file("shift.cal").c_str());
        img.setStereoMode(mode > 0);
        img.setStereoCfg(&scene.views, 1);
        img.setImageCfg(scene.cfg);
        ASSERT_TRUE(img.load(scene.dir.file("s.tif").c_str(), false));
        ASSERT_TRUE(img.isMaskAvailable());
        const Image2D& mask = *img.imageMask();
        EXPECT_EQ(Shape(mask), Shape(300, 100, IMAGE_UINT8));
        const std::vector<float> maskAt = {mask.pixel(40, 50), mask.pixel(100, 50),
                                           mask.pixel(159, 50), mask.pixel(160, 50)};
        EXPECT_EQ(maskAt, (std::vector<float>{maskFile ? 255.0f : 0.0f, 0, 0, 255}));
        EXPECT_EQ(img.pixel(40, 50), maskFile ? 0.0f : 80.0f);
        EXPECT_NEAR(img.pixel(100, 50), 80.0f, 1e-3);
        EXPECT_EQ(img.pixel(200, 50), 0.0f);
        // dewarpImage itself leaves stereo frames alone.
        Image2D other = Filled(360, 100, IMAGE_UINT8, 1);
        EXPECT_EQ(img.dewarpImage(other, scene.views.mapping(1), false), mode == 0);
    }
}

TEST(PIV_ImagePair, MaskLoadedForBothFrames) {
    ShiftedScene scene;
    PIV_ImagePair pair;
    ASSERT_TRUE(pair.load(scene.dir.file("s.tif").c_str(), 1, false, false));
    EXPECT_FALSE(pair.isMaskAvailable());
    EXPECT_TRUE(pair.loadMask(scene.dir.file("mask.tif").c_str()));
    EXPECT_EQ(pair.imgB()->imageMask()->pixel(10, 10), 255.0f);
    EXPECT_FALSE(pair.loadMask(scene.dir.file("none.tif").c_str()));
}
