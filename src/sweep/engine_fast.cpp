#include "sweep/engine_fast.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <numeric>

#include "api/device.h"
#include "api/services.h"
#include "dsp/dsp.h"
#include "sweep/spectrum_processor.h"
#include "transport/device_interface.h"

namespace zr {

namespace {

constexpr int kReplyBytes = 8192;
constexpr int kMaxReadsInFlight = 10;
constexpr int kMaxPagesInFlight = DeviceInterface::kSlotCount;
constexpr int kMaxReadBlocks = 32;  // 256 KiB: a step brings at most three blocks
constexpr int kReadTimeoutMs = 2000;
constexpr int kConfigReplyBytes = 0x8000;

// Where slices 1 to 4 keep their bins in the instrument's spectrum, in
// 1/32 of the FFT: those tunes centre the band differently.
int lowSliceSource(int slice) {
    switch (slice) {
        case 1: return 14;
        case 2: return 19;
        case 3: return 8;
        case 4: return 13;
        default: return -1;
    }
}

}  // namespace

EngineSweepFast::EngineSweepFast(ZrDevice& device, const ZrSweepSettings& settings, SweepPlan plan,
                                 const CommandList& configList, const CommandList& sweepList)
    : device_(&device), transport_(device.transport.get()), settings_(settings), plan_(std::move(plan)),
      configList_(configList), sweepList_(sweepList) {
    const auto& d = sweepList_.dataWordCounts();
    const auto& st = sweepList_.statusWordCounts();
    listDataBlocks_ = int32_t(std::accumulate(d.begin(), d.end(), uint64_t(0)));
    listStatusBlocks_ = int32_t(std::accumulate(st.begin(), st.end(), uint64_t(0)));
    traceSize_ = size_t(plan_.stepCount) * size_t(plan_.blocksPerStep) * kFastBlockValues;
    pageQueue_.resize(size_t(kSweepPositions) * sweepList_.blockCount());
    halfRow_.resize(size_t(plan_.fftSize / 2));
    thread_ = NamedThread("EngineSweepFast::AcquisitionThread", ThreadPriority::Normal, [this] { acquisitionThread(); });
}

EngineSweepFast::~EngineSweepFast() {
    running_ = false;
    wakeEvent_.set();
    thread_.join();
}

// ---------------------------------------------------------------- caller side

ZrStatus EngineSweepFast::startSweep(int position) {
    if (const int32_t s = transport_ ? transport_->statusNow() : 0) return ZrStatus(s);
    if (position < 0 || position >= kSweepPositions) return zrInvalidSweepPositionErr;
    SweepPosition& pos = positions_[position];
    if (pos.active.load()) return zrInvalidSweepPositionErr;
    if (pos.maxTrace.size() != traceSize_) {
        try {
            pos.minTrace.resize(traceSize_);
            pos.maxTrace.resize(traceSize_);
        } catch (const std::bad_alloc&) {
            pos.minTrace = {};
            pos.maxTrace = {};
            return zrAllocationErr;
        }
    }
    pos.nextStep = 0;
    pos.doneEvent.reset();
    pos.uncalFlag = pos.overflowFlag = pos.syncFlag = pos.driftFlag = false;
    pos.active = 1;
    {
        std::lock_guard lock(captureLock_);
        captureFifo_[(captureHead_ + captureCount_) % kSweepPositions] =
            CaptureTicket{position, listDataBlocks_, listStatusBlocks_, false};
        ++captureCount_;
    }
    {
        std::lock_guard lock(pageLock_);
        const auto& d = sweepList_.dataWordCounts();
        const auto& st = sweepList_.statusWordCounts();
        for (size_t b = 0; b < sweepList_.blockCount(); ++b) {
            pageQueue_[(pageHead_ + pageCount_) % pageQueue_.size()] =
                Page{sweepList_.data() + b * CommandList::kBlockSize, int32_t(d[b] + st[b])};
            ++pageCount_;
        }
    }
    wakeEvent_.set();
    return zrNoError;
}

ZrStatus EngineSweepFast::finishSweep(int position, float* sweepMin, float* sweepMax, int64_t* timestamp) {
    if (const int32_t s = transport_ ? transport_->statusNow() : 0) return ZrStatus(s);
    if (position < 0 || position >= kSweepPositions || !positions_[position].active.load()) {
        if (timestamp) *timestamp = 0;
        return zrInvalidSweepPositionErr;
    }
    SweepPosition& pos = positions_[position];
    pos.doneEvent.wait();
    // A link lost during the wait: the data are meaningless and the
    // position stays taken until the next configuration.
    if (const int32_t s = transport_ ? transport_->statusNow() : 0) return ZrStatus(s);
    postProcess(pos);

    const int64_t from = int64_t(plan_.startBin) - plan_.steps.front().firstBin;
    int64_t kept = 0;
    for (const SweepStep& st : plan_.steps) kept += st.binCount;
    const int count = int(std::clamp<int64_t>(std::min<int64_t>(settings_.sweepLength, kept - from), 0, INT32_MAX));
    float* result = pos.maxTrace.data() + std::max<int64_t>(from, 0);
    if (settings_.scale == zrScaleLin)
        for (int i = 0; i < count; ++i) result[i] = std::exp((result[i] + kDbmOfMilliVolt) * kDb20ToLn);
    if (sweepMin) std::memcpy(sweepMin, result, size_t(count) * sizeof(float));
    if (sweepMax) std::memcpy(sweepMax, result, size_t(count) * sizeof(float));
    if (timestamp) *timestamp = int64_t(pos.timestamp);

    ZrStatus status = zrNoError;
    if (pos.uncalFlag) status = zrUncalData;
    else if (pos.overflowFlag) status = zrADCOverflow;
    else if (pos.driftFlag) status = zrTempDriftWarning;
    pos.active = 0;
    pos.nextStep = 0;
    return pos.syncFlag ? zrSyncErr : status;
}

ZrStatus EngineSweepFast::getSweep(float* sweepMin, float* sweepMax, int64_t* timestamp) {
    if (const int32_t s = transport_ ? transport_->statusNow() : 0; s < 0) return ZrStatus(s);
    const ZrStatus s = startSweep(0);
    if (s < 0) return s;
    return finishSweep(0, sweepMin, sweepMax, timestamp);
}

void EngineSweepFast::drain() {
    for (int i = 0; i < kSweepPositions; ++i)
        if (positions_[i].active.load()) finishSweep(i, nullptr, nullptr, nullptr);
}

bool EngineSweepFast::queueBusy() const {
    for (const SweepPosition& pos : positions_)
        if (pos.active.load()) return true;
    return false;
}

// Rows of raw spectra to one calibrated, stitched trace at the front of
// maxTrace.
void EngineSweepFast::postProcess(SweepPosition& pos) {
    const int n = plan_.fftSize;
    const int u = n / 32;
    const size_t stride = size_t(plan_.blocksPerStep) * kFastBlockValues;
    float* rows = pos.maxTrace.data();
    if (plan_.blocksPerStep == 4) {
        // Three blocks arrived per step; the unfetched third goes back in
        // as a gap so that every row has the full stride.
        for (int j = 0; j < plan_.stepCount; ++j) {
            const float* src = rows + size_t(j) * 0x3000;
            float* dst = pos.minTrace.data() + size_t(j) * 0x4000;
            dspCopy(src, dst, 0x2000);
            dspCopy(src + 0x2000, dst + 0x3000, 0x1000);
        }
        dspCopy(pos.minTrace.data(), rows, int(traceSize_));
    }
    const int h = n / 2;
    for (int j = 0; j < plan_.stepCount; ++j) {
        const SweepStep& st = plan_.steps[size_t(j)];
        float* row = rows + size_t(j) * stride;
        dspCopy(row, halfRow_.data(), h);
        dspMove(row + h, row, h);
        dspCopy(halfRow_.data(), row + h, h);
        dspAddCInPlace(st.gainDb - plan_.fftGainDb + plan_.windowGainDb, row, n);
        if (const int src = lowSliceSource(st.sliceNumber); src >= 0) dspMove(row + src * u, row + 25 * u, 7 * u);
    }
    size_t end = 0;
    for (int j = 0; j < plan_.stepCount; ++j) {
        const SweepStep& st = plan_.steps[size_t(j)];
        dspMove(rows + size_t(j) * stride + size_t(st.firstBin), rows + end, st.binCount);
        end += size_t(st.binCount);
    }
}

// ---------------------------------------------------------------- acquisition

void EngineSweepFast::acquisitionThread() {
    // The first spectrum after arming is thrown away, and so is a second.
    for (int i = 0; i < 2 && transport_; ++i) {
        transport_->BeginRead(0, kConfigReplyBytes, kReadTimeoutMs);
        SendCommandList(*transport_, configList_);
        transport_->noteResult(transport_->FinishRead(0));
    }

    constexpr int kSlots = DeviceInterface::kSlotCount;
    Page taken[kMaxPagesInFlight];
    int takenCount = 0, pending = 0, reads = 0, written = 0;
    int readBegin = 0, readFinish = 0, pageWrite = 0, pageRetire = 0;
    int owed[kSlots] = {};

    auto queueEmpty = [this] {
        std::lock_guard lock(pageLock_);
        return pageCount_ == 0;
    };
    auto writeTaken = [&] {
        for (int i = 0; i < takenCount; ++i) {
            transport_->BeginWrite(pageWrite, taken[i].data);
            owed[pageWrite] = taken[i].blocks;
            pageWrite = (pageWrite + 1) % kSlots;
            ++written;
        }
        takenCount = 0;
    };
    auto retireOne = [&] {
        transport_->noteResult(transport_->FinishWrite(pageRetire));
        pageRetire = (pageRetire + 1) % kSlots;
        --written;
    };

    while (running_ && transport_) {
        if (reads == 0 && pending == 0 && takenCount == 0 && queueEmpty()) {
            while (written > 0) retireOne();
            readBegin = readFinish = pageWrite = pageRetire = 0;
            wakeEvent_.wait();
            if (!running_) break;
        }
        bool ranDry = false;
        {
            std::lock_guard lock(pageLock_);
            // A page whose blocks would push a read past its limit waits,
            // unless too little is pending to make a read at all.
            while (written + takenCount < kMaxPagesInFlight && pageCount_ > 0 &&
                   (pending < 4 || pending + pageQueue_[pageHead_].blocks <= kMaxReadBlocks)) {
                taken[takenCount++] = pageQueue_[pageHead_];
                pending += pageQueue_[pageHead_].blocks;
                pageHead_ = (pageHead_ + 1) % pageQueue_.size();
                --pageCount_;
            }
            ranDry = pageCount_ == 0;
        }
        // A starter may still be pushing the pages of a list: wait for the
        // rest unless nothing more is coming.
        if (!ranDry || pending >= 1) {
            const int n = std::min(pending, kMaxReadBlocks) & ~3;
            if (n >= 4) {
                // The read goes out before the commands that cause its data.
                transport_->BeginRead(readBegin, n * kReplyBytes, kReadTimeoutMs);
                readBegin = (readBegin + 1) % kSlots;
                ++reads;
                pending -= n;
                writeTaken();
            }
        }
        if (pending == 0 && takenCount > 0) writeTaken();  // pages that ask for no replies

        const bool mustWait = reads >= kMaxReadsInFlight || (written + takenCount >= kMaxPagesInFlight && reads >= 1) ||
                              (reads >= 1 && queueEmpty());
        if (!mustWait) continue;

        const TransferResult r = transport_->FinishRead(readFinish);
        // Only a failed transfer is a lost connection here; a short one
        // marks the sweep it belongs to.
        if (r.failed) transport_->noteResult(r);
        readFinish = (readFinish + 1) % kSlots;
        --reads;
        distribute(r.failed ? nullptr : r.data, r.requested, !r.failed && r.transferred != r.requested);
        int m = int(r.requested / kReplyBytes);
        while (written > 0) {
            if (owed[pageRetire] > 0) {
                if (m == 0) break;
                const int pay = std::min(owed[pageRetire], m);
                owed[pageRetire] -= pay;
                m -= pay;
                if (owed[pageRetire] > 0) break;
            }
            retireOne();
        }
    }
    while (reads > 0) {
        transport_->FinishRead(readFinish);
        readFinish = (readFinish + 1) % kSlots;
        --reads;
    }
    while (written > 0) retireOne();
}

void EngineSweepFast::distribute(const uint8_t* data, uint32_t bytes, bool shortRead) {
    int m = int(bytes / kReplyBytes);
    const uint8_t* p = data;
    int decodedFor = -1;  // ticket whose first status block of this read was decoded
    while (m > 0) {
        CaptureTicket* t = nullptr;
        {
            std::lock_guard lock(captureLock_);
            if (captureCount_ > 0) t = &captureFifo_[captureHead_];
        }
        if (!t) break;  // replies nobody asked for
        SweepPosition& pos = positions_[t->position];
        if (shortRead) {
            pos.uncalFlag = true;
            shortRead = false;
        }

        if (t->captureBlocksLeft > 0) {
            const int k = std::min(m, t->captureBlocksLeft);
            float* dst = pos.maxTrace.data() + size_t(pos.nextStep.load()) * kFastBlockValues;
            const int values = k * kFastBlockValues;
            if (p) {
                const int16_t* src = reinterpret_cast<const int16_t*>(p);
                for (int i = 0; i < values; ++i) dst[i] = float(src[i]) * 0.01f;
                p += size_t(k) * kReplyBytes;
            } else {
                dspZero(dst, values);
            }
            pos.nextStep += uint32_t(k);
            t->captureBlocksLeft -= k;
            m -= k;
            continue;
        }

        const int k = std::min(t->statusBlocksLeft, m);
        if (decodedFor != t->position) {
            decodedFor = t->position;
            if (p) {
                decodeStatus(*device_, p, true, false);
                pos.timestamp = uint64_t(device_->gps.statusTime.load());
                pos.overflowFlag = device_->adcOverflow != 0;
                pos.uncalFlag = pos.uncalFlag || device_->fftDataLoss != 0;
            }
            pos.syncFlag = device_->statusBlockInvalid != 0;
            pos.driftFlag = device_->tempDrift != 0;
        }
        t->statusBlocksLeft -= k;
        m -= k;
        if (p) p += size_t(k) * kReplyBytes;
        if (t->statusBlocksLeft == 0) {
            {
                std::lock_guard lock(captureLock_);
                captureHead_ = (captureHead_ + 1) % kSweepPositions;
                --captureCount_;
            }
            decodedFor = -1;
            pos.doneEvent.set();
        }
    }
}

// ---------------------------------------------------------------- contract

ZrStatus startSweep(EngineSweepFast& engine, int position) { return engine.startSweep(position); }
ZrStatus finishSweep(EngineSweepFast& engine, int position, float* sweepMin, float* sweepMax, int64_t* timestamp) {
    return engine.finishSweep(position, sweepMin, sweepMax, timestamp);
}
ZrStatus getSweep(EngineSweepFast& engine, float* sweepMin, float* sweepMax, int64_t* timestamp) {
    return engine.getSweep(sweepMin, sweepMax, timestamp);
}
void drainSweeps(EngineSweepFast& engine) { engine.drain(); }
bool sweepQueueBusy(const EngineSweepFast& engine) { return engine.queueBusy(); }
void destroyEngine(EngineSweepFast* engine) { delete engine; }

}  // namespace zr
