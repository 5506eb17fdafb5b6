// Known values of the six windows and their bandwidth factors.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "dsp/window.h"
#include "zr_api.h"

namespace zr {
namespace {

std::vector<double> build(int kind, int n) {
    std::vector<double> w(static_cast<size_t>(n));
    buildWindow(kind, w.data(), n);
    return w;
}

TEST(Window, BandwidthFactorsAndUnknownKinds) {
    EXPECT_EQ(windowBandwidthFactor(zrWindowFlatTop), 3.7702);
    EXPECT_EQ(windowBandwidthFactor(zrWindowNuttall), 2.0212);
    EXPECT_EQ(windowBandwidthFactor(zrWindowBlackman), 1.73);
    EXPECT_EQ(windowBandwidthFactor(zrWindowHamming), 1.3628);
    EXPECT_EQ(windowBandwidthFactor(zrWindowGaussian), 2.65);
    EXPECT_EQ(windowBandwidthFactor(zrWindowRect), 1.0);
    EXPECT_EQ(windowBandwidthFactor(1), 1.0);
    EXPECT_EQ(windowBandwidthFactor(7), 1.0);
    // Unknown kinds build the flat top.
    EXPECT_EQ(build(1, 101), build(zrWindowFlatTop, 101));
    EXPECT_EQ(build(-3, 64), build(zrWindowFlatTop, 64));
}

TEST(Window, RectAndHammingKnownValues) {
    for (int n : {2, 17, 1000}) {
        const auto w = build(zrWindowRect, n);
        EXPECT_TRUE(std::all_of(w.begin(), w.end(), [](double v) { return v == 1.0; }));
    }
    const auto h = build(zrWindowHamming, 2);
    EXPECT_NEAR(h[0], 0.08, 1e-15);
    EXPECT_NEAR(h[1], 0.08, 1e-15);
    const auto h5 = build(zrWindowHamming, 5);
    EXPECT_NEAR(h5[2], 1.0, 1e-15);
    EXPECT_NEAR(h5[1], 0.54, 1e-15);
}

TEST(Window, FlatTopEndsPeakAndNegativeLobes) {
    const int n = 1001;
    const auto w = build(zrWindowFlatTop, n);
    EXPECT_NEAR(w[0], 0.0, 1e-6);
    EXPECT_NEAR(w[n - 1], 0.0, 1e-6);
    EXPECT_NEAR(w[n / 2], 4.636, 1e-6);
    EXPECT_LT(*std::min_element(w.begin(), w.begin() + n / 4), -0.01);
    // Single-precision cosines: differs from a double evaluation by no more
    // than f32 argument rounding allows.
    double maxDiff = 0;
    for (int i = 0; i < n; ++i) {
        const double x = M_PI * i / (n - 1);
        const double exact = 1 - 1.93 * std::cos(2 * x) + 1.29 * std::cos(4 * x) -
                             0.388 * std::cos(6 * x) + 0.028 * std::cos(8 * x);
        maxDiff = std::max(maxDiff, std::abs(exact - w[size_t(i)]));
    }
    EXPECT_GT(maxDiff, 0.0);
    EXPECT_LT(maxDiff, 1e-5);
}

TEST(Window, NuttallAndBlackmanShape) {
    for (int kind : {zrWindowNuttall, zrWindowBlackman}) {
        const auto w = build(kind, 257);
        EXPECT_NEAR(w[128], 1.0, 1e-6) << kind;
        for (int i = 0; i < 257; ++i) EXPECT_NEAR(w[size_t(i)], w[size_t(256 - i)], 1e-6) << kind;
    }
    EXPECT_NEAR(build(zrWindowNuttall, 257)[0], 0.355768 - 0.487396 + 0.144232 - 0.012604, 1e-7);
    EXPECT_NEAR(build(zrWindowBlackman, 257)[0], 0.42659 - 0.49656 + 0.076849, 1e-15);
}

TEST(Window, ConfinedGaussianEndsCentreSymmetry) {
    const int n = 1000;
    const auto w = build(zrWindowGaussian, n);
    EXPECT_NEAR(w[0], 4.83e-5, 0.01e-5);
    EXPECT_NEAR(w[n - 1], 4.83e-5, 0.01e-5);
    EXPECT_NEAR(w[n / 2], 0.99999375, 1e-7);
    for (int i = 0; i < n; ++i) EXPECT_NEAR(w[size_t(i)], w[size_t(n - 1 - i)], 1e-12);
}

TEST(Window, NarrowedFormsMatchTheDoubleBuild) {
    for (int kind : {0, 2, 3, 4, 5, 6}) {
        const auto w = build(kind, 333);
        std::vector<float> r(333);
        std::vector<cf32> c(333);
        buildWindowReal(kind, r.data(), 333);
        buildWindowComplex(kind, c.data(), 333);
        for (size_t i = 0; i < 333; ++i) {
            EXPECT_EQ(r[i], float(w[i]));
            EXPECT_EQ(c[i], cf32(float(w[i]), 0.0f));
        }
    }
}

}  // namespace
}  // namespace zr
