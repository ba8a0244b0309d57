// The main window driven as a user drives it: drops, actions, keys, boxes and
// the settings store, on synthetic particle pairs of a known displacement.
#include <gtest/gtest.h>

#include <QComboBox>
#include <QDir>
#include <QDropEvent>
#include <QMimeData>
#include <QPointer>
#include <QSignalSpy>
#include <QStatusBar>
#include <QTest>
#include <QUrl>

#include <memory>

#include "box_watcher.h"
#include "command_line.h"
#include "image2d.h"
#include "kelvane.h"
#include "kelvanedata.h"
#include "kelvanedataobject.h"
#include "offscreen_app.h"
#include "piv_data2d.h"
#include "piv_enums.h"
#include "piv_eval2d.h"
#include "piv_params.h"
#include "pivevalobj.h"
#include "qlogbuffer.h"
#include "qpiv_imagepair.h"
#include "recentfiles.h"
#include "scratch_files.h"
#include "synthetic_images.h"

namespace {

constexpr int kSize = 128;

class MainWindow : public ::testing::Test {
protected:
    static void SetUpTestSuite() { EnsureOffscreenApplication(); }
    void SetUp() override {
        synth::SynthParams p;
        p.width = p.height = kSize;
        truth = synth::RenderPair(p, synth::UniformFlow(3.0, 2.0));
        for (int frame : {0, 1}) {
            Image2D image(kSize, kSize, IMAGE_UINT8);
            for (int y = 0; y < kSize; ++y)
                for (int x = 0; x < kSize; ++x)
                    image.setPixel(x, y, frame ? truth.pixelB(x, y) : truth.pixelA(x, y));
            ASSERT_TRUE(image.save(file(frame ? "run0001b.tif" : "run0001a.tif").c_str()));
        }
        // No prompt at exit unless a test asks for one.
        settings.setValue("/Prefs/ShowExitPrompt", true);
        settings.setValue("/Prefs/AlwaysSaveSettings", false);
    }
    void TearDown() override {
        QDir::setCurrent(cwd);
        SetApplicationCommandLine(nullptr);
    }
    std::string file(const char* name) const { return dir.file(name); }
    QString path(const char* name) const { return QString::fromStdString(dir.file(name)); }
    std::unique_ptr<Kelvane> window() {
        return std::make_unique<Kelvane>(true, false, &settings, nullptr);
    }
    static void drop(Kelvane& w, const QStringList& files) {
        QMimeData mime;
        QList<QUrl> urls;
        for (const QString& f : files) urls << QUrl::fromLocalFile(f);
        mime.setUrls(urls);
        QDropEvent event(QPointF(20, 20), Qt::CopyAction, &mime, Qt::LeftButton, Qt::NoModifier);
        // Straight to the window: the application routes drops only while
        // a drag of its own is under way.
        static_cast<QObject&>(w).event(&event);
    }
    // "PIV process" on the loaded pair, one pass of 32 px windows.
    static bool evaluate(Kelvane& w) {
        KelvaneDataObject* o = w.dataObject();
        PIV_PARAMETERS rec = o->parameters(0)->pivParameters();
        rec.eval.Method = PIV::METHOD_SINGLE_PASS;
        o->setPivParameters(rec, rec);
        QSignalSpy done(w.data()->engine(), &PIVevalEngine::signalEvaluationFinished);
        w.slotUpdateUI();
        w.action("actionPIVProcess")->trigger();
        return done.wait(60000) && o->isEvaluated(0);
    }
    static std::string vectors(const PIV_Data2D& d) {
        return std::string(reinterpret_cast<const char*>(d.data()),
                           d.nodeCount() * sizeof(PIV_VECTOR));
    }

    const QString cwd = QDir::currentPath();
    test_support::ScratchDir dir;
    MySettings settings{QString::fromStdString(dir.file("store.ini")), QSettings::IniFormat};
    synth::SyntheticPair truth;
};

}  // namespace

// Both frames dropped load as one pair whose pixels are those rendered; a
// missing file in the same drop only writes a log line.
TEST_F(MainWindow, DroppedPairLoadsOnceAndAMissingFileOnlyLogs) {
    auto w = window();
    QSignalSpy status(w->statusBar(), &QStatusBar::messageChanged);
    BoxWatcher boxes;
    drop(*w, {path("run0001a.tif"), path("run0001b.tif"), path("gone.tif")});
    const QPIV_ImagePair* pair = w->dataObject()->image(0);
    ASSERT_TRUE(pair->isImagePair());
    int differing = 0;
    for (int y = 0; y < kSize; ++y)
        for (int x = 0; x < kSize; ++x)
            differing += pair->imgA()->pixel(x, y) != truth.pixelA(x, y) ||
                         pair->imgB()->pixel(x, y) != truth.pixelB(x, y);
    EXPECT_EQ(differing, 0);
    EXPECT_EQ(w->recentImages()->files(), QStringList{path("run0001a.tif")});
    EXPECT_TRUE(std::any_of(status.begin(), status.end(), [](const QList<QVariant>& a) {
        return a.at(0).toString() == "Images loaded OK";
    }));
    EXPECT_TRUE(boxes.texts.isEmpty()) << boxes.texts.join("|").toStdString();
    EXPECT_TRUE(w->logBuffer()->text().contains("cannot be read:\n   " + path("gone.tif")));
}
