#pragma once
// Arithmetic that the fast and narrow-span plans share.
#include <cmath>
#include <cstdint>

#include "device/device.h"
#include "platform/checked.h"

namespace zr::planning {

inline int32_t truncI(double x) { return truncChecked(x); }
inline int32_t roundI(double x) { return roundChecked(x); }

}  // namespace zr::planning
