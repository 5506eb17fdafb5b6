// The narrow-span engine on simulated instruments: the plan's worked example
// and its decimation edges, the engine's calls, and a tone through the
// host's down-conversion and decimation.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "device/frame.h"
#include "sweep/engine_narrow.h"
#include "zr_api.h"
#include "zr_sim.h"
#include "sweep_fast/sim_sweep.h"

namespace zr {
namespace {

class NarrowSweep : public test::SimSweepTest {
protected:
    void SetUp() override {
        test::SimSweepTest::SetUp();
        if (HasFatalFailure()) return;
        zrSetSweepSpeed(handle, zrSweepSpeedFast);  // a narrow span overrides every speed
    }
    void configure(double centre, double span, double rbw) {
        ASSERT_EQ(zrSetSweepCenterSpan(handle, centre, span), zrNoError);
        zrSetSweepCoupling(handle, rbw, rbw, 0.0);
        ASSERT_EQ(zrConfigure(handle, zrModeSweeping), zrNoError);
        ASSERT_EQ(zrGetSweepParameters(handle, nullptr, nullptr, &startFreq, &binSize, &length), zrNoError);
        ASSERT_NE(engine(), nullptr);
        trace.assign(size_t(length), 0.0f);
    }
    EngineSweepNarrow* engine() { return dynamic_cast<EngineSweepNarrow*>(lookupDevice(handle)->engine.get()); }

    double startFreq = 0.0, binSize = 0.0;
    int length = 0;
    std::vector<float> trace;
};

TEST_P(NarrowSweep, WorkedExampleOfThePlan) {
    zrSetSweepWindow(handle, zrWindowNuttall);
    configure(1e9, 1e6, 1e3);
    const SweepPlan& p = engine()->plan();
    const SweepStep& st = p.steps.front();
    EXPECT_EQ(engine()->decimation().total, 32);
    EXPECT_EQ(engine()->decimation().hardware, 8);
    EXPECT_EQ(engine()->decimation().software, 4);
    EXPECT_EQ(p.windowSize, 3158);
    EXPECT_EQ(p.fftSize, 4096);
    EXPECT_EQ(p.zeroPad, 938);
    EXPECT_EQ(p.blocksPerStep, 9);
    EXPECT_NEAR(binSize, 381.4697, 1e-4);
    EXPECT_EQ(length, 2624);
    EXPECT_EQ(p.firstKeptBin, 736);
    EXPECT_NEAR(startFreq, 999499511.72, 0.01);
    EXPECT_DOUBLE_EQ(st.loMHz, 1054.6875);
    EXPECT_EQ(st.ddcWord, 736);
    EXPECT_DOUBLE_EQ(st.ncoFrequency, 1e9);
    EXPECT_EQ(zrGetSweep(handle, nullptr, trace.data(), nullptr), zrNoError);
}

TEST_P(NarrowSweep, DecimationEdgesAndLength) {
    const NarrowDecimation usb5 = narrowDecimation(5e6, 5e7);
    EXPECT_EQ(usb5.total, 4);
    EXPECT_EQ(usb5.hardware, 4);
    EXPECT_EQ(usb5.software, 1);
    const NarrowDecimation net5 = narrowDecimation(5e6, 2e8);
    EXPECT_EQ(net5.total, 16);
    EXPECT_EQ(net5.hardware, 8);
    EXPECT_EQ(net5.software, 2);
    const NarrowDecimation usb10k = narrowDecimation(1e4, 5e7);
    EXPECT_EQ(usb10k.total, 256);
    EXPECT_EQ(usb10k.software, 32);
    for (double span : {5e6, 1e4, 3.3e5}) {
        configure(2.4e9, span, span / 200.0);
        EXPECT_EQ(length % 2, 0) << span;
        EXPECT_GE(length, span / binSize + 1.5) << span;
        EXPECT_NEAR(startFreq + length / 2 * binSize, 2.4e9, binSize) << span;
    }
}

TEST_P(NarrowSweep, StartIsANoOpAndEachFinishIsAFreshSweep) {
    configure(9e8, 2e6, 1e4);
    EXPECT_EQ(zrStartSweep(handle, 99), zrNoError);
    int64_t first = 0, second = 0;
    EXPECT_EQ(zrFinishSweep(handle, 99, trace.data(), nullptr, &first), zrNoError);
    EXPECT_EQ(zrFinishSweep(handle, 0, nullptr, nullptr, &second), zrNoError);
    EXPECT_GT(second, first);
    inst->setAdcOverload(true);
    EXPECT_EQ(zrGetSweep(handle, trace.data(), nullptr, nullptr), zrADCOverflow);
    inst->detach();
    EXPECT_EQ(zrGetSweep(handle, trace.data(), nullptr, nullptr), zrConnectionLostErr);
}

// The stream's centre is placed by hand on the tuned frequency, which the
// down-converter's step keeps away from the asked centre.
TEST_P(NarrowSweep, ToneAtItsFrequencyAndLevelThroughHostDecimation) {
    zrSetSweepWindow(handle, zrWindowFlatTop);
    for (double span : {4e6, 2e5, 1e4}) {
        const double centre = 1.00031e9, f = centre + span * 0.23, p = -30.0;
        configure(centre, span, span / 100.0);
        const SweepStep& st = engine()->plan().steps.front();
        EXPECT_NE(st.ncoFrequency, centre);
        inst->setCenterFrequency(st.ncoFrequency);
        inst->clearSignals();
        inst->addTone(f, p);
        ASSERT_EQ(zrGetSweep(handle, nullptr, trace.data(), nullptr), zrNoError);
        ASSERT_EQ(zrGetSweep(handle, nullptr, trace.data(), nullptr), zrNoError);  // filter state carried
        const auto peak = std::max_element(trace.begin(), trace.end());
        EXPECT_NEAR(startFreq + double(peak - trace.begin()) * binSize, f, binSize) << span;
        EXPECT_NEAR(*peak, p + inst->pathGainDb(f) + st.gainDb, 0.3) << span;
    }
}

TEST_P(NarrowSweep, SpurRejectionLooksAgainThroughTheNextSlice) {
    zrSetSweepSpurReject(handle, zrTrue);
    configure(1e9, 1e6, 1e4);
    ASSERT_EQ(engine()->plan().passes, 2);
    const SweepStep st = engine()->plan().steps.front();
    SweepPlan p;
    CommandList list;
    NarrowDecimation dec;
    ASSERT_EQ(buildNarrowPlan(*lookupDevice(handle), p, list, dec), zrNoError);
    std::vector<uint32_t> captureWords;
    int dataWords = 0;
    for (size_t i = 0; i < list.buffer().size() / 4; ++i) {
        const uint32_t w = list.wordAt(i * 4);
        if (w >> 24 == 0x04) i += (w >> 16) & 0xFF;  // a register write's payload
        if (w >> 24 == 0x13 && w != 0x13000100) captureWords.push_back(w & 0xFFFF);
        dataWords += w == 0x23000000;
    }
    EXPECT_EQ(captureWords, (std::vector<uint32_t>{uint32_t(st.ddcWord), uint32_t(st.ddcWord) + 160}));
    EXPECT_GE(dataWords, 2 * p.blocksPerStep);
    EXPECT_EQ(dataWords % 4, 0);
    inst->setCenterFrequency(st.ncoFrequency);
    inst->addTone(1.0002e9, -30.0);
    ASSERT_EQ(zrGetSweep(handle, nullptr, trace.data(), nullptr), zrNoError);
    const auto peak = std::max_element(trace.begin(), trace.end());
    EXPECT_NEAR(startFreq + double(peak - trace.begin()) * binSize, 1.0002e9, binSize);
}

INSTANTIATE_TEST_SUITE_P(Families, NarrowSweep, ::testing::Values(zrDeviceTypeMesa2, zrDeviceTypeRidge2));

}  // namespace
}  // namespace zr
