#pragma once
// The normal sweep engine: a queue of 16 sweep positions, one thread that
// keeps the instrument's pipe full and turns replies into samples in a ring,
// and two work threads that turn the ring's steps into spectra. The plan's
// list is replayed once per sweep.

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "device/mode_engine.h"
#include "platform/threads.h"
#include "sweep/spectrum_processor.h"
#include "sweep/sweep_plan.h"
#include "transport/command_list.h"
#include "transport/transfer_pump.h"
#include "zr_api.h"

namespace zr {

struct ZrDevice;
class DeviceInterface;

constexpr int kSweepPositions = 16;

struct SweepPosition {
    std::atomic<uint32_t> active{0};
    std::atomic<uint32_t> nextStep{0};
    std::atomic<uint32_t> stepsLeft{0};
    std::vector<float> minTrace, maxTrace;  // stepCount x fftSize, kept once allocated
    uint64_t timestamp = 0;
    Event doneEvent{true};
    bool uncalFlag = false;
    bool overflowFlag = false;
    std::atomic<bool> cpuFlag{false};
    // Two parts finish a sweep in either order: the last step's compaction
    // and the decode of its status block. Whichever comes second sets
    // doneEvent, so a finish never reads a time stamp that is not there yet.
    std::atomic<uint32_t> partsLeft{0};
    // The device's sync and drift state as this sweep's status left it.
    bool syncFlag = false;
    bool driftFlag = false;
};

// Values of one position's min or max trace at most (steps x FFT size):
// 512 MiB each, so that a position, its ring and its FFTs stay near a
// gigabyte and sixteen positions fit in a workstation's memory.
constexpr int64_t kMaxSweepTraceValues = int64_t(1) << 27;
// Capture blocks of one sweep at most (2048 samples each).
constexpr int64_t kMaxSweepBlocks = int64_t(1) << 22;
// Capture blocks of one step at most (all its passes): 32 Mi samples, so
// the ring's three steps stay under 800 MiB and a step's sample count fits
// the 32-bit arithmetic of the ring.
constexpr int64_t kMaxStepBlocks = int64_t(1) << 14;

// Fills the plan, its list and the derived sweep fields of the device.
// Tunes through the device's RF state; sends nothing. False, with only the
// derived fields filled and nothing allocated for steps, when one sweep's
// traces would pass kMaxSweepTraceValues.
bool buildControllerPlan(ZrDevice& dev, SweepPlan& plan, CommandList& list);

// Whether the fast engine can serve these settings: no spur rejection, no
// preselector, RBW equal to VBW, and a window that fits its FFT at 250 MS/s.
bool fastSweepEligible(const ZrSweepSettings& s, bool preselector);

class EngineSweepController final : public SweepEngine, private TransferSink {
public:
    // Allocates everything but the position traces and starts the threads.
    // Throws std::bad_alloc when memory runs out.
    EngineSweepController(ZrDevice& device, const ZrSweepSettings& settings, SweepPlan plan,
                          const CommandList& list);
    ~EngineSweepController() override;

    ZrStatus startSweep(int position) override;
    ZrStatus finishSweep(int position, float* sweepMin, float* sweepMax, int64_t* timestamp) override;
    ZrStatus getSweep(float* sweepMin, float* sweepMax, int64_t* timestamp) override;

    // First step of a stop: every started sweep completes; positions are
    // freed unless the transport has failed.
    void drain() override;
    bool busy() const override;

    const SweepPlan& plan() const { return plan_; }
    int64_t ringCapacity() const { return ringCapacity_; }

    // For tests: a ring of this many samples (at least three steps) in
    // place of the sized one, so that a slow reader can be provoked.
    static void setRingCapacityForTest(int64_t samples);

private:
    // The pump's side, on the USB thread.
    void onData(int position, const uint8_t* blocks, int count) override;
    void onStatus(int position, const uint8_t* block) override;

    void workThread(int t);
    void compact(SweepPosition& pos);
    void releaseStep(int32_t offset);
    static void partDone(SweepPosition& pos);

    ZrDevice* device_;
    DeviceInterface* transport_;
    std::atomic<bool> running_{true};
    std::mutex stepLock_;
    const ZrSweepSettings settings_;
    const SweepPlan plan_;
    cf32* ring_ = nullptr;
    int64_t ringCapacity_ = 0;
    int32_t stepSamples_ = 0;
    std::atomic<int32_t> ringRead_{0}, ringWrite_{0}, ringUsed_{0}, blocksReady_{0};
    // Steps finish out of order, but ring space frees only from the oldest
    // claimed step on: a younger step's release must not let the USB thread
    // write over an older step that is still being read.
    std::mutex releaseLock_;
    std::vector<uint8_t> stepDone_;  // per ring slot of one step
    size_t releaseSlot_ = 0;
    Event dataEvent_;

    const CommandList commandList_;

    // Positions in start order. Filled by the starter, drained by the work
    // thread that holds stepLock; single producer, single consumer, so the
    // two ends are atomics rather than a second lock under stepLock.
    std::array<int32_t, kSweepPositions> stepFifo_{};
    std::atomic<uint32_t> stepFifoHead_{0}, stepFifoTail_{0};

    std::array<SweepPosition, kSweepPositions> positions_;
    std::array<std::unique_ptr<SpectrumProcessor>, 2> processors_;
    std::array<std::vector<float>, 2> passTraces_;  // per thread: min1, max1, min2, max2

    NamedThread workThreads_[2];
    std::unique_ptr<TransferPump> pump_;  // last: its thread stops first
};

}  // namespace zr
