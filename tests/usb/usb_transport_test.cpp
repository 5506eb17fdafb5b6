// The USB transport's own logic (slots, time-outs, short transfers, the
// sticky status, the open-serial map and the product names) on a scripted
// bus whose transfers complete exactly as a test says.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <mutex>
#include <thread>

#include "transport/device_interface_usb.h"

using namespace zr;
using namespace std::chrono_literals;

namespace {

// Reads complete with whatever the test queued; with nothing queued they
// stay pending until cancelled. Writes complete at once unless told to hang.
struct Script {
    std::mutex m;
    std::condition_variable cv;
    std::deque<std::vector<uint8_t>> replies;
    std::vector<std::vector<uint8_t>> written;
    bool hangWrites = false;
    int resets = 0;
};

class ScriptTransfer : public UsbTransfer {
public:
    ScriptTransfer(Script& s, UsbDirection d, uint8_t* buf, uint32_t cap) : s_(s), dir_(d), buf_(buf), cap_(cap) {}
    bool submit(uint32_t length) override {
        if (length > cap_) return false;
        std::lock_guard<std::mutex> lock(s_.m);
        length_ = length;
        done_ = ok_ = cancelled_ = false;
        actual_ = 0;
        if (dir_ == UsbDirection::Out && !s_.hangWrites) {
            s_.written.emplace_back(buf_, buf_ + length);
            done_ = ok_ = true;
            actual_ = length;
        }
        return true;
    }
    bool wait(uint32_t timeoutMs) override {
        std::unique_lock<std::mutex> lock(s_.m);
        return s_.cv.wait_for(lock, std::chrono::milliseconds(timeoutMs), [&] {
            if (!done_ && dir_ == UsbDirection::In && !s_.replies.empty()) {
                auto r = std::move(s_.replies.front());
                s_.replies.pop_front();
                actual_ = static_cast<uint32_t>(std::min<size_t>(r.size(), length_));
                std::memcpy(buf_, r.data(), actual_);
                done_ = ok_ = true;
            }
            return done_;
        });
    }
    void cancel() override {
        {
            std::lock_guard<std::mutex> lock(s_.m);
            if (done_) return;
            done_ = true;
            cancelled_ = true;
            ok_ = false;
        }
        s_.cv.notify_all();
    }
    uint32_t transferred() const override { return actual_; }
    bool completed() const override { return done_ && ok_; }

private:
    Script& s_;
    UsbDirection dir_;
    uint8_t* buf_;
    uint32_t cap_;
    uint32_t length_ = 0, actual_ = 0;
    bool done_ = false, ok_ = false, cancelled_ = false;
};

class ScriptDevice : public UsbDevice {
public:
    explicit ScriptDevice(Script& s) : s_(s) {}
    bool claim() override { return true; }
    std::unique_ptr<UsbTransfer> makeTransfer(UsbDirection d, uint8_t* b, uint32_t c) override {
        return std::make_unique<ScriptTransfer>(s_, d, b, c);
    }
    bool vendorReset() override {
        std::lock_guard<std::mutex> lock(s_.m);
        ++s_.resets;
        return true;
    }

private:
    Script& s_;
};

class ScriptBus : public UsbBus {
public:
    ScriptBus() { registerUsbBus(this); }
    ~ScriptBus() override { unregisterUsbBus(this); }
    std::vector<UsbDeviceInfo> devices;
    Script script;
    std::vector<UsbDeviceInfo> enumerate() override {
        auto out = devices;
        for (auto& d : out) d.bus = this;
        return out;
    }
    std::unique_ptr<UsbDevice> open(const UsbDeviceInfo&) override { return std::make_unique<ScriptDevice>(script); }
    void add(uint16_t pid, const std::string& product, const std::string& serial) {
        devices.push_back({this, devices.size(), kInstrumentVendorId, pid, product, serial});
    }
};

std::unique_ptr<DeviceInterfaceUSB> attach(ScriptBus& bus, int serial) {
    auto info = FindUSBBySerial(serial);
    EXPECT_TRUE(info.has_value());
    auto t = std::make_unique<DeviceInterfaceUSB>();
    EXPECT_TRUE(t->ConnectUSB(info->bus->open(*info), *info));
    t->connected = 1;
    return t;
}

}  // namespace

TEST(UsbNames, ClassifyAndSerialRules) {
    auto cls = [](const std::string& product) { return ClassifyUSB({nullptr, 0, kInstrumentVendorId, 6, product, "12345678"}); };
    ASSERT_TRUE(cls("Mesa2").has_value());
    EXPECT_TRUE(cls("Mesa2")->running);
    EXPECT_EQ(cls("Mesa2")->type, zrDeviceTypeMesa2);
    EXPECT_FALSE(cls("Ridge2 Boot")->running);
    EXPECT_EQ(cls("Ridge2 Boot")->type, zrDeviceTypeRidge2);
    EXPECT_EQ(cls("Mesa1")->type, zrDeviceTypeMesa1);
    EXPECT_FALSE(cls("Mesa3").has_value());      // networked models never list over USB
    EXPECT_FALSE(cls("Mesa2X").has_value());     // the whole name must match
    EXPECT_FALSE(cls("Mesa2 Boot ").has_value());
    EXPECT_EQ(parseSerial("00000042"), 42);
    EXPECT_EQ(parseSerial("1234567"), -1);
    EXPECT_EQ(parseSerial("123456789"), -1);
    EXPECT_EQ(parseSerial("1234567a"), -1);
}

TEST(UsbList, ListsClassifiedEightDigitSerialsAndSkipsOpenOnes) {
    ScriptBus bus;
    bus.add(6, "Mesa2", "20000001");
    bus.add(10, "Ridge2 Boot", "20000002");
    bus.add(6, "Mesa2", "2000003");       // seven digits: skipped
    bus.add(9, "Mesa3", "20000004");      // networked: skipped
    bus.add(6, "Something", "20000005");  // unknown product: skipped
    auto list = ListUSB();
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[0].serial, 20000001);
    EXPECT_TRUE(list[0].running);
    EXPECT_EQ(list[1].serial, 20000002);
    EXPECT_FALSE(list[1].running);
    EXPECT_EQ(list[1].type, zrDeviceTypeRidge2);

    {
        auto t = attach(bus, 20000001);
        EXPECT_TRUE(isSerialOpen(20000001));
        auto held = ListUSB();
        ASSERT_EQ(held.size(), 1u);
        EXPECT_EQ(held[0].serial, 20000002);
        EXPECT_EQ(t->GetDeviceType(), zrDeviceTypeMesa2);
        EXPECT_EQ(t->deviceSerial, 20000001);
    }
    EXPECT_FALSE(isSerialOpen(20000001));
    EXPECT_EQ(ListUSB().size(), 2u);
    EXPECT_FALSE(FindUSBBySerial(20000009).has_value());
}

TEST(UsbTransport, ProductIdsGiveTypesAndCloseForgetsEverything) {
    ScriptBus bus;
    bus.add(10, "Ridge2", "30000001");
    auto t = attach(bus, 30000001);
    EXPECT_EQ(t->GetDeviceType(), zrDeviceTypeRidge2);
    EXPECT_TRUE(t->Reset());
    EXPECT_EQ(bus.script.resets, 1);
    t->Close();
    EXPECT_EQ(t->connected, 0);
    EXPECT_EQ(t->deviceSerial, -1);
    EXPECT_EQ(t->GetDeviceType(), zrDeviceTypeMesa1);
    EXPECT_FALSE(t->Reset());
    // A transport that never had a device only clears its flags.
    DeviceInterfaceUSB empty;
    empty.connected = 1;
    empty.Close();
    EXPECT_EQ(empty.connected, 0);
    EXPECT_EQ(empty.deviceSerial, -1);
    EXPECT_EQ(empty.status, zrNoError);
}

TEST(UsbTransport, WritesCopyTheBlockAndReadsHandOverTheSlotBuffer) {
    ScriptBus bus;
    bus.add(6, "Mesa2", "30000002");
    auto t = attach(bus, 30000002);
    std::vector<uint8_t> block(2048);
    for (size_t i = 0; i < block.size(); ++i) block[i] = static_cast<uint8_t>(i * 7);
    t->BeginWrite(3, block.data());
    std::fill(block.begin(), block.end(), 0);  // the caller's buffer is free at return
    TransferResult w = t->FinishWrite(3);
    EXPECT_TRUE(w.good());
    EXPECT_EQ(w.data, nullptr);
    ASSERT_EQ(bus.script.written.size(), 1u);
    EXPECT_EQ(bus.script.written[0][5], static_cast<uint8_t>(35));

    bus.script.replies.push_back(std::vector<uint8_t>(8192, 0xAB));
    bus.script.replies.push_back(std::vector<uint8_t>(8192, 0xCD));
    t->BeginRead(0, 8192, 1000);
    t->BeginRead(1, 8192, 1000);
    TransferResult r0 = t->FinishRead(0);
    TransferResult r1 = t->FinishRead(1);
    ASSERT_TRUE(r0.good());
    ASSERT_TRUE(r1.good());
    EXPECT_EQ(r0.data[100], 0xAB);
    EXPECT_EQ(r1.data[100], 0xCD);
    EXPECT_NE(r0.data, r1.data);
    EXPECT_EQ(t->status, zrNoError);
}

TEST(UsbTransport, ShortReadIsNotGoodAndSticks) {
    ScriptBus bus;
    bus.add(6, "Mesa2", "30000003");
    auto t = attach(bus, 30000003);
    bus.script.replies.push_back(std::vector<uint8_t>(8191, 1));
    t->BeginRead(0, 8192, 1000);
    TransferResult r = t->FinishRead(0);
    EXPECT_EQ(r.failed, 0);
    EXPECT_EQ(r.transferred, 8191u);
    EXPECT_FALSE(r.good());
    EXPECT_EQ(t->status, zrConnectionLostErr);
    // A later good transfer does not clear it.
    bus.script.replies.push_back(std::vector<uint8_t>(8192, 1));
    t->BeginRead(0, 8192, 1000);
    EXPECT_TRUE(t->FinishRead(0).good());
    EXPECT_EQ(t->status, zrConnectionLostErr);
}

TEST(UsbTransport, TimedOutReadIsAbortedAndTheSlotIsReusable) {
    ScriptBus bus;
    bus.add(6, "Mesa2", "30000004");
    auto t = attach(bus, 30000004);
    const auto start = std::chrono::steady_clock::now();
    t->BeginRead(2, 8192, 50);
    TransferResult r = t->FinishRead(2);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 3s);
    EXPECT_EQ(r.failed, 1);
    EXPECT_EQ(r.requested, 8192u);
    EXPECT_EQ(t->status, zrConnectionLostErr);
    bus.script.replies.push_back(std::vector<uint8_t>(8192, 9));
    t->BeginRead(2, 8192, 1000);
    EXPECT_TRUE(t->FinishRead(2).good());
}

TEST(UsbTransport, HangingWriteFailsWithinTheWriteTimeout) {
    ScriptBus bus;
    bus.add(6, "Mesa2", "30000005");
    auto t = attach(bus, 30000005);
    bus.script.hangWrites = true;
    std::vector<uint8_t> block(2048, 0);
    const auto start = std::chrono::steady_clock::now();
    t->BeginWrite(0, block.data());
    TransferResult w = t->FinishWrite(0);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 4s);
    EXPECT_EQ(w.failed, 1);
    EXPECT_EQ(t->status, zrConnectionLostErr);
}

TEST(UsbTransport, HostileSlotsAndSizesFailWithoutCrashing) {
    ScriptBus bus;
    bus.add(6, "Mesa2", "30000006");
    auto t = attach(bus, 30000006);
    std::vector<uint8_t> block(2048, 0);
    for (int slot : {-1, 32, 1 << 30}) {
        t->BeginWrite(slot, block.data());
        EXPECT_EQ(t->FinishWrite(slot).failed, 1);
        t->BeginRead(slot, 8192, 10);
        EXPECT_EQ(t->FinishRead(slot).failed, 1);
    }
    t->BeginRead(0, DeviceInterface::kReadBufferSize + 1, 10);
    EXPECT_EQ(t->FinishRead(0).failed, 1);
    t->BeginRead(0, 0, 10);
    EXPECT_EQ(t->FinishRead(0).failed, 1);
    // Finishing a slot that was never begun fails instead of waiting.
    EXPECT_EQ(t->FinishRead(5).failed, 1);
}

TEST(UsbHost, EnumerationWithoutUsbFindsNothingAndNeverFails) {
    // CI machines and containers have no instrument (and often no USB at
    // all); the machine's bus must come back empty, not throw.
    for (const UsbDeviceInfo& info : hostUsbBus().enumerate()) EXPECT_EQ(info.vendorId, kInstrumentVendorId);
    EXPECT_NO_THROW(ListUSB());
}
