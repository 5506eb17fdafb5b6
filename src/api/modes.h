#pragma once
// The lifecycle operations that other rooms call: leaving a mode, the power
// lists, the device's own open and close.
#include "api/device.h"

namespace zr {

// Process-wide: the wide vector kernels of the host-FFT real-time engine are
// worth using on this processor. Recomputed by every open.
extern bool wideVectorPath;

// Drains queued sweeps, then deletes every engine in a fixed order (the
// audio engine reads from the I/Q engine, so that one goes later).
void stopEngines(ZrDevice& dev);

// wakeList and standbyList for the device's family, from its RF state.
void buildPowerLists(ZrDevice& dev);

// Steps of zrOpenDeviceBySerial and zrCloseDevice after their frames.
ZrStatus openUSBDevice(int* handle, int serial);
ZrStatus closeDevice(ZrDevice& dev, int handle);

}  // namespace zr
