// The USB transport and the calibration ladder against simulated
// instruments on the simulated bus: the code under test is the code that
// drives real instruments.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <limits>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>

#include "device/frame.h"
#include "device/services.h"
#include "gps/host_clock.h"
#include "calibration/load_usb.h"
#include "platform/data_folder.h"
#include "registry.h"
#include "support/cal_images.h"
#include "support/temp_folder.h"
#include "transport/command_list.h"
#include "transport/status_block.h"
#include "transport/wait.h"
#include "zr_sim.h"

using namespace zr;
using namespace std::chrono_literals;

namespace {

constexpr uint32_t kImageFlashOffset = 0x100000;

// Each test gets its own instruments, an empty data folder and no protocol
// waits; the waits' placement is the protocol's, their length is not.
class SimBus : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(zrSetDataFolder(folder.str().c_str()), zrNoError);
        zrSimSetWaitScale(0.0);
    }
    void TearDown() override {
        for (int s : attached) zrSimDetach(s);
        zrSimSetWaitScale(1.0);
    }
    std::shared_ptr<sim::Instrument> plug(ZrDeviceType type, int serial) {
        EXPECT_EQ(zrSimAttachUSB(type, serial), zrNoError);
        attached.push_back(serial);
        return sim::findInstrument(serial);
    }
    test::TempFolder folder;
    std::vector<int> attached;
};

std::unique_ptr<DeviceInterfaceUSB> open(int serial) {
    auto info = FindUSBBySerial(serial);
    if (!info) return nullptr;
    auto t = std::make_unique<DeviceInterfaceUSB>();
    if (!t->ConnectUSB(info->bus->open(*info), *info)) return nullptr;
    t->connected = 1;
    return t;
}

}  // namespace

TEST_F(SimBus, InstrumentsEnumerateInBootThenRunAfterTheFpgaLoad) {
    plug(zrDeviceTypeMesa2, 41000001);
    plug(zrDeviceTypeRidge2, 41000002);
    auto list = ListUSB();
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[0].serial, 41000001);
    EXPECT_FALSE(list[0].running);
    EXPECT_EQ(list[1].type, zrDeviceTypeRidge2);
    auto info = FindUSBBySerial(41000002);
    ASSERT_TRUE(info);
    EXPECT_EQ(info->product, "Ridge2 Boot");
    EXPECT_EQ(info->productId, 10);

    EXPECT_EQ(BootToRun(41000002), zrNoError);
    EXPECT_EQ(FindUSBBySerial(41000002)->product, "Ridge2");
    EXPECT_EQ(BootToRun(41000002), zrNoError);  // already running: nothing to do
    EXPECT_EQ(BootToRun(41000099), zrDeviceNotFoundErr);

    // A reset sends a running instrument back to its boot state.
    ASSERT_TRUE(ResetUSB(*FindUSBBySerial(41000002)));
    EXPECT_EQ(FindUSBBySerial(41000002)->product, "Ridge2 Boot");
}

TEST_F(SimBus, FailedFpgaLoadIsReportedAndLeavesBootState) {
    auto inst = plug(zrDeviceTypeMesa1, 41000003);
    inst->setFpgaLoadFails(true);
    EXPECT_EQ(BootToRun(41000003), zrFPGABootErr);
    EXPECT_EQ(FindUSBBySerial(41000003)->product, "Mesa1 Boot");
}

TEST_F(SimBus, RunningInstrumentAnswersStatusThroughTheUsbTransport) {
    plug(zrDeviceTypeMesa2, 41000004);
    ASSERT_EQ(BootToRun(41000004), zrNoError);
    auto t = open(41000004);
    ASSERT_TRUE(t);
    EXPECT_EQ(t->GetDeviceType(), zrDeviceTypeMesa2);
    EXPECT_TRUE(TestConnection(*t));
    alignas(8) uint8_t block[StatusBlock::kSize];
    ASSERT_TRUE(ReadStatusBlock(*t, block));
    uint32_t magic;
    std::memcpy(&magic, block, 4);
    EXPECT_EQ(magic, StatusBlock::kMagic);
    EXPECT_EQ(t->status, zrNoError);
    // Listed no more while this process holds it.
    EXPECT_TRUE(ListUSB().empty());
}

TEST_F(SimBus, FlashKeepsNorSemanticsThroughTheServiceWords) {
    plug(zrDeviceTypeMesa2, 41000005)->eraseFlash();  // no factory image in the way
    auto t = open(41000005);
    ASSERT_TRUE(t);
    std::vector<uint8_t> page(1024), block(32768);
    for (size_t i = 0; i < page.size(); ++i) page[i] = static_cast<uint8_t>(0xF0 | (i & 0x0F));
    EXPECT_EQ(WriteFlashPage(*t, 2000, page.data()), zrNoError);
    std::vector<uint8_t> other(1024, 0x3C);
    EXPECT_EQ(WriteFlashPage(*t, 2000, other.data()), zrNoError);  // no erase: bits only clear
    EXPECT_EQ(ReadFlashBlock(*t, 2000, block.data()), zrNoError);
    EXPECT_EQ(block[5], static_cast<uint8_t>(0xF5 & 0x3C));
    EXPECT_EQ(block[1024], 0xFF);  // the next page was never written
    EXPECT_EQ(EraseFlashPage(*t, 2000, 2), zrNoError);
    EXPECT_EQ(ReadFlashBlock(*t, 2000, block.data()), zrNoError);
    EXPECT_EQ(block[5], 0xFF);
}

TEST_F(SimBus, ColdMesaLoadReadsFlashFillsTheCacheAndAWarmLoadUsesIt) {
    auto inst = plug(zrDeviceTypeMesa2, 41000006);
    auto image = test::makeMesaImage(41000006);
    const auto* bytes = reinterpret_cast<const uint8_t*>(image.get());
    inst->programFlash(kImageFlashOffset, bytes, 0x250000);

    DeviceInterfaceUSB first;
    ASSERT_EQ(loadCalibrationUSB(first, 41000006), zrNoError);
    EXPECT_TRUE(first.connected);
    EXPECT_TRUE(inst->running());
    EXPECT_EQ(first.GetDeviceType(), zrDeviceTypeMesa2);
    EXPECT_EQ(std::memcmp(first.image.data(), bytes, 0x250000), 0);
    const std::string cache = calCachePath(41000006);
    ASSERT_TRUE(std::filesystem::exists(cache));
    EXPECT_EQ(std::filesystem::file_size(cache), kMesaImageSize);
    first.Close();

    // Flash changes behind the cache's back; a warm load from the run state
    // must not read it.
    const uint8_t changed = 0x00;
    inst->programFlash(kImageFlashOffset + 0x50000, &changed, 1);
    DeviceInterfaceUSB warm;
    ASSERT_EQ(loadCalibrationUSB(warm, 41000006), zrNoError);
    EXPECT_EQ(warm.image[0x50000], bytes[0x50000]);
    EXPECT_TRUE(inst->running());
}

TEST_F(SimBus, ACacheThatIsNotThisInstrumentsImageFallsBackToFlashAndIsRewritten) {
    // Each stands where the cache belongs while the instrument runs, so the
    // warm path meets it first: none may block, be read or be believed, and
    // the log says why it was passed over.
    auto inst = plug(zrDeviceTypeMesa2, 41000016);
    auto image = test::makeMesaImage(41000016);
    const auto* bytes = reinterpret_cast<const uint8_t*>(image.get());
    inst->programFlash(kImageFlashOffset, bytes, 0x250000);
    const std::string cache = calCachePath(41000016);
    // The same image with one field changed, written where the cache was.
    static auto edited = [](const std::string& p, size_t offset, uint32_t value) {
        std::filesystem::rename(p + ".keep", p);
        std::fstream f(p, std::ios::in | std::ios::out | std::ios::binary);
        f.seekp(std::streamoff(offset));
        f.write(reinterpret_cast<const char*>(&value), 4);
    };
    const struct {
        const char* what;
        void (*make)(const std::string&);
        const char* logged;
    } rows[] = {
        {"fifo", [](const std::string& p) { ASSERT_EQ(::mkfifo(p.c_str(), 0644), 0); }, "not a regular file"},
        {"link to /dev/zero", [](const std::string& p) { std::filesystem::create_symlink("/dev/zero", p); }, "not a regular file"},
        {"truncated", [](const std::string& p) { std::filesystem::resize_file(p + ".keep", 1000), std::filesystem::rename(p + ".keep", p); },
         "not a regular file of 4194304 bytes"},
        {"extended", [](const std::string& p) { std::filesystem::resize_file(p + ".keep", kMesaImageSize + 1), std::filesystem::rename(p + ".keep", p); },
         "not a regular file of 4194304 bytes"},
        {"another serial", [](const std::string& p) { edited(p, 0, 41000017); }, "the serial in it is another"},
        {"unknown record version", [](const std::string& p) { edited(p, offsetof(MesaCalData, calVersion), 99); },
         "its record version is unknown here"},
        {"directory", [](const std::string& p) { std::filesystem::create_directory(p); }, nullptr},
    };
    const std::string log = folder.str() + "mesa_error_log.txt";
    for (const auto& r : rows) {
        SCOPED_TRACE(r.what);
        DeviceInterfaceUSB cold;
        ASSERT_EQ(loadCalibrationUSB(cold, 41000016), zrNoError);
        cold.Close();
        std::filesystem::copy_file(cache, cache + ".keep");
        std::filesystem::remove(cache);
        r.make(cache);
        std::filesystem::remove(cache + ".keep");
        std::error_code ec;
        const auto logged = std::filesystem::exists(log) ? std::filesystem::file_size(log, ec) : 0;

        const auto t0 = std::chrono::steady_clock::now();
        DeviceInterfaceUSB warm;
        if (!r.logged) {
            // A folder in its way cannot be replaced; flash still serves.
            ASSERT_EQ(loadCalibrationUSB(warm, 41000016), zrNoError);
            EXPECT_EQ(std::memcmp(warm.image.data(), bytes, 0x250000), 0);
            std::filesystem::remove(cache);
            continue;
        }
        ASSERT_EQ(loadCalibrationUSB(warm, 41000016), zrNoError);
        EXPECT_LT(std::chrono::steady_clock::now() - t0, 10s);
        EXPECT_EQ(std::memcmp(warm.image.data(), bytes, 0x250000), 0);
        EXPECT_TRUE(std::filesystem::is_regular_file(std::filesystem::symlink_status(cache)));
        EXPECT_EQ(std::filesystem::file_size(cache), kMesaImageSize);
        std::ifstream in(log);
        in.seekg(std::streamoff(logged));
        const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        EXPECT_NE(text.find(r.logged), std::string::npos) << text;
    }
}

TEST_F(SimBus, ImplausibleCalibrationValuesAreNeverUsed) {
    // An infinite gain and a NaN phase: in the cache the file is refused
    // and flash read instead; in flash the open goes on with neutral values
    // and says the calibration is damaged.
    auto inst = plug(zrDeviceTypeMesa2, 41000026);
    auto image = test::makeMesaImage(41000026);
    const auto* bytes = reinterpret_cast<const uint8_t*>(image.get());
    inst->programFlash(kImageFlashOffset, bytes, 0x250000);
    const size_t gainAt = offsetof(MesaCalData, gain) + 4 * 123, phaseAt = offsetof(MesaCalData, ifPhase) + 4 * 77;
    const float inf = std::numeric_limits<float>::infinity(), nan = std::numeric_limits<float>::quiet_NaN();
    {
        DeviceInterfaceUSB cold;
        ASSERT_EQ(loadCalibrationUSB(cold, 41000026), zrNoError);
    }
    std::vector<uint8_t> damaged(bytes, bytes + kMesaImageSize);
    std::memcpy(damaged.data() + gainAt, &inf, 4);
    std::memcpy(damaged.data() + phaseAt, &nan, 4);
    ASSERT_TRUE(writeImageFile(calCachePath(41000026).c_str(), damaged.data(), kMesaImageSize));
    DeviceInterfaceUSB warm;
    ASSERT_EQ(loadCalibrationUSB(warm, 41000026), zrNoError);
    EXPECT_EQ(std::memcmp(warm.image.data() + gainAt, bytes + gainAt, 4), 0);
    EXPECT_EQ(warm.calInvalid, 0);
    warm.Close();

    std::filesystem::remove(calCachePath(41000026));
    inst->programFlash(kImageFlashOffset, damaged.data(), 0x250000);
    DeviceInterfaceUSB fromFlash;
    ASSERT_EQ(loadCalibrationUSB(fromFlash, 41000026), zrNoError);
    EXPECT_EQ(fromFlash.calInvalid, 1);
    float gain = 1.0f, phase = 1.0f;
    std::memcpy(&gain, fromFlash.image.data() + gainAt, 4);
    std::memcpy(&phase, fromFlash.image.data() + phaseAt, 4);
    EXPECT_EQ(gain, 0.0f);
    EXPECT_EQ(phase, 0.0f);
    EXPECT_FALSE(std::filesystem::exists(calCachePath(41000026)));
}

TEST_F(SimBus, CacheNewerThanFlashKeepsItsTablesAndTakesTheHeadFromFlash) {
    auto inst = plug(zrDeviceTypeMesa2, 41000007);
    auto flashImage = test::makeMesaImage(41000007);
    auto cacheImage = test::makeMesaImage(41000007);
    cacheImage->calDate = flashImage->calDate + 100;
    cacheImage->gain[3][2][100] = 99.5f;           // beyond the short read
    std::memset(cacheImage->flashHeader + 4, 0x11, 12); // inside it, past the serial
    ASSERT_TRUE(writeImageFile(calCachePath(41000007).c_str(), cacheImage.get(), kMesaImageSize));
    inst->programFlash(kImageFlashOffset, reinterpret_cast<const uint8_t*>(flashImage.get()), 0x250000);

    DeviceInterfaceUSB t;
    ASSERT_EQ(loadCalibrationUSB(t, 41000007), zrNoError);
    const auto* loaded = reinterpret_cast<const MesaCalData*>(t.image.data());
    EXPECT_EQ(loaded->gain[3][2][100], 99.5f);
    EXPECT_EQ(std::memcmp(loaded->flashHeader, flashImage->flashHeader, 16), 0);
    EXPECT_EQ(loaded->calDate, flashImage->calDate);
    // The older flash never overwrites the cache.
    MesaCalData onDisk;
    ASSERT_TRUE(readImageFile(calCachePath(41000007).c_str(), &onDisk, sizeof onDisk));
    EXPECT_EQ(onDisk.gain[3][2][100], 99.5f);
}

TEST_F(SimBus, RidgeChecksumDecidesCalInvalid) {
    auto good = plug(zrDeviceTypeRidge2, 41000008);
    auto bad = plug(zrDeviceTypeRidge2, 41000009);
    auto image = test::makeRidgeImage(41000009);
    const auto* bytes = reinterpret_cast<const uint8_t*>(image.get());
    for (auto& inst : {good, bad}) {
        inst->programFlash(kImageFlashOffset, bytes, 0x498000);
        inst->programFlash(kImageFlashOffset + 0x7F8000, bytes + 0x7F8000, 0x8000);
    }
    const uint8_t flip = bytes[0x200000] & 0xFE;
    ASSERT_NE(flip, bytes[0x200000]);
    bad->programFlash(kImageFlashOffset + 0x200000, &flip, 1);

    DeviceInterfaceUSB a, b;
    ASSERT_EQ(loadCalibrationUSB(a, 41000008), zrNoError);
    ASSERT_EQ(loadCalibrationUSB(b, 41000009), zrNoError);
    EXPECT_EQ(a.calInvalid, 0);
    EXPECT_EQ(b.calInvalid, 1);
    EXPECT_EQ(a.GetDeviceType(), zrDeviceTypeRidge2);
}

TEST_F(SimBus, UncalibratedInstrumentLoadsWithoutWritingACache) {
    plug(zrDeviceTypeMesa1, 41000010)->eraseFlash();
    DeviceInterfaceUSB t;
    ASSERT_EQ(loadCalibrationUSB(t, 41000010), zrNoError);
    EXPECT_FALSE(zrCalDoesCorrectionsExist(t.image.data()));
    EXPECT_FALSE(std::filesystem::exists(calCachePath(41000010)));
    // A folder where the cache file should be counts as no cache.
    std::filesystem::create_directories(calCachePath(41000010));
    DeviceInterfaceUSB again;
    t.Close();
    EXPECT_EQ(loadCalibrationUSB(again, 41000010), zrNoError);
    DeviceInterfaceUSB none;
    EXPECT_EQ(loadCalibrationUSB(none, 41999999), zrDeviceNotFoundErr);
}

TEST_F(SimBus, CablePullFailsTransfersPromptly) {
    plug(zrDeviceTypeMesa2, 41000011);
    ASSERT_EQ(BootToRun(41000011), zrNoError);
    auto t = open(41000011);
    ASSERT_TRUE(t);
    t->BeginRead(0, 8192, 5000);  // in flight when the cable goes
    ASSERT_EQ(zrSimDetach(41000011), zrNoError);
    attached.clear();
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(t->FinishRead(0).failed, 1);
    std::vector<uint8_t> block(2048, 1);
    t->BeginWrite(0, block.data());
    EXPECT_EQ(t->FinishWrite(0).failed, 1);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 4s);
    EXPECT_EQ(t->status, zrConnectionLostErr);
    EXPECT_FALSE(FindUSBBySerial(41000011).has_value());
}

TEST_F(SimBus, DeviceListsHoldAtMostNineAndSkipOpenInstruments) {
    int serials[9], count = -1;
    ZrDeviceType types[9];
    EXPECT_EQ(zrGetDeviceList(serials, nullptr), zrNullPtrErr);
    EXPECT_EQ(zrGetDeviceList(serials, &count), zrNoError);
    EXPECT_EQ(count, 0);
    for (int i = 0; i < 12; ++i) plug(i % 3 == 2 ? zrDeviceTypeRidge2 : zrDeviceTypeMesa2, 42000000 + i);
    EXPECT_EQ(zrGetDeviceList2(serials, types, &count), zrNoError);
    EXPECT_EQ(count, 9);
    EXPECT_EQ(serials[0], 42000000);
    EXPECT_EQ(types[2], zrDeviceTypeRidge2);
    EXPECT_EQ(zrGetDeviceList2(nullptr, nullptr, &count), zrNoError);
    EXPECT_EQ(count, 9);

    // Nine held open by this process leave three to list.
    std::vector<std::unique_ptr<DeviceInterfaceUSB>> held;
    for (int i = 0; i < 9; ++i) held.push_back(open(42000000 + i));
    EXPECT_EQ(zrGetDeviceList(serials, &count), zrNoError);
    EXPECT_EQ(count, 3);
    EXPECT_EQ(serials[0], 42000009);
}

TEST_F(SimBus, PresetSerialResetsOnlyAnInstrumentThatIsThere) {
    auto inst = plug(zrDeviceTypeMesa2, 42000100);
    ASSERT_EQ(BootToRun(42000100), zrNoError);
    EXPECT_EQ(zrPresetSerial(42000100), zrNoError);
    EXPECT_FALSE(inst->running());
    EXPECT_EQ(zrPresetSerial(42000199), zrDeviceNotFoundErr);
}

TEST_F(SimBus, TemperaturesAndDiagnosticsReadBackWhatTheInstrumentReports) {
    plug(zrDeviceTypeMesa2, 42000200);
    ASSERT_EQ(BootToRun(42000200), zrNoError);
    ZrDevice dev(open(42000200));
    ASSERT_TRUE(dev.transport);
    for (float celsius : {25.0f, -12.25f, 61.5f}) {
        ASSERT_EQ(zrSimSetTemperature(42000200, celsius), zrNoError);
        refreshStatus(dev);
        EXPECT_EQ(dev.status.load().statusBlockInvalid, 0);
        EXPECT_FLOAT_EQ(dev.status.load().diagnostics[8], celsius);  // the calibration sensor
        // The FPGA sensor has a coarser code: within one step of 0.68 degC.
        EXPECT_NEAR(dev.status.load().diagnostics[4], celsius, 0.7);
    }
    EXPECT_NEAR(dev.status.load().diagnostics[0], 12.0, 0.02);
    EXPECT_EQ(dev.transport->status, zrNoError);
}

namespace {
// Real wall time; a monotonic count the test can move forward.
struct SteerableClock : HostClock {
    std::atomic<uint64_t> extraMs{0};
    int64_t systemTimeNs() const override { return systemHostClock().systemTimeNs(); }
    uint64_t monotonicMs() const override { return systemHostClock().monotonicMs() + extraMs.load(); }
};
}  // namespace

TEST_F(SimBus, GpsFixAndTimeFromTheInstrumentsReceiver) {
    auto inst = plug(zrDeviceTypeMesa2, 42000300);
    ASSERT_EQ(zrSimSetGPS(42000300, zrTrue, 48.1173, -11.5167, 545.4), zrNoError);
    ASSERT_EQ(BootToRun(42000300), zrNoError);
    ZrDevice dev(open(42000300));
    SteerableClock clock;
    dev.gps.clock = &clock;
    const int handle = firstFreeHandle();
    ASSERT_GE(handle, 0);
    deviceTable[handle] = &dev;

    // The first pulse comes within a second of the instrument starting.
    const auto deadline = std::chrono::steady_clock::now() + 5s;
    while (!dev.gps.locked && std::chrono::steady_clock::now() < deadline) {
        refreshStatus(dev);
        std::this_thread::sleep_for(50ms);
    }
    ASSERT_TRUE(dev.gps.locked);
    refreshStatus(dev);
    ZrBool updated;
    int64_t seconds = 0;
    double lat = 0, lon = 0, alt = 0;
    ASSERT_EQ(zrGetGPSInfo(handle, zrFalse, &updated, &seconds, &lat, &lon, &alt, nullptr, nullptr), zrNoError);
    EXPECT_NEAR(lat, 48.1173, 1e-6);
    EXPECT_NEAR(lon, -11.5167, 1e-6);
    EXPECT_NEAR(alt, 545.4, 1e-9);
    // The status time is the instrument's own UTC at its status tick.
    const int64_t expected = inst->utcNsAtTick(dev.gps.lastStatusTick);
    EXPECT_LE(std::llabs(dev.gps.statusTime.load() - expected), 1000) << dev.gps.statusTime.load() - expected;
    EXPECT_EQ(seconds, dev.gps.pulseTime.load() / 1000000000);

    // A silent receiver is given up after 5 s without a valid sentence.
    ASSERT_EQ(zrSimSetGPSSilent(42000300, zrTrue), zrNoError);
    refreshStatus(dev);
    EXPECT_TRUE(dev.gps.locked);
    clock.extraMs = 5001;
    refreshStatus(dev);
    EXPECT_FALSE(dev.gps.locked);
    EXPECT_EQ(zrGetGPSInfo(handle, zrFalse, &updated, &seconds, &lat, &lon, &alt, nullptr, nullptr),
              zrGPSNotLockedErr);

    deviceTable[handle] = nullptr;
}

TEST_F(SimBus, ShortAndTimedOutReadsAreNotGoodAndTheStatusSticks) {
    auto inst = plug(zrDeviceTypeMesa2, 42000400);
    ASSERT_EQ(BootToRun(42000400), zrNoError);
    auto t = open(42000400);
    ASSERT_TRUE(t);
    CommandList status;
    status.AppendStatusWord();

    inst->timeOutNextRead();
    ASSERT_TRUE(SendCommandList(*t, status));
    const auto start = std::chrono::steady_clock::now();
    t->BeginRead(2, 8192, 50);
    TransferResult r = t->FinishRead(2);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 3s);
    EXPECT_EQ(r.failed, 1);
    EXPECT_EQ(r.requested, 8192u);
    EXPECT_EQ(t->status, zrConnectionLostErr);
    // The aborted slot is usable again at once.
    t->BeginRead(2, 8192, 1000);
    EXPECT_TRUE(t->FinishRead(2).good());

    inst->shortNextRead();
    ASSERT_TRUE(SendCommandList(*t, status));
    t->BeginRead(0, 8192, 1000);
    r = t->FinishRead(0);
    EXPECT_EQ(r.failed, 0);
    EXPECT_EQ(r.transferred, 8191u);
    EXPECT_FALSE(r.good());
    EXPECT_EQ(t->status, zrConnectionLostErr);
}

TEST_F(SimBus, FailedWriteAndHostileSlotsReportWithoutCrashing) {
    auto inst = plug(zrDeviceTypeMesa2, 42000401);
    ASSERT_EQ(BootToRun(42000401), zrNoError);
    auto t = open(42000401);
    ASSERT_TRUE(t);
    std::vector<uint8_t> block(2048, 1);
    for (int slot : {-1, 32, 1 << 30}) {
        t->BeginWrite(slot, block.data());
        EXPECT_EQ(t->FinishWrite(slot).failed, 1);
        t->BeginRead(slot, 8192, 10);
        EXPECT_EQ(t->FinishRead(slot).failed, 1);
    }
    t->BeginRead(0, DeviceInterface::kReadBufferSize + 1, 10);
    EXPECT_EQ(t->FinishRead(0).failed, 1);
    EXPECT_EQ(t->FinishRead(5).failed, 1);  // never begun: fails instead of waiting

    auto other = open(42000401);  // a second link: the first one is already marked lost
    ASSERT_TRUE(other);
    inst->failNextWrite();
    other->BeginWrite(0, block.data());
    EXPECT_EQ(other->FinishWrite(0).failed, 1);
    EXPECT_EQ(other->status, zrConnectionLostErr);
}
