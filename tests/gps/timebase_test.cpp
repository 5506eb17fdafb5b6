#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "device/device.h"
#include "device/timebase_discipline.h"
#include "gps/timebase_file.h"
#include "gps_test_support.h"
#include "support/fake_transport.h"
#include "support/temp_folder.h"

using namespace zr;
using zr::test::ManualClock;

namespace {

// Files in a fresh temp folder, named the way the cache names them.
struct TempFolder {
    zr::test::TempFolder t;
    std::string folder() const { return t.str(); }
    std::filesystem::path file(const std::string& name) const { return t.path() / name; }
};

std::vector<uint8_t> readAll(const std::filesystem::path& p) {
    std::ifstream f(p, std::ios::binary);
    return {std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>()};
}

void writeBytes(const std::filesystem::path& p, const std::vector<uint8_t>& b) {
    std::ofstream f(p, std::ios::binary | std::ios::trunc);
    f.write(reinterpret_cast<const char*>(b.data()), static_cast<std::streamsize>(b.size()));
}

}  // namespace

// ---------------------------------------------------------------------------
// The cache file

TEST(TimebaseFile, NameCarriesTheSerialInEightDigits) {
    EXPECT_EQ(timebaseFilePath("/data/Quillon/cal_files/", 12345), "/data/Quillon/cal_files/zr00012345gps.bin");
    EXPECT_EQ(timebaseFilePath("/data/x", 87654321), "/data/x/zr87654321gps.bin");
    EXPECT_EQ(timebaseFilePath("", 7), "zr00000007gps.bin");
}

TEST(TimebaseFile, WriteThenReadRoundTrips) {
    TempFolder tmp;
    StoredTimebase w;
    w.valid = 1;
    w.timeSeconds = 1795350919;
    w.tune = 0x7F3A;
    ASSERT_TRUE(writeTimebaseFile(tmp.folder(), 20261122, w));
    auto bytes = readAll(tmp.file("zr20261122gps.bin"));
    EXPECT_EQ(bytes.size(), 64u);

    StoredTimebase r;
    ASSERT_TRUE(readTimebaseFile(tmp.folder(), 20261122, r));
    EXPECT_EQ(r.valid, 1);
    EXPECT_EQ(r.timeSeconds, w.timeSeconds);
    EXPECT_EQ(r.tune, w.tune);

    // Writing again replaces the record, it does not append.
    w.tune = 0x8001;
    ASSERT_TRUE(writeTimebaseFile(tmp.folder(), 20261122, w));
    EXPECT_EQ(readAll(tmp.file("zr20261122gps.bin")).size(), 64u);
    ASSERT_TRUE(readTimebaseFile(tmp.folder(), 20261122, r));
    EXPECT_EQ(r.tune, 0x8001);
}

TEST(TimebaseFile, MissingOrMalformedFilesAreNotReadAndLeaveTheRecord) {
    TempFolder tmp;
    StoredTimebase keep;
    keep.valid = 1;
    keep.timeSeconds = 42;
    keep.tune = 99;
    auto unchanged = [&keep] { return keep.valid == 1 && keep.timeSeconds == 42 && keep.tune == 99; };

    EXPECT_FALSE(readTimebaseFile(tmp.folder(), 1, keep));
    EXPECT_TRUE(unchanged());

    StoredTimebase w;
    w.timeSeconds = 7;
    w.tune = 5;
    ASSERT_TRUE(writeTimebaseFile(tmp.folder(), 1, w));
    const std::vector<uint8_t> b = readAll(tmp.file("zr00000001gps.bin"));
    ASSERT_EQ(b.size(), 64u);

    auto tryBytes = [&](std::vector<uint8_t> bytes, const char* what) {
        writeBytes(tmp.file("zr00000001gps.bin"), bytes);
        EXPECT_FALSE(readTimebaseFile(tmp.folder(), 1, keep)) << what;
        EXPECT_TRUE(unchanged()) << what;
    };
    auto shortFile = b;
    shortFile.pop_back();
    tryBytes(shortFile, "63 bytes");
    auto longFile = b;
    longFile.push_back(0);
    tryBytes(longFile, "65 bytes");
    auto badMagic = b;
    badMagic[0] ^= 1;
    tryBytes(badMagic, "magic");
    auto badVersion = b;
    badVersion[4] = 2;
    tryBytes(badVersion, "version");
    auto otherSerial = b;
    otherSerial[20] = 2;  // written for instrument 2
    tryBytes(otherSerial, "serial");
    auto noTune = b;
    noTune[16] = noTune[17] = 0xFF;
    tryBytes(noTune, "tune 0xFFFF");
    auto future = b;
    future[15] = 0x01;  // 2^56 s
    tryBytes(future, "future date");
    // A writer that recorded no serial is taken at its word.
    auto noSerial = b;
    noSerial[20] = 0;
    writeBytes(tmp.file("zr00000001gps.bin"), noSerial);
    StoredTimebase older;
    EXPECT_TRUE(readTimebaseFile(tmp.folder(), 1, older));
    EXPECT_EQ(older.tune, 5);

    // A folder by the file's name is not a file.
    std::filesystem::remove(tmp.file("zr00000001gps.bin"));
    std::filesystem::create_directory(tmp.file("zr00000001gps.bin"));
    EXPECT_FALSE(readTimebaseFile(tmp.folder(), 1, keep));
    EXPECT_TRUE(unchanged());
}

TEST(TimebaseFile, WriteIntoAMissingFolderFails) {
    TempFolder tmp;
    StoredTimebase w;
    EXPECT_FALSE(writeTimebaseFile(tmp.folder() + "absent/", 1, w));
}

TEST(TimebaseHistory, NewestDateBeforeTheFirstEmptyEntry) {
    std::array<uint16_t, 64> values;
    std::array<uint64_t, 64> dates;
    values.fill(0xFFFF);
    dates.fill(~0ull);
    EXPECT_EQ(lastTimebaseHistoryDate(values.data(), dates.data()), 0u);

    values[0] = 0x8000;
    dates[0] = 1000;
    values[1] = 0x8010;
    dates[1] = 2000;
    // An entry after the first gap is not part of the history.
    values[3] = 0x8020;
    dates[3] = 9000;
    EXPECT_EQ(lastTimebaseHistoryDate(values.data(), dates.data()), 2000u);

    for (int i = 0; i < 64; ++i) {
        values[static_cast<size_t>(i)] = static_cast<uint16_t>(i);
        dates[static_cast<size_t>(i)] = 100u + static_cast<uint64_t>(i);
    }
    EXPECT_EQ(lastTimebaseHistoryDate(values.data(), dates.data()), 163u) << "a full history is read to the end";
}

// ---------------------------------------------------------------------------
// Discipline

namespace {

class Discipline : public ::testing::Test {
protected:
    Discipline() : dev(std::make_unique<zr::test::OfflineTransport>(zrDeviceTypeMesa2, 31415926)) {
        dev.gps.clock = &clock;
        dev.gpsTimebaseUpdate = 1;
        dev.gps.locked = 1;
        dev.timebaseTuned = 0x8000;
        dev.coarseTune = 0x8000 - 5;
    }

    ManualClock clock;
    ZrDevice dev;
    uint16_t tune = 0;  // what the status block reports
};

}  // namespace

TEST_F(Discipline, ReportedTuneWithin7CountsIsNotTaken) {
    for (int delta : {-7, 7, 0}) {
        tune = static_cast<uint16_t>(0x8000 + delta);
        EXPECT_FALSE(disciplineTimebase(dev, tune, 5)) << delta;
        EXPECT_EQ(dev.timebaseTuned, 0x8000) << delta;
        EXPECT_EQ(dev.coarseTune, 0x8000 - 5) << delta;
        EXPECT_EQ(dev.storedTimebase.valid, 0) << delta;
    }
}

TEST_F(Discipline, EightCountsAwayTheHostTakesItWithoutTheTemperatureOffset) {
    tune = 0x8000 - 8;
    EXPECT_TRUE(disciplineTimebase(dev, tune, -12));
    EXPECT_EQ(dev.timebaseTuned, 0x8000 - 8);
    EXPECT_EQ(dev.coarseTune, 0x8000 - 8 + 12);
    EXPECT_EQ(dev.storedTimebase.valid, 1);
    EXPECT_EQ(dev.storedTimebase.tune, 0x8000 - 8 + 12);
    EXPECT_EQ(dev.storedTimebase.timeSeconds, clock.ns / 1000000000);

    // Following on from the new value, a step of 3 is inside the hysteresis.
    const int64_t taken = dev.storedTimebase.timeSeconds;
    clock.advanceMs(60000);
    tune = 0x8000 - 5;
    EXPECT_FALSE(disciplineTimebase(dev, tune, -12));
    EXPECT_EQ(dev.timebaseTuned, 0x8000 - 8);
    EXPECT_EQ(dev.storedTimebase.timeSeconds, taken);

    // The coarse value wraps in 16 bits like the register field.
    dev.timebaseTuned = 0x0010;
    tune = 0x0002;
    EXPECT_TRUE(disciplineTimebase(dev, tune, 5));
    EXPECT_EQ(dev.coarseTune, 0xFFFD);
}

TEST_F(Discipline, NothingHappensWithoutLockOrWithTheUpdateOff) {
    tune = 0x9000;
    dev.timebaseDisciplined = 1;
    dev.gps.locked = 0;
    EXPECT_FALSE(disciplineTimebase(dev, tune, 0));
    EXPECT_EQ(dev.timebaseDisciplined, 0) << "no lock clears the flag";
    EXPECT_EQ(dev.timebaseTuned, 0x8000);

    dev.gps.locked = 1;
    dev.gpsTimebaseUpdate = 0;
    EXPECT_FALSE(disciplineTimebase(dev, tune, 0));
    EXPECT_EQ(dev.timebaseDisciplined, 0);
    EXPECT_EQ(dev.timebaseTuned, 0x8000);
}

TEST_F(Discipline, DisciplinedFlagFromTheTuneDifferenceOrFromTheFirmwarePulse) {
    // Host-side discipline: any difference shows the instrument is steering.
    tune = 0x8000;
    disciplineTimebase(dev, tune, 0);
    EXPECT_EQ(dev.timebaseDisciplined, 0);
    tune = 0x8001;
    disciplineTimebase(dev, tune, 0);
    EXPECT_EQ(dev.timebaseDisciplined, 1);

    // Firmware discipline: the valid pulse decides, whatever the difference.
    dev.timebaseDisciplined = 0;
    dev.firmwareDiscipline = 1;
    dev.gps.ppsValid = 0;
    disciplineTimebase(dev, tune, 0);
    EXPECT_EQ(dev.timebaseDisciplined, 0);
    dev.gps.ppsValid = 1;
    tune = 0x8000;
    dev.timebaseTuned = 0x8000;
    disciplineTimebase(dev, tune, 0);
    EXPECT_EQ(dev.timebaseDisciplined, 1);
}
