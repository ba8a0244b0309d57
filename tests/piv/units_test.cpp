// Conversion from pixels to physical units, against figures worked by hand.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

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

}  // namespace

// Node (100, 112) moved by (5, -2) px, converted under three setups.
TEST(ConvertVector, PositionsVelocitiesAndShiftsInTheChosenUnits) {
    using Setup = void (*)(PIVCONVERT_CFG&);
    const struct {
        const char* name;
        Setup setup;
        float x, y, u, v, sx, sy;
    } cases[] = {
        // x = 100 px / 10 = 10 mm; y counts up from row 512: (512 - 112) / 10 = 40 mm.
        // 5 px = 0.5 mm = 500 um in 100 us = 5 m/s.
        {"mm, m/s, um", [](PIVCONVERT_CFG&) {}, 10, 40, 5, -2, 500, -200},
        // 10 px per cm: 5 px = 0.5 cm = 5 mm in 100 us = 50 m/s = 5000 cm/s.
        {"cm, cm/s, mm",
         [](PIVCONVERT_CFG& c) {
             PIV::CopyText(c.VelocityUnits, "cm/s");
             PIV::CopyText(c.DisplacementUnits, "mm");
             PIV::CopyText(c.LengthConversionUnits, "cm");
         },
         10, 40, 5000, -2000, 5, -2},
        // No magnification on x gives zero there, not infinity.
        {"zero magnification", [](PIVCONVERT_CFG& c) { c.LengthConversion[0] = 0.0; }, 0, 40, 0, -2,
         0, -200},
    };
    for (const auto& c : cases) {
        PIVCONVERT_CFG cfg = labSetup();
        c.setup(cfg);
        PIV::UpdateConversionFactors(&cfg);
        PIV_VECTOR v;
        v.ix = 100, v.iy = 112, v.dx = 5.0f, v.dy = -2.0f;
        PIV::ConvertVector(&v, cfg);
        const std::vector<float> got{v.x, v.y, v.u, v.v, v.sx, v.sy};
        const std::vector<float> want{c.x, c.y, c.u, c.v, c.sx, c.sy};
        for (size_t i = 0; i < got.size(); i++)
            EXPECT_FLOAT_EQ(got[i], want[i]) << c.name << " " << i;
    }
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
    // mm grid over m/s: 1 / 1000; mm grid over um: 1 / 0.001.
    EXPECT_DOUBLE_EQ(cfg.velocityFactor, 0.001);
    EXPECT_DOUBLE_EQ(cfg.displacementFactor, 1000.0);
    EXPECT_FALSE(PIV::UpdateConversionFactors(&cfg));  // nothing left to change
}

TEST(UnitTables, GridConversion) {
    EXPECT_DOUBLE_EQ(PIV::GetGridConversionFactor(4, 1), 1.0 / 25.4);  // inches to mm
}
