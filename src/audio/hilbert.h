#pragma once
// The sideband path's filter: y[j] += taps[t] * in[j - 2t] for every tap
// (the Hilbert filter's non-zero taps sit two samples apart). Taps
// outside keep the inner loop contiguous, so it vectorises; the wide build
// runs where dspInit chose the AVX2 kernels.

namespace zr {

void hilbertAccumulate(const double* taps, int tapCount, const double* in, double* y, int n);
void hilbertAccumulateWide(const double* taps, int tapCount, const double* in, double* y, int n);

// The generic loop, compiled once per instruction set: internal to each
// file that uses it, so the two builds never merge.
static inline void hilbertAccumulateLoop(const double* taps, int tapCount, const double* in, double* y, int n) {
    for (int t = 0; t < tapCount; ++t) {
        const double h = taps[t];
        const double* src = in - 2 * t;
        for (int j = 0; j < n; ++j) y[j] += h * src[j];
    }
}

}  // namespace zr
