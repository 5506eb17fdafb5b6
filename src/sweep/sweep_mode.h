#pragma once
// The sweeping mode as the rest of the library sees it: zrConfigure hands
// over here, the stop sequence drains and deletes through here, and the
// status refresh asks whether a sweep is in flight. Each of the three sweep
// engines answers the same calls; the exports pick the engine that exists.

#include <cstdint>

#include "zr_api.h"

namespace zr {

struct ZrDevice;
class EngineSweepController;
class EngineSweepNarrow;
class EngineSweepFast;

// zrConfigure's sweeping branch: engine choice, plan, engine stored in the
// device. The device is idle with no engine when this is called.
ZrStatus configureSweeping(ZrDevice& dev);

// First step of the stop sequence: queued sweeps of the controller complete,
// those of the fast engine are finished and discarded.
void drainSweeps(ZrDevice& dev);

// Deletes whichever sweep engines exist (controller, narrow, fast, in that
// order) and clears their pointers.
void deleteSweepEngines(ZrDevice& dev);

// A queue position started and not yet finished.
bool sweepQueueBusy(const ZrDevice& dev);

// Plans: each computes its derived fields, builds its lists and stores its
// engine in the device; the status is the plan's (0, a warning, or an error
// with no engine left behind).
ZrStatus planSweepController(ZrDevice& dev);
ZrStatus planSweepFast(ZrDevice& dev);
ZrStatus planSweepNarrow(ZrDevice& dev);

// The fast and narrow engines behind the sweep exports. Their status rules
// differ from the controller's, so each answers for itself.
ZrStatus startSweep(EngineSweepFast& engine, int position);
ZrStatus finishSweep(EngineSweepFast& engine, int position, float* sweepMin, float* sweepMax, int64_t* timestamp);
ZrStatus getSweep(EngineSweepFast& engine, float* sweepMin, float* sweepMax, int64_t* timestamp);
void drainSweeps(EngineSweepFast& engine);
bool sweepQueueBusy(const EngineSweepFast& engine);
void destroyEngine(EngineSweepFast* engine);

ZrStatus finishSweep(EngineSweepNarrow& engine, float* sweepMin, float* sweepMax, int64_t* timestamp);
void destroyEngine(EngineSweepNarrow* engine);

}  // namespace zr
