// The image batch on its thread: statistics images of known series, what
// it leaves out, and how it stops.
#include <QDir>
#include <QFile>

#include <cmath>
#include <random>

#include "box_watcher.h"
#include "image2d.h"
#include "kelvaneimagebatch.h"
#include "qpiv_imagepair.h"
#include "session_fixture.h"

class ImageBatchTest : public SessionTest {
protected:
    void SetUp() override {
        QDir().mkpath(in());
        o.sourceDir = in();
        o.fileStub = QStringLiteral("s");
    }
    QString in() const { return QString::fromStdString(dir.file("in")); }
    std::string at(const char* name) const { return dir.file(std::string("in/") + name); }
    bool run() {
        QSignalSpy done(&controller, &KelvaneData::signalBatchFinished);
        return controller.startImageBatch(o) && done.wait(60000);
    }
    BatchProcessOptions o;
};

// Five 8-bit frames, pixel (1, 0) 1, 11, 21, 31, 41 over the frames; a frame
// of another size and a file that is no image are left out by name.
TEST_F(ImageBatchTest, StatisticsOfFiveKnownFramesAsComputedByHand) {
    for (int k = 0; k < 5; ++k) {
        Image2D frame(8, 4, IMAGE_UINT8);
        for (int x = 0; x < 8; ++x) frame.setPixel(x, 0, float(10 * k + x));
        ASSERT_TRUE(frame.save(at(("f" + std::to_string(k) + ".tif").c_str()).c_str()));
    }
    ASSERT_TRUE(Image2D(6, 4, IMAGE_UINT8).save(at("f5.tif").c_str()));
    QFile(in() + "/f6.tif").open(QIODevice::WriteOnly);
    o.imageSeqCalcMinimum = o.imageSeqCalcMaximum = o.imageSeqCalcAverage = true;
    o.imageSeqCalcAverageMod = o.imageSeqCalcRMS = true;
    o.imageSeqCalcAverageModOffset = 2;
    ASSERT_TRUE(run());
    EXPECT_TRUE(controller.batchReport().contains("f5.tif"));
    EXPECT_TRUE(controller.batchReport().contains("f6.tif"));
    const struct {
        const char* file;
        ImageType type;
        float value;  // at (1, 0)
    } cases[] = {
        {"s_min.tif", IMAGE_UINT8, 1},
        {"s_max.tif", IMAGE_UINT8, 41},
        {"s_avg.tif", IMAGE_UINT8, 21},
        {"s_avgmod.tif", IMAGE_UINT8, 1 + (21 - 1) * 2},
        // sqrt((20² + 10² + 0 + 10² + 20²) / (5 - 1))
        {"s_rms.img", IMAGE_FLOAT, std::sqrt(250.0f)},
    };
    for (const auto& c : cases) {
        Image2D result;
        ASSERT_TRUE(result.load(at(c.file).c_str())) << c.file;
        EXPECT_EQ(result.type(), c.type) << c.file;
        EXPECT_NEAR(result.pixel(1, 0), c.value, 1e-4) << c.file;
    }
}

// 300 frames of 16 bits about 30000 with a spread of 50: the squares, near
// 9e8 each, cancel in single precision; the RMS must still hold.
TEST_F(ImageBatchTest, RmsOfBrightSixteenBitSeriesHolds) {
    std::mt19937 random(7);
    std::normal_distribution<double> noise(30000.0, 50.0);
    double sum = 0, squares = 0;
    for (int k = 0; k < 300; ++k) {
        Image2D frame(64, 64, IMAGE_UINT16);
        for (int y = 0; y < 64; ++y)
            for (int x = 0; x < 64; ++x) frame.setPixel(x, y, float(std::lround(noise(random))));
        const double v = frame.pixel(5, 5);
        sum += v;
        squares += v * v;
        ASSERT_TRUE(frame.save(at(("g" + std::to_string(1000 + k) + ".b16").c_str()).c_str()));
    }
    const double expected = std::sqrt((300 * squares - sum * sum) / (299.0 * 300.0));
    o.imageSeqCalcRMS = o.imageSeqCalcAverage = true;
    ASSERT_TRUE(run());
    Image2D rms, avg;
    ASSERT_TRUE(rms.load(at("s_rms.img").c_str()));
    ASSERT_TRUE(avg.load(at("s_avg.b16").c_str()));
    EXPECT_NEAR(rms.pixel(5, 5), expected, expected * 1e-3);
    EXPECT_NEAR(avg.pixel(5, 5), sum / 300, 0.5);
    for (int y = 0; y < 64; ++y)
        for (int x = 0; x < 64; ++x) ASSERT_FALSE(std::isnan(rms.pixel(x, y)));
    // A stop right after the start, by its button or by the common one: it
    // ends at the next file and writes nothing; till then no batch starts.
    for (bool own : {true, false}) {
        QFile::remove(in() + "/s_rms.img");
        QFile::remove(in() + "/s_avg.b16");
        QSignalSpy done(&controller, &KelvaneData::signalBatchFinished);
        ASSERT_TRUE(controller.startImageBatch(o));
        own ? controller.slotImageBatchProcess() : controller.slotCancelProcessing();
        EXPECT_FALSE(controller.startImageBatch(o));
        EXPECT_FALSE(controller.startBatch(o));
        ASSERT_TRUE(done.wait(60000));
        EXPECT_TRUE(controller.batchReport().startsWith("Image batch processing aborted at image"));
        EXPECT_FALSE(QFileInfo::exists(in() + "/s_rms.img"));
    }
}

// A float series writes its average as s_avg.img: one already there is asked about.
TEST_F(ImageBatchTest, ExistingFloatResultIsAskedAbout) {
    for (const char* name : {"f1.img", "f2.img", "s_avg.img"})
        ASSERT_TRUE(Image2D(8, 8, IMAGE_FLOAT).save(at(name).c_str()));
    o.fileFilter = QStringLiteral("f*.img");
    o.imageSeqCalcAverage = true;
    BoxWatcher boxes(QStringLiteral("No, cancel"));
    EXPECT_FALSE(controller.startImageBatch(o));
    EXPECT_TRUE(boxes.texts.value(0).startsWith("Some output files/images in"))
        << boxes.texts.value(0).toStdString();
}

// One image makes no statistics; nothing to do at all is said in a box.
TEST_F(ImageBatchTest, NothingToComputeWritesNothing) {
    ASSERT_TRUE(Image2D(8, 8, IMAGE_UINT8).save(at("one.tif").c_str()));
    {
        BoxWatcher boxes;
        EXPECT_FALSE(controller.startImageBatch(o));
        EXPECT_EQ(boxes.texts.value(0),
                  "Images do not need any pre-processing!\nCheck Pre-Processing Settings");
    }
    o.imageSeqCalcAverage = true;
    ASSERT_TRUE(run());
    EXPECT_EQ(QDir(in()).entryList(QDir::Files), QStringList{"one.tif"});
}

// An inverted copy of the pair run0001a/b named into the source folder
// would land on its own frame: the run is refused and the frames keep their
// pixels. Into another folder the copies are the negatives of the float
// pixels of the pre-processing: -10 and -20.
TEST_F(ImageBatchTest, CopiesNeverOverwriteTheirSources) {
    const auto pixel = [&](const char* name) {
        Image2D image;
        return image.load(at(name).c_str()) ? image.pixel(1, 0) : 0.0f;
    };
    for (int k : {1, 2}) {
        Image2D frame(8, 4, IMAGE_UINT8);
        frame.setPixel(1, 0, 10.0f * k);
        ASSERT_TRUE(frame.save(at(k == 1 ? "run0001a.tif" : "run0001b.tif").c_str()));
    }
    IMAGE_CFG cfg = object.image(0)->imageCfg();
    cfg.filters.Invert = true;
    object.image(0)->setImageCfg(cfg);
    o.fileFilter = QStringLiteral("*a.tif");
    o.imageFilesArePairs = true;
    BoxWatcher boxes;
    EXPECT_FALSE(run());
    EXPECT_TRUE(boxes.texts.value(0).contains(in() + "/run0001a.tif"));
    EXPECT_TRUE(pixel("run0001a.tif") == 10 && pixel("run0001b.tif") == 20);
    o.imageDestDirEnable = true;
    o.destDir = in() + "/out";
    QDir().mkpath(o.destDir);
    ASSERT_TRUE(run());
    EXPECT_TRUE(pixel("out/run0001a.tif") == -10 && pixel("out/run0001b.tif") == -20);
}
