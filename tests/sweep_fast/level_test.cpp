// Tones through the fast and narrow engines on simulated instruments whose
// RF path follows the words they are sent: a tone lands on its frequency,
// and with the instrument's factory calibration it reads its power.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "api/device.h"
#include "api/frame.h"
#include "zr_api.h"
#include "zr_sim.h"
#include "sweep_fast/sim_sweep.h"

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
        if (dev.corrections.ridge) return dev.corrections.ridge->calDate != 0xFFFFFFFFu;
        return dev.corrections.mesa && dev.corrections.mesa->calDate != 0xFFFFFFFFu;
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

TEST_P(FastNarrowLevel, ToneReadsItsPowerAcrossBandsTemperaturesAndAttenuators) {
    if (!factoryCalibrated()) GTEST_SKIP() << "the simulated instrument carries no factory calibration";
    zrSetSweepSpeed(handle, zrSweepSpeedFast);
    struct Level {
        int atten;
        double refLevel, tone;
    };
    for (float celsius : {25.0f, 50.0f}) {
        zrSimSetTemperature(kSerial, celsius);
        for (const Level lv : {Level{-1, -20.0, -30.0}, Level{2, 0.0, -5.0}}) {
            zrSetAttenuator(handle, lv.atten);
            zrSetRefLevel(handle, lv.refLevel);
            for (double f : frequencies()) {
                zrSimClearSignals(kSerial);
                zrSimAddTone(kSerial, f, lv.tone);
                sweep(std::max(f, 6e7), 1e8, 3e5);
                EXPECT_NEAR(peakDbm, lv.tone, 0.5) << "fast " << f << " Hz, " << celsius << " C, atten " << lv.atten;
                sweep(f, 1e6, 1e4);
                EXPECT_NEAR(peakDbm, lv.tone, 0.5) << "narrow " << f << " Hz, " << celsius << " C, atten " << lv.atten;
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Families, FastNarrowLevel, ::testing::Values(zrDeviceTypeMesa2, zrDeviceTypeRidge2));

}  // namespace
}  // namespace zr
