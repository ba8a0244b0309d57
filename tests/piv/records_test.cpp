// The plain records: defaults, zero-filled construction and bounded texts.
#include <gtest/gtest.h>

#include <string>

#include "piv_types.h"

TEST(Records, DefaultsOfTheEvaluation) {
    const PIVEVAL_CFG cfg;
    EXPECT_EQ(cfg.Method, 1);
    EXPECT_EQ(cfg.SampleSize.width, 32);
    EXPECT_EQ(cfg.grid.step.width, 16);
    EXPECT_EQ(cfg.grid.first.y, 16);
    EXPECT_EQ(cfg.grid.roi.right, 1024);
    EXPECT_FALSE(cfg.grid.roiEnabled);
    EXPECT_EQ(cfg.ROI_Size.width, 10);
    EXPECT_EQ(cfg.FinalROI_Size.depth, 0);
    EXPECT_DOUBLE_EQ(cfg.CutOff, 0.001);
    EXPECT_TRUE(cfg.FinalROI);
    EXPECT_EQ(cfg.MultiCorr_Offset.x, 8);
    EXPECT_EQ(cfg.ImageMapping2D.Method, 2);
    EXPECT_STREQ(cfg.VolumeDeform.FilePrefix, "deform_");
    EXPECT_FLOAT_EQ(cfg.ImageMapping2D.MinDeviation, 0.1f);
}

TEST(Records, DefaultsOfTheOtherRecords) {
    const OUTLIER_CFG o;
    EXPECT_EQ(o.NumberOfPasses, 5);
    EXPECT_FLOAT_EQ(o.GlobalHist[2].xMin, -10.0f);
    EXPECT_TRUE(o.GlobalHist[0].type2);
    EXPECT_FALSE(o.GlobalHist[1].type2);
    EXPECT_TRUE(o.TryOtherPeaks);
    const IMAGE_CFG i;
    EXPECT_EQ(i.CropRect.back, 257);
    EXPECT_TRUE(i.filters.UseFloat);
    EXPECT_FLOAT_EQ(i.filters.HistMax, 0.95f);
    EXPECT_DOUBLE_EQ(i.transformation.StretchY, 1.0);
    const PIVCONVERT_CFG c;
    EXPECT_STREQ(c.DisplacementUnits, "um");
    const POSTPROCESS_CFG pp;
    EXPECT_DOUBLE_EQ(pp.combine.InterpolateRadius, 5.0);
    const OUTPUT_CFG out;
    EXPECT_EQ(out.DesampleZ, 1);
    const DIFFERENTIATE_CFG d;
    EXPECT_EQ(d.Spacing.depth, 3);
    const PIV_PARAMETERS all;
    EXPECT_TRUE(PIV::SameRecord(all.eval, PIVEVAL_CFG()));
}

TEST(Records, EqualRecordsAreEqualByteForByteEvenAfterTextChanges) {
    // A long name written and then replaced by a short one leaves no trace
    // behind the terminator, so the record compares equal to a fresh one.
    IMAGE_CFG a, b;
    PIV::CopyText(a.Mask, "/data/run42/a/very/long/path/to/mask_image_file.tif");
    PIV::CopyText(a.Mask, "");
    EXPECT_TRUE(PIV::SameRecord(a, b));
    a.MaskEnable = true;
    EXPECT_FALSE(PIV::SameRecord(a, b));
    b = a;
    EXPECT_TRUE(PIV::SameRecord(a, b));
}

TEST(Records, PathsAreCutAt2047Characters) {
    IMAGE_CFG cfg;
    const std::string huge(5000, 'p');
    PIV::CopyText(cfg.Bkgd, huge.c_str());
    EXPECT_EQ(std::string(cfg.Bkgd).size(), PIV::MaxPathLength);
    PIV::CopyText(cfg.Bkgd, nullptr);
    EXPECT_STREQ(cfg.Bkgd, "");
}

TEST(Records, VectorStartsZeroAndFailsCleanly) {
    PIV_VECTOR v;
    EXPECT_EQ(v.flag, 0);
    v.dx = 3.0f;
    v.corr = 0.9f;
    v.setFailed();
    EXPECT_EQ(v.flag, 12);
    EXPECT_EQ(v.count, 0);
    EXPECT_EQ(v.dx, 0.0f);
    EXPECT_EQ(v.corr, 0.0f);
    v.setSuccess();
    EXPECT_EQ(v.flag, 1);
    EXPECT_EQ(v.count, 1);
}

TEST(Records, FlagTextListsEachStatus) {
    EXPECT_STREQ(PIV::VectorFlagText(VECTOR_ENABLED), "Vector is enabled");
    EXPECT_STREQ(PIV::VectorFlagText(VECTOR_MASKED | VECTOR_EDITED),
                 "Vector is disabled\n- masked\n- manually editted");
    EXPECT_STREQ(PIV::VectorFlagText(12), "Vector is disabled\n- no result");
}

TEST(Records, RectIdentity) {
    const RECT3D a{1, 2, 3, 4, 5, 6};
    RECT3D b = a;
    EXPECT_TRUE(a.isIdentical(b));
    b.back = 7;
    EXPECT_FALSE(a.isIdentical(b));
}
