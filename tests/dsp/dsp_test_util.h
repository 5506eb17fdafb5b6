// Helpers shared by the signal-processing tests: owned plan buffers and a
// double-precision reference DFT that shares no code with the library.
#pragma once

#include <cmath>
#include <complex>
#include <cstdint>
#include <memory>
#include <random>
#include <vector>

#include "dsp/dsp.h"

namespace zr::test {

struct DspBuffer {
    explicit DspBuffer(size_t n) : p(static_cast<uint8_t*>(dspMalloc(n))) {}
    ~DspBuffer() { dspFree(p); }
    DspBuffer(const DspBuffer&) = delete;
    DspBuffer& operator=(const DspBuffer&) = delete;
    uint8_t* p;
};

struct FFTPlan {
    explicit FFTPlan(int order) {
        int s = 0, i = 0, w = 0;
        ok = dspFFTGetSize(order, 1, 1, s, i, w) == 0;
        spec = std::make_unique<DspBuffer>(size_t(s));
        work = std::make_unique<DspBuffer>(size_t(w));
        ok = ok && dspFFTInit(plan, order, 1, 1, spec->p, nullptr) == 0;
    }
    bool ok = false;
    DspFFTSpec* plan = nullptr;
    std::unique_ptr<DspBuffer> spec, work;
};

inline std::vector<cf32> randomComplex(size_t n, uint32_t seed) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> d(-1.0f, 1.0f);
    std::vector<cf32> v(n);
    for (auto& x : v) x = cf32(d(rng), d(rng));
    return v;
}

// Forward DFT scaled by 1/N, in long double with the angle reduced exactly.
inline std::vector<std::complex<double>> referenceDFT(const std::vector<cf32>& x) {
    const size_t n = x.size();
    std::vector<std::complex<long double>> tw(n);
    for (size_t k = 0; k < n; ++k) {
        const long double a = -2.0L * 3.14159265358979323846264338327950288L * (long double)k / (long double)n;
        tw[k] = {std::cos(a), std::sin(a)};
    }
    std::vector<std::complex<double>> out(n);
    for (size_t k = 0; k < n; ++k) {
        std::complex<long double> acc = 0;
        for (size_t t = 0; t < n; ++t)
            acc += std::complex<long double>(x[t].real(), x[t].imag()) * tw[(k * t) % n];
        out[k] = std::complex<double>(double(acc.real() / n), double(acc.imag() / n));
    }
    return out;
}

}  // namespace zr::test
