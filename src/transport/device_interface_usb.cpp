#include "transport/device_interface_usb.h"

#include <cstring>
#include <set>

namespace zr {

namespace {

// Process-wide: open and close are serialised by the API's callers.
std::set<int>& openSerials() {
    static std::set<int> serials;
    return serials;
}

bool validSlot(int slot) { return slot >= 0 && slot < DeviceInterface::kSlotCount; }

TransferResult failedResult(uint32_t requested) {
    TransferResult r;
    r.failed = 1;
    r.requested = requested;
    return r;
}

struct ProductName {
    const char* run;
    const char* boot;
    ZrDeviceType type;
};
constexpr ProductName kProducts[] = {
    {"Mesa1", "Mesa1 Boot", zrDeviceTypeMesa1},
    {"Mesa2", "Mesa2 Boot", zrDeviceTypeMesa2},
    {"Ridge2", "Ridge2 Boot", zrDeviceTypeRidge2},
};

}  // namespace

int parseSerial(const std::string& text) {
    if (text.size() != 8) return -1;
    int v = 0;
    for (char c : text) {
        if (c < '0' || c > '9') return -1;
        v = v * 10 + (c - '0');
    }
    return v;
}

bool isSerialOpen(int serial) { return openSerials().count(serial) != 0; }

DeviceInterfaceUSB::DeviceInterfaceUSB(int blockSize) { writeBlockSize = blockSize; }

DeviceInterfaceUSB::~DeviceInterfaceUSB() {
    if (connected || device_) Close();
}

ZrDeviceType DeviceInterfaceUSB::GetDeviceType() {
    if (!connected || !device_) return zrDeviceTypeMesa1;
    switch (info_.productId) {
        case 6: return zrDeviceTypeMesa2;
        case 9: return zrDeviceTypeMesa3;
        case 10: return zrDeviceTypeRidge2;
        case 11: return zrDeviceTypeRidge3;
        default: return zrDeviceTypeMesa1;
    }
}

bool DeviceInterfaceUSB::ConnectUSB(std::unique_ptr<UsbDevice> device, const UsbDeviceInfo& info) {
    if (connected || device_ || !device) return false;
    if (!device->claim()) return false;
    device_ = std::move(device);
    info_ = info;
    deviceSerial = parseSerial(info.serialNumber);
    if (deviceSerial >= 0) serial = static_cast<uint32_t>(deviceSerial);
    openSerials().insert(deviceSerial);
    for (int i = 0; i < kSlotCount; ++i) {
        UsbSlot& w = writeSlots_[i];
        w.buffer.assign(static_cast<size_t>(writeBlockSize), 0);
        w.transfer = device_->makeTransfer(UsbDirection::Out, w.buffer.data(), static_cast<uint32_t>(writeBlockSize));
        UsbSlot& r = readSlots_[i];
        r.buffer.assign(kReadBufferSize, 0);
        r.transfer = device_->makeTransfer(UsbDirection::In, r.buffer.data(), kReadBufferSize);
    }
    return true;
}

void DeviceInterfaceUSB::releaseSlots() {
    for (auto* slots : {&writeSlots_, &readSlots_})
        for (UsbSlot& s : *slots) {
            s.transfer.reset();  // cancels and waits for anything in flight
            std::vector<uint8_t>().swap(s.buffer);
            s.submitted = false;
        }
}

void DeviceInterfaceUSB::Close() {
    if (device_) {
        releaseSlots();
        openSerials().erase(deviceSerial);
        device_.reset();
    }
    connected = 0;
    deviceSerial = -1;
}

bool DeviceInterfaceUSB::Reset() {
    if (!device_ || !connected) return false;
    return device_->vendorReset();
}

void DeviceInterfaceUSB::Abort() {
    for (auto* slots : {&writeSlots_, &readSlots_})
        for (UsbSlot& s : *slots)
            if (s.submitted && s.transfer) s.transfer->cancel();
}

void DeviceInterfaceUSB::BeginWrite(int slot, const void* block) {
    if (!validSlot(slot) || !device_ || !block) return;
    UsbSlot& s = writeSlots_[slot];
    std::memcpy(s.buffer.data(), block, static_cast<size_t>(writeBlockSize));
    s.length = static_cast<uint32_t>(writeBlockSize);
    s.timeoutMs = kFinishWriteTimeoutMs;
    s.submitted = s.transfer && s.transfer->submit(s.length);
}

TransferResult DeviceInterfaceUSB::FinishWrite(int slot) {
    if (!validSlot(slot) || !device_) {
        TransferResult r = failedResult(static_cast<uint32_t>(writeBlockSize));
        noteResult(r);
        return r;
    }
    TransferResult r = finish(writeSlots_[slot], false);
    r.data = nullptr;
    return r;
}

void DeviceInterfaceUSB::BeginRead(int slot, int size, int timeoutMs) {
    if (!validSlot(slot) || !device_) return;
    UsbSlot& s = readSlots_[slot];
    s.length = static_cast<uint32_t>(size);
    s.timeoutMs = static_cast<uint32_t>(std::max(timeoutMs, 0));
    s.submitted = size > 0 && size <= kReadBufferSize && s.transfer && s.transfer->submit(s.length);
}

TransferResult DeviceInterfaceUSB::FinishRead(int slot) {
    if (!validSlot(slot) || !device_) {
        TransferResult r = failedResult(0);
        noteResult(r);
        return r;
    }
    return finish(readSlots_[slot], true);
}

TransferResult DeviceInterfaceUSB::finish(UsbSlot& s, bool read) {
    TransferResult r;
    r.requested = s.length;
    r.data = read ? s.buffer.data() : nullptr;
    if (!s.submitted) {
        r.failed = 1;
        r.transferred = 0;
        noteResult(r);
        return r;
    }
    s.submitted = false;
    bool ended = s.transfer->wait(s.timeoutMs);
    if (!ended) {
        // Give the slot back: cancel, then let the cancellation finish so the
        // buffer is ours again before the next Begin.
        s.transfer->cancel();
        s.transfer->wait(kAbortGraceMs);
    }
    r.transferred = s.transfer->transferred();
    r.failed = (!ended || !s.transfer->completed()) ? 1 : 0;
    noteResult(r);
    return r;
}

std::optional<UsbClass> ClassifyUSB(const UsbDeviceInfo& info) {
    for (const ProductName& p : kProducts) {
        if (info.product == p.run) return UsbClass{true, p.type};
        if (info.product == p.boot) return UsbClass{false, p.type};
    }
    return std::nullopt;
}

std::optional<UsbDeviceInfo> FindUSBBySerial(int serial) {
    for (const UsbDeviceInfo& info : enumerateAllUsb()) {
        if (info.vendorId != kInstrumentVendorId || !ClassifyUSB(info)) continue;
        if (parseSerial(info.serialNumber) == serial) return info;
    }
    return std::nullopt;
}

std::vector<UsbListEntry> ListUSB() {
    std::vector<UsbListEntry> out;
    for (const UsbDeviceInfo& info : enumerateAllUsb()) {
        if (info.vendorId != kInstrumentVendorId) continue;
        auto cls = ClassifyUSB(info);
        const int serial = parseSerial(info.serialNumber);
        if (!cls || serial < 0 || isSerialOpen(serial)) continue;
        out.push_back({serial, cls->running, cls->type});
    }
    return out;
}

bool ResetUSB(const UsbDeviceInfo& info) {
    if (!info.bus) return false;
    auto dev = info.bus->open(info);
    if (!dev) return false;
    return dev->vendorReset();
}

std::optional<UsbDeviceInfo> FindFreshDevice() {
    for (const UsbDeviceInfo& info : enumerateAllUsb()) {
        if (info.vendorId != kInstrumentVendorId) continue;
        const uint16_t p = info.productId;
        if ((p == 4 || p == 6 || p == 9 || p == 10 || p == 11) && parseSerial(info.serialNumber) == kFreshSerial)
            return info;
    }
    return std::nullopt;
}

}  // namespace zr

#include "transport/command_list.h"
#include "transport/wait.h"

namespace zr {

constexpr double kResetWaitMs = 3000.0;

int32_t BootToRun(int serial) {
    auto info = FindUSBBySerial(serial);
    if (!info) return zrDeviceNotFoundErr;
    auto cls = ClassifyUSB(*info);
    if (!cls) return zrBootErr;
    if (cls->running) return zrNoError;
    DeviceInterfaceUSB boot(DeviceInterface::kWriteBlockSize);
    if (!boot.ConnectUSB(info->bus->open(*info), *info)) return zrDeviceNotFoundErr;
    boot.connected = 1;
    const int32_t started = StartFPGA(boot);
    if (started < 0) return started;
    protocolSleepMs(kResetWaitMs);
    boot.Close();
    return zrNoError;
}

void ResetAllRunningUSB() {
    for (;;) {
        bool found = false;
        for (const UsbDeviceInfo& info : enumerateAllUsb()) {
            auto cls = ClassifyUSB(info);
            if (info.vendorId != kInstrumentVendorId || !cls || !cls->running) continue;
            ResetUSB(info);
            protocolSleepMs(kResetWaitMs);
            found = true;
            break;
        }
        if (!found) return;
    }
}

}  // namespace zr
