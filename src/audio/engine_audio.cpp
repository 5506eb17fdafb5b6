#include "audio/engine_audio.h"

#include <algorithm>
#include <chrono>
#include <thread>

#include "iq/iq_interface.h"

namespace zr {

namespace {
constexpr std::chrono::milliseconds kWaitSlice(50);
}

EngineAudio::EngineAudio(IQInterface& source, const AudioSettings& settings)
    : source_(source), chain_(settings), type_(settings.type), iq_(AudioChain::kInput),
      ring_(size_t(kRingSlots) * kBlock) {
    thread_ = NamedThread("ZR Audio Thread", ThreadPriority::AboveNormal, [this] { run(); });
}

EngineAudio::~EngineAudio() { drain(); }

void EngineAudio::run() {
    std::vector<float> block(kBlock);
    while (running_.load(std::memory_order_acquire)) {
        IQRequest r;
        r.iqBuf = iq_.data();
        r.iqBufSize = AudioChain::kInput;
        const ZrStatus s = source_.GetIQ(r);
        if (s < zrNoError) {
            streamError_.store(s, std::memory_order_release);
            break;
        }
        if (!running_.load(std::memory_order_acquire)) break;
        chain_.process(iq_.data(), type_.load(std::memory_order_relaxed), block.data());
        const uint64_t n = produced_.load(std::memory_order_relaxed);
        std::copy(block.begin(), block.end(), ring_.begin() + ptrdiff_t(n % kRingSlots) * kBlock);
        produced_.store(n + 1, std::memory_order_release);
        blockEvent_.set();
    }
    blockEvent_.set();
}

ZrStatus EngineAudio::GetAudio(float* out) {
    struct Inside {
        std::atomic<int>& n;
        explicit Inside(std::atomic<int>& c) : n(c) { n.fetch_add(1, std::memory_order_acq_rel); }
        ~Inside() { n.fetch_sub(1, std::memory_order_acq_rel); }
    } inside(callers_);

    while (running_.load(std::memory_order_acquire)) {
        const uint64_t produced = produced_.load(std::memory_order_acquire);
        if (produced > consumed_) {
            // The slot after the newest may be the one being written.
            consumed_ = std::max(consumed_, produced - std::min<uint64_t>(produced, kRingSlots - 1));
            const float* slot = ring_.data() + ptrdiff_t(consumed_ % kRingSlots) * kBlock;
            std::copy(slot, slot + kBlock, out);
            // Overtaken while copying: take a newer one.
            if (produced_.load(std::memory_order_acquire) - consumed_ >= kRingSlots) continue;
            ++consumed_;
            return zrNoError;
        }
        if (const int32_t e = streamError_.load(std::memory_order_acquire)) return ZrStatus(e);
        blockEvent_.wait(kWaitSlice);
    }
    return zrInvalidConfigurationErr;
}

void EngineAudio::drain() {
    running_.store(false, std::memory_order_release);
    while (callers_.load(std::memory_order_acquire) > 0) {
        blockEvent_.set();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    source_.drain();
    thread_.join();
}

}  // namespace zr
