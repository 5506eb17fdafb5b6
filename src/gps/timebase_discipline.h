#pragma once
// The host's half of GPS timebase discipline: while GPS is locked and the
// update is enabled, the instrument steers its oscillator and reports the
// tune in use; the host follows with a hysteresis and keeps the value,
// temperature taken out, in the timebase cache.

#include <string>

namespace zr {

struct ZrDevice;

constexpr int kTimebaseHysteresis = 8;

// Runs after the GPS decoder for each status block. timebaseOffset is the
// calibration's temperature offset of the tune value at the present
// temperature; folder is where the timebase cache lives.
void disciplineTimebase(ZrDevice& dev, int timebaseOffset, const std::string& folder);

}  // namespace zr
