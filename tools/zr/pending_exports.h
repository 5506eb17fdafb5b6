// Open, close, the modes and the sweep data calls are declared in zr_api.h
// ahead of their implementation in libzr_api.so. As weak references, zr
// links against a library that does not have them yet and says so when a
// command needs them, instead of failing to build.
#pragma once

#include "zr_api.h"

extern "C" {
ZrStatus zrOpenDevice(int* device) __attribute__((weak));
ZrStatus zrOpenDeviceBySerial(int* device, int serial) __attribute__((weak));
ZrStatus zrCloseDevice(int device) __attribute__((weak));
ZrStatus zrConfigure(int device, ZrMode mode) __attribute__((weak));
ZrStatus zrGetSweep(int device, float* sweepMin, float* sweepMax, int64_t* timestamp) __attribute__((weak));
}

namespace zrtool {

inline bool openCallsPresent() { return zrOpenDevice && zrOpenDeviceBySerial && zrCloseDevice; }
inline bool sweepCallsPresent() { return openCallsPresent() && zrConfigure && zrGetSweep; }

}  // namespace zrtool
