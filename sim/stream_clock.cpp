// The sample stream's clock: the stream-start word and the running tick
// that status blocks carry. The running tick lags the samples by 1024
// output sample periods of the instrument and leads them by its own filter
// delay and the link latency, so that a host that knows those terms can
// put an exact UTC on every sample and trigger.
#include "instrument.h"

#include <algorithm>
#include <cmath>

namespace zr::sim {

namespace {

// Ticks of the 250 MHz clock per base-rate sample.
double ticksPerBaseSample(bool base61M44) { return Instrument::kTickHz / (base61M44 ? 61.44e6 : 50e6); }

// Group delay of the instrument's half-band decimators, in ticks: 32 base
// samples for the first stage, 60 for the second, 120 for the third.
double filterDelayTicks(uint32_t decimation, bool base61M44) {
    double samples = 0.0;
    if (decimation >= 2) samples += 32.0;
    if (decimation >= 4) samples += 60.0;
    if (decimation >= 8) samples += 120.0;
    return samples * ticksPerBaseSample(base61M44);
}

// From the ADC to the status block, through the USB controller.
double linkLatencyTicks(bool base61M44) { return base61M44 ? 422.0 : 208.0; }

}  // namespace

void Instrument::startStream(uint32_t code, uint32_t tune) {
    const uint32_t dec = code & 0x0F;
    if (dec != 1 && dec != 2 && dec != 4 && dec != 8) {
        ++unknownWords_;
        return;
    }
    streamBase61M44_ = (code & 16) != 0;
    streamDecimation_ = dec;
    sampleRate_ = (streamBase61M44_ ? 61.44e6 : 50e6) / dec;
    tuneWord_ = tune;
    streaming_ = true;
    blocksProduced_ = 0;
    const int64_t now = std::max(nowNs(), lastReadyNs_);
    streamStartNs_ = now;
    streamStartTick_ = static_cast<double>(paced_ ? pacedTick(now) : virtualTick_);
    rebuildScene();
}

uint64_t Instrument::runningTickLocked() const {
    const double tpb = ticksPerBaseSample(streamBase61M44_);
    const double end = streamStartTick_ + static_cast<double>(blocksProduced_) * kSamplesPerBlock * kTickHz / sampleRate_;
    const double r = end - 1024.0 * streamDecimation_ * tpb + filterDelayTicks(streamDecimation_, streamBase61M44_) +
                     linkLatencyTicks(streamBase61M44_);
    // Modulo 2^64 like the counter itself, even just after tick 0.
    return static_cast<uint64_t>(static_cast<int64_t>(std::llround(r)));
}

}  // namespace zr::sim
