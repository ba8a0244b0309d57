// The evaluation engine on its worker, driven as the window drives it, on
// synthetic pairs of a known uniform displacement.
#include <gtest/gtest.h>

#include <QAction>
#include <QApplication>
#include <QMainWindow>
#include <QSignalSpy>
#include <QThread>

#include <algorithm>
#include <cmath>
#include <functional>
#include <string>
#include <vector>

#include "box_watcher.h"
#include "image2d.h"
#include "kelvanedata.h"
#include "kelvanedataobject.h"
#include "offscreen_app.h"
#include "piv_data2d.h"
#include "piv_params.h"
#include "piv_util.h"
#include "pivevalobj.h"
#include "qpiv_imagepair.h"
#include "qtwinprogresstoolbar.h"
#include "scratch_files.h"
#include "synthetic_tiff.h"

namespace {

class Engine : public ::testing::Test {
protected:
    static void SetUpTestSuite() { EnsureOffscreenApplication(); }
    // A pair of `size` squared with particles moving (3, 2) px, and the method.
    void load(int size, int method, bool outliers, int deformation = 0) {
        ASSERT_TRUE(test_support::WriteShiftedTiffPair(dir.file("a.tif"), dir.file("b.tif"), size,
                                                       3.0, 2.0));
        ASSERT_TRUE(object.loadPivImage(QString::fromStdString(dir.file("a.tif")),
                                        QString::fromStdString(dir.file("b.tif")), false, 0));
        PIV_PARAMETERS rec = object.parameters(0)->pivParameters();
        rec.eval.Method = method;
        rec.eval.Passes = 3;
        rec.eval.ImageMapping2D.Mode = deformation;
        rec.outlier.Enable = outliers;
        object.setPivParameters(rec, rec);
    }
    // Runs to the end; `onProgress` sees every step the window sees.
    bool run(std::function<void(int, int)> onProgress = {}) {
        QSignalSpy finished(engine, &PIVevalEngine::signalEvaluationFinished);
        auto c = QObject::connect(engine, &PIVevalEngine::signalShowProgress, [&](int d, int t) {
            progress.push_back({d, t});
            if (!engine->isEvaluationRunning() || QThread::currentThread() != qApp->thread())
                offThread = true;
            if (onProgress) onProgress(d, t);
        });
        const bool started = engine->interrogateImage();
        if (started) {
            EXPECT_TRUE(finished.wait(120000));
        }
        QObject::disconnect(c);
        return started && finished.count() == 1 && finished.at(0).at(0).toBool();
    }
    std::vector<QString> messagesDuring(const std::function<void()>& f) {
        QSignalSpy spy(engine, &PIVevalEngine::signalMessage);
        f();
        std::vector<QString> texts;
        for (const QList<QVariant>& args : spy) texts.push_back(args.at(0).toString());
        return texts;
    }

    test_support::ScratchDir dir;
    MySettings settings{QString::fromStdString(dir.file("store.ini")), QSettings::IniFormat};
    KelvaneState state;
    QMainWindow window;
    KelvaneDataObject object{&state, &settings};
    KelvaneData controller{&object, &window};
    PIVevalEngine* engine = controller.engine();
    std::vector<std::pair<int, int>> progress;
    bool offThread = false;
};

std::string Vectors(const PIV_Data2D& d) {
    return std::string(reinterpret_cast<const char*>(d.data()), d.nodeCount() * sizeof(PIV_VECTOR));
}

}  // namespace

// Three passes of 32 px windows; the library run directly on the same pair and
// settings is the truth. Mid-run a second start and a single correlation are
// refused, the window stays responsive and sees the progress rise from 1 to the end.
TEST_F(Engine, RunOnWorkerGivesTheLibrarysFieldWithOrderedProgress) {
    load(256, PIV::METHOD_MULTI_PASS, true);
    const PIV_PARAMETERS rec = object.parameters(0)->pivParameters();
    std::vector<QString> second;
    bool probe = true;
    ASSERT_TRUE(run([&](int, int) {
        if (progress.size() != 2) return;
        PIV_VECTOR v;
        second = messagesDuring([&] {
            EXPECT_FALSE(engine->interrogateImage());
            probe = engine->interrogateAtPoint(QPoint(128, 128), &v, nullptr);
        });
    }));
    EXPECT_EQ(second, std::vector<QString>(2, "Evaluation already in progress..."));
    EXPECT_FALSE(probe);
    EXPECT_FALSE(offThread);
    ASSERT_GE(progress.size(), 3u);
    EXPECT_EQ(progress.front(), std::make_pair(1, 100));
    EXPECT_EQ(progress.back(), std::make_pair(-1, 100));
    for (size_t i = 1; i + 1 < progress.size(); ++i) {
        EXPECT_EQ(progress[i].second, 100);
        EXPECT_LE(progress[i - 1].first, progress[i].first);
    }
    EXPECT_EQ(state.runState, KelvaneState::IDLE);

    PIV_Parameters params;
    params.setPivParameters(rec);
    PIV_Data2D field;
    PIV_Eval2D direct(&field, &params);
    ASSERT_TRUE(direct.setPivImages(object.image(0)->imgA(), object.image(0)->imgB()));
    ASSERT_TRUE(direct.interrogateImage(false));
    EXPECT_EQ(Vectors(*object.data(0)), Vectors(field));
    const PIV_VECTOR* middle = object.data(0)->pivVector(7, 7);
    EXPECT_NEAR(middle->dx, 3.0, 0.1);

    // With a mask over the left quarter, the worker's copy of it masks the
    // same windows as the library given the session's own.
    Image2D mask(256, 256, IMAGE_UINT8);
    for (int y = 0; y < 256; ++y)
        for (int x = 0; x < 64; ++x) mask.setPixel(x, y, 255.0f);
    ASSERT_TRUE(mask.save(dir.file("mask.tif").c_str()));
    IMAGE_CFG masked = object.image(0)->imageCfg();
    masked.MaskEnable = true;
    PIV::CopyText(masked.Mask, dir.file("mask.tif").c_str());
    object.image(0)->setImageCfg(masked);
    ASSERT_TRUE(object.reloadImage());
    ASSERT_TRUE(run());
    const QPIV_ImagePair* pair = object.image(0);  // the reload made a new pair
    ASSERT_TRUE(direct.setPivImages(pair->imgA(), pair->imgB()));
    ASSERT_EQ(direct.setMaskImages(pair->imgA()->imageMask(), pair->imgB()->imageMask(), true), 1);
    ASSERT_TRUE(direct.interrogateImage(false));
    EXPECT_EQ(Vectors(*object.data(0)), Vectors(field));
    EXPECT_GT(object.data(0)->vectorsMasked(), 0u);

    // One thread, asked for mid-run, takes over after it: the same field.
    bool asked = false;
    ASSERT_TRUE(run([&](int, int) {
        if (!asked) engine->setThreadCount(1);
        asked = true;
    }));
    ASSERT_TRUE(run());
    EXPECT_EQ(PIV::MaxThreads(), 1);
    EXPECT_EQ(Vectors(*object.data(0)), Vectors(field));
    engine->setThreadCount(0);
}

// A probe at rest: the plane handed to the display has its middle at zero
// displacement, so its highest value lies the vector's displacement off it.
TEST_F(Engine, ProbeShowsTheUnfoldedPlaneWithThePeakAtTheDisplacement) {
    load(128, PIV::METHOD_SINGLE_PASS, false);
    QSignalSpy planes(engine, &PIVevalEngine::signalDrawCorrelation);
    PIV_VECTOR v;
    ASSERT_TRUE(engine->interrogateAtPoint(QPoint(64, 64), &v, nullptr));
    ASSERT_EQ(planes.count(), 1);
    const FloatPlane plane = planes.at(0).at(0).value<FloatPlane>();
    const std::vector<float>& z = *plane.values;
    const int peak = int(std::max_element(z.begin(), z.end()) - z.begin());
    EXPECT_NEAR(v.dx, 3.0, 0.3);  // one pass without window offset
    EXPECT_EQ(peak % plane.width, plane.width / 2 + int(std::lround(v.dx)));
    EXPECT_EQ(peak / plane.width, plane.height / 2 - int(std::lround(v.dy)));
}

// The refusals before a run: the text the user reads and whether it started.
TEST_F(Engine, RefusalsTellWhyAndTheOutlierBoxDecides) {
    struct Case {
        const char* name;
        int method;
        std::function<void(KelvaneDataObject&)> setup;
        QString button, text;
        bool started, outliersAfter;
    };
    const QString box =
        "For best results, multiple pass interrogation schemes require\nthat "
        "outlier detection is enabled!\nIf not enabled, the program chooses own "
        "defualt values";
    const std::vector<Case> cases = {
        {"arrange", 0, [](KelvaneDataObject& o) { o.setKelvaneMode(MODE_ARRANGE_PLOT); }, "",
         "PIV processing not possible:\nCannot process during object move!", false, false},
        // A field of 9 x 9 nodes under settings that lay 15 x 15.
        {"grid", 0,
         [](KelvaneDataObject& o) {
             o.data(0)->createZeroData(SIZE3D{128, 128, 1}, SIZE3D{16, 16, 1}, POINT3D{0, 0, 0},
                                       POINT3D{128, 128, 0}, 1);
         },
         "OK", "Grid mismatch for view 0\nData: 9 x 9\nParams: 7 x 7", false, false},
        {"abort", 1, {}, "Abort", box, false, false},
        {"ignore", 1, {}, "Ignore (Use defaults)", box, true, false},
        {"enable", 1, {}, "Enable+Continue", box, true, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        load(128, c.method, false);
        object.setKelvaneMode(MODE_DATA);
        if (c.setup) c.setup(object);
        BoxWatcher boxes(c.button);
        EXPECT_EQ(run(), c.started);
        EXPECT_EQ(c.button.isEmpty() ? engine->lastMessage() : boxes.texts.value(0), c.text);
        EXPECT_EQ(object.parameters(0)->outlierCfg().Enable, c.outliersAfter);
    }
}

// The user loads the pair again while the run goes on: the result belongs
// to the old images and never reaches the session.
TEST_F(Engine, ImageLoadedMidRunNeverGetsTheOldResult) {
    load(256, PIV::METHOD_MULTI_PASS, true);
    std::vector<QString> texts;
    bool ok = true;
    texts = messagesDuring([&] {
        ok = run([&](int, int) {
            if (progress.size() == 2) object.reloadImage();
        });
    });
    EXPECT_FALSE(ok);
    EXPECT_FALSE(object.isEvaluated(0));
    EXPECT_NE(std::find(texts.begin(), texts.end(), "Evaluation failed/aborted"), texts.end());
    // Frames emptied in place while the worker's copy is being made: the
    // copy stops (ASan watches it) and the run fails.
    load(256, PIV::METHOD_MULTI_PASS, true);
    progress.clear();
    EXPECT_FALSE(run([&](int, int) {
        if (progress.size() == 1) object.clearAll();
    }));
    EXPECT_FALSE(object.isEvaluated(0));
    // A mask loaded mid-run, of the frames' size: the run's mask is the old.
    load(256, PIV::METHOD_MULTI_PASS, true);
    Image2D mask(256, 256, IMAGE_UINT8);
    ASSERT_TRUE(mask.save(dir.file("mask.tif").c_str()));
    progress.clear();
    EXPECT_FALSE(run([&](int, int) {
        if (progress.size() == 2) object.loadMaskImage(QString::fromStdString(dir.file("mask.tif")), 0);
    }));
    // Another number of passes taken mid-run: the result is for the old
    // settings, and the log says it was dropped.
    load(256, PIV::METHOD_MULTI_PASS, true);
    progress.clear();
    QSignalSpy log(engine, &PIVevalEngine::signalLogMessage);
    EXPECT_FALSE(run([&](int, int) {
        if (progress.size() != 2) return;
        PIV_PARAMETERS more = object.parameters(0)->pivParameters();
        more.eval.Passes += 1;
        object.setPivParameters(more, more);
    }));
    EXPECT_TRUE(std::any_of(log.begin(), log.end(), [](const QList<QVariant>& args) {
        return args.at(0).toString().contains("result was dropped");
    }));
}

// "&Stop", then "&Yes", at the first step of a deformation run of a large
// pair, before and after the worker took it up: the run ends at once,
// failed, and the status says so before "Done".
TEST_F(Engine, StopAndYesEndTheRunWithinThreeSteps) {
    load(1024, PIV::METHOD_MULTI_PASS, true, 2);
    // No live view: only the end of the run can hand vectors over.
    PIV_PARAMETERS quiet = object.parameters(0)->pivParameters();
    quiet.eval.ShowIntermediate = false;
    object.setPivParameters(quiet, quiet);
    for (size_t at : {1u, 2u}) {
        SCOPED_TRACE(at);
        progress.clear();
        int afterYes = -1;
        std::vector<QString> texts = messagesDuring([&] {
            EXPECT_FALSE(run([&](int, int) {
                if (afterYes >= 0) ++afterYes;
                if (progress.size() != at) return;
                BoxWatcher yes("&Yes");
                controller.progressBars()->stopAction()->trigger();
                afterYes = 0;
                EXPECT_EQ(yes.texts, QStringList{"Are you sure you want to abort processing?"});
            }));
        });
        EXPECT_GE(afterYes, 1);
        EXPECT_LE(afterYes, 3);
        const auto failed = std::find(texts.begin(), texts.end(), "Evaluation failed/aborted");
        ASSERT_NE(failed, texts.end());
        EXPECT_NE(std::find(failed, texts.end(), "Done"), texts.end());
        EXPECT_EQ(state.runState, KelvaneState::IDLE);
        // A stop once the worker has begun keeps the vectors correlated so
        // far, though not as a finished result.
        const PIV_Data2D* kept = object.data(0);
        int correlated = 0;
        for (int k = 0; k < kept->nodeCount(); ++k)
            correlated += (kept->data()[k].flag & VECTOR_ENABLED) != 0;
        EXPECT_EQ(correlated > 0, at == 2);
        EXPECT_FALSE(object.isEvaluated(0));
    }
}

// An engine deleted during its run cancels it and waits; run under ASan.
TEST_F(Engine, EngineDeletedMidRunCancelsAndWaits) {
    load(1024, PIV::METHOD_MULTI_PASS, true, 2);
    auto* own = new PIVevalEngine(&object, nullptr);
    QSignalSpy steps(own, &PIVevalEngine::signalShowProgress);
    ASSERT_TRUE(own->interrogateImage());
    ASSERT_TRUE(steps.wait(60000));
    delete own;
    QCoreApplication::processEvents();
    EXPECT_FALSE(object.isEvaluated(0));
}
