// The instrument's GPS receiver as its status blocks carry it: NMEA RMC and
// GGA text and the UTC it puts on the tick counter.
#include "instrument.h"

#include "instrument_detail.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <limits>
#include <string>

namespace zr::sim {

using namespace detail;

// ---------------------------------------------------------------- GPS

namespace {

void nmeaCoordinate(char* out, size_t n, double degrees, int degreeDigits) {
    const double a = std::fabs(degrees);
    const int whole = static_cast<int>(a);
    std::snprintf(out, n, "%0*d%08.5f", degreeDigits, whole, (a - whole) * 60.0);
}

// "$" + body + "*hh\r\n", hh the XOR of the body's characters.
std::string nmeaSentence(const std::string& body) {
    uint8_t sum = 0;
    for (char c : body) sum ^= static_cast<uint8_t>(c);
    char tail[8];
    std::snprintf(tail, sizeof tail, "*%02X\r\n", sum);
    return "$" + body + tail;
}

}  // namespace

void Instrument::setGps(bool locked, double latitude, double longitude, double altitude) {
    std::lock_guard lock(mu_);
    gpsLocked_ = locked;
    gpsSilent_ = false;
    gpsLatitude_ = latitude;
    gpsLongitude_ = longitude;
    gpsAltitude_ = altitude;
}

namespace {
constexpr int64_t kNsPerSecond = 1000000000;
int64_t floorDiv(int64_t a, int64_t b) { return a / b - ((a % b != 0) && ((a < 0) != (b < 0)) ? 1 : 0); }
}  // namespace

void Instrument::setGpsSilent(bool silent) {
    std::lock_guard lock(mu_);
    if (silent && !gpsSilent_)
        gpsFrozenSecond_ = floorDiv(utcAtTickZeroNs_ + static_cast<int64_t>(deviceTick(nowNs())) * 4, kNsPerSecond);
    gpsSilent_ = silent;
}

int64_t Instrument::utcNsAtTick(uint64_t tick) const {
    std::lock_guard lock(mu_);
    return utcAtTickZeroNs_ + static_cast<int64_t>(tick) * 4;
}

void Instrument::renderGps(const Reply& r, uint8_t* p) {
    // The pulse comes at each whole second of the instrument's UTC.
    int64_t second = floorDiv(utcAtTickZeroNs_ + static_cast<int64_t>(r.statusTick) * 4, kNsPerSecond);
    if (gpsSilent_) second = std::min(second, gpsFrozenSecond_);
    const int64_t pulseTick = (second * kNsPerSecond - utcAtTickZeroNs_) / 4;
    if (pulseTick < 0) return;  // no pulse since the counter started
    put32(p, 12, static_cast<uint32_t>(pulseTick));
    const uint64_t pulse = static_cast<uint64_t>(second);
    // The receiver fills one half during a second; the other holds the
    // finished text of the previous second, the one the last pulse closed.
    const unsigned filling = static_cast<unsigned>(pulse & 1u);
    put16(p, 20, static_cast<uint16_t>(filling << 8));

    // The reported tune: what the host set, and under GPS discipline a slow
    // wander of +-12 counts around it, as a disciplined oscillator shows.
    uint32_t tune = regs_[0x002E] >> 16;
    if (tune == 0) tune = 0x8000;
    if ((regs_[0x002E] & 0x8) && gpsLocked_ && !gpsSilent_)
        tune += static_cast<uint32_t>(static_cast<int>(std::lround(12.0 * std::sin(pulse * 6.283185307 / 120.0))));
    put16(p, 34, static_cast<uint16_t>(tune));

    const std::time_t t = static_cast<std::time_t>(second - 1);
    std::tm utc{};
    gmtime_r(&t, &utc);
    char hms[32], dmy[32];
    std::snprintf(hms, sizeof hms, "%02d%02d%02d.00", utc.tm_hour, utc.tm_min, utc.tm_sec);
    std::snprintf(dmy, sizeof dmy, "%02d%02d%02d", utc.tm_mday, utc.tm_mon + 1, utc.tm_year % 100);
    std::string text;
    if (gpsLocked_) {
        char lat[24], lon[24], body[192];
        nmeaCoordinate(lat, sizeof lat, gpsLatitude_, 2);
        nmeaCoordinate(lon, sizeof lon, gpsLongitude_, 3);
        const char ns = gpsLatitude_ < 0 ? 'S' : 'N', ew = gpsLongitude_ < 0 ? 'W' : 'E';
        std::snprintf(body, sizeof body, "GPRMC,%s,A,%s,%c,%s,%c,0.0,0.0,%s,,,A", hms, lat, ns, lon, ew, dmy);
        text += nmeaSentence(body);
        std::snprintf(body, sizeof body, "GPGGA,%s,%s,%c,%s,%c,1,09,0.9,%.1f,M,0.0,M,,", hms, lat, ns, lon, ew,
                      gpsAltitude_);
        text += nmeaSentence(body);
    } else {
        char body[96];
        std::snprintf(body, sizeof body, "GPRMC,%s,V,,,,,,,%s,,,N", hms, dmy);
        text += nmeaSentence(body);
        text += nmeaSentence(std::string("GPGGA,") + hms + ",,,,,0,00,99.9,,M,,M,,");
    }
    const size_t finished = filling ? 4096 : 5120;
    const size_t n = std::min<size_t>(text.size(), 1024);
    std::memcpy(p + finished, text.data(), n);
    put16(p, 22, static_cast<uint16_t>((n + 3) / 4));
}

}  // namespace zr::sim
