// zrConfigure, zrAbort and zrGetCurrentMode, and the table of which plan
// serves which mode.
#include "audio/audio_mode.h"
#include "device/frame.h"
#include "device/modes.h"
#include "iq/iq_mode.h"
#include "sweep/sweep_mode.h"

namespace zr {
namespace {

ZrStatus planSegmented(ZrDevice& dev) {
    // Only instruments with capture memory have the mode; its engine is
    // still to come.
    return zrInvalidConfigurationErr;
}

// Modes without an engine yet have no plan: zrConfigure refuses them and
// the device stays idle.
constexpr PlannerTable kPlanners = [] {
    PlannerTable t{};
    t[zrModeSweeping] = configureSweeping;
    t[zrModeIQStreaming] = configureIQStreaming;
    t[zrModeAudio] = configureAudio;
    t[zrModeIQSegmentedCapture] = planSegmented;
    return t;
}();

}  // namespace
}  // namespace zr

using namespace zr;

extern "C" {

ZR_EXPORT ZrStatus zrConfigure(int device, ZrMode mode) {
    return withDevice(device, [&](ZrDevice& d) {
        if (!enumInRange(mode, zrModeIQSweepList)) return zrInvalidParameterErr;
        return configureMode(d, mode, kPlanners);
    });
}

ZR_EXPORT ZrStatus zrAbort(int device) {
    return withDevice(device, [&](ZrDevice& d) {
        stopEngines(d);
        d.currentMode = zrModeIdle;
        return zrNoError;
    });
}

ZR_EXPORT ZrStatus zrGetCurrentMode(int device, ZrMode* mode) {
    return withDevice(device, [&](ZrDevice& d) {
        if (!mode) return zrNullPtrErr;
        *mode = d.currentMode;
        return zrNoError;
    });
}

}  // extern "C"
