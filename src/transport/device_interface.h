#pragma once
// The abstract transport between the library and one instrument. Engines and
// the device object rely on nothing but this contract, so a USB link, a UDP
// link or a simulated instrument can stand behind it unchanged.

#include <cstdint>
#include <string>
#include <vector>

#include "zr_api.h"

namespace zr {

// What finishing a transfer gives back. Good means: not failed, and every
// requested byte moved.
struct TransferResult {
    uint8_t failed = 1;
    uint32_t requested = 0;
    uint32_t transferred = 0;
    const uint8_t* data = nullptr;  // reads: the slot's reply buffer; writes: null

    bool good() const { return failed == 0 && transferred == requested; }
};

class DeviceInterface {
public:
    static constexpr int kWriteBlockSize = 2048;
    static constexpr int kSlotCount = 32;
    static constexpr int kReadBufferSize = 0x100000;  // 1 MiB per read slot
    static constexpr size_t kImageSize = 0x800000;    // room for the larger (Ridge) image

    int32_t writeBlockSize = kWriteBlockSize;
    std::vector<uint8_t> image;  // calibration image, all 0xFF until filled
    uint8_t calInvalid = 0;
    uint32_t serial = 0;
    uint8_t connected = 0;
    int32_t deviceSerial = -1;
    // Sticky: once a transfer fails it stays zrConnectionLostErr until the
    // connection test at open clears it. Written by whichever thread saw
    // the failure; only -6 (or 0 at open) is ever stored.
    volatile int32_t status = zrNoError;

    DeviceInterface() : image(kImageSize, 0xFF) {}
    DeviceInterface(const DeviceInterface&) = delete;
    DeviceInterface& operator=(const DeviceInterface&) = delete;
    virtual ~DeviceInterface() = default;

    virtual ZrDeviceType GetDeviceType() = 0;
    virtual void Close() = 0;
    virtual bool Reset() = 0;
    virtual void SetFragmentation(bool enabled) {}
    virtual std::string GetHostAddress() { return {}; }
    virtual std::string GetDeviceAddress() { return {}; }
    // Copies writeBlockSize bytes out of block; the caller's buffer is free
    // at return.
    virtual void BeginWrite(int slot, const void* block) = 0;
    virtual TransferResult FinishWrite(int slot) = 0;  // waits at most 2000 ms
    virtual void BeginReadInto(int slot, void* buffer, int size) {}
    virtual void BeginRead(int slot, int size, int timeoutMs) = 0;
    virtual TransferResult FinishRead(int slot) = 0;
    // Cancels every transfer in flight, so that their Finish calls return at
    // once, failed unless the transfer had already completed. Called by the
    // thread that began them, once the link is known lost: a silent
    // instrument then costs one time-out, not one per transfer in flight.
    virtual void Abort() {}

    // Records a failed or short transfer in the sticky status word. Data
    // threads store it while callers read it, so both go through atomics.
    void noteResult(const TransferResult& r) {
        if (!r.good()) __atomic_store_n(&status, int32_t(zrConnectionLostErr), __ATOMIC_RELAXED);
    }
    int32_t statusNow() const { return __atomic_load_n(&status, __ATOMIC_RELAXED); }
};

}  // namespace zr
