#pragma once
// What the instrument offers outside the measurement modes, and the status
// decoder through which everything it says about itself reaches ZrDevice.
#include <cstdint>

#include "device/device.h"

namespace zr {

// Folds one 8192-byte status block into the device's status image, runs
// the GPS steps, and answers the image it published. Engines pass gpsFlag
// for the blocks of their data; start-up and refreshes do not.
StatusImage decodeStatus(ZrDevice& dev, const uint8_t* block, bool gpsFlag, bool skipGPS);

// One status read and decode, whatever the read returned (an empty buffer
// has no magic and so marks the status image invalid).
void refreshStatus(ZrDevice& dev);

// Refreshes only where the caller's thread may use slot 0 (idle, or
// sweeping with no sweep in flight) and the image is older than a second.
void applyRefreshRule(ZrDevice& dev);

// The calibration temperature after the refresh rule.
float readTemperature(ZrDevice& dev);

// A sweep is queued or running on the sweep engines.
bool sweepInProgress(const ZrDevice& dev);

// The two gates of the service calls: idle only; idle or between sweeps.
bool idleGate(const ZrDevice& dev);
bool quietGate(const ZrDevice& dev);

// Register 0x002E: reference selectors, GPS update and the tune value.
uint32_t timebaseWord(const ZrDevice& dev);

// Temperature sensor code: bits 11..2 a magnitude in 0.25 degC steps, bit 12
// the sign (two's complement over 10 bits).
float sensorCodeToCelsius(uint16_t code);
// Inverse of the FPGA temperature formula, for the fan threshold register.
uint32_t fanThresholdCode(int celsius);


}  // namespace zr
