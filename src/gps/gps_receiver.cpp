#include "gps/gps_receiver.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace zr {

namespace {

uint32_t readU32(const uint8_t* p) {
    return static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) |
           (static_cast<uint32_t>(p[2]) << 16) | (static_cast<uint32_t>(p[3]) << 24);
}

uint16_t readU16(const uint8_t* p) {
    return static_cast<uint16_t>(p[0] | (p[1] << 8));
}

constexpr int64_t kTwo32 = int64_t{1} << 32;
constexpr int kMaxSentence = 511;

// Where a sentence of the given type starts and how long it is, up to but
// not including its "\r\n".
enum class Find { found, noName, noEnd, badLength };

Find findSentence(const char* text, int length, const char* name, int& start, int& size) {
    if (length < 3) return Find::noName;
    start = -1;
    for (int i = 0; i < length - 2; ++i) {
        if (text[i] == name[0] && text[i + 1] == name[1] && text[i + 2] == name[2]) {
            start = i;
            break;
        }
    }
    if (start < 0) return Find::noName;
    int end = -1;
    for (int i = start; i + 1 < length; ++i) {
        if (text[i] == '\r' && text[i + 1] == '\n') {
            end = i;
            break;
        }
    }
    if (end < 0) return Find::noEnd;
    size = end - start;
    if (size <= 0 || size > kMaxSentence) return Find::badLength;
    return Find::found;
}

// Splits the sentence at commas into fields, dropping the sentence name.
// Empty fields count; fields beyond the array and fields not reached keep
// what they held. Gives the number of fields stored.
template <size_t N>
int splitFields(const char* sentence, int size, std::array<NmeaField, N>& fields) {
    char work[kMaxSentence + 1];
    std::memcpy(work, sentence, static_cast<size_t>(size));
    work[size] = '\0';
    int token = 0;  // 0 is the name
    int stored = 0;
    const char* p = work;
    while (true) {
        const char* comma = std::strchr(p, ',');
        size_t len = comma ? static_cast<size_t>(comma - p) : std::strlen(p);
        if (token > 0 && token <= static_cast<int>(N)) {
            NmeaField& f = fields[static_cast<size_t>(token - 1)];
            std::memcpy(f.data(), p, len);
            f[len] = '\0';
            stored = token;
        }
        ++token;
        if (!comma) break;
        p = comma + 1;
    }
    return stored;
}

// "ddmm.mmmm" or "dddmm.mmmm": degrees before the two whole minute digits.
bool readCoordinate(const char* field, double& value) {
    value = 0.0;
    const char* dot = std::strchr(field, '.');
    if (!dot || dot - field <= 2) return false;
    size_t p = static_cast<size_t>(dot - field) - 2;
    char degrees[16];
    size_t n = p < 15 ? p : 15;
    std::memcpy(degrees, field, n);
    degrees[n] = '\0';
    double minutes = 0.0;
    if (std::sscanf(field + p, "%lf", &minutes) != 1) return false;
    value = std::atoi(degrees) + minutes / 60.0;
    return true;
}

void clearFix(GpsReceiver& gps) {
    gps.locked = 0;
    gps.timestamp = 0;
    gps.latitude = 0.0;
    gps.longitude = 0.0;
    gps.altitude = 0.0;
}

// Copies the half the instrument has finished. Caller holds the lock.
void takeText(GpsReceiver& gps, const GpsBlockView& block) {
    const uint8_t* src = block.textHalf[block.half() ? 0 : 1];
    int length = static_cast<int>(block.textWords) * 4;
    if (length > kGpsTextHalfBytes) length = kGpsTextHalfBytes;
    if (!src) length = 0;
    if (length > 0) std::memcpy(gps.nmeaText.data(), src, static_cast<size_t>(length));
    gps.nmeaText[static_cast<size_t>(length)] = '\0';
    gps.nmeaLength = length;
}

}  // namespace

uint32_t GpsBlockView::ringEntry(int index) const {
    return triggerRing ? readU32(triggerRing + 4 * index) : 0;
}

GpsBlockView gpsBlockViewFromBytes(const uint8_t* block) {
    GpsBlockView v;
    v.magic = readU32(block + 0);
    v.statusTick = readU32(block + 8);
    v.pulseTick = readU32(block + 12);
    v.ringWriteIndex = readU32(block + 16);
    v.textControl = readU16(block + 20);
    v.textWords = readU16(block + 22);
    v.runningTick = readU32(block + 24);
    v.flags = block[28];
    v.triggerRing = block + 2048;
    v.textHalf[0] = block + 4096;
    v.textHalf[1] = block + 5120;
    return v;
}

int64_t PulseAverage::filter(int64_t tick) {
    int64_t prior = lastTick;
    lastTick = tick;
    if (prior == -1) return tick;
    int64_t delta = tick - prior;
    // A pulse after a counter wrap. The wrap adds 0xFFFFFFFF, one short of
    // 2^32; the one-tick step this leaves per wrap is well inside the pulse
    // jitter that the average is there to smooth.
    if (delta < 0) delta += 0xFFFFFFFFll;
    error += delta - 250000000;
    if (error > 1000) {
        reset();
        return tick;
    }
    for (int i = 0; i + 1 < kWindow; ++i) window[static_cast<size_t>(i)] = window[static_cast<size_t>(i + 1)];
    window[kWindow - 1] = error;
    int64_t sum = 0;
    for (int64_t w : window) sum += w;
    int64_t mean = sum / kWindow;
    int64_t r = (mean - error + tick) % 0xFFFFFFFFll;
    if (r < 0) r += 0xFFFFFFFFll;
    return r;
}

int64_t advanceByTicks(uint32_t& oldTick, int64_t& hostTime, uint32_t newTick, int64_t nowNs) {
    int64_t d = static_cast<int64_t>(newTick) - static_cast<int64_t>(oldTick);
    if (d < 0) d += kTwo32;
    int64_t elapsed = nowNs - hostTime;
    int64_t wraps = 0;
    // 0x3FFFFFFFC ns is 2^32 ticks less one: whole wraps that the host clock
    // says must have happened.
    if (elapsed > 17500000000ll) {
        wraps = (elapsed - 17500000001ll) / 0x3FFFFFFFCll + 1;
        elapsed -= wraps * 0x3FFFFFFFCll;
    }
    // More than half a wrap of host time but a small tick difference: the
    // counter went round once more than the difference shows.
    if (elapsed >= 8750000001ll && d < 0x3FFFFFFF) wraps += 1;
    oldTick = newTick;
    hostTime = nowNs;
    return ((wraps << 32) + d) * kNsPerTick;
}

bool parseRMC(GpsReceiver& gps, const char* text, int length) {
    int start = 0, size = 0;
    if (findSentence(text, length, "RMC", start, size) != Find::found) return false;
    splitFields(text + start, size, gps.rmcFields);

    if (std::strcmp(gps.rmcFields[1].data(), "A") != 0) {
        clearFix(gps);
        return false;
    }
    gps.locked = 1;

    double lat = 0.0, lon = 0.0;
    bool latOk = readCoordinate(gps.rmcFields[2].data(), lat);
    bool lonOk = readCoordinate(gps.rmcFields[4].data(), lon);
    if (latOk && lonOk) {
        const char* ns = gps.rmcFields[3].data();
        const char* ew = gps.rmcFields[5].data();
        bool north = std::strlen(ns) == 1 && ns[0] == 'N';
        bool east = std::strlen(ew) == 1 && ew[0] == 'E';
        gps.latitude = north ? lat : -lat;
        gps.longitude = east ? lon : -lon;
    }

    char hh[3], mm[3], ss[3], dd[3], mo[3], yy[3];
    if (std::sscanf(gps.rmcFields[0].data(), "%2s%2s%2s", hh, mm, ss) < 3) return true;
    if (std::sscanf(gps.rmcFields[8].data(), "%2s%2s%2s", dd, mo, yy) < 3) return true;

    std::tm tm{};
    tm.tm_year = std::atoi(yy) + 100;
    tm.tm_mon = std::atoi(mo) - 1;
    tm.tm_mday = std::atoi(dd);
    tm.tm_hour = std::atoi(hh);
    tm.tm_min = std::atoi(mm);
    tm.tm_sec = std::atoi(ss);
    tm.tm_isdst = -1;
    int64_t t = static_cast<int64_t>(timegm(&tm));

    // The sentence names the second that the next pulse begins.
    int64_t pulse = (t + 1) * 1000000000ll;
    gps.pulseTime = pulse;
    gps.statusTime = pulse + gps.statusTime.load() % 1000000000ll;
    gps.timestamp = pulse / 1000000000ll;
    return true;
}

void parseGGA(GpsReceiver& gps, const char* text, int length) {
    int start = 0, size = 0;
    Find f = findSentence(text, length, "GGA", start, size);
    if (f == Find::noName || f == Find::noEnd) {
        gps.altitude = 0.0;
        return;
    }
    if (f == Find::badLength) return;
    int fields = splitFields(text + start, size, gps.ggaFields);
    if (fields < 8) {
        gps.altitude = 0.0;
        return;
    }
    double alt = 0.0;
    if (std::sscanf(gps.ggaFields[8].data(), "%lf", &alt) == 1) gps.altitude = alt;
}

void decodeGPS(GpsReceiver& gps, const GpsBlockView& block, bool gpsFlag) {
    if (!block.goodMagic()) return;

    gps.ppsValid = block.pulseValid() ? 1 : 0;
    int half = block.half();
    bool halfChanged = gps.textHalf != -1 && half != gps.textHalf;
    gps.textHalf = half;

    uint32_t lastPulse = gps.lastPulseTick;
    if (block.pulseTick == lastPulse || lastPulse == 0xFFFFFFFFu) {
        if (halfChanged) {
            std::lock_guard<std::mutex> g(gps.lock);
            takeText(gps, block);
            ++gps.messageCount;
        }
        if (gps.locked && gps.clock->monotonicMs() - gps.lastRmcMs > kGpsLockTimeoutMs) {
            std::lock_guard<std::mutex> g(gps.lock);
            clearFix(gps);
            gps.pulseAverage.reset();
        }
    } else {
        {
            std::lock_guard<std::mutex> g(gps.lock);
            takeText(gps, block);
            if (parseRMC(gps, gps.nmeaText.data(), gps.nmeaLength)) gps.lastRmcMs = gps.clock->monotonicMs();
            parseGGA(gps, gps.nmeaText.data(), gps.nmeaLength);
        }
        ++gps.messageCount;
        if (gps.locked && gps.ppsValid && gps.useAverage)
            gps.filteredPulseTick = gps.pulseAverage.filter(block.pulseTick);
        else
            gps.filteredPulseTick = block.pulseTick;
    }
    gps.lastPulseTick = block.pulseTick;

    if (gps.locked) {
        // The nearer of the two ways round the 32-bit counter: the running
        // tick lags the status, so a pulse can come after the block's
        // samples, and one side of the difference can have wrapped either way.
        int64_t d = static_cast<int64_t>(block.runningTick) - gps.filteredPulseTick;
        if (d < -(int64_t{1} << 31)) d += kTwo32;
        if (d >= (int64_t{1} << 31)) d -= kTwo32;
        // The running tick lags the samples by 1024 sample periods.
        int64_t latency = static_cast<int64_t>(std::floor(gps.latencyTerm.load() * 1024.0 + 0.5));
        gps.blockTime = latency + gps.pulseTime.load() + d * kNsPerTick;
        int64_t e = static_cast<int64_t>(block.statusTick) - static_cast<int64_t>(gps.lastPulseTick.load());
        if (e < 0) e += kTwo32;
        gps.statusTime = gps.pulseTime.load() + e * kNsPerTick;
        if (gps.lastRunningTick != 0 && gps.lastRunningTick != block.runningTick) gps.freeRunStarted = 1;
        gps.lastRunningTick = block.runningTick;
        gps.lastStatusTick = block.statusTick;
        int64_t now = gps.clock->systemTimeNs();
        gps.hostTimeRunning = now;
        gps.hostTimeStatus = now;
    } else if (gps.freeRunTime != 0) {
        int64_t now = gps.clock->systemTimeNs();
        if (gpsFlag && block.runningTick != gps.lastRunningTick) {
            if (!gps.freeRunStarted) {
                gps.hostTimeRunning = now;
                gps.freeRunTime = now;
                gps.lastRunningTick = block.runningTick;
                gps.freeRunStarted = 1;
            }
            gps.freeRunTime += advanceByTicks(gps.lastRunningTick, gps.hostTimeRunning, block.runningTick, now);
        }
        if (block.statusTick != gps.lastStatusTick)
            gps.statusTime += advanceByTicks(gps.lastStatusTick, gps.hostTimeStatus, block.statusTick, now);
    } else {
        int64_t now = gps.clock->systemTimeNs();
        gps.hostTimeRunning = now;
        gps.hostTimeStatus = now;
        gps.freeRunTime = now;
        gps.statusTime = now;
        gps.lastRunningTick = block.runningTick;
        gps.lastStatusTick = block.statusTick;
    }
}

void readTriggerRing(GpsPulseReader& reader, const GpsBlockView& block) {
    if (!block.goodMagic()) return;
    uint32_t write = block.ringWriteIndex % GpsPulseReader::kEntries;
    if (reader.readIndex == -1) {
        reader.origin = reader.tickOffset + block.runningTick;
        reader.readIndex = static_cast<int32_t>(write);
        return;
    }
    reader.count = 0;
    while (reader.readIndex != static_cast<int32_t>(write)) {
        reader.entries[reader.count] = block.ringEntry(reader.readIndex) - reader.origin;
        reader.readIndex = (reader.readIndex + 1) % GpsPulseReader::kEntries;
        ++reader.count;
    }
    reader.origin = reader.tickOffset + block.runningTick;
}

}  // namespace zr
