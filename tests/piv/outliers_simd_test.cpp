// The medians of eight neighbours in vector lanes against the plain network,
// bit for bit, on every target the CPU has; the values hold ties, both
// zeros and a NaN, where only the order of the selections decides.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "hwy/targets.h"
#include "piv_data2d_outliers.h"
#include "piv_outliers_simd.h"

TEST(MediansOfEight, EveryTargetGivesThePlainNetworksBits) {
    const float pool[] = {0.0f, -0.0f, 1.5f, -2.25f, 1.5f, 3.0f, NAN, -7.0f, 0.5f, 2.0f, -0.5f};
    for (size_t n : {1, 7, 33, 1023}) {
        std::vector<float> lists(8 * n), wantM(n), wantR(n);
        const float* rows[8];
        for (int k = 0; k < 8; k++) rows[k] = &lists[k * n];
        for (size_t i = 0; i < n; i++) {
            float x[8], w[8];
            for (int k = 0; k < 8; k++)
                w[k] = x[k] = lists[k * n + i] = pool[(i * 7 + size_t(k) * (i % 5 + 1)) % 11];
            wantM[i] = PIV::Outliers::Median(w, 8);
            wantR[i] = PIV::Outliers::ResidualMedian(x, 8, wantM[i]);
        }
        for (int64_t target : hwy::SupportedAndGeneratedTargets()) {
            SCOPED_TRACE(testing::Message() << n << " nodes, " << hwy::TargetName(target));
            hwy::SetSupportedTargetsForTest(target);
            std::vector<float> m(n), r(n);
            PIV::Outliers::MediansOfEight(rows, n, m.data(), r.data());
            EXPECT_EQ(0, std::memcmp(m.data(), wantM.data(), 4 * n));
            EXPECT_EQ(0, std::memcmp(r.data(), wantR.data(), 4 * n));
        }
        hwy::SetSupportedTargetsForTest(0);
    }
}
