#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <memory>
#include <string>

#include "device/frame.h"
#include "device/services.h"
#include "device/gps_status.h"
#include "gps/timebase_file.h"
#include "gps_test_support.h"
#include "platform/data_folder.h"
#include "support/temp_folder.h"
#include "transport/command_list.h"
#include "transport/scripted_transport.h"
#include "transport/status_block.h"

using namespace zr;
using zr::test::ManualClock;
using zr::test::nmea;
using zr::test::ScriptedTransport;
using zr::test::StatusBytes;

namespace {

// A Mesa2 on a scripted transport, placed in the handle table for the
// exported calls and taken out again at scope exit.
class ScriptedDevice {
public:
    ScriptedDevice() {
        auto t = std::make_unique<ScriptedTransport>();
        transport = t.get();
        transport->deviceSerial = 24681357;
        dev = new ZrDevice(std::move(t));
        dev->firmwareMajor = 4;
        dev->firmwareMinor = 5;
        dev->firmwareRevision = 13;
        handle = firstFreeHandle();
        if (handle >= 0) deviceTable[handle] = dev;
    }
    ~ScriptedDevice() {
        if (handle >= 0) deviceTable[handle] = nullptr;
        delete dev;
    }
    ScriptedDevice(const ScriptedDevice&) = delete;
    ScriptedDevice& operator=(const ScriptedDevice&) = delete;

    ScriptedTransport* transport = nullptr;
    ZrDevice* dev = nullptr;
    int handle = -1;
};

std::string rmcText(const char* hhmmss) {
    return nmea(std::string("GPRMC,") + hhmmss + ",A,4807.038,N,01131.000,E,0.1,0.0,221126,,,A");
}

}  // namespace

// ---------------------------------------------------------------------------
// Status decoding

TEST(GpsStatusDecode, TheStatusDecoderRunsRingReceiverAndDiscipline) {
    zr::test::TempFolder tmp;
    ASSERT_TRUE(setAppDataFolder(tmp.str()));
    ScriptedDevice sd;
    ZrDevice& dev = *sd.dev;
    ManualClock clock;
    dev.gps.clock = &clock;
    dev.gpsTimebaseUpdate = 1;
    dev.timebaseTuned = 0x8000;
    const int offset = dev.corrections.GetTimebaseOffset();

    StatusBytes b;
    b.pulseTick(1000).statusTick(1000).runningTick(1000).ringWrite(3).finishedText(0, rmcText("120000"));
    b.u16(34, 0x8000);
    decodeStatus(dev, b.data(), true, false);
    EXPECT_EQ(dev.gpsPulses.readIndex, 3);
    EXPECT_EQ(dev.gps.locked, 0);

    clock.advanceMs(1000);
    b.pulseTick(1000 + 250000000u).statusTick(1000 + 250000000u).finishedText(1, rmcText("120001"));
    b.ringEntry(3, 1500).ringWrite(4);
    b.u16(34, 0x8000 + 20);  // the tune the instrument reports
    decodeStatus(dev, b.data(), true, false);
    EXPECT_EQ(dev.gpsPulses.count, 1u);
    EXPECT_EQ(dev.gpsPulses.entries[0], 500u);
    ASSERT_EQ(dev.gps.locked, 1);
    EXPECT_EQ(dev.gps.timestamp, 1795305600ll + 12 * 3600 + 2);
    EXPECT_EQ(dev.timebaseTuned, 0x8000 + 20);
    EXPECT_EQ(dev.coarseTune, static_cast<uint16_t>(0x8000 + 20 - offset));

    // The new value is in the cache file beside the calibration images.
    StoredTimebase onDisk;
    ASSERT_TRUE(readTimebaseFile(calFilesFolder(), 24681357, onDisk));
    EXPECT_EQ(onDisk.tune, dev.coarseTune);
    EXPECT_EQ(onDisk.timeSeconds, clock.ns / 1000000000);
    EXPECT_EQ(std::filesystem::file_size(tmp.path() / "cal_files" / "zr24681357gps.bin"), 64u);

    // A block with a bad magic reaches neither the ring nor the receiver.
    StatusBytes bad = b;
    bad.magic(0).ringWrite(100).pulseTick(7);
    decodeStatus(dev, bad.data(), true, false);
    EXPECT_EQ(dev.gpsPulses.readIndex, 4);
    EXPECT_EQ(dev.gps.lastPulseTick, 1000 + 250000000u);
}

TEST(GpsStatusDecode, SkipGpsReadsOnlyTheTriggerRing) {
    ScriptedDevice sd;
    ZrDevice& dev = *sd.dev;
    ManualClock clock;
    dev.gps.clock = &clock;
    StatusBytes b;
    b.pulseTick(1000).statusTick(1000).runningTick(1000).ringWrite(9);
    decodeStatusGps(dev, b.data(), 0, true, true, 0);
    EXPECT_EQ(dev.gpsPulses.readIndex, 9);
    EXPECT_EQ(dev.gps.lastPulseTick, 0xFFFFFFFFu);
    EXPECT_EQ(dev.gps.statusTime, 0);
}

// ---------------------------------------------------------------------------
// Words sent

TEST(GpsWords, MessageIsPackedFourBytesToAWordAndPaddedWithZeros) {
    CommandList list;
    const uint8_t msg[] = {'$', 'P', 'M', 'T', 'K', '1', '0', '1'};
    AppendGPSMessage(list, msg, 5);
    EXPECT_EQ(list.wordAt(0), 0x040201C0u);
    EXPECT_EQ(list.wordAt(4), 0x544D5024u);  // "$PMT", little-endian
    EXPECT_EQ(list.wordAt(8), 0x0000004Bu);  // "K" and padding, not the bytes after it

    CommandList full;
    uint8_t big[kMaxGpsMessageBytes];
    for (int i = 0; i < kMaxGpsMessageBytes; ++i) big[i] = static_cast<uint8_t>(i);
    AppendGPSMessage(full, big, kMaxGpsMessageBytes);
    EXPECT_EQ(full.wordAt(0), 0x04FF01C0u);
    EXPECT_EQ(full.wordAt(4 * 255), 0xFBFAF9F8u);  // the last of the 255 words
}

// ---------------------------------------------------------------------------
// Exports

TEST(GpsExports, SetTimebaseUpdateGatesStoresAndSendsTheWord) {
    ScriptedDevice sd;
    ZrDevice& dev = *sd.dev;
    dev.timebaseTuned = 0x7ABC;
    EXPECT_EQ(zrSetGPSTimebaseUpdate(-1, zrTrue), zrInvalidDeviceErr);
    EXPECT_EQ(zrSetGPSTimebaseUpdate(sd.handle, static_cast<ZrBool>(2)), zrInvalidParameterErr);

    dev.currentMode = zrModeSweeping;
    EXPECT_EQ(zrSetGPSTimebaseUpdate(sd.handle, zrFalse), zrInvalidConfigurationErr)
        << "a running mode refuses even an unchanged value";
    dev.currentMode = zrModeIdle;

    EXPECT_EQ(zrSetGPSTimebaseUpdate(sd.handle, zrFalse), zrNoError);
    EXPECT_TRUE(sd.transport->written.empty()) << "an unchanged value sends nothing";

    EXPECT_EQ(zrSetGPSTimebaseUpdate(sd.handle, zrTrue), zrNoError);
    EXPECT_EQ(dev.gpsTimebaseUpdate, 1u);
    ASSERT_EQ(sd.transport->written.size(), 1u);
    EXPECT_EQ(sd.transport->writtenWord(0, 0), 0x0401002Eu);
    EXPECT_EQ(sd.transport->writtenWord(0, 1), 0x7ABC000Cu);
    EXPECT_EQ(dev.timebaseTuned, 0x7ABC) << "the tune is sent as it is, not recomputed";

    ZrBool enabled = zrFalse;
    EXPECT_EQ(zrGetGPSTimebaseUpdate(sd.handle, nullptr), zrNullPtrErr);
    EXPECT_EQ(zrGetGPSTimebaseUpdate(sd.handle, &enabled), zrNoError);
    EXPECT_EQ(enabled, zrTrue);

    // A failed send leaves the new value stored and reports the link.
    sd.transport->failWriteAt = 1;
    EXPECT_EQ(zrSetGPSTimebaseUpdate(sd.handle, zrFalse), zrConnectionLostErr);
    EXPECT_EQ(dev.gpsTimebaseUpdate, 0u);
    EXPECT_EQ(zrGetGPSTimebaseUpdate(sd.handle, &enabled), zrNoError);
    EXPECT_EQ(enabled, zrFalse);
}

TEST(GpsExports, WriteToGpsChecksArgumentsModeAndFirmwareThenSendsOneList) {
    ScriptedDevice sd;
    ZrDevice& dev = *sd.dev;
    const uint8_t msg[] = "$PMTK220,1000*1F\r\n";
    const int len = static_cast<int>(sizeof msg - 1);
    EXPECT_EQ(zrWriteToGPS(9, msg, len), zrInvalidDeviceErr);
    EXPECT_EQ(zrWriteToGPS(sd.handle, nullptr, len), zrNullPtrErr);
    EXPECT_EQ(zrWriteToGPS(sd.handle, msg, 0), zrInvalidParameterErr);
    EXPECT_EQ(zrWriteToGPS(sd.handle, msg, -3), zrInvalidParameterErr);
    uint8_t big[kMaxGpsMessageBytes + 1] = {};
    EXPECT_EQ(zrWriteToGPS(sd.handle, big, kMaxGpsMessageBytes + 1), zrInvalidParameterErr);

    dev.currentMode = zrModeIQStreaming;
    EXPECT_EQ(zrWriteToGPS(sd.handle, msg, len), zrInvalidConfigurationErr);
    dev.currentMode = zrModeIdle;
    dev.firmwareRevision = 12;  // below the Mesa2 firmware that passes bytes on
    EXPECT_EQ(zrWriteToGPS(sd.handle, msg, len), zrInvalidConfigurationErr);
    EXPECT_TRUE(sd.transport->written.empty());

    dev.firmwareRevision = 13;
    EXPECT_EQ(zrWriteToGPS(sd.handle, msg, len), zrNoError);
    ASSERT_EQ(sd.transport->written.size(), 1u);
    EXPECT_EQ(sd.transport->writtenWord(0, 0), 0x040501C0u);  // 18 bytes: 5 words
    EXPECT_EQ(std::memcmp(sd.transport->written[0].data() + 4, msg, static_cast<size_t>(len)), 0);
    EXPECT_EQ(sd.transport->written[0][4 + len], 0);
    EXPECT_EQ(sd.transport->written[0][4 + len + 1], 0);

    EXPECT_EQ(zrWriteToGPS(sd.handle, big, kMaxGpsMessageBytes), zrNoError);
    EXPECT_EQ(sd.transport->writtenWord(1, 0), 0x04FF01C0u);
}

TEST(GpsExports, StateRefreshesOnlyInIdleAndReportsTheLink) {
    ScriptedDevice sd;
    ZrDevice& dev = *sd.dev;
    int state = -1;
    EXPECT_EQ(zrGetGPSState(42, &state), zrInvalidDeviceErr);
    EXPECT_EQ(zrGetGPSState(sd.handle, nullptr), zrNullPtrErr);

    // Idle: one status read. The script answers with a block that has the
    // magic only, which the decoder takes as "no status yet".
    sd.transport->reads.push_back({false, 0, StatusBlock::kMagic});
    EXPECT_EQ(zrGetGPSState(sd.handle, &state), zrNoError);
    EXPECT_EQ(sd.transport->finishReads, 1);
    EXPECT_EQ(state, 0);

    // In a mode the data path keeps the status fresh: no read, and 0.
    dev.currentMode = zrModeIQStreaming;
    dev.gps.locked = 1;
    dev.transport->status = zrConnectionLostErr;
    EXPECT_EQ(zrGetGPSState(sd.handle, &state), zrNoError);
    EXPECT_EQ(sd.transport->finishReads, 1);
    EXPECT_EQ(state, 1);
    dev.timebaseDisciplined = 1;
    EXPECT_EQ(zrGetGPSState(sd.handle, &state), zrNoError);
    EXPECT_EQ(state, 2);

    // Idle with a lost link: the read fails, the status says so.
    dev.currentMode = zrModeIdle;
    EXPECT_EQ(zrGetGPSState(sd.handle, &state), zrConnectionLostErr);
    EXPECT_EQ(sd.transport->finishReads, 2);
    EXPECT_EQ(dev.status.load().statusBlockInvalid, 1);
}

TEST(GpsExports, InfoRefreshesOnlyWhenAskedAndSlotZeroIsFree) {
    ScriptedDevice sd;
    ZrDevice& dev = *sd.dev;
    EXPECT_EQ(zrGetGPSInfo(-2, zrFalse, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr),
              zrInvalidDeviceErr);
    EXPECT_EQ(zrGetGPSInfo(sd.handle, static_cast<ZrBool>(2), nullptr, nullptr, nullptr, nullptr, nullptr,
                           nullptr, nullptr),
              zrInvalidParameterErr);

    struct Case { ZrMode mode; ZrBool refresh; int reads; };
    const Case cases[] = {{zrModeIdle, zrFalse, 0}, {zrModeIdle, zrTrue, 1}, {zrModeSweeping, zrTrue, 1},
                          {zrModeRealTime, zrTrue, 0}, {zrModeIQStreaming, zrTrue, 0}};
    for (const Case& c : cases) {
        const int before = sd.transport->finishReads;
        sd.transport->reads.push_back({false, 0, StatusBlock::kMagic});
        dev.currentMode = c.mode;
        int64_t secs = 9;
        EXPECT_EQ(zrGetGPSInfo(sd.handle, c.refresh, nullptr, &secs, nullptr, nullptr, nullptr, nullptr, nullptr),
                  zrGPSNotLockedErr);
        EXPECT_EQ(secs, 0);
        EXPECT_EQ(sd.transport->finishReads - before, c.reads) << c.mode << " " << c.refresh;
        sd.transport->reads.clear();
    }

    // Locked: the fix and the transport's status.
    dev.currentMode = zrModeIdle;
    {
        std::lock_guard<std::mutex> g(dev.gps.lock);
        dev.gps.locked = 1;
        dev.gps.timestamp = 1795350920;
        dev.gps.latitude = 48.5;
    }
    int64_t secs = 0;
    double lat = 0;
    EXPECT_EQ(zrGetGPSInfo(sd.handle, zrFalse, nullptr, &secs, &lat, nullptr, nullptr, nullptr, nullptr), zrNoError);
    EXPECT_EQ(secs, 1795350920);
    EXPECT_EQ(lat, 48.5);
}

TEST(GpsExports, HoldoverComparesTheCacheWithTheCalibrationHistory) {
    zr::test::TempFolder tmp;
    ASSERT_TRUE(setAppDataFolder(tmp.str()));
    ScriptedDevice sd;
    ZrDevice& dev = *sd.dev;
    EXPECT_EQ(zrGetGPSHoldoverInfo(-1, nullptr, nullptr), zrInvalidDeviceErr);

    ZrBool using_ = static_cast<ZrBool>(5);
    uint64_t last = 7;
    EXPECT_EQ(zrGetGPSHoldoverInfo(sd.handle, &using_, &last), zrNoError);
    EXPECT_EQ(using_, static_cast<ZrBool>(5)) << "no cache file: left as given";
    EXPECT_EQ(last, 0u);
    EXPECT_EQ(zrGetGPSHoldoverInfo(sd.handle, nullptr, nullptr), zrNoError);

    // A history in the Mesa image in force, newest entry dated 5000.
    ASSERT_FALSE(dev.corrections.isRidge);
    dev.corrections.mesa->timebaseValue[0] = 0x8000;
    dev.corrections.mesa->timebaseDate[0] = 4000;
    dev.corrections.mesa->timebaseValue[1] = 0x8004;
    dev.corrections.mesa->timebaseDate[1] = 5000;

    StoredTimebase w;
    w.timeSeconds = 5000;
    w.tune = 0x8010;
    ASSERT_TRUE(writeTimebaseFile(calFilesFolder(), 24681357, w));
    EXPECT_EQ(zrGetGPSHoldoverInfo(sd.handle, &using_, &last), zrNoError);
    EXPECT_EQ(using_, zrFalse);
    EXPECT_EQ(last, 5000u);

    w.timeSeconds = 5001;
    ASSERT_TRUE(writeTimebaseFile(calFilesFolder(), 24681357, w));
    EXPECT_EQ(zrGetGPSHoldoverInfo(sd.handle, &using_, &last), zrNoError);
    EXPECT_EQ(using_, zrTrue);
    EXPECT_EQ(last, 5001u);
    EXPECT_EQ(dev.storedTimebase.tune, 0x8010);

    // Without usingHoldover the file is not read again: the stored date answers.
    w.timeSeconds = 6000;
    ASSERT_TRUE(writeTimebaseFile(calFilesFolder(), 24681357, w));
    EXPECT_EQ(zrGetGPSHoldoverInfo(sd.handle, nullptr, &last), zrNoError);
    EXPECT_EQ(last, 5001u);
}
