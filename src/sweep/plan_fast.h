#pragma once
// Arithmetic that the fast and narrow-span plans share.
#include <cmath>
#include <cstdint>

#include "device/device.h"
#include "platform/checked.h"

namespace zr::planning {

inline int32_t truncI(double x) { return truncChecked(x); }
inline int32_t roundI(double x) { return roundChecked(x); }

// The gain code of a calibration slice, from the family's record.
inline uint8_t gainCodeFor(const ZrDevice& dev, int calSlice) {
    if (dev.ridge()) return dev.corrections.ridge ? dev.corrections.ridge->gainCode[calSlice] : 0;
    return dev.corrections.mesa ? dev.corrections.mesa->gainCode[calSlice] : 0;
}

}  // namespace zr::planning
