// Until the fast and narrow engines land, their plans refuse and no engine
// of theirs can exist, so the per-engine calls are never reached.
#include "sweep/sweep_mode.h"

namespace zr {

ZrStatus planSweepFast(ZrDevice&) { return zrInvalidConfigurationErr; }
ZrStatus planSweepNarrow(ZrDevice&) { return zrInvalidConfigurationErr; }
ZrStatus startSweep(EngineSweepFast&, int) { return zrInvalidConfigurationErr; }
ZrStatus finishSweep(EngineSweepFast&, int, float*, float*, int64_t*) { return zrInvalidConfigurationErr; }
ZrStatus getSweep(EngineSweepFast&, float*, float*, int64_t*) { return zrInvalidConfigurationErr; }
void drainSweeps(EngineSweepFast&) {}
bool sweepQueueBusy(const EngineSweepFast&) { return false; }
void destroyEngine(EngineSweepFast*) {}
ZrStatus finishSweep(EngineSweepNarrow&, float*, float*, int64_t*) { return zrInvalidConfigurationErr; }
void destroyEngine(EngineSweepNarrow*) {}

}  // namespace zr
