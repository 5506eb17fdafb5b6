#pragma once
// The simulated instrument behind the library's transport contract, in the
// same process: 32 read and 32 write slots, 1 MiB read buffers, writes
// carried to the instrument's OUT endpoint by a thread of their own in the
// order they were begun, reads posted to its IN endpoint at BeginRead.
#include <array>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "instrument.h"
#include "transport/device_interface.h"

namespace zr::sim {

class SimTransport : public zr::DeviceInterface {
public:
    static constexpr int kWriteTimeoutMs = 2000;

    explicit SimTransport(std::shared_ptr<Instrument> instrument);
    ~SimTransport() override;

    ZrDeviceType GetDeviceType() override;
    void Close() override;
    bool Reset() override;
    void BeginWrite(int slot, const void* block) override;
    TransferResult FinishWrite(int slot) override;
    void BeginRead(int slot, int size, int timeoutMs) override;
    TransferResult FinishRead(int slot) override;

    Instrument& instrument() { return *instrument_; }

private:
    struct WriteSlot {
        std::array<uint8_t, kWriteBlockSize> block{};
        bool busy = false;  // begun, not yet carried out
        bool ok = false;
    };
    struct ReadSlot {
        std::vector<uint8_t> buffer;
        ReadRequest request;
        uint32_t size = 0;
        bool posted = false;
        bool tooLarge = false;
    };
    void writer();
    TransferResult failedTransfer(uint32_t requested);

    std::shared_ptr<Instrument> instrument_;
    std::array<WriteSlot, kSlotCount> writes_;
    std::array<ReadSlot, kSlotCount> reads_;

    std::mutex mu_;
    std::condition_variable cv_;
    std::array<int, kSlotCount> queue_{};  // begun writes in order
    size_t queueHead_ = 0, queueCount_ = 0;
    bool stop_ = false;
    std::thread thread_;
};

}  // namespace zr::sim
