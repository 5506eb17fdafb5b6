#pragma once
// The sweeping mode as the rest of the library sees it: zrConfigure hands
// over to configureSweeping, which picks one of the three sweep engines and
// stores it in the device; everything after goes through the SweepEngine
// interface.

#include <cstdint>

#include "zr_api.h"

namespace zr {

struct ZrDevice;

// zrConfigure's sweeping branch: engine choice, plan, engine stored in the
// device. The device is idle with no engine when this is called.
ZrStatus configureSweeping(ZrDevice& dev);

// Plans: each computes its derived fields, builds its lists and stores its
// engine in the device; the status is the plan's (0, a warning, or an error
// with no engine left behind).
ZrStatus planSweepController(ZrDevice& dev);
ZrStatus planSweepFast(ZrDevice& dev);
ZrStatus planSweepNarrow(ZrDevice& dev);

}  // namespace zr
