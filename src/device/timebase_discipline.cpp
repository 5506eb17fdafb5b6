#include "device/timebase_discipline.h"

#include <cstdlib>

#include "device/device.h"

namespace zr {

bool disciplineTimebase(ZrDevice& dev, int timebaseOffset) {
    if (!dev.gps.locked) {
        dev.timebaseDisciplined = 0;
        return false;
    }
    if (dev.gpsTimebaseUpdate != 1) return false;

    int d = std::abs(static_cast<int>(dev.timebaseTuned) - static_cast<int>(dev.tuneReported));
    if (dev.firmwareDiscipline) {
        // The firmware runs the loop from the pulse; it is disciplining while
        // that pulse is valid.
        if (dev.gps.ppsValid) dev.timebaseDisciplined = 1;
    } else if (d != 0) {
        dev.timebaseDisciplined = 1;
    }

    if (d < kTimebaseHysteresis) return false;
    dev.timebaseTuned = dev.tuneReported;
    dev.coarseTune = static_cast<uint16_t>(dev.tuneReported - timebaseOffset);
    dev.storedTimebase.valid = 1;
    dev.storedTimebase.timeSeconds = dev.gps.clock->systemTimeNs() / 1000000000;
    dev.storedTimebase.tune = dev.coarseTune;
    return true;
}

}  // namespace zr
