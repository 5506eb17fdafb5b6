// Audio demodulation and VITA 49 packets. The CPU one pass of the chain takes (100000 complex
// samples in, 32 ms of audio out) for each demodulator, given as the share
// of one core that real-time audio costs, and allocations per pass.
#include <benchmark/benchmark.h>

#include <cmath>
#include <complex>
#include <vector>

#include "alloc_counter.h"
#include "audio/audio_chain.h"

namespace {

void BM_AudioPass(benchmark::State& state) {
    const auto type = ZrAudioType(state.range(0));
    zr::dspInit();  // as the first open does: picks the AVX2 kernels where they run
    zr::AudioSettings settings;
    zr::AudioChain chain(settings);
    // An FM carrier with 1 kHz tone at 10 kHz deviation, 3.125 MS/s.
    std::vector<zr::cf32> signal(zr::AudioChain::kInput), work(zr::AudioChain::kInput);
    for (int i = 0; i < zr::AudioChain::kInput; ++i) {
        const double t = i / 3.125e6;
        signal[size_t(i)] = std::polar(0.05f, float(10.0 * std::sin(2.0 * M_PI * 1000.0 * t)));
    }
    std::vector<float> audio(zr::AudioChain::kOutput);
    zr::bench::resetEngineAllocations();
    for (auto _ : state) {
        work = signal;
        zr::bench::countCaller(true);
        chain.process(work.data(), type, audio.data());
        zr::bench::countCaller(false);
        benchmark::DoNotOptimize(audio.data());
    }
    const double passSeconds = zr::AudioChain::kInput / 3.125e6;
    state.counters["core_share"] = benchmark::Counter(passSeconds, benchmark::Counter::kIsIterationInvariantRate |
                                                                       benchmark::Counter::kInvert);
    state.counters["allocs_per_pass"] = double(zr::bench::engineAllocations()) / double(state.iterations());
}
BENCHMARK(BM_AudioPass)->Arg(zrAudioAM)->Arg(zrAudioFM)->Arg(zrAudioUSB)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

// VITA 49 data packets from an unpaced stream at 50 MS/s: packets and
// samples a second (bound by the simulator sharing the cores), and the
// caller's CPU per sample, which is the packing's own cost.
#include "opened_sim.h"

namespace {

void BM_VrtPackets(benchmark::State& state) {
    const uint16_t size = uint16_t(state.range(0));
    zr::bench::OpenedSim sim(20008585, "zr_bench_vrt");
    if (sim.handle < 0) return state.SkipWithError("open failed");
    zrSetIQSampleRate(sim.handle, 1);
    zrSetVrtPacketSize(sim.handle, size);
    if (zrConfigure(sim.handle, zrModeIQStreaming) < 0) return state.SkipWithError("configure failed");
    constexpr uint32_t kPackets = 16;
    std::vector<uint32_t> words(size_t(kPackets) * (size + 6u));
    uint32_t n = 0;
    zrGetVrtPackets(sim.handle, words.data(), &n, kPackets, zrTrue);
    for (auto _ : state) {
        if (zrGetVrtPackets(sim.handle, words.data(), &n, kPackets, zrFalse) < 0) return state.SkipWithError("read failed");
        benchmark::DoNotOptimize(words.data());
    }
    const double packets = double(state.iterations()) * kPackets;
    state.counters["packets/s"] = benchmark::Counter(packets, benchmark::Counter::kIsRate);
    state.counters["MS/s"] = benchmark::Counter(packets * size / 1e6, benchmark::Counter::kIsRate);
    zrAbort(sim.handle);
}
BENCHMARK(BM_VrtPackets)->Arg(1024)->Arg(65529)->ArgNames({"samples"})->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
