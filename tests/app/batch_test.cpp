// The PIV batch of the window on generated pairs: what it writes, what it
// counts, how it stops, what it asks before it starts.
#include <QDir>
#include <QFile>
#include <QProcess>

#include <cmath>
#include <fstream>

#include <QDropEvent>
#include <QLabel>
#include <QMimeData>

#include "box_watcher.h"
#include "image2ditem.h"
#include "imageviewer.h"
#include "piv_data2d.h"
#include "pivbatchdlg.h"
#include "session_fixture.h"

namespace {

// Uniform shifts of the pairs run0001 ... : dx grows by 0.15 px a pair.
double ShiftOf(int pair) {
    return 1.2 + 0.15 * pair;
}

// The displacements dx of a data file, node by node.
std::vector<double> Dx(const QString& path) {
    PIV_Data2D field;
    EXPECT_TRUE(field.load(path.toLocal8Bit().constData())) << path.toStdString();
    std::vector<double> dx;
    for (int n = 0; n < field.nodeCount(); ++n) dx.push_back(field.data()[n].dx);
    return dx;
}

// ncdump, a reader of our own files independent of ours, finds variables.
bool NcdumpReads(const QString& path) {
    QProcess dump;
    dump.start("ncdump", {"-h", path});
    return dump.waitForFinished(10000) && dump.readAllStandardOutput().contains("variables:");
}

}  // namespace

class BatchTest : public SessionTest {
protected:
    void SetUp() override {
        loadPair(1.5, 0.5);  // the session's parameters for every pair
        QDir().mkpath(in());
        QDir().mkpath(out());
        o.sourceDir = in();
        o.fileFilter = QStringLiteral("*a.tif");
        o.destDir = out();
        o.dataDestDirEnable = true;
        o.fileStub = QStringLiteral("run");
        o.plotExportFormat.clear();
    }
    QString in() const { return QString::fromStdString(dir.file("in")); }
    QString out() const { return QString::fromStdString(dir.file("out")); }
    void writePairs(int count) {
        for (int k = 1; k <= count; ++k) {
            const std::string stem = dir.file("in/run000") + std::to_string(k);
            ASSERT_TRUE(test_support::WriteShiftedTiffPair(stem + "a.tif", stem + "b.tif", 128,
                                                           ShiftOf(k), 0.5));
        }
    }
    // Runs to the end; the log lines of the run.
    QStringList run(const std::function<void(const QString&)>& onMessage = {}) {
        QSignalSpy log(&controller, &KelvaneData::signalLogMessage);
        QSignalSpy done(&controller, &KelvaneData::signalBatchFinished);
        QMetaObject::Connection c;
        if (onMessage) c = QObject::connect(&controller, &KelvaneData::signalMessage, onMessage);
        EXPECT_TRUE(controller.startBatch(o));
        EXPECT_TRUE(done.wait(120000));
        QObject::disconnect(c);
        return texts(log);
    }
    // The names in the result directory, by name, blank-separated.
    std::string written() const {
        return QDir(out())
            .entryList(QDir::Files | QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name)
            .join(' ')
            .toStdString();
    }
    BatchProcessOptions o;
};

// Pair 4's second frame is cut short: it fails by name, the other five are
// written as kelvane-eval writes them, and the statistics are those of the
// five fields read back.
TEST_F(BatchTest, TruncatedFrameFailsAloneAndStatisticsMatchTheFieldsWritten) {
    writePairs(6);
    const QString cut = in() + QStringLiteral("/run0004b.tif");
    QFile::resize(cut, QFileInfo(cut).size() / 2);
    o.doReynoldsStresses = true;
    const QStringList log = run();
    EXPECT_EQ(controller.batchFailures(), 1);
    EXPECT_TRUE(log.filter(QStringLiteral("run0004")).size() > 0) << log.join('\n').toStdString();
    EXPECT_EQ(written(),
              "run0001a.nc run0002a.nc run0003a.nc run0005a.nc run0006a.nc run_avg.nc "
              "run_reyn.dat run_rms.nc");

    // The tool on the same files with the session's parameters.
    const QString par = QString::fromStdString(dir.file("session.par"));
    PIV_Parameters params;
    params.setPivParameters(object.parameters(0)->pivParameters());
    ASSERT_TRUE(params.saveASCII(par.toLocal8Bit().constData()));
    const QString tool = QString::fromStdString(dir.file("tool"));
    QProcess eval;
    eval.start(KELVANE_EVAL_TOOL, {"-p", par, "--quiet", "--series", in() + "/run0001a.tif",
                                   in() + "/run0006a.tif", "--output-dir", tool});
    ASSERT_TRUE(eval.waitForFinished(120000));

    std::vector<std::vector<double>> fields;
    for (int k : {1, 2, 3, 5, 6}) {
        const QString name = QStringLiteral("/run000%1a.nc").arg(k);
        fields.push_back(Dx(out() + name));
        EXPECT_EQ(fields.back(), Dx(tool + name)) << name.toStdString();
        EXPECT_NEAR(fields.back()[20], ShiftOf(k), 0.05);
    }
    const int node = 0;
    double sum = 0, squares = 0;
    for (const auto& f : fields) sum += f[node];
    const double mean = sum / 5;
    for (const auto& f : fields) squares += std::pow(f[node] - mean, 2);
    EXPECT_NEAR(Dx(out() + "/run_avg.nc")[node], mean, 1e-6);
    EXPECT_NEAR(Dx(out() + "/run_rms.nc")[node], std::sqrt(squares / 5), 1e-6);

    // The first node of the stress table: x y U_bar V_bar uu ...
    std::ifstream reyn(out().toStdString() + "/run_reyn.dat");
    std::string line;
    while (std::getline(reyn, line) && line.rfind("ZONE", 0) != 0) {
    }
    double x, y, u, v, uu;
    ASSERT_TRUE(reyn >> x >> y >> u >> v >> uu);
    EXPECT_NEAR(uu, squares / 5, 1e-6);

    // The five results as the input of a second batch: read, not evaluated,
    // and the same mean.
    QSignalSpy evaluations(controller.engine(), &PIVevalEngine::signalEvaluationFinished);
    o.sourceDir = out();
    o.fileFilter = QStringLiteral("run000?a.nc");
    o.fileStub = QStringLiteral("again");
    run();
    EXPECT_EQ(evaluations.count(), 0);
    EXPECT_NEAR(Dx(out() + "/again_avg.nc")[node], mean, 1e-6);
}

// A stop ends the run at the file in hand: what was written stays whole,
// the file in hand and the statistics are not written. A stop before or
// during the first evaluation cancels it: it never completes.
TEST_F(BatchTest, StopKeepsFinishedFilesOnly) {
    writePairs(4);
    const struct {
        const char* stopAt;
        QStringList files;
    } cases[] = {
        {"File 2 of 4 - Incrementing statistics", {"run0001a.nc", "run0002a.nc"}},
        {"Wait! Evaluating image...", {}},
        {"progress", {}},  // the engine's first progress report, mid-run
    };
    for (const auto& c : cases) {
        for (const QString& f : QDir(out()).entryList(QDir::Files)) QFile::remove(out() + '/' + f);
        const auto stop = [&](const QString& text) {
            if (text == QLatin1String(c.stopAt)) controller.slotCancelProcessing();
        };
        const auto p = QObject::connect(controller.engine(), &PIVevalEngine::signalShowProgress,
                                        [&] { stop(QStringLiteral("progress")); });
        const QStringList log = run(stop);
        QObject::disconnect(p);
        EXPECT_EQ(written(), c.files.join(' ').toStdString()) << c.stopAt;
        EXPECT_TRUE(!c.files.isEmpty() || log.filter(QStringLiteral("Total processing")).isEmpty())
            << c.stopAt;
        EXPECT_EQ(controller.batchReport().toStdString(), "Evaluation aborted!");
        for (const QString& f : c.files)
            EXPECT_TRUE(NcdumpReads(out() + '/' + f)) << f.toStdString();
    }
}

// A folder where a result goes, a field or the fluctuations of the second
// pass, fails that file by name and is counted; the others are written.
TEST_F(BatchTest, ResultThatCannotBeWrittenFailsByName) {
    writePairs(3);
    QDir().mkpath(out() + "/run0002a.nc");
    QDir().mkpath(out() + "/run0003a_diff.nc");
    o.doReynoldsStresses = o.storeFluctuations = true;
    BoxWatcher boxes(QStringLiteral("Yes, overwrite files"));
    const QStringList log = run();
    EXPECT_EQ(controller.batchFailures(), 2);
    EXPECT_EQ(log.filter(QStringLiteral("run0002a.nc")).filter(QStringLiteral("failed")).size(), 2);
    EXPECT_EQ(
        log.filter(QStringLiteral("Saving failed!\n   ") + out() + "/run0003a_diff.nc").size(), 1);
    EXPECT_TRUE(QFileInfo(out() + "/run0001a.nc").isFile());
    EXPECT_TRUE(QFileInfo(out() + "/run0003a.nc").isFile());
    // The rms field's name taken by a folder as well: counted and named.
    QFile::remove(out() + "/run_rms.nc");
    QDir().mkpath(out() + "/run_rms.nc");
    run();
    EXPECT_EQ(controller.batchFailures(), 2);
    const QString report = controller.batchReport();
    EXPECT_TRUE(report.contains(out() + "/run_rms.nc") &&
                report.endsWith("\n\n2 of 3 files failed, see the log"))
        << report.toStdString();
}

// What is asked before a run, and what a refusal leaves.
TEST_F(BatchTest, QuestionsBeforeTheStart) {
    writePairs(1);
    for (int k = 2; k <= 11; ++k)
        for (const char* frame : {"a", "b"})
            QFile::copy(
                in() + "/run0001" + frame + ".tif",
                in() + QStringLiteral("/copy%1%2.tif").arg(k, 2, 10, QChar('0')).arg(frame));
    const struct {
        int files;
        bool parFile, outputExists;
        const char* plot;      // a plot into the source folder in this format
        const char* question;  // the start of the first box, none when empty
    } cases[] = {
        {10, false, false, "", ""},
        {11, false, false, "", "Selected 11 files for batch processing:"},
        {1, false, true, "", "Some output files/images in\n'"},
        {1, true, false, "", "Parameter file does not exist:\n  "},
        {1, false, false, "tif", "A result would overwrite an image of the series:\n  "},
    };
    for (const auto& c : cases) {
        o.updateFileList();
        o.fileList = o.fileList.mid(0, c.files);
        o.parFileEnable = c.parFile;
        o.parFile = QStringLiteral("/nonexistent/run.par");
        o.plotExportFormat = QString::fromLatin1(c.plot);
        o.destDir = *c.plot ? in() : out();
        QDir(out()).removeRecursively();
        QDir().mkpath(out());
        if (c.outputExists) QFile(out() + "/run_avg.nc").open(QIODevice::WriteOnly);
        const std::string before = written();
        BoxWatcher boxes(QStringLiteral("No, cancel"));
        const bool started = controller.startBatch(o);
        EXPECT_EQ(started, !*c.question) << c.files;
        if (*c.question) {
            ASSERT_EQ(boxes.texts.size(), 1);
            EXPECT_TRUE(boxes.texts.first().startsWith(c.question))
                << boxes.texts.first().toStdString();
            EXPECT_EQ(written(), before);
        } else {
            QSignalSpy done(&controller, &KelvaneData::signalBatchFinished);
            EXPECT_TRUE(done.wait(120000));
        }
    }
}

// Without NetCDF results, or with one, there is no second pass: its line says why.
TEST_F(BatchTest, ReynoldsStressesNeedTwoNetCDFResults) {
    writePairs(2);
    o.doReynoldsStresses = true;
    const struct {
        bool netcdf;
        int files;
        const char* line;
    } cases[] = {
        {false, 2, "  -> not possible - no netCDF data?"},
        {true, 1, "  -> not enough files...(1) "},
    };
    for (const auto& c : cases) {
        o.outputNetCDF = c.netcdf;
        o.outputOther = !c.netcdf;
        o.updateFileList();
        o.fileList = o.fileList.mid(0, c.files);
        BoxWatcher boxes(QStringLiteral("Yes, overwrite files"));
        EXPECT_TRUE(run().contains(c.line)) << c.line;
        EXPECT_FALSE(QFileInfo::exists(out() + "/run_reyn.dat"));
    }
}

// 25 images and 5 other files; the filter takes both image kinds, the
// subset every second from the fourth (index 3): 3, 5, ..., 23.
TEST_F(BatchTest, DialogCountsItsSelectionAndKeepsItsSettings) {
    for (int k = 0; k < 30; ++k) {
        const char* suffix = k < 20 ? ".tif" : k < 25 ? ".b16" : ".txt";
        QFile(in() + QStringLiteral("/f%1%2").arg(k, 2, 10, QChar('0')).arg(suffix))
            .open(QIODevice::WriteOnly);
    }
    o.fileFilter = QStringLiteral("*.tif;*.b16");
    o.fileSubSet = true;
    o.fileIndexStart = 3;
    o.fileIndexIncr = 2;
    o.ensemblePeakRelThresh = 0.25f;
    o.doReynoldsStresses = true;
    const auto labels = [](const PIVBatchDlg& dialog) {
        QStringList t;
        for (QLabel* l : dialog.findChildren<QLabel*>()) t << l->text();
        return t;
    };
    {
        PIVBatchDlg dialog(&settings, 0);
        dialog.setBatchOpts(o);
        EXPECT_TRUE(labels(dialog).contains("Available Files: 25"));
        EXPECT_TRUE(labels(dialog).contains("Selected Files: 11"));
        EXPECT_EQ(dialog.getBatchOptions().fileList.first(), in() + "/f03.tif");
        dialog.accept();
    }
    PIVBatchDlg again(&settings, 0);
    const BatchProcessOptions back = again.getBatchOptions();
    EXPECT_EQ(back.fileList.size(), 11);
    EXPECT_TRUE(back.doReynoldsStresses && back.dataDestDirEnable);
    EXPECT_EQ(back.ensemblePeakRelThresh, 0.25f);
    // The image batch keeps its own.
    EXPECT_NE(PIVBatchDlg(&settings, 1).getBatchOptions().fileFilter, o.fileFilter);

    // Three files dropped from two folders, one with a blank: exactly those.
    const QStringList dropped = {in() + "/f01.tif", in() + "/f 02.tif", out() + "/g.b16"};
    for (const QString& f : dropped) QFile(f).open(QIODevice::WriteOnly);
    QMimeData mime;
    mime.setUrls({QUrl::fromLocalFile(dropped[0]), QUrl::fromLocalFile(dropped[1]),
                  QUrl::fromLocalFile(dropped[2])});
    o.fileSubSet = false;
    again.setBatchOpts(o);
    QDropEvent drop(QPointF(), Qt::CopyAction, &mime, Qt::LeftButton, Qt::NoModifier);
    static_cast<QObject&>(again).event(&drop);  // the drop handler, as the window's drag ends
    EXPECT_TRUE(labels(again).contains("Available Files: 3"));
    EXPECT_EQ(again.getBatchOptions().fileList, dropped);
}

// A source folder that is gone is said, and the files of the working
// directory, where the pairs are, are not run instead.
TEST_F(BatchTest, MissingSourceFolderRunsNothing) {
    writePairs(1);
    const QString cwd = QDir::currentPath();
    QDir::setCurrent(in());
    o.sourceDir = in() + "/gone";
    BoxWatcher boxes;
    EXPECT_FALSE(controller.startBatch(o));
    EXPECT_FALSE(controller.doEnsembleCorrelation(o));
    QDir::setCurrent(cwd);
    const QString said = "Source directory does not exist:\n  " + o.sourceDir;
    EXPECT_EQ(boxes.texts, QStringList({said, said}));
    EXPECT_EQ(written(), "");
}

// While a batch runs, nothing else evaluates.
TEST_F(BatchTest, BatchModeRefusesEvaluation) {
    QSignalSpy messages(&controller, &KelvaneData::signalMessage);
    controller.setBatchMode(true);
    controller.slotEvaluateImage();
    EXPECT_FALSE(controller.engine()->isEvaluationRunning());
    EXPECT_TRUE(texts(messages).contains("PIV evaluation not possible"));
    EXPECT_FALSE(controller.startBatch(o));
    controller.setBatchMode(false);
}

// 20 pairs of one shift summed into one field, with and without an offset
// field; a stop before the first pair writes nothing.
TEST_F(BatchTest, EnsembleFindsTheCommonShiftAndStopsClean) {
    for (int k = 1; k <= 20; ++k) {
        const std::string stem = dir.file("in/e") + std::to_string(100 + k);
        ASSERT_TRUE(
            test_support::WriteShiftedTiffPair(stem + "a.tif", stem + "b.tif", 128, 1.5, 0.5));
    }
    o.ensembleEnable = true;
    o.fileStub = QStringLiteral("ens");
    // An image of the planes already there, the image alone asked for:
    // asked once, refused, untouched.
    QFile corr(out() + "/ens_corr.tif");
    ASSERT_TRUE(corr.open(QIODevice::WriteOnly) && corr.write("mine") == 4);
    corr.close();
    o.ensembleSaveImage = true;
    o.ensembleSaveData = false;
    {
        BoxWatcher boxes(QStringLiteral("No, cancel"));
        EXPECT_FALSE(controller.doEnsembleCorrelation(o));
        EXPECT_EQ(boxes.texts.size(), 1);
    }
    EXPECT_EQ(QFileInfo(corr).size(), 4);
    corr.remove();
    o.ensembleSaveImage = false;
    o.ensembleSaveData = true;
    for (bool stop : {true, false}) {
        QSignalSpy done(&controller, &KelvaneData::signalBatchFinished);
        QMetaObject::Connection c;
        if (stop)
            c = QObject::connect(&controller, &KelvaneData::signalLogMessage,
                                 [&](const QString& t) {
                                     if (t.startsWith("Ensemble correlation processing on"))
                                         controller.slotCancelProcessing();
                                 });
        ASSERT_TRUE(controller.doEnsembleCorrelation(o));
        ASSERT_TRUE(done.wait(120000));
        QObject::disconnect(c);
        if (stop) {
            EXPECT_EQ(controller.batchReport().toStdString(),
                      "Ensemble correlation processing aborted!");
            EXPECT_EQ(written(), "");
        }
    }
    EXPECT_EQ(written(), "ens_avg.nc ens_avg_piv.dat ens_avg_vel.dat ens_corr.nc");
    EXPECT_TRUE(NcdumpReads(out() + "/ens_avg.nc"));
    // Run again with the first result as the offset field: the window
    // follows the shift and the summed field is still 1.5 px; the map shown
    // spans 0 to 1, each 64 px plane scaled over its own range.
    ASSERT_TRUE(QFile::rename(out() + "/ens_avg.nc", in() + "/offset.nc"));
    o.displFileEnable = true;
    o.displFile = in() + "/offset.nc";
    // A folder where the planes go: that save fails and is counted.
    ASSERT_TRUE(QFile::remove(out() + "/ens_corr.nc") && QDir().mkpath(out() + "/ens_corr.nc"));
    o.ensembleDisplayImage = o.ensembleSaveImage = true;
    object.setTIFFCompression(true);
    BoxWatcher boxes(QStringLiteral("Yes, overwrite files"));
    QSignalSpy done(&controller, &KelvaneData::signalBatchFinished);
    ASSERT_TRUE(controller.doEnsembleCorrelation(o));
    ASSERT_TRUE(done.wait(120000));
    const ImageViewer* viewer = controller.imageViewer();
    EXPECT_TRUE(viewer->isVisible() && viewer->windowTitle() == "Ensemble correlation map: ens");
    EXPECT_TRUE(viewer->item()->minimum() == 0 && viewer->item()->maximum() == 1);
    EXPECT_TRUE(controller.batchFailures() == 1 &&
                controller.batchReport().endsWith("\n\nFiles not saved: 1, see the log"));
    QProcess info;  // libtiff's own reader: the image saved compressed
    info.start("tiffinfo", {out() + "/ens_corr.tif"});
    ASSERT_TRUE(info.waitForFinished(10000));
    EXPECT_FALSE(info.readAllStandardOutput().contains("Compression Scheme: None"));
    const std::vector<double> dx = Dx(out() + "/ens_avg.nc");
    double sum = 0;
    for (double d : dx) sum += d;
    EXPECT_NEAR(sum / dx.size(), 1.5, 0.05);
}
