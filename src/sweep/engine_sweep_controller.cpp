#include "sweep/engine_sweep_controller.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <new>
#include <thread>

#include "device/device.h"
#include "device/services.h"

namespace zr {

namespace {

constexpr PumpLimits kPumpLimits{10, DeviceInterface::kSlotCount, 128, 2000};
constexpr int32_t kWakeAllBlocks = 1000000;
std::atomic<int64_t> ringCapacityForTest{0};

int64_t ringCapacityFor(int32_t s, int32_t stepCount) {
    const int64_t S = s;
    if (const int64_t forced = ringCapacityForTest.load()) return std::max(forced / S, int64_t(3)) * S;
    const int64_t a = std::max(int64_t(5e6 / double(S)) * S, 3 * S);
    const int64_t b = std::min(int64_t(5e7 / double(S)) * S, int64_t(stepCount) * S);
    return std::max(a, b);
}

}  // namespace

void EngineSweepController::setRingCapacityForTest(int64_t samples) { ringCapacityForTest = samples; }

EngineSweepController::EngineSweepController(ZrDevice& device, const ZrSweepSettings& settings, SweepPlan plan,
                                             const CommandList& list)
    : device_(&device), transport_(device.transport.get()), settings_(settings), plan_(std::move(plan)),
      commandList_(list) {
    stepSamples_ = plan_.passes * plan_.blocksPerStep * kCaptureBlockSamples;
    ringCapacity_ = ringCapacityFor(stepSamples_, plan_.stepCount);
    ring_ = static_cast<cf32*>(dspMalloc(size_t(ringCapacity_) * sizeof(cf32)));
    if (!ring_) throw std::bad_alloc();
    try {
        stepDone_.assign(size_t(ringCapacity_ / stepSamples_), 0);
        for (int t = 0; t < 2; ++t) {
            processors_[t] = std::make_unique<SpectrumProcessor>(settings_, plan_);
            passTraces_[t].resize(size_t(4) * plan_.fftSize);
        }
        if (transport_)
            // Twice the positions: a finished sweep's ticket may still wait
            // for the padding replies behind its status.
            pump_ = std::make_unique<TransferPump>(*transport_, static_cast<TransferSink&>(*this), kPumpLimits, 2 * kSweepPositions,
                                                   size_t(2 * kSweepPositions) * commandList_.blockCount());
        workThreads_[0] = NamedThread("ZR Sweep Work Thread", ThreadPriority::Normal, [this] { workThread(0); });
        workThreads_[1] = NamedThread("ZR Sweep Work Thread", ThreadPriority::Normal, [this] { workThread(1); });
        if (pump_) pump_->start("ZR Sweep USB Thread", ThreadPriority::TimeCritical);
    } catch (...) {
        running_ = false;
        blocksReady_ = kWakeAllBlocks;
        dataEvent_.set();
        for (auto& w : workThreads_)
            if (w.joinable()) w.join();
        dspFree(ring_);
        throw;
    }
}

EngineSweepController::~EngineSweepController() {
    running_ = false;
    pump_.reset();
    blocksReady_ = kWakeAllBlocks;
    dataEvent_.set();
    for (auto& w : workThreads_) w.join();
    dspFree(ring_);
}

// ---------------------------------------------------------------- caller side

ZrStatus EngineSweepController::startSweep(int position) {
    // After a loss every call tells that story, until the next configuration.
    if (const int32_t lost = transport_ ? transport_->statusNow() : 0) return ZrStatus(lost);
    if (position < 0 || position >= kSweepPositions) return zrInvalidSweepPositionErr;
    SweepPosition& pos = positions_[position];
    if (pos.active.load()) return zrInvalidSweepPositionErr;

    const size_t traceSize = size_t(plan_.stepCount) * plan_.fftSize;
    if (pos.minTrace.size() != traceSize) {
        // Sized at the first start; a failure here reaches the caller as
        // zrAllocationErr through the frame, and the next start tries again.
        pos.minTrace.clear();
        pos.maxTrace.clear();
        pos.minTrace.resize(traceSize);
        pos.maxTrace.resize(traceSize);
    }
    pos.stepsLeft = uint32_t(plan_.stepCount);
    pos.nextStep = 0;
    pos.doneEvent.reset();
    pos.uncalFlag = pos.overflowFlag = false;
    pos.cpuFlag = false;
    pos.syncFlag = pos.driftFlag = false;
    pos.partsLeft = 2;
    pos.active = 1;

    const uint32_t tail = stepFifoTail_.load(std::memory_order_relaxed);
    stepFifo_[tail % kSweepPositions] = position;
    stepFifoTail_.store(tail + 1, std::memory_order_release);

    // Room for 16 sweeps' pages was made at construction, so this cannot
    // fail while the position was free; without a transport every sweep
    // finishes at once, as with a lost link.
    if (!pump_ || !pump_->push(position, commandList_)) {
        pos.partsLeft = 1;
        partDone(pos);
        pos.stepsLeft = 0;
    }
    return zrNoError;
}

ZrStatus EngineSweepController::finishSweep(int position, float* sweepMin, float* sweepMax, int64_t* timestamp) {
    if (const int32_t lost = transport_ ? transport_->statusNow() : 0) return ZrStatus(lost);
    if (position < 0 || position >= kSweepPositions || !positions_[position].active.load()) {
        if (timestamp) *timestamp = 0;
        return zrInvalidSweepPositionErr;
    }
    SweepPosition& pos = positions_[position];
    pos.doneEvent.wait();

    const int64_t available = int64_t(pos.minTrace.size()) - plan_.startBin;
    const int count = int(std::clamp<int64_t>(settings_.sweepLength, 0, std::max<int64_t>(available, 0)));
    if (sweepMin) std::memcpy(sweepMin, pos.minTrace.data() + plan_.startBin, size_t(count) * sizeof(float));
    if (sweepMax) std::memcpy(sweepMax, pos.maxTrace.data() + plan_.startBin, size_t(count) * sizeof(float));
    if (timestamp) *timestamp = int64_t(pos.timestamp);

    if (const int32_t lost = transport_ ? transport_->statusNow() : 0) return ZrStatus(lost);

    ZrStatus warning = zrNoError;
    if (pos.cpuFlag) warning = zrCPULimited;
    else if (pos.uncalFlag) warning = zrUncalData;
    else if (pos.overflowFlag) warning = zrADCOverflow;
    else if (pos.driftFlag) warning = zrTempDriftWarning;
    pos.active = 0;
    pos.nextStep = 0;
    return pos.syncFlag ? zrSyncErr : warning;
}

ZrStatus EngineSweepController::getSweep(float* sweepMin, float* sweepMax, int64_t* timestamp) {
    const ZrStatus s = startSweep(0);
    if (s < 0) return s;
    return finishSweep(0, sweepMin, sweepMax, timestamp);
}

void EngineSweepController::drain() {
    for (SweepPosition& pos : positions_) {
        if (!pos.active.load()) continue;
        pos.doneEvent.wait();
        if (!transport_ || transport_->statusNow() == 0) {
            pos.active = 0;
            pos.nextStep = 0;
        }
    }
}

bool EngineSweepController::busy() const {
    for (const SweepPosition& pos : positions_)
        if (pos.active.load()) return true;
    return false;
}

// ---------------------------------------------------------------- USB thread

void EngineSweepController::onStatus(int position, const uint8_t* block) {
    SweepPosition& pos = positions_[position];
    // A lost read leaves the flags the last good block published.
    const StatusImage img = block ? decodeStatus(*device_, block, true, false) : device_->status.load();
    if (block) {
        pos.timestamp = uint64_t(device_->gps.statusTime.load());
        pos.overflowFlag = img.adcOverflow != 0;
        pos.uncalFlag = img.dataLoss != 0;
    }
    pos.syncFlag = img.statusBlockInvalid != 0;
    pos.driftFlag = img.tempDrift != 0;
    partDone(pos);
}

void EngineSweepController::onData(int position, const uint8_t* p, int k) {
    SweepPosition& pos = positions_[position];
    // Pieces that leave room for one unfinished step: the work threads can
    // always free the rest, however small the ring (it holds at least three
    // steps). A normal ring takes a whole read at once.
    const int pieceBlocks = int((ringCapacity_ - stepSamples_) / kCaptureBlockSamples);
    while (k > 0) {
        const int blocks = std::min(k, pieceBlocks);
        const int32_t c = blocks * kCaptureBlockSamples;
        bool slept = false;
        while (ringCapacity_ - ringUsed_.load() < c) {
            // Stopping: the work threads are gone and nobody frees room.
            if (!running_) return;
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            slept = true;
        }
        if (slept) pos.cpuFlag = true;

        int32_t w = ringWrite_.load(std::memory_order_relaxed);
        int32_t done = 0;
        while (done < c) {
            const int32_t piece = std::min<int32_t>(c - done, int32_t(ringCapacity_ - w));
            float* dst = reinterpret_cast<float*>(ring_ + w);
            if (p)
                dspConvert16sTo32fScaled(reinterpret_cast<const int16_t*>(p) + 2 * size_t(done), dst, 2 * piece, 15);
            else
                dspZeroComplex(ring_ + w, piece);
            done += piece;
            w += piece;
            if (w == ringCapacity_) w = 0;
        }
        ringWrite_.store(w, std::memory_order_relaxed);
        ringUsed_ += c;
        blocksReady_ += blocks;
        dataEvent_.set();
        k -= blocks;
        if (p) p += size_t(blocks) * TransferPump::kReplyBytes;
    }
}

// ---------------------------------------------------------------- work threads

void EngineSweepController::workThread(int t) {
    const int b = plan_.blocksPerStep * plan_.passes;
    const int n = plan_.fftSize;
    float* min1 = passTraces_[t].data();
    float* max1 = min1 + n;
    float* min2 = max1 + n;
    float* max2 = min2 + n;
    SpectrumProcessor& proc = *processors_[t];

    for (;;) {
        std::unique_lock lock(stepLock_);
        // The other work thread queues on the lock meanwhile, so steps are
        // claimed in the order their samples arrived.
        while (running_ && blocksReady_.load() < b) dataEvent_.wait();
        if (!running_) return;
        blocksReady_ -= b;
        const uint32_t head = stepFifoHead_.load(std::memory_order_acquire);
        const int position = stepFifo_[head % kSweepPositions];
        SweepPosition& pos = positions_[position];
        const int step = int(pos.nextStep.fetch_add(1));
        if (step + 1 >= plan_.stepCount) stepFifoHead_.store(head + 1, std::memory_order_release);
        const int32_t offset = ringRead_.load(std::memory_order_relaxed);
        ringRead_.store(offset + stepSamples_ >= ringCapacity_ ? 0 : offset + stepSamples_,
                        std::memory_order_relaxed);
        lock.unlock();

        proc.processPass(ring_ + offset, min1, max1);
        const SweepStep& st = plan_.steps[size_t(step)];
        if (plan_.passes == 2) {
            proc.processPass(ring_ + offset + plan_.blocksPerStep * kCaptureBlockSamples, min2, max2);
            alignSecondPass(st, settings_.scale, min2, max2, n);
        }
        releaseStep(offset);
        if (plan_.passes == 2) proc.mergePasses(max1, min1, max2, min2, 0, n);
        applyStepGain(st, settings_.scale, min1, max1, n);
        dspCopy(min1, pos.minTrace.data() + size_t(step) * n, n);
        dspCopy(max1, pos.maxTrace.data() + size_t(step) * n, n);
        if (pos.stepsLeft.fetch_sub(1) == 1) {
            compact(pos);
            partDone(pos);
        }
    }
}

void EngineSweepController::releaseStep(int32_t offset) {
    std::lock_guard lock(releaseLock_);
    stepDone_[size_t(offset / stepSamples_)] = 1;
    while (stepDone_[releaseSlot_]) {
        stepDone_[releaseSlot_] = 0;
        releaseSlot_ = (releaseSlot_ + 1) % stepDone_.size();
        ringUsed_ -= stepSamples_;
    }
}

// The last step of a sweep to finish: steps ended in any order, so only now
// can the kept bins be packed to the front, in plan order.
void EngineSweepController::compact(SweepPosition& pos) {
    const int n = plan_.fftSize;
    size_t end = 0;
    for (int s = 0; s < plan_.stepCount; ++s) {
        const SweepStep& st = plan_.steps[size_t(s)];
        const size_t from = size_t(s) * n + size_t(st.firstBin);
        dspMove(pos.minTrace.data() + from, pos.minTrace.data() + end, st.binCount);
        dspMove(pos.maxTrace.data() + from, pos.maxTrace.data() + end, st.binCount);
        end += size_t(st.binCount);
    }
}

void EngineSweepController::partDone(SweepPosition& pos) {
    if (pos.partsLeft.fetch_sub(1) == 1) pos.doneEvent.set();
}

}  // namespace zr
