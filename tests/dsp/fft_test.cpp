// The complex FFT against an independent DFT, plus the algebraic properties
// that catch scaling, ordering and twiddle faults at sizes too large for a
// reference DFT. Every check runs on both kernel sets where the processor has
// the wide one.
#include <gtest/gtest.h>

#include <cmath>
#include <numeric>

#include "dsp/dsp.h"
#include "dsp_test_util.h"

namespace zr {
namespace {

using test::FFTPlan;

double relError(const std::vector<cf32>& got, const std::vector<std::complex<double>>& ref) {
    double num = 0, den = 0;
    for (size_t i = 0; i < ref.size(); ++i) {
        num += std::norm(std::complex<double>(got[i].real(), got[i].imag()) - ref[i]);
        den += std::norm(ref[i]);
    }
    return std::sqrt(num / den);
}

class FFTKernels : public ::testing::TestWithParam<bool> {
  protected:
    void SetUp() override {
        if (!GetParam() && !(dspGetCpuFeatures() & kCpuAvx2Fma)) GTEST_SKIP() << "no AVX2";
        dspForcePortable(GetParam());
    }
    void TearDown() override { dspForcePortable(false); }
};

TEST_P(FFTKernels, MatchesReferenceDFTUpToOrder12) {
    for (int order = 5; order <= 12; ++order) {
        const size_t n = size_t(1) << order;
        FFTPlan plan(order);
        ASSERT_TRUE(plan.ok);
        auto x = test::randomComplex(n, 100 + order);
        const auto ref = test::referenceDFT(x);
        std::vector<cf32> out(n);
        dspFFTForwardComplex(x.data(), out.data(), plan.plan, plan.work->p);  // out of place
        EXPECT_LE(relError(out, ref), 1e-5) << "order " << order;
        dspFFTForwardComplex(x.data(), x.data(), plan.plan, plan.work->p);  // in place
        EXPECT_LE(relError(x, ref), 1e-5) << "order " << order << " in place";
    }
}

TEST_P(FFTKernels, ToneAtBinCentreLandsInThatBinAtLargeSizes) {
    // Spot sizes above the reference DFT's reach: a unit tone must give 1.0
    // in its bin and nothing elsewhere.
    for (int order : {13, 16, 19, 20, 21}) {
        const size_t n = size_t(1) << order;
        FFTPlan plan(order);
        ASSERT_TRUE(plan.ok);
        const size_t bin = n / 3 + 7;
        std::vector<cf32> x(n);
        for (size_t t = 0; t < n; ++t) {
            const double a = 2.0 * M_PI * double((bin * t) % n) / double(n);
            x[t] = cf32(float(std::cos(a)), float(std::sin(a)));
        }
        dspFFTForwardComplex(x.data(), x.data(), plan.plan, plan.work->p);
        double leak = 0;
        for (size_t k = 0; k < n; ++k)
            if (k != bin) leak = std::max(leak, double(std::abs(x[k])));
        EXPECT_NEAR(x[bin].real(), 1.0f, 1e-5) << "order " << order;
        EXPECT_NEAR(x[bin].imag(), 0.0f, 1e-5) << "order " << order;
        EXPECT_LT(leak, 1e-5) << "order " << order;
    }
}

TEST_P(FFTKernels, LinearityAndParsevalAtSpotSizes) {
    for (int order : {5, 6, 11, 14, 17}) {
        const size_t n = size_t(1) << order;
        FFTPlan plan(order);
        ASSERT_TRUE(plan.ok);
        auto a = test::randomComplex(n, 7 * order);
        auto b = test::randomComplex(n, 9 * order + 1);
        const cf32 alpha(0.75f, -0.5f), beta(-1.25f, 0.25f);
        std::vector<cf32> mix(n);
        for (size_t i = 0; i < n; ++i) mix[i] = alpha * a[i] + beta * b[i];
        double energyTime = 0;
        for (auto v : a) energyTime += std::norm(std::complex<double>(v.real(), v.imag()));
        dspFFTForwardComplex(a.data(), a.data(), plan.plan, plan.work->p);
        dspFFTForwardComplex(b.data(), b.data(), plan.plan, plan.work->p);
        dspFFTForwardComplex(mix.data(), mix.data(), plan.plan, plan.work->p);
        double err = 0, mag = 0, energyFreq = 0;
        for (size_t i = 0; i < n; ++i) {
            const std::complex<double> expect =
                std::complex<double>(alpha) * std::complex<double>(a[i]) +
                std::complex<double>(beta) * std::complex<double>(b[i]);
            err += std::norm(std::complex<double>(mix[i]) - expect);
            mag += std::norm(expect);
            energyFreq += std::norm(std::complex<double>(a[i]));
        }
        EXPECT_LE(std::sqrt(err / mag), 1e-5) << "order " << order;
        // With the 1/N forward scale, sum |x|^2 = N * sum |X|^2.
        EXPECT_NEAR(energyFreq * double(n) / energyTime, 1.0, 1e-5) << "order " << order;
    }
}

TEST_P(FFTKernels, InverseUndoesForward) {
    for (int order : {5, 10, 15}) {
        const size_t n = size_t(1) << order;
        FFTPlan plan(order);
        auto x = test::randomComplex(n, 33 + order);
        auto y = x;
        dspFFTForwardComplex(y.data(), y.data(), plan.plan, plan.work->p);
        dspFFTInverseComplex(y.data(), y.data(), plan.plan, plan.work->p);
        double err = 0;
        for (size_t i = 0; i < n; ++i) err = std::max(err, double(std::abs(y[i] - x[i])));
        EXPECT_LT(err, 1e-5) << "order " << order;
    }
}

TEST_P(FFTKernels, LargeSizeSplitAgreesWithWholeArrayPasses) {
    // Large sizes run as a four-step split; the whole-array passes (checked
    // against the reference DFT above) serve as the reference for them.
    for (int order : {16, 21}) {
        const size_t n = size_t(1) << order;
        dspFFTSetSplitOrder(order + 1);
        FFTPlan whole(order);
        dspFFTSetSplitOrder(order);
        FFTPlan split(order);
        dspFFTSetSplitOrder(21);
        ASSERT_TRUE(whole.ok && split.ok);
        auto x = test::randomComplex(n, 1000 + order);
        std::vector<cf32> a(n), b(n);
        dspFFTForwardComplex(x.data(), a.data(), whole.plan, whole.work->p);
        dspFFTForwardComplex(x.data(), x.data(), split.plan, split.work->p);  // in place
        std::vector<std::complex<double>> ref(a.begin(), a.end());
        EXPECT_LE(relError(x, ref), 2e-6) << "order " << order;
    }
}

INSTANTIATE_TEST_SUITE_P(Kernels, FFTKernels, ::testing::Values(true, false),
                         [](const auto& info) { return info.param ? "Portable" : "Wide"; });

TEST(FFTPlanLimits, LargestSizesPlanAndRefusedSizesFail) {
    int s = 0, i = 0, w = 0;
    EXPECT_EQ(dspFFTGetSize(25, 1, 1, s, i, w), 0);
    EXPECT_GE(size_t(w), (size_t(1) << 25) * sizeof(cf32));
    EXPECT_NE(dspFFTGetSize(0, 1, 1, s, i, w), 0);
    EXPECT_NE(dspFFTGetSize(10, 0, 1, s, i, w), 0);
}

TEST(FFTLargest, Order24ToneAndDC) {
    // The narrowest sweep RBW runs at 2^24: check a tone and a DC offset
    // together so both ends of the twiddle tables are exercised.
    const int order = 24;
    const size_t n = size_t(1) << order;
    FFTPlan plan(order);
    ASSERT_TRUE(plan.ok);
    const size_t bin = 5000001;
    std::vector<cf32> x(n);
    for (size_t t = 0; t < n; ++t) {
        const double a = 2.0 * M_PI * double((bin * t) % n) / double(n);
        x[t] = cf32(0.5f + 0.25f * float(std::cos(a)), 0.25f * float(std::sin(a)));
    }
    dspFFTForwardComplex(x.data(), x.data(), plan.plan, plan.work->p);
    EXPECT_NEAR(x[0].real(), 0.5f, 1e-5);
    EXPECT_NEAR(x[bin].real(), 0.25f, 1e-5);
    EXPECT_NEAR(std::abs(x[n - bin]), 0.0f, 1e-5);
    EXPECT_NEAR(std::abs(x[12345]), 0.0f, 1e-5);
}

// ---- real f64 packed --------------------------------------------------------

TEST(FFTRealPacked, Order6LayoutAndRoundTrip) {
    const int order = 6, n = 64;
    int s = 0, i = 0, w = 0;
    ASSERT_EQ(dspFFTRealGetSize(order, 1, 2, s, i, w), 0);
    test::DspBuffer spec{size_t(s)}, work{size_t(w)};
    DspFFTRealSpec* plan = nullptr;
    ASSERT_EQ(dspFFTRealInit(plan, order, 1, 2, spec.p, nullptr), 0);
    std::mt19937 rng(5);
    std::uniform_real_distribution<double> d(-1, 1);
    std::vector<double> x(n), packed(n), back(n);
    for (auto& v : x) v = d(rng);
    dspFFTForwardRealPacked(x.data(), packed.data(), plan, work.p);
    // Independent check of the packed layout: DC, Nyquist, then bins.
    std::vector<std::complex<double>> ref(n);
    for (int k = 0; k < n; ++k) {
        std::complex<double> acc = 0;
        for (int t = 0; t < n; ++t) acc += x[t] * std::polar(1.0, -2.0 * M_PI * double(k * t % n) / n);
        ref[k] = acc / double(n);
    }
    EXPECT_NEAR(packed[0], ref[0].real(), 1e-14);
    EXPECT_NEAR(packed[1], ref[n / 2].real(), 1e-14);
    for (int k = 1; k < n / 2; ++k) {
        EXPECT_NEAR(packed[2 * k], ref[k].real(), 1e-14) << k;
        EXPECT_NEAR(packed[2 * k + 1], ref[k].imag(), 1e-14) << k;
    }
    dspFFTInverseRealPacked(packed.data(), back.data(), plan, work.p);
    for (int t = 0; t < n; ++t) EXPECT_NEAR(back[t], x[t], 1e-13) << t;
}

}  // namespace
}  // namespace zr
