// The controller's dialogs applied to a session: what accepting changes,
// what it mends and names, and what "Cancel" leaves alone.
#include <QLineEdit>
#include <QSpinBox>

#include <cstring>

#include "box_watcher.h"
#include "image2ditem.h"
#include "imagepreprocessdlg.h"
#include "imageviewer.h"
#include "piv_data2d.h"
#include "pivcalib2cdlg.h"
#include "pivpostprocessdlg.h"
#include "pivsetupdlg.h"
#include "pivstatsdlg.h"
#include "qpiv_imagepair.h"
#include "session_fixture.h"

namespace {

class Dialogs : public SessionTest {
protected:
    void SetUp() override {
        loadPair(2.30, -1.40);
        ASSERT_TRUE(evaluate());
    }
    PIVEVAL_CFG eval() const { return object.parameters(0)->pivEvalCfg(); }
    // Opens the parameter dialog, lets `edit` change it and accepts.
    void acceptSetup(const std::function<void(PIVSETUP_CFG&)>& edit) {
        controller.slotShowPIVParameters();
        PIVSETUP_CFG cfg = controller.setupDlg()->record();
        edit(cfg);
        controller.setupDlg()->setRecord(cfg);
        controller.setupDlg()->accept();
    }
};

}  // namespace

// 64 px windows on 128 px leave nodes from 32 to 96 every 16 px: 5 a row;
// 32 px windows from 16 to 112: 7.
TEST_F(Dialogs, NewWindowSizeLaysANewGridAndClearsTheVectors) {
    ASSERT_EQ(object.data(0)->grid().nodes.width, 5);
    controller.slotShowPIVParameters();
    for (const char* axis : {"Window size X", "Window size Y"})
        controller.setupDlg()->findChild<QSpinBox*>(axis)->setValue(32);
    controller.setupDlg()->accept();
    EXPECT_EQ(object.parameters(0)->dataGrid().nodes.width, 7);
    EXPECT_FALSE(object.isEvaluated(0));
}

// A displacement limit of 1 px rejects the whole 2.7 px field, yet the
// measured shifts stay as they were.
TEST_F(Dialogs, NewThresholdKeepsTheRawVectorsAndValidatesThemAgain) {
    const PIV_VECTOR before = object.data(0)->getVector(12);
    ASSERT_TRUE(before.flag & VECTOR_ENABLED);
    QSignalSpy fresh(&object, &KelvaneDataObject::signalHaveNewData);
    acceptSetup([](PIVSETUP_CFG& c) {
        c.outlier[0].Enable = c.outlier[0].CheckDisplacement = true;
        c.outlier[0].MaxDisplacement = 1.0f;
        c.outlier[0].InterpolateOutliers = c.outlier[0].TryOtherPeaks = false;
    });
    const PIV_VECTOR after = object.data(0)->getVector(12);
    EXPECT_TRUE(object.isEvaluated(0));
    EXPECT_EQ(after.dx, before.dx);
    EXPECT_FALSE(after.flag & VECTOR_ENABLED);
    EXPECT_GE(fresh.count(), 1);
}

TEST_F(Dialogs, FileDataKeepTheirEvaluationSettings) {
    const std::string nc = dir.file("field.nc");
    ASSERT_TRUE(object.data(0)->saveNetCDF(nc.c_str()));
    ASSERT_TRUE(controller.loadDataFile(QString::fromStdString(nc), true));
    const PIVEVAL_CFG before = eval();
    controller.slotShowPIVParameters();
    EXPECT_FALSE(controller.setupDlg()
                     ->findChild<QSpinBox*>("Window size X")
                     ->isEnabledTo(controller.setupDlg()));
    acceptSetup([](PIVSETUP_CFG& c) {
        c.eval.SampleSize.width = 16;
        c.convert.PulseDelay = 5.0;
    });
    EXPECT_TRUE(PIV::SameRecord(eval(), before));
    EXPECT_EQ(object.parameters(0)->pivConvertCfg().PulseDelay, 5.0);
}

// Typed values the library cannot run with are mended as its own checks do,
// and the box says which: windows below 2 px and steps below 1 px take the
// library's defaults, a unit its tables do not know their fall-back.
// "Cancel" changes nothing.
TEST_F(Dialogs, BadValuesAreMendedAndNamed) {
    const struct {
        const char* label;
        QVariant value;
        const char* reason;  // empty: taken as typed
    } cases[] = {
        {"Window size X", 1, "Window size 1 x 64 x 32 is not possible, set to 32 x 64 x 32"},
        {"Window size X", 2, ""},
        {"Grid step X", 0, "Grid step 0 x 16 x 16 is not possible, set to 16 x 16 x 16"},
        {"Velocity unit", "furlongs/fortnight20",  // cut to the buffer's 15 characters
         "Velocity unit 'furlongs/fortni' is not known, set to 'm/s'"},
    };
    for (const auto& c : cases) {
        BoxWatcher boxes;
        controller.slotShowPIVParameters();
        QWidget* field = controller.setupDlg()->findChild<QWidget*>(c.label);
        if (auto* spin = qobject_cast<QSpinBox*>(field)) spin->setValue(c.value.toInt());
        if (auto* edit = qobject_cast<QLineEdit*>(field)) edit->setText(c.value.toString());
        controller.setupDlg()->accept();
        EXPECT_EQ(boxes.texts.join("").toStdString(),
                  *c.reason ? std::string("Parameters corrected:\n") + c.reason : "");
    }
    EXPECT_EQ(eval().SampleSize.width, 2);
    EXPECT_EQ(eval().grid.step.width, 16);
    EXPECT_STREQ(object.parameters(0)->pivConvertCfg().VelocityUnits, "m/s");

    // "Cancel" leaves the session, and the dialog shows it again next time.
    const PIV_PARAMETERS before = object.parameters(0)->pivParameters();
    QSpinBox* window = controller.setupDlg()->findChild<QSpinBox*>("Window size X");
    window->setValue(16);
    controller.setupDlg()->reject();
    EXPECT_TRUE(PIV::SameRecord(object.parameters(0)->pivParameters(), before));
    controller.slotShowPIVParameters();
    EXPECT_EQ(window->value(), 2);
}

// A mask that is not there is named, and the frames stay; one that is
// there masks the pair.
TEST_F(Dialogs, ImageSettingsNameAMissingMaskAndKeepTheImages) {
    Image2D mask(128, 128, IMAGE_UINT8);
    ASSERT_TRUE(mask.save(dir.file("mask.tif").c_str()));
    const IMAGE_CFG before = object.image(0)->imageCfg();
    const std::string missing = dir.file("nomask.tif");
    for (const std::string& file : {missing, dir.file("mask.tif")}) {
        BoxWatcher boxes;
        controller.slotOpenImageProcDlg();
        IMAGEPROC_CFG cfg = controller.imageDlg()->record();
        cfg.view[0].MaskEnable = true;
        PIV::CopyText(cfg.view[0].Mask, file.c_str());
        controller.imageDlg()->setRecord(cfg);
        controller.imageDlg()->accept();
        const bool found = file != missing;
        EXPECT_EQ(boxes.texts.join(""), found ? QString()
                                              : "File does not exist or cannot be read:\n" +
                                                    QString::fromStdString(file));
        EXPECT_TRUE(object.haveImage(0));
        EXPECT_EQ(PIV::SameRecord(object.image(0)->imageCfg(), before), !found);
        EXPECT_EQ(object.image(0)->isMaskAvailable(), found);
    }
}

// The ruler's pixels over the typed length: 200 px on 10 mm is 20 px/mm.
TEST_F(Dialogs, RulerAndLengthGiveTheMagnification) {
    const struct {
        double pixels, length;
        double magnification;
        const char* text;
    } cases[] = {{200, 10, 20, "20 px/mm"}, {200, 40, 5, "5 px/mm"}, {150, 10, 15, "15 px/mm"}};
    controller.updateKelvaneMode(MODE_CALIBRATION);
    PIVCalib2CDlg* panel = controller.calibDlg();
    EXPECT_TRUE(panel->isVisible());
    EXPECT_STREQ(panel->record().Units, "mm");
    for (const auto& c : cases) {
        CALIB2C_CFG cfg = panel->record();
        cfg.RulerLength = c.length;
        panel->setRecord(cfg);
        controller.slotSetRulerLength(c.pixels);
        EXPECT_EQ(object.parameters(0)->pivConvertCfg().LengthConversion[0], c.magnification);
        EXPECT_EQ(panel->magnificationText(), c.text);
    }
    controller.updateKelvaneMode(MODE_DATA);
    EXPECT_FALSE(panel->isVisible());
}

TEST_F(Dialogs, PostProcessingMenuAppliesTheChain) {
    controller.slotPostProcessMenu();
    EXPECT_FALSE(controller.postProcessDlg()->requirePostProcessing());
    POSTPROCESS_CFG cfg = controller.postProcessDlg()->record();
    cfg.MedianApply = true;
    controller.postProcessDlg()->setRecord(cfg);
    EXPECT_TRUE(controller.postProcessDlg()->requirePostProcessing());
    controller.postProcessDlg()->accept();
    EXPECT_TRUE(object.postProcessCfg().MedianApply);
    EXPECT_TRUE(object.haveData(3));
}

// The statistics name the 5 x 5 grid of the pair; the viewer shows frame A
// and outlives the pair it came from (a reload replaces it).
TEST_F(Dialogs, StatisticsAndViewerShowTheSession) {
    controller.slotPivStats();
    EXPECT_TRUE(controller.statsDlg()->text().contains("Grid size: 5 x 5"));
    controller.slotShowImageViewer();
    ASSERT_TRUE(object.reloadImage());
    EXPECT_EQ(controller.imageViewer()->windowTitle(), "run0001a.tif");
    EXPECT_EQ(controller.imageViewer()->item()->boundingRect().size(), QSizeF(128, 128));
}

// Pictures for the README, where asked for: the session's own settings.
TEST_F(Dialogs, Screenshots) {
    const QString shots = qEnvironmentVariable("KELVANE_SCREENSHOTS");
    if (shots.isEmpty()) GTEST_SKIP();
    controller.slotShowPIVParameters();
    EXPECT_TRUE(controller.setupDlg()->grab().save(shots + "/piv_parameters.png"));
    controller.slotOpenImageProcDlg();
    EXPECT_TRUE(controller.imageDlg()->grab().save(shots + "/image_preprocessing.png"));
}
