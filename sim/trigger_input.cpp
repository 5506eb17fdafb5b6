// The external trigger input: edges injected at ticks of the instrument's
// clock, and the ring of 512 trigger ticks that every status block carries
// with its write index. An edge enters the ring once the clock of the
// status that reports it has passed it; register 0x36 bit 1 selects the
// falling edge instead of the rising one.
#include "instrument.h"

#include <algorithm>
#include <cmath>

#include "instrument_detail.h"

namespace zr::sim {

using namespace detail;

void Instrument::triggerAtTick(uint64_t tick, double widthNs) {
    std::lock_guard lock(mu_);
    const TriggerEdge e{tick, std::max(widthNs, 0.0)};
    triggerEdges_.insert(std::upper_bound(triggerEdges_.begin(), triggerEdges_.end(), e,
                                          [](const TriggerEdge& a, const TriggerEdge& b) { return a.tick < b.tick; }),
                         e);
}

void Instrument::advanceTriggerRingLocked(uint64_t tick) {
    const bool falling = (regs_[0x36] & 2) != 0;
    size_t taken = 0;
    for (const TriggerEdge& e : triggerEdges_) {
        const uint64_t at = falling ? e.tick + static_cast<uint64_t>(std::llround(e.widthNs / 4.0)) : e.tick;
        if (e.tick > tick || at > tick) break;
        triggerRing_[triggerWrite_] = static_cast<uint32_t>(at);
        triggerWrite_ = (triggerWrite_ + 1) % triggerRing_.size();
        ++taken;
    }
    triggerEdges_.erase(triggerEdges_.begin(), triggerEdges_.begin() + static_cast<ptrdiff_t>(taken));
}

void Instrument::renderTriggerRing(uint8_t* status) {
    put32(status, 16, triggerWrite_);
    for (size_t i = 0; i < triggerRing_.size(); ++i) put32(status, 2048 + 4 * i, triggerRing_[i]);
}

}  // namespace zr::sim
