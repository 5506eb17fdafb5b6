// Until the narrow-span engine lands, its plan refuses and no engine of its
// own can exist, so its per-engine calls are never reached.
#include "sweep/sweep_mode.h"

namespace zr {

ZrStatus planSweepNarrow(ZrDevice&) { return zrInvalidConfigurationErr; }
ZrStatus finishSweep(EngineSweepNarrow&, float*, float*, int64_t*) { return zrInvalidConfigurationErr; }
void destroyEngine(EngineSweepNarrow*) {}

}  // namespace zr
