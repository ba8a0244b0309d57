// Line and area integrals over shapes, on fields whose integrals are known
// in closed form: a solid rotation u = -wY, v = wX has circulation 2wA round
// any area A and no net flux; an expansion u = kX, v = kY has flux 2kA and
// no circulation; a uniform stream has neither.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>

#include "field_grids.h"
#include "piv_data2d.h"

namespace {

// 21 x 21 nodes 8 px apart at 4 px per mm; y up in millimetres.
void fill(PIV_Data2D& f, const std::function<void(double, double, float&, float&)>& flow) {
    ASSERT_TRUE(f.create(field_test::gridOf(21, 21, 8)));
    PIV_PARAMETERS p = f.pivParameters();
    p.convert.LengthConversion[0] = p.convert.LengthConversion[1] = 4.0;
    f.setPivParameters(p);
    for (int k = 0; k < f.nodeCount(); ++k) {
        PIV_VECTOR& v = f.data()[k];
        v.flag = VECTOR_ENABLED;
        flow(v.ix / 4.0, -v.iy / 4.0, v.u, v.v);
    }
}

}  // namespace

TEST(Integrate, ClosedShapesOnKnownFlows) {
    const double w = 0.5, k = 0.25;
    struct Flow {
        const char* name;
        std::function<void(double, double, float&, float&)> f;
        double circulationPerArea, fluxPerArea;
    } flows[] = {
        {"rotation", [&](double x, double y, float& u, float& v) { u = -w * y, v = w * x; }, 2 * w,
         0},
        {"expansion", [&](double x, double y, float& u, float& v) { u = k * x, v = k * y; }, 0,
         2 * k},
        {"uniform", [](double, double, float& u, float& v) { u = 3, v = -1; }, 0, 0},
    };
    // Rectangle 80 x 60 px = 300 mm^2, its ellipse 235.6 mm^2, the triangle
    // (40,40), (120,40), (40,100) 150 mm^2, given clockwise on screen.
    const FPOINT2D triangle[] = {{40, 40}, {40, 100}, {120, 40}};
    for (const Flow& flow : flows) {
        SCOPED_TRACE(flow.name);
        PIV_Data2D f;
        fill(f, flow.f);
        INTEGRATION_DATA r{}, e{}, p{};
        ASSERT_TRUE(f.integrateRect(0, 40, 40, 80, 60, r));
        ASSERT_TRUE(f.integrateEllipse(0, 40, 40, 80, 60, e));
        ASSERT_TRUE(f.integratePolygon(0, triangle, 3, p));
        const double areas[] = {300, M_PI * 10 * 7.5, 150};
        const INTEGRATION_DATA* got[] = {&r, &e, &p};
        for (int i = 0; i < 3; ++i) {
            EXPECT_NEAR(got[i]->area, areas[i], 1e-3 * areas[i]) << i;
            EXPECT_NEAR(got[i]->circulation, flow.circulationPerArea * areas[i], 0.02 * areas[i])
                << i;
            EXPECT_NEAR(got[i]->entrainment, flow.fluxPerArea * areas[i], 0.02 * areas[i]) << i;
        }
        EXPECT_NEAR(r.length, 70.0, 1e-6);
    }
}

// Along a line of 20 mm going right, a stream (3, -1) gives 3 * 20 along it
// and 20 across it to its right (downwards); off the grid a null field fails.
TEST(Integrate, LineAndBadInput) {
    PIV_Data2D f;
    fill(f, [](double, double, float& u, float& v) { u = 3, v = -1; });
    INTEGRATION_DATA l{};
    ASSERT_TRUE(f.integrateLine(0, {40, 40}, {120, 40}, l));
    EXPECT_NEAR(l.length, 20, 1e-9);
    EXPECT_NEAR(l.circulation, 60, 1e-4);
    EXPECT_NEAR(l.entrainment, 20, 1e-4);
    EXPECT_EQ(l.area, 0);
    EXPECT_FALSE(f.integrateLine(0, {40, 40}, {40, 40}, l));
    PIV_Data2D empty;
    EXPECT_FALSE(empty.integrateRect(0, 0, 0, 10, 10, l));
    EXPECT_EQ(l.circulation, 0);
}
