// Conversion from pixels to physical units, against figures worked by hand.
#include <gtest/gtest.h>

#include <cstring>

#include "piv_units.h"

namespace {

// 10 pixels per millimetre, 100 microseconds between the pulses, the
// physical origin at pixel (0, 512): the bottom-left corner of a 512-row image.
PIVCONVERT_CFG labSetup() {
    PIVCONVERT_CFG cfg;
    cfg.LengthConversion[0] = cfg.LengthConversion[1] = cfg.LengthConversion[2] = 10.0;
    cfg.PulseDelay = 100.0;
    cfg.ImageOrigin = POINT3D{0, 512, 0};
    PIV::UpdateConversionFactors(&cfg);
    return cfg;
}

PIV_VECTOR node(int ix, int iy, float dx, float dy) {
    PIV_VECTOR v;
    v.ix = ix;
    v.iy = iy;
    v.dx = dx;
    v.dy = dy;
    return v;
}

}  // namespace

TEST(ConvertVector, MillimetreGridMetresPerSecondMicrometres) {
    PIVCONVERT_CFG cfg = labSetup();
    // mm grid over m/s: 1 / 1000; mm grid over um: 1 / 0.001.
    EXPECT_DOUBLE_EQ(cfg.velocityFactor, 0.001);
    EXPECT_DOUBLE_EQ(cfg.displacementFactor, 1000.0);

    PIV_VECTOR v = node(100, 112, 5.0f, -2.0f);
    PIV::ConvertVector(&v, cfg);
    // Position: x = 100 px / 10 = 10 mm; y counts up from row 512: (512-112)/10 = 40 mm.
    EXPECT_FLOAT_EQ(v.x, 10.0f);
    EXPECT_FLOAT_EQ(v.y, 40.0f);
    // 5 px = 0.5 mm in 100 us = 5 m/s; -2 px = -0.2 mm in 100 us = -2 m/s.
    EXPECT_FLOAT_EQ(v.u, 5.0f);
    EXPECT_FLOAT_EQ(v.v, -2.0f);
    // 0.5 mm = 500 um.
    EXPECT_FLOAT_EQ(v.sx, 500.0f);
    EXPECT_FLOAT_EQ(v.sy, -200.0f);
}

TEST(ConvertVector, OtherUnitsScaleByTheirTables) {
    PIVCONVERT_CFG cfg = labSetup();
    PIV::CopyText(cfg.VelocityUnits, "cm/s");
    PIV::CopyText(cfg.DisplacementUnits, "mm");
    PIV::CopyText(cfg.LengthConversionUnits, "cm");  // now 10 px per centimetre
    PIV::UpdateConversionFactors(&cfg);
    PIV_VECTOR v = node(100, 112, 5.0f, 0.0f);
    PIV::ConvertVector(&v, cfg);
    // 5 px = 0.5 cm = 5 mm in 100 us = 50 m/s = 5000 cm/s.
    EXPECT_FLOAT_EQ(v.u, 5000.0f);
    EXPECT_FLOAT_EQ(v.sx, 5.0f);  // 5 mm
    EXPECT_FLOAT_EQ(v.x, 10.0f);  // 10 cm
}

TEST(ConvertVector, ZeroMagnificationGivesZeroNotInfinity) {
    PIVCONVERT_CFG cfg = labSetup();
    cfg.LengthConversion[0] = 0.0;
    PIV_VECTOR v = node(100, 112, 5.0f, 1.0f);
    PIV::ConvertVector(&v, cfg);
    EXPECT_EQ(v.x, 0.0f);
    EXPECT_EQ(v.u, 0.0f);
    EXPECT_EQ(v.sx, 0.0f);
    EXPECT_FLOAT_EQ(v.v, 1.0f);
}

TEST(UpdateConversionFactors, UnknownNamesFallBackAndTheFactorsFollow) {
    PIVCONVERT_CFG cfg;
    PIV::CopyText(cfg.LengthConversionUnits, "furlong");
    PIV::CopyText(cfg.VelocityUnits, "knots");
    PIV::CopyText(cfg.DisplacementUnits, "parsec");
    cfg.velocityFactor = cfg.displacementFactor = 0.0;
    EXPECT_TRUE(PIV::UpdateConversionFactors(&cfg));
    EXPECT_STREQ(cfg.LengthConversionUnits, "mm");
    EXPECT_STREQ(cfg.VelocityUnits, "m/s");
    EXPECT_STREQ(cfg.DisplacementUnits, "um");
    EXPECT_DOUBLE_EQ(cfg.velocityFactor, 0.001);
    EXPECT_DOUBLE_EQ(cfg.displacementFactor, 1000.0);
    EXPECT_FALSE(PIV::UpdateConversionFactors(&cfg));  // nothing left to change
}

TEST(UnitTables, LookupsAndGridConversion) {
    EXPECT_EQ(PIV::GetGridUnitIndex("m"), 3);
    EXPECT_EQ(PIV::GetGridUnitIndex("nonsense"), 1);
    EXPECT_EQ(PIV::GetGridUnitIndex(nullptr), 1);
    EXPECT_EQ(PIV::GetVelocityUnitIndex("mph"), 7);
    EXPECT_EQ(PIV::GetDisplacementUnitIndex("mi"), 7);
    // From inches to millimetres: table[mm] / table[in] = 1 / 25.4.
    EXPECT_DOUBLE_EQ(PIV::GetGridConversionFactor(4, 1), 1.0 / 25.4);
    EXPECT_DOUBLE_EQ(PIV::GetGridConversionFactor(1, 3), 1000.0);
    EXPECT_STREQ(PIV::GetGridUnitName(99), "mm");
}
