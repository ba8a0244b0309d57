// The main window driven as a user drives it: drops, actions, keys, boxes and
// the settings store, on synthetic particle pairs of a known displacement.
#include <gtest/gtest.h>

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QDir>
#include <QDropEvent>
#include <QFile>
#include <QImage>
#include <QLineEdit>
#include <QMimeData>
#include <QPointer>
#include <QPushButton>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QSplashScreen>
#include <QStatusBar>
#include <QTest>
#include <QTimer>
#include <QToolBar>
#include <QUrl>

#include <cstring>
#include <memory>

#include "batchprocessoptions.h"
#include "box_watcher.h"
#include "command_line.h"
#include "image2d.h"
#include "kelvane.h"
#include "kelvanedata.h"
#include "kelvanedataobject.h"
#include "kelvanedataview.h"
#include "kelvanedataview_bmpitems.h"
#include "kelvanefile.h"
#include "offscreen_app.h"
#include "piv_data2d.h"
#include "piv_enums.h"
#include "piv_eval2d.h"
#include "piv_params.h"
#include "piv_record.h"
#include "pivevalobj.h"
#include "ptv_data2d.h"
#include "ptv_eval2d.h"
#include "ptvevalobj.h"
#include "ptvmodule.h"
#include "ptvoutputdlg.h"
#include "ptvparamsdlg.h"
#include "qlogbuffer.h"
#include "qpiv_imagepair.h"
#include "recentfiles.h"
#include "scratch_files.h"
#include "synthetic_images.h"
#include "synthetic_tiff.h"

#include "window_fixture.h"

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

// "PIV process" gives the field of the library run on the same pair; a
// second press asks first, and "No" leaves the vectors byte for byte.
TEST_F(MainWindow, ProcessGivesTheLibrarysFieldAndAsksBeforeReplacingIt) {
    auto w = window();
    drop(*w, {path("run0001a.tif")});
    ASSERT_TRUE(evaluate(*w));
    KelvaneDataObject* o = w->dataObject();
    PIV_Parameters params;
    params.setPivParameters(o->parameters(0)->pivParameters());
    PIV_Data2D field;
    PIV_Eval2D direct(&field, &params);
    ASSERT_TRUE(direct.setPivImages(o->image(0)->imgA(), o->image(0)->imgB()));
    ASSERT_TRUE(direct.interrogateImage(false));
    const std::string before = vectors(*o->data(0));
    EXPECT_EQ(before, vectors(field));

    BoxWatcher no("&No");
    w->action("actionPIVProcess")->trigger();
    EXPECT_EQ(no.texts,
              QStringList{"Image is already evaluated!\nDo you want to re-evaluate it anyway?"});
    EXPECT_EQ(vectors(*o->data(0)), before);
    EXPECT_EQ(w->statusBar()->currentMessage(), "PIV evaluation not possible");
}

// "PTV scan" is refused without a pair and without a field; on the
// evaluated pair it runs on the tracker's worker, the window's timers go on
// meanwhile ("Show PTV vectors" then tells the scene), and it gives the tracks of the library run
// on the same images and field, most of them valid under the flow (3, 2). Saved, the table has a
// line per particle, the first at the first particle; a missing folder gives a box that says so.
TEST_F(MainWindow, PTVScanGivesTheLibrarysTracksOrSaysWhatIsMissing) {
    auto w = window();
    KelvaneDataObject* o = w->dataObject();
    for (const char* r : {"PTV requires PIV image pair", "PTV requires evaluated PIV data set"}) {
        BoxWatcher boxes;
        w->data()->slotPTV_ProcessImage();
        EXPECT_EQ(boxes.texts, QStringList{r});
        drop(*w, {path("run0001a.tif")});
    }
    ASSERT_TRUE(evaluate(*w));
    ASSERT_TRUE(scan(*w));
    EXPECT_GT(ticksBeforeTracks, 0) << "the window stood still during the scan";
    EXPECT_EQ(w->statusBar()->currentMessage().left(5), "PTV: ");
    // The tracks show once scanned; "Show PTV vectors" takes them off the plot.
    const auto tracksShown = [&w] {
        w->dataView()->autoRedraw(true);
        return w->dataView()->items(0)->isShown(KelvaneBmpItems::ITEM_TRACKS);
    };
    EXPECT_TRUE(tracksShown());
    w->slotUpdateUI();
    w->action("actionPTV_ShowVectors")->trigger();
    EXPECT_FALSE(tracksShown());
    const PTV_Data2D& tracks = *o->ptvData();
    PTV_Data2D direct;
    PTV_Eval2D ptv(&direct);
    ASSERT_TRUE(ptv.process(*o->image(0)->imgA(), *o->image(0)->imgB(),
                            *(o->haveData(3) ? o->data(3) : o->data(0))));
    ASSERT_EQ(tracks.size(), direct.size());
    EXPECT_GT(tracks.validCount(), tracks.particleCount() / 2);
    for (size_t k = 0; k < tracks.size(); ++k)
        EXPECT_EQ(0, std::memcmp(tracks.pairData(k), direct.pairData(k), sizeof(PTV_PAIR))) << k;

    // "Save PTV data" asks where through its dialog.
    QTimer::singleShot(0, [&] {
        w->ptvModule()->outputDlg()->setFileName(path("tracks.txt"));
        w->ptvModule()->outputDlg()->accept();
    });
    w->action("actionPTV_SaveData")->trigger();
    QFile table(path("tracks.txt"));
    ASSERT_TRUE(table.open(QIODevice::ReadOnly | QIODevice::Text));
    const QStringList rows = QString::fromLatin1(table.readAll())
                                 .split('\n', Qt::SkipEmptyParts)
                                 .filter(QRegularExpression("^[^#]"));
    ASSERT_EQ(rows.size(), tracks.particleCount());
    EXPECT_TRUE(rows[0].startsWith(
        QString::asprintf("%.3f %.3f ", tracks.pairData(0)->first.x, tracks.pairData(0)->first.y)));
    BoxWatcher boxes;
    EXPECT_FALSE(w->data()->savePTVData(path("gone/tracks.txt")));
    ASSERT_EQ(boxes.texts.size(), 1);
    EXPECT_TRUE(boxes.texts[0].contains("cannot create")) << boxes.texts[0].toStdString();
}

// A mask over the left half (any pixel not 0 masks, as in the tool) keeps
// the scan out of it: the truth has particles there, the tracks none. Then
// sort boxes 0 px wide, nonsense, fail the scan with a box saying why, and
// those tracks stay.
TEST_F(MainWindow, PTVScanLeavesTheMaskedHalfOutAndAFailedScanKeepsTheTracks) {
    Image2D mask(kSize, kSize, IMAGE_UINT8);
    for (int y = 0; y < kSize; ++y)
        for (int x = 0; x < kSize; ++x) mask.setPixel(x, y, x < kSize / 2 ? 1.0f : 0.0f);
    ASSERT_TRUE(mask.save(file("mask.tif").c_str()));
    auto w = window();
    KelvaneDataObject* o = w->dataObject();
    IMAGE_CFG image = o->image(0)->imageCfg();
    image.MaskEnable = true;
    PIV::CopyText(image.Mask, file("mask.tif").c_str());
    o->image(0)->setImageCfg(image);
    drop(*w, {path("run0001a.tif")});
    ASSERT_TRUE(o->image(0)->isMaskAvailable());
    ASSERT_TRUE(evaluate(*w));
    ASSERT_GT(std::count_if(truth.particlesA.begin(), truth.particlesA.end(),
                            [](const synth::Particle& p) { return p.x > 4 && p.x < kSize / 2; }),
              10);
    ASSERT_TRUE(scan(*w));
    const std::shared_ptr<const PTV_Data2D> tracks = o->ptvData();
    int left = 0;
    for (size_t k = 0; k < tracks->size(); ++k)
        left += tracks->pairData(k)->first.id >= 0 && tracks->pairData(k)->first.x < kSize / 2;
    EXPECT_GT(tracks->particleCount(), 10);
    EXPECT_EQ(left, 0);

    PTV_PARAMS cfg = o->ptvParameters();
    cfg.SortBoxWidth = 0;
    o->setPTVParameters(cfg);
    BoxWatcher boxes;
    QSignalSpy finished(w->data()->ptvEngine(), &PTVevalObj::signalFinished);
    w->action("actionPTV_ProcessImage")->trigger();
    ASSERT_TRUE(finished.wait(60000));
    ASSERT_EQ(boxes.texts.size(), 1);
    EXPECT_TRUE(boxes.texts[0].startsWith("PTV analysis failed: ")) << boxes.texts[0].toStdString();
    EXPECT_TRUE(boxes.texts[0].contains("sort box 0x64"));
    EXPECT_EQ(w->statusBar()->currentMessage(), "PTV analysis failed");
    EXPECT_EQ(o->ptvData(), tracks);
}

// "PTV parameters": "Cancel" leaves the settings as they were, "OK" takes an
// edited search radius (10 px by default); the store keeps it for the next window.
TEST_F(MainWindow, PTVParametersApplyOnlyOnOKAndSurviveTheStore) {
    const struct {
        QDialogButtonBox::StandardButton button;
        double radius;
    } cases[] = {{QDialogButtonBox::Cancel, 10.0}, {QDialogButtonBox::Ok, 25.0}};
    for (const auto& c : cases) {
        auto w = window();
        QSignalSpy changed(w->dataObject(), &KelvaneDataObject::signalHaveNewPTVParameters);
        QTimer::singleShot(0, [&] {
            QDialog* dlg = w->ptvModule()->paramsDlg();
            dlg->findChild<QLineEdit*>("Search radius")->setText("25");
            dlg->findChild<QDialogButtonBox*>()->button(c.button)->click();
        });
        w->action("actionPTV_Parameters")->trigger();
        EXPECT_EQ(w->dataObject()->ptvParameters().SearchRadius, c.radius);
        EXPECT_EQ(changed.count(), c.button == QDialogButtonBox::Ok);
        w->registryIO(MySettings::WRITE);
        EXPECT_EQ(settings.value("/PTV/SearchRadius").toDouble(), c.radius);
        w.reset();
        EXPECT_EQ(window()->dataObject()->ptvParameters().SearchRadius, c.radius);
    }
}

// Ctrl+S saves the field under the pair's name as NetCDF; dropped back it
// is the same field. Names without a suffix take the one of their format,
// which an independent look at the file's first bytes confirms.
TEST_F(MainWindow, CtrlSWritesNetCDFThatReadsBackAndEachFormatItsSuffix) {
    auto w = window();
    drop(*w, {path("run0001a.tif")});
    ASSERT_TRUE(evaluate(*w));
    w->show();
    QApplication::setActiveWindow(w.get());
    ASSERT_TRUE(QTest::qWaitForWindowActive(w.get()));
    const std::string saved = vectors(*w->dataObject()->data(0));
    {
        BoxWatcher save("Save");
        QTest::keyClick(w.get(), Qt::Key_S, Qt::ControlModifier);
        EXPECT_EQ(save.texts, QStringList{"Save PIV data"});
    }
    ASSERT_TRUE(QFileInfo::exists(path("run0001a.nc")));
    auto fresh = window();
    drop(*fresh, {path("run0001a.nc")});
    const PIV_Data2D* back = fresh->dataObject()->data(0);
    ASSERT_TRUE(fresh->dataObject()->isFileData(0));
    const PIV_Data2D* mine = w->dataObject()->data(0);
    ASSERT_EQ(back->nodeCount(), mine->nodeCount());
    for (int k = 0; k < back->nodeCount(); ++k) {
        EXPECT_EQ(back->data()[k].dx, mine->data()[k].dx) << k;
        EXPECT_EQ(back->data()[k].dy, mine->data()[k].dy) << k;
    }
    EXPECT_EQ(fresh->recentFiles()->files(), QStringList{path("run0001a.nc")});

    // The magic numbers of NetCDF classic and Tecplot binary files; Tecplot
    // text names its variables.
    struct Case {
        int index;
        const char* name;
        std::string mark;
        bool atStart;
    } const cases[] = {{0, "out0.nc", "CDF", true},
                       {1, "out1.plt", "#!TDV", true},
                       {2, "out2.dat", "VARIABLES", false},
                       {3, "out3.dat", "VARIABLES", false}};
    for (const Case& c : cases) {
        const QString stem = path("out") + QString::number(c.index);
        ASSERT_TRUE(w->data()->slotFileSaveDataAs(stem, c.index, false, true)) << c.index;
        const std::string bytes = test_support::ReadBytes(file(c.name));
        const size_t at = bytes.find(c.mark);
        EXPECT_TRUE(c.atStart ? at == 0 : at != std::string::npos) << c.name;
    }
    EXPECT_EQ(vectors(*w->dataObject()->data(0)), saved);

    // An existing file is overwritten only when the user says so.
    const std::string before = test_support::ReadBytes(file("out1.plt"));
    for (const char* answer : {"Cancel", "Yes, overwrite!"}) {
        BoxWatcher box(answer);
        EXPECT_EQ(w->data()->slotFileSaveDataAs(path("out1.plt"), 0, false, false),
                  answer[0] == 'Y');
        EXPECT_EQ(box.texts, QStringList{"Overwrite existing file:\n'" + path("out1.plt") + "'"});
        EXPECT_EQ(test_support::ReadBytes(file("out1.plt")) == before, answer[0] == 'C');
    }
    // The parameters go beside the data under the pair's name, and read back.
    ASSERT_TRUE(w->data()->doParameterFileIO(1));
    PIV_Parameters read;
    ASSERT_TRUE(read.read(file("run0001a.par").c_str()));
    // The node grid is worked out from the image at the next run, not read.
    PIVEVAL_CFG stored = read.pivEvalCfg();
    const PIVEVAL_CFG session = w->dataObject()->parameters(0)->pivParameters().eval;
    stored.grid = session.grid;
    EXPECT_TRUE(PIV::SameRecord(stored, session));
}

// Files that do not read, dropped on an evaluated pair: one box names the
// file and says why, and the session is as it was.
TEST_F(MainWindow, BadFilesDroppedOnAnEvaluatedPairChangeNothing) {
    auto w = window();
    drop(*w, {path("run0001a.tif")});
    ASSERT_TRUE(evaluate(*w));
    test_support::WriteBytes(file("corrupt.nc"), std::string("CDF\x01\0\0\0\x07garbage", 15));
    const std::string tiff = test_support::ReadBytes(file("run0001a.tif"));
    test_support::WriteBytes(file("cut0001a.tif"), tiff.substr(0, tiff.size() / 3));
    test_support::WriteBytes(file("garbage.par"), "View0_SampleSize = (banana\n\x01\x02\x03\n");
    KelvaneDataObject* o = w->dataObject();
    const QPIV_ImagePair* pair = o->image(0);
    const std::string field = vectors(*o->data(0));
    const PIV_PARAMETERS params = o->parameters(0)->pivParameters();
    const QStringList images = w->recentImages()->files(), files = w->recentFiles()->files();
    const QString title = w->windowTitle();
    for (const char* name : {"corrupt.nc", "cut0001a.tif", "garbage.par"}) {
        SCOPED_TRACE(name);
        BoxWatcher boxes;
        drop(*w, {path(name)});
        ASSERT_EQ(boxes.texts.size(), 1) << boxes.texts.join("|").toStdString();
        EXPECT_TRUE(boxes.texts[0].contains(path(name))) << boxes.texts[0].toStdString();
        EXPECT_GE(boxes.texts[0].count('\n'), 1) << boxes.texts[0].toStdString();
        EXPECT_EQ(o->image(0), pair);
        EXPECT_EQ(vectors(*o->data(0)), field);
        EXPECT_TRUE(PIV::SameRecord(o->parameters(0)->pivParameters(), params));
        EXPECT_EQ(w->recentImages()->files(), images);
        EXPECT_EQ(w->recentFiles()->files(), files);
        EXPECT_EQ(w->windowTitle(), title);
    }
}

// The last argument of the command line: an image loads its pair, a
// parameter file only the parameters.
TEST_F(MainWindow, CommandLineFileLoadsAPairOrOnlyParameters) {
    PIV_Parameters params;
    PIV_PARAMETERS rec = params.pivParameters();
    rec.eval.grid.step = SIZE3D{12, 12, 1};
    params.setPivParameters(rec);
    ASSERT_TRUE(params.saveASCII(file("steps.par").c_str()));
    for (const char* name : {"run0001a.tif", "steps.par"}) {
        SCOPED_TRACE(name);
        CommandLine cl;
        const std::string arg = file(name);
        const char* args[] = {"kelvane2c", arg.c_str()};
        cl.scan(2, args);
        SetApplicationCommandLine(&cl);
        auto w = window();
        const bool image = std::string(name).find(".tif") != std::string::npos;
        EXPECT_EQ(w->dataObject()->isImagePair(), image);
        EXPECT_EQ(w->dataObject()->image(0)->fileName(true), image ? "run0001b.tif" : "");
        EXPECT_EQ(w->dataObject()->parameters(0)->pivEvalCfg().grid.step.width == 12, !image);
        SetApplicationCommandLine(nullptr);
    }
}

// What may be pressed, by what the session holds and the mode it is in.
TEST_F(MainWindow, ActionsFollowTheSessionAndSpeckleWantsAReference) {
    PIV_Data2D field;
    ASSERT_TRUE(field.createZeroData(SIZE3D{kSize, kSize, 1}, SIZE3D{16, 16, 1}, POINT3D{8, 8, 0},
                                     POINT3D{120, 120, 0}, 1));
    ASSERT_TRUE(field.initShift(1.5f, -0.5f, 0.0f));
    ASSERT_TRUE(field.saveNetCDF(file("field.nc").c_str()));
    struct Case {
        const char* name;
        const char* load;
        KelvaneMode mode;
        bool process, save, savePair, viewSelector, calibrationChecked;
    } const cases[] = {
        {"nothing", nullptr, MODE_DATA, false, false, false, false, false},
        {"pair", "run0001a.tif", MODE_DATA, true, false, true, true, false},
        {"data", "field.nc", MODE_DATA, false, true, false, true, false},
        {"calibration", "run0001a.tif", MODE_CALIBRATION, false, false, true, true, true},
        {"arrange", "run0001a.tif", MODE_ARRANGE_PLOT, false, false, true, true, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        auto w = window();
        BoxWatcher none;
        if (c.load) {
            ASSERT_TRUE(w->loadFile(path(c.load)));
        }
        w->setKelvaneMode(c.mode, true);
        w->slotUpdateUI();
        EXPECT_EQ(w->action("actionPIVProcess")->isEnabled(), c.process);
        EXPECT_EQ(w->action("actionFileSave")->isEnabled(), c.save);
        EXPECT_EQ(w->action("actionImageSavePair")->isEnabled(), c.savePair);
        EXPECT_EQ(w->viewSelector()->isEnabled(), c.viewSelector);
        EXPECT_EQ(w->action("actionPIVCalibrationMode")->isChecked(), c.calibrationChecked);
        // Vectors can be switched only where there is a field.
        EXPECT_EQ(w->action("actionPlotVectors")->isEnabled(), c.save);
        EXPECT_TRUE(none.texts.isEmpty());
    }
    auto w = window();
    w->setAnalysisMode(PIV::ANALYSIS_SPECKLE);
    EXPECT_EQ(w->action("actionFileOpen")->text(), "Load displaced image");
    BoxWatcher boxes;
    w->action("actionFileOpen")->trigger();
    EXPECT_EQ(boxes.texts, QStringList{"You must first specify a valid reference image\nwhich "
                                       "shows the speckle pattern at rest"});
    EXPECT_EQ(w->statusBar()->currentMessage(), "First load valid reference image");
}

// Ctrl+C is "Stop" while a run goes on and "Clip LUT" otherwise; never both.
TEST_F(MainWindow, CtrlCStopsARunAndClipsTheTableWhenIdle) {
    ASSERT_TRUE(test_support::WriteShiftedTiffPair(file("big0001a.tif"), file("big0001b.tif"), 1024,
                                                   3.0, 2.0));
    auto w = window();
    ASSERT_TRUE(w->loadFile(path("big0001a.tif")));
    PIV_PARAMETERS rec = w->dataObject()->parameters(0)->pivParameters();
    rec.eval.Method = PIV::METHOD_MULTI_PASS;
    rec.eval.Passes = 3;
    rec.eval.ImageMapping2D.Mode = 2;
    rec.outlier.Enable = true;
    w->dataObject()->setPivParameters(rec, rec);
    int clipped = 0;
    w->bindAction("actionImageClipLUT", w.get(), [&clipped] { ++clipped; });
    static QStringList warnings;
    const QtMessageHandler previous = qInstallMessageHandler(
        [](QtMsgType, const QMessageLogContext&, const QString& text) { warnings << text; });
    w->show();
    QApplication::setActiveWindow(w.get());
    ASSERT_TRUE(QTest::qWaitForWindowActive(w.get()));

    PIVevalEngine* engine = w->data()->engine();
    QSignalSpy done(engine, &PIVevalEngine::signalEvaluationFinished);
    BoxWatcher yes("&Yes");
    bool pressed = false;
    QObject::connect(engine, &PIVevalEngine::signalShowProgress, w.get(), [&](int d, int) {
        if (pressed || d < 0) return;
        pressed = true;
        QTest::keyClick(w.get(), Qt::Key_C, Qt::ControlModifier);
    });
    w->slotUpdateUI();
    w->action("actionPIVProcess")->trigger();
    ASSERT_TRUE(done.wait(60000));
    EXPECT_EQ(yes.texts, QStringList{"Are you sure you want to abort processing?"});
    EXPECT_FALSE(w->dataObject()->isEvaluated(0));
    EXPECT_EQ(clipped, 0);

    QApplication::setActiveWindow(w.get());  // the box had it
    QTest::keyClick(w.get(), Qt::Key_C, Qt::ControlModifier);
    EXPECT_EQ(clipped, 1);
    EXPECT_EQ(yes.texts.size(), 1);
    qInstallMessageHandler(previous);
    EXPECT_FALSE(warnings.join("\n").contains("Ambiguous")) << warnings.join("\n").toStdString();
}

// Exit writes the store only when asked to; geometry, tool bar state and
// recent lists survive a restart, a window of 200 x 300 does not.
TEST_F(MainWindow, SettingsAreWrittenOnlyWhenAskedAndSurviveARestart) {
    settings.setValue("/Prefs/ShowExitPrompt", false);
    settings.sync();
    const std::string before = test_support::ReadBytes(file("store.ini"));
    {
        auto w = window();
        w->show();
        BoxWatcher cancel("Cancel");
        EXPECT_FALSE(w->close());
        EXPECT_EQ(cancel.texts, QStringList{"About to quit Kelvane!\nDo you want to save the "
                                            "changes before exiting?"});
        EXPECT_TRUE(w->isVisible());
        settings.sync();
        EXPECT_EQ(test_support::ReadBytes(file("store.ini")), before);
        settings.setValue("/Prefs/ShowExitPrompt", true);       // no prompt, and
        settings.setValue("/Prefs/AlwaysSaveSettings", false);  // don't save
        settings.setValue("/MainWin/Size", QSize(200, 300));
        settings.sync();
    }
    const std::string quiet = test_support::ReadBytes(file("store.ini"));
    EXPECT_NE(quiet, before);
    {
        auto w = window();
        EXPECT_NE(w->size(), QSize(200, 300));
        drop(*w, {path("run0001a.tif")});
        BoxWatcher none;
        EXPECT_TRUE(w->close());
        EXPECT_TRUE(none.texts.isEmpty());
        settings.sync();
        EXPECT_EQ(test_support::ReadBytes(file("store.ini")), quiet);
        settings.setValue("/Prefs/AlwaysSaveSettings", true);
        w = window();
        drop(*w, {path("run0001a.tif")});
        w->resize(700, 500);
        w->move(120, 90);
        w->findChild<QToolBar*>("toolBarMeasure")->hide();
        EXPECT_TRUE(w->close());
    }
    auto w = window();
    EXPECT_EQ(w->size(), QSize(700, 500));
    EXPECT_EQ(w->pos(), QPoint(120, 90));
    EXPECT_TRUE(w->findChild<QToolBar*>("toolBarMeasure")->isHidden());
    EXPECT_FALSE(w->findChild<QToolBar*>("toolBarPIV")->isHidden());
    EXPECT_EQ(w->recentImages()->files(), QStringList{path("run0001a.tif")});

    // The vector loops of the scan correlators follow "SIMD_Enable" at start.
    const int best = PIV_SIMD_Info();
    settings.setValue("SIMD_Enable", false);
    settings.sync();
    window();
    EXPECT_EQ(PIV_SIMD_Info(), 0);
    PIV_Set_SIMD_Level(best);
}

// A new window opens 32 px further down and right, or up and left where
// that would leave the screen, and closes with the first.
TEST_F(MainWindow, NewWindowsStepBy32AndCloseWithTheFirst) {
    auto w = window();
    QList<QPointer<Kelvane>> opened;
    for (const QPoint& from : {QPoint(100, 100), QPoint(10, 10)}) {
        w->move(from);
        opened << w->openNewWindow(QString());
    }
    ASSERT_TRUE(opened[0] && opened[1]);
    EXPECT_EQ(opened[0]->pos(), QPoint(68, 68));
    EXPECT_EQ(opened[1]->pos(), QPoint(42, 42));
    w.reset();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_FALSE(opened[0] || opened[1]);
}

// The extension boxes edit the mask of the image type the list shows, and
// the open dialogs' filters follow the masks: 5 is "*.b16" and "*.ima",
// "*.tif" adds bit 5 (37); 49 less "*.bmp" (bit 4) is 33.
TEST_F(MainWindow, PreferencesEditEachTypesMaskAndTheFiltersFollow) {
    PrefsDlg dialog;
    dialog.setRecord(PREFS_CFG());
    QCheckBox *tif = nullptr, *bmp = nullptr;
    for (QCheckBox* box : dialog.findChildren<QCheckBox*>()) {
        if (box->text() == "*.tif") tif = box;
        if (box->text() == "*.bmp") bmp = box;
    }
    ASSERT_TRUE(tif && bmp);
    tif->setChecked(true);
    dialog.findChild<QComboBox*>("comboImageTypes")->setCurrentIndex(IMAGES_MASK);
    EXPECT_TRUE(tif->isChecked() && bmp->isChecked());
    bmp->setChecked(false);
    const PREFS_CFG edited = dialog.record();
    EXPECT_EQ(edited.ImageTypeMask[IMAGES_PIV_PAIRS], 37);
    EXPECT_EQ(edited.ImageTypeMask[IMAGES_MASK], 33);

    settings.setValue("/FileTypes/PIV-ImagePairs", 37);
    settings.setValue("/Prefs/ToolButtonSize", 3);  // "Large (32 pt)"
    auto w = window();
    EXPECT_EQ(w->data()->imageFileFilters().section(";;", 0, 0),
              "Single-exposed PIV Images (*.b16 *.ima *.tif)");
    EXPECT_EQ(w->findChild<QToolBar*>("toolBarMain")->iconSize(), QSize(32, 32));

    // Pictures for the README, where asked for.
    const QString shots = qEnvironmentVariable("KELVANE_SCREENSHOTS");
    if (shots.isEmpty()) return;
    drop(*w, {path("run0001a.tif")});
    w->resize(1024, 700);
    w->show();
    EXPECT_TRUE(w->grab().save(shots + "/window.png"));
    w->prefsDlg()->setRecord(PREFS_CFG());
    w->prefsDlg()->show();
    EXPECT_TRUE(w->prefsDlg()->grab().save(shots + "/preferences.png"));
}

// Proposed names for the results of "/data/run0001a.tif": NetCDF takes no
// suffix, a parameter file only ".par"; speckle fields are displacements.
TEST(KelvaneFileNames, FollowTypeFormatAndMode) {
    struct Case {
        int type, format;
        bool speckle;
        const char* name;
    } const cases[] = {
        {KelvaneFile::VELOCITY_DATA, 3, false, "/data/run0001a.nc"},
        {KelvaneFile::VELOCITY_DATA, 2, false, "/data/run0001a_vel.plt"},
        {KelvaneFile::VELOCITY_DATA, 0, true, "/data/run0001a_disp.dat"},
        {KelvaneFile::PIXEL_DATA, 1, false, "/data/run0001a_piv.dat"},
        {KelvaneFile::PARAMETERS, 2, false, "/data/run0001a.par"},
    };
    for (const Case& c : cases) {
        KelvaneFile names;
        names.setFileName("/data/run0001a.tif");
        names.setFormat(c.format);
        names.setSpeckleMode(c.speckle);
        EXPECT_EQ(names.defaultFileName(c.type), c.name);
    }
    KelvaneFile unnamed;
    unnamed.setDestinationDir("/out");
    EXPECT_EQ(unnamed.parameterFileName(), "/out/kelvane.par");
}

// The splash tells each step of the start, in order.
TEST_F(MainWindow, SplashTellsTheStartInOrder) {
    QSplashScreen splash;
    QSignalSpy said(&splash, &QSplashScreen::messageChanged);
    Kelvane w(true, false, &settings, &splash);
    QStringList texts;
    for (const QList<QVariant>& args : said) texts << args.at(0).toString();
    EXPECT_EQ(texts,
              QStringList({"Configuring UI...", "Creating image canvas...",
                           "Creating mask editor...", "Creating dialogs...",
                           "Restoring previous session...", "Reading preferences...",
                           "Making connections...", "Now we're finally ready for some PIV!"}));
    EXPECT_EQ(w.dataObject()->state()->runState, KelvaneState::IDLE);
}

// "Log internal messages" copies the log's lines to log.txt while it is on.
TEST_F(MainWindow, LogWindowCopiesItsLinesToLogTxtWhileAsked) {
    QDir::setCurrent(QString::fromStdString(dir.path()));
    QLogBuffer log(0, "Kelvane2C");
    log.appendLine("before");
    log.slotStartLogging(true);
    log.appendLine("evaluated 225 vectors");
    log.slotStartLogging(false);
    log.appendLine("after");
    EXPECT_EQ(test_support::ReadBytes(file("log.txt")), "evaluated 225 vectors\n");
    EXPECT_EQ(log.windowTitle(), "Log Window");
}

// A batch of two pairs asked for "png" plots: each result has its plot
// beside it, the whole scene: the 128 px image and its margin.
TEST_F(MainWindow, BatchWritesAPlotBesideEachResult) {
    for (const char* frame : {"a.tif", "b.tif"})
        ASSERT_TRUE(QFile::copy(path("run0001") + frame, path("run0002") + frame));
    auto w = window();
    drop(*w, {path("run0001a.tif")});
    ASSERT_TRUE(evaluate(*w));  // the session's parameters for the batch
    BatchProcessOptions o;
    o.sourceDir = QString::fromStdString(dir.file(""));
    o.fileFilter = QStringLiteral("*a.tif");
    o.destDir = path("out");
    o.dataDestDirEnable = true;
    o.plotExportFormat = QStringLiteral("png");
    QDir().mkpath(o.destDir);
    BoxWatcher boxes;
    QSignalSpy done(w->data(), &KelvaneData::signalBatchFinished);
    ASSERT_TRUE(w->data()->startBatch(o));
    ASSERT_TRUE(done.wait(60000));
    const QSize first = QImage(path("out/run0001a.png")).size();
    EXPECT_TRUE(first.width() >= kSize && first.height() >= kSize);
    EXPECT_EQ(QImage(path("out/run0002a.png")).size(), first);
}
