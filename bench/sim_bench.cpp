// How fast the simulated instrument makes samples when nothing paces it: it
// must stay well ahead of the 50 MS/s a host engine consumes, or host-bound
// benchmarks would measure the simulator instead.
#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

#include "instrument.h"
#include "sim_transport.h"

namespace {

using zr::sim::Instrument;

std::vector<uint8_t> wordsBlock(const std::vector<uint32_t>& words) {
    std::vector<uint8_t> b(2048);
    for (size_t o = 0; o < 2048; o += 4) b[o] = 1;
    std::memcpy(b.data(), words.data(), words.size() * 4);
    return b;
}

void startStream(Instrument& inst, int tones) {
    inst.setPaced(false);
    inst.setCenterFrequency(1e9);
    for (int i = 0; i < tones; ++i) inst.addTone(1e9 + 1.7e6 * (i + 1), -20.0 - i);
    inst.setNoiseFloor(-150.0);
    inst.writeBlock(wordsBlock({0x13010000}).data());
}

// The generator alone: tones over noise into 16-bit I/Q.
void BM_SimGenerateBlock(benchmark::State& state) {
    Instrument inst(zrDeviceTypeMesa2, 90000001);
    startStream(inst, static_cast<int>(state.range(0)));
    std::vector<int16_t> iq(2 * 2048);
    for (auto _ : state) {
        inst.generateBlock(iq.data());
        benchmark::DoNotOptimize(iq.data());
    }
    state.SetItemsProcessed(state.iterations() * 2048);
}
BENCHMARK(BM_SimGenerateBlock)->Arg(1)->Arg(4);

// Decode a block of 128 data words and serve them as one 1 MiB IN read, all
// on this thread.
void BM_SimEndpointStream(benchmark::State& state) {
    Instrument inst(zrDeviceTypeMesa2, 90000002);
    startStream(inst, 1);
    std::vector<uint32_t> words(7 + 128, 0x23000000);
    words[0] = 0xFF530000;
    for (int i = 1; i < 7; ++i) words[i] = 0;
    const auto block = wordsBlock(words);
    std::vector<uint8_t> out(1 << 20);
    for (auto _ : state) {
        inst.writeBlock(block.data());
        auto r = inst.read(out.data(), 1 << 20, 1000);
        if (r.failed) state.SkipWithError("read failed");
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(state.iterations() * 128 * 2048);
}
BENCHMARK(BM_SimEndpointStream);

// The same through the transport contract, with its writer thread.
void BM_SimTransportStream(benchmark::State& state) {
    auto inst = std::make_shared<Instrument>(zrDeviceTypeMesa2, 90000003);
    startStream(*inst, 1);
    zr::sim::SimTransport t(inst);
    std::vector<uint32_t> words(7 + 128, 0x23000000);
    words[0] = 0xFF530000;
    for (int i = 1; i < 7; ++i) words[i] = 0;
    const auto block = wordsBlock(words);
    for (auto _ : state) {
        t.BeginRead(0, 1 << 20, 1000);
        t.BeginWrite(0, block.data());
        if (!t.FinishWrite(0).good() || !t.FinishRead(0).good()) state.SkipWithError("transfer failed");
    }
    state.SetItemsProcessed(state.iterations() * 128 * 2048);
}
BENCHMARK(BM_SimTransportStream)->UseRealTime();

}  // namespace
