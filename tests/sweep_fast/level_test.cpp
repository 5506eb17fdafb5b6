// Tones through the fast and narrow engines on simulated instruments whose
// RF path follows the words they are sent: a tone lands on its frequency,
// and with the instrument's factory calibration it reads its power.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "device/device.h"
#include "device/frame.h"
#include "sweep_fast/sim_sweep.h"
#include "zr_api.h"
#include "zr_sim.h"

namespace zr {
namespace {

class FastNarrowLevel : public test::SimSweepTest {
protected:
    void SetUp() override {
        test::SimSweepTest::SetUp();
        if (HasFatalFailure()) return;
        zrSetSweepWindow(handle, zrWindowFlatTop);
        zrSimSetNoiseFloor(kSerial, -155.0);
        // A simulator with only a settable centre cannot be measured through
        // a sweep that steps: it must follow the LO the sweep tunes.
        sweep(5.3e9, 2e6, 1e4);
        if (std::fabs(inst->centerFrequency() - 5.3e9) > 5e7)
            GTEST_SKIP() << "the simulated instrument does not follow its tune";
    }
    // One configured sweep (the span picks the engine); the peak's
    // frequency and level.
    void sweep(double centre, double span, double rbw) {
        zrSetSweepCenterSpan(handle, centre, span);
        zrSetSweepCoupling(handle, rbw, rbw, 0.0);
        ASSERT_GE(zrConfigure(handle, zrModeSweeping), zrNoError);
        int length = 0;
        double start = 0.0;
        zrGetSweepParameters(handle, nullptr, nullptr, &start, &binSize, &length);
        std::vector<float> trace(static_cast<size_t>(length));
        ASSERT_GE(zrGetSweep(handle, nullptr, trace.data(), nullptr), zrNoError);
        const auto peak = std::max_element(trace.begin(), trace.end());
        peakHz = start + double(peak - trace.begin()) * binSize;
        peakDbm = *peak;
    }
    bool factoryCalibrated() {
        const ZrDevice& dev = *lookupDevice(handle);
        // Both working images always exist; the family flag says which is in force.
        if (dev.corrections.isRidge) return dev.corrections.ridge->calDate != 0xFFFFFFFFu;
        return dev.corrections.mesa->calDate != 0xFFFFFFFFu;
    }
    struct Level {
        int atten;
        double refLevel, tone;
    };
    // Two temperatures, each with the automatic and a fixed attenuator.
    template <class F>
    void eachCondition(F&& body) {
        for (float celsius : {25.0f, 50.0f}) {
            zrSimSetTemperature(kSerial, celsius);
            for (const Level lv : {Level{-1, -20.0, -30.0}, Level{2, 0.0, -5.0}}) {
                zrSetAttenuator(handle, lv.atten);
                zrSetRefLevel(handle, lv.refLevel);
                body(lv, celsius);
            }
        }
    }
    std::vector<double> frequencies() const {
        std::vector<double> f{4.5e7, 3.3e8, 1.0173e9, 5.31e9, 13.1e9};
        if (GetParam() == zrDeviceTypeRidge2) f.push_back(30.2e9);
        return f;
    }

    double binSize = 0.0, peakHz = 0.0;
    float peakDbm = 0.0f;
};

TEST_P(FastNarrowLevel, ToneAtItsFrequencyThroughBothEngines) {
    // The Mesa synthesizer's tuning codes come from its calibration.
    if (GetParam() == zrDeviceTypeMesa2 && !factoryCalibrated())
        GTEST_SKIP() << "the simulated instrument carries no factory calibration";
    zrSetSweepSpeed(handle, zrSweepSpeedFast);
    for (double f : frequencies()) {
        zrSimClearSignals(kSerial);
        zrSimAddTone(kSerial, f, -20.0);
        sweep(std::max(f + 3.1e7, 2.1e8), 4e8, 3e5);  // fast: several steps around the tone
        EXPECT_NEAR(peakHz, f, binSize) << "fast " << f;
        sweep(f + 3e5, 2e6, 2e3);  // narrow
        EXPECT_NEAR(peakHz, f, binSize) << "narrow " << f;
    }
}

TEST_P(FastNarrowLevel, NarrowToneReadsItsPowerAcrossBandsTemperaturesAndAttenuators) {
    if (!factoryCalibrated()) GTEST_SKIP() << "the simulated instrument carries no factory calibration";
    eachCondition([&](const Level& lv, float celsius) {
        for (double f : frequencies()) {
            zrSimClearSignals(kSerial);
            zrSimAddTone(kSerial, f, lv.tone);
            sweep(f, 1e6, 1e4);
            EXPECT_NEAR(peakDbm, lv.tone, 0.5) << "narrow " << f << " Hz, " << celsius << " C, atten " << lv.atten;
        }
    });
}

TEST_P(FastNarrowLevel, FastToneReadsItsPowerAcrossBandsTemperaturesAndAttenuators) {
    if (!factoryCalibrated()) GTEST_SKIP() << "the simulated instrument carries no factory calibration";
    zrSetSweepSpeed(handle, zrSweepSpeedFast);
    eachCondition([&](const Level& lv, float celsius) {
        for (double f : frequencies()) {
            // A fast step has one gain, that of its slice n - 1: the
            // tone sits 1 MHz above that slice, and the sweep starts
            // where slice n is a step.
            const int n = int(std::lround(f / 39062500.0));
            const double tone = n * 39062500.0 + 1e6;
            const double start = std::max(tone - 94.8e6, 1e6);
            zrSimClearSignals(kSerial);
            zrSimAddTone(kSerial, tone, lv.tone);
            sweep(start + 7.5e7, 1.5e8, 3e5);
            EXPECT_NEAR(peakDbm, lv.tone, 0.5) << "fast " << tone << " Hz, " << celsius << " C, atten " << lv.atten;
        }
    });
}

// One converter behind every engine: the noise floor reads the same through
// the stepped and the fast engine, and an input that clips the converter is
// reported as an overload by all three.
TEST_P(FastNarrowLevel, EnginesAgreeOnNoiseAndOverload) {
    auto run = [&](ZrSweepSpeed speed, double centre, double span, float* median) {
        zrSetSweepSpeed(handle, speed);
        zrSetSweepCenterSpan(handle, centre, span);
        zrSetSweepCoupling(handle, 1e5, 1e5, 0.0);
        EXPECT_GE(zrConfigure(handle, zrModeSweeping), zrNoError);
        int length = 0;
        zrGetSweepParameters(handle, nullptr, nullptr, nullptr, nullptr, &length);
        std::vector<float> trace(static_cast<size_t>(length));
        const ZrStatus s = zrGetSweep(handle, nullptr, trace.data(), nullptr);
        std::nth_element(trace.begin(), trace.begin() + length / 2, trace.end());
        if (median) *median = trace[size_t(length / 2)];
        return s;
    };
    zrSetSweepDetector(handle, zrDetectorAverage, zrVideoPower);
    zrSetRefLevel(handle, 0.0);
    zrSetAttenuator(handle, -1);
    float normal = 0, fast = 0;
    run(zrSweepSpeedNormal, 1.1e9, 2e8, &normal);
    run(zrSweepSpeedFast, 1.1e9, 2e8, &fast);
    EXPECT_NEAR(fast, normal, 1.0);

    zrSimAddTone(kSerial, 1.1e9, 10.0);
    zrSetRefLevel(handle, -50.0);
    zrSetAttenuator(handle, 0);
    EXPECT_EQ(run(zrSweepSpeedNormal, 1.1e9, 2e8, nullptr), zrADCOverflow);
    EXPECT_EQ(run(zrSweepSpeedFast, 1.1e9, 2e8, nullptr), zrADCOverflow);
    EXPECT_EQ(run(zrSweepSpeedAuto, 1.1e9, 1e6, nullptr), zrADCOverflow);  // narrow
}

INSTANTIATE_TEST_SUITE_P(Families, FastNarrowLevel, ::testing::Values(zrDeviceTypeMesa2, zrDeviceTypeRidge2));

}  // namespace
}  // namespace zr
