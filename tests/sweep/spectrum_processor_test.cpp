// Detectors, video units, conversions, the spur merge and the step gain of
// the sweep's spectrum arithmetic.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "device/device.h"
#include "sweep/spectrum_processor.h"

namespace zr {
namespace {

SweepPlan planOf(int fftSize, int windowSize, int fftCount, double vbwRatio) {
    SweepPlan p;
    p.fftSize = fftSize;
    p.windowSize = windowSize;
    p.zeroPad = fftSize - windowSize;
    p.fftCount = fftCount;
    p.vbwRatio = vbwRatio;
    return p;
}

ZrSweepSettings settingsOf(ZrDetector det, ZrVideoUnits units, ZrScale scale, ZrWindowType w) {
    ZrSweepSettings s = defaultSweepSettings();
    s.detector = det;
    s.videoUnits = units;
    s.scale = scale;
    s.window = w;
    return s;
}

std::vector<cf32> noise(size_t n, uint32_t seed) {
    std::mt19937 rng(seed);
    std::normal_distribution<float> d(0.0f, 0.3f);
    std::vector<cf32> v(n);
    for (auto& x : v) x = cf32(d(rng), d(rng));
    return v;
}

// Single log-video FFTs of the pass, for the detector references.
std::vector<std::vector<float>> singleFFTs(const std::vector<cf32>& s, const SweepPlan& p, ZrWindowType w) {
    SpectrumFFT fft(w, p.windowSize, p.fftSize, zrVideoLog);
    std::vector<std::vector<float>> out;
    for (int i = 0; i < p.fftCount; ++i) {
        out.emplace_back(size_t(p.fftSize));
        fft.transform(s.data() + size_t(i) * (p.fftSize / 4), out.back().data());
    }
    return out;
}

// The window is normalised to a sum of fftSize, zero padding included.
TEST(SpectrumFFT, ToneAtBinCentreReadsItsLevelForEveryWindowAndSize) {
    for (int n : {32, 256, 4096}) {
        for (ZrWindowType w : {zrWindowRect, zrWindowFlatTop, zrWindowNuttall}) {
            const int bin = n / 8;
            const float amp = std::sqrt(0.1f);  // -10 dBFS
            std::vector<cf32> s(static_cast<size_t>(n));
            for (int k = 0; k < n; ++k) s[k] = std::polar(amp, float(2 * M_PI * double(bin) * k / n));
            SpectrumFFT fft(w, n - n / 8, n, zrVideoLog);
            std::vector<float> out(static_cast<size_t>(n));
            fft.transform(s.data(), out.data());
            // Halves swapped: zero frequency at n / 2.
            EXPECT_NEAR(out[n / 2 + bin], -10.0f, 0.02f) << "n " << n << " window " << w;
            EXPECT_EQ(std::max_element(out.begin(), out.end()) - out.begin(), n / 2 + bin);
        }
    }
}

TEST(SpectrumProcessor, Detectors) {
    const SweepPlan nine = planOf(64, 60, 9, 1.0);
    const auto s = noise(64 * 4, 7);

    // Sample video: one FFT only, so extra FFTs change nothing; min == max.
    {
        const auto settings = settingsOf(zrDetectorMinMax, zrVideoSample, zrScaleLog, zrWindowNuttall);
        SpectrumProcessor p9(settings, nine), p1(settings, planOf(64, 60, 1, 1.0));
        std::vector<float> mn9(64), mx9(64), mn1(64), mx1(64);
        p9.processPass(s.data(), mn9.data(), mx9.data());
        p1.processPass(s.data(), mn1.data(), mx1.data());
        EXPECT_EQ(mn9, mx9);
        EXPECT_EQ(mn9, mn1);
    }
    const auto singles = singleFFTs(s, nine, zrWindowNuttall);
    // Average detector in log video averages decibels; min == max.
    {
        SpectrumProcessor p(settingsOf(zrDetectorAverage, zrVideoLog, zrScaleLog, zrWindowNuttall), nine);
        std::vector<float> mn(64), mx(64);
        p.processPass(s.data(), mn.data(), mx.data());
        EXPECT_EQ(mn, mx);
        for (int b = 0; b < 64; ++b) {
            double mean = 0.0;
            for (const auto& f : singles) mean += f[b];
            EXPECT_NEAR(mn[b], mean / 9.0, 1e-3);
        }
    }
    // Min-max with VBW = RBW: every FFT is an update.
    {
        SpectrumProcessor p(settingsOf(zrDetectorMinMax, zrVideoLog, zrScaleLog, zrWindowNuttall), nine);
        std::vector<float> mn(64), mx(64);
        p.processPass(s.data(), mn.data(), mx.data());
        for (int b = 0; b < 64; ++b) {
            float lo = singles[0][b], hi = singles[0][b];
            for (const auto& f : singles) lo = std::min(lo, f[b]), hi = std::max(hi, f[b]);
            EXPECT_FLOAT_EQ(mn[b], lo);
            EXPECT_FLOAT_EQ(mx[b], hi);
        }
    }
    // Min-max with r = 0.25 and four FFTs: three prime the mean, the fourth
    // is the sole update.
    {
        const SweepPlan four = planOf(64, 60, 4, 0.25);
        const auto x = singleFFTs(s, four, zrWindowNuttall);
        SpectrumProcessor p(settingsOf(zrDetectorMinMax, zrVideoLog, zrScaleLog, zrWindowNuttall), four);
        std::vector<float> mn(64), mx(64);
        p.processPass(s.data(), mn.data(), mx.data());
        EXPECT_EQ(mn, mx);
        for (int b = 0; b < 64; ++b) {
            const double mean3 = (double(x[0][b]) + x[1][b] + x[2][b]) / 3.0;
            EXPECT_NEAR(mn[b], mean3 * 0.75 + x[3][b] * 0.25, 1e-3);
        }
    }
}

TEST(SpectrumProcessor, ConversionsToScaleAndUnits) {
    struct Case {
        ZrVideoUnits units;
        ZrScale scale;
        float in, out;
    };
    const Case cases[] = {
        {zrVideoLog, zrScaleLin, -46.9897f, 1.0f},    // 1 mV
        {zrVideoLog, zrScaleLog, -12.0f, -12.0f},
        {zrVideoVoltage, zrScaleLog, 0.1f, -20.0f},   // dB of the square
        {zrVideoVoltage, zrScaleLin, 0.5f, 111.8f},   // against 223.6 mV full scale
        {zrVideoPower, zrScaleLog, 0.01f, -20.0f},
        {zrVideoPower, zrScaleLin, 0.25f, 111.8f},    // the root in millivolts
        {zrVideoSample, zrScaleLog, 0.01f, -20.0f},
    };
    for (const Case& c : cases) {
        SpectrumProcessor p(settingsOf(zrDetectorAverage, c.units, c.scale, zrWindowRect), planOf(32, 32, 1, 1.0));
        std::vector<float> x(32, c.in);
        p.convert(x.data());
        EXPECT_NEAR(x[7], c.out, 1e-3f) << "units " << c.units << " scale " << c.scale;
    }
}

TEST(SpectrumProcessor, SpurMergeSumsOnlyNeighboursInsideTheRange) {
    const int n = 32;
    for (ZrScale scale : {zrScaleLin, zrScaleLog}) {
        SpectrumProcessor p(settingsOf(zrDetectorAverage, zrVideoPower, scale, zrWindowRect), planOf(n, n, 1, 1));
        auto level = [&](double lin) { return scale == zrScaleLog ? float(10.0 * std::log10(lin)) : float(lin); };
        std::vector<float> a(n), b(n), c(n), d(n);
        for (int i = 0; i < n; ++i) {
            c[i] = level(1.0);
            d[i] = level(0.5);
            b[i] = level(0.25);
        }
        // Edge bins have three or four neighbours in range: 2.9 beats 3 only
        // if a neighbour outside were summed (it is not), 3.1 beats it.
        for (int i = 0; i < n; ++i) a[i] = level(4.5);  // below the interior sum of 5
        a[0] = level(2.9);
        a[1] = level(3.9);
        a[n - 1] = level(3.1);
        a[n - 2] = level(4.1);
        a[10] = level(5.5);
        p.mergePasses(a.data(), b.data(), c.data(), d.data(), 0, n);
        auto replaced = [&](int i) { return std::fabs(a[i] - level(1.0)) < 1e-3 && std::fabs(b[i] - level(0.5)) < 1e-3; };
        EXPECT_FALSE(replaced(0));
        EXPECT_FALSE(replaced(1));
        EXPECT_TRUE(replaced(n - 1));
        EXPECT_TRUE(replaced(n - 2));
        EXPECT_TRUE(replaced(10));
        EXPECT_FALSE(replaced(11));
        EXPECT_NEAR(c[3], level(1.0), 1e-4);  // the second pass comes back in its units
    }
}

TEST(SpectrumProcessor, StepGainAndBinCorrection) {
    SweepStep step;
    step.gainDb = 6.0f;
    step.hasBinCorrection = true;
    step.binCorrection.assign(4, 0.0f);
    step.binCorrection[2] = -3.0f;
    std::vector<float> mn{1, 1, 1, 1}, mx{2, 2, 2, 2};
    applyStepGain(step, zrScaleLog, mn.data(), mx.data(), 4);
    EXPECT_FLOAT_EQ(mn[0], 7.0f);
    EXPECT_FLOAT_EQ(mx[2], 5.0f);

    step.binCorrection.assign(4, 1.0f);
    step.binCorrection[1] = 0.5f;
    mn = {1, 1, 1, 1};
    mx = {2, 2, 2, 2};
    applyStepGain(step, zrScaleLin, mn.data(), mx.data(), 4);
    EXPECT_NEAR(mn[0], 1.9952623f, 1e-5f);
    EXPECT_NEAR(mx[1], 1.9952623f, 1e-5f);
}

}  // namespace
}  // namespace zr
