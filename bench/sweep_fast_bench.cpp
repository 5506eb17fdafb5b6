// The fast and narrow-span sweep engines on an unpaced simulated instrument:
// full-span sweep time of the fast engine by resolution, and the time of one
// narrow-span sweep by span. The simulator's own FFT is part of the figure.
#include <benchmark/benchmark.h>

#include "opened_sim.h"

#include <filesystem>
#include <vector>

#include "registry.h"
#include "zr_api.h"
#include "zr_sim.h"

namespace {

constexpr int kSerial = 10009393;

struct FastSim : zr::bench::OpenedSim {
    FastSim() : zr::bench::OpenedSim(kSerial, "zr_bench_sweep_fast") {}
    // Configures and returns the sweep length, or 0 on failure.
    int configure(double centre, double span, double rbw, ZrSweepSpeed speed) {
        zrSetSweepSpeed(handle, speed);
        zrSetSweepCenterSpan(handle, centre, span);
        zrSetSweepCoupling(handle, rbw, rbw, 0.0);
        if (zrConfigure(handle, zrModeSweeping) < 0) return 0;
        int length = 0;
        zrGetSweepParameters(handle, nullptr, nullptr, nullptr, nullptr, &length);
        return length;
    }
};

void runSweeps(benchmark::State& state, FastSim& sim, int length) {
    if (length <= 0) {
        state.SkipWithError("configuration failed");
        return;
    }
    std::vector<float> trace(static_cast<size_t>(length));
    for (auto _ : state) {
        if (zrGetSweep(sim.handle, nullptr, trace.data(), nullptr) < 0) {
            state.SkipWithError("sweep failed");
            break;
        }
    }
    state.counters["points"] = length;
}

// 100 MHz to 20 GHz; the argument is the RBW in Hz.
void BM_FastSweepFullSpan(benchmark::State& state) {
    FastSim sim;
    runSweeps(state, sim, sim.configure(10.05e9, 19.9e9, double(state.range(0)), zrSweepSpeedFast));
}
BENCHMARK(BM_FastSweepFullSpan)->Arg(1000000)->Arg(100000)->Arg(30000)->Arg(10000)->Unit(benchmark::kMillisecond);

// Centre 1 GHz, RBW a hundredth of the span; the argument is the span.
void BM_NarrowSweep(benchmark::State& state) {
    FastSim sim;
    const double span = double(state.range(0));
    runSweeps(state, sim, sim.configure(1e9, span, span / 100.0, zrSweepSpeedAuto));
}
BENCHMARK(BM_NarrowSweep)->Arg(5000000)->Arg(1000000)->Arg(100000)->Arg(10000)->Unit(benchmark::kMillisecond);

}  // namespace
