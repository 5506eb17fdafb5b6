// zrStartSweep, zrFinishSweep and zrGetSweep: each goes to whichever sweep
// engine the configuration built.
#include "device/frame.h"

using namespace zr;

extern "C" {

ZR_EXPORT ZrStatus zrStartSweep(int device, int position) {
    return withDevice(device, [&](ZrDevice& dev) -> ZrStatus {
        SweepEngine* engine = dev.sweepEngine();
        return engine ? engine->startSweep(position) : zrInvalidConfigurationErr;
    });
}

ZR_EXPORT ZrStatus zrFinishSweep(int device, int position, float* sweepMin, float* sweepMax, int64_t* timestamp) {
    const ZrStatus s = withDevice(device, [&](ZrDevice& dev) -> ZrStatus {
        SweepEngine* engine = dev.sweepEngine();
        return engine ? engine->finishSweep(position, sweepMin, sweepMax, timestamp) : zrInvalidConfigurationErr;
    });
    if ((s == zrInvalidConfigurationErr || s == zrInvalidSweepPositionErr) && timestamp) *timestamp = 0;
    return s;
}

ZR_EXPORT ZrStatus zrGetSweep(int device, float* sweepMin, float* sweepMax, int64_t* timestamp) {
    return withDevice(device, [&](ZrDevice& dev) -> ZrStatus {
        SweepEngine* engine = dev.sweepEngine();
        return engine ? engine->getSweep(sweepMin, sweepMax, timestamp) : zrInvalidConfigurationErr;
    });
}

}  // extern "C"
