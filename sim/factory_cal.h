#pragma once
// The factory calibration of a simulated instrument: the tables the host
// needs, measured from the instrument's own physical model, laid out as
// the instrument's calibration image.
#include <cstdint>
#include <vector>

#include "zr_api.h"

namespace zr::sim {

class Instrument;

// Where the image lives in the instrument's flash.
constexpr uint32_t kFactoryImageOffset = 0x100000;
// Temperature points at which the factory measures.
double factoryTemperature(int index);

// The whole image (4 MiB for the Mesa family, 8 MiB for the Ridge family).
std::vector<uint8_t> factoryImage(ZrDeviceType type, int serial);
// Programs it into the instrument's flash.
void factoryCalibrate(Instrument& instrument);

}  // namespace zr::sim
