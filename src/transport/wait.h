#pragma once
// The one place where the protocol's long fixed waits (resets, boots, FPGA
// polls, flash programming) sleep. Everything that waits for the instrument
// by the clock rather than by a transfer goes through protocolSleepMs, so a
// simulated instrument can compress those waits for the whole process.
// Transfer time-outs are not waits of this kind and are never scaled.

namespace zr {

// Sleeps ms x the effective scale (never negative).
void protocolSleepMs(double ms);

// The library's own factor, 1.0 by default. Negative or non-finite values
// are ignored.
void setProtocolWaitScale(double factor);

// The factor in force: the library's own factor times the one a simulator in
// this process asks for (see wait.cpp).
double protocolWaitScale();

}  // namespace zr
