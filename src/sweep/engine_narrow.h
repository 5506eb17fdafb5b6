#pragma once
// The narrow-span sweep engine: one tune, one capture, the wanted centre
// moved exactly to zero frequency, further decimation on the host where the
// span is small, and one spectrum. No threads: the whole acquisition runs in
// the caller's finish, so there is no queue either.

#include <cstdint>
#include <memory>
#include <vector>

#include "device/mode_engine.h"
#include "dsp/filters.h"
#include "sweep/spectrum_processor.h"
#include "sweep/sweep_plan.h"
#include "transport/command_list.h"
#include "transport/transfer_pump.h"
#include "zr_api.h"

namespace zr {

struct ZrDevice;
class DeviceInterface;

// Decimation of a narrow sweep: total, on the instrument, on the host.
struct NarrowDecimation {
    int total = 1;
    int hardware = 1;
    int software = 1;
};
NarrowDecimation narrowDecimation(double span, double baseRate);

// The plan, its list and the derived sweep fields. Returns 0,
// zrSpanLimitedByPreselector, or zrAllocationErr when one sweep's samples
// would pass 1 GiB. Tunes through the device's RF state.
ZrStatus buildNarrowPlan(ZrDevice& dev, SweepPlan& plan, CommandList& list, NarrowDecimation& dec);

class EngineSweepNarrow final : public SweepEngine, private TransferSink {
public:
    // Allocates everything. Throws std::bad_alloc when memory runs out.
    EngineSweepNarrow(ZrDevice& device, const ZrSweepSettings& settings, SweepPlan plan, const CommandList& list,
                      NarrowDecimation dec);

    // There is no queue: a start only reports a lost link, and every finish
    // (whatever the position) acquires and processes one sweep.
    ZrStatus startSweep(int position) override;
    ZrStatus finishSweep(int position, float* sweepMin, float* sweepMax, int64_t* timestamp) override;
    ZrStatus getSweep(float* sweepMin, float* sweepMax, int64_t* timestamp) override {
        return finishSweep(0, sweepMin, sweepMax, timestamp);
    }

    const SweepPlan& plan() const { return plan_; }
    const NarrowDecimation& decimation() const { return dec_; }

private:
    void acquire();
    void onData(int tag, const uint8_t* blocks, int count) override;
    void onStatus(int tag, const uint8_t* block) override;

    ZrDevice* device_;
    DeviceInterface* transport_;
    const ZrSweepSettings settings_;
    const SweepPlan plan_;
    const SweepStep& step_;
    std::vector<cf32> readBuffer_;
    std::vector<cf32> samples_;
    const CommandList captureList_;
    CommandList statusList_;
    const NarrowDecimation dec_;
    int passes_ = 1;
    int64_t passSamples_ = 0;
    int64_t writePos_ = 0;
    std::unique_ptr<SpectrumProcessor> processor_;
    FirFilterComplex filter_;
    ComplexOscillator oscillator_;
    std::vector<float> min_, max_, min2_, max2_;
    std::unique_ptr<TransferPump> pump_;  // runs on the caller's thread
};

}  // namespace zr
