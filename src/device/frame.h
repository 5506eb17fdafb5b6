#pragma once
// The door every exported function passes: the handle table, the checks
// that run in a fixed order before any work, and (through guard.h) the one
// place where exceptions stop.
//
// The frame takes no lock. Open, close and zrConfigure (and anything
// concurrent with them on that device) are serialised by the caller; the
// data functions of one device belong to one calling thread.

#include <cmath>

#include "device/device.h"
#include "platform/guard.h"

namespace zr {

constexpr int kMaxDevices = 9;

// Process-wide, no lock: opens and closes are serialised by the caller.
extern ZrDevice* deviceTable[kMaxDevices];

// Steps 1 and 2 of the frame: the handle compared as unsigned (so negative
// handles fail), then the table entry. Null means zrInvalidDeviceErr.
inline ZrDevice* lookupDevice(int handle) {
    if (static_cast<unsigned>(handle) > static_cast<unsigned>(kMaxDevices - 1)) return nullptr;
    return deviceTable[handle];
}

// Steps 1 and 2 of the frame, then the work on the device, guarded.
template <class F>
ZrStatus withDevice(int handle, F&& work, SourceLocation where = SourceLocation::current()) noexcept {
    ZrDevice* dev = lookupDevice(handle);
    if (!dev) return zrInvalidDeviceErr;
    try {
        return work(*dev);
    } catch (...) {
        return statusForException(std::current_exception(), where.function_name());
    }
}

// Lowest free index or -1; used by the open calls.
int firstFreeHandle();

// Rejects enumeration values above the last member (and negative ones,
// which arrive as huge unsigned values through the C interface).
inline bool enumInRange(int value, int last) {
    return static_cast<unsigned>(value) <= static_cast<unsigned>(last);
}

// NaN compares false with everything, so clamps written as min/max pass it
// through; every double a setter takes goes through this first.
inline bool isFiniteArg(double v) { return std::isfinite(v); }

}  // namespace zr
