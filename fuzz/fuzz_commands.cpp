// Command lists as the simulated instrument decodes them: register runs,
// RF port transfers, streams, FFT captures and fetches, flash words, with
// every reply drained. The input is 2048-byte OUT blocks (the last padded).
#include <cstdint>
#include <cstring>
#include <vector>

#include "instrument.h"

using namespace zr;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr size_t kBlock = 2048;
    if (size == 0 || size > 16 * kBlock) return 0;
    // One instrument of each family for the whole run (their noise tables
    // are costly to make); a reset clears the decoder and the reply FIFO.
    static sim::Instrument* families[2] = {new sim::Instrument(zrDeviceTypeMesa2, 20000001),
                                           new sim::Instrument(zrDeviceTypeRidge2, 30000001)};
    sim::Instrument& inst = *families[data[0] & 1];
    inst.reset();
    inst.setRunning(true);
    inst.setPaced(false);
    inst.clearSignals();
    inst.addTone(1e9, -30.0);
    static std::vector<uint8_t> replies(64 * sim::Instrument::kReplyBytes);
    uint8_t block[kBlock];
    for (size_t at = 0; at < size; at += kBlock) {
        std::memset(block, 0, kBlock);
        std::memcpy(block, data + at, std::min(kBlock, size - at));
        // A stalled OUT endpoint gives up at once rather than wait for reads.
        inst.writeBlock(block, 0);
        while (const size_t queued = inst.queuedReplies()) {
            const uint32_t n = uint32_t(std::min<size_t>(queued, 64));
            if (inst.read(replies.data(), n * sim::Instrument::kReplyBytes, 50).failed) break;
        }
    }
    return 0;
}
