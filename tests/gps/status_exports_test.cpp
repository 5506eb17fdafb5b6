#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <memory>
#include <string>

#include "api/frame.h"
#include "gps/gps_status.h"
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

StatusBlock toBlock(const StatusBytes& b) {
    StatusBlock block;
    std::memcpy(&block, b.data(), sizeof block);
    return block;
}

std::string rmcText(const char* hhmmss) {
    return nmea(std::string("GPRMC,") + hhmmss + ",A,4807.038,N,01131.000,E,0.1,0.0,221126,,,A");
}

}  // namespace

// ---------------------------------------------------------------------------
// Status decoding

TEST(GpsStatusDecode, RingReceiverAndDisciplineRunFromAStatusBlock) {
    zr::test::TempFolder tmp;
    ASSERT_TRUE(setAppDataFolder(tmp.str()));
    ScriptedDevice sd;
    ZrDevice& dev = *sd.dev;
    ManualClock clock;
    dev.gps.clock = &clock;
    dev.gpsTimebaseUpdate = 1;
    dev.timebaseTuned = 0x8000;

    StatusBytes b;
    b.pulseTick(1000).statusTick(1000).runningTick(1000).ringWrite(3).finishedText(0, rmcText("120000"));
    decodeStatusGps(dev, toBlock(b), true, false, 4);
    EXPECT_EQ(dev.gpsPulses.readIndex, 3);
    EXPECT_EQ(dev.gps.locked, 0);

    clock.advanceMs(1000);
    b.pulseTick(1000 + 250000000u).statusTick(1000 + 250000000u).finishedText(1, rmcText("120001"));
    b.ringEntry(3, 1500).ringWrite(4);
    dev.tuneReported = 0x8000 + 20;
    decodeStatusGps(dev, toBlock(b), true, false, 4);
    EXPECT_EQ(dev.gpsPulses.count, 1u);
    EXPECT_EQ(dev.gpsPulses.entries[0], 500u);
    ASSERT_EQ(dev.gps.locked, 1);
    EXPECT_EQ(dev.gps.timestamp, 1795305600ll + 12 * 3600 + 2);
    EXPECT_EQ(dev.timebaseTuned, 0x8000 + 20);
    EXPECT_EQ(dev.coarseTune, 0x8000 + 16);

    // The new value is in the cache file beside the calibration images.
    StoredTimebase onDisk;
    ASSERT_TRUE(readTimebaseFile(calFilesFolder(), 24681357, onDisk));
    EXPECT_EQ(onDisk.tune, 0x8000 + 16);
    EXPECT_EQ(onDisk.timeSeconds, clock.ns / 1000000000);
    EXPECT_EQ(std::filesystem::file_size(tmp.path() / "cal_files" / "zr24681357gps.bin"), 64u);
}

TEST(GpsStatusDecode, SkipGpsReadsOnlyTheTriggerRing) {
    ScriptedDevice sd;
    ZrDevice& dev = *sd.dev;
    ManualClock clock;
    dev.gps.clock = &clock;
    StatusBytes b;
    b.pulseTick(1000).statusTick(1000).runningTick(1000).ringWrite(9);
    decodeStatusGps(dev, toBlock(b), true, true, 0);
    EXPECT_EQ(dev.gpsPulses.readIndex, 9);
    EXPECT_EQ(dev.gps.lastPulseTick, 0xFFFFFFFFu);
    EXPECT_EQ(dev.gps.statusTime, 0);
}

// ---------------------------------------------------------------------------
// Words sent

TEST(GpsWords, TimebaseReferenceWordCarriesSelectionUpdateAndTune) {
    ScriptedDevice sd;
    ZrDevice& dev = *sd.dev;
    dev.timebaseTuned = 0x8123;
    EXPECT_EQ(timebaseReferenceWord(dev), 0x81230004u);
    dev.referenceSource = 1;
    EXPECT_EQ(timebaseReferenceWord(dev), 0x81230005u);
    dev.externalReference = 1;
    dev.gpsTimebaseUpdate = 1;
    EXPECT_EQ(timebaseReferenceWord(dev), 0x8123000Fu);
    dev.referenceSource = 2;  // only the value 1 selects
    EXPECT_EQ(timebaseReferenceWord(dev), 0x8123000Eu);
}

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
