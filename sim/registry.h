#pragma once
// The simulated instruments attached to this process, by serial number.
#include <memory>

#include "instrument.h"

namespace zr::sim {

// Null when no instrument with that serial is attached.
std::shared_ptr<Instrument> findInstrument(int serial);

}  // namespace zr::sim
