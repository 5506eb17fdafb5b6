#pragma once
// The transport over USB: 32 write and 32 read slots, each with its own
// preallocated buffer and asynchronous transfer, on whichever bus the
// instrument was found (the machine's or a simulated one).

#include <array>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "transport/device_interface.h"
#include "transport/usb_bus.h"

namespace zr {

constexpr uint32_t kFinishWriteTimeoutMs = 2000;
constexpr uint32_t kAbortGraceMs = 2000;
constexpr int kFreshSerial = 11111111;

class DeviceInterfaceUSB : public DeviceInterface {
public:
    explicit DeviceInterfaceUSB(int blockSize = kWriteBlockSize);
    ~DeviceInterfaceUSB() override;

    ZrDeviceType GetDeviceType() override;
    void Close() override;
    bool Reset() override;
    void BeginWrite(int slot, const void* block) override;
    TransferResult FinishWrite(int slot) override;
    void BeginRead(int slot, int size, int timeoutMs) override;
    TransferResult FinishRead(int slot) override;
    void Abort() override;

    // Takes the opened device; false when already attached or the device
    // cannot be claimed. The caller sets `connected`.
    bool ConnectUSB(std::unique_ptr<UsbDevice> device, const UsbDeviceInfo& info);
    bool attached() const { return device_ != nullptr; }

private:
    struct UsbSlot {
        std::vector<uint8_t> buffer;
        std::unique_ptr<UsbTransfer> transfer;
        uint32_t length = 0;
        uint32_t timeoutMs = 0;
        bool submitted = false;
    };
    TransferResult finish(UsbSlot& slot, bool read);
    void releaseSlots();

    std::unique_ptr<UsbDevice> device_;
    UsbDeviceInfo info_;
    std::array<UsbSlot, kSlotCount> writeSlots_;
    std::array<UsbSlot, kSlotCount> readSlots_;
};

// Serial string to number: exactly 8 decimal digits, else -1.
int parseSerial(const std::string& text);

// Run and boot product names of the USB models. Networked models are never
// listed here.
struct UsbClass {
    bool running = false;
    ZrDeviceType type = zrDeviceTypeMesa1;
};
std::optional<UsbClass> ClassifyUSB(const UsbDeviceInfo& info);

struct UsbListEntry {
    int serial;
    bool running;
    ZrDeviceType type;
};

// Serials this process holds open; lists skip them.
bool isSerialOpen(int serial);

std::optional<UsbDeviceInfo> FindUSBBySerial(int serial);
std::vector<UsbListEntry> ListUSB();
bool ResetUSB(const UsbDeviceInfo& info);
std::optional<UsbDeviceInfo> FindFreshDevice();

}  // namespace zr

namespace zr {
// Moves an instrument from its boot state to its run state: loads the
// FPGA and waits for the instrument to come back. 0, or a negative status.
int32_t BootToRun(int serial);
// The reset request for every running instrument, one after the other,
// until a whole walk finds none running.
void ResetAllRunningUSB();
}  // namespace zr
