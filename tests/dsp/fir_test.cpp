// FIR filters against a plain double-precision convolution over the whole
// stream, fed in arbitrary block splits so that delay-line handling across
// calls (and across overlap-save segments inside a call) is exercised.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "dsp/dsp.h"
#include "dsp/filters.h"
#include "dsp_test_util.h"

namespace zr {
namespace {

template <class T>
std::vector<std::complex<double>> convolve(const std::vector<T>& x, const std::vector<T>& h) {
    std::vector<std::complex<double>> y(x.size());
    for (size_t n = 0; n < x.size(); ++n) {
        std::complex<double> acc = 0;
        for (size_t k = 0; k < h.size() && k <= n; ++k)
            acc += std::complex<double>(h[k]) * std::complex<double>(x[n - k]);
        y[n] = acc;
    }
    return y;
}

// Block lengths that wander from 1 to well over an overlap-save segment.
std::vector<int> splits(int total, uint32_t seed) {
    std::mt19937 rng(seed);
    std::uniform_int_distribution<int> d(1, 9000);
    std::vector<int> out;
    out.push_back(1);
    int used = 1;
    while (used < total) {
        const int b = std::min(total - used, d(rng) % 3 == 0 ? d(rng) % 17 + 1 : d(rng));
        out.push_back(b);
        used += b;
    }
    return out;
}

template <class T>
double maxRelError(const std::vector<T>& got, const std::vector<std::complex<double>>& ref) {
    double err = 0, peak = 0;
    for (size_t i = 0; i < ref.size(); ++i) {
        err = std::max(err, std::abs(std::complex<double>(got[i]) - ref[i]));
        peak = std::max(peak, std::abs(ref[i]));
    }
    return err / peak;
}

std::vector<cf32> randomTaps(int len, uint32_t seed) {
    auto t = test::randomComplex(size_t(len), seed);
    for (auto& v : t) v *= 1.0f / std::sqrt(float(len));
    return t;
}

class FirComplexKernels : public ::testing::TestWithParam<std::tuple<int, bool>> {
  protected:
    void SetUp() override {
        if (!std::get<1>(GetParam()) && !(dspGetCpuFeatures() & kCpuAvx2Fma)) GTEST_SKIP();
        dspForcePortable(std::get<1>(GetParam()));
    }
    void TearDown() override { dspForcePortable(false); }
};

TEST_P(FirComplexKernels, StreamInBlocksMatchesDirectConvolution) {
    const int taps = std::get<0>(GetParam());
    const auto h = randomTaps(taps, 11 + taps);
    const auto x = test::randomComplex(40000, 3 + taps);
    const auto ref = convolve(x, h);
    FirFilterComplex f;
    ASSERT_TRUE(f.Setup(h.data(), taps));
    EXPECT_EQ(f.usesFFT(), taps >= 128);
    std::vector<cf32> y(x.size());
    size_t off = 0;
    for (int b : splits(int(x.size()), uint32_t(taps))) {
        f.Filter(x.data() + off, y.data() + off, b);
        off += size_t(b);
    }
    EXPECT_LE(maxRelError(y, ref), 2e-5) << taps << " taps";
    // In place, one call, after Setup on the used object clears its state.
    ASSERT_TRUE(f.Setup(h.data(), taps));
    std::vector<cf32> z = x;
    f.Filter(z.data(), z.data(), int(z.size()));
    EXPECT_LE(maxRelError(z, ref), 2e-5) << taps << " taps in place";
}

INSTANTIATE_TEST_SUITE_P(Lengths, FirComplexKernels,
                         ::testing::Combine(::testing::Values(5, 65, 127, 1024, 2049),
                                            ::testing::Values(true, false)),
                         [](const auto& info) {
                             return std::to_string(std::get<0>(info.param)) +
                                    (std::get<1>(info.param) ? "Portable" : "Wide");
                         });

TEST(FirPrimitive, TwoHalvesEqualOneCallOnBothPaths) {
    // The same taps forced direct and forced overlap-save, half blocks against
    // a whole block: all four must agree to float rounding.
    const int len = 300;
    const auto h = randomTaps(len, 5);
    const auto x = test::randomComplex(5000, 6);
    int specSize = 0, bufSize = 0;
    ASSERT_EQ(dspFIRGetSize(len, kFirComplex32, specSize, bufSize), 0);
    std::vector<std::vector<cf32>> outs;
    for (int algorithm : {1, 2}) {
        test::DspBuffer spec{size_t(specSize)}, buf{size_t(bufSize)};
        ASSERT_EQ(dspFIRInitComplex(h.data(), len, algorithm, spec.p), 0);
        EXPECT_EQ(dspFIRUsesFFT(spec.p), algorithm == 2);
        std::vector<cf32> dly(len - 1), whole(x.size()), halves(x.size());
        dspFIRFilterComplex(x.data(), whole.data(), 5000, spec.p, dly.data(), dly.data(), buf.p);
        std::fill(dly.begin(), dly.end(), cf32{});
        dspFIRFilterComplex(x.data(), halves.data(), 2500, spec.p, dly.data(), dly.data(), buf.p);
        dspFIRFilterComplex(x.data() + 2500, halves.data() + 2500, 2500, spec.p, dly.data(),
                            dly.data(), buf.p);
        for (size_t i = 0; i < x.size(); ++i) EXPECT_LT(std::abs(whole[i] - halves[i]), 1e-5f);
        outs.push_back(whole);
    }
    for (size_t i = 0; i < x.size(); ++i) EXPECT_LT(std::abs(outs[0][i] - outs[1][i]), 1e-5f);
}

TEST(FirReal, ShortAndLongMatchConvolution) {
    std::mt19937 rng(9);
    std::uniform_real_distribution<float> d(-1, 1);
    for (int taps : {17, 1024, 2049}) {
        std::vector<float> h(static_cast<size_t>(taps)), x(30000);
        for (auto& v : h) v = d(rng) / std::sqrt(float(taps));
        for (auto& v : x) v = d(rng);
        const auto ref = convolve(x, h);
        FirFilterReal f;
        ASSERT_TRUE(f.Setup(h.data(), taps));
        std::vector<float> y(x.size());
        size_t off = 0;
        for (int b : splits(int(x.size()), uint32_t(taps) + 1)) {
            f.Filter(x.data() + off, y.data() + off, b);
            off += size_t(b);
        }
        EXPECT_LE(maxRelError(y, ref), 2e-5) << taps;
    }
}

TEST(Fir64, MatchesConvolutionToDoublePrecision) {
    std::mt19937 rng(10);
    std::uniform_real_distribution<double> d(-1, 1);
    std::vector<double> h(101), x(5000);
    for (auto& v : h) v = d(rng);
    for (auto& v : x) v = d(rng);
    const auto ref = convolve(x, h);
    FirFilter64 f;
    ASSERT_TRUE(f.Setup(h.data(), 101));
    std::vector<double> y(x.size());
    size_t off = 0;
    for (int b : splits(int(x.size()), 77)) {
        f.Filter(x.data() + off, y.data() + off, b);
        off += size_t(b);
    }
    EXPECT_LE(maxRelError(y, ref), 1e-13);
}

TEST(FirObjects, DefaultIsEmptyAndFilterIsHarmless) {
    FirFilterComplex f;
    EXPECT_TRUE(f.empty());
    cf32 v{1, 2};
    f.Filter(&v, &v, 1);
    EXPECT_EQ(v, cf32(1, 2));
}

// ---- low-pass design ------------------------------------------------------------

double responseAt(const std::vector<double>& h, double f) {
    std::complex<double> acc = 0;
    for (size_t k = 0; k < h.size(); ++k) acc += h[k] * std::polar(1.0, -2 * M_PI * f * double(k));
    return std::abs(acc);
}

TEST(DesignLowPass, UnityDCSymmetricHalfAmplitudeAtCutoff) {
    for (int len : {33, 64, 1024, 2049}) {
        for (float cutoff : {0.05f, 0.125f, 0.3f}) {
            std::vector<double> h(static_cast<size_t>(len));
            DesignLowPass(h.data(), len, cutoff, 1);
            double sum = 0;
            for (double v : h) sum += v;
            EXPECT_NEAR(sum, 1.0, 1e-12);
            for (int k = 0; k < len; ++k) EXPECT_NEAR(h[size_t(k)], h[size_t(len - 1 - k)], 1e-15);
            // A windowed sinc crosses half amplitude at its cut-off ...
            EXPECT_NEAR(responseAt(h, cutoff), 0.5, len >= 1024 ? 0.01 : 0.08) << len << " " << cutoff;
            // ... and the Blackman window keeps the stop band deep.
            if (len >= 1024) EXPECT_LT(responseAt(h, cutoff + 0.02), 1e-4) << len << " " << cutoff;
        }
    }
}

TEST(DesignLowPass, RefusalLeavesTapsUntouched) {
    std::vector<double> h(16, 7.0);
    DesignLowPass(h.data(), 16, 0.6f, 1);
    DesignLowPass(h.data(), 4, 0.1f, 1);
    for (double v : h) EXPECT_EQ(v, 7.0);
    std::vector<cf32> hc(16, cf32(3, 3));
    DesignLowPassComplex(hc.data(), 16, -0.1f);
    for (auto v : hc) EXPECT_EQ(v, cf32(3, 3));
    std::vector<float> hr(33);
    DesignLowPassReal(hr.data(), 33, 0.2f);
    std::vector<double> hd(33);
    DesignLowPass(hd.data(), 33, 0.2f, 1);
    for (int i = 0; i < 33; ++i) EXPECT_EQ(hr[size_t(i)], float(hd[size_t(i)]));
}

}  // namespace
}  // namespace zr
