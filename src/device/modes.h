#pragma once
// Leaving a mode and entering one: the stop sequence every engine goes
// through, and zrConfigure's way from stored settings to a running engine.
#include <array>

#include "device/device.h"

namespace zr {

// Drains the running engine, then destroys it and the I/Q source beside it
// (audio reads from that one, so it goes second).
void stopEngines(ZrDevice& dev);

// A mode's plan: reads the settings, builds its lists and stores its engine
// in dev.engine. Its status is the plan's (0, a warning, or an error with no
// engine left behind).
using ModePlanner = ZrStatus (*)(ZrDevice&);
using PlannerTable = std::array<ModePlanner, zrModeIQSweepList + 1>;

// Brings the device to the same known point whatever ran before (no engine,
// awake, temperature read, GPS pulse reader and drift reset, timebase word
// sent) and hands over to the mode's planner; a mode without one answers
// zrInvalidConfigurationErr and stays idle. If the plan throws, the device
// is left idle with no engine and the exception goes on to the caller.
ZrStatus configureMode(ZrDevice& dev, ZrMode mode, const PlannerTable& planners);

// A Ridge whose millimetre-wave path a plan's list switches on needs its LO
// woken before the mode's engine starts; every plan calls this last, and it
// is the only word planning sends.
void sendPendingRidgeWake(ZrDevice& dev);

}  // namespace zr
