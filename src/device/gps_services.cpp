#include "device/gps_services.h"

#include <algorithm>
#include <cstring>
#include <mutex>

#include "device/device.h"
#include "gps/timebase_file.h"

namespace zr {

ZrStatus deliverGpsInfo(ZrDevice& dev, ZrBool* updated, int64_t* secSinceEpoch, double* latitude,
                        double* longitude, double* altitude, char* nmea, int* nmeaLen) {
    GpsReceiver& gps = dev.gps;
    bool locked = false;
    int64_t seconds = 0;
    double lat = 0.0, lon = 0.0, alt = 0.0;
    {
        std::lock_guard<std::mutex> g(gps.lock);
        const uint32_t count = gps.messageCount;
        if (updated) *updated = gps.seenCount != count ? zrTrue : zrFalse;
        locked = gps.locked != 0;
        // GGA keeps an altitude even while RMC reports no fix; a caller
        // without a lock gets zeros throughout.
        if (locked) {
            seconds = gps.timestamp;
            lat = gps.latitude;
            lon = gps.longitude;
            alt = gps.altitude;
        }
        if (nmea && nmeaLen && *nmeaLen > 0) {
            const int n = std::min(*nmeaLen - 1, gps.nmeaLength);
            std::memcpy(nmea, gps.nmeaText.data(), static_cast<size_t>(n));
            nmea[n] = '\0';
            *nmeaLen = n + 1;
        }
        gps.seenCount = count;
    }
    if (secSinceEpoch) *secSinceEpoch = seconds;
    if (latitude) *latitude = lat;
    if (longitude) *longitude = lon;
    if (altitude) *altitude = alt;
    if (!locked) return zrGPSNotLockedErr;
    return static_cast<ZrStatus>(dev.transport->status);
}

int gpsStateCode(const ZrDevice& dev) {
    if (dev.timebaseDisciplined) return 2;
    return dev.gps.locked ? 1 : 0;
}

void gpsHoldoverInfo(ZrDevice& dev, uint64_t historyDate, const std::string& folder, ZrBool* usingHoldover,
                     uint64_t* lastHoldoverTime) {
    if (usingHoldover) {
        StoredTimebase file;
        if (readTimebaseFile(folder, dev.serialNumber, file)) {
            *usingHoldover = static_cast<uint64_t>(file.timeSeconds) > historyDate ? zrTrue : zrFalse;
            dev.storedTimebase = file;
        }
    }
    if (lastHoldoverTime)
        *lastHoldoverTime = dev.storedTimebase.valid ? static_cast<uint64_t>(dev.storedTimebase.timeSeconds) : 0;
}

}  // namespace zr
