#include "iq/iq_sample_queue.h"

#include <algorithm>
#include <cmath>
#include <new>

#include "dsp/dsp.h"

namespace zr {

namespace {

// float -> int16 with the factor 2^15, rounded to nearest (floor(x + 0.5))
// and saturated, NaN to the lowest value. The floor is a truncation
// corrected by a compare, so the loop vectorises without SSE4.1.
void floatToInt16(const float* __restrict src, int16_t* __restrict dst, size_t n) {
    for (size_t i = 0; i < n; ++i) {
        float y = src[i] * 32768.0f + 0.5f;
        y = y > -32768.0f ? y : -32768.0f;
        y = y < 32767.0f ? y : 32767.0f;
        const int32_t t = static_cast<int32_t>(y);
        dst[i] = static_cast<int16_t>(static_cast<float>(t) > y ? t - 1 : t);
    }
}

}  // namespace

IQSampleQueue::IQSampleQueue(ByteStorage& storage, Format format, double sampleRate)
    : format_(format), bytesPerSample_(format == kFloat ? 8 : 4), nsPerSample_(1e9 / sampleRate) {
    capacitySamples_ = std::max<uint64_t>(uint64_t(std::trunc(sampleRate * 0.5)), 2);
    capacityBytes_ = capacitySamples_ * bytesPerSample_;
    ring_ = storage.ensure(capacityBytes_);
    triggers_.resize(kMaxTriggers);
}

void IQSampleQueue::clearLocked() {
    count_.store(0, std::memory_order_relaxed);
    writeOffset_ = readOffset_ = 0;
    triggerHead_ = triggerCount_ = 0;
    base_ = 0.0;
}

void IQSampleQueue::store(const void* samples, uint64_t n, const double* triggers, int nTriggers, int64_t blockTime) {
    std::lock_guard g(lock_);
    uint64_t count = count_.load(std::memory_order_relaxed);
    if (count + n >= capacitySamples_) {
        clearLocked();
        overflowed_.store(true, std::memory_order_relaxed);
        count = 0;
        // A block larger than the ring keeps its newest part.
        if (n >= capacitySamples_) {
            const uint64_t skip = n - (capacitySamples_ - 1);
            samples = static_cast<const uint8_t*>(samples) + skip * bytesPerSample_;
            blockTime += int64_t(std::trunc(double(skip) * nsPerSample_));
            n -= skip;
        }
    }
    const uint64_t bytes = n * bytesPerSample_;
    const uint64_t first = std::min(bytes, capacityBytes_ - writeOffset_);
    dspCopyBytes(samples, ring_ + writeOffset_, first);
    if (bytes > first) dspCopyBytes(static_cast<const uint8_t*>(samples) + first, ring_, bytes - first);
    writeOffset_ = (writeOffset_ + bytes) % capacityBytes_;

    for (int i = 0; i < nTriggers && triggerCount_ < triggers_.size(); ++i) {
        triggers_[(triggerHead_ + triggerCount_) % triggers_.size()] = base_ + double(count) + triggers[i];
        ++triggerCount_;
    }
    nextTimestamp_ = blockTime - int64_t(std::trunc(double(count) * nsPerSample_));
    count_.store(count + n, std::memory_order_relaxed);
}

void IQSampleQueue::convert(const uint8_t* src, void* dst, uint64_t n, ZrDataType type) const {
    const size_t values = size_t(2 * n);
    if (format_ == kFloat) {
        if (type == zrDataType16sc) floatToInt16(reinterpret_cast<const float*>(src), static_cast<int16_t*>(dst), values);
        else dspCopyBytes(src, dst, values * sizeof(float));
    } else {
        if (type == zrDataType16sc) dspCopyBytes(src, dst, values * sizeof(int16_t));
        else dspConvert16sTo32fScaled(reinterpret_cast<const int16_t*>(src), static_cast<float*>(dst), int(values), 15);
    }
}

void IQSampleQueue::read(void* dst, uint64_t wanted, uint64_t& got, double* triggers, int maxTriggers,
                         int& nTriggers, int64_t& firstTime, ZrDataType type) {
    got = 0;
    nTriggers = 0;
    if (wanted == 0) return;
    std::lock_guard g(lock_);
    const uint64_t count = count_.load(std::memory_order_relaxed);
    got = std::min(wanted, count);
    const size_t outBytes = type == zrDataType16sc ? 4 : 8;
    const uint64_t toEnd = (capacityBytes_ - readOffset_) / bytesPerSample_;
    const uint64_t first = std::min(got, toEnd);
    convert(ring_ + readOffset_, dst, first, type);
    if (got > first) convert(ring_, static_cast<uint8_t*>(dst) + first * outBytes, got - first, type);

    const size_t cap = triggers_.size();
    while (triggerCount_ > 0 && triggers_[triggerHead_] - base_ < double(got)) {
        if (nTriggers < maxTriggers) triggers[nTriggers++] = triggers_[triggerHead_] - base_;
        triggerHead_ = (triggerHead_ + 1) % cap;
        --triggerCount_;
    }
    base_ += double(got);
    if (triggerCount_ == 0) base_ = 0.0;

    count_.store(count - got, std::memory_order_relaxed);
    readOffset_ = (readOffset_ + got * bytesPerSample_) % capacityBytes_;
    firstTime = nextTimestamp_;
    nextTimestamp_ += int64_t(std::trunc(double(got) * nsPerSample_));
}

void IQSampleQueue::purge() {
    std::lock_guard g(lock_);
    clearLocked();
    overflowed_.store(false, std::memory_order_relaxed);
}

void IQSampleQueue::markGap() {
    std::lock_guard g(lock_);
    clearLocked();
    overflowed_.store(true, std::memory_order_relaxed);
}

}  // namespace zr
