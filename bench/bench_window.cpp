// The main window as the user meets it, offscreen.
//
// start_ms: construction of a window up to run state 1 (idle), with a
//   settings store of its own; budget 1000 ms.
// drop_ms: a drop of both frames of a 2560 x 2160 16-bit TIFF pair until the
//   drop returns, "Images loaded OK" shown and the window updated; budget
//   500 ms.
// Release build; the counters count, not the time per iteration.
#include <benchmark/benchmark.h>

#include <QDropEvent>
#include <QElapsedTimer>
#include <QMimeData>
#include <QStatusBar>
#include <QTemporaryDir>
#include <QUrl>

#include <algorithm>

#include "bench_app.h"
#include "bench_frames.h"
#include "kelvane.h"
#include "kelvanedataobject.h"
#include "mysettings.h"
#include "piv_messages.h"
#include "qpiv_imagepair.h"

namespace {

struct Fixture {
    QTemporaryDir dir;
    MySettings settings{dir.filePath("store.ini"), QSettings::IniFormat};
    QString a = dir.filePath("cam0001a.tif"), b = dir.filePath("cam0001b.tif");

    Fixture() {
        settings.setValue("/Prefs/ShowExitPrompt", true);
        settings.setValue("/Prefs/AlwaysSaveSettings", false);
        const Image2D frame = bench::CameraFrame();
        // TIFF by name is not enough: a 16-bit frame saved without a format
        // becomes a PCO file, which the window splits into two frames.
        frame.save(a.toLocal8Bit().constData(), PIV::FORMAT_TIFF);
        frame.save(b.toLocal8Bit().constData(), PIV::FORMAT_TIFF);
    }
};

Fixture& TheFixture() {
    bench::OffscreenApp();
    static Fixture fixture;
    return fixture;
}

void BM_WindowStart(benchmark::State& state) {
    Fixture& f = TheFixture();
    double worst = 0.0;
    for (auto _ : state) {
        QElapsedTimer clock;
        clock.start();
        Kelvane window(true, false, &f.settings, nullptr);
        worst = std::max(worst, clock.nsecsElapsed() / 1e6);
        state.PauseTiming();
        state.counters["idle"] = window.dataObject()->state()->runState == KelvaneState::IDLE;
        state.ResumeTiming();
    }
    state.counters["start_ms"] = worst;
}
BENCHMARK(BM_WindowStart)->Unit(benchmark::kMillisecond)->Iterations(5)->UseRealTime();

void BM_DropPair2560x2160(benchmark::State& state) {
    Fixture& f = TheFixture();
    Kelvane window(true, false, &f.settings, nullptr);
    double worst = 0.0;
    bool loaded = true;
    for (auto _ : state) {
        QMimeData mime;
        mime.setUrls({QUrl::fromLocalFile(f.a), QUrl::fromLocalFile(f.b)});
        QDropEvent drop(QPointF(10, 10), Qt::CopyAction, &mime, Qt::LeftButton, Qt::NoModifier);
        QElapsedTimer clock;
        clock.start();
        static_cast<QObject&>(window).event(&drop);
        worst = std::max(worst, clock.nsecsElapsed() / 1e6);
        loaded = loaded && window.statusBar()->currentMessage() == "Images loaded OK" &&
                 window.dataObject()->image(0)->isImagePair();
    }
    state.counters["drop_ms"] = worst;
    state.counters["loaded"] = loaded ? 1 : 0;
}
BENCHMARK(BM_DropPair2560x2160)->Unit(benchmark::kMillisecond)->Iterations(5)->UseRealTime();

}  // namespace
