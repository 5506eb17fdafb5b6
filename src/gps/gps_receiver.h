#pragma once
// The GPS receiver as the host sees it: NMEA text and pulse-per-second tick
// counts arrive inside every status block, and this object turns them into a
// fix, a UTC anchor for the 250 MHz tick counter, and the time stamps that
// the engines hand out with their data. Without a fix the time runs on from
// the host clock, with the tick counter deciding how far it moved.

#include <array>
#include <atomic>
#include <cstdint>
#include <mutex>

#include "gps/host_clock.h"

namespace zr {

constexpr uint32_t kStatusMagic = 0x31555834;
constexpr int kStatusBlockBytes = 8192;
constexpr int kTriggerRingEntries = 512;
constexpr int kGpsTextHalfBytes = 1024;
constexpr int64_t kNsPerTick = 4;
constexpr uint64_t kGpsLockTimeoutMs = 5000;

// The fields of one status block that time keeping and the trigger ring
// read, taken out of the little-endian wire bytes. The pointers refer into
// the block and live as long as it does.
struct GpsBlockView {
    uint32_t magic = 0;
    uint32_t statusTick = 0;
    uint32_t pulseTick = 0;
    uint32_t ringWriteIndex = 0;
    uint16_t textControl = 0;   // bit 8: the half the instrument is filling
    uint16_t textWords = 0;     // length of the finished half in 32-bit words
    uint32_t runningTick = 0;
    uint8_t flags = 0;          // bit 4: pulse valid
    const uint8_t* triggerRing = nullptr;        // 512 little-endian u32, may be null
    const uint8_t* textHalf[2] = {nullptr, nullptr};  // 1024 bytes each, may be null

    bool goodMagic() const { return magic == kStatusMagic; }
    int half() const { return (textControl >> 8) & 1; }
    bool pulseValid() const { return (flags & 0x10) != 0; }
    uint32_t ringEntry(int index) const;
};

// Reads the view out of a whole 8192-byte status block.
GpsBlockView gpsBlockViewFromBytes(const uint8_t* block);

// Smooths the pulse tick over the last 30 seconds, so that the time stamps
// do not jitter with the receiver's pulse.
struct PulseAverage {
    static constexpr int kWindow = 30;
    std::array<int64_t, kWindow> window{};
    int64_t lastTick = -1;
    int64_t error = 0;

    void reset() {
        window.fill(0);
        lastTick = -1;
        error = 0;
    }
    // Gives the tick to which the pulse's UTC belongs.
    int64_t filter(int64_t tick);
};

// One comma field of a sentence; a sentence is at most 511 bytes.
using NmeaField = std::array<char, 512>;

struct GpsReceiver {
    static constexpr int kRmcFields = 12;
    static constexpr int kGgaFields = 13;

    std::array<NmeaField, kRmcFields> rmcFields{};
    std::array<NmeaField, kGgaFields> ggaFields{};
    int32_t textHalf = -1;
    // Time fields are written by the decoding thread only and read by others
    // without the lock, hence atomic.
    std::atomic<int64_t> pulseTime{0};   // ns, UTC of the last pulse
    std::atomic<int64_t> statusTime{0};  // ns, time of the last status block
    std::atomic<int64_t> blockTime{0};   // ns, time of the running tick
    std::atomic<uint32_t> lastPulseTick{0xFFFFFFFFu};
    int64_t filteredPulseTick = 0;
    uint64_t lastRmcMs = 0;
    uint32_t messageCount = 0;
    uint32_t seenCount = 0;

    // Guards the fix and the text, from `locked` to `nmeaLength`.
    mutable std::mutex lock;
    std::atomic<uint8_t> locked{0};
    int64_t timestamp = 0;  // s
    double latitude = 0.0;
    double longitude = 0.0;
    double altitude = 0.0;
    std::array<char, kGpsTextHalfBytes + 1> nmeaText{};
    int32_t nmeaLength = 0;

    // The I/Q engines and the sweep list engine set this to their sample
    // period; it stays after they end.
    std::atomic<double> latencyTerm{20.0};
    int64_t hostTimeRunning = 0;
    int64_t hostTimeStatus = 0;
    uint32_t lastRunningTick = 0;
    uint32_t lastStatusTick = 0;
    std::atomic<int64_t> freeRunTime{0};  // 0: not started yet
    uint8_t freeRunStarted = 0;
    uint8_t ppsValid = 0;
    PulseAverage pulseAverage;
    uint8_t useAverage = 0;

    const HostClock* clock = &systemHostClock();

    GpsReceiver() = default;
    GpsReceiver(const GpsReceiver&) = delete;
    GpsReceiver& operator=(const GpsReceiver&) = delete;
};

// Reader of the instrument's trigger ring: the ticks of the external
// trigger inputs since the previous block, relative to the running tick of
// that block.
struct GpsPulseReader {
    static constexpr int kEntries = kTriggerRingEntries;
    int32_t readIndex = -1;  // -1: take the next block as the origin only
    std::array<uint32_t, kEntries> entries{};
    uint32_t count = 0;
    uint32_t origin = 0;
    uint32_t tickOffset = 0;
};

// Folds one status block into the receiver. gpsFlag is set when the block
// came with data, whose running tick moves with the samples.
void decodeGPS(GpsReceiver& gps, const GpsBlockView& block, bool gpsFlag);

void readTriggerRing(GpsPulseReader& reader, const GpsBlockView& block);

// Parse the first RMC or GGA sentence of the text into the receiver. The
// caller holds the receiver's lock.
bool parseRMC(GpsReceiver& gps, const char* text, int length);
void parseGGA(GpsReceiver& gps, const char* text, int length);

// How far, in ns, a time moves from one 32-bit tick reading to the next,
// recovering how often the counter wrapped in between from the host time
// that passed. `oldTick` and `hostTime` take the new values.
int64_t advanceByTicks(uint32_t& oldTick, int64_t& hostTime, uint32_t newTick, int64_t nowNs);

}  // namespace zr
