#pragma once
// What the GPS inquiries do once the status is as fresh as it is going to
// get: the caller-facing snapshot of the fix, the state code, and the
// holdover answer from the timebase cache.

#include <cstdint>
#include <string>

#include "zr_api.h"

namespace zr {

struct ZrDevice;

// The fix, the NMEA text and whether anything new came since the last
// call, taken under the receiver's lock. Every pointer is optional; the text
// needs both `nmea` and a positive `*nmeaLen` (its capacity, answered with
// the bytes written including the terminator). Without a lock the four
// values are delivered as zeros and the result is zrGPSNotLockedErr;
// otherwise it is the transport's status.
ZrStatus deliverGpsInfo(ZrDevice& dev, ZrBool* updated, int64_t* secSinceEpoch, double* latitude,
                        double* longitude, double* altitude, char* nmea, int* nmeaLen);

// 0 no lock, 1 locked, 2 locked with the timebase under GPS discipline.
int gpsStateCode(const ZrDevice& dev);

// historyDate: the newest date of the calibration's timebase history (0
// when empty). `usingHoldover` is answered only when the cache file can be
// read, which also refreshes storedTimebase; `lastHoldoverTime` is the date
// of storedTimebase, 0 when it holds nothing.
void gpsHoldoverInfo(ZrDevice& dev, uint64_t historyDate, const std::string& folder, ZrBool* usingHoldover,
                     uint64_t* lastHoldoverTime);

}  // namespace zr
