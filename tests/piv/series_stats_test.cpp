// Statistics over a series of fields and Reynolds stresses, against a
// two-pass reference computed here in double precision from the same values.
#include <gtest/gtest.h>
#include <netcdf.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "field_grids.h"
#include "message_capture.h"
#include "piv_data2d_stats.h"
#include "scratch_files.h"

using field_test::gridOf;

namespace {

constexpr int kNx = 6, kNy = 5, kNodes = kNx * kNy, kFields = 20;
constexpr int kNeverValid = 7;  // no sample in any field
constexpr int kOnce = 11;       // one sample, in field 3

// A series of random fields: skewed values (exponential on top of a node
// mean), some nodes invalid in some fields, some vectors interpolated.
using Series = std::vector<std::shared_ptr<PIV_Data2D>>;

Series makeSeries() {
    std::mt19937 rng(42);
    std::exponential_distribution<double> tail(1.5);
    std::normal_distribution<double> noise(0.0, 0.3);
    std::uniform_real_distribution<double> chance(0.0, 1.0);
    Series series;
    for (int s = 0; s < kFields; s++) {
        std::shared_ptr<PIV_Data2D> f(new PIV_Data2D(gridOf(kNx, kNy)),
                                      [](PIV_Data2D* p) { p->release(); });
        for (int k = 0; k < kNodes; k++) {
            PIV_VECTOR& v = f->data()[k];
            v.dx = float(0.2 * k + tail(rng));
            v.dy = float(-1.0 + noise(rng));
            v.u = float(3.0 * v.dx + noise(rng));
            v.v = float(-2.0 * v.dy + tail(rng));
            v.sx = float(0.5 * v.dx);
            v.sy = float(0.5 * v.dy);
            v.corr = float(0.5 + 0.4 * chance(rng));
            v.setSuccess();
            const double c = chance(rng);
            if (c < 0.15) v.flag = VECTOR_OUTLIER;
            if (c > 0.92) v.flag = VECTOR_ENABLED | VECTOR_INTERPOLATED;
            if (k == kNeverValid || (k == kOnce && s != 3)) v.flag = VECTOR_OUTLIER;
            if (k == kOnce && s == 3) v.flag = VECTOR_ENABLED;
        }
        f->setFlagRawData(true);
        series.push_back(f);
    }
    return series;
}

// Population moments of a sample, two passes in double precision.
struct Reference {
    double n = 0, mean = 0, dev = 0, skew = 0, kurt = 0;
};

Reference referenceOf(const std::vector<double>& x) {
    Reference r;
    r.n = double(x.size());
    if (x.empty()) return r;
    for (double v : x) r.mean += v;
    r.mean /= r.n;
    double m2 = 0, m3 = 0, m4 = 0;
    for (double v : x) {
        const double d = v - r.mean;
        m2 += d * d;
        m3 += d * d * d;
        m4 += d * d * d * d;
    }
    r.dev = std::sqrt(m2 / r.n);
    if (r.dev > 0) {
        r.skew = std::sqrt(r.n) * m3 / std::pow(m2, 1.5);
        r.kurt = r.n * m4 / (m2 * m2) - 3.0;
    }
    return r;
}

// Samples of one member at one node over the series: the enabled vectors.
std::vector<double> samples(const Series& series, int k, float PIV_VECTOR::*m) {
    std::vector<double> x;
    for (const auto& f : series) {
        const PIV_VECTOR& v = f->data()[k];
        if (v.flag & VECTOR_ENABLED) x.push_back(v.*m);
    }
    return x;
}

void expectClose(double actual, double expected, const std::string& what) {
    const double tolerance = std::max(1e-5 * std::fabs(expected), 1e-6);
    EXPECT_NEAR(actual, expected, tolerance) << what;
}

std::vector<std::string> linesOf(const std::string& path) {
    std::ifstream in(path);
    std::vector<std::string> lines;
    for (std::string l; std::getline(in, l);) lines.push_back(l);
    return lines;
}

}  // namespace

TEST(SeriesStatistics, MatchATwoPassReference) {
    MessageCapture quiet;
    const Series series = makeSeries();
    PIV_Data2D_Stats stats;
    // Nothing summed yet: no update, and no field is no field.
    EXPECT_FALSE(stats.update());
    EXPECT_EQ(stats.error().getLastErrorCode(), PIVerror::OPERATION_FAILED);
    EXPECT_FALSE(stats.increment(nullptr, 0, 0));
    for (int s = 0; s < kFields; s++) {
        ASSERT_TRUE(stats.increment(series[size_t(s)].get(), 0, 0));
        if (s == 9) {
            // A field on another grid is refused; what was summed stays.
            PIV_Data2D other(gridOf(kNx - 1, kNy));
            other.setFlagRawData(true);
            EXPECT_FALSE(stats.increment(&other, 0, 0));
            EXPECT_EQ(stats.error().getLastErrorCode(), PIVerror::GRID_MISMATCH);
            EXPECT_EQ(stats.dataSetCount(), 10);
        }
    }
    ASSERT_TRUE(stats.update());
    const PIV_Data2D* avg = stats.avgData();
    // The exports print `valid` against the count the mean field carries.
    EXPECT_EQ(avg->dataSetCount(), kFields);
    const PIV_Data2D* rms = stats.rmsData();
    float PIV_VECTOR::*const members[] = {&PIV_VECTOR::dx, &PIV_VECTOR::dy, &PIV_VECTOR::u,
                                          &PIV_VECTOR::v,  &PIV_VECTOR::sx, &PIV_VECTOR::corr};
    for (int k = 0; k < kNodes; k++) {
        for (float PIV_VECTOR::*m : members) {
            const Reference r = referenceOf(samples(series, k, m));
            expectClose(avg->data()[k].*m, r.mean, "mean at node " + std::to_string(k));
            expectClose(rms->data()[k].*m, r.dev, "rms at node " + std::to_string(k));
        }
        const int n = int(samples(series, k, &PIV_VECTOR::dx).size());
        EXPECT_EQ(avg->data()[k].count, n);
        EXPECT_EQ(avg->data()[k].flag, n > 0 ? VECTOR_ENABLED : VECTOR_OUTLIER);
    }
    // No sample at all: flag 8 and a mean of 0, not a division by zero.
    EXPECT_EQ(avg->data()[kNeverValid].dx, 0.0f);
    EXPECT_EQ(rms->data()[kNeverValid].dx, 0.0f);
    // One sample has no spread.
    EXPECT_EQ(rms->data()[kOnce].dx, 0.0f);

    test_support::ScratchDir dir;
    const std::string file = dir.file("dx_stats.dat");
    ASSERT_TRUE(stats.dumpVariableToFile(file.c_str(), PIV::VAR_DX));
    const std::vector<std::string> lines = linesOf(file);
    ASSERT_EQ(lines.size(), 9u + kNodes);
    EXPECT_EQ(lines[7],
              "VARIABLES = \"ix\", \"iy\", \"iz\", \"x\", \"y\", \"z\", \"mean\", \"stddev\", "
              "\"skew\", \"kurt\", \"valid\"");
    EXPECT_EQ(lines[8].rfind("ZONE I=6, J=5, K=1, F=POINT", 0), 0u);
    for (int k = 0; k < kNodes; k++) {
        int ix, iy, iz;
        double x, y, z, mean, dev, skew, kurt, valid;
        ASSERT_EQ(
            std::sscanf(lines[size_t(9 + k)].c_str(), "%d %d %d %lf %lf %lf %lf %lf %lf %lf %lf",
                        &ix, &iy, &iz, &x, &y, &z, &mean, &dev, &skew, &kurt, &valid),
            11);
        const Reference r = referenceOf(samples(series, k, &PIV_VECTOR::dx));
        EXPECT_EQ(ix, 16 + 16 * (k % kNx));
        EXPECT_NEAR(mean, r.mean, 1e-5 * std::fabs(r.mean) + 1e-6);
        EXPECT_NEAR(skew, r.skew, 1e-4) << k;
        EXPECT_NEAR(kurt, r.kurt, 1e-4) << k;
        EXPECT_NEAR(valid, r.n / kFields, 1e-6);
        for (double value : {mean, dev, skew, kurt, valid}) EXPECT_TRUE(std::isfinite(value));
    }
}

TEST(SeriesStatistics, AConstantSeriesHasNoSpreadSkewOrKurtosis) {
    MessageCapture quiet;
    PIV_Data2D_Stats stats;
    PIV_Data2D f(gridOf(3, 3));
    for (int k = 0; k < 9; k++) {
        f.data()[k].dx = 2.5f;
        f.data()[k].setSuccess();
    }
    f.setFlagRawData(true);
    for (int s = 0; s < 3; s++) ASSERT_TRUE(stats.increment(&f, -1, 0));
    ASSERT_TRUE(stats.update());
    EXPECT_EQ(stats.rmsData()->data()[4].dx, 0.0f);
    EXPECT_EQ(stats.avgData()->data()[4].dx, 2.5f);
    const PIV_STATS_ACCUMULATOR& a = stats.nodeStats()[4].q[PIV_Data2D_Stats::Q_DX];
    EXPECT_EQ(a.skew(), 0.0);
    EXPECT_EQ(a.kurt(), 0.0);
}

// A series cut into uneven blocks, a one-field and an empty one among them,
// merges to what one pass over the whole gives; the 7 blocks go through
// partial files on the way. Tolerances: the mean and M2 to 1e-12 relative,
// M3 and M4 to 1e-9 of n sigma^3 and n sigma^4.
TEST(SeriesStatistics, MergedBlocksEqualOnePass) {
    MessageCapture quiet;
    const Series series = makeSeries();
    PIV_Data2D_Stats whole;
    for (const auto& f : series) ASSERT_TRUE(whole.increment(f.get(), 0, 0));
    ASSERT_TRUE(whole.update());
    test_support::ScratchDir dir;
    for (const std::vector<int>& blocks : {std::vector<int>{20}, {13, 7}, {5, 1, 0, 3, 4, 2, 5}}) {
        const bool viaFiles = blocks.size() == 7;
        PIV_Data2D_Stats total;
        size_t next = 0;
        for (size_t b = 0; b < blocks.size(); b++) {
            PIV_Data2D_Stats part;
            for (int i = 0; i < blocks[b]; i++)
                ASSERT_TRUE(part.increment(series[next++].get(), 0, 0));
            STATS_SHARD shard;
            shard.index = int(b);
            shard.count = int(blocks.size());
            const std::string file = dir.file("part" + std::to_string(b) + ".nc");
            if (viaFiles) {
                ASSERT_TRUE(part.savePartial(file.c_str(), shard) &&
                            part.loadPartial(file.c_str(), shard));
            }
            ASSERT_TRUE(total.merge(part));
        }
        ASSERT_EQ(total.dataSetCount(), kFields);
        ASSERT_TRUE(total.update());
        for (int k = 0; k < kNodes; k++)
            for (int q = 0; q < PIV_Data2D_Stats::Q_COUNT; q++) {
                const PIV_STATS_ACCUMULATOR& a = total.nodeStats()[k].q[q];
                const PIV_STATS_ACCUMULATOR& e = whole.nodeStats()[k].q[q];
                const std::string at = std::to_string(blocks.size()) + " blocks, node " +
                                       std::to_string(k) + ", " + std::to_string(q);
                ASSERT_EQ(a.count, e.count) << at;
                EXPECT_EQ(a.minimum, e.minimum) << at;
                EXPECT_EQ(a.maximum, e.maximum) << at;
                const double n = double(e.count), sigma = e.stdDev();
                EXPECT_NEAR(a.mean, e.mean, 1e-12 * std::fabs(e.mean)) << at;
                EXPECT_NEAR(a.M2, e.M2, 1e-12 * e.M2) << at;
                EXPECT_NEAR(a.M3, e.M3, 1e-9 * n * std::pow(sigma, 3)) << at;
                EXPECT_NEAR(a.M4, e.M4, 1e-9 * n * std::pow(sigma, 4)) << at;
            }
        for (auto field : {&PIV_Data2D_Stats::avgData, &PIV_Data2D_Stats::rmsData})
            for (int k = 0; k < kNodes; k++) {
                const PIV_VECTOR& a = (total.*field)()->data()[k];
                const PIV_VECTOR& e = (whole.*field)()->data()[k];
                for (float PIV_VECTOR::*m : PIV::kTripleMembers)
                    EXPECT_LE(std::fabs(a.*m - e.*m),
                              std::nextafter(std::fabs(e.*m), INFINITY) - std::fabs(e.*m));
                EXPECT_EQ(a.count, e.count);
            }
    }
    // Another grid is refused and the sums stay.
    PIV_Data2D_Stats other, total;
    PIV_Data2D small(gridOf(4, 4));
    small.setFlagRawData(true);
    ASSERT_TRUE(other.increment(&small, 0, 0));
    ASSERT_TRUE(total.increment(series[0].get(), 0, 0));
    EXPECT_FALSE(total.merge(other));
    EXPECT_EQ(total.error().getLastErrorCode(), PIVerror::GRID_MISMATCH);
    EXPECT_EQ(total.dataSetCount(), 1);
}

// The fluctuations are taken against a given mean that is not the series'
// own, and interpolated vectors are left out by the mask.
TEST(ReynoldsStressesTest, MatchTheReferenceAgainstAGivenMean) {
    MessageCapture quiet;
    const Series series = makeSeries();
    PIV_Data2D mean(gridOf(kNx, kNy));
    for (int k = 0; k < kNodes; k++) {
        PIV_VECTOR& m = mean.data()[k];
        m.dx = 0.2f * k + 0.9f;  // the series' mean is near 0.2 k + 0.67
        m.dy = -0.8f;
        m.u = 3.0f * m.dx;
        m.v = 2.5f;
        m.setSuccess();
    }
    mean.setFlagRawData(true);
    ReynoldsStresses rs;
    // Refused: no mean, an empty one, and results before a mean or a field.
    PIV_Data2D empty;
    EXPECT_FALSE(rs.setMeanData(&empty));
    EXPECT_EQ(rs.error().getLastErrorCode(), PIVerror::ALLOCATION_FAILED);
    EXPECT_FALSE(rs.update());
    EXPECT_EQ(rs.error().getLastErrorCode(), PIVerror::OPERATION_NOT_POSSIBLE);
    EXPECT_FALSE(rs.save("/nonexistent/x.dat", OUTPUT_CFG()));
    ASSERT_TRUE(rs.setMeanData(&mean));
    EXPECT_FALSE(rs.update());
    EXPECT_EQ(rs.error().getLastErrorCode(), PIVerror::OPERATION_NOT_POSSIBLE);
    for (const auto& f : series) ASSERT_TRUE(rs.incrementPivData(f.get(), -1, VECTOR_INTERPOLATED));
    PIV_Data2D other(gridOf(kNx, kNy + 1));
    other.setFlagRawData(true);
    EXPECT_FALSE(rs.incrementPivData(&other, -1, 0));
    EXPECT_EQ(rs.error().getLastErrorCode(), PIVerror::GRID_MISMATCH);
    EXPECT_EQ(rs.dataSetCount(), kFields);
    ASSERT_TRUE(rs.update());

    const REYNOLDS_STRESS* r = rs.data();
    for (int k = 0; k < kNodes; k++) {
        const PIV_VECTOR& m = mean.data()[k];
        double sums[6] = {};  // dxdx, dydy, dxdy, uu, vv, uv
        int n = 0;
        for (const auto& f : series) {
            const PIV_VECTOR& c = f->data()[k];
            if (!(c.flag & VECTOR_ENABLED) || (c.flag & VECTOR_INTERPOLATED)) continue;
            const double a = double(c.dx) - m.dx, b = double(c.dy) - m.dy;
            const double p = double(c.u) - m.u, q = double(c.v) - m.v;
            const double products[6] = {a * a, b * b, a * b, p * p, q * q, p * q};
            for (int i = 0; i < 6; i++) sums[i] += products[i];
            n++;
        }
        const std::string at = "node " + std::to_string(k);
        // One sample or none: the node stays zero.
        EXPECT_EQ(r[k].count, n < 2 ? 0u : uint64_t(n)) << at;
        const float got[6] = {r[k].dxdx, r[k].dydy, r[k].dxdy, r[k].uu, r[k].vv, r[k].uv};
        for (int i = 0; i < 6; i++) expectClose(got[i], n < 2 ? 0.0 : sums[i] / n, at);
    }

    // The table: raw displacements, as the mean holds no velocity data type.
    test_support::ScratchDir dir;
    const std::string table = dir.file("reyn.dat");
    ASSERT_TRUE(rs.save(table.c_str(), OUTPUT_CFG()));
    const std::vector<std::string> lines = linesOf(table);
    const std::string all = test_support::ReadBytes(table);
    EXPECT_PRED_FORMAT2(testing::IsSubstring, "# based on raw displacements using 20 files\n", all);
    EXPECT_PRED_FORMAT2(testing::IsSubstring,
                        "TITLE = \"Reynolds Stresses\"\nVARIABLES = \"x\", \"y\", \"U_bar\", "
                        "\"V_bar\", \"uu\", \"vv\", \"uv\", \"count\", \"valid\"\nZONE I=6, J=5",
                        all);
    ASSERT_GE(lines.size(), size_t(kNodes));
    const std::string& last = lines.back();  // node 29: column 5, row 4
    double x, y, U, V, uu, vv, uv, valid;
    unsigned long long count;
    ASSERT_EQ(std::sscanf(last.c_str(), "%lf %lf %lf %lf %lf %lf %lf %llu %lf", &x, &y, &U, &V, &uu,
                          &vv, &uv, &count, &valid),
              9);
    EXPECT_EQ(x, 96.0);
    EXPECT_EQ(y, 96.0 - 80.0);
    EXPECT_NEAR(uu, r[29].dxdx, 1e-5 * r[29].dxdx);
    EXPECT_NEAR(valid, double(r[29].count) / kFields, 1e-6);
}

// The fluctuation of the last field goes to a NetCDF file; read back through
// the netCDF library itself, rows flipped as the files store them.
TEST(ReynoldsStressesTest, CurrentDifferenceIsSavedAsNetCDF) {
    MessageCapture quiet;
    PIV_Data2D mean(gridOf(4, 3)), current(gridOf(4, 3));
    for (int k = 0; k < 12; k++) {
        mean.data()[k].dx = 1.0f + k;
        mean.data()[k].dy = -0.5f;
        mean.data()[k].setSuccess();
        current.data()[k].dx = 1.25f + k;
        current.data()[k].dy = 0.5f * k;
        current.data()[k].setSuccess();
    }
    mean.setFlagRawData(true);
    current.setFlagRawData(true);
    current.setDataType(PIV::DATA_DISPLACEMENT | PIV::DATA_FLAGS);
    ReynoldsStresses rs;
    ASSERT_TRUE(rs.setMeanData(&mean));
    ASSERT_TRUE(rs.incrementPivData(&current, 0, 0));
    test_support::ScratchDir dir;
    const std::string file = dir.file("diff.nc");
    OUTPUT_CFG out;
    out.OutputFormat = 3;
    ASSERT_TRUE(rs.saveCurrentDifference(file.c_str(), out)) << rs.getLastError();
    int id = -1, var = -1;
    ASSERT_EQ(nc_open(file.c_str(), NC_NOWRITE, &id), NC_NOERR);
    ASSERT_EQ(nc_inq_varid(id, "piv_data", &var), NC_NOERR);
    std::vector<float> d(24);
    ASSERT_EQ(nc_get_var_float(id, var, d.data()), NC_NOERR);
    nc_close(id);
    for (int r = 0; r < 3; r++)
        for (int i = 0; i < 4; i++) {
            const int k = (2 - r) * 4 + i;
            EXPECT_FLOAT_EQ(d[size_t(2 * (r * 4 + i))], 0.25f) << k;
            EXPECT_FLOAT_EQ(d[size_t(2 * (r * 4 + i) + 1)], 0.5f * k + 0.5f) << k;
        }
}
