#include "iq/engine_iq_usb.h"

#include <chrono>
#include <cmath>
#include <new>

#include "device/services.h"
#include "dsp/dsp.h"

namespace zr {

namespace {

enum : int { kTagSetup = 1, kTagRequest = 2 };
constexpr int kSoftwareFilterTaps = 65;
constexpr int kReadTimeoutMs = 2000;
constexpr auto kWorkWaitSlice = std::chrono::milliseconds(100);

// Group delay of the instrument's own decimators, in ticks.
double instrumentDelayTicks(int hardwareDecimation, double ticksPerBaseSample) {
    double samples = 0.0;
    if (hardwareDecimation >= 2) samples += 32.0;
    if (hardwareDecimation >= 4) samples += 60.0;
    if (hardwareDecimation >= 8) samples += 120.0;
    return samples * ticksPerBaseSample;
}

// Link latency of the USB models, in ns, at the two base rates.
int64_t linkLatencyNs(double base) { return base == 5e7 ? 832 : 1688; }
uint32_t linkLatencyTicks(double base) { return base == 5e7 ? 208 : 422; }

}  // namespace

EngineIQStreamingUSB::EngineIQStreamingUSB(ZrDevice& device, const IQSettings& settings, const IQPlan& plan,
                                           const CommandList& setup, const CommandList& request)
    : IQStreamingEngine(device, settings, plan, IQSampleQueue::kFloat),
      chunksPerTransfer_(64 / plan.hardwareDecimation),
      samplesPerBlock_((64 / plan.hardwareDecimation - 1) * kChunkSamples), setupList_(setup),
      requestList_(request) {
    const double tpb = plan_.rates.ticksPerBaseSample;
    const int hw = plan_.hardwareDecimation;
    filterDelayTicks_ = instrumentDelayTicks(hw, tpb);
    if (plan_.softwareFilterOn) filterDelayTicks_ += hw * tpb * (kSoftwareFilterTaps / 2);
    if (plan_.stages.oneFactor > 1) filterDelayTicks_ += hw * tpb * (plan_.stages.oneTaps / 2);
    if (plan_.stages.twoFactor > 1) filterDelayTicks_ += plan_.stages.oneFactor * hw * tpb * (plan_.stages.twoTaps / 2);

    stopList_.AppendWord(cmd::kStreamStop);
    AppendGPIOSwitchingClear(stopList_);

    const size_t spb = size_t(samplesPerBlock_);
    ringMemory_ = static_cast<cf32*>(dspMalloc(spb * (kRingSlots + 1) * sizeof(cf32)));
    if (!ringMemory_) throw std::bad_alloc();
    try {
        for (size_t i = 0; i < slots_.size(); ++i) slots_[i].samples = ringMemory_ + i * spb;
        oscillator_.Configure(plan_.oscillatorFrequency, samplesPerBlock_, plan_.preciseOscillator);

        std::vector<cf32> taps;
        if (plan_.softwareFilterOn) {
            taps.assign(kSoftwareFilterTaps, cf32{});
            DesignLowPassComplex(taps.data(), kSoftwareFilterTaps, float(plan_.softwareFilterCutoff));
            if (!softwareFilter_.Setup(taps.data(), kSoftwareFilterTaps)) throw std::bad_alloc();
        } else {
            if (plan_.stages.oneFactor > 1) {
                taps.assign(size_t(plan_.stages.oneTaps), cf32{});
                DesignLowPassComplex(taps.data(), plan_.stages.oneTaps, float(plan_.stages.oneCutoff));
                if (!stageOne_.Setup(taps.data(), plan_.stages.oneTaps)) throw std::bad_alloc();
            }
            if (plan_.stages.twoFactor > 1) {
                taps.assign(size_t(plan_.stages.twoTaps), cf32{});
                DesignLowPassComplex(taps.data(), plan_.stages.twoTaps, float(plan_.stages.twoCutoff));
                if (!stageTwo_.Setup(taps.data(), plan_.stages.twoTaps)) throw std::bad_alloc();
            }
        }
        if (plan_.softwareFilterOn || plan_.stages.oneFactor > 1) {
            scratchA_.resize(spb);
            scratchB_.resize(spb);
        }

        // The status decoder places triggers and times with these.
        device_->gpsPulses.tickOffset =
            uint32_t(int64_t(std::trunc(hw * 1024.0 * (2.5e8 / plan_.rates.base)))) - linkLatencyTicks(plan_.rates.base);
        device_->gps.latencyTerm = 1e9 / (plan_.rates.base / hw);

        if (transport_) {
            const PumpLimits limits{plan_.transfers, DeviceInterface::kSlotCount, chunksPerTransfer_, kReadTimeoutMs};
            const size_t pages = setupList_.blockCount() + size_t(plan_.transfers) * requestList_.blockCount() +
                                 stopList_.blockCount() + 4;
            pump_ = std::make_unique<TransferPump>(*transport_, static_cast<TransferSink&>(*this), limits,
                                                   size_t(plan_.transfers) + 4, pages);
            pump_->push(kTagSetup, setupList_);
            for (int i = 0; i < plan_.transfers; ++i) pump_->push(kTagRequest, requestList_);
        }
        work_ = NamedThread(plan_.softwareFilterOn ? "ZR IQ SW Filter Work Thread" : "ZR IQ Work Thread",
                            ThreadPriority::AboveNormal, [this] { workThread(); });
        if (pump_) pump_->start("ZR IQ USB Thread", ThreadPriority::TimeCritical);
    } catch (...) {
        stopDeliveries();
        pending_ = kRingSlots;
        blockEvent_.set();
        if (work_.joinable()) work_.join();
        dspFree(ringMemory_);
        throw;
    }
}

EngineIQStreamingUSB::~EngineIQStreamingUSB() {
    stopDeliveries();
    stopping_ = true;
    if (pump_) pump_->finish(stopList_);
    pending_ = kRingSlots;  // the work thread must not sleep again
    blockEvent_.set();
    work_.join();
    pump_.reset();
    dspFree(ringMemory_);
}

// --------------------------------------------------------------- USB thread

void EngineIQStreamingUSB::onData(int tag, const uint8_t* blocks, int count) {
    if (tag != kTagRequest) return;
    if (!filling_) {
        // A full ring drops the block rather than overwrite one not yet read.
        filling_ = pending_.load(std::memory_order_acquire) < kRingSlots ? &slots_[size_t(writeIndex_)]
                                                                         : &slots_[kRingSlots];
        fillOffset_ = 0;
    }
    const int n = std::min(count * kChunkSamples, samplesPerBlock_ - fillOffset_);
    if (n <= 0) return;
    cf32* dst = filling_->samples + fillOffset_;
    if (blocks) dspConvert16sTo32fScaled(reinterpret_cast<const int16_t*>(blocks), reinterpret_cast<float*>(dst), 2 * n, 15);
    else dspZeroComplex(dst, n);
    fillOffset_ += n;
}

void EngineIQStreamingUSB::onStatus(int tag, const uint8_t* block) {
    if (tag != kTagRequest) return;
    finishBlock(block);
}

void EngineIQStreamingUSB::onTicketDone(int tag) {
    if (tag != kTagRequest) return;
    // After a loss nothing more is asked: the pump would answer it at once,
    // and the caller learns of the loss from the transport.
    if (transport_->statusNow() != zrNoError) {
        stored();
        return;
    }
    if (!stopping_.load(std::memory_order_relaxed)) pump_->push(kTagRequest, requestList_);
}

void EngineIQStreamingUSB::finishBlock(const uint8_t* statusBlock) {
    Slot* slot = filling_;
    filling_ = nullptr;
    if (!statusBlock || !slot) {
        stored();  // wakes a caller to see the lost link
        return;
    }
    const StatusImage img = decodeStatus(*device_, statusBlock, true, false);
    if (img.adcOverflow) noteOverflow();
    if (img.dataLoss) noteLoss();

    if (slot == &slots_[kRingSlots]) {
        noteDropped();
        gap_ = true;
        return;
    }
    oscillator_.Apply(slot->samples, slot->samples, samplesPerBlock_);

    const double tpb = plan_.rates.ticksPerBaseSample;
    slot->triggerCount = 0;
    if (!img.statusBlockInvalid) {
        const GpsPulseReader& pulses = device_->gpsPulses;
        const int n = int(std::min<uint32_t>(pulses.count, uint32_t(slot->triggers.size())));
        for (int i = 0; i < n; ++i) {
            const double offset = double(int32_t(pulses.entries[size_t(i)]));
            slot->triggers[size_t(i)] = (offset + filterDelayTicks_) / (plan_.decimation * tpb);
        }
        slot->triggerCount = n;
    }

    GpsReceiver& gps = device_->gps;
    if (gps.locked.load(std::memory_order_relaxed)) {
        const int64_t t = gps.blockTime.load(std::memory_order_relaxed) +
                          int64_t(std::trunc(filterDelayTicks_ * -4.0)) -
                          int64_t(std::trunc(plan_.hardwareDecimation * double(samplesPerBlock_) * tpb * 4.0)) -
                          linkLatencyNs(plan_.rates.base);
        slot->blockTime = t;
        gps.freeRunTime.store(t, std::memory_order_relaxed);
    } else {
        slot->blockTime = gps.freeRunTime.load(std::memory_order_relaxed);
    }
    slot->gapBefore = gap_;
    gap_ = false;

    pending_.fetch_add(1, std::memory_order_acq_rel);
    blockEvent_.set();
    writeIndex_ = (writeIndex_ + 1) % kRingSlots;
}

// -------------------------------------------------------------- work thread

void EngineIQStreamingUSB::workThread() {
    while (running()) {
        if (pending_.load(std::memory_order_acquire) == 0) {
            blockEvent_.wait(kWorkWaitSlice);
            continue;
        }
        if (!running()) break;
        process(slots_[size_t(readIndex_)]);
        stored();
        pending_.fetch_sub(1, std::memory_order_acq_rel);
        readIndex_ = (readIndex_ + 1) % kRingSlots;
    }
}

void EngineIQStreamingUSB::process(Slot& slot) {
    IQSampleQueue& q = queue();
    if (slot.gapBefore) q.markGap();
    const int n = samplesPerBlock_;
    if (plan_.softwareFilterOn) {
        softwareFilter_.Filter(slot.samples, scratchA_.data(), n);
        q.store(scratchA_.data(), uint64_t(n), slot.triggers.data(), slot.triggerCount, slot.blockTime);
        return;
    }
    const HostStages& st = plan_.stages;
    if (st.oneFactor == 1) {
        q.store(slot.samples, uint64_t(n), slot.triggers.data(), slot.triggerCount, slot.blockTime);
        return;
    }
    // Each down-sampler keeps the first of every group: block lengths are
    // multiples of every factor, so the phase is 0 at each block.
    cf32* a = scratchA_.data();
    cf32* b = scratchB_.data();
    stageOne_.Filter(slot.samples, b, n);
    int m = n / st.oneFactor;
    for (int i = 0; i < m; ++i) a[i] = b[size_t(i) * size_t(st.oneFactor)];
    if (st.twoFactor > 1) {
        stageTwo_.Filter(a, b, m);
        m /= st.twoFactor;
        for (int i = 0; i < m; ++i) a[i] = b[size_t(i) * size_t(st.twoFactor)];
    }
    q.store(a, uint64_t(m), slot.triggers.data(), slot.triggerCount, slot.blockTime);
}

}  // namespace zr
