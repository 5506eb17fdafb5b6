// The complex oscillator (wrapping, chunking of the fast generator, the
// relFreq 1.0 rule) and the polyphase resampler behind zrSegIQLTEResample.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "arb_resample.h"
#include "dsp/filters.h"
#include "zr_api.h"

namespace zr {
namespace {

TEST(ComplexOscillator, RelFreqWrapping) {
    EXPECT_EQ(ComplexOscillator::WrapRelFreq(-0.25), 0.75);
    EXPECT_EQ(ComplexOscillator::WrapRelFreq(1.5), 1.0);
    EXPECT_EQ(ComplexOscillator::WrapRelFreq(-1.5), 0.0);
    EXPECT_EQ(ComplexOscillator::WrapRelFreq(0.3), 0.3);
    ComplexOscillator osc;
    EXPECT_EQ(osc.precise, 1);
    EXPECT_EQ(osc.relFreq, 0.0);
    osc.Configure(-0.25, 16, false);
    EXPECT_EQ(osc.relFreq, 0.75);
    EXPECT_EQ(osc.tone32.size(), 16u);
}

TEST(ComplexOscillator, FastGeneratorWritesExactlyNSamples) {
    for (int n : {1, 5, 8, 9, 15, 16, 23}) {
        ComplexOscillator osc;
        osc.Configure(0.1, 64, false);
        const cf32 sentinel(99.0f, -99.0f);
        std::fill(osc.tone32.begin(), osc.tone32.end(), sentinel);
        osc.Generate(n);
        for (int i = 0; i < n; ++i) {
            const double a = 2 * M_PI * 0.1 * i;
            EXPECT_NEAR(osc.tone32[size_t(i)].real(), std::cos(a), 1e-6) << n << " " << i;
            EXPECT_NEAR(osc.tone32[size_t(i)].imag(), std::sin(a), 1e-6) << n << " " << i;
        }
        EXPECT_EQ(osc.tone32[size_t(n)], sentinel) << n;
    }
}

TEST(ComplexOscillator, FastGeneratorRestartsEachChunkFromThePhase) {
    const double f = 0.0123456789;
    ComplexOscillator osc;
    osc.Configure(f, 1027, false);
    osc.Generate(1027);
    // The second chunk (3 samples) starts from the double phase after 1024.
    const double phase1 = std::fmod(1024.0 * (f * 2 * M_PI) + 0.0, 2 * M_PI);
    EXPECT_EQ(osc.tone32[1024], cf32(float(std::cos(phase1)), float(std::sin(phase1))));
    EXPECT_NEAR(osc.phase, std::fmod(3.0 * (f * 2 * M_PI) + phase1, 2 * M_PI), 1e-12);
    // Float recurrences stay close to the exact tone within a chunk.
    double worst = 0;
    for (int i = 0; i < 1027; ++i) {
        const double a = 2 * M_PI * f * i;
        worst = std::max(worst, std::abs(std::complex<double>(osc.tone32[size_t(i)]) -
                                         std::polar(1.0, a)));
    }
    EXPECT_LT(worst, 2e-4);
    // Phase carries over to the next call.
    osc.Generate(10);
    const double a = 2 * M_PI * f * 1027;
    EXPECT_NEAR(osc.tone32[0].real(), std::cos(a), 1e-6);
    EXPECT_NEAR(osc.tone32[0].imag(), std::sin(a), 1e-6);
}

TEST(ComplexOscillator, PreciseGeneratorAndApply) {
    ComplexOscillator osc;
    osc.Configure(0.3, 500, true);
    std::vector<cf32> src(500, cf32(2.0f, 0.0f)), dst(500);
    osc.Apply(src.data(), dst.data(), 500);
    osc.Apply(src.data(), dst.data(), 500);  // second block continues
    for (int i = 0; i < 500; ++i) {
        const double a = 2 * M_PI * 0.3 * (500 + i);
        EXPECT_NEAR(dst[size_t(i)].real(), 2 * std::cos(a), 1e-5);
        EXPECT_NEAR(dst[size_t(i)].imag(), 2 * std::sin(a), 1e-5);
    }
    ComplexOscillator one;
    one.Configure(1.0, 8, true);
    std::vector<cf32> s(8, cf32(1, 1)), d(8, cf32(-7, -7));
    one.Apply(s.data(), d.data(), 8);
    for (auto v : d) EXPECT_EQ(v, cf32(-7, -7));
}

// ---- resampler ------------------------------------------------------------------

TEST(ArbResampler, TruncatedBesselSeries) {
    EXPECT_EQ(arbBesselI0(0.0), 1.0);
    // Close to the true function for small arguments ...
    EXPECT_NEAR(arbBesselI0(2.0), std::cyl_bessel_i(0.0, 2.0), 1e-12);
    // ... and well short of it at the Kaiser parameter in use (9 pi).
    EXPECT_LT(arbBesselI0(9.0 * M_PI), 0.5 * std::cyl_bessel_i(0.0, 9.0 * M_PI));
}

TEST(ArbResampler, PhasesHaveUnityGainAndTheFilterPassesDC) {
    ArbResampler r;
    buildArbResampler(r, 0.98304, 0.7, 9.0);
    ASSERT_EQ(r.phaseTaps.size(), 192u);
    EXPECT_EQ(r.time, 96.0);
    EXPECT_DOUBLE_EQ(r.step, 192.0 / 0.98304);
    for (const auto& v : r.phaseTaps) {
        ASSERT_EQ(v.size(), 33u);
        double s = 0;
        for (float t : v) s += t;
        EXPECT_NEAR(s, 1.0, 1e-6);
    }
    // Phases run backwards through the prototype: the slot-191 phase starts at
    // the prototype's first sample, which sits deep in the window's tail.
    EXPECT_LT(std::abs(r.phaseTaps[191][0]), std::abs(r.phaseTaps[191][16]) * 1e-3);
    std::vector<float> in(2 * 2000, 0.0f), out(2 * 2100);
    for (int i = 0; i < 2000; ++i) in[size_t(2 * i)] = 1.0f, in[size_t(2 * i + 1)] = -0.5f;
    runArbResampler(r, in.data(), 2000, out.data(), 2100);
    const int n = runArbResampler(r, in.data(), 2000, out.data(), 2100);
    for (int i = 0; i < n; ++i) {
        EXPECT_NEAR(out[size_t(2 * i)], 1.0f, 1e-5) << i;
        EXPECT_NEAR(out[size_t(2 * i + 1)], -0.5f, 1e-5) << i;
    }
}

TEST(ArbResampler, AverageRateIs98304Per100000) {
    ArbResampler r;
    buildArbResampler(r, 0.98304, 0.7, 9.0);
    std::vector<float> in(2 * 1000, 0.25f), out(2 * 1100);
    long total = 0;
    const int calls = 250;
    for (int c = 0; c < calls; ++c) total += runArbResampler(r, in.data(), 1000, out.data(), 1100);
    EXPECT_NEAR(double(total) / calls, 983.04, 0.05);
}

TEST(ArbResampler, ToneComesOutAtTheScaledFrequency) {
    ArbResampler r;
    buildArbResampler(r, 0.98304, 0.7, 9.0);
    const double f = 0.01;
    std::vector<float> in(2 * 4000), out(2 * 4100);
    for (int i = 0; i < 4000; ++i) {
        in[size_t(2 * i)] = float(std::cos(2 * M_PI * f * i));
        in[size_t(2 * i + 1)] = float(std::sin(2 * M_PI * f * i));
    }
    const int n = runArbResampler(r, in.data(), 4000, out.data(), 4100);
    // Within the body of the block each output advances by f / ratio cycles.
    for (int i = 100; i + 1 < n - 100; ++i) {
        const std::complex<double> a(out[size_t(2 * i)], out[size_t(2 * i + 1)]);
        const std::complex<double> b(out[size_t(2 * i + 2)], out[size_t(2 * i + 3)]);
        EXPECT_NEAR(std::arg(b / a), 2 * M_PI * f / 0.98304, 1e-4) << i;
        EXPECT_NEAR(std::abs(a), 1.0, 1e-3) << i;
    }
}

// zrSegIQLTEResample shares one resampler: every test starts with a clear and
// compares against a private copy of the shared state run without the skip.
struct SegCall {
    std::vector<float> out;
    int reported;
};

SegCall callExport(std::vector<float>& in, int room, bool clear) {
    SegCall c{std::vector<float>(size_t(2 * room)), room};
    EXPECT_EQ(zrSegIQLTEResample(in.data(), int(in.size() / 2), c.out.data(), &c.reported,
                                 clear ? zrTrue : zrFalse),
              zrNoError);
    return c;
}

std::vector<float> rampInput(int n, float base) {
    std::vector<float> v(size_t(2 * n));
    for (int i = 0; i < n; ++i) {
        v[size_t(2 * i)] = base + 0.001f * float(i);
        v[size_t(2 * i + 1)] = -base;
    }
    return v;
}

TEST(SegIQLTEResample, ArgumentChecks) {
    float buf[200] = {};
    int len = 100;
    EXPECT_EQ(zrSegIQLTEResample(nullptr, 50, buf, &len, zrFalse), zrNullPtrErr);
    EXPECT_EQ(zrSegIQLTEResample(buf, 50, nullptr, &len, zrFalse), zrNullPtrErr);
    EXPECT_EQ(zrSegIQLTEResample(buf, 50, buf, nullptr, zrFalse), zrNullPtrErr);
    // Too short to feed the filter: refused, state kept.
    const ArbResampler before = segIQResampler();
    len = 100;
    EXPECT_EQ(zrSegIQLTEResample(buf, 33, buf + 100, &len, zrTrue), zrInvalidParameterErr);
    EXPECT_EQ(segIQResampler().time, before.time);
    EXPECT_EQ(segIQResampler().history, before.history);
}

TEST(SegIQLTEResample, FirstCallDropsSixteenAndClearRestartsTheSkip) {
    auto in = rampInput(1000, 0.5f);
    // Reference: the same state with the history cleared, run without skip.
    ArbResampler ref = segIQResampler();
    ref.history.fill(0.0f);
    std::vector<float> refOut(2 * 1100);
    const int refN = runArbResampler(ref, in.data(), 1000, refOut.data(), 1100);

    const SegCall first = callExport(in, 1100, true);
    ASSERT_EQ(first.reported, refN - 16);
    for (int i = 0; i < 2 * first.reported; ++i) EXPECT_EQ(first.out[size_t(i)], refOut[size_t(32 + i)]);

    // Later calls keep everything.
    const int refN2 = runArbResampler(ref, in.data(), 1000, refOut.data(), 1100);
    const SegCall second = callExport(in, 1100, false);
    EXPECT_EQ(second.reported, refN2);
    for (int i = 0; i < 2 * second.reported; ++i) EXPECT_EQ(second.out[size_t(i)], refOut[size_t(i)]);

    // A clear in mid-stream drops 16 again, and does not rewind time.
    ArbResampler ref3 = segIQResampler();
    ref3.history.fill(0.0f);
    const int refN3 = runArbResampler(ref3, in.data(), 1000, refOut.data(), 1100);
    const SegCall third = callExport(in, 1100, true);
    EXPECT_EQ(third.reported, refN3 - 16);
    EXPECT_EQ(segIQResampler().time, ref3.time);
}

TEST(SegIQLTEResample, ShortFirstCallCarriesTheRestOfTheSkip) {
    auto in = rampInput(500, 0.25f);
    ArbResampler ref = segIQResampler();
    ref.history.fill(0.0f);
    std::vector<float> refOut(2 * 600);
    runArbResampler(ref, in.data(), 500, refOut.data(), 10);
    const int refNext = runArbResampler(ref, in.data(), 500, refOut.data(), 600);

    const SegCall first = callExport(in, 10, true);  // produces 10, reports 0
    EXPECT_EQ(first.reported, 0);
    const SegCall second = callExport(in, 600, false);  // 6 of the skip remain
    EXPECT_EQ(second.reported, refNext - 6);
    for (int i = 0; i < 2 * second.reported; ++i) EXPECT_EQ(second.out[size_t(i)], refOut[size_t(12 + i)]);
}

}  // namespace
}  // namespace zr
