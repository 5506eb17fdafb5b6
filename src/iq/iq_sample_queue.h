#pragma once
// The bounded ring between a streaming engine's thread and the caller of
// zrGetIQ (or the audio engine). Beside the samples it keeps the time of
// the oldest held sample and the trigger positions inside the held span,
// and converts to the caller's format as it reads.
//
// One writer (the engine's thread) and one reader. The copy under the lock
// is the only work that blocks the writer; conversions run on the reader's
// side. A writer that finds the ring full drops the whole backlog rather
// than the newest block: the new block starts the queue, the reader learns
// of the gap through overflowed(), and every time stays right because each
// block carries its own. Nothing is allocated after construction.

#include <atomic>
#include <cstdint>
#include <mutex>
#include <vector>

#include "device/device.h"
#include "zr_api.h"

namespace zr {

class IQSampleQueue {
public:
    enum Format { kFloat = 0, kInt16 = 1 };
    // Trigger positions the queue keeps at once; more are dropped.
    static constexpr size_t kMaxTriggers = size_t(1) << 17;

    // Half a second of output at sampleRate, in the device's storage (grown
    // when too small, never shrunk: a vector that was once larger keeps its
    // memory). Throws std::bad_alloc.
    IQSampleQueue(ByteStorage& storage, Format format, double sampleRate);
    IQSampleQueue(const IQSampleQueue&) = delete;
    IQSampleQueue& operator=(const IQSampleQueue&) = delete;

    // One block in the stored format; trigger positions relative to its
    // first sample; blockTime the ns time of that sample.
    void store(const void* samples, uint64_t n, const double* triggers, int nTriggers, int64_t blockTime);
    // Up to `wanted` samples converted to `type`; trigger positions inside
    // the span read, counted from dst's first sample, into `triggers` (the
    // ones that find no room are dropped). Never blocks.
    void read(void* dst, uint64_t wanted, uint64_t& got, double* triggers, int maxTriggers, int& nTriggers,
              int64_t& firstTime, ZrDataType type);
    void purge();
    // Something upstream lost samples: the backlog goes, as on overflow.
    void markGap();

    // Read without the lock; a stale value is followed by the next event.
    uint64_t count() const { return count_.load(std::memory_order_relaxed); }
    // The overflow flag, cleared by the call.
    bool takeOverflowed() { return overflowed_.exchange(false, std::memory_order_relaxed); }
    uint64_t capacitySamples() const { return capacitySamples_; }
    size_t bytesPerSample() const { return bytesPerSample_; }

private:
    void clearLocked();
    void convert(const uint8_t* src, void* dst, uint64_t n, ZrDataType type) const;

    std::mutex lock_;
    const Format format_;
    const size_t bytesPerSample_;
    uint8_t* ring_ = nullptr;
    uint64_t capacitySamples_ = 0;
    uint64_t capacityBytes_ = 0;
    std::atomic<uint64_t> count_{0};
    uint64_t writeOffset_ = 0, readOffset_ = 0;
    // Trigger positions as a FIFO of offsets from base_, the samples read
    // since the list was last empty; subtracting base_ makes them relative
    // to the read position without touching every entry on each read.
    std::vector<double> triggers_;
    size_t triggerHead_ = 0, triggerCount_ = 0;
    double base_ = 0.0;
    int64_t nextTimestamp_ = 0;
    const double nsPerSample_;
    std::atomic<bool> overflowed_{false};
};

}  // namespace zr
