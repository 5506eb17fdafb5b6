#pragma once
// Small pieces the instrument's files share: constants, little-endian
// stores, the sensor code and the noise generator's step.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>

namespace zr::sim::detail {

inline constexpr double kTwoPi = 6.283185307179586;
inline constexpr size_t kNoiseTable = 1 << 16;
inline constexpr int64_t kNever = std::numeric_limits<int64_t>::max();

inline void put16(uint8_t* p, size_t off, uint16_t v) { std::memcpy(p + off, &v, 2); }
inline void put32(uint8_t* p, size_t off, uint32_t v) { std::memcpy(p + off, &v, 4); }

// The sensors report quarter degrees in a 10-bit field at bits 11..2, with
// bit 12 marking a value below zero (stored as 1024 less the magnitude).
inline uint16_t sensorCode(float celsius) {
    int q = static_cast<int>(std::lround(celsius * 4.0f));
    q = std::clamp(q, -1023, 1023);
    if (q >= 0) return static_cast<uint16_t>((q & 0x3FF) << 2);
    return static_cast<uint16_t>(1u << 12 | ((1024 + q) & 0x3FF) << 2);
}

inline uint64_t xorshift(uint64_t& s) {
    s ^= s << 13;
    s ^= s >> 7;
    s ^= s << 17;
    return s;
}

}  // namespace zr::sim::detail
