#include <gtest/gtest.h>

#include <cstring>

#include "device/services.h"
#include "support/fake_transport.h"
#include "transport/status_block.h"

using namespace zr;
using zr::test::InstalledDevice;

namespace {

struct Block {
    alignas(8) uint8_t bytes[StatusBlock::kSize] = {};
    Block() {
        put32(0, StatusBlock::kMagic);
        put32(4, 12);  // firmware revision
        put16(72, 5);
        put16(74, 4);
        put16(128, 0xFFFF);  // no SFP module
    }
    void put16(size_t off, uint16_t v) { std::memcpy(bytes + off, &v, 2); }
    void put32(size_t off, uint32_t v) { std::memcpy(bytes + off, &v, 4); }
    // Encodes a temperature as the sensors do: 0.25 degC steps, 10 bits, bit 12 sign.
    void temperature(size_t off, double celsius) {
        int q = static_cast<int>(celsius * 4.0);
        uint16_t code = celsius < 0 ? static_cast<uint16_t>(0x1000 | (((1024 + q) & 0x3FF) << 2))
                                    : static_cast<uint16_t>((q & 0x3FF) << 2);
        put16(off, code);
    }
};

}  // namespace

TEST(StatusDecode, SensorCodes) {
    EXPECT_FLOAT_EQ(sensorCodeToCelsius(100 << 2), 25.0f);
    EXPECT_FLOAT_EQ(sensorCodeToCelsius(0), 0.0f);
    EXPECT_FLOAT_EQ(sensorCodeToCelsius(static_cast<uint16_t>(0x1000 | (1020 << 2))), -1.0f);
    EXPECT_FLOAT_EQ(sensorCodeToCelsius(static_cast<uint16_t>(0x1000 | (0 << 2))), -256.0f);
    // Bits outside 12..2 are not part of the value.
    EXPECT_FLOAT_EQ(sensorCodeToCelsius(static_cast<uint16_t>((100 << 2) | 0x3 | 0xE000)), 25.0f);
    // The fan code inverts the FPGA formula within one code step.
    for (int t : {10, 50, 90}) EXPECT_NEAR(fanThresholdCode(t) * 0.6767578125 - 265.0, t, 0.7);
    EXPECT_EQ(fanThresholdCode(50), static_cast<uint32_t>((315 * 1024) / 693));
}

TEST(StatusDecode, ImageFirmwareFlagsAndDiagnostics) {
    InstalledDevice d(zrDeviceTypeMesa2);
    ZrDevice& dev = d.device();
    Block b;
    b.put16(64, 1100);  // 12.1 V
    b.put16(70, 1500);  // 3.0 A
    b.put16(40, 430);   // FPGA code
    b.temperature(80, 25.0);
    b.temperature(76, -10.5);
    b.bytes[28] = StatusBlock::kFlagAdcOverload | StatusBlock::kFlagJesdUnsynced;
    b.bytes[29] = 7;
    b.bytes[44] = 0x5A;
    b.put16(34, 0x1234);
    b.put32(36, 0xCAFEF00D);
    decodeStatus(dev, b.bytes, false, false);
    EXPECT_EQ(dev.status.load().statusBlockInvalid, 0);
    EXPECT_EQ(dev.firmwareMajor, 4);
    EXPECT_EQ(dev.firmwareMinor, 5);
    EXPECT_EQ(dev.firmwareRevision, 12);
    EXPECT_EQ(dev.status.load().adcOverflow, 1);
    EXPECT_EQ(dev.status.load().jesdUnsynced, 1);
    EXPECT_EQ(dev.status.load().dataLoss, 0);
    EXPECT_EQ(dev.status.load().gpioInput, 0x5A);
    EXPECT_EQ(dev.status.load().tuneReported, 0x1234);
    EXPECT_EQ(dev.status.load().loReadback, 0xCAFEF00Du);
    EXPECT_FLOAT_EQ(dev.status.load().diagnostics[0], 12.1f);
    EXPECT_FLOAT_EQ(dev.status.load().diagnostics[1], 3.0f);
    EXPECT_NEAR(dev.status.load().diagnostics[4], 430 * 0.6767578125 - 265.0, 1e-4);
    EXPECT_FLOAT_EQ(dev.status.load().diagnostics[8], 25.0f);
    EXPECT_FLOAT_EQ(dev.status.load().diagnostics[9], -10.5f);
    EXPECT_EQ(dev.status.load().sfpDiagnostics[0], 0.0f);

    // The loss counter: first value taken, a change flagged, no change clears.
    EXPECT_EQ(dev.status.load().lossCounter, 7);
    EXPECT_EQ(dev.status.load().lossCounterChanged, 0);
    b.bytes[29] = 8;
    decodeStatus(dev, b.bytes, false, false);
    EXPECT_EQ(dev.status.load().lossCounterChanged, 1);
    decodeStatus(dev, b.bytes, false, false);
    EXPECT_EQ(dev.status.load().lossCounterChanged, 0);

    // A bad block marks the image invalid and changes nothing else.
    Block bad;
    bad.put32(0, 0);
    bad.bytes[28] = 0;
    decodeStatus(dev, bad.bytes, false, false);
    EXPECT_EQ(dev.status.load().statusBlockInvalid, 1);
    EXPECT_EQ(dev.status.load().adcOverflow, 1);
    // A block with a zero firmware word is good but carries nothing.
    Block empty;
    empty.put32(4, 0);
    decodeStatus(dev, empty.bytes, false, false);
    EXPECT_EQ(dev.status.load().statusBlockInvalid, 0);
    EXPECT_EQ(dev.firmwareRevision, 12);
}

TEST(StatusDecode, SfpRecordWhenPresent) {
    InstalledDevice d(zrDeviceTypeMesa3);
    Block b;
    b.put16(128, 40 * 256);
    b.put16(130, 33000);
    b.put16(132, 5000);
    b.put16(134, 4000);
    decodeStatus(d.device(), b.bytes, false, false);
    EXPECT_FLOAT_EQ(d.device().status.load().sfpDiagnostics[0], 40.0f);
    EXPECT_FLOAT_EQ(d.device().status.load().sfpDiagnostics[1], 3.3f);
    EXPECT_FLOAT_EQ(d.device().status.load().sfpDiagnostics[2], 0.5f);
    EXPECT_FLOAT_EQ(d.device().status.load().sfpDiagnostics[3], 0.4f);
}

TEST(StatusDecode, DriftRaisesBeyondFourAndClearsWithinThree) {
    InstalledDevice d(zrDeviceTypeMesa2);
    ZrDevice& dev = d.device();
    dev.configureTemperature = 30.0f;
    Block b;
    const struct { double t; int drift; } steps[] = {
        {33.0, 0}, {34.0, 0}, {34.25, 1}, {33.5, 1}, {33.0, 1}, {32.75, 0}, {25.75, 1}, {27.0, 1}, {27.25, 0}, {26.0, 0},
    };
    for (const auto& s : steps) {
        b.temperature(80, s.t);
        decodeStatus(dev, b.bytes, false, false);
        EXPECT_EQ(dev.status.load().tempDrift, s.drift) << s.t;
    }
}

TEST(Services, LevelsStoreSilentlyAndReadBack) {
    InstalledDevice d(zrDeviceTypeMesa2);
    const int h = d.handle();
    int atten = 0;
    double ref = 0;
    EXPECT_EQ(zrSetAttenuator(h, -5), zrNoError);
    EXPECT_EQ(zrGetAttenuator(h, &atten), zrNoError);
    EXPECT_EQ(atten, -1);
    EXPECT_EQ(zrSetAttenuator(h, 9), zrNoError);
    zrGetAttenuator(h, &atten);
    EXPECT_EQ(atten, 6);
    EXPECT_EQ(zrGetAttenuator(h, nullptr), zrNoError);
    EXPECT_EQ(zrSetRefLevel(h, 35.0), zrNoError);
    zrGetRefLevel(h, &ref);
    EXPECT_EQ(ref, 20.0);
    EXPECT_EQ(zrSetRefLevel(h, -150.0), zrNoError);
    zrGetRefLevel(h, &ref);
    EXPECT_EQ(ref, -150.0);
    EXPECT_EQ(zrSetRefLevel(h, NAN), zrInvalidParameterErr);

    ZrBool pre = zrTrue;
    EXPECT_EQ(zrSetPreselector(h, (ZrBool)2), zrInvalidParameterErr);
    EXPECT_EQ(zrGetPreselector(h, &pre), zrNoError);
    EXPECT_EQ(pre, zrFalse);
    EXPECT_EQ(zrSetPreselector(h, zrTrue), zrNoError);
    zrGetPreselector(h, &pre);
    EXPECT_EQ(pre, zrTrue);
    EXPECT_EQ(zrGetPreselector(h, nullptr), zrNullPtrErr);
    // None of these talk to the instrument.
    EXPECT_EQ(d.device().transport->status, zrNoError);
}

TEST(Services, HardwareSettersStoreBeforeSendingAndReportTheLink) {
    // The offline transport fails every transfer: the new value must still be
    // stored and the call must answer the lost connection.
    InstalledDevice d(zrDeviceTypeMesa2);
    const int h = d.handle();
    ZrDevice& dev = d.device();
    EXPECT_EQ(zrSetReference(h, 2), zrInvalidParameterErr);
    EXPECT_EQ(zrSetReference(h, 0), zrNoError);  // unchanged: nothing sent
    EXPECT_EQ(dev.transport->status, zrNoError);
    EXPECT_EQ(zrSetReference(h, 1), zrConnectionLostErr);
    int v = 0;
    EXPECT_EQ(zrGetReference(h, &v), zrNoError);
    EXPECT_EQ(v, 1);
    EXPECT_EQ(zrSetExternalReference(h, 1), zrConnectionLostErr);
    zrGetExternalReference(h, &v);
    EXPECT_EQ(v, 1);
    EXPECT_EQ(zrSetFanThreshold(h, 95), zrConnectionLostErr);
    EXPECT_EQ(zrGetFanThreshold(h, &v), zrNoError);
    EXPECT_EQ(v, 90);
    EXPECT_EQ(zrSetFanThreshold(h, 0), zrConnectionLostErr);
    zrGetFanThreshold(h, &v);
    EXPECT_EQ(v, 10);
    EXPECT_EQ(zrWriteGPIOImm(h, 0xA5), zrConnectionLostErr);
    EXPECT_EQ(dev.gpioRegister & 0xFF, 0xA5u);
    EXPECT_EQ(zrSetGPIOState(h, 1, 0), zrConnectionLostErr);
    int a = -1, b = -1;
    zrGetGPIOState(h, &a, &b);
    EXPECT_EQ(a, 1);
    EXPECT_EQ(b, 0);
    EXPECT_EQ(dev.gpioRegister & 0xFF, 0xA5u);  // directions leave the value alone
    EXPECT_EQ(zrWriteSPI(h, 0x1234, 3), zrConnectionLostErr);
    EXPECT_EQ((dev.gpioRegister >> 10) & 3, 2u);
    EXPECT_EQ(zrWriteSPI(h, 0, 0), zrInvalidParameterErr);
    EXPECT_EQ(zrWriteSPI(h, 0, 5), zrInvalidParameterErr);
    EXPECT_EQ(zrSetGPIOState(h, 2, 0), zrInvalidParameterErr);

    // Power state: the same state is nothing to do; a change is stored and sent.
    EXPECT_EQ(zrSetPowerState(h, zrPowerStateStandby), zrNoError);
    EXPECT_EQ(zrSetPowerState(h, zrPowerStateOn), zrConnectionLostErr);
    ZrPowerState ps;
    EXPECT_EQ(zrGetPowerState(h, &ps), zrNoError);
    EXPECT_EQ(ps, zrPowerStateOn);
    EXPECT_EQ(zrSetPowerState(h, (ZrPowerState)2), zrInvalidParameterErr);
    EXPECT_EQ(zrGetPowerState(h, nullptr), zrNullPtrErr);
}

TEST(Services, ModeGates) {
    InstalledDevice d(zrDeviceTypeMesa2);
    const int h = d.handle();
    d.device().currentMode = zrModeRealTime;
    EXPECT_EQ(zrSetReference(h, 1), zrInvalidConfigurationErr);
    EXPECT_EQ(zrSetFanThreshold(h, 40), zrInvalidConfigurationErr);
    EXPECT_EQ(zrWriteGPIOImm(h, 1), zrInvalidConfigurationErr);
    EXPECT_EQ(zrSetGPIOState(h, 0, 1), zrInvalidConfigurationErr);
    EXPECT_EQ(zrWriteSPI(h, 1, 1), zrInvalidConfigurationErr);
    EXPECT_EQ(zrSetPowerState(h, zrPowerStateOn), zrInvalidConfigurationErr);
    int v = -1;
    zrGetReference(h, &v);
    EXPECT_EQ(v, 0);  // a refused call stores nothing
    // Between sweeps the port calls are allowed; reference and fan are not.
    d.device().currentMode = zrModeSweeping;
    EXPECT_EQ(zrWriteGPIOImm(h, 1), zrConnectionLostErr);
    EXPECT_EQ(zrSetFanThreshold(h, 40), zrInvalidConfigurationErr);
    d.device().currentMode = zrModeIdle;
}

TEST(Services, GpioSweepAndSwitchingTables) {
    InstalledDevice d(zrDeviceTypeMesa2);
    const int h = d.handle();
    ZrGPIOStep steps[3] = {{3e9, 3, {}}, {1e9, 1, {}}, {2e9, 2, {}}};
    EXPECT_EQ(zrSetGPIOSweep(h, nullptr, 3), zrNullPtrErr);
    EXPECT_EQ(zrSetGPIOSweep(h, steps, 0), zrInvalidParameterErr);
    EXPECT_EQ(zrSetGPIOSweep(h, steps, 65), zrInvalidParameterErr);
    EXPECT_EQ(zrSetGPIOSweep(h, steps, 3), zrNoError);
    ASSERT_EQ(d.device().gpioSweep.size(), 3u);
    EXPECT_EQ(d.device().gpioSweep[0].frequency, 1e9);
    EXPECT_EQ(d.device().gpioSweep[0].value, 1);
    EXPECT_EQ(d.device().gpioSweep[2].value, 3);
    EXPECT_EQ(zrSetGPIOSweepDisabled(h), zrNoError);
    EXPECT_TRUE(d.device().gpioSweep.empty());

    const uint8_t values[3] = {1, 2, 3};
    const uint32_t fine[3] = {1, 100, 0x3FFFFE};
    const uint32_t bad[3] = {0, 0x3FFFFF, 0xFFFFFFFFu};  // the last reads as -1
    EXPECT_EQ(zrSetGPIOSwitching(h, values, nullptr, 3), zrNullPtrErr);
    EXPECT_EQ(zrSetGPIOSwitching(h, values, fine, 0), zrInvalidParameterErr);
    EXPECT_EQ(zrSetGPIOSwitching(h, values, fine, 3), zrNoError);
    EXPECT_EQ(zrSetGPIOSwitching(h, values, bad, 3), zrSettingClamped);
    const GpioSwitching& s = d.device().gpioSwitching;
    EXPECT_EQ(s.enabled, 1);
    EXPECT_EQ(s.count, 3u);
    EXPECT_EQ(s.durations[0], 1u);
    EXPECT_EQ(s.durations[1], 0x3FFFFEu);
    EXPECT_EQ(s.durations[2], 1u);
    EXPECT_EQ(s.values[2], 3);
    EXPECT_EQ(zrSetGPIOSwitchingDisabled(h), zrNoError);
    EXPECT_EQ(s.enabled, 0);
    EXPECT_EQ(s.count, 0u);
    EXPECT_EQ(s.values[2], 0);
}

TEST(Services, DiagnosticsFollowTheRefreshRuleAndModels) {
    InstalledDevice d(zrDeviceTypeMesa2);
    const int h = d.handle();
    float v = -1, c = -1, t = -1;
    // The refresh read fails on the offline link: results stay unset.
    EXPECT_EQ(zrGetDeviceDiagnostics(h, &v, &c, &t), zrConnectionLostErr);
    EXPECT_EQ(v, -1.0f);
    EXPECT_EQ(d.device().status.load().statusBlockInvalid, 1);
    ZrDeviceDiagnostics full;
    EXPECT_EQ(zrGetFullDeviceDiagnostics(h, nullptr), zrNullPtrErr);
    EXPECT_EQ(zrGetFullDeviceDiagnostics(h, &full), zrConnectionLostErr);
    float sfp[4] = {9, 9, 9, 9};
    EXPECT_EQ(zrGetSFPDiagnostics(h, &sfp[0], &sfp[1], &sfp[2], &sfp[3]), zrInvalidConfigurationErr);
    for (float x : sfp) EXPECT_EQ(x, 0.0f);
    InstalledDevice ridge(zrDeviceTypeRidge2);
    EXPECT_NE(zrGetSFPDiagnostics(ridge.handle(), nullptr, nullptr, nullptr, nullptr), zrInvalidConfigurationErr);
    // In a data mode the image is the engine's to refresh: no read happens.
    InstalledDevice rt(zrDeviceTypeMesa2);
    rt.device().currentMode = zrModeIQStreaming;
    EXPECT_EQ(zrGetDeviceDiagnostics(rt.handle(), &v, &c, &t), zrNoError);
    EXPECT_EQ(rt.device().transport->status, zrNoError);
    rt.device().currentMode = zrModeIdle;
}

TEST(Services, TimebaseWordBits) {
    InstalledDevice d(zrDeviceTypeMesa2);
    ZrDevice& dev = d.device();
    EXPECT_EQ(timebaseWord(dev), 0x80000004u);  // the tune starts mid-range
    dev.referenceSource = 1;
    dev.externalReference = 1;
    dev.gpsTimebaseUpdate = 1;
    dev.timebaseTuned = 0x8123;
    EXPECT_EQ(timebaseWord(dev), 0x8123000Fu);
}

#include "support/cal_images.h"

TEST(Services, CalDateIsTheNewestOfCalibrationAndTimebaseHistory) {
    InstalledDevice d(zrDeviceTypeMesa2);
    uint64_t seconds = 0;
    EXPECT_EQ(zrGetCalDate(d.handle(), nullptr), zrNullPtrErr);
    EXPECT_EQ(zrGetCalDate(d.handle(), &seconds), zrNoError);
    EXPECT_EQ(seconds, 0xFFFFFFFFu);  // nothing stored
    auto image = test::makeMesaImage();
    d.device().corrections.LoadCorrections(*image);
    EXPECT_EQ(zrGetCalDate(d.handle(), &seconds), zrNoError);
    EXPECT_EQ(seconds, image->calDate);  // the history in the test image is older
    image->timebaseDate[2] = image->calDate + 500;
    image->timebaseDate[3] = image->calDate + 900;  // behind the end of the history: not in use
    image->timebaseValue[3] = 0xFFFF;
    d.device().corrections.LoadCorrections(*image);
    EXPECT_EQ(zrGetCalDate(d.handle(), &seconds), zrNoError);
    EXPECT_EQ(seconds, image->calDate + 500u);
}
