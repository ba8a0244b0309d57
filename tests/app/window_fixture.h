// The fixture of the window tests: a synthetic pair of a known uniform
// displacement written as TIFF files, a settings store of its own and the
// user's ways to load and evaluate.
#pragma once

#include <gtest/gtest.h>

#include <QDir>
#include <QDropEvent>
#include <QMimeData>
#include <QSignalSpy>
#include <QTimer>
#include <QUrl>

#include <memory>
#include <string>

#include "command_line.h"
#include "image2d.h"
#include "kelvane.h"
#include "kelvanedata.h"
#include "kelvanedataobject.h"
#include "mysettings.h"
#include "offscreen_app.h"
#include "piv_data2d.h"
#include "piv_enums.h"
#include "piv_params.h"
#include "pivevalobj.h"
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
    // "PTV scan", counting the turns of the event loop before the tracks came.
    bool scan(Kelvane& w) {
        KelvaneDataObject* o = w.dataObject();
        int ticks = 0;
        ticksBeforeTracks = -1;
        QTimer tick;
        QObject::connect(&tick, &QTimer::timeout, [&ticks] { ++ticks; });
        tick.start(0);
        QSignalSpy tracks(o, &KelvaneDataObject::signalHaveNewPTVData);
        QObject::connect(o, &KelvaneDataObject::signalHaveNewPTVData, &tick,
                         [this, &ticks] { ticksBeforeTracks = ticks; });
        w.action("actionPTV_ProcessImage")->trigger();
        return (!tracks.isEmpty() || tracks.wait(60000)) && o->havePTVdata();
    }
    static std::string vectors(const PIV_Data2D& d) {
        return std::string(reinterpret_cast<const char*>(d.data()),
                           d.nodeCount() * sizeof(PIV_VECTOR));
    }

    const QString cwd = QDir::currentPath();
    test_support::ScratchDir dir;
    MySettings settings{QString::fromStdString(dir.file("store.ini")), QSettings::IniFormat};
    synth::SyntheticPair truth;
    int ticksBeforeTracks = -1;
};

}  // namespace
