#pragma once
// The two host clocks the time keeping needs: wall time since 1970 and a
// monotonic millisecond count. They sit behind one small seam so that lock
// timeouts and free-running time can be driven by a test without waiting.

#include <cstdint>

namespace zr {

class HostClock {
public:
    virtual ~HostClock() = default;
    // Wall clock in ns since 1970, at the 100 ns resolution the time stamps
    // are defined on.
    virtual int64_t systemTimeNs() const = 0;
    // Monotonic count in ms; only differences mean anything.
    virtual uint64_t monotonicMs() const = 0;
};

// The process's real clocks.
const HostClock& systemHostClock();

}  // namespace zr
