// The normal sweep engine: full-span sweep time on an unpaced simulated
// instrument, the host's processing rate, and what the data path allocates
// once a sweep has been started.
#include <benchmark/benchmark.h>

#include "alloc_counter.h"
#include "opened_sim.h"


#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <random>
#include <vector>

#include "device/device.h"
#include "device/frame.h"
#include "registry.h"
#include "sim_transport.h"
#include "sweep/engine_sweep_controller.h"
#include "sweep/spectrum_processor.h"
#include "zr_api.h"
#include "zr_sim.h"

namespace {

constexpr int kSerial = 10007777;

struct OpenedSim : zr::bench::OpenedSim {
    OpenedSim() : zr::bench::OpenedSim(kSerial, "zr_bench_sweep") {}
};

void setSweep(zr::ZrDevice& dev, double centre, double span, double rbw) {
    dev.sweep.speed = zrSweepSpeedNormal;
    dev.sweep.center = centre;
    dev.sweep.span = span;
    dev.sweep.rbw = dev.sweep.vbw = rbw;
}

// Full span, 100 kHz to 20.6 GHz, at one RBW.
void BM_FullSpanSweep(benchmark::State& state) {
    OpenedSim sim;
    if (sim.handle < 0) return state.SkipWithError("open failed");
    const double rbw = double(state.range(0));
    zrSetSweepSpeed(sim.handle, zrSweepSpeedNormal);
    zrSetSweepStartStop(sim.handle, 1e5, 2.06e10);
    zrSetSweepCoupling(sim.handle, rbw, rbw, 0.0);
    if (zrConfigure(sim.handle, zrModeSweeping) < 0) return state.SkipWithError("configure failed");
    int length = 0;
    zrGetSweepParameters(sim.handle, nullptr, nullptr, nullptr, nullptr, &length);
    std::vector<float> mn(static_cast<size_t>(length)), mx(static_cast<size_t>(length));
    const zr::SweepPlan& plan = dynamic_cast<zr::EngineSweepController&>(*zr::lookupDevice(sim.handle)->engine).plan();
    const double samples = double(plan.stepCount) * plan.passes * plan.blocksPerStep * 2048;
    const double blocks = samples / 2048 + 4;

    zrGetSweep(sim.handle, mn.data(), mx.data(), nullptr);  // first use allocates the traces
    zr::bench::resetEngineAllocations();
    for (auto _ : state) {
        zr::bench::countCaller(true);
        zrGetSweep(sim.handle, mn.data(), mx.data(), nullptr);
        zr::bench::countCaller(false);
    }
    const double sweeps = double(state.iterations());
    state.counters["MS/s"] = benchmark::Counter(sweeps * samples / 1e6, benchmark::Counter::kIsRate);
    state.counters["allocs_per_block"] = double(zr::bench::engineAllocations()) / (sweeps * blocks);
    state.counters["bins"] = length;
}
BENCHMARK(BM_FullSpanSweep)->Arg(1000000)->Arg(100000)->Arg(30000)->Arg(10000)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);

// Allocations of the engine alone: the device talks to the instrument
// through SimTransport, whose slots and queues are fixed, so every counted
// allocation on the engine's threads or in the caller is the library's. (The
// simulated USB bus above queues OUT transfers in a deque on the caller's
// thread of BeginWrite, which shows there as about two allocations a sweep.)
void BM_FullSpanOnSimTransport(benchmark::State& state) {
    zrSimAttachUSB(zrDeviceTypeMesa2, kSerial + 1);
    auto inst = zr::sim::findInstrument(kSerial + 1);
    inst->setRunning(true);
    inst->setPaced(false);
    zr::ZrDevice dev(std::make_unique<zr::sim::SimTransport>(inst));
    setSweep(dev, 1.03e10, 2.05e10, double(state.range(0)));
    zr::SweepPlan plan;
    zr::CommandList list;
    zr::buildControllerPlan(dev, plan, list);
    const double blocks = double(plan.stepCount) * plan.passes * plan.blocksPerStep + 4;
    {
        zr::EngineSweepController engine(dev, dev.sweep, plan, list);
        std::vector<float> mn(static_cast<size_t>(dev.sweep.sweepLength));
        engine.getSweep(mn.data(), nullptr, nullptr);
        zr::bench::resetEngineAllocations();
        for (auto _ : state) {
            zr::bench::countCaller(true);
            engine.getSweep(mn.data(), mn.data(), nullptr);
            zr::bench::countCaller(false);
        }
        state.counters["allocs_per_block"] = double(zr::bench::engineAllocations()) / (double(state.iterations()) * blocks);
        state.counters["MS/s"] =
            benchmark::Counter(double(state.iterations()) * (blocks - 4) * 2048 / 1e6, benchmark::Counter::kIsRate);
    }
    dev.transport.reset();
    zrSimDetach(kSerial + 1);
}
BENCHMARK(BM_FullSpanOnSimTransport)->Arg(1000000)->Arg(100000)->Arg(30000)->Arg(10000)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(1.0);

// The work threads' arithmetic alone: one pass of one step per iteration,
// on one thread; the engine runs two of these.
void BM_StepProcessing(benchmark::State& state) {
    zr::ZrDevice dev(nullptr);
    setSweep(dev, 1e9, 2e8, double(state.range(0)));
    zr::SweepPlan plan;
    zr::CommandList list;
    zr::buildControllerPlan(dev, plan, list);
    zr::SpectrumProcessor proc(dev.sweep, plan);
    const size_t n = size_t(plan.blocksPerStep) * 2048;
    std::vector<zr::cf32> samples(n);
    std::mt19937 rng(1);
    std::normal_distribution<float> d(0.0f, 0.1f);
    for (auto& s : samples) s = zr::cf32(d(rng), d(rng));
    std::vector<float> mn(static_cast<size_t>(plan.fftSize)), mx(static_cast<size_t>(plan.fftSize));
    for (auto _ : state) {
        proc.processPass(samples.data(), mn.data(), mx.data());
        zr::applyStepGain(plan.steps[0], dev.sweep.scale, mn.data(), mx.data(), plan.fftSize);
        benchmark::DoNotOptimize(mn.data());
    }
    state.counters["MS/s"] = benchmark::Counter(double(state.iterations()) * double(n) / 1e6, benchmark::Counter::kIsRate);
    state.counters["fft"] = plan.fftSize;
}
BENCHMARK(BM_StepProcessing)->Arg(1000000)->Arg(100000)->Arg(30000)->Arg(10000)->Unit(benchmark::kMicrosecond);

}  // namespace
