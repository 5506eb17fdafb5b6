// Known answers of the vector primitives: conversion saturation and rounding,
// down-sampling phase carry, tone continuity and the small helpers.
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <numeric>
#include <vector>

#include "dsp/dsp.h"

namespace zr {
namespace {

TEST(DspConvert, SixteenBitToFloatFullScale) {
    const int16_t src[4] = {-32768, 32767, 0, 16384};
    float dst[4];
    dspConvert16sTo32fScaled(src, dst, 4, 15);
    EXPECT_EQ(dst[0], -1.0f);
    EXPECT_NEAR(dst[1], 0.999969f, 1e-6f);
    EXPECT_EQ(dst[2], 0.0f);
    EXPECT_EQ(dst[3], 0.5f);
}

TEST(DspConvert, FloatToSixteenBitSaturatesAndRounds) {
    const float one = 1.0f / 32768.0f;
    const float src[8] = {1.5f, -1.5f, 0.5f * one, -0.5f * one, 1.49f * one, 2.5f * one, -2.5f * one, NAN};
    int16_t dst[8];
    dspConvert32fTo16sScaled(src, dst, 8, 1, -15);
    EXPECT_EQ(dst[0], 32767);
    EXPECT_EQ(dst[1], -32768);
    // Halves round upwards: floor(x + 0.5).
    EXPECT_EQ(dst[2], 1);
    EXPECT_EQ(dst[3], 0);
    EXPECT_EQ(dst[4], 1);
    EXPECT_EQ(dst[5], 3);
    EXPECT_EQ(dst[6], -2);
    EXPECT_EQ(dst[7], 0);
}

TEST(DspConvert, FloatToInt32WindowTables) {
    // Window tables go to the instrument as round(w * 2^17), saturated.
    const float src[4] = {1.0f, 0.25f, -0.5f, 1.0e6f};
    int32_t dst[4];
    dspConvert32fTo32sScaled(src, dst, 4, 1, -17);
    EXPECT_EQ(dst[0], 131072);
    EXPECT_EQ(dst[1], 32768);
    EXPECT_EQ(dst[2], -65536);
    EXPECT_EQ(dst[3], INT32_MAX);
}

TEST(DspConvert, Int16MultiplySaturates) {
    int16_t v[4] = {1000, -1000, 9000, -9000};
    dspMulCInt16InPlace(4, v, 4);
    EXPECT_EQ(v[0], 4000);
    EXPECT_EQ(v[1], -4000);
    EXPECT_EQ(v[2], 32767);
    EXPECT_EQ(v[3], -32768);
}

TEST(DspSampleDown, PhaseCarriesIntoNextBlock) {
    std::vector<cf32> src(10);
    for (int i = 0; i < 10; ++i) src[size_t(i)] = cf32(float(i), -float(i));
    std::vector<cf32> dst(10);
    int n = 0, phase = 2;
    dspSampleDownComplex(src.data(), 10, dst.data(), n, 3, phase);
    ASSERT_EQ(n, 3);
    EXPECT_EQ(dst[0], src[2]);
    EXPECT_EQ(dst[1], src[5]);
    EXPECT_EQ(dst[2], src[8]);
    EXPECT_EQ(phase, 1);
}

TEST(DspSampleDown, BlockSplitsMatchOnePass) {
    std::vector<float> src(1000);
    std::iota(src.begin(), src.end(), 0.0f);
    for (int factor : {1, 2, 7, 32}) {
        std::vector<float> whole(1000), parts(1000);
        int nWhole = 0, phase = 0;
        dspSampleDown(src.data(), 1000, whole.data(), nWhole, factor, phase);
        int total = 0;
        phase = 0;
        for (int off = 0, blk = 1; off < 1000; off += blk, blk = blk * 3 % 97 + 1) {
            const int len = std::min(blk, 1000 - off);
            int n = 0;
            dspSampleDown(src.data() + off, len, parts.data() + total, n, factor, phase);
            total += n;
        }
        ASSERT_EQ(total, nWhole) << factor;
        for (int i = 0; i < total; ++i) EXPECT_EQ(parts[size_t(i)], whole[size_t(i)]);
    }
}

TEST(DspTone, BlocksContinueThePhase) {
    const double f = 0.123456;
    std::vector<cf64> whole(3000), parts(3000);
    double phase = 0.3;
    dspToneComplex64(whole.data(), 3000, 2.0, f, phase, 1);
    phase = 0.3;
    dspToneComplex64(parts.data(), 1000, 2.0, f, phase, 1);
    dspToneComplex64(parts.data() + 1000, 2000, 2.0, f, phase, 1);
    for (size_t i = 0; i < 3000; ++i) {
        EXPECT_NEAR(std::abs(parts[i] - whole[i]), 0.0, 1e-9) << i;
        EXPECT_NEAR(std::abs(whole[i]), 2.0, 1e-12);
    }
    EXPECT_GE(phase, 0.0);
    EXPECT_LT(phase, 2 * M_PI);
}

TEST(DspElementwise, ComplexHelpersAndReductions) {
    const cf32 a[3] = {{3, 4}, {-1, 0}, {0, -2}};
    const cf32 b[3] = {{1, 1}, {2, -3}, {0.5f, 0.5f}};
    cf32 prod[3];
    float mag[3], pwr[3], ph[3];
    dspMulComplex(a, b, prod, 3);
    dspMagnitude(a, mag, 3);
    dspPowerSpectrum(a, pwr, 3);
    dspPhaseComplex(a, ph, 3);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(prod[i], a[i] * b[i]);
        EXPECT_FLOAT_EQ(mag[i], std::abs(a[i]));
        EXPECT_FLOAT_EQ(pwr[i], std::norm(a[i]));
        EXPECT_FLOAT_EQ(ph[i], std::arg(a[i]));
    }
    // Accurate summation: many small values after a large one.
    std::vector<float> v(100001, 1.0e-4f);
    v[0] = 1.0e4f;
    float s = 0;
    dspSum(v.data(), int(v.size()), s, 2);
    EXPECT_NEAR(s, 1.0e4f + 10.0f, 1e-3f);
    float mx = 0;
    std::vector<float> neg = {-5.0f, -3.0f, -7.0f};
    dspMax(neg.data(), 3, mx);
    EXPECT_EQ(mx, -3.0f);
    std::vector<float> minTrace(4);
    dspSet(FLT_MAX, minTrace.data(), 4);
    dspMinEvery(minTrace.data(), neg.data(), minTrace.data(), 3);
    EXPECT_EQ(minTrace[2], -7.0f);
    EXPECT_EQ(minTrace[3], FLT_MAX);
    int32_t x[2] = {5, -7}, y[2] = {10, 10}, d[2];
    dspSubInt(x, y, d, 2, 0);
    EXPECT_EQ(d[0], 5);
    EXPECT_EQ(d[1], 17);
}

TEST(DspTranspose, RowsBecomeColumnsWithStrides) {
    // 3 wide, 2 high, source rows padded to 4 floats.
    const float src[8] = {1, 2, 3, -1, 4, 5, 6, -1};
    float dst[6] = {};
    dspTranspose32f(src, 4 * sizeof(float), dst, 2 * sizeof(float), 3, 2);
    const float expect[6] = {1, 4, 2, 5, 3, 6};
    for (int i = 0; i < 6; ++i) EXPECT_EQ(dst[i], expect[i]);
}

TEST(DspWindow, BlackmanStdEndsAndCentre) {
    std::vector<double> w(9, 2.0);
    dspWinBlackmanStd64f(w.data(), 9);
    EXPECT_NEAR(w[0], 0.0, 1e-15);
    EXPECT_NEAR(w[8], 0.0, 1e-15);
    EXPECT_NEAR(w[4], 2.0, 1e-15);  // 0.42 + 0.5 + 0.08 = 1 at the centre
    EXPECT_NEAR(w[2], w[6], 1e-15);
}

TEST(DspMemory, MallocIsAlignedForWideVectors) {
    for (size_t n : {1u, 3u, 64u, 1000u}) {
        void* p = dspMalloc(n);
        ASSERT_NE(p, nullptr);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % 32, 0u);
        dspFree(p);
    }
}

TEST(DspCpu, FeatureBitsAreConsistent) {
    const uint64_t f = dspGetCpuFeatures();
    if (f & kCpuAvx2Fma) EXPECT_TRUE(f & kCpuAvx);
    dspInit();
    if (dspWideKernelsActive()) {
        EXPECT_TRUE(f & kCpuAvx2Fma);
        EXPECT_TRUE(f & kCpuOsWideRegs);
    }
}

}  // namespace
}  // namespace zr
