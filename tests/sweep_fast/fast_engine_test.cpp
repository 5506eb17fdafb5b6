// The fast sweep engine on simulated instruments: its plan and lists, the
// instrument's own FFT read back through the engine's post-processing, the
// queue, and the status rules.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <vector>

#include "device/device.h"
#include "device/frame.h"
#include "fft_sweep.h"
#include "sweep/engine_fast.h"
#include "zr_api.h"
#include "zr_sim.h"
#include "sweep_fast/sim_sweep.h"

namespace zr {
namespace {

int total(const std::vector<uint32_t>& v) { return int(std::accumulate(v.begin(), v.end(), 0u)); }

class FastSweep : public test::SimSweepTest {
protected:
    void SetUp() override {
        test::SimSweepTest::SetUp();
        if (HasFatalFailure()) return;
        zrSetSweepSpeed(handle, zrSweepSpeedFast);
        zrSetSweepWindow(handle, zrWindowFlatTop);
    }
    void configure(double start, double stop, double rbw) {
        ASSERT_EQ(zrSetSweepStartStop(handle, start, stop), zrNoError);
        zrSetSweepCoupling(handle, rbw, rbw, 0.0);
        ASSERT_EQ(zrConfigure(handle, zrModeSweeping), zrNoError);
        ASSERT_EQ(zrGetSweepParameters(handle, &actualRBW, nullptr, &startFreq, &binSize, &length), zrNoError);
        ASSERT_NE(engine(), nullptr);
        trace.assign(size_t(length), 0.0f);
        other.assign(size_t(length), 0.0f);
    }
    EngineSweepFast* engine() { return dynamic_cast<EngineSweepFast*>(lookupDevice(handle)->engine.get()); }
    const SweepPlan& plan() { return engine()->plan(); }
    // The plan's lists, built again from the configured device.
    void lists(CommandList& config, CommandList& sweep) {
        SweepPlan p;
        buildFastPlan(*lookupDevice(handle), p, config, sweep);
    }

    double actualRBW = 0.0, startFreq = 0.0, binSize = 0.0;
    int length = 0;
    std::vector<float> trace, other;
};

TEST_P(FastSweep, WorkedExampleOfThePlan) {
    configure(1e8, 2e9, 1e6);
    const SweepPlan& p = plan();
    EXPECT_EQ(p.windowSize, 942);
    EXPECT_EQ(p.fftSize, 1024);
    EXPECT_EQ(p.blocksPerStep, 1);
    EXPECT_EQ(p.stepCount, 24);
    EXPECT_EQ(p.startBin, 953);
    EXPECT_EQ(length, 7782);
    EXPECT_DOUBLE_EQ(binSize, 244140.625);
    EXPECT_DOUBLE_EQ(startFreq, 99853515.625);
    EXPECT_NEAR(actualRBW, 1000583.864, 1e-3);
    std::vector<int> slices;
    for (const SweepStep& st : p.steps) slices.push_back(st.sliceNumber);
    std::vector<int> expected;
    for (int s = 3; s <= 16; ++s) expected.push_back(s);
    for (int s = 20; s <= 56; s += 4) expected.push_back(s);
    EXPECT_EQ(slices, expected);
    // Narrow steps keep 160 bins, wide ones 640, and they abut at 609.375 MHz.
    EXPECT_EQ(p.steps[13].binCount, 160);
    EXPECT_EQ(p.steps[14].binCount, 640);
    EXPECT_DOUBLE_EQ(16 * 39062500.0 - 2.5e8 + (p.steps[13].firstBin + p.steps[13].binCount) * binSize, 609375000.0);
    EXPECT_DOUBLE_EQ(20 * 39062500.0 - 2.5e8 + p.steps[14].firstBin * binSize, 609375000.0);

    CommandList config, sweep;
    lists(config, sweep);
    EXPECT_EQ(total(sweep.dataWordCounts()), 24);
    EXPECT_EQ(total(sweep.statusWordCounts()), 4);
    EXPECT_EQ(total(config.dataWordCounts()) + total(config.statusWordCounts()), 4);
    ASSERT_GE(zrGetSweep(handle, trace.data(), other.data(), nullptr), zrNoError);
    EXPECT_EQ(trace, other);
    EXPECT_EQ(inst->unknownWords(), 0u);
}

TEST_P(FastSweep, FineResolutionAndBlockCounts) {
    // 100 Hz cannot be had: the FFT stops at 16384 points, four blocks a
    // step of which three are fetched, and the reads still come in fours.
    configure(1e9, 2e9, 100.0);
    EXPECT_EQ(plan().fftSize, 16384);
    EXPECT_EQ(plan().windowSize, 16384);
    EXPECT_EQ(plan().blocksPerStep, 4);
    EXPECT_NEAR(actualRBW, 57528.7, 0.1);
    CommandList config, sweep;
    lists(config, sweep);
    const int data = total(sweep.dataWordCounts()), status = total(sweep.statusWordCounts());
    EXPECT_EQ(data, plan().stepCount * 3);
    EXPECT_GE(status, 1);
    EXPECT_EQ((data + status) % 4, 0);
    ASSERT_GE(zrGetSweep(handle, trace.data(), nullptr, nullptr), zrNoError);
}

TEST_P(FastSweep, OneStepStillFetchesItsSpectrum) {
    configure(1e9, 1.05e9, 3e5);
    ASSERT_EQ(plan().stepCount, 1);
    CommandList config, sweep;
    lists(config, sweep);
    EXPECT_EQ(total(sweep.dataWordCounts()), plan().blocksPerStep);
}

// One-step sweeps at each FFT length (one, two and four blocks a step), and
// the four low slices whose bins sit elsewhere in the instrument's spectrum.
// The instrument follows its tune, except on a Ridge in slices 3 and 4: its
// direct-path tune leaves the IF control's half-clock bit clear, so nothing
// the instrument is sent says that the band is centred on 125 MHz there,
// and the test places that band by hand.
TEST_P(FastSweep, ToneAtItsFrequencyAndLevel) {
    struct Case {
        double tone, start, stop, rbw;
        int slice, blocksPerStep;
    };
    const double p = -25.0;
    inst->setNoiseFloor(-150.0);
    for (const Case c : {Case{1.0213e9, 1e9, 1.05e9, 3e5, 29, 1}, Case{1.0213e9, 1e9, 1.05e9, 1.5e5, 29, 2},
                         Case{1.0213e9, 1e9, 1.05e9, 3e4, 29, 4}, Case{10e6, 1e6, 35e6, 3e5, 1, 1},
                         Case{40e6, 30e6, 60e6, 3e5, 2, 1}, Case{80e6, 65e6, 100e6, 3e5, 3, 1},
                         Case{120e6, 105e6, 135e6, 3e5, 4, 1}}) {
        configure(c.start, c.stop, c.rbw);
        ASSERT_EQ(plan().blocksPerStep, c.blocksPerStep);
        const auto step = std::find_if(plan().steps.begin(), plan().steps.end(),
                                       [&](const SweepStep& st) { return st.sliceNumber == c.slice; });
        ASSERT_NE(step, plan().steps.end());
        if (GetParam() == zrDeviceTypeRidge2 && (c.slice == 3 || c.slice == 4)) inst->setCenterFrequency(125e6);
        else inst->clearCenterOverride();
        inst->clearSignals();
        inst->addTone(c.tone, p);
        ASSERT_EQ(zrGetSweep(handle, nullptr, trace.data(), nullptr), zrNoError);
        const auto peak = std::max_element(trace.begin(), trace.end());
        EXPECT_NEAR(startFreq + double(peak - trace.begin()) * binSize, c.tone, binSize) << c.tone;
        // The level itself, against the instrument's calibration, is the
        // level test's; here the row must carry its step's gain.
        EXPECT_NEAR(*peak - step->gainDb, p + inst->pathGainDb(c.tone), 3.0) << c.tone;
    }
    zrSetSweepScale(handle, zrScaleLin);
    ASSERT_EQ(zrConfigure(handle, zrModeSweeping), zrNoError);
    ASSERT_EQ(zrGetSweep(handle, nullptr, other.data(), nullptr), zrNoError);
    const float mv = *std::max_element(other.begin(), other.end());
    EXPECT_NEAR(20.0 * std::log10(mv / 223.6), *std::max_element(trace.begin(), trace.end()), 0.1);
}

TEST_P(FastSweep, QueueOrderAndPositions) {
    configure(1e9, 3e9, 1e6);
    EXPECT_EQ(zrStartSweep(handle, 16), zrInvalidSweepPositionErr);
    EXPECT_EQ(zrStartSweep(handle, -1), zrInvalidSweepPositionErr);
    int64_t ts = -1;
    EXPECT_EQ(zrFinishSweep(handle, 2, nullptr, nullptr, &ts), zrInvalidSweepPositionErr);
    EXPECT_EQ(ts, 0);
    inst->setPaced(true);  // status ticks that move with time
    for (int pos = 0; pos < 16; ++pos) ASSERT_EQ(zrStartSweep(handle, pos), zrNoError);
    EXPECT_EQ(zrStartSweep(handle, 3), zrInvalidSweepPositionErr);
    EXPECT_EQ(zrGetSweep(handle, nullptr, nullptr, nullptr), zrInvalidSweepPositionErr);
    int64_t previous = INT64_MAX;
    for (int pos = 15; pos >= 0; --pos) {
        ASSERT_EQ(zrFinishSweep(handle, pos, trace.data(), nullptr, &ts), zrNoError);
        EXPECT_LT(ts, previous);  // finished backwards, acquired forwards
        previous = ts;
    }
    EXPECT_EQ(zrFinishSweep(handle, 0, nullptr, nullptr, nullptr), zrInvalidSweepPositionErr);
    // A stop with sweeps in flight lets them finish.
    ASSERT_EQ(zrStartSweep(handle, 5), zrNoError);
    EXPECT_EQ(zrAbort(handle), zrNoError);
}

TEST_P(FastSweep, StatusRules) {
    configure(1e9, 2e9, 1e6);
    inst->setAdcOverload(true);
    EXPECT_EQ(zrGetSweep(handle, trace.data(), nullptr, nullptr), zrADCOverflow);
    inst->setAdcOverload(false);
    EXPECT_EQ(zrGetSweep(handle, trace.data(), nullptr, nullptr), zrNoError);
    inst->injectBadMagic(1);
    EXPECT_EQ(zrGetSweep(handle, trace.data(), nullptr, nullptr), zrSyncErr);
    inst->detach();
    ASSERT_EQ(zrStartSweep(handle, 1), zrNoError);
    EXPECT_EQ(zrFinishSweep(handle, 1, trace.data(), nullptr, nullptr), zrConnectionLostErr);
    EXPECT_EQ(zrStartSweep(handle, 2), zrConnectionLostErr);
}

TEST_P(FastSweep, AShortReadIsALostLink) {
    // The replies after a short read cannot be placed: every engine treats
    // it as the cable pulled, not as one sweep's uncalibrated data.
    configure(1e9, 2e9, 1e6);
    ASSERT_EQ(zrGetSweep(handle, trace.data(), nullptr, nullptr), zrNoError);
    inst->shortNextRead();
    EXPECT_EQ(zrGetSweep(handle, trace.data(), nullptr, nullptr), zrConnectionLostErr);
    EXPECT_EQ(zrGetSweep(handle, trace.data(), nullptr, nullptr), zrConnectionLostErr);
}

INSTANTIATE_TEST_SUITE_P(Families, FastSweep, ::testing::Values(zrDeviceTypeMesa2, zrDeviceTypeRidge2));

}  // namespace
}  // namespace zr
