#pragma once
// The host's half of GPS timebase discipline: while GPS is locked and the
// update is enabled, the instrument steers its oscillator and reports the
// tune in use; the host follows with a hysteresis and keeps the value,
// temperature taken out, for the timebase cache.

#include <cstdint>

namespace zr {

struct ZrDevice;

constexpr int kTimebaseHysteresis = 8;

// Runs after the GPS decoder for each status block with the tune the block
// reported. timebaseOffset is the
// calibration's temperature offset of the tune value at the present
// temperature. True when the host took a new value into coarseTune and
// storedTimebase, which the caller then writes to the cache file.
bool disciplineTimebase(ZrDevice& dev, uint16_t tuneReported, int timebaseOffset);

}  // namespace zr
