#pragma once
// Builders for GPS tests: a hand-driven host clock, NMEA sentences with
// their checksums, and status blocks laid out as the instrument sends them.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "gps/gps_receiver.h"

namespace zr::test {

class ManualClock : public HostClock {
public:
    int64_t ns = 1795305600ll * 1000000000ll;  // 2026-11-22 00:00:00 UTC
    uint64_t ms = 1000000;
    int64_t systemTimeNs() const override { return ns; }
    uint64_t monotonicMs() const override { return ms; }
    void advanceMs(uint64_t d) {
        ms += d;
        ns += static_cast<int64_t>(d) * 1000000;
    }
};

// "$" + body + "*" + checksum + "\r\n"; the checksum is the XOR of the body.
inline std::string nmea(const std::string& body) {
    uint8_t x = 0;
    for (char c : body) x ^= static_cast<uint8_t>(c);
    char tail[8];
    std::snprintf(tail, sizeof tail, "*%02X\r\n", x);
    return "$" + body + tail;
}

// One status block as bytes, little-endian like the wire.
class StatusBytes {
public:
    StatusBytes() : b_(kStatusBlockBytes, 0) { u32(0, kStatusMagic); u32(4, 1); }
    StatusBytes& u32(size_t off, uint32_t v) {
        for (int i = 0; i < 4; ++i) b_[off + i] = static_cast<uint8_t>(v >> (8 * i));
        return *this;
    }
    StatusBytes& u16(size_t off, uint16_t v) {
        b_[off] = static_cast<uint8_t>(v);
        b_[off + 1] = static_cast<uint8_t>(v >> 8);
        return *this;
    }
    StatusBytes& magic(uint32_t v) { return u32(0, v); }
    StatusBytes& statusTick(uint32_t v) { return u32(8, v); }
    StatusBytes& pulseTick(uint32_t v) { return u32(12, v); }
    StatusBytes& ringWrite(uint32_t v) { return u32(16, v); }
    StatusBytes& runningTick(uint32_t v) { return u32(24, v); }
    StatusBytes& ppsValid(bool on) {
        b_[28] = static_cast<uint8_t>(on ? (b_[28] | 0x10) : (b_[28] & ~0x10));
        return *this;
    }
    StatusBytes& ringEntry(int i, uint32_t v) { return u32(2048 + 4 * static_cast<size_t>(i), v); }
    // The instrument is filling `filling`; the other half holds finished
    // text of `words` 32-bit words.
    StatusBytes& filling(int half) { return u16(20, static_cast<uint16_t>(half ? 0x0100 : 0)); }
    StatusBytes& textWords(uint16_t w) { return u16(22, w); }
    StatusBytes& halfText(int half, const std::string& text) {
        size_t off = half ? 5120 : 4096;
        std::memset(&b_[off], 0, kGpsTextHalfBytes);
        std::memcpy(&b_[off], text.data(), text.size() < 1024 ? text.size() : 1024);
        return *this;
    }
    // Puts finished text in the half that the instrument is not filling,
    // padded to whole words the way the instrument counts it.
    StatusBytes& finishedText(int fillingHalf, const std::string& text) {
        filling(fillingHalf);
        halfText(fillingHalf ? 0 : 1, text);
        return textWords(static_cast<uint16_t>((text.size() + 3) / 4));
    }
    GpsBlockView view() const { return gpsBlockViewFromBytes(b_.data()); }
    const uint8_t* data() const { return b_.data(); }

private:
    std::vector<uint8_t> b_;
};

}  // namespace zr::test
