#pragma once
// The simulated instruments attached to this process, by serial number.
#include <memory>
#include <vector>

#include "instrument.h"

namespace zr::sim {

// Null when no instrument with that serial is attached.
std::shared_ptr<Instrument> findInstrument(int serial);

// Every attached instrument, in serial order.
std::vector<std::shared_ptr<Instrument>> attachedInstruments();

}  // namespace zr::sim
