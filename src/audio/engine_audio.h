#pragma once
// Audio mode: one more reader of an I/Q stream. Its thread pulls 32 ms of
// samples at a time through the AudioChain and drops each 1000-sample
// result into a ring of 30 slots, from which zrGetAudio reads in order.
//
// A reader that falls more than the ring behind skips to the oldest block
// still whole (and never reads one being written); a stream that fails
// ends the thread and every reader hears the stream's status.
#include <array>
#include <atomic>
#include <cstdint>
#include <vector>

#include "audio/audio_chain.h"
#include "device/mode_engine.h"
#include "platform/threads.h"

namespace zr {

class IQInterface;

class EngineAudio final : public ModeEngine {
public:
    static constexpr int kRingSlots = 30;
    static constexpr int kBlock = AudioChain::kOutput;

    // Builds the filters and starts the thread on the stream. Throws
    // std::bad_alloc.
    EngineAudio(IQInterface& source, const AudioSettings& settings);
    ~EngineAudio() override;

    ZrMode mode() const override { return zrModeAudio; }
    // Releases waiting readers, stops the stream's deliveries (so the
    // thread's read returns) and joins the thread.
    void drain() override;
    bool busy() const override { return true; }

    // The demodulator of the next pass; filters stay as built.
    void setType(ZrAudioType type) { type_.store(type, std::memory_order_relaxed); }

    // Waits for the next block; the stream's error once it has failed,
    // zrInvalidConfigurationErr when the mode ends first.
    ZrStatus GetAudio(float* out);

private:
    void run();

    IQInterface& source_;
    AudioChain chain_;
    std::atomic<ZrAudioType> type_;
    std::vector<cf32> iq_;
    std::vector<float> ring_;            // kRingSlots * kBlock
    std::atomic<uint64_t> produced_{0};  // blocks completed
    uint64_t consumed_ = 0;              // reader's count
    std::atomic<int32_t> streamError_{0};
    std::atomic<bool> running_{true};
    std::atomic<int> callers_{0};
    Event blockEvent_;
    NamedThread thread_;
};

}  // namespace zr
