// Until the sweep engines land, sweeping is a mode without a plan: it answers
// zrInvalidConfigurationErr and leaves the device idle.
#include "sweep/sweep_mode.h"

namespace zr {

ZrStatus configureSweeping(ZrDevice&) { return zrInvalidConfigurationErr; }
void drainSweeps(ZrDevice&) {}
void deleteSweepEngines(ZrDevice&) {}
bool sweepQueueBusy(const ZrDevice&) { return false; }

}  // namespace zr
