#pragma once
// Plausibility of a calibration image's values. Every float table that a
// plan or a word builder reads must be finite and within what an instrument
// can have measured; one that is not would turn into a wrong level at best
// and an undefined conversion at worst.
#include <cstddef>
#include <cstdint>

namespace zr {

// Counts the values outside their ranges in the tables the library uses
// (the corrections only when the image has them). With `repair`, each is
// replaced by a neutral value (0 dB, ratio 1, the standard temperature
// ladder, a nominal VCO curve). A table left all ones, as flash that was
// never written, is filled with neutral values and not counted.
size_t checkCalibrationValues(uint8_t* image, bool ridge, bool repair);

}  // namespace zr
