#include "gps/host_clock.h"

#include <chrono>

namespace zr {

namespace {
class SystemHostClock final : public HostClock {
public:
    int64_t systemTimeNs() const override {
        using namespace std::chrono;
        int64_t units = duration_cast<duration<int64_t, std::ratio<1, 10000000>>>(
                            system_clock::now().time_since_epoch()).count();
        return units * 100;
    }
    uint64_t monotonicMs() const override {
        using namespace std::chrono;
        return static_cast<uint64_t>(
            duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
    }
};
}  // namespace

const HostClock& systemHostClock() {
    static const SystemHostClock clock;
    return clock;
}

}  // namespace zr
