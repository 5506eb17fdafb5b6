#pragma once
// The fast sweep engine: the instrument computes one log spectrum per tuned
// step at 250 MS/s and the host only fetches, stitches and calibrates them.
// One acquisition thread (the transfer pump's) keeps the pipe full and fills
// the positions; the caller's finish does the post-processing.

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "device/mode_engine.h"
#include "platform/threads.h"
#include "sweep/engine_sweep_controller.h"
#include "transport/transfer_pump.h"
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

class EngineSweepFast final : public SweepEngine, private TransferSink {
public:
    // Sends the configuration twice (the first spectrum after arming is
    // thrown away, and so is a second), starts the thread and waits for both
    // answers (or the loss of the link). Throws std::bad_alloc when memory
    // runs out.
    EngineSweepFast(ZrDevice& device, const ZrSweepSettings& settings, SweepPlan plan, const CommandList& configList,
                    const CommandList& sweepList);
    ~EngineSweepFast() override;

    ZrStatus startSweep(int position) override;
    ZrStatus finishSweep(int position, float* sweepMin, float* sweepMax, int64_t* timestamp) override;
    ZrStatus getSweep(float* sweepMin, float* sweepMax, int64_t* timestamp) override;
    // Queued sweeps are finished and discarded.
    void drain() override;
    bool busy() const override;

    const SweepPlan& plan() const { return plan_; }

private:
    static constexpr int kConfigTag = -1;  // replies of the configuration, not kept

    void onData(int position, const uint8_t* blocks, int count) override;
    void onStatus(int position, const uint8_t* block) override;
    void onTicketDone(int position) override;
    void postProcess(SweepPosition& pos);

    ZrDevice* device_;
    DeviceInterface* transport_;
    const ZrSweepSettings settings_;
    const SweepPlan plan_;
    const CommandList configList_;
    const CommandList sweepList_;
    size_t traceSize_ = 0;

    std::array<SweepPosition, kSweepPositions> positions_;
    std::vector<float> halfRow_;
    // The configuration's two replies: the constructor returns once both
    // are in, so that nothing else uses the command slot meanwhile.
    std::atomic<int> configLeft_{2};
    Event configDone_{true};
    std::unique_ptr<TransferPump> pump_;  // last: its thread stops first
};

}  // namespace zr
