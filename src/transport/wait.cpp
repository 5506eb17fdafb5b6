#include "transport/wait.h"

#include <atomic>
#include <chrono>
#include <cmath>
#include <thread>

// A simulated instrument library loaded into the process may publish its own
// factor under this C name. The reference is weak: without a simulator the
// symbol stays null and only the library's own factor counts, and the shared
// library exports nothing new for it.
extern "C" double zrSimGetWaitScale(void) __attribute__((weak));

namespace zr {

namespace {
std::atomic<double> ownScale{1.0};
}

void setProtocolWaitScale(double factor) {
    if (std::isfinite(factor) && factor >= 0.0) ownScale.store(factor, std::memory_order_relaxed);
}

double protocolWaitScale() {
    double s = ownScale.load(std::memory_order_relaxed);
    if (zrSimGetWaitScale != nullptr) {
        double sim = zrSimGetWaitScale();
        if (std::isfinite(sim) && sim >= 0.0) s *= sim;
    }
    return s;
}

void protocolSleepMs(double ms) {
    double scaled = ms * protocolWaitScale();
    if (!(scaled > 0.0)) return;
    std::this_thread::sleep_for(std::chrono::duration<double, std::milli>(scaled));
}

}  // namespace zr
