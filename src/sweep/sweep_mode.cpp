// The sweeping mode's side of zrConfigure: which engine a sweep gets.
#include "sweep/sweep_mode.h"

#include <algorithm>

#include "device/device.h"
#include "dsp/window.h"
#include "rf/rf_glue.h"
#include "sweep/engine_sweep_controller.h"

namespace zr {

namespace {
constexpr double kNarrowSpanMax = 5e6;
constexpr double kMinRBW = 12.5;
constexpr double kMaxRBW = 12.5e6;
constexpr double kFastSampleRate = 2.5e8;
}  // namespace

bool fastSweepEligible(const ZrSweepSettings& s, bool preselector) {
    if (s.spurReject != 0 || preselector || s.rbw != s.vbw) return false;
    int64_t w = int64_t(windowBandwidthFactor(s.window) * kFastSampleRate / s.rbw);
    if (w % 2) w -= 1;
    int64_t p = 1;
    while (p < w) p <<= 1;
    return p <= 16384 || (w >= 16385 && w <= 16999);
}

ZrStatus configureSweeping(ZrDevice& dev) {
    ZrSweepSettings& s = dev.sweep;
    // The setters keep these sane; a record written some other way is
    // refused here rather than planned.
    if (!(s.span >= 0.0) || !(s.rbw > 0.0) || !(s.vbw > 0.0)) return zrInvalidParameterErr;
    if (s.span <= kNarrowSpanMax) return planSweepNarrow(dev);
    s.rbw = std::clamp(s.rbw, kMinRBW, kMaxRBW);
    switch (s.speed) {
        case zrSweepSpeedFast: return planSweepFast(dev);
        case zrSweepSpeedNormal: return planSweepController(dev);
        default:
            return fastSweepEligible(s, dev.preselectorEnabled != 0) ? planSweepFast(dev) : planSweepController(dev);
    }
}

}  // namespace zr
