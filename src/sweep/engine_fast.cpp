#include "sweep/engine_fast.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "device/device.h"
#include "device/services.h"
#include "dsp/dsp.h"
#include "sweep/spectrum_processor.h"
#include "transport/device_interface.h"

namespace zr {

namespace {

// Reads of at most 256 KiB: a step brings at most three blocks.
constexpr PumpLimits kPumpLimits{10, DeviceInterface::kSlotCount, 32, 2000};

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
    traceSize_ = size_t(plan_.stepCount) * size_t(plan_.blocksPerStep) * kFastBlockValues;
    halfRow_.resize(size_t(plan_.fftSize / 2));
    if (!transport_) return;
    // Twice the positions: a finished sweep's ticket may still wait for the
    // padding replies behind its status; two more for the configuration.
    const size_t tickets = 2 * kSweepPositions + 2;
    pump_ = std::make_unique<TransferPump>(*transport_, static_cast<TransferSink&>(*this), kPumpLimits, tickets,
                                           tickets * std::max(sweepList_.blockCount(), configList_.blockCount()));
    for (int i = 0; i < 2; ++i)
        if (!pump_->push(kConfigTag, configList_)) configLeft_ -= 1;
    pump_->start("EngineSweepFast::AcquisitionThread", ThreadPriority::Normal);
    if (configLeft_.load() > 0) configDone_.wait();
}

EngineSweepFast::~EngineSweepFast() { pump_.reset(); }

// ---------------------------------------------------------------- caller side

ZrStatus EngineSweepFast::startSweep(int position) {
    if (const int32_t s = transport_ ? transport_->statusNow() : 0) return ZrStatus(s);
    if (position < 0 || position >= kSweepPositions) return zrInvalidSweepPositionErr;
    SweepPosition& pos = positions_[position];
    if (pos.active.load()) return zrInvalidSweepPositionErr;
    if (pos.maxTrace.size() != traceSize_) {
        // Sized at the first start; a failure here reaches the caller as
        // zrAllocationErr through the frame, and the next start tries again.
        pos.minTrace.clear();
        pos.maxTrace.clear();
        pos.minTrace.resize(traceSize_);
        pos.maxTrace.resize(traceSize_);
    }
    pos.nextStep = 0;
    pos.doneEvent.reset();
    pos.uncalFlag = pos.overflowFlag = pos.syncFlag = pos.driftFlag = false;
    pos.active = 1;
    if (!pump_ || !pump_->push(position, sweepList_)) pos.doneEvent.set();
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

bool EngineSweepFast::busy() const {
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

void EngineSweepFast::onData(int position, const uint8_t* p, int k) {
    if (position == kConfigTag) return;
    SweepPosition& pos = positions_[position];
    float* dst = pos.maxTrace.data() + size_t(pos.nextStep.load()) * kFastBlockValues;
    const int values = k * kFastBlockValues;
    if (p) {
        const int16_t* src = reinterpret_cast<const int16_t*>(p);
        for (int i = 0; i < values; ++i) dst[i] = float(src[i]) * 0.01f;
    } else {
        dspZero(dst, values);
    }
    pos.nextStep += uint32_t(k);
}

void EngineSweepFast::onStatus(int position, const uint8_t* block) {
    if (position == kConfigTag) return;
    SweepPosition& pos = positions_[position];
    // A lost read leaves the flags the last good block published.
    const StatusImage img = block ? decodeStatus(*device_, block, true, false) : device_->status.load();
    if (block) {
        pos.timestamp = uint64_t(device_->gps.statusTime.load());
        pos.overflowFlag = img.adcOverflow != 0;
        pos.uncalFlag = img.fftDataLoss != 0;
    }
    pos.syncFlag = img.statusBlockInvalid != 0;
    pos.driftFlag = img.tempDrift != 0;
}

void EngineSweepFast::onTicketDone(int position) {
    if (position != kConfigTag) positions_[position].doneEvent.set();
    else if (configLeft_.fetch_sub(1) == 1) configDone_.set();
}

}  // namespace zr
