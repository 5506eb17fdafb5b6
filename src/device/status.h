#pragma once
// What the instrument last said about itself, as a value. Engine threads
// decode status blocks while callers read diagnostics and flags, so the
// image is published whole under a small lock and read as a copy: a reader
// never sees half of one block and half of the next.
#include <array>
#include <cstdint>
#include <mutex>

namespace zr {

struct StatusImage {
    std::array<float, 10> diagnostics{};
    std::array<float, 4> sfpDiagnostics{};
    uint8_t gpioInput = 0;
    uint8_t adcOverflow = 0;
    uint8_t fftDataLoss = 0;
    uint8_t dataLoss = 0;
    uint8_t jesdUnsynced = 0;
    uint8_t tempDrift = 0;
    uint8_t lossCounterChanged = 0;
    int32_t lossCounter = -1;
    uint32_t loReadback = 0;
    uint16_t tuneReported = 0;
    uint8_t statusBlockInvalid = 0;
    uint64_t lastStatusTick = 0;  // ms of the monotonic clock at the last decode
};

// The image after one 8192-byte block: pure, from the image before it (the
// loss counter and the drift warning keep state across blocks) and the
// temperature the device was configured at.
StatusImage decodeStatusImage(const StatusImage& before, const uint8_t* block, float configureTemperature,
                              uint64_t nowMs);

class PublishedStatus {
public:
    StatusImage load() const {
        std::lock_guard g(lock_);
        return image_;
    }
    void store(const StatusImage& image) {
        std::lock_guard g(lock_);
        image_ = image;
    }
    // Read, change and publish in one step.
    template <class F>
    StatusImage update(F&& change) {
        std::lock_guard g(lock_);
        change(image_);
        return image_;
    }

private:
    mutable std::mutex lock_;
    StatusImage image_;
};

}  // namespace zr
