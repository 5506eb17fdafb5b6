// The library's command lists and protocol helpers against the simulated
// instrument, through the transport contract.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <cstring>
#include <thread>
#include <vector>

#include "registry.h"
#include "sim_transport.h"
#include "transport/command_list.h"
#include "transport/status_block.h"
#include "transport/wait.h"
#include "support/watchdog.h"
#include "zr_sim.h"

namespace zr::sim {
namespace {

using test::Watchdog;

// An attached instrument and a transport on it, detached at the end.
class SimFixture : public ::testing::Test {
protected:
    static constexpr int kSerial = 31415926;
    void SetUp() override {
        ASSERT_EQ(zrSimAttachUSB(zrDeviceTypeMesa2, kSerial), zrNoError);
        inst = findInstrument(kSerial);
        inst->setRunning(true);  // as if a host had booted it
        ASSERT_NE(inst, nullptr);
        transport = std::make_unique<SimTransport>(inst);
        setProtocolWaitScale(0.0);
    }
    void TearDown() override {
        transport.reset();
        zrSimDetach(kSerial);
        setProtocolWaitScale(1.0);
    }
    StatusBlock status() {
        uint8_t raw[8192];
        EXPECT_TRUE(ReadStatusBlock(*transport, raw));
        StatusBlock s;
        std::memcpy(&s, raw, sizeof s);
        return s;
    }
    static float sensorCelsius(uint16_t w) {
        const int magnitude = (w >> 2) & 0x3FF;
        return (w & 0x1000) ? -(1024 - magnitude) * 0.25f : magnitude * 0.25f;
    }

    Watchdog dog;
    std::shared_ptr<Instrument> inst;
    std::unique_ptr<SimTransport> transport;
};

// Correlates one block with the tone: amplitude and phase at its start.
std::complex<double> toneAt(const int16_t* iq, double cyclesPerSample) {
    std::complex<double> acc = 0.0;
    for (int n = 0; n < 2048; ++n) {
        const std::complex<double> x(iq[2 * n], iq[2 * n + 1]);
        acc += x * std::polar(1.0, -2.0 * M_PI * cyclesPerSample * n);
    }
    return acc / 2048.0;
}

TEST_F(SimFixture, StreamedToneArrivesAtModelLevelAndPhaseContinuous) {
    const double center = 2.4e9, toneHz = center + 3.1e6, powerDbm = -30.0;
    inst->setCenterFrequency(center);
    ASSERT_EQ(zrSimAddTone(kSerial, toneHz, powerDbm), zrNoError);
    ASSERT_EQ(zrSimSetNoiseFloor(kSerial, -170.0), zrNoError);

    CommandList start;
    start.AppendListHead();
    start.AppendRegister(0x0034, 0);
    start.AppendWord(0x13010000);  // decimation 1, 50 MS/s
    for (int i = 0; i < 8; ++i) start.AppendDataWord();
    CommandList more;
    more.AppendListHead();
    for (int i = 0; i < 4; ++i) more.AppendDataWord();

    std::vector<int16_t> samples;
    auto take = [&](int slot) {
        TransferResult r = transport->FinishRead(slot);
        ASSERT_TRUE(r.good());
        const auto* p = reinterpret_cast<const int16_t*>(r.data);
        samples.insert(samples.end(), p, p + 32768 / 2);
    };
    // Reads posted before the words that cause them, on two slots.
    transport->BeginRead(0, 32768, 2000);
    transport->BeginRead(1, 32768, 2000);
    ASSERT_TRUE(SendCommandList(*transport, start));
    take(0);
    take(1);
    ASSERT_TRUE(SendCommandList(*transport, more));  // and after
    transport->BeginRead(2, 32768, 2000);
    take(2);
    ASSERT_EQ(samples.size(), 12u * 4096);

    const double rate = 50e6;
    const double f = (toneHz - center) / rate;
    const double expectDbfs = powerDbm + inst->pathGainDb(toneHz);
    std::complex<double> prev;
    for (int b = 0; b < 12; ++b) {
        const std::complex<double> c = toneAt(samples.data() + b * 4096, f);
        EXPECT_NEAR(20.0 * std::log10(std::abs(c) / 32767.0), expectDbfs, 0.05) << "block " << b;
        if (b > 0) {
            const double advance = std::arg(c / prev);
            const double expected = std::remainder(2.0 * M_PI * f * 2048.0, 2.0 * M_PI);
            EXPECT_NEAR(std::remainder(advance - expected, 2.0 * M_PI), 0.0, 1e-3) << "block " << b;
        }
        prev = c;
    }
    EXPECT_EQ(inst->dataBlocksSent(), 12u);
}

TEST_F(SimFixture, GainModelDependsOnFrequencyAndTemperature) {
    const double f = 5e9;
    const double g25 = Instrument::pathGainDb(f, 0.0, 25.0);
    EXPECT_GT(std::fabs(Instrument::pathGainDb(f, 0.0, 60.0) - g25), 0.3);
    EXPECT_GT(std::fabs(Instrument::pathGainDb(f + 3e8, 0.0, 25.0) - g25), 0.1);
    // Two attenuator steps: 10 dB, give or take the steps' frequency slope.
    EXPECT_NEAR(g25 - Instrument::pathGainDb(f, 10.0, 25.0), 10.0, 0.3);
    // Smooth: no step between neighbouring frequencies.
    EXPECT_LT(std::fabs(Instrument::pathGainDb(f + 1e6, 0.0, 25.0) - g25), 0.05);
}

TEST_F(SimFixture, TickCountersFollowTheSamplesDelivered) {
    inst->setPaced(false);
    inst->setUnpacedTicks(750000000);  // 3 s in: pulses have come
    CommandList list;
    list.AppendListHead();
    list.AppendWord(0x13020000);  // decimation 2: 25 MS/s, 10 ticks a sample
    list.AppendStatusWord();
    for (int i = 0; i < 6; ++i) list.AppendDataWord();
    list.AppendStatusWord();
    transport->BeginRead(0, 8 * 8192, 2000);
    ASSERT_TRUE(SendCommandList(*transport, list));
    TransferResult r = transport->FinishRead(0);
    ASSERT_TRUE(r.good());
    StatusBlock first, last;
    std::memcpy(&first, r.data, sizeof first);
    std::memcpy(&last, r.data + 7 * 8192, sizeof last);
    ASSERT_EQ(first.magic, StatusBlock::kMagic);
    ASSERT_EQ(last.magic, StatusBlock::kMagic);
    EXPECT_EQ(last.runningTick - first.runningTick, 6u * 2048 * 10);
    EXPECT_EQ(last.tick - first.tick, 6u * 2048 * 10);
    // The pulse comes where the instrument's UTC is a whole second.
    EXPECT_EQ(inst->utcNsAtTick(last.ppsTick) % 1000000000, 0);
    EXPECT_EQ(inst->sampleRate(), 25e6);
}

TEST_F(SimFixture, TickCountersWrapAtThirtyTwoBits) {
    inst->setPaced(false);
    inst->setUnpacedTicks(0xFFFFFFFFull - 5000);
    CommandList list;
    list.AppendListHead();
    list.AppendWord(0x13010000);
    list.AppendStatusWord();
    list.AppendDataWord();
    list.AppendDataWord();
    list.AppendStatusWord();
    transport->BeginRead(0, 32768, 2000);
    ASSERT_TRUE(SendCommandList(*transport, list));
    TransferResult r = transport->FinishRead(0);
    ASSERT_TRUE(r.good());
    StatusBlock before, after;
    std::memcpy(&before, r.data, sizeof before);
    std::memcpy(&after, r.data + 3 * 8192, sizeof after);
    EXPECT_GT(before.runningTick, 0xFFFF0000u);
    EXPECT_LT(after.runningTick, 20480u);  // wrapped
    EXPECT_EQ(static_cast<uint32_t>(after.runningTick - before.runningTick), 2u * 2048 * 5);
}

TEST_F(SimFixture, PacedStreamNeverRunsAheadOfRealTime) {
    // 128 blocks at 50 MS/s take 5.24 ms to sample.
    CommandList list;
    list.AppendListHead();
    list.AppendWord(0x13010000);
    for (int i = 0; i < 128; ++i) list.AppendDataWord();
    const auto t0 = std::chrono::steady_clock::now();
    transport->BeginRead(0, 1 << 20, 2);
    ASSERT_TRUE(SendCommandList(*transport, list));
    EXPECT_TRUE(transport->FinishRead(0).failed);  // too early: nothing is taken
    transport->status = zrNoError;
    transport->BeginRead(0, 1 << 20, 5000);
    ASSERT_TRUE(transport->FinishRead(0).good());
    EXPECT_GE(std::chrono::steady_clock::now() - t0, std::chrono::microseconds(5242));
}

TEST_F(SimFixture, StatusBlockCarriesIdentityTemperatureAndFlags) {
    inst->setFirmware(9, 4, 6);
    inst->setGpioInput(0xA5);
    ASSERT_EQ(zrSimSetTemperature(kSerial, -12.25f), zrNoError);
    StatusBlock s = status();
    EXPECT_EQ(s.magic, StatusBlock::kMagic);
    EXPECT_EQ(s.firmware, 9u);
    EXPECT_EQ(s.firmwareMinor, 4);
    EXPECT_EQ(s.firmwareMajor, 6);
    EXPECT_EQ(s.gpioInput, 0xA5);
    EXPECT_FLOAT_EQ(sensorCelsius(s.tempCal), -12.25f);
    EXPECT_NEAR(s.fpgaTemperature * 0.6767578125 - 265.0, -12.25, 0.7);
    EXPECT_EQ(s.sfpTemperature, 0xFFFF);
    EXPECT_EQ(s.flags, 0);

    inst->injectJesdUnsynced(2);
    inst->injectBadMagic(1);
    EXPECT_NE(status().magic, StatusBlock::kMagic);
    EXPECT_TRUE(status().flags & StatusBlock::kFlagJesdUnsynced);
    EXPECT_FALSE(status().flags & StatusBlock::kFlagJesdUnsynced);

    inst->injectSampleLoss(3);
    s = status();
    EXPECT_TRUE(s.flags & StatusBlock::kFlagSampleLoss);
    EXPECT_EQ(s.lossCounter, 3);
    s = status();
    EXPECT_FALSE(s.flags & StatusBlock::kFlagSampleLoss);
    EXPECT_EQ(s.lossCounter, 3);

    inst->setAdcOverload(true);
    EXPECT_TRUE(status().flags & StatusBlock::kFlagAdcOverload);
}

TEST_F(SimFixture, ClippedSamplesRaiseTheOverloadFlag) {
    inst->setCenterFrequency(1e9);
    inst->addTone(1e9 + 1e6, 20.0);
    CommandList list;
    list.AppendListHead();
    list.AppendWord(0x13010000);
    for (int i = 0; i < 3; ++i) list.AppendDataWord();
    list.AppendStatusWord();
    transport->BeginRead(0, 32768, 2000);
    ASSERT_TRUE(SendCommandList(*transport, list));
    TransferResult r = transport->FinishRead(0);
    ASSERT_TRUE(r.good());
    StatusBlock s;
    std::memcpy(&s, r.data + 3 * 8192, sizeof s);
    EXPECT_TRUE(s.flags & StatusBlock::kFlagAdcOverload);
}

TEST_F(SimFixture, ConnectionTestDrainsAndSucceeds) {
    // Stale replies of an earlier session.
    CommandList stale;
    for (int i = 0; i < 9; ++i) stale.AppendStatusWord();
    ASSERT_TRUE(SendCommandList(*transport, stale));
    transport->status = zrConnectionLostErr;
    EXPECT_TRUE(TestConnection(*transport));
    EXPECT_EQ(transport->status, zrNoError);
}

TEST_F(SimFixture, FpgaStartAndFlashRoundTrip) {
    EXPECT_EQ(StartFPGA(*transport), zrNoError);
    inst->setFpgaLoadFails(true);
    EXPECT_EQ(StartFPGA(*transport), zrFPGABootErr);

    uint8_t page[1024];
    for (int i = 0; i < 1024; ++i) page[i] = static_cast<uint8_t>(i ^ 0x5A);
    EXPECT_EQ(WriteFlashPage(*transport, 200, page), zrNoError);
    std::vector<uint8_t> out(32768);
    EXPECT_EQ(ReadFlashBlock(*transport, 200, out.data()), zrNoError);
    EXPECT_EQ(std::memcmp(out.data(), page, 1024), 0);
    EXPECT_EQ(out[1024], 0xFF);
    EXPECT_EQ(EraseFlashPage(*transport, 200, 2), zrNoError);
    EXPECT_EQ(ReadFlashBlock(*transport, 200, out.data()), zrNoError);
    EXPECT_EQ(out[0], 0xFF);
    uint32_t version = 0;
    EXPECT_EQ(ReadBootVersion(*transport, &version), zrNoError);
    EXPECT_EQ(version, 2u);
    EXPECT_EQ(inst->unknownWords(), 0u);
}

TEST_F(SimFixture, InjectedTransferFaultsSetTheStickyStatus) {
    uint8_t raw[8192];
    inst->shortNextRead();
    EXPECT_FALSE(ReadStatusBlock(*transport, raw));
    EXPECT_EQ(transport->status, zrConnectionLostErr);
    transport->status = zrNoError;

    inst->failNextWrite();
    EXPECT_FALSE(ReadStatusBlock(*transport, raw));
    EXPECT_EQ(transport->status, zrConnectionLostErr);
    transport->FinishRead(0);  // the read left running out
    transport->status = zrNoError;

    inst->timeOutNextRead();
    transport->BeginRead(0, 8192, 50);
    ASSERT_TRUE(SendCommandList(*transport, [] { CommandList l; l.AppendStatusWord(); return l; }()));
    EXPECT_TRUE(transport->FinishRead(0).failed);
    EXPECT_EQ(transport->status, zrConnectionLostErr);
    transport->status = zrNoError;
    EXPECT_TRUE(ReadStatusBlock(*transport, raw));  // the instrument itself is fine
}

TEST_F(SimFixture, CablePullFailsReadsInFlightAndEverythingAfter) {
    transport->BeginRead(0, 32768, 60000);  // would outlast the watchdog if it hung
    std::thread puller([] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        zrSimDetach(kSerial);
    });
    TransferResult r = transport->FinishRead(0);
    puller.join();
    EXPECT_TRUE(r.failed);
    EXPECT_EQ(transport->status, zrConnectionLostErr);
    CommandList l;
    l.AppendStatusWord();
    EXPECT_FALSE(SendCommandList(*transport, l));
    transport->BeginRead(0, 8192, 60000);
    EXPECT_TRUE(transport->FinishRead(0).failed);
    EXPECT_FALSE(transport->Reset());
    EXPECT_EQ(zrSimAddTone(kSerial, 1e9, -10), zrDeviceNotFoundErr);
}

TEST_F(SimFixture, BuilderListsLandInTheModelsRegisters) {
    inst->setStrictWords(true);
    CommandList list;
    list.AppendListHead();
    list.AppendRegister(0x0034, 0);
    std::vector<uint32_t> window(64 * 20);
    for (size_t i = 0; i < window.size(); ++i) window[i] = 0x40000000u + static_cast<uint32_t>(i);
    AppendWindowTable(list, window.data(), window.size());  // spans several blocks
    std::vector<float> taps(126, 0.0f);
    taps[62] = 1.0f;
    taps[63] = 1.0f;
    AppendIFFilter(list, 2, 0, taps.data(), false);
    const uint8_t values[3] = {1, 2, 3};
    const uint32_t durations[3] = {10, 20, 30};
    AppendGPIOSwitching(list, true, values, durations, 3);
    AppendCapture(list, 0x10, 4, zrTriggerTypeExternal, 100, 2);
    std::vector<double> dec(159, 1.0);
    AppendDecimationTaps(list, 3, dec.data());
    AppendMesaWake(list);
    AppendLOBias(list, 0.5f, 100.0f);
    AppendStreamStart(list, 2, 0x0000000500000123ull, false);
    list.AppendStatusWord();
    ASSERT_GT(list.blockCount(), 3u);
    transport->BeginRead(0, 8192, 2000);
    ASSERT_TRUE(SendCommandList(*transport, list));
    ASSERT_TRUE(transport->FinishRead(0).good());

    EXPECT_EQ(inst->unknownWords(), 0u);
    for (uint32_t i = 0; i < window.size(); ++i) ASSERT_EQ(inst->reg(0x2000 + i), window[i]) << i;
    EXPECT_EQ(inst->reg(0x003C), 1u | 8u);
    EXPECT_EQ(inst->reg(0x0040 + 16), 0xFFFFu);  // lanes 32 and 33
    EXPECT_EQ(inst->reg(0x0200 + 2), 0x03C0001Eu);
    EXPECT_EQ(inst->reg(0x0027), 0x40000063u);
    EXPECT_EQ(inst->reg(0x0028), 2u);
    EXPECT_EQ(inst->reg(0x0678 + 8), static_cast<uint32_t>(static_cast<int32_t>(1.0 / 159.0 * 0x40000)));
    EXPECT_EQ(inst->reg(0x0034), 0x01000000u);
    EXPECT_EQ(inst->reg(0x0022), 5u);
    EXPECT_EQ(inst->reg(0x0023), 0x123u);
    EXPECT_TRUE(inst->streaming());
    EXPECT_EQ(inst->sampleRate(), 25e6);
    EXPECT_EQ(inst->digitalTuneWord(), 0x123u);
}

TEST_F(SimFixture, TransportIdentityAndClose) {
    EXPECT_EQ(transport->GetDeviceType(), zrDeviceTypeMesa2);
    EXPECT_EQ(transport->deviceSerial, kSerial);
    EXPECT_TRUE(transport->Reset());
    transport->Close();
    EXPECT_EQ(transport->GetDeviceType(), 0);
    EXPECT_EQ(transport->deviceSerial, -1);
}

TEST(SimInterface, ArgumentsAndSerialsAreChecked) {
    EXPECT_EQ(zrSimAttachUSB(zrDeviceTypeMesa3, 12345678), zrInvalidParameterErr);
    EXPECT_EQ(zrSimAttachUSB(static_cast<ZrDeviceType>(7), 12345678), zrInvalidParameterErr);
    EXPECT_EQ(zrSimAttachUSB(zrDeviceTypeRidge2, 1234567), zrInvalidParameterErr);
    EXPECT_EQ(zrSimAttachUSB(zrDeviceTypeRidge2, 123456789), zrInvalidParameterErr);
    ASSERT_EQ(zrSimAttachUSB(zrDeviceTypeRidge2, 12345678), zrNoError);
    EXPECT_EQ(zrSimAttachUSB(zrDeviceTypeMesa1, 12345678), zrInvalidParameterErr);
    EXPECT_EQ(zrSimAddTone(12345678, NAN, -10), zrInvalidParameterErr);
    EXPECT_EQ(zrSimAddTone(12345678, 1e9, -10), zrNoError);
    EXPECT_EQ(zrSimAddTone(87654321, 1e9, -10), zrDeviceNotFoundErr);
    EXPECT_EQ(zrSimSetNoiseFloor(12345678, INFINITY), zrInvalidParameterErr);
    EXPECT_EQ(zrSimSetTemperature(12345678, 500.0f), zrInvalidParameterErr);
    EXPECT_EQ(zrSimClearSignals(87654321), zrDeviceNotFoundErr);
    EXPECT_EQ(zrSimDetach(12345678), zrNoError);
    EXPECT_EQ(zrSimDetach(12345678), zrDeviceNotFoundErr);
    ASSERT_EQ(zrSimAttachUSB(zrDeviceTypeMesa1, 12345678), zrNoError);  // the serial is free again
    EXPECT_EQ(findInstrument(12345678)->type(), zrDeviceTypeMesa1);
    EXPECT_EQ(zrSimDetach(12345678), zrNoError);
}

TEST(SimInterface, WaitScaleReachesTheLibrarysWaitSeam) {
    setProtocolWaitScale(1.0);
    EXPECT_EQ(zrSimSetWaitScale(-1.0), zrInvalidParameterErr);
    ASSERT_EQ(zrSimSetWaitScale(0.125), zrNoError);
    EXPECT_DOUBLE_EQ(protocolWaitScale(), 0.125);
    setProtocolWaitScale(2.0);
    EXPECT_DOUBLE_EQ(protocolWaitScale(), 0.25);
    setProtocolWaitScale(1.0);
    ASSERT_EQ(zrSimSetWaitScale(1.0), zrNoError);
    EXPECT_DOUBLE_EQ(protocolWaitScale(), 1.0);
}

}  // namespace
}  // namespace zr::sim
