#include "iq/iq_stream.h"

#include <chrono>
#include <thread>

#include "device/settings.h"
#include "dsp/dsp.h"

namespace zr {

namespace {
// A waiting caller looks at the link and the running flag at least this
// often, so no missed wake-up can hold it.
constexpr auto kWaitSlice = std::chrono::milliseconds(50);
}  // namespace

IQStreamingEngine::IQStreamingEngine(ZrDevice& device, const IQSettings& settings, const IQPlan& plan,
                                     IQSampleQueue::Format format)
    : IQInterface(settings, plan), device_(&device), transport_(device.transport.get()),
      queue_(device.iqQueueStorage, format, plan.sampleRate) {}

void IQStreamingEngine::stopDeliveries() {
    running_.store(false, std::memory_order_release);
    dataEvent_.set();
}

void IQStreamingEngine::drain() {
    stopDeliveries();
    while (callers_.load(std::memory_order_acquire) > 0) {
        dataEvent_.set();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

ZrStatus IQStreamingEngine::GetIQ(IQRequest& r) {
    struct Inside {
        std::atomic<int>& n;
        explicit Inside(std::atomic<int>& c) : n(c) { n.fetch_add(1, std::memory_order_acq_rel); }
        ~Inside() { n.fetch_sub(1, std::memory_order_acq_rel); }
    } inside(callers_);

    if (r.purge == zrTrue) queue_.purge();
    const ZrDataType type = plan_.dataType;
    const size_t elementSize = type == zrDataType16sc ? 4 : 8;
    const float scale = plan_.scale();
    uint8_t* out = static_cast<uint8_t*>(r.iqBuf);
    int64_t delivered = 0;
    int triggersOut = 0;
    int64_t firstTime = 0;

    while (running() && delivered < r.iqBufSize) {
        if (const int32_t link = transport_ ? transport_->statusNow() : zrNoError) return ZrStatus(link);
        if (queue_.count() == 0) {
            dataEvent_.wait(kWaitSlice);
            continue;
        }
        uint64_t got = 0;
        int n = 0;
        int64_t t = 0;
        queue_.read(out + size_t(delivered) * elementSize, uint64_t(r.iqBufSize - delivered), got,
                    r.triggers ? r.triggers + triggersOut : nullptr, r.triggerBufSize - triggersOut, n, t, type);
        for (int i = 0; i < n; ++i) r.triggers[triggersOut + i] += double(delivered);
        triggersOut += n;
        if (got == 0) continue;
        if (type == zrDataType32fc)
            dspMulCInPlace(scale, reinterpret_cast<float*>(out + size_t(delivered) * elementSize), int(2 * got));
        if (delivered == 0) firstTime = t;
        delivered += int64_t(got);
    }
    for (int i = triggersOut; i < r.triggerBufSize; ++i) r.triggers[i] = iqTriggerSentinel;

    const int remaining = int(std::min<uint64_t>(queue_.count(), uint64_t(INT32_MAX)));
    const int loss = queue_.takeOverflowed() ? 1 : 0;
    ZrStatus status = zrNoError;
    const StatusImage img = device_->status.load();
    if (img.tempDrift) status = zrTempDriftWarning;
    if (overflowSeen_.exchange(false, std::memory_order_relaxed)) status = zrADCOverflow;
    if (lossSeen_.exchange(false, std::memory_order_relaxed)) status = zrUncalData;
    if (img.statusBlockInvalid) status = zrSyncErr;
    if (status < zrNoError) return status;
    r.nsSinceEpoch = firstTime;
    r.sampleLoss = loss;
    r.samplesRemaining = remaining;
    return status;
}

}  // namespace zr
