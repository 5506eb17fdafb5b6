#pragma once
// The fast sweep engine: the instrument computes one log spectrum per tuned
// step at 250 MS/s and the host only fetches, stitches and calibrates them.
// One acquisition thread keeps the pipe full and fills the positions; the
// caller's finish does the post-processing.

#include <array>
#include <atomic>
#include <cstdint>
#include <mutex>
#include <vector>

#include "platform/threads.h"
#include "sweep/engine_sweep_controller.h"
#include "sweep/sweep_plan.h"
#include "transport/command_list.h"
#include "zr_api.h"

namespace zr {

struct ZrDevice;
class DeviceInterface;

constexpr double kFastSampleRate = 2.5e8;
constexpr int kFastBlockValues = 4096;  // i16 values behind one 0x25 word

// The plan, its two lists and the derived sweep fields of the device.
// Tunes through the device's RF state; sends nothing.
void buildFastPlan(ZrDevice& dev, SweepPlan& plan, CommandList& configList, CommandList& sweepList);

// 0x25 words fetched per step: the third of four blocks holds no kept bin.
inline int fastFetchBlocks(int blocksPerStep) { return blocksPerStep == 4 ? 3 : blocksPerStep; }

class EngineSweepFast {
public:
    // Starts the thread, which sends the configuration at once. Throws
    // std::bad_alloc when memory runs out.
    EngineSweepFast(ZrDevice& device, const ZrSweepSettings& settings, SweepPlan plan, const CommandList& configList,
                    const CommandList& sweepList);
    ~EngineSweepFast();
    EngineSweepFast(const EngineSweepFast&) = delete;
    EngineSweepFast& operator=(const EngineSweepFast&) = delete;

    ZrStatus startSweep(int position);
    ZrStatus finishSweep(int position, float* sweepMin, float* sweepMax, int64_t* timestamp);
    ZrStatus getSweep(float* sweepMin, float* sweepMax, int64_t* timestamp);
    void drain();
    bool queueBusy() const;

    const SweepPlan& plan() const { return plan_; }

private:
    struct Page {
        const uint8_t* data;
        int32_t blocks;
    };

    void acquisitionThread();
    void distribute(const uint8_t* data, uint32_t bytes, bool shortRead);
    void postProcess(SweepPosition& pos);

    ZrDevice* device_;
    DeviceInterface* transport_;
    const ZrSweepSettings settings_;
    const SweepPlan plan_;
    const CommandList configList_;
    const CommandList sweepList_;
    int32_t listDataBlocks_ = 0, listStatusBlocks_ = 0;
    size_t traceSize_ = 0;

    std::mutex pageLock_;
    std::vector<Page> pageQueue_;  // room for the pages of 16 queued sweeps
    size_t pageHead_ = 0, pageCount_ = 0;
    Event wakeEvent_;
    std::atomic<bool> running_{true};

    std::mutex captureLock_;
    std::array<CaptureTicket, kSweepPositions> captureFifo_{};
    size_t captureHead_ = 0, captureCount_ = 0;

    std::array<SweepPosition, kSweepPositions> positions_;
    std::vector<float> halfRow_;
    NamedThread thread_;
};

}  // namespace zr
