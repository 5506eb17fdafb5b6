#pragma once
// The seam between the device and whatever runs its current mode. The device
// owns one engine (audio keeps its I/Q source beside it); the stop sequence,
// the busy checks and the data exports all go through these calls, so a new
// engine is one class here and one row in the planner table.
#include <cstdint>

#include "zr_api.h"

namespace zr {

class SweepEngine;
class IQInterface;

class ModeEngine {
public:
    ModeEngine() = default;
    ModeEngine(const ModeEngine&) = delete;
    ModeEngine& operator=(const ModeEngine&) = delete;
    // Stops and joins the engine's threads; the only way they stop.
    virtual ~ModeEngine() = default;

    virtual ZrMode mode() const = 0;
    // First step of a stop: work the caller started completes (or is
    // discarded) before the engine goes.
    virtual void drain() {}
    // The engine's threads own the command slot: the caller's thread may not
    // read status or send service lists now.
    virtual bool busy() const { return false; }

    // The family interfaces; null where the engine is not of that family.
    virtual SweepEngine* sweep() { return nullptr; }
    virtual IQInterface* iq() { return nullptr; }
};

// What the sweep exports ask of any of the sweep engines.
class SweepEngine : public ModeEngine {
public:
    ZrMode mode() const override { return zrModeSweeping; }
    SweepEngine* sweep() override { return this; }

    virtual ZrStatus startSweep(int position) = 0;
    virtual ZrStatus finishSweep(int position, float* sweepMin, float* sweepMax, int64_t* timestamp) = 0;
    virtual ZrStatus getSweep(float* sweepMin, float* sweepMax, int64_t* timestamp) = 0;
};

}  // namespace zr
