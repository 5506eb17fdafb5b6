#pragma once
// The little the instrument logic needs of a USB stack: enumerate devices,
// read their descriptors, open one, run asynchronous bulk transfers with a
// timed wait and a cancel, and send the vendor reset request.
//
// Two kinds of bus stand behind it: the machine's real USB (libusb) and any
// simulated bus a simulator library registers in this process. Both are
// reached through the same DeviceInterfaceUSB, so the transport code that
// runs against a simulated instrument is the code that runs against a real
// one.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace zr {

constexpr uint16_t kInstrumentVendorId = 0x7A31;

class UsbBus;

struct UsbDeviceInfo {
    UsbBus* bus = nullptr;
    uint64_t id = 0;  // meaningful to its bus only
    uint16_t vendorId = 0;
    uint16_t productId = 0;
    std::string product;
    std::string serialNumber;
};

// One asynchronous bulk transfer on a fixed buffer. Submit, then wait; a
// wait that times out must be followed by cancel() and a further wait so
// that the buffer is free again.
class UsbTransfer {
public:
    virtual ~UsbTransfer() = default;
    virtual bool submit(uint32_t length) = 0;         // false when it could not start
    virtual bool wait(uint32_t timeoutMs) = 0;        // true once the transfer has ended
    virtual void cancel() = 0;
    virtual uint32_t transferred() const = 0;         // bytes moved, valid after it ended
    virtual bool completed() const = 0;               // ended without error or cancel
};

enum class UsbDirection { Out, In };

class UsbDevice {
public:
    virtual ~UsbDevice() = default;
    // Claims the interface, selects alternate setting 0 and finds the bulk
    // end points by direction.
    virtual bool claim() = 0;
    virtual std::unique_ptr<UsbTransfer> makeTransfer(UsbDirection dir, uint8_t* buffer, uint32_t capacity) = 0;
    // Vendor request 0xE0 with no data: the instrument restarts into its
    // boot state and enumerates again.
    virtual bool vendorReset() = 0;
};

class UsbBus {
public:
    virtual ~UsbBus() = default;
    virtual std::vector<UsbDeviceInfo> enumerate() = 0;
    virtual std::unique_ptr<UsbDevice> open(const UsbDeviceInfo& info) = 0;
};

// Every bus of the process: the machine's USB first, then registered
// simulated buses. Enumeration over a machine without USB finds nothing.
std::vector<UsbDeviceInfo> enumerateAllUsb();

// For simulator libraries: adds (or with null, removes) a bus.
void registerUsbBus(UsbBus* bus);
void unregisterUsbBus(UsbBus* bus);

// The machine's real bus (libusb). Never null; empty where no USB is visible.
UsbBus& hostUsbBus();

}  // namespace zr
