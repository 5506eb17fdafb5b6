#pragma once
// The device's own open and close, and what only they set up.
#include "device/device.h"

namespace zr {

// Process-wide: the wide vector kernels of the host-FFT real-time engine are
// worth using on this processor. Recomputed by every open.
extern bool wideVectorPath;

// wakeList and standbyList for the device's family, from its RF state.
void buildPowerLists(ZrDevice& dev);

// Steps of zrOpenDeviceBySerial and zrCloseDevice after their frames.
ZrStatus openUSBDevice(int* handle, int serial);
ZrStatus closeDevice(ZrDevice& dev, int handle);

}  // namespace zr
