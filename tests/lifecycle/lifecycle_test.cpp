// Open, close, preset and mode changes through the public interface, on
// simulated USB instruments: the boot ladder, the calibration cache and the
// start-up lists all run as they do with hardware.
#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <vector>

#include "device/frame.h"
#include "registry.h"
#include "support/process_stats.h"
#include "support/temp_folder.h"
#include "support/watchdog.h"
#include "zr_api.h"
#include "zr_sim.h"

using namespace zr;

namespace {

class Lifecycle : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(zrSetDataFolder(folder.str().c_str()), zrNoError);
        zrSimSetWaitScale(0.0);
    }
    void TearDown() override {
        for (int h = 0; h < kMaxDevices; ++h) zrCloseDevice(h);
        for (int s : attached) zrSimDetach(s);
        zrSimSetWaitScale(1.0);
    }
    void plug(ZrDeviceType type, int serial) {
        ASSERT_EQ(zrSimAttachUSB(type, serial), zrNoError);
        attached.push_back(serial);
    }
    int open(int serial) {
        int h = -1;
        const ZrStatus s = zrOpenDeviceBySerial(&h, serial);
        EXPECT_GE(s, zrNoError) << zrGetErrorString(s);
        return h;
    }
    test::TempFolder folder;
    test::Watchdog watchdog{std::chrono::seconds(120)};
    std::vector<int> attached;
};

bool underSanitizer() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return true;
#else
    return false;
#endif
}

TEST_F(Lifecycle, ColdAndWarmOpensLeaveAnIdleAwakeDeviceAndReuseTheLowestIndex) {
    plug(zrDeviceTypeMesa2, 10000001);
    plug(zrDeviceTypeRidge2, 20000002);
    plug(zrDeviceTypeMesa2, 10000003);

    // Cold: the instruments sit in their boot loaders and nothing is cached.
    const int a = open(10000001);
    const int b = open(20000002);
    EXPECT_EQ(a, 0);
    EXPECT_EQ(b, 1);
    ZrMode mode = zrModeSweeping;
    ZrPowerState power = zrPowerStateStandby;
    ASSERT_EQ(zrGetCurrentMode(b, &mode), zrNoError);
    ASSERT_EQ(zrGetPowerState(b, &power), zrNoError);
    EXPECT_EQ(mode, zrModeIdle);
    EXPECT_EQ(power, zrPowerStateOn);
    ZrDeviceType type = zrDeviceTypeMesa1;
    int serial = 0;
    ASSERT_EQ(zrGetDeviceInfo(b, &type, &serial), zrNoError);
    EXPECT_EQ(serial, 20000002);
    EXPECT_EQ(type, zrDeviceTypeRidge2);
    EXPECT_EQ(zrGetCurrentMode(b, nullptr), zrNullPtrErr);

    // Open instruments leave the list; a closed one comes back.
    int serials[kMaxDevices], count = 0;
    ASSERT_EQ(zrGetDeviceList(serials, &count), zrNoError);
    ASSERT_EQ(count, 1);
    EXPECT_EQ(serials[0], 10000003);

    ASSERT_EQ(zrCloseDevice(a), zrNoError);
    EXPECT_EQ(zrCloseDevice(a), zrInvalidDeviceErr);
    EXPECT_EQ(open(10000003), 0);

    // Warm: the instrument runs its program and its image is cached.
    ASSERT_TRUE(sim::findInstrument(10000001)->running());
    EXPECT_EQ(open(10000001), 2);
    ASSERT_EQ(zrCloseDevice(2), zrNoError);

    // The start-up words reached the instrument: the fan and reference
    // registers hold what the device asked for.
    auto inst = sim::findInstrument(20000002);
    EXPECT_NE(inst->reg(0x002A), 0u);
    EXPECT_EQ(inst->reg(0x002E) & 0x4u, 0x4u);
}

TEST_F(Lifecycle, NineOpenAtOnceAndTheTenthIsRefusedBeforeTouchingAnInstrument) {
    for (int i = 0; i < 10; ++i) plug(i % 2 ? zrDeviceTypeRidge2 : zrDeviceTypeMesa2, 30000000 + i);
    int serials[kMaxDevices], count = 0;
    ASSERT_EQ(zrGetDeviceList(serials, &count), zrNoError);
    EXPECT_EQ(count, kMaxDevices);
    for (int i = 0; i < kMaxDevices; ++i) EXPECT_EQ(open(30000000 + i), i);

    int h = -7;
    EXPECT_EQ(zrOpenDeviceBySerial(&h, 30000009), zrMaxDevicesErr);
    EXPECT_EQ(h, -7);
    EXPECT_FALSE(sim::findInstrument(30000009)->running()) << "the tenth instrument was booted";
    EXPECT_EQ(zrOpenDeviceBySerial(nullptr, 30000009), zrNullPtrErr);
}

TEST_F(Lifecycle, FailedOpensLeaveTheTableAsItWas) {
    int h = -7;
    EXPECT_EQ(zrOpenDevice(&h), zrDeviceNotFoundErr);
    EXPECT_EQ(zrOpenDeviceBySerial(&h, 12345678), zrDeviceNotFoundErr);

    // The converters never lock: the open fails and asks for a reset, which
    // puts the instrument back in its boot loader.
    plug(zrDeviceTypeMesa2, 10000011);
    auto inst = sim::findInstrument(10000011);
    ASSERT_EQ(open(10000011), 0);  // boots it and fills the cache
    ASSERT_EQ(zrCloseDevice(0), zrNoError);
    inst->injectJesdUnsynced(1000);
    EXPECT_EQ(zrOpenDeviceBySerial(&h, 10000011), zrJESDErr);
    EXPECT_EQ(h, -7);
    EXPECT_FALSE(inst->running());
    for (int i = 0; i < kMaxDevices; ++i) EXPECT_EQ(lookupDevice(i), nullptr);

    // A few unsynchronised reads are ridden out.
    inst->injectJesdUnsynced(0);
    inst->injectJesdUnsynced(3);
    EXPECT_EQ(open(10000011), 0);
    ASSERT_EQ(zrCloseDevice(0), zrNoError);

    // A Mesa image of calibration version 1 is too old for this library.
    plug(zrDeviceTypeMesa2, 10000012);
    const uint32_t version1 = 1;
    sim::findInstrument(10000012)->programFlash(0x100000 + 0x40000 + 4,
                                                reinterpret_cast<const uint8_t*>(&version1), 4);
    EXPECT_EQ(zrOpenDeviceBySerial(&h, 10000012), zrInvalidCalFileVersionErr);
    EXPECT_EQ(lookupDevice(0), nullptr);
}

// Both warnings of an open store a working handle.
TEST_F(Lifecycle, ImageWarningsStillOpen) {
    // A record written by a newer calibration station.
    plug(zrDeviceTypeMesa2, 10000061);
    const uint32_t newer[2] = {0x60000000u, 3u};  // calDate, calVersion
    sim::findInstrument(10000061)->programFlash(0x100000 + 0x40000, reinterpret_cast<const uint8_t*>(newer),
                                                sizeof newer);
    int h = -1;
    EXPECT_EQ(zrOpenDeviceBySerial(&h, 10000061), zrUpdateAPI);
    ASSERT_EQ(h, 0);
    EXPECT_NE(lookupDevice(h), nullptr);

    // A Ridge record changed after its checksum was taken (away from the
    // sector that holds the calibration date, which the programmer erases).
    plug(zrDeviceTypeRidge2, 20000062);
    const float gain = 1.5f;
    sim::findInstrument(20000062)->programFlash(0x100000 + offsetof(RidgeCalData, gain) + 0x20000,
                                                reinterpret_cast<const uint8_t*>(&gain), sizeof gain);
    int r = -1;
    EXPECT_EQ(zrOpenDeviceBySerial(&r, 20000062), zrInvalidCalData);
    ASSERT_EQ(r, 1);
    ZrMode mode = zrModeSweeping;
    EXPECT_EQ(zrGetCurrentMode(r, &mode), zrNoError);
    EXPECT_EQ(mode, zrModeIdle);
}

TEST_F(Lifecycle, PresetEndsTheHandleAndTheInstrumentComesBackInItsBootLoader) {
    plug(zrDeviceTypeMesa2, 10000021);
    const int h = open(10000021);
    ASSERT_EQ(zrPreset(h), zrNoError);
    EXPECT_EQ(lookupDevice(h), nullptr);
    EXPECT_FALSE(sim::findInstrument(10000021)->running());
    EXPECT_EQ(zrPreset(h), zrInvalidDeviceErr);
    EXPECT_EQ(open(10000021), h);  // and it opens again
}

TEST_F(Lifecycle, ConfigureStopsWakesAndRefusesWhatIsNotThere) {
    plug(zrDeviceTypeMesa1, 10000031);
    const int h = open(10000031);
    ZrMode mode = zrModeSweeping;

    EXPECT_EQ(zrConfigure(h, static_cast<ZrMode>(7)), zrInvalidParameterErr);
    EXPECT_EQ(zrConfigure(h, static_cast<ZrMode>(-1)), zrInvalidParameterErr);
    EXPECT_EQ(zrConfigure(h, zrModeIdle), zrInvalidConfigurationErr);
    EXPECT_EQ(zrConfigure(h, zrModeIQSegmentedCapture), zrInvalidConfigurationErr);
    ASSERT_EQ(zrGetCurrentMode(h, &mode), zrNoError);
    EXPECT_EQ(mode, zrModeIdle);
    EXPECT_EQ(zrAbort(h), zrNoError);
    EXPECT_EQ(zrConfigure(9, zrModeSweeping), zrInvalidDeviceErr);

    // A device left in standby wakes for a configuration.
    ASSERT_EQ(zrSetPowerState(h, zrPowerStateStandby), zrNoError);
    zrConfigure(h, zrModeSweeping);
    ZrPowerState power = zrPowerStateStandby;
    ASSERT_EQ(zrGetPowerState(h, &power), zrNoError);
    EXPECT_EQ(power, zrPowerStateOn);

    // A device left in standby by its caller closes without a further list.
    ASSERT_EQ(zrSetPowerState(h, zrPowerStateStandby), zrNoError);
    EXPECT_EQ(zrCloseDevice(h), zrNoError);
}

TEST_F(Lifecycle, SettingsSurviveModeChangesAndPowerCycles) {
    plug(zrDeviceTypeMesa2, 10000041);
    const int h = open(10000041);
    ASSERT_EQ(zrSetSweepCenterSpan(h, 2e9, 1e8), zrNoError);
    ASSERT_EQ(zrSetAudioCenterFreq(h, 1e8), zrNoError);
    zrConfigure(h, zrModeSweeping);
    ASSERT_EQ(zrAbort(h), zrNoError);
    ASSERT_EQ(zrSetPowerState(h, zrPowerStateStandby), zrNoError);
    ASSERT_EQ(zrSetPowerState(h, zrPowerStateOn), zrNoError);
    const ZrDevice* d = lookupDevice(h);
    ASSERT_NE(d, nullptr);
    EXPECT_DOUBLE_EQ(d->sweep.center, 2e9);
    EXPECT_DOUBLE_EQ(d->sweep.span, 1e8);
    EXPECT_DOUBLE_EQ(d->audio.center, 1e8);
}

// Repeated opens and closes leave no thread, descriptor or memory behind.
// Each open drains stale replies with a real transfer time-out, so the
// thousand-cycle run lives in the benchmarks (lifecycle_bench).
TEST_F(Lifecycle, RepeatedOpenAndCloseLeaksNothing) {
    plug(zrDeviceTypeMesa2, 10000051);
    const int cycles = 25;
    auto cycle = [&] {
        int h = -1;
        ASSERT_GE(zrOpenDeviceBySerial(&h, 10000051), zrNoError);
        ASSERT_EQ(zrCloseDevice(h), zrNoError);
    };
    for (int i = 0; i < 5; ++i) cycle();  // caches, allocator pools, thread registry
    const int threads = test::threadCount();
    const int fds = test::descriptorCount();
    const long rss = test::residentKiB();
    for (int i = 0; i < cycles; ++i) cycle();
    EXPECT_EQ(test::threadCount(), threads);
    EXPECT_EQ(test::descriptorCount(), fds);
    // One device holds several MiB of calibration; a leak of it per cycle
    // would show as gigabytes.
    if (!underSanitizer()) EXPECT_LT(test::residentKiB() - rss, 16 * 1024);
}

}  // namespace

namespace {

TEST_F(Lifecycle, ConfigureTrimsTheTimebaseForTheTemperatureItReads) {
    plug(zrDeviceTypeMesa2, 10000051);
    const int h = open(10000051);
    ZrDevice* d = lookupDevice(h);
    ASSERT_NE(d, nullptr);
    auto inst = sim::findInstrument(10000051);
    std::vector<int> words;
    for (float celsius : {5.0f, 55.0f}) {
        zrSimSetTemperature(10000051, celsius);
        d->status.update([](StatusImage& s) { s.lastStatusTick = 0; });  // older than the refresh rule allows
        ASSERT_GE(zrConfigure(h, zrModeSweeping), zrNoError);
        EXPECT_NEAR(d->configureTemperature, celsius, 0.5);
        words.push_back(int(inst->reg(reg::kTimebase) >> 16));
        EXPECT_EQ(words.back(), (d->coarseTune + d->corrections.GetTimebaseOffset()) & 0xFFFF) << celsius;
    }
    // The factory table trims differently at the two temperatures.
    EXPECT_NE(words[0], words[1]);
}

TEST_F(Lifecycle, ASerialHeldOpenIsNotThereForASecondOpen) {
    plug(zrDeviceTypeMesa2, 10000061);
    const int h = open(10000061);
    int second = -1;
    EXPECT_EQ(zrOpenDeviceBySerial(&second, 10000061), zrDeviceNotFoundErr);
    EXPECT_EQ(second, -1);
    EXPECT_EQ(lookupDevice(h + 1), nullptr);
    // The first handle still drives the instrument.
    float volts = 0.0f;
    EXPECT_EQ(zrGetDeviceDiagnostics(h, &volts, nullptr, nullptr), zrNoError);
    EXPECT_GT(volts, 1.0f);
}

}  // namespace
