#pragma once
// Getting a USB instrument's calibration image into its transport, from the
// cache folder when the cache is current and from flash otherwise, leaving
// the instrument attached in its run state.
#include <string>

#include "transport/device_interface_usb.h"

namespace zr {

// 0, or a negative status (device not found, boot failures, -52 when the
// instrument does not come back).
int32_t loadCalibrationUSB(DeviceInterfaceUSB& transport, int serial);

// "<cal folder>zr%08d.bin"
std::string calCachePath(int serial);

}  // namespace zr
