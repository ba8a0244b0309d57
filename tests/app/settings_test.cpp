// The parameters and the image handling in the settings store, an INI file of the test.
#include <gtest/gtest.h>

#include <QFile>
#include <QMap>
#include <QTemporaryDir>

#include <algorithm>
#include <tuple>

#include "imagecfg_settings.h"
#include "kelvanedataobject.h"
#include "mysettings.h"
#include "piv_parametersqt.h"
#include "piv_params.h"
#include "piv_record.h"
#include "qpiv_imagepair.h"

namespace {

// The keys as stores of earlier versions hold them; "group/:" opens a group.
const char* const kKeys =
    "PIV/: SampleSize SampleOffset SampleStep GridAlignment GridAnchorPoint ROIEnable ROIRect "
    "MultiCorrEnable MultiCorrUseGrid MultiCorrOffset MultiCorrRepeat MultiCorrAverage "
    "CorrFilterWindowType CorrMode CorrFilterNyquist ShowIntermediate Method SpeedOptimization "
    "MultiPassCount PIV/Peak/: FitType FitSize ROIEnable ROISize ROIFinalEnable ROIFinalSize "
    "ZeroPeakEliminate ZeroPeakRadius PIV/MultiGrid/: DesampleEnable DesampleFactor SampleSize "
    "SampleStep ReEvaluateOutliers FinalScans UseFastPyramid DCConFinalPass PIV/ImageDef/: "
    "WhenToApply Method DeformOrder PIV/PostProc/: DiffCellCalc DiffCellSize Conversion/: GridUnit "
    "VelUnit DispUnit PulseDelay MagX MagY MagZ OriginOffsetPhys OriginImage Outliers/: "
    "OutlierCheck ValidationPasses TryOtherPeaks Interpolate MaxDisplCheck MaxDisplValue "
    "MaxDiffCheck MaxDiffValue MedianCheck MedianValue MedianNoiseFloor NormalizedMedianCheck "
    "NormalizedMedianValue DynMeanCheck DynMeanC1 DynMeanC2 MinCorrCheck MinCorrValue "
    "PeakRatioCheck PeakRatioValue SNRCheck SNRValue ResidualsCheck ResidualsValue GlobalHistCheck "
    "GlobalHistROI0 GlobalHistROI1 GlobalHistROI2 PostProcess/CombineData/: Apply DataFile "
    "CombineMode FitApply FitOrderX FitOrderY Interpolate InterpolateRadius PostProcess/: "
    "InterpolateDisabledVectors PostProcess/Filter/: MedianApply MedianKernelSize SmoothApply "
    "SmoothKernelSize PostProcess/Transform/: Apply Rotate OriginX OriginY SkewX SkewY StretchX "
    "StretchY TranslateX TranslateY PostProcess/Mask/: Apply Invert File Image/ViewB/: Rotation "
    "Flip SplitPCO InterpolationMethod InterpolationDegree Image/ViewB/Transform/: Enable "
    "TransformSecondImageOnly TranslateX TranslateY Rotate OriginX OriginY StretchX StretchY SkewX "
    "SkewY Image/ViewB/Filters/: UseFloat Negative HighPassEnable HighPassKernel HighPassGauss "
    "HighPassClipZero MedianEnable MedianKernel MinMaxEnable MinMaxKernel ThresholdEnable "
    "ThresholdValue ThresholdBinarize LowPassEnable LowPassKernel LowPassGauss DynHistEnable "
    "DynHistMin DynHistMax MaskInvert MaskRandomize Mask1Enable Mask1File Mask2Enable Mask2File "
    "Bkgd1Subtract Bkgd1File Bkgd2Subtract Bkgd2File BkgdSubtractMethod BkgdSubtractScaleFactor "
    "ROICropEnable ROIRect DewarpEnable DewarpCalibrate DewarpView DewarpFile";

struct Records {
    PIV_PARAMETERS params;
    POSTPROCESS_CFG post;
    IMAGE_CFG image;  // of view B
    bool operator==(const Records& o) const {
        return PIV::SameRecord(params, o.params) && PIV::SameRecord(post, o.post) &&
               PIV::SameRecord(image, o.image);
    }
};

Records storeIO(const QString& file, MySettings::AccessMode mode, const Records& start) {
    MySettings store(file, QSettings::IniFormat);
    PIV_Parameters params;
    params.setPivParameters(start.params);
    params.setPostProcessCfg(start.post);
    PIV_ParametersQT(&params, &store).registryIO(mode);
    Records r{params.pivParameters(), params.postProcessCfg(), start.image};
    registryIOImageCfg(store, 1, mode, r.image);
    return r;
}

// Moves a stored value off: numbers and list entries by one, flags flipped,
// texts to "cm" ("cm/s" for "m/s"), so that units stay units.
void moveOff(const QString& file, const QString& key) {
    QSettings store(file, QSettings::IniFormat);
    const QMap<QString, QString> texts{{"true", "false"}, {"false", "true"}, {"m/s", "cm/s"}};
    QStringList items = store.value(key).toStringList();
    for (QString& item : items) {
        bool isNumber = false;
        const double v = item.toDouble(&isNumber);
        item = isNumber ? QString::number(v + 1, 'g', 17) : texts.value(item, "cm");
    }
    store.setValue(key, items.size() == 1 ? QVariant(items[0]) : QVariant(items));
}

class Store : public ::testing::Test {
protected:
    QString path(const QString& name) const { return dir.filePath(name); }
    QTemporaryDir dir;
};

}  // namespace

// Every key, written with a value other than the record's, reads back into fresh
// records equal byte for byte; each key alone changes them; keys absent from a
// store leave records alone.
TEST_F(Store, EveryKeyOffItsDefaultReadsBackEqual) {
    const QString defaults = path("defaults.ini"), moved = path("moved.ini");
    storeIO(defaults, MySettings::WRITE, Records());
    QStringList expected, prefix{""};
    for (const QString& word : QString(kKeys).split(' '))
        word.endsWith(":") ? void(prefix[0] = word.chopped(1)) : void(expected << prefix[0] + word);
    expected.sort();
    const QStringList keys = QSettings(defaults, QSettings::IniFormat).allKeys();  // sorted
    ASSERT_EQ(keys, expected);

    ASSERT_TRUE(QFile::copy(defaults, moved));
    for (const QString& key : keys) {
        const QString one = path(QString(key).replace('/', '_') + ".ini");
        QFile::copy(defaults, one);
        moveOff(one, key);
        EXPECT_FALSE(storeIO(one, MySettings::READ, Records()) == Records()) << key.toStdString();
        moveOff(moved, key);
    }
    const Records off = storeIO(moved, MySettings::READ, Records());
    storeIO(path("back.ini"), MySettings::WRITE, off);
    EXPECT_TRUE(storeIO(path("back.ini"), MySettings::READ, Records()) == off);
    EXPECT_TRUE(storeIO(path("empty.ini"), MySettings::READ, off) == off);
}

// What a hand-edited store may hold, and what the defaults become.
TEST_F(Store, ReadMendsOrIgnoresWhatCannotBeUsed) {
    const struct {
        const char* ini;
        void (*change)(Records&);
    } cases[] = {
        // Truncated to 40; the peak region without a key of its own searches half the window.
        {"[PIV]\nSampleSize=3, 40.9, 3\nSampleStep=0, 8, 16",
         [](Records& r) {
             r.params.eval.SampleSize = {32, 40, 32};
             r.params.eval.grid.step = {16, 8, 16};
             r.params.eval.ROI_Size = {16, 20, 16};
         }},
        {"[PIV]\nROIRect=1, 2, 3, 4, 5\nSampleOffset=1e12, 0, 0\nMultiPassCount=a,b,c",
         [](Records&) {}},
        {"[Outliers]\nGlobalHistROI1=5, -5, 3, -3\nMaxDisplValue=1e39",
         [](Records& r) { r.params.outlier.GlobalHist[1] = {-5, 5, -3, 3, false, false}; }},
        {"[PIV]\nPeak/ROISize=2, 2, 0\nPeak/ROIFinalSize=1, 1, 0",
         [](Records& r) {
             r.params.eval.ROI_Size = {3, 3, 0};
             r.params.eval.FinalROI_Size = {2, 2, 0};
         }},
        {"[Conversion]\nMagX=2",
         [](Records& r) { std::fill_n(r.params.convert.LengthConversion, 3, 2.0); }},
        // A grid unit no table knows, cut or not, is the table's own "mm" again.
        {"[Conversion]\nGridUnit=abcdefghi", [](Records&) {}},
        {"[Image]\nViewB/Filters/Negative=yes\nViewB/Filters/ROIRect=1, 2, 3, 4, 5, 6",
         [](Records& r) { r.image.CropRect = {1, 2, 3, 4, 5, 6}; }},
    };
    for (const auto& c : cases) {
        QFile file(path("edited.ini"));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(c.ini);
        file.close();
        Records expected;
        c.change(expected);
        EXPECT_TRUE(storeIO(path("edited.ini"), MySettings::READ, Records()) == expected) << c.ini;
    }
    // The records give such a unit up, so the cut to seven shows only in the buffer.
    MySettings store(path("edited.ini"), QSettings::IniFormat);
    store.setValue("Conversion/GridUnit", "abcdefghi");
    char unit[8] = "mm";
    store.serializeCharString(MySettings::READ, "Conversion/GridUnit", unit, 8);
    EXPECT_STREQ(unit, "abcdefg");
}

// The session's keys beside the records, each off its default under the name
// earlier stores use, reach the session, are written back and read again.
TEST_F(Store, TheSessionKeysReadBackIntoAFreshSession) {
    MySettings store(path("session.ini"), QSettings::IniFormat);
    store.setValue("PIV/ReferenceImage", "/data/ref0001.tif");
    store.setValue("Image/EnableTIFFCompression", true);
    store.setValue("Prefs/OriginTopLeft", false);
    store.setValue("PIV/FrameSeparation", 3);
    const auto session = [](const KelvaneDataObject& o) {
        return std::make_tuple(o.image()->referenceImage().toStdString(), o.isTIFFCompression(),
                               o.isOriginTopLeft(), o.image()->frameSeparation());
    };
    const auto expected = std::make_tuple(std::string("/data/ref0001.tif"), true, false, 3);
    KelvaneState state;
    KelvaneDataObject first(&state, &store);
    EXPECT_EQ(session(first), expected);
    store.clear();
    first.registryIO(MySettings::WRITE);
    EXPECT_EQ(session(KelvaneDataObject(&state, &store)), expected);
}
