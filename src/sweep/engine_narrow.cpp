#include "sweep/engine_narrow.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>

#include "api/device.h"
#include "api/services.h"
#include "sweep/sweep_mode.h"
#include "transport/device_interface.h"

namespace zr {

namespace {

constexpr int kReplyBytes = 8192;
constexpr int kReadBufferSamples = 0x40000;
constexpr int kMaxReadBlocks = kReadBufferSamples / kCaptureBlockSamples;  // 128
constexpr int kMaxReads = 10;
constexpr int kMaxPagesInFlight = 4;
constexpr int kReadTimeoutMs = 2000;
constexpr int kFilterTaps = 2049;
constexpr int kStatusReplyBytes = 0x8000;

int dataWords(const CommandList& list) {
    int n = 0;
    for (uint32_t c : list.dataWordCounts()) n += int(c);
    return n;
}

}  // namespace

EngineSweepNarrow::EngineSweepNarrow(ZrDevice& device, const ZrSweepSettings& settings, SweepPlan plan,
                                     const CommandList& list, NarrowDecimation dec)
    : device_(&device), transport_(device.transport.get()), settings_(settings), plan_(std::move(plan)),
      step_(plan_.steps.front()), captureList_(list), dec_(dec) {
    readBuffer_.resize(kReadBufferSamples);
    samples_.resize(size_t(dataWords(captureList_)) * kCaptureBlockSamples / size_t(dec_.software));
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
}

// The capture list through the transport, each read converted, shifted,
// filtered and decimated into samples as it lands, then one status block.
void EngineSweepNarrow::acquire() {
    constexpr int kSlots = DeviceInterface::kSlotCount;
    const size_t pages = captureList_.blockCount();
    const auto& counts = captureList_.dataWordCounts();
    size_t next = 0;
    int pending = 0, reads = 0, written = 0;
    int readBegin = 0, readFinish = 0, pageWrite = 0, pageRetire = 0;
    int owed[kSlots] = {};
    writePos_ = 0;

    auto issueReads = [&] {
        for (int n; reads < kMaxReads && (n = std::min(pending, kMaxReadBlocks) & ~3) >= 4; ++reads) {
            transport_->BeginRead(readBegin, n * kReplyBytes, kReadTimeoutMs);
            readBegin = (readBegin + 1) % kSlots;
            pending -= n;
        }
    };
    for (;;) {
        // A page goes out only behind the reads for its replies, and only
        // while the reads that may still be posted can take them all.
        while (next < pages && (written < kMaxPagesInFlight || reads == 0) &&
               pending + int(counts[next]) <= (kMaxReads - reads) * kMaxReadBlocks) {
            pending += int(counts[next]);
            issueReads();
            transport_->BeginWrite(pageWrite, captureList_.data() + next * CommandList::kBlockSize);
            owed[pageWrite] = int(counts[next]);
            pageWrite = (pageWrite + 1) % kSlots;
            ++written;
            ++next;
        }
        if (reads == 0) break;
        const TransferResult r = transport_->FinishRead(readFinish);
        transport_->noteResult(r);
        readFinish = (readFinish + 1) % kSlots;
        --reads;
        takeRead(r.failed ? nullptr : r.data, r.requested);
        int m = int(r.requested / kReplyBytes);
        while (written > 0 && (owed[pageRetire] <= m || owed[pageRetire] == 0)) {
            m -= owed[pageRetire];
            transport_->noteResult(transport_->FinishWrite(pageRetire));
            pageRetire = (pageRetire + 1) % kSlots;
            --written;
        }
        if (written > 0) owed[pageRetire] -= m;
        issueReads();
    }
    while (written > 0) {
        transport_->noteResult(transport_->FinishWrite(pageRetire));
        pageRetire = (pageRetire + 1) % kSlots;
        --written;
    }

    transport_->BeginRead(0, kStatusReplyBytes, kReadTimeoutMs);
    SendCommandList(*transport_, statusList_);
    const TransferResult r = transport_->FinishRead(0);
    transport_->noteResult(r);
    if (!r.failed && r.data) decodeStatus(*device_, r.data, true, false);

    if (dec_.software > 1) {
        // Drop the filter's delay of half its length in input samples.
        const int64_t delay = (kFilterTaps / 2) / dec_.software;
        std::move(samples_.begin() + delay, samples_.end(), samples_.begin());
    }
}

void EngineSweepNarrow::takeRead(const uint8_t* data, uint32_t bytes) {
    const int c = int(bytes / kReplyBytes) * kCaptureBlockSamples;
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

ZrStatus EngineSweepNarrow::finishSweep(float* sweepMin, float* sweepMax, int64_t* timestamp) {
    if (transport_) acquire();
    if (const int32_t s = transport_ ? transport_->statusNow() : zrConnectionLostErr) return ZrStatus(s);

    const int first = plan_.firstKeptBin;
    const int L = settings_.sweepLength;
    processor_->processPass(samples_.data(), min_.data(), max_.data());
    if (passes_ == 2) {
        processor_->processPass(samples_.data() + passSamples_, min2_.data(), max2_.data());
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
    if (device_->dataLoss) status = zrUncalData;
    else if (device_->adcOverflow) status = zrADCOverflow;
    return device_->statusBlockInvalid ? zrSyncErr : status;
}

// ---------------------------------------------------------------- contract

ZrStatus finishSweep(EngineSweepNarrow& engine, float* sweepMin, float* sweepMax, int64_t* timestamp) {
    return engine.finishSweep(sweepMin, sweepMax, timestamp);
}
void destroyEngine(EngineSweepNarrow* engine) { delete engine; }

}  // namespace zr
