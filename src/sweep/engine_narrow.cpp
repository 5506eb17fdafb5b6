#include "sweep/engine_narrow.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>

#include "device/device.h"
#include "device/services.h"

namespace zr {

namespace {

constexpr int kReadBufferSamples = 0x40000;
// A read brings at most what the read buffer converts at once.
constexpr PumpLimits kPumpLimits{10, 4, kReadBufferSamples / kCaptureBlockSamples, 2000};
constexpr int kFilterTaps = 2049;

}  // namespace

EngineSweepNarrow::EngineSweepNarrow(ZrDevice& device, const ZrSweepSettings& settings, SweepPlan plan,
                                     const CommandList& list, NarrowDecimation dec)
    : device_(&device), transport_(device.transport.get()), settings_(settings), plan_(std::move(plan)),
      step_(plan_.steps.front()), captureList_(list), dec_(dec) {
    readBuffer_.resize(kReadBufferSamples);
    samples_.resize(size_t(listDataReplies(captureList_)) * kCaptureBlockSamples / size_t(dec_.software));
    statusList_.AppendListHead();
    for (int i = 0; i < 4; ++i) statusList_.AppendStatusWord();
    passes_ = plan_.passes;
    passSamples_ = int64_t(plan_.blocksPerStep) * kCaptureBlockSamples / dec_.software;
    processor_ = std::make_unique<SpectrumProcessor>(settings_, plan_);
    if (dec_.software > 1) {
        std::vector<cf32> taps(kFilterTaps);
        DesignLowPassComplex(taps.data(), kFilterTaps, float(0.45 / dec_.software));
        if (!filter_.Setup(taps.data(), kFilterTaps)) throw std::bad_alloc();
    }
    const double baseRate = device.networked() ? 2e8 : 5e7;
    oscillator_.Configure(-(settings_.center - step_.ncoFrequency) / (baseRate / dec_.hardware), kReadBufferSamples,
                          true);
    const size_t n = size_t(plan_.fftSize);
    min_.resize(n);
    max_.resize(n);
    if (passes_ == 2) {
        min2_.resize(n);
        max2_.resize(n);
    }
    if (transport_)
        pump_ = std::make_unique<TransferPump>(*transport_, static_cast<TransferSink&>(*this), kPumpLimits, 2,
                                               captureList_.blockCount() + statusList_.blockCount());
}

// The capture list through the transport, each read converted, shifted,
// filtered and decimated into samples as it lands, then one status block.
void EngineSweepNarrow::acquire() {
    writePos_ = 0;
    pump_->push(0, captureList_);
    pump_->push(1, statusList_);
    pump_->runUntilIdle();

    if (dec_.software > 1) {
        // Drop the filter's delay of half its length in input samples.
        const int64_t delay = (kFilterTaps / 2) / dec_.software;
        std::move(samples_.begin() + delay, samples_.end(), samples_.begin());
    }
}

void EngineSweepNarrow::onStatus(int tag, const uint8_t* block) {
    if (block) decodeStatus(*device_, block, true, false);
}

void EngineSweepNarrow::onData(int tag, const uint8_t* data, int blocks) {
    const int c = blocks * kCaptureBlockSamples;
    cf32* buf = readBuffer_.data();
    if (data) dspConvert16sTo32fScaled(reinterpret_cast<const int16_t*>(data), reinterpret_cast<float*>(buf), 2 * c, 15);
    else dspZeroComplex(buf, c);
    oscillator_.Apply(buf, buf, c);
    const int64_t room = int64_t(samples_.size()) - writePos_;
    if (dec_.software == 1) {
        const int n = int(std::min<int64_t>(c, room));
        if (n > 0) dspCopyComplex(buf, samples_.data() + writePos_, n);
        writePos_ += c;
        return;
    }
    filter_.Filter(buf, buf, c);
    const int kept = c / dec_.software;
    for (int i = 0; i < kept && i < room; ++i) samples_[size_t(writePos_ + i)] = buf[size_t(i) * dec_.software];
    writePos_ += kept;
}

ZrStatus EngineSweepNarrow::startSweep(int) {
    return ZrStatus(transport_ ? transport_->statusNow() : zrNoError);
}

ZrStatus EngineSweepNarrow::finishSweep(int, float* sweepMin, float* sweepMax, int64_t* timestamp) {
    if (const int32_t lost = transport_ ? transport_->statusNow() : 0) return ZrStatus(lost);
    if (pump_) acquire();
    if (const int32_t s = transport_ ? transport_->statusNow() : zrConnectionLostErr) return ZrStatus(s);

    const int first = plan_.firstKeptBin;
    const int L = settings_.sweepLength;
    processor_->processPass(samples_.data(), min_.data(), max_.data());
    if (passes_ == 2) {
        processor_->processPass(samples_.data() + passSamples_, min2_.data(), max2_.data());
        alignSecondPass(step_, settings_.scale, min2_.data(), max2_.data(), int(min2_.size()));
        processor_->mergePasses(max_.data(), min_.data(), max2_.data(), min2_.data(), first, L);
    }
    float* lo = min_.data() + first;
    float* hi = max_.data() + first;
    if (settings_.scale == zrScaleLin) {
        const float factor = float(std::pow(10.0, double(step_.gainDb) * 0.05));
        dspMulCInPlace(factor, lo, L);
        dspMulCInPlace(factor, hi, L);
        if (step_.hasBinCorrection) {
            dspMulInPlace(step_.binCorrection.data(), lo, L);
            dspMulInPlace(step_.binCorrection.data(), hi, L);
        }
    } else {
        dspAddCInPlace(step_.gainDb, lo, L);
        dspAddCInPlace(step_.gainDb, hi, L);
        if (step_.hasBinCorrection) {
            dspAddInPlace(step_.binCorrection.data(), lo, L);
            dspAddInPlace(step_.binCorrection.data(), hi, L);
        }
    }
    if (sweepMin) std::memcpy(sweepMin, lo, size_t(L) * sizeof(float));
    if (sweepMax) std::memcpy(sweepMax, hi, size_t(L) * sizeof(float));
    if (timestamp) *timestamp = device_->gps.statusTime.load();

    ZrStatus status = zrNoError;
    const StatusImage img = device_->status.load();
    if (img.dataLoss) status = zrUncalData;
    else if (img.adcOverflow) status = zrADCOverflow;
    return img.statusBlockInvalid ? zrSyncErr : status;
}

}  // namespace zr
