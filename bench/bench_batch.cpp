// The batches of the window on a Release build.
//
// BM_BatchVsTool: 20 pairs of 1024 x 1024 evaluated by the window's batch
//   and by kelvane-eval --series with the same parameters; ratio is the
//   batch's throughput over the tool's (the goal: at least 0.9).
// BM_BatchMemory: 200 pairs of 256 x 256; the resident memory after the
//   20th and after the 200th file, MB (flat: no growth per file).
// BM_ImageBatch: the image batch over 10 camera frames of 2560 x 2160 at
//   16 bits, all five statistics images; frames_per_s.
#include <benchmark/benchmark.h>

#include <QAbstractButton>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QMainWindow>
#include <QProcess>
#include <QTemporaryDir>
#include <QTimer>

#include <fstream>
#include <string>

#include "bench_app.h"
#include "bench_frames.h"
#include "kelvanedata.h"
#include "kelvanedataobject.h"
#include "kelvanestate.h"
#include "mysettings.h"
#include "piv_enums.h"
#include "piv_messages.h"
#include "piv_params.h"

namespace {

long ResidentBytes() {
    std::ifstream in("/proc/self/status");
    std::string word;
    while (in >> word)
        if (word == "VmRSS:") {
            long kb = 0;
            in >> kb;
            return kb * 1024;
        }
    return 0;
}

// Starts a run and serves events until the controller says it finished;
// the question a long batch asks before it starts is answered "go on".
template <class Start>
bool RunToEnd(KelvaneData& controller, Start start) {
    QTimer answer;
    QObject::connect(&answer, &QTimer::timeout, [] {
        if (QWidget* box = QApplication::activeModalWidget())
            for (QAbstractButton* b : box->findChildren<QAbstractButton*>())
                if (b->text().remove('&') == QLatin1String("Yes, continue")) b->click();
    });
    answer.start(20);
    QEventLoop loop;
    QObject::connect(&controller, &KelvaneData::signalBatchFinished, &loop, &QEventLoop::quit);
    if (!start()) return false;
    loop.exec();
    return true;
}

struct Session {
    QTemporaryDir dir;
    MySettings settings{dir.filePath("store.ini"), QSettings::IniFormat};
    KelvaneState state;
    QMainWindow window;
    KelvaneDataObject object{&state, &settings};
    KelvaneData controller{&object, &window, &settings};
    BatchProcessOptions options;

    // `count` pairs of `size` squared, evaluated in one pass of 32 px
    // windows at step 16.
    Session(int count, int size) {
        QDir().mkpath(dir.filePath("in"));
        QDir().mkpath(dir.filePath("out"));
        for (int k = 0; k < count; ++k) {
            const bench::ParticlePair pair(size, synth::UniformFlow(2.3, -1.4), 3 + k);
            const QString stem = dir.filePath(QStringLiteral("in/p%1").arg(1000 + k));
            pair.a.save((stem + "a.tif").toLocal8Bit().constData());
            pair.b.save((stem + "b.tif").toLocal8Bit().constData());
        }
        const QString first = dir.filePath("in/p1000a.tif");
        object.loadPivImage(first, QString(), false, 0);
        PIV_PARAMETERS rec = object.parameters(0)->pivParameters();
        rec.eval.Method = PIV::METHOD_SINGLE_PASS;
        rec.eval.SampleSize = rec.eval.FFTSize = SIZE3D{32, 32, 1};
        rec.eval.grid.step = SIZE3D{16, 16, 1};
        rec.outlier.Enable = false;
        object.setPivParameters(rec, rec);
        object.setKelvaneMode(MODE_DATA);
        options.sourceDir = dir.filePath("in");
        options.fileFilter = QStringLiteral("*a.tif");
        options.destDir = dir.filePath("out");
        options.dataDestDirEnable = true;
        options.plotExportFormat.clear();
        options.updateFileList();
    }
    double runBatch() {
        QElapsedTimer clock;
        clock.start();
        if (!RunToEnd(controller, [this] { return controller.startBatch(options); })) return -1;
        return clock.elapsed() / 1000.0;
    }
};

void BM_BatchVsTool(benchmark::State& state) {
    bench::OffscreenApp();
    Session s(20, 1024);
    const QString par = s.dir.filePath("session.par");
    PIV_Parameters params;
    params.setPivParameters(s.object.parameters(0)->pivParameters());
    params.saveASCII(par.toLocal8Bit().constData());
    double batch = 0, tool = 0;
    for (auto _ : state) {
        batch = s.runBatch();
        QElapsedTimer clock;
        clock.start();
        QProcess eval;
        eval.start(KELVANE_EVAL_TOOL,
                   {"-p", par, "--quiet", "--series", s.options.fileList.first(),
                    s.options.fileList.last(), "--output-dir", s.dir.filePath("tool")});
        eval.waitForFinished(-1);
        tool = clock.elapsed() / 1000.0;
    }
    state.counters["batch_s"] = batch;
    state.counters["tool_s"] = tool;
    state.counters["ratio"] = batch > 0 ? tool / batch : 0;
}
BENCHMARK(BM_BatchVsTool)->Unit(benchmark::kSecond)->Iterations(1)->UseRealTime();

void BM_BatchMemory(benchmark::State& state) {
    bench::OffscreenApp();
    Session s(200, 256);
    long at20 = 0, at200 = 0;
    QObject::connect(&s.controller, &KelvaneData::signalMessage, [&](const QString& text) {
        if (text.startsWith("File 20 of 200 - Incrementing")) at20 = ResidentBytes();
        if (text.startsWith("File 200 of 200 - Incrementing")) at200 = ResidentBytes();
    });
    for (auto _ : state) s.runBatch();
    state.counters["rss20_MB"] = double(at20) / (1 << 20);
    state.counters["rss200_MB"] = double(at200) / (1 << 20);
}
BENCHMARK(BM_BatchMemory)->Unit(benchmark::kSecond)->Iterations(1)->UseRealTime();

void BM_ImageBatch(benchmark::State& state) {
    bench::OffscreenApp();
    Session s(1, 64);
    const Image2D frame = bench::CameraFrame();
    for (int k = 0; k < 10; ++k)
        frame.save(s.dir.filePath(QStringLiteral("cam%1.b16").arg(k)).toLocal8Bit().constData());
    BatchProcessOptions o;
    o.sourceDir = s.dir.path();
    o.fileFilter = QStringLiteral("cam*.b16");
    o.imageSeqCalcMinimum = o.imageSeqCalcMaximum = o.imageSeqCalcAverage = true;
    o.imageSeqCalcAverageMod = o.imageSeqCalcRMS = true;
    double seconds = 0;
    for (auto _ : state) {
        for (const char* f : {"_min.b16", "_max.b16", "_avg.b16", "_avgmod.b16", "_rms.img"})
            QFile::remove(s.dir.filePath(QStringLiteral("imagestats") + f));
        QElapsedTimer clock;
        clock.start();
        RunToEnd(s.controller, [&] { return s.controller.startImageBatch(o); });
        seconds = clock.elapsed() / 1000.0;
    }
    state.counters["frames_per_s"] = seconds > 0 ? 10 / seconds : 0;
}
BENCHMARK(BM_ImageBatch)->Unit(benchmark::kSecond)->Iterations(1)->UseRealTime();

}  // namespace
