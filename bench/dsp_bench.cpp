// Throughput of the signal-processing primitives that sit on every sample of
// a stream, with external FFTs (when installed) as yardsticks.
#include <benchmark/benchmark.h>

#include <cmath>
#include <complex>
#include <cstring>
#include <random>
#include <vector>

#include "dsp/dsp.h"
#include "dsp/filters.h"

#ifdef ZR_BENCH_FFTW
#include <fftw3.h>
#endif
#ifdef ZR_BENCH_KISS
#include <kiss_fft.h>
#endif

namespace {

using zr::cf32;

std::vector<cf32> noise(size_t n) {
    std::mt19937 rng(1);
    std::uniform_real_distribution<float> d(-1, 1);
    std::vector<cf32> v(n);
    for (auto& x : v) x = cf32(d(rng), d(rng));
    return v;
}

int orderOf(int64_t n) {
    int o = 0;
    while ((int64_t(1) << o) < n) ++o;
    return o;
}

void fftSizes(benchmark::internal::Benchmark* b) {
    for (int64_t n = 32; n <= (1 << 20); n *= 2) b->Arg(n);
    b->Arg(1 << 24);
    b->Unit(benchmark::kMicrosecond);
}

void BM_FFT(benchmark::State& state) {
    const int order = orderOf(state.range(0));
    int specSize = 0, initSize = 0, workSize = 0;
    zr::dspFFTGetSize(order, 1, 1, specSize, initSize, workSize);
    auto* specMem = static_cast<uint8_t*>(zr::dspMalloc(size_t(specSize)));
    auto* work = static_cast<uint8_t*>(zr::dspMalloc(size_t(workSize)));
    auto* data = static_cast<cf32*>(zr::dspMalloc(sizeof(cf32) * size_t(state.range(0))));
    zr::DspFFTSpec* spec = nullptr;
    zr::dspFFTInit(spec, order, 1, 1, specMem, nullptr);
    const auto x = noise(size_t(state.range(0)));
    std::memcpy(data, x.data(), sizeof(cf32) * x.size());
    for (auto _ : state) {
        zr::dspFFTForwardComplex(data, data, spec, work);
        benchmark::DoNotOptimize(data);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
    zr::dspFree(data);
    zr::dspFree(work);
    zr::dspFree(specMem);
}
BENCHMARK(BM_FFT)->Apply(fftSizes);

#ifdef ZR_BENCH_FFTW
void BM_FFT_FFTW(benchmark::State& state) {
    const int n = int(state.range(0));
    auto* data = fftwf_alloc_complex(size_t(n));
    fftwf_plan plan = fftwf_plan_dft_1d(n, data, data, FFTW_FORWARD, FFTW_MEASURE);
    const auto x = noise(size_t(n));
    std::memcpy(data, x.data(), sizeof(cf32) * x.size());  // after planning: MEASURE scribbles
    for (auto _ : state) {
        fftwf_execute(plan);
        benchmark::DoNotOptimize(data);
    }
    state.SetItemsProcessed(state.iterations() * n);
    fftwf_destroy_plan(plan);
    fftwf_free(data);
}
BENCHMARK(BM_FFT_FFTW)->Apply(fftSizes);
#endif

#ifdef ZR_BENCH_KISS
void BM_FFT_KISS(benchmark::State& state) {
    const int n = int(state.range(0));
    kiss_fft_cfg cfg = kiss_fft_alloc(n, 0, nullptr, nullptr);
    auto x = noise(size_t(n));
    std::vector<cf32> y(static_cast<size_t>(n));
    for (auto _ : state) {
        // KissFFT works out of place; the in-place request copies internally.
        kiss_fft(cfg, reinterpret_cast<kiss_fft_cpx*>(x.data()), reinterpret_cast<kiss_fft_cpx*>(x.data()));
        benchmark::DoNotOptimize(x.data());
    }
    state.SetItemsProcessed(state.iterations() * n);
    kiss_fft_free(cfg);
}
BENCHMARK(BM_FFT_KISS)->Apply(fftSizes);
#endif

// Long complex FIR followed by down-sampling, as the I/Q path runs it.
void BM_FIR_Complex2049_Decimate(benchmark::State& state) {
    const int taps = 2049;
    const int factor = int(state.range(0));
    std::vector<cf32> h(static_cast<size_t>(taps));
    zr::DesignLowPassComplex(h.data(), taps, 0.4f / float(factor));
    zr::FirFilterComplex fir;
    fir.Setup(h.data(), taps);
    const int block = 16384;
    auto x = noise(size_t(block));
    std::vector<cf32> y(static_cast<size_t>(block)), out(static_cast<size_t>(block));
    int phase = 0;
    for (auto _ : state) {
        fir.Filter(x.data(), y.data(), block);
        int n = 0;
        zr::dspSampleDownComplex(y.data(), block, out.data(), n, factor, phase);
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(state.iterations() * block);
}
BENCHMARK(BM_FIR_Complex2049_Decimate)->Arg(2)->Arg(8)->Arg(32)->Unit(benchmark::kMicrosecond);

void BM_FIR_Complex65(benchmark::State& state) {
    const int taps = 65;
    std::vector<cf32> h(static_cast<size_t>(taps));
    zr::DesignLowPassComplex(h.data(), taps, 0.2f);
    zr::FirFilterComplex fir;
    fir.Setup(h.data(), taps);
    const int block = 16384;
    auto x = noise(size_t(block));
    for (auto _ : state) {
        fir.Filter(x.data(), x.data(), block);
        benchmark::DoNotOptimize(x.data());
    }
    state.SetItemsProcessed(state.iterations() * block);
}
BENCHMARK(BM_FIR_Complex65)->Unit(benchmark::kMicrosecond);

}  // namespace
