#pragma once
// Monotonic and wall-clock time for the library.
#include <chrono>
#include <cstdint>

namespace zr {

inline uint64_t monotonicMs() {
    using namespace std::chrono;
    return static_cast<uint64_t>(duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
}

inline int64_t unixSeconds() {
    using namespace std::chrono;
    return duration_cast<seconds>(system_clock::now().time_since_epoch()).count();
}

}  // namespace zr
