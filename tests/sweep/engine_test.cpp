// The normal sweep engine on simulated instruments, through the public
// interface: the queue, abort, status precedence, a tone's place, and a
// cable pull in the middle of a sweep.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <thread>
#include <vector>

#include "device/frame.h"
#include "registry.h"
#include "support/temp_folder.h"
#include "support/watchdog.h"
#include "sweep/engine_sweep_controller.h"
#include "zr_api.h"
#include "zr_sim.h"

namespace zr {
namespace {

bool underSanitizer() {
#ifdef ZR_SANITIZER_BUILD
    return true;
#else
    return false;
#endif
}

class SweepEngine : public ::testing::Test {
protected:
    static constexpr int kSerial = 10004242;

    void SetUp() override {
        ASSERT_EQ(zrSetDataFolder(folder.str().c_str()), zrNoError);
        zrSimSetWaitScale(0.0);
        ASSERT_EQ(zrSimAttachUSB(zrDeviceTypeMesa2, kSerial), zrNoError);
        ASSERT_GE(zrOpenDeviceBySerial(&handle, kSerial), zrNoError);
        sim::findInstrument(kSerial)->setPaced(false);
        zrSetSweepSpeed(handle, zrSweepSpeedNormal);
    }
    void TearDown() override {
        if (handle >= 0) zrCloseDevice(handle);
        zrSimDetach(kSerial);
        zrSimSetWaitScale(1.0);
    }
    void configure(double centre, double span, double rbw, double sweepTime = 0.0) {
        ASSERT_EQ(zrSetSweepCenterSpan(handle, centre, span), zrNoError);
        zrSetSweepCoupling(handle, rbw, rbw, sweepTime);
        ASSERT_EQ(zrConfigure(handle, zrModeSweeping), zrNoError);
        ASSERT_EQ(zrGetSweepParameters(handle, nullptr, nullptr, &start, &bin, &length), zrNoError);
        minTrace.assign(size_t(length), 0.0f);
        maxTrace.assign(size_t(length), 0.0f);
    }

    test::TempFolder folder;
    test::Watchdog dog{std::chrono::seconds(60)};
    int handle = -1;
    double start = 0.0, bin = 0.0;
    int length = 0;
    std::vector<float> minTrace, maxTrace;
};

TEST_F(SweepEngine, WorkedExampleThroughTheInterface) {
    zrSetSweepWindow(handle, zrWindowFlatTop);
    configure(1e9, 2e8, 1e5, 1e-3);
    double rbw = 0.0, vbw = 0.0;
    ASSERT_EQ(zrGetSweepParameters(handle, &rbw, &vbw, nullptr, nullptr, nullptr), zrNoError);
    EXPECT_NEAR(rbw, 100058.386, 1e-3);
    EXPECT_EQ(vbw, 1e5);
    EXPECT_DOUBLE_EQ(start, 9e8);
    EXPECT_DOUBLE_EQ(bin, 24414.0625);
    EXPECT_EQ(length, 8192);
    EXPECT_EQ(zrGetSweep(handle, minTrace.data(), maxTrace.data(), nullptr), zrNoError);
}

TEST_F(SweepEngine, QueuePositions) {
    configure(1e9, 2e8, 1e5);
    int64_t ts = -1;
    EXPECT_EQ(zrStartSweep(handle, 16), zrInvalidSweepPositionErr);
    EXPECT_EQ(zrStartSweep(handle, -1), zrInvalidSweepPositionErr);
    EXPECT_EQ(zrFinishSweep(handle, 5, nullptr, nullptr, &ts), zrInvalidSweepPositionErr);
    EXPECT_EQ(ts, 0);

    // Started 3 then 1, finished 1 then 3.
    ASSERT_EQ(zrStartSweep(handle, 3), zrNoError);
    ASSERT_EQ(zrStartSweep(handle, 1), zrNoError);
    EXPECT_EQ(zrStartSweep(handle, 3), zrInvalidSweepPositionErr);
    int64_t ts1 = 0, ts3 = 0;
    EXPECT_EQ(zrFinishSweep(handle, 1, minTrace.data(), maxTrace.data(), &ts1), zrNoError);
    EXPECT_EQ(zrFinishSweep(handle, 3, nullptr, nullptr, &ts3), zrNoError);
    EXPECT_GT(ts1, 0);
    EXPECT_GT(ts3, 0);
    EXPECT_LE(ts3, ts1);  // position 3 was acquired first
    EXPECT_EQ(zrFinishSweep(handle, 3, nullptr, nullptr, nullptr), zrInvalidSweepPositionErr);
    EXPECT_TRUE(std::all_of(minTrace.begin(), minTrace.end(), [](float v) { return std::isfinite(v); }));
    for (int i = 0; i < length; ++i) ASSERT_EQ(minTrace[i], maxTrace[i]);  // average detector

    // All sixteen at once, finished backwards.
    for (int p = 0; p < 16; ++p) ASSERT_EQ(zrStartSweep(handle, p), zrNoError);
    for (int p = 15; p >= 0; --p) EXPECT_EQ(zrFinishSweep(handle, p, minTrace.data(), nullptr, nullptr), zrNoError);
    EXPECT_EQ(zrGetSweep(handle, minTrace.data(), maxTrace.data(), nullptr), zrNoError);
    EXPECT_EQ(sim::findInstrument(kSerial)->unknownWords(), 0u);
}

TEST_F(SweepEngine, AbortWaitsForSweepsInFlight) {
    configure(5e9, 2e9, 3e4);
    auto inst = sim::findInstrument(kSerial);
    inst->setPaced(true);
    const ZrDevice* dev = lookupDevice(handle);
    auto* engine = dynamic_cast<const EngineSweepController*>(dev->engine.get());
    ASSERT_NE(engine, nullptr);
    const SweepPlan& p = engine->plan();
    const uint64_t perSweep = uint64_t(p.stepCount) * p.passes * p.blocksPerStep;
    const uint64_t before = inst->dataBlocksSent();
    ASSERT_EQ(zrStartSweep(handle, 0), zrNoError);
    ASSERT_EQ(zrStartSweep(handle, 1), zrNoError);
    EXPECT_EQ(zrAbort(handle), zrNoError);
    EXPECT_EQ(dev->engine, nullptr);
    // Both sweeps ran to their end before the engine went.
    EXPECT_EQ(inst->dataBlocksSent() - before, 2 * perSweep);
    EXPECT_EQ(zrGetSweep(handle, nullptr, nullptr, nullptr), zrInvalidConfigurationErr);
}

TEST_F(SweepEngine, StatusFlagsBecomeOneStatusPerSweep) {
    configure(1e9, 2e8, 1e6);
    auto inst = sim::findInstrument(kSerial);
    inst->setAdcOverload(true);
    EXPECT_EQ(zrGetSweep(handle, minTrace.data(), nullptr, nullptr), zrADCOverflow);
    inst->setAdcOverload(false);
    inst->injectBadMagic(1);
    std::fill(minTrace.begin(), minTrace.end(), 1e9f);
    EXPECT_EQ(zrGetSweep(handle, minTrace.data(), nullptr, nullptr), zrSyncErr);
    EXPECT_LT(minTrace[0], 1e9f);  // the data still arrive
    EXPECT_EQ(zrGetSweep(handle, minTrace.data(), nullptr, nullptr), zrNoError);
}

TEST_F(SweepEngine, ToneLandsInItsBin) {
    // One slice (26, at 1015.625 MHz), with the instrument centred on it.
    auto inst = sim::findInstrument(kSerial);
    inst->setCenterFrequency(26 * 3.90625e7);
    const double tone = 1.0173e9;
    zrSimAddTone(kSerial, tone, -20.0);
    zrSetSweepWindow(handle, zrWindowFlatTop);
    configure(1.015e9, 1e7, 3e4);
    ASSERT_GE(zrGetSweep(handle, minTrace.data(), maxTrace.data(), nullptr), zrNoError);
    const auto peak = std::max_element(maxTrace.begin(), maxTrace.end()) - maxTrace.begin();
    EXPECT_NEAR(start + double(peak) * bin, tone, bin);
    EXPECT_GT(maxTrace[size_t(peak)], maxTrace[0] + 40.0f);
}

// The Ridge family's tune and its millimetre-wave wake through a sweep
// that crosses all of its bands.
TEST(SweepEngineRidge, SweepAcrossAllBands) {
    test::TempFolder folder;
    test::Watchdog dog{std::chrono::seconds(60)};
    ASSERT_EQ(zrSetDataFolder(folder.str().c_str()), zrNoError);
    zrSimSetWaitScale(0.0);
    const int serial = 20004242;
    ASSERT_EQ(zrSimAttachUSB(zrDeviceTypeRidge2, serial), zrNoError);
    int h = -1;
    ASSERT_GE(zrOpenDeviceBySerial(&h, serial), zrNoError);
    sim::findInstrument(serial)->setPaced(false);
    zrSetSweepSpeed(h, zrSweepSpeedNormal);
    zrSetSweepStartStop(h, 1e7, 4.4e10);
    zrSetSweepCoupling(h, 1e6, 1e6, 0.0);
    ASSERT_EQ(zrConfigure(h, zrModeSweeping), zrNoError);
    int length = 0;
    zrGetSweepParameters(h, nullptr, nullptr, nullptr, nullptr, &length);
    std::vector<float> trace(static_cast<size_t>(length));
    EXPECT_EQ(zrGetSweep(h, nullptr, trace.data(), nullptr), zrNoError);
    EXPECT_TRUE(std::all_of(trace.begin(), trace.end(), [](float v) { return std::isfinite(v); }));
    EXPECT_EQ(sim::findInstrument(serial)->unknownWords(), 0u);
    EXPECT_EQ(zrCloseDevice(h), zrNoError);
    zrSimDetach(serial);
    zrSimSetWaitScale(1.0);
}

TEST_F(SweepEngine, CablePullEndsTheSweepWithConnectionLost) {
    // Sixteen full-span sweeps at the instrument's pace (about 60 ms each),
    // the cable pulled while they are in flight: after the fourth start,
    // since a first start sizes its position's traces and sixteen of them
    // take longer than the sweeps. A loaded machine may let a few finish
    // before the pull; from the first lost one on, every delivery reports
    // the loss.
    sim::findInstrument(kSerial)->setPaced(true);
    configure(1.03e10, 2.05e10, 3e4);
    for (int p = 0; p < 16; ++p) {
        // A start after the pull may already know of it.
        const ZrStatus s = zrStartSweep(handle, p);
        ASSERT_TRUE(s == zrNoError || (p > 3 && s == zrConnectionLostErr)) << p << " " << s;
        if (p == 3) {
            ASSERT_EQ(zrSimDetach(kSerial), zrNoError);
        }
    }
    const auto t0 = std::chrono::steady_clock::now();
    bool lost = false;
    std::chrono::steady_clock::duration firstLoss{};
    for (int p = 0; p < 16; ++p) {
        const ZrStatus s = zrFinishSweep(handle, p, minTrace.data(), maxTrace.data(), nullptr);
        if (lost) {
            EXPECT_EQ(s, zrConnectionLostErr) << p;
        } else if (s == zrConnectionLostErr) {
            lost = true;
            firstLoss = std::chrono::steady_clock::now() - t0;
        } else {
            EXPECT_EQ(s, zrNoError) << p;
        }
    }
    ASSERT_TRUE(lost);
    // The loss reaches the caller at the next delivery; a sanitizer slows the
    // processing of the zeros that stand in for the lost blocks.
    EXPECT_LT(firstLoss, std::chrono::seconds(underSanitizer() ? 40 : 4));
    // Until the next configuration every call tells of the loss.
    EXPECT_EQ(zrStartSweep(handle, 15), zrConnectionLostErr);
    EXPECT_EQ(zrGetSweep(handle, nullptr, maxTrace.data(), nullptr), zrConnectionLostErr);
    EXPECT_EQ(zrCloseDevice(handle), zrNoError);
    handle = -1;
}

TEST_F(SweepEngine, AnInstrumentThatStopsAnsweringIsALostLinkInEveryEngine) {
    // It stays on the bus and takes command blocks, but answers nothing.
    // Each engine reports the loss from the data call within 4 s, every
    // later data call says so too, and the close stays prompt.
    struct Row { const char* engine; ZrSweepSpeed speed; double span, rbw; };
    for (const Row r : {Row{"normal", zrSweepSpeedNormal, 2e8, 1e5}, Row{"fast", zrSweepSpeedFast, 2e8, 1e5},
                        Row{"narrow", zrSweepSpeedNormal, 1e6, 1e3}}) {
        SCOPED_TRACE(r.engine);
        if (handle < 0) {
            ASSERT_EQ(zrSimAttachUSB(zrDeviceTypeMesa2, kSerial), zrNoError);
            ASSERT_GE(zrOpenDeviceBySerial(&handle, kSerial), zrNoError);
            sim::findInstrument(kSerial)->setPaced(false);
        }
        zrSetSweepSpeed(handle, r.speed);
        configure(2.4e9, r.span, r.rbw);
        ASSERT_GE(zrGetSweep(handle, nullptr, maxTrace.data(), nullptr), zrNoError);
        ASSERT_EQ(zrSimInjectFault(kSerial, zrSimFaultStopAnswering, 1000), zrNoError);
        auto t0 = std::chrono::steady_clock::now();
        EXPECT_EQ(zrGetSweep(handle, nullptr, maxTrace.data(), nullptr), zrConnectionLostErr);
        EXPECT_LT(std::chrono::steady_clock::now() - t0, std::chrono::seconds(4));
        EXPECT_EQ(zrStartSweep(handle, 3), zrConnectionLostErr);
        EXPECT_EQ(zrFinishSweep(handle, 5, nullptr, maxTrace.data(), nullptr), zrConnectionLostErr);
        EXPECT_EQ(zrGetSweep(handle, nullptr, maxTrace.data(), nullptr), zrConnectionLostErr);
        t0 = std::chrono::steady_clock::now();
        EXPECT_EQ(zrCloseDevice(handle), zrNoError);
        EXPECT_LT(std::chrono::steady_clock::now() - t0, std::chrono::seconds(4));
        handle = -1;
        zrSimDetach(kSerial);
    }
}

TEST_F(SweepEngine, SettingsBeyondMemoryAreRefusedBeforeAnythingIsAllocated) {
    // 1 GHz at the narrowest RBW would want gigabytes per sweep position;
    // the device stays idle and usable.
    ASSERT_EQ(zrSetSweepCenterSpan(handle, 2.5e9, 1e9), zrNoError);
    zrSetSweepCoupling(handle, 0.1, 0.1, 0.0);
    EXPECT_EQ(zrConfigure(handle, zrModeSweeping), zrAllocationErr);
    ZrMode mode = zrModeSweeping;
    zrGetCurrentMode(handle, &mode);
    EXPECT_EQ(mode, zrModeIdle);
    configure(2.5e9, 1e9, 1e3);
    EXPECT_EQ(zrGetSweep(handle, nullptr, maxTrace.data(), nullptr), zrNoError);
}

TEST_F(SweepEngine, HostileSettingsGiveAStatusAndEverySweepCopiesWhatItPromised) {
    // Combinations that once planned negative lengths or overflowed a
    // count: each either configures, and then a sweep fills exactly the
    // length it reports, or is refused with a status.
    struct Row { double start, stop, rbw, vbw, time; ZrSweepSpeed speed; };
    const Row rows[] = {
        {3e9, 1e9, 1e5, 1e5, 0.0, zrSweepSpeedNormal},          // reversed range
        {1e9, 1e9, 1e5, 1e5, 0.0, zrSweepSpeedNormal},          // no span at all
        {1e9, 1.1e9, 0.0, 1e5, 0.0, zrSweepSpeedNormal},        // no RBW
        {1e9, 1.1e9, -3e4, -3e4, 0.0, zrSweepSpeedAuto},
        {1e9, 1.1e9, 5e-324, 5e-324, 0.0, zrSweepSpeedNormal},  // RBW clamped up, VBW left behind
        {1e9, 1.001e9, 1e-300, 1e-304, 0.0, zrSweepSpeedNormal},
        {1e9, 1.001e9, 3e6, 300.0, 100.0, zrSweepSpeedNormal},  // narrow, a hundred seconds of samples
        {1e9, 1.01e9, 1e5, 1e5, 100.0, zrSweepSpeedNormal},   // one slice's step of 5e9 samples
        {1e9, 1.1e9, 1e300, 1e300, 0.0, zrSweepSpeedFast},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(testing::Message() << r.start << ".." << r.stop << " rbw " << r.rbw << " vbw " << r.vbw);
        zrSetSweepSpeed(handle, r.speed);
        zrSetSweepStartStop(handle, r.start, r.stop);
        zrSetSweepCoupling(handle, r.rbw, r.vbw, r.time);
        const ZrStatus configured = zrConfigure(handle, zrModeSweeping);
        if (configured < zrNoError) continue;
        int n = 0;
        ASSERT_EQ(zrGetSweepParameters(handle, nullptr, nullptr, nullptr, nullptr, &n), zrNoError);
        ASSERT_GT(n, 0);
        ASSERT_LT(n, 50000000);
        std::vector<float> trace(size_t(n) + 1, 7.0f);
        EXPECT_GE(zrGetSweep(handle, trace.data(), nullptr, nullptr), zrNoError);
        EXPECT_NE(trace[size_t(n) - 1], 7.0f);
        EXPECT_EQ(trace[size_t(n)], 7.0f);
    }
}

TEST_F(SweepEngine, ASlowHostIsReportedAsCpuLimited) {
    // A ring of three steps: the USB thread must wait for the work threads
    // within every sweep, and says so; the data still arrive whole.
    EngineSweepController::setRingCapacityForTest(1);
    configure(1.03e10, 2.05e10, 1e4);
    EngineSweepController::setRingCapacityForTest(0);
    const auto* engine = dynamic_cast<const EngineSweepController*>(lookupDevice(handle)->engine.get());
    ASSERT_NE(engine, nullptr);
    const SweepPlan& p = engine->plan();
    EXPECT_EQ(engine->ringCapacity(), 3 * int64_t(p.passes) * p.blocksPerStep * kCaptureBlockSamples);
    EXPECT_EQ(zrGetSweep(handle, nullptr, maxTrace.data(), nullptr), zrCPULimited);
    EXPECT_TRUE(std::all_of(maxTrace.begin(), maxTrace.end(), [](float v) { return std::isfinite(v); }));
}

}  // namespace
}  // namespace zr
