// The sweep data calls are declared in zr_api.h ahead of the sweep engines
// in libzr_api.so. As a weak reference, zr links against a library that
// does not have them yet and says so when a sweep is asked for, instead of
// failing to build.
#pragma once

#include "zr_api.h"

extern "C" {
ZrStatus zrGetSweep(int device, float* sweepMin, float* sweepMax, int64_t* timestamp) __attribute__((weak));
}

namespace zrtool {

inline bool sweepCallsPresent() { return zrGetSweep != nullptr; }

}  // namespace zrtool
