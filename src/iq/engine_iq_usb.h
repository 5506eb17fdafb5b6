#pragma once
// The I/Q stream of the USB models. The transfer pump's thread ("ZR IQ USB
// Thread") keeps up to 16 request transfers in flight, converts each
// transfer's samples into a slot of a 20-slot block ring, moves them to the
// exact centre with the host oscillator, decodes the status block that ends
// the transfer (flags, GPS time, the trigger ring) and stamps the block.
// One work thread ("ZR IQ Work Thread", or "ZR IQ SW Filter Work Thread"
// with the 65-tap output filter) finishes the decimation with up to two
// 2049-tap stages and stores the result in the sample queue.
//
// Neither thread ever waits for the other: a block that finds the ring full
// is dropped and counted, the queue drops its backlog at the gap, and the
// caller learns of it through sampleLoss with every time still right.

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "dsp/filters.h"
#include "iq/iq_stream.h"
#include "platform/threads.h"
#include "transport/transfer_pump.h"

namespace zr {

class EngineIQStreamingUSB final : public IQStreamingEngine, private TransferSink {
public:
    static constexpr int kRingSlots = 20;
    static constexpr int kChunkBytes = 8192;
    static constexpr int kChunkSamples = kChunkBytes / 4;

    // Starts the stream: allocates everything, sets the device's trigger
    // tick offset and GPS latency term, starts both threads. Throws
    // std::bad_alloc.
    EngineIQStreamingUSB(ZrDevice& device, const IQSettings& settings, const IQPlan& plan, const CommandList& setup,
                         const CommandList& request);
    // Stops the instrument's stream, waits for the transfers in flight and
    // joins both threads.
    ~EngineIQStreamingUSB() override;

    int samplesPerBlock() const { return samplesPerBlock_; }
    int samplesPerStore() const { return samplesPerBlock_ / plan_.softwareDecimation; }
    double filterDelayTicks() const { return filterDelayTicks_; }

private:
    struct Slot {
        cf32* samples = nullptr;
        std::array<double, 512> triggers{};
        int triggerCount = 0;
        int64_t blockTime = 0;
        bool gapBefore = false;  // blocks before this one were dropped
    };

    void onData(int tag, const uint8_t* blocks, int count) override;
    void onStatus(int tag, const uint8_t* block) override;
    void onTicketDone(int tag) override;
    void finishBlock(const uint8_t* statusBlock);
    void workThread();
    void process(Slot& slot);

    const int chunksPerTransfer_;
    const int samplesPerBlock_;
    double filterDelayTicks_ = 0.0;
    const CommandList setupList_;
    const CommandList requestList_;
    CommandList stopList_;

    // Block ring: kRingSlots slots and one more that takes blocks while the
    // ring is full.
    cf32* ringMemory_ = nullptr;
    std::array<Slot, kRingSlots + 1> slots_{};
    int writeIndex_ = 0;      // USB thread
    int readIndex_ = 0;       // work thread
    std::atomic<int> pending_{0};
    Event blockEvent_;

    // USB thread state.
    Slot* filling_ = nullptr;
    int fillOffset_ = 0;
    bool gap_ = false;
    ComplexOscillator oscillator_;
    std::atomic<bool> stopping_{false};

    // Work thread state.
    FirFilterComplex softwareFilter_, stageOne_, stageTwo_;
    std::vector<cf32> scratchA_, scratchB_;

    std::unique_ptr<TransferPump> pump_;
    NamedThread work_;
};

}  // namespace zr
