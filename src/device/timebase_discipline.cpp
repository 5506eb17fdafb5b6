#include "device/timebase_discipline.h"

#include <cstdlib>

#include "device/device.h"

namespace zr {

bool disciplineTimebase(ZrDevice& dev, uint16_t tuneReported, int timebaseOffset) {
    if (!dev.gps.locked) {
        dev.timebaseDisciplined = 0;
        return false;
    }
    if (dev.gpsTimebaseUpdate != 1) return false;

    int d = std::abs(static_cast<int>(dev.timebaseTuned) - static_cast<int>(tuneReported));
    if (dev.firmwareDiscipline) {
        // The firmware runs the loop from the pulse; it is disciplining while
        // that pulse is valid.
        if (dev.gps.ppsValid) dev.timebaseDisciplined = 1;
    } else if (d != 0) {
        dev.timebaseDisciplined = 1;
    }

    if (d < kTimebaseHysteresis) return false;
    dev.timebaseTuned = tuneReported;
    dev.coarseTune = static_cast<uint16_t>(tuneReported - timebaseOffset);
    dev.storedTimebase.valid = 1;
    dev.storedTimebase.timeSeconds = dev.gps.clock->systemTimeNs() / 1000000000;
    dev.storedTimebase.tune = dev.coarseTune;
    return true;
}

}  // namespace zr
