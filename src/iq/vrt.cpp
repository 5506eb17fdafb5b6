// VITA 49 packets of the running I/Q stream: context packets that describe
// it and IF data packets that carry it, as 32-bit words already in network
// byte order. The library only fills the caller's buffers.
//
// The packet state (stream identifier, packet size, counters, the last
// context) belongs to the device index and lives for the process, so a
// stream that a caller reopens keeps counting where it was.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <vector>

#include "device/frame.h"
#include "device/services.h"
#include "gps/host_clock.h"
#include "dsp/dsp.h"
#include "iq/iq_interface.h"

namespace zr {
namespace {

constexpr uint32_t kContextWords = 28;
constexpr uint32_t kDataOverhead = 6;  // header 5, trailer 1
constexpr uint16_t kSmallestPacket = 128;
constexpr uint16_t kLargestPacket = 65529;  // its size in words still fits 16 bits
constexpr uint32_t kNoValue = 0x7FFFFFFF;
constexpr double kFixed20 = 1048576.0;      // 64-bit fields with 20 fraction bits

struct VrtRecord {
    uint32_t streamID = 0xFFFFFFFF;
    uint16_t packetSize = 0;
    uint8_t dataPacketCount = 0;
    uint32_t contextPacketCount = 0;
    std::array<uint32_t, 22> previousContext{};  // words 6 .. 27
    std::vector<cf32> samples;                    // packetSize, kept between calls
    std::vector<ci16> raw;
    std::vector<int16_t> converted;
};

VrtRecord gVrt[kMaxDevices];

bool validIndex(int device) { return static_cast<unsigned>(device) < static_cast<unsigned>(kMaxDevices); }

struct Stamp {
    uint32_t seconds;
    uint64_t picoseconds;
};

// The host's wall clock at the time of the packet, at 100 ns resolution.
Stamp now() {
    const int64_t ns = systemHostClock().systemTimeNs();
    const int64_t units = ns / 100;
    return {uint32_t(units / 10000000), uint64_t(units % 10000000) * 100000};
}

void put64(uint32_t* w, uint64_t v) {
    w[0] = uint32_t(v);
    w[1] = uint32_t(v >> 32);
}

uint64_t fixed20(double v) { return uint64_t(int64_t(v * kFixed20)); }

// A level as a 16-bit fixed-point value, sign-extended to the word.
uint32_t fixed16(float v, float unit) { return uint32_t(int32_t(int16_t(int32_t(v * unit)))); }

float attenuationDb(int32_t index) { return index < 0 ? -1.0f : 5.0f * float(index); }

void toNetworkOrder(uint32_t* w, size_t n) {
    for (size_t i = 0; i < n; ++i) w[i] = __builtin_bswap32(w[i]);
}

IQInterface* streamOf(ZrDevice& dev) {
    return dev.currentMode == zrModeIQStreaming && dev.engine ? dev.engine->iq() : nullptr;
}

ZrStatus buildContext(ZrDevice& dev, VrtRecord& r, uint32_t* w) {
    double rate = 0.0, bandwidth = 0.0, center = 0.0;
    if (IQInterface* iq = streamOf(dev)) {
        rate = iq->plan().sampleRate;
        bandwidth = iq->plan().bandwidth;
        center = iq->plan().center;
    } else if (dev.currentMode == zrModeIQSegmentedCapture && dev.engine) {
        rate = 2.5e8;
        bandwidth = 1.6e8;
        center = dev.segmented.center;
    } else {
        return zrInvalidConfigurationErr;
    }
    applyRefreshRule(dev);
    if (const int32_t link = dev.transport ? dev.transport->statusNow() : zrNoError; link < 0) return ZrStatus(link);
    const float temperature = dev.status.load().diagnostics[4];

    const Stamp t = now();
    bool locked;
    double latitude, longitude, altitude;
    {
        std::lock_guard<std::mutex> g(dev.gps.lock);
        locked = dev.gps.locked != 0;
        latitude = dev.gps.latitude;
        longitude = dev.gps.longitude;
        altitude = dev.gps.altitude;
        dev.gps.seenCount = dev.gps.messageCount;
    }
    const bool gpsValid = locked && (!dev.transport || dev.transport->statusNow() == zrNoError);

    w[0] = 0x4160001Cu | (uint32_t(r.dataPacketCount & 15) << 16);
    w[1] = r.streamID;
    w[2] = t.seconds;
    put64(w + 3, t.picoseconds);
    put64(w + 6, fixed20(bandwidth));
    put64(w + 8, fixed20(center));
    w[10] = fixed16(float(dev.refLevel), 128.0f);
    w[11] = fixed16(attenuationDb(dev.attenuator), 128.0f);
    put64(w + 12, fixed20(rate));
    w[14] = fixed16(temperature, 64.0f);
    w[15] = 0;
    w[16] = (uint32_t(dev.deviceType) << 12) + 4096;
    std::fill(w + 17, w + kContextWords, kNoValue);
    if (gpsValid) {
        // The formatted GPS field's fixed point: angles with 22 fraction
        // bits, altitude with 5.
        w[18] = t.seconds;
        put64(w + 19, t.picoseconds);
        w[21] = uint32_t(int32_t(std::trunc(latitude * 4194304.0)));
        w[22] = uint32_t(int32_t(std::trunc(longitude * 4194304.0)));
        w[23] = uint32_t(int32_t(std::trunc(std::clamp(altitude, -6.0e7, 6.0e7) * 32.0)));
    }
    bool changed = !std::equal(w + 6, w + 17, r.previousContext.begin()) ||
                   !std::equal(w + 18, w + 24, r.previousContext.begin() + 12);
    w[5] = 0x29A60000u | (changed ? 0x80000000u : 0u) | (gpsValid ? 0x00004000u : 0u);
    std::copy(w + 6, w + kContextWords, r.previousContext.begin());
    r.contextPacketCount = changed ? 1 : (r.contextPacketCount + 1) & 63;
    return zrNoError;
}

// One packet's samples from the stream as float, whatever its data type.
ZrStatus readSamples(IQInterface& iq, VrtRecord& r, ZrBool purge, int& sampleLoss) {
    const bool raw = iq.plan().dataType == zrDataType16sc;
    IQRequest q;
    q.iqBuf = raw ? static_cast<void*>(r.raw.data()) : r.samples.data();
    q.iqBufSize = r.packetSize;
    q.purge = purge;
    const ZrStatus s = iq.GetIQ(q);
    if (s < zrNoError) return s;
    if (raw) {  // to mW^0.5, as a float stream delivers them
        float* f = reinterpret_cast<float*>(r.samples.data());
        dspConvert16sTo32fScaled(reinterpret_cast<const int16_t*>(r.raw.data()), f, 2 * r.packetSize, 15);
        dspMulCInPlace(iq.GetCorrection(), f, 2 * r.packetSize);
    }
    sampleLoss = q.sampleLoss;
    return s;
}

}  // namespace
}  // namespace zr

using namespace zr;

extern "C" {

ZR_EXPORT ZrStatus zrSetVrtStreamID(int device, uint32_t streamID) {
    if (!validIndex(device)) return zrInvalidDeviceErr;
    gVrt[device].streamID = streamID;
    return zrNoError;
}

ZR_EXPORT ZrStatus zrGetVrtContextPktSize(int, uint32_t* wordCount) {
    if (!wordCount) return zrNullPtrErr;
    *wordCount = kContextWords;
    return zrNoError;
}

ZR_EXPORT ZrStatus zrGetVrtContextPkt(int device, uint32_t* words, uint32_t* wordCount) {
    if (!validIndex(device)) return zrInvalidDeviceErr;
    if (!words || !wordCount) return zrNullPtrErr;
    return withDevice(device, [&](ZrDevice& dev) -> ZrStatus {
        std::array<uint32_t, kContextWords> w{};
        const ZrStatus s = buildContext(dev, gVrt[device], w.data());
        if (s < zrNoError) return s;
        toNetworkOrder(w.data(), w.size());
        std::copy(w.begin(), w.end(), words);
        *wordCount = kContextWords;
        return zrNoError;
    });
}

ZR_EXPORT ZrStatus zrSetVrtPacketSize(int device, uint16_t samples) {
    if (!validIndex(device)) return zrInvalidDeviceErr;
    VrtRecord& r = gVrt[device];
    return guarded(
        [&] {
            r.packetSize = std::clamp(samples, kSmallestPacket, kLargestPacket);
            r.samples.assign(r.packetSize, cf32{});
            r.raw.assign(r.packetSize, ci16{});
            r.converted.assign(size_t(2) * r.packetSize, 0);
            return zrNoError;
        });
}

ZR_EXPORT ZrStatus zrGetVrtPacketSize(int device, uint16_t* samples, uint32_t* wordCount) {
    if (!validIndex(device)) return zrInvalidDeviceErr;
    if (!samples || !wordCount) return zrNullPtrErr;
    *samples = gVrt[device].packetSize;
    *wordCount = uint32_t(gVrt[device].packetSize) + kDataOverhead;
    return zrNoError;
}

ZR_EXPORT ZrStatus zrGetVrtPackets(int device, uint32_t* words, uint32_t* wordCount, uint32_t packetCount,
                                   ZrBool purge) {
    if (!validIndex(device)) return zrInvalidDeviceErr;
    if (!words || !wordCount) return zrNullPtrErr;
    VrtRecord& r = gVrt[device];
    if (packetCount == 0) {
        *wordCount = 0;
        return zrNoError;
    }
    return withDevice(device, [&](ZrDevice& dev) -> ZrStatus {
        if (r.packetSize == 0) return zrNullPtrErr;  // no packet size set: no buffers
        const uint32_t perPacket = uint32_t(r.packetSize) + kDataOverhead;
        if (packetCount > UINT32_MAX / perPacket) return zrInvalidParameterErr;
        const float toFullScale = float(1.0 / std::sqrt(std::pow(10.0, dev.refLevel / 10.0)));
        const bool locked = dev.referenceSource == 1 && dev.externalReference == 1;
        uint32_t* w = words;
        for (uint32_t p = 0; p < packetCount; ++p, w += perPacket) {
            IQInterface* iq = streamOf(dev);
            if (!iq) return zrInvalidConfigurationErr;
            int sampleLoss = 0;
            const ZrStatus s = readSamples(*iq, r, purge, sampleLoss);
            if (s < zrNoError) return s;
            const Stamp t = now();
            float* f = reinterpret_cast<float*>(r.samples.data());
            dspMulCInPlace(toFullScale, f, 2 * r.packetSize);
            dspConvert32fTo16sScaled(f, r.converted.data(), 2 * r.packetSize, 1, -15);

            ++r.dataPacketCount;
            w[0] = ((0x1460u | (r.dataPacketCount & 15u)) << 16) | (perPacket & 0xFFFFu);
            w[1] = r.streamID;
            w[2] = t.seconds;
            put64(w + 3, t.picoseconds);
            const int16_t* c = r.converted.data();
            for (uint32_t i = 0; i < r.packetSize; ++i)
                w[5 + i] = uint32_t(uint16_t(c[2 * i])) | (uint32_t(uint16_t(c[2 * i + 1])) << 16);
            uint32_t trailer = 0xE3000080u | (r.contextPacketCount & 63u);
            if (locked) trailer |= (1u << 19) | (1u << 17);
            if (s == zrNoError) trailer |= 1u << 18;
            if (s == zrADCOverflow) trailer |= 1u << 13;
            if (sampleLoss == 1) trailer |= 1u << 12;
            w[perPacket - 1] = trailer;
        }
        const size_t total = size_t(perPacket) * packetCount;
        toNetworkOrder(words, total);
        *wordCount = uint32_t(total);
        return zrNoError;
    });
}

}  // extern "C"
