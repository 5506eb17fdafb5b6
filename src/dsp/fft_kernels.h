// Butterfly kernels of the complex f32 FFT. The portable set is plain C++;
// the wide set (fft_avx2.cpp) is compiled with AVX2/FMA and is only called
// after dspInit has seen those instructions on the processor.
#pragma once

#include "dsp/dsp.h"

namespace zr::fftk {

// One Stockham radix-4 pass: sub-transforms of length n at stride s.
// tw holds w^p, w^2p, w^3p (w = e^{-2 pi i / n}) for p < n/4, as three runs.
// Outputs are multiplied by scale (1 except on the last pass).
using Radix4Fn = void (*)(const cf32* x, cf32* y, int n, int s, const cf32* tw, float scale);
// The closing radix-2 pass (n == 2) at stride s.
using Radix2Fn = void (*)(const cf32* x, cf32* y, int s, float scale);
// y = conj(a * b) element-wise, the product step of the overlap-save filter.
using MulConjFn = void (*)(const cf32* a, const cf32* b, cf32* y, int len);

void radix4Portable(const cf32* x, cf32* y, int n, int s, const cf32* tw, float scale);
void radix2Portable(const cf32* x, cf32* y, int s, float scale);
void mulConjPortable(const cf32* a, const cf32* b, cf32* y, int len);

void radix4Avx2(const cf32* x, cf32* y, int n, int s, const cf32* tw, float scale);
void radix2Avx2(const cf32* x, cf32* y, int s, float scale);
void mulConjAvx2(const cf32* a, const cf32* b, cf32* y, int len);

// Direct complex FIR: y[n] = sum_j hr[j] * x[n + j] for n < count, where hr
// are the taps in reverse order and x holds count + taps - 1 samples.
using FirComplexFn = void (*)(const cf32* x, cf32* y, int count, const cf32* hr, int taps);
void firComplexPortable(const cf32* x, cf32* y, int count, const cf32* hr, int taps);
void firComplexAvx2(const cf32* x, cf32* y, int count, const cf32* hr, int taps);

}  // namespace zr::fftk
