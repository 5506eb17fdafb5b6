#pragma once
// A transport for tests of the API layer that never reach an instrument: it
// reports a model and serial and fails every transfer, so any code path that
// talks to hardware shows up as a lost connection.
#include <memory>

#include "device/frame.h"

namespace zr::test {

class OfflineTransport : public DeviceInterface {
public:
    OfflineTransport(ZrDeviceType type, int serialNumber) : type_(type) {
        deviceSerial = serialNumber;
        serial = static_cast<uint32_t>(serialNumber);
        connected = 1;
    }
    ZrDeviceType GetDeviceType() override { return connected ? type_ : zrDeviceTypeMesa1; }
    void Close() override { connected = 0; deviceSerial = -1; }
    bool Reset() override { return connected != 0; }
    void BeginWrite(int, const void*) override {}
    TransferResult FinishWrite(int) override { return fail(kWriteBlockSize); }
    void BeginRead(int, int size, int) override { pending_ = size; }
    TransferResult FinishRead(int) override { return fail(pending_); }

private:
    TransferResult fail(int requested) {
        TransferResult r;
        r.failed = 1;
        r.requested = static_cast<uint32_t>(requested);
        noteResult(r);
        return r;
    }
    ZrDeviceType type_;
    int pending_ = 0;
};

// Places a device in the table the way an open would, and frees it again at
// scope exit, so tests can drive the exported frame without the open path.
class InstalledDevice {
public:
    InstalledDevice(ZrDeviceType type, int serialNumber = 12345678)
        : InstalledDevice(std::make_unique<OfflineTransport>(type, serialNumber)) {}
    explicit InstalledDevice(std::unique_ptr<DeviceInterface> transport) {
        handle_ = firstFreeHandle();
        device_ = new ZrDevice(std::move(transport));
        if (handle_ >= 0) deviceTable[handle_] = device_;
    }
    ~InstalledDevice() {
        if (handle_ >= 0) deviceTable[handle_] = nullptr;
        delete device_;
    }
    InstalledDevice(const InstalledDevice&) = delete;
    InstalledDevice& operator=(const InstalledDevice&) = delete;

    int handle() const { return handle_; }
    ZrDevice& device() { return *device_; }

private:
    int handle_ = -1;
    ZrDevice* device_ = nullptr;
};

}  // namespace zr::test
