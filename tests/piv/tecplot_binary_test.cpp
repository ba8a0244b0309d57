// Tecplot binary files read back by a reader written from the public
// description of the version 7.5 format (header, zones, data sections); it
// shares nothing with the writer. Where these files deliberately depart
// from that description, the reader knows it from one table, kQuirks, and
// every entry is met by at least one case below.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "export_test_field.h"
#include "image_format.h"
#include "image_types.h"
#include "message_capture.h"
#include "piv_data2d.h"
#include "scratch_files.h"
#include "tecplot_reader.h"

using export_test::Kind;
using export_test::MakeField;
using namespace tecplot_reader;
using Names = std::vector<std::string>;
using Values = std::vector<double>;

namespace {

// Writes the field as <name>.plt, through save() with `cfg` in binary form
// or, without one, through saveTecplotBinary(); reads back one whole zone.
TecplotFile Saved(PIV_Data2D& field, const std::string& name, OUTPUT_CFG* cfg, int step = 0,
                  bool block = true) {
    test_support::ScratchDir dir;
    const std::string path = dir.file(name + ".plt");
    if (cfg) cfg->OutputFormat = 2;
    EXPECT_TRUE(cfg ? field.save(path.c_str(), 0, *cfg)
                    : field.saveTecplotBinary(path.c_str(), step, block))
        << field.getLastError();
    EXPECT_EQ(PIV::GetFileFormat(path.c_str()), PIV::FORMAT_TECPLOT);
    TecplotFile f = ReadTecplot(path);
    EXPECT_EQ(f.zones.size(), 1u);
    EXPECT_TRUE(f.atEnd);
    return f;
}

int Extent(const Zone& z) {
    return z.i * 100 + z.j * 10 + z.k;
}

// Gradients chosen so that every derived value differs from node to node.
DIFFERENTIALS Gradients(int n) {
    DIFFERENTIALS d;
    const float f = float(n);
    d.dudx = 0.5f * (f + 1), d.dudy = 0.25f, d.dudz = 0.125f * f;
    d.dvdx = 1 + f, d.dvdy = -0.5f, d.dvdz = 2;
    d.dwdx = 0.75f, d.dwdy = -f, d.dwdz = 0.25f;
    return d;
}

void SetGradients(PIV_Data2D& field) {
    ASSERT_TRUE(field.allocDifferentials());
    for (int n = 0; n < 6; n++) field.setDifferentials(n, Gradients(n));
}

}  // namespace

void CaseRawBlockWithCounts() {
    // Block runs follow the stored node order, top row first; image rows
    // count from the bottom (32 - iy); the interpolated node keeps 5.
    PIV_Data2D field;
    MakeField(field, Kind::Raw);
    field.setDataType(field.dataType() | PIV::DATA_COUNTS);
    const TecplotFile f = Saved(field, "raw_block", nullptr);
    EXPECT_EQ(f.magic, "#!TDV75 ");
    EXPECT_EQ(f.byteOrder, 1);
    EXPECT_EQ(f.title, "PIV Displacement Data : raw_block");
    EXPECT_EQ(f.names, (Names{"c", "r", "dx", "dy", "flag", "count"}));
    const Zone& z = f.zones.at(0);
    EXPECT_EQ(z.format, 0);
    EXPECT_EQ(Extent(z), 321);
    EXPECT_EQ(z.types, std::vector<int>({1, 1, 1, 1, 5, 3}));
    EXPECT_EQ(z.values.at("c"), Values({8, 24, 40, 8, 24, 40}));
    EXPECT_EQ(z.values.at("r"), Values({24, 24, 24, 8, 8, 8}));
    EXPECT_EQ(z.values.at("dx"), Values({1.5, 9, 2, 0, -1, 0.5}));
    EXPECT_EQ(z.values.at("dy"), Values({-0.5, 9, 0.25, 0, 2, 1}));
    EXPECT_EQ(z.values.at("flag"), Values({3, 2, 5, 0, 3, 3}));
    EXPECT_EQ(z.values.at("count"), Values({1, 0, 1, 0, 1, 1}));
}

void CaseVelocityPointsSkippingOneOutlierOnADesampledGrid() {
    // Node 3 is made valid so that the outlier (node 1) is the one node
    // skipped. With every second row (row 0: nodes 0, 1, 2) the header
    // counts 3 - 1 = 2 nodes; the data holds all 5 kept nodes.
    PIV_Data2D field;
    MakeField(field, Kind::Velocity);
    PIV_VECTOR* v = field.data();
    v[3].flag = VECTOR_ENABLED;
    v[3].dx = v[3].dy = 0.5f;
    v[3].u = v[3].v = 0.25f;
    SetGradients(field);
    OUTPUT_CFG cfg;
    cfg.OutputSkipOutliers = true;
    cfg.DesampleY = 2;
    cfg.StoreVorticity = true;  // shear and normal strain come all the same
    cfg.StoreDifferentials = cfg.StoreCorrCoeff = true;
    const TecplotFile f = Saved(field, "vel_points", &cfg);
    EXPECT_EQ(f.title, "PIV Velocity Data : vel_points");
    EXPECT_EQ(f.names, (Names{"x", "y", "u", "v", "flag", "vort_z", "dudx", "dudy", "dvdx", "dvdy",
                              "corr"}));
    const Zone& z = f.zones.at(0);
    EXPECT_EQ(z.format, 1);
    EXPECT_EQ(Extent(z), 211);
    ASSERT_EQ(z.records, 5);
    const int order[5] = {3, 4, 5, 0, 2};  // bottom row first
    for (int r = 0; r < 5; r++) {
        const int n = order[r];
        SCOPED_TRACE(n);
        const DIFFERENTIALS d = Gradients(n);
        auto at = [&](const char* name) { return float(z.values.at(name)[size_t(r)]); };
        EXPECT_EQ((std::vector<float>{at("x"), at("y"), at("u"), at("v")}),
                  (std::vector<float>{v[n].x, v[n].y, v[n].u, v[n].v}));
        EXPECT_FLOAT_EQ(at("corr"), v[n].corr * 100.0f);
        EXPECT_EQ(at("flag"), n == 2 ? 5 : 3);
        EXPECT_FLOAT_EQ(at("vort_z"), d.dvdx - d.dudy);
        EXPECT_FLOAT_EQ(at("shear"), d.dudy + d.dvdx);
        EXPECT_FLOAT_EQ(at("nstrain"), d.dudx + d.dvdy + d.dwdz);
        EXPECT_EQ(at("dvdy"), d.dvdy);
    }
}

void CaseVelocityBlockIn3DWithShearAndCorrelation() {
    PIV_Data2D field;
    MakeField(field, Kind::Velocity);
    SetGradients(field);
    OUTPUT_CFG cfg;
    cfg.StoreZCoords = cfg.StoreShear = cfg.StoreCorrCoeff = true;
    const TecplotFile f = Saved(field, "vel_block", &cfg);
    EXPECT_EQ(f.names, (Names{"x", "y", "z", "u", "v", "flag", "shear", "corr"}));
    const Zone& z = f.zones.at(0);
    EXPECT_EQ(z.format, 0);
    const PIV_VECTOR* v = field.data();
    for (int n = 0; n < 6; n++) {
        SCOPED_TRACE(n);
        const DIFFERENTIALS d = Gradients(n);
        auto at = [&](const char* name) { return float(z.values.at(name)[size_t(n)]); };
        EXPECT_EQ((std::vector<float>{at("x"), at("z"), at("u")}),
                  (std::vector<float>{v[n].x, 0.0f, v[n].u}));
        EXPECT_FLOAT_EQ(at("corr"), v[n].corr * 100.0f);
        EXPECT_FLOAT_EQ(at("shear_x"), d.dvdz + d.dwdy);
        EXPECT_FLOAT_EQ(at("shear_y"), d.dudz + d.dwdx);
        EXPECT_FLOAT_EQ(at("shear_z"), d.dudy + d.dvdx);
    }
}

void CaseRawPointsIn3DWithShiftedPositionsAndCounts() {
    // Positions move by half the displacement: column 8 + 0.5 * 1.5.
    PIV_Data2D field;
    MakeField(field, Kind::Raw);
    field.setDataType(field.dataType() | PIV::DATA_COUNTS);
    field.data()[4].count = 70000;  // the point form keeps the low 16 bits
    OUTPUT_CFG cfg;
    cfg.OutputPointFormat = cfg.StoreZCoords = true;
    cfg.CoordinateShift = 0.5;
    const TecplotFile f = Saved(field, "raw_points", &cfg);
    EXPECT_EQ(f.names, (Names{"c", "r", "d", "dx", "dy", "flag", "count"}));
    const Zone& z = f.zones.at(0);
    EXPECT_EQ(z.format, 1);
    EXPECT_EQ(Extent(z), 321);
    ASSERT_EQ(z.records, 6);
    EXPECT_EQ(z.values.at("c"), Values({8, 23.5, 40.25, 8.75, 28.5, 41}));
    EXPECT_EQ(z.values.at("r"), Values({8, 9, 8.5, 23.75, 28.5, 24.125}));
    EXPECT_EQ(z.values.at("flag"), Values({0, 3, 3, 3, 2, 5}));
    EXPECT_EQ(z.values.at("count"), Values({0, 70000 - 65536, 1, 1, 0, 1}));
    EXPECT_EQ(z.values.count("d"), 0u);
}

void CaseThreeComponentBlockWithResiduals() {
    // A third component w = 2 at every node: the residual's run is the
    // speed, at node 0 |(0.75, -0.25, 2)| = 2.1506.
    PIV_Data2D field;
    MakeField(field, Kind::Velocity);
    field.setFlag3C(true);
    for (int n = 0; n < 6; n++) {
        field.data()[n].w = 2.0f;
        field.data()[n].residual = 0.125f;
    }
    SetGradients(field);
    OUTPUT_CFG cfg;
    cfg.StoreResiduals = true;
    const TecplotFile f = Saved(field, "vel3c", &cfg);
    EXPECT_EQ(f.names, (Names{"x", "y", "u", "v", "w", "flag", "resid3c"}));
    const Zone& z = f.zones.at(0);
    EXPECT_EQ(z.values.at("w"), Values(6, 2.0));
    EXPECT_NEAR(z.values.at("speed")[0], 2.15058, 1e-5);
    EXPECT_NEAR(z.values.at("speed")[1], std::sqrt(4.5 * 4.5 * 2 + 4), 1e-5);
}

// Every case reads back against the reader; between them they meet each
// departure from the published layout at least once.
TEST(TecplotBinary, CasesReadBackAndMeetEveryQuirk) {
    QuirksMet().clear();
    const std::pair<const char*, void (*)()> cases[] = {
        {"raw block with counts", CaseRawBlockWithCounts},
        {"velocity points, one outlier skipped, desampled",
         CaseVelocityPointsSkippingOneOutlierOnADesampledGrid},
        {"velocity block in 3-D", CaseVelocityBlockIn3DWithShearAndCorrelation},
        {"raw points in 3-D, shifted", CaseRawPointsIn3DWithShiftedPositionsAndCounts},
        {"three-component block", CaseThreeComponentBlockWithResiduals},
    };
    for (const auto& [name, run] : cases) {
        SCOPED_TRACE(name);
        run();
    }
    for (const QuirkRow& q : kQuirks)
        EXPECT_EQ(QuirksMet().count(q.quirk), 1u) << "no case for: " << q.text;
}

// ---- edge cases ------------------------------------------------------------

TEST(TecplotBinary, FormatSixMakesInterpolatedAnOutlierInPointFormOnly) {
    PIV_Data2D field;
    MakeField(field, Kind::Raw);
    OUTPUT_CFG cfg;
    cfg.OutputFormat = 6;
    field.setOutputCfg(cfg);
    // Point order: nodes 3, 4, 5, 0, 1, 2; node 2 is the interpolated one.
    EXPECT_EQ(Saved(field, "six", nullptr, 0, false).zones.at(0).values.at("flag"),
              Values({0, 3, 3, 3, 2, 2}));
    EXPECT_EQ(Saved(field, "six", nullptr, 0, true).zones.at(0).values.at("flag").at(2), 5);
}

TEST(TecplotBinary, StepsAreClampedAndASequenceHasOneZonePerStep) {
    PIV_Data2D field;
    MakeField(field, Kind::Raw, 3);
    test_support::ScratchDir dir;
    const std::string path = dir.file("seq.plt");
    ASSERT_TRUE(field.saveSequenceTecplotBinary(path.c_str(), 1, 2));
    const TecplotFile f = ReadTecplot(path);
    ASSERT_EQ(f.zones.size(), 2u);
    EXPECT_TRUE(f.atEnd);
    EXPECT_EQ(f.zones[0].values.at("dx").at(0), 101.5);
    EXPECT_EQ(f.zones[1].values.at("dx").at(0), 201.5);
    // One step alone: steps outside the axis are clamped to its ends.
    for (const auto& [step, dx] : {std::pair{7, 201.5}, {-3, 1.5}, {1, 101.5}})
        EXPECT_EQ(Saved(field, "step", nullptr, step).zones.at(0).values.at("dx").at(0), dx)
            << step;

    MessageCapture capture;
    const std::string missing = dir.file("missing/seq.plt");
    EXPECT_FALSE(field.saveSequenceTecplotBinary(dir.file("bad.plt").c_str(), 2, 3));
    EXPECT_FALSE(field.saveSequenceTecplotBinary(missing.c_str(), 0, 2));
    EXPECT_EQ(field.error().getLastErrorCode(), PIVerror::FILE_CREATE_FAILED);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()), {}), 1);  // seq.plt
}

// ---- bad input -------------------------------------------------------------

TEST(TecplotBinary, BadInputLeavesNothingBehind) {
    test_support::ScratchDir dir;
    MessageCapture capture;
    PIV_Data2D raw;
    MakeField(raw, Kind::Raw);
    OUTPUT_CFG cfg;
    for (int format : {5, 6, -1}) {
        cfg.OutputFormat = format;
        EXPECT_FALSE(raw.save(dir.file("x.plt").c_str(), 0, cfg)) << format;
        EXPECT_EQ(raw.error().getLastErrorCode(), PIVerror::FILE_FORMAT_UNSUPPORTED);
    }
    const std::string missing = dir.file("missing/out.plt");
    const struct {
        const char* what;
        Kind kind;
        bool empty;
        std::string path;
        int code;
    } cases[] = {
        {"unwritable path", Kind::Raw, false, missing, PIVerror::FILE_CREATE_FAILED},
        {"empty field", Kind::Raw, true, dir.file("empty.plt"), PIVerror::DATA_IS_NULL},
        {"velocity without differentials", Kind::Velocity, false, dir.file("vel.plt"),
         PIVerror::FILE_WRITE_FAILED},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        PIV_Data2D field;
        if (!c.empty) MakeField(field, c.kind);
        for (bool block : {true, false}) {
            EXPECT_FALSE(field.saveTecplotBinary(c.path.c_str(), 0, block));
            EXPECT_EQ(field.error().getLastErrorCode(), c.code);
        }
    }
    EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
}
