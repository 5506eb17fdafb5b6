// Chebyshev type I designs against reference coefficients, and the IIR filter
// object against a double-precision difference equation.
//
// The reference coefficients were computed once with SciPy 1.10.1
// (scipy.signal.cheby1(order, ripple, 2 * relFreq, btype=...), whose cut-off is
// relative to Nyquist, hence the factor 2) and pasted here as constants.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "dsp/dsp.h"
#include "dsp/filters.h"

namespace zr {
namespace {

struct ChebyReference {
    bool high;
    int order;
    double ripple;
    double relFreq;
    std::vector<double> b, a;
};

const ChebyReference kReferences[] = {
    {false, 4, 0.5, 0.1,
     {0.002477730019945458, 0.009910920079781832, 0.01486638011967275, 0.009910920079781832,
      0.002477730019945458},
     {1.0, -2.914102514963509, 3.5179271910665744, -2.0347429000554063, 0.47291094001011424}},
    {false, 5, 1.0, 0.05,
     {1.0244489965973053e-05, 5.122244982986526e-05, 0.00010244489965973053,
      0.00010244489965973053, 5.122244982986526e-05, 1.0244489965973053e-05},
     {1.0, -4.58787230301895, 8.539921345676825, -8.056010065267941, 3.8494562616729975,
      -0.7451674153840212}},
    {true, 2, 0.5, 0.002,
     {0.9384919185084194, -1.8769838370168388, 0.9384919185084194},
     {1.0, -1.9881503518998818, 0.9882538910154145}},
    {true, 3, 1.0, 0.15,
     {0.32511500961822504, -0.9753450288546751, 0.9753450288546751, -0.32511500961822504},
     {1.0, -0.9605012851946955, 0.6506002444529312, 0.010181452701825546}},
    {false, 1, 3.0, 0.25, {0.5005936176503555, 0.5005936176503555}, {1.0, 0.001187235300710861}},
};

TEST(ChebyshevDesign, MatchesReferenceCoefficients) {
    for (const auto& ref : kReferences) {
        std::vector<double> taps(size_t(2 * ref.order + 2), 0.0);
        int size = 0;
        ASSERT_EQ(dspIIRGenGetBufferSize(ref.order, size), 0);
        std::vector<uint8_t> buf(static_cast<size_t>(size));
        const int rc = ref.high ? dspIIRGenHighpass(ref.relFreq, ref.ripple, ref.order, taps.data(), 1, buf.data())
                                : dspIIRGenLowpass(ref.relFreq, ref.ripple, ref.order, taps.data(), 1, buf.data());
        ASSERT_EQ(rc, 0);
        for (int i = 0; i <= ref.order; ++i) {
            EXPECT_NEAR(taps[size_t(i)], ref.b[size_t(i)], 1e-12 * std::max(1.0, std::abs(ref.b[size_t(i)])))
                << (ref.high ? "high " : "low ") << ref.order << " b" << i;
            EXPECT_NEAR(taps[size_t(ref.order + 1 + i)], ref.a[size_t(i)], 1e-12 * std::max(1.0, std::abs(ref.a[size_t(i)])))
                << (ref.high ? "high " : "low ") << ref.order << " a" << i;
        }
    }
}

TEST(ChebyshevDesign, RefusedArgumentsLeaveTapsUntouched) {
    std::vector<float> taps(10, 42.0f);
    DesignIirLowPass(0.6, 0.5, 4, taps.data());
    DesignIirHighPass(0.0, 0.5, 4, taps.data());
    DesignIirLowPass(0.1, 0.0, 4, taps.data());
    for (float v : taps) EXPECT_EQ(v, 42.0f);
}

TEST(IirFilter, MatchesDifferenceEquationAcrossCalls) {
    std::vector<float> taps(10);
    DesignIirLowPass(0.05, 0.5, 4, taps.data());
    IirFilter f;
    ASSERT_TRUE(f.Setup(taps.data(), 4));
    std::mt19937 rng(1);
    std::uniform_real_distribution<float> d(-1, 1);
    std::vector<float> x(5000);
    for (auto& v : x) v = d(rng);
    // Reference: y[n] = sum b x[n-k] - sum a y[n-k], in double.
    std::vector<double> ref(x.size());
    for (size_t n = 0; n < x.size(); ++n) {
        double acc = 0;
        for (int k = 0; k <= 4; ++k)
            if (n >= size_t(k)) acc += double(taps[size_t(k)]) * x[n - size_t(k)];
        for (int k = 1; k <= 4; ++k)
            if (n >= size_t(k)) acc -= double(taps[size_t(5 + k)]) * ref[n - size_t(k)];
        ref[n] = acc;
    }
    std::vector<float> y = x;
    f.Filter(y.data(), 1234);
    f.Filter(y.data() + 1234, 1);
    f.Filter(y.data() + 1235, int(y.size()) - 1235);
    for (size_t n = 0; n < x.size(); ++n) EXPECT_NEAR(y[n], ref[n], 1e-5) << n;
}

TEST(IirFilter, PassBandGainFollowsOrderParity) {
    // Even orders sit at the bottom of the ripple at DC, odd ones at the top.
    for (int order : {3, 4}) {
        std::vector<float> taps(size_t(2 * order + 2));
        DesignIirLowPass(0.1, 1.0, order, taps.data());
        IirFilter f;
        ASSERT_TRUE(f.Setup(taps.data(), order));
        std::vector<float> step(4000, 1.0f);
        f.Filter(step.data(), 4000);
        const double expect = (order % 2) ? 1.0 : std::pow(10.0, -1.0 / 20.0);
        EXPECT_NEAR(step.back(), expect, 1e-4) << order;
    }
    std::vector<float> taps(8);
    DesignIirHighPass(0.1, 1.0, 3, taps.data());
    IirFilter f;
    ASSERT_TRUE(f.Setup(taps.data(), 3));
    std::vector<float> step(4000, 1.0f);
    f.Filter(step.data(), 4000);
    EXPECT_NEAR(step.back(), 0.0f, 1e-5);  // a high-pass blocks DC
}

}  // namespace
}  // namespace zr
