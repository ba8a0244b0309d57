// The vectorised loops of a window's correlation and peak search against
// the plain loops they replace, on every instruction set the machine has,
// over rows of 1, 7, 33 and 1023 cells: the widths that leave the vectors
// empty, part-filled, one cell over, and one cell short.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "eval_test_support.h"
#include "hwy/targets.h"
#include "piv_corr2d_simd.h"
#include "piv_peak2d_simd.h"

namespace {
// Values in [-1, 1), the same on every run.
std::vector<float> Noise(size_t n, unsigned seed) {
    return eval_test::RandomValues(n, seed, -1.0f, 1.0f);
}
}  // namespace

TEST(WindowLoops, VectorLoopsMatchThePlainLoops) {
    for (int64_t target : hwy::SupportedAndGeneratedTargets()) {
        hwy::SetSupportedTargetsForTest(target);
        SCOPED_TRACE(hwy::TargetName(target));
        for (size_t n : {1, 7, 33, 1023}) {
            SCOPED_TRACE(n);
            // Cross power of n complex values: the same products and sums.
            const std::vector<float> a = Noise(2 * n, 1), b = Noise(2 * n, 2);
            std::vector<float> cross(2 * n);
            PIV::Simd::CrossPower(a.data(), b.data(), cross.data(), n, 0.25f);
            for (size_t k = 0; k < 2 * n; k += 2) {
                EXPECT_FLOAT_EQ(cross[k], (a[k] * b[k] + a[k + 1] * b[k + 1]) * 0.25f);
                EXPECT_FLOAT_EQ(cross[k + 1], (a[k] * b[k + 1] - a[k + 1] * b[k]) * 0.25f);
            }
            // Two windows of n x 3 cells in rows of n + 2, the first weighted:
            // the padding stays, the means come off, the squares are summed.
            const size_t stride = n + 2;
            std::vector<float> wa = Noise(3 * stride, 3), wb = Noise(3 * stride, 4);
            const std::vector<float> weight = Noise(3 * stride, 5), ra = wa, rb = wb;
            double sumA = 0.0, sumB = 0.0, plainA = 0.0, plainB = 0.0;
            PIV::Simd::WeightAndSumWindows(wa.data(), wb.data(), weight.data(), n, 3, stride, sumA,
                                           sumB);
            float sqA = 0.0f, sqB = 0.0f;
            PIV::Simd::CenterWindows(wa.data(), wb.data(), n, 3, stride, 0.5f, -0.25f, sqA, sqB);
            double plainSqA = 0.0, plainSqB = 0.0;
            for (size_t j = 0; j < 3; j++)
                for (size_t i = 0; i < stride; i++) {
                    const size_t k = j * stride + i;
                    const bool inside = i < n;
                    const float va = inside ? ra[k] * weight[k] : ra[k];
                    EXPECT_EQ(wa[k], inside ? va - 0.5f : va);
                    EXPECT_EQ(wb[k], inside ? rb[k] + 0.25f : rb[k]);
                    if (!inside) continue;
                    plainA += va;
                    plainB += rb[k];
                    plainSqA += double(va - 0.5f) * (va - 0.5f);
                    plainSqB += double(rb[k] + 0.25f) * (rb[k] + 0.25f);
                }
            EXPECT_NEAR(sumA, plainA, 1e-12 * double(n));
            EXPECT_NEAR(sumB, plainB, 1e-12 * double(n));
            EXPECT_NEAR(sqA, plainSqA, 1e-5 * plainSqA);  // float sums
            EXPECT_NEAR(sqB, plainSqB, 1e-5 * plainSqB);
            // A plane's extremes and squares, and a row's greatest value:
            // NaN never counts, equal cells do not displace the first.
            std::vector<float> p = Noise(n, 6);
            p[n / 2] = NAN;
            float lo = 0.0f, hi = 0.0f;
            double sq = 0.0, plainSq = 0.0;
            PIV::Simd::ScanPlane(p.data(), n, lo, hi, sq);
            float plainLo = p[0], plainHi = p[0], greatest = -2.0f;
            for (float v : p) {
                plainLo = v < plainLo ? v : plainLo;
                plainHi = v > plainHi ? v : plainHi;
                greatest = v > greatest ? v : greatest;
                plainSq += double(v) * v;
            }
            EXPECT_TRUE(std::isnan(sq));  // as the plain sum
            if (n > 1) {
                EXPECT_EQ(lo, plainLo);
                EXPECT_EQ(hi, plainHi);
            }
            p[n / 2] = 0.5f;
            PIV::Simd::ScanPlane(p.data(), n, lo, hi, sq);
            plainSq = 0.0;
            for (float v : p) plainSq += double(v) * v;
            EXPECT_NEAR(sq, plainSq, 1e-12 * double(n));
            p[n / 2] = NAN;
            EXPECT_EQ(PIV::Simd::GreatestOf(p.data(), n, -2.0f), greatest);
            // Candidate bits of a row between two others, above a floor.
            const std::vector<float> up = Noise(n, 7), down = Noise(n, 8);
            std::vector<uint64_t> bits((n + 63) / 64, ~uint64_t(0));
            PIV::Simd::PeakCandidates(p.data(), up.data(), down.data(), n, -0.5f, bits.data());
            for (size_t i = 0; i < n; i++) {
                const float v = p[i];
                const bool plain = i > 0 && i + 1 < n && v > p[i - 1] && v > p[i + 1] &&
                                   v > up[i] && v > down[i] && v > -0.5f;
                EXPECT_EQ((bits[i / 64] >> (i % 64)) & 1, plain ? 1u : 0u) << i;
            }
        }
    }
    hwy::SetSupportedTargetsForTest(0);
}
