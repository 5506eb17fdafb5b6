// zrStartSweep, zrFinishSweep and zrGetSweep: each goes to whichever sweep
// engine the configuration built.
#include "api/frame.h"
#include "sweep/engine_sweep_controller.h"
#include "sweep/sweep_mode.h"

using namespace zr;

extern "C" {

ZR_EXPORT ZrStatus zrStartSweep(int device, int position) {
    return withDevice(device, [&](ZrDevice& dev) -> ZrStatus {
        if (dev.sweepEngine) return dev.sweepEngine->startSweep(position);
        if (dev.fastSweepEngine) return startSweep(*dev.fastSweepEngine, position);
        if (dev.narrowSweepEngine) return zrNoError;  // it acquires at the finish
        return zrInvalidConfigurationErr;
    });
}

ZR_EXPORT ZrStatus zrFinishSweep(int device, int position, float* sweepMin, float* sweepMax, int64_t* timestamp) {
    const ZrStatus s = withDevice(device, [&](ZrDevice& dev) -> ZrStatus {
        if (dev.sweepEngine) return dev.sweepEngine->finishSweep(position, sweepMin, sweepMax, timestamp);
        if (dev.fastSweepEngine) return finishSweep(*dev.fastSweepEngine, position, sweepMin, sweepMax, timestamp);
        if (dev.narrowSweepEngine) return finishSweep(*dev.narrowSweepEngine, sweepMin, sweepMax, timestamp);
        return zrInvalidConfigurationErr;
    });
    if ((s == zrInvalidConfigurationErr || s == zrInvalidSweepPositionErr) && timestamp) *timestamp = 0;
    return s;
}

ZR_EXPORT ZrStatus zrGetSweep(int device, float* sweepMin, float* sweepMax, int64_t* timestamp) {
    return withDevice(device, [&](ZrDevice& dev) -> ZrStatus {
        if (dev.sweepEngine) return dev.sweepEngine->getSweep(sweepMin, sweepMax, timestamp);
        if (dev.fastSweepEngine) return getSweep(*dev.fastSweepEngine, sweepMin, sweepMax, timestamp);
        if (dev.narrowSweepEngine) return finishSweep(*dev.narrowSweepEngine, sweepMin, sweepMax, timestamp);
        return zrInvalidConfigurationErr;
    });
}

}  // extern "C"
