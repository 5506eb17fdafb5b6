// AVX2/FMA versions of the FFT and FIR kernels. This file alone is compiled
// with -mavx2 -mfma (see subsystem.cmake); nothing here runs before dspInit has
// found those instructions.
#include <immintrin.h>

#include "dsp/fft_kernels.h"

namespace zr::fftk {
namespace {

// (x.re*w.re - x.im*w.im, x.re*w.im + x.im*w.re) for four complex pairs.
inline __m256 cmul(__m256 x, __m256 w) {
    const __m256 wr = _mm256_moveldup_ps(w);
    const __m256 wi = _mm256_movehdup_ps(w);
    const __m256 xs = _mm256_permute_ps(x, 0xB1);
    return _mm256_fmaddsub_ps(x, wr, _mm256_mul_ps(xs, wi));
}

// Same with the twiddle already split into broadcast real and imaginary parts.
inline __m256 cmulSplit(__m256 x, __m256 wr, __m256 wi) {
    const __m256 xs = _mm256_permute_ps(x, 0xB1);
    return _mm256_fmaddsub_ps(x, wr, _mm256_mul_ps(xs, wi));
}

// -j * v
inline __m256 mulMinusJ(__m256 v) {
    const __m256 sign = _mm256_setr_ps(0.0f, -0.0f, 0.0f, -0.0f, 0.0f, -0.0f, 0.0f, -0.0f);
    return _mm256_xor_ps(_mm256_permute_ps(v, 0xB1), sign);
}

struct Four {
    __m256 t0, t1, t2, t3;
};

inline Four butterfly(__m256 a, __m256 b, __m256 c, __m256 d) {
    const __m256 apc = _mm256_add_ps(a, c);
    const __m256 amc = _mm256_sub_ps(a, c);
    const __m256 bpd = _mm256_add_ps(b, d);
    const __m256 j = mulMinusJ(_mm256_sub_ps(b, d));
    return {_mm256_add_ps(apc, bpd), _mm256_add_ps(amc, j), _mm256_sub_ps(apc, bpd),
            _mm256_sub_ps(amc, j)};
}

}  // namespace

void radix4Avx2(const cf32* xc, cf32* yc, int n, int s, const cf32* twc, float scale) {
    const int m = n / 4;
    const float* x = reinterpret_cast<const float*>(xc);
    float* y = reinterpret_cast<float*>(yc);
    const float* tw = reinterpret_cast<const float*>(twc);
    const __m256 vs = _mm256_set1_ps(scale);
    const bool scaled = scale != 1.0f;
    if (s == 1) {
        if (m % 4 != 0) {
            radix4Portable(xc, yc, n, s, twc, scale);
            return;
        }
        // First pass: vectorise across p, then transpose 4x4 complex so the
        // four outputs of each butterfly land next to each other.
        for (int p = 0; p < m; p += 4) {
            const __m256 a = _mm256_loadu_ps(x + 2 * p);
            const __m256 b = _mm256_loadu_ps(x + 2 * (p + m));
            const __m256 c = _mm256_loadu_ps(x + 2 * (p + 2 * m));
            const __m256 d = _mm256_loadu_ps(x + 2 * (p + 3 * m));
            Four t = butterfly(a, b, c, d);
            __m256 y0 = t.t0;
            __m256 y1 = cmul(t.t1, _mm256_loadu_ps(tw + 2 * p));
            __m256 y2 = cmul(t.t2, _mm256_loadu_ps(tw + 2 * (m + p)));
            __m256 y3 = cmul(t.t3, _mm256_loadu_ps(tw + 2 * (2 * m + p)));
            if (scaled) {
                y0 = _mm256_mul_ps(y0, vs);
                y1 = _mm256_mul_ps(y1, vs);
                y2 = _mm256_mul_ps(y2, vs);
                y3 = _mm256_mul_ps(y3, vs);
            }
            const __m256d d0 = _mm256_castps_pd(y0), d1 = _mm256_castps_pd(y1);
            const __m256d d2 = _mm256_castps_pd(y2), d3 = _mm256_castps_pd(y3);
            const __m256d u0 = _mm256_unpacklo_pd(d0, d1);
            const __m256d u1 = _mm256_unpackhi_pd(d0, d1);
            const __m256d u2 = _mm256_unpacklo_pd(d2, d3);
            const __m256d u3 = _mm256_unpackhi_pd(d2, d3);
            float* out = y + 8 * size_t(p);
            _mm256_storeu_ps(out, _mm256_castpd_ps(_mm256_permute2f128_pd(u0, u2, 0x20)));
            _mm256_storeu_ps(out + 8, _mm256_castpd_ps(_mm256_permute2f128_pd(u1, u3, 0x20)));
            _mm256_storeu_ps(out + 16, _mm256_castpd_ps(_mm256_permute2f128_pd(u0, u2, 0x31)));
            _mm256_storeu_ps(out + 24, _mm256_castpd_ps(_mm256_permute2f128_pd(u1, u3, 0x31)));
        }
        return;
    }
    if (s % 4 != 0) {
        radix4Portable(xc, yc, n, s, twc, scale);
        return;
    }
    const size_t S = size_t(s);
    for (int p = 0; p < m; ++p) {
        __m256 w1r = _mm256_set1_ps(tw[2 * p]), w1i = _mm256_set1_ps(tw[2 * p + 1]);
        __m256 w2r = _mm256_set1_ps(tw[2 * (m + p)]), w2i = _mm256_set1_ps(tw[2 * (m + p) + 1]);
        __m256 w3r = _mm256_set1_ps(tw[2 * (2 * m + p)]);
        __m256 w3i = _mm256_set1_ps(tw[2 * (2 * m + p) + 1]);
        __m256 s0 = _mm256_set1_ps(1.0f);
        if (scaled) {
            // Fold the closing scale into the twiddles of this pass.
            w1r = _mm256_mul_ps(w1r, vs);
            w1i = _mm256_mul_ps(w1i, vs);
            w2r = _mm256_mul_ps(w2r, vs);
            w2i = _mm256_mul_ps(w2i, vs);
            w3r = _mm256_mul_ps(w3r, vs);
            w3i = _mm256_mul_ps(w3i, vs);
            s0 = vs;
        }
        const float* xa = x + 2 * S * p;
        const float* xb = x + 2 * S * (p + m);
        const float* xcp = x + 2 * S * (p + 2 * m);
        const float* xd = x + 2 * S * (p + 3 * m);
        float* y0 = y + 2 * S * (4 * size_t(p));
        float* y1 = y0 + 2 * S;
        float* y2 = y1 + 2 * S;
        float* y3 = y2 + 2 * S;
        for (size_t q = 0; q < 2 * S; q += 8) {
            Four t = butterfly(_mm256_loadu_ps(xa + q), _mm256_loadu_ps(xb + q),
                               _mm256_loadu_ps(xcp + q), _mm256_loadu_ps(xd + q));
            _mm256_storeu_ps(y0 + q, scaled ? _mm256_mul_ps(t.t0, s0) : t.t0);
            _mm256_storeu_ps(y1 + q, cmulSplit(t.t1, w1r, w1i));
            _mm256_storeu_ps(y2 + q, cmulSplit(t.t2, w2r, w2i));
            _mm256_storeu_ps(y3 + q, cmulSplit(t.t3, w3r, w3i));
        }
    }
}

void radix2Avx2(const cf32* xc, cf32* yc, int s, float scale) {
    if (s % 4 != 0) {
        radix2Portable(xc, yc, s, scale);
        return;
    }
    const float* x = reinterpret_cast<const float*>(xc);
    float* y = reinterpret_cast<float*>(yc);
    const size_t n = 2 * size_t(s);
    const __m256 vs = _mm256_set1_ps(scale);
    for (size_t q = 0; q < n; q += 8) {
        const __m256 a = _mm256_loadu_ps(x + q), b = _mm256_loadu_ps(x + q + n);
        _mm256_storeu_ps(y + q, _mm256_mul_ps(_mm256_add_ps(a, b), vs));
        _mm256_storeu_ps(y + q + n, _mm256_mul_ps(_mm256_sub_ps(a, b), vs));
    }
}

void mulConjAvx2(const cf32* a, const cf32* b, cf32* y, int len) {
    const float* pa = reinterpret_cast<const float*>(a);
    const float* pb = reinterpret_cast<const float*>(b);
    float* py = reinterpret_cast<float*>(y);
    const __m256 conj = _mm256_setr_ps(0.0f, -0.0f, 0.0f, -0.0f, 0.0f, -0.0f, 0.0f, -0.0f);
    int i = 0;
    for (; i + 4 <= len; i += 4) {
        const __m256 p = cmul(_mm256_loadu_ps(pa + 2 * i), _mm256_loadu_ps(pb + 2 * i));
        _mm256_storeu_ps(py + 2 * i, _mm256_xor_ps(p, conj));
    }
    if (i < len) mulConjPortable(a + i, b + i, y + i, len - i);
}

void firComplexAvx2(const cf32* xc, cf32* yc, int count, const cf32* hrc, int taps) {
    const float* x = reinterpret_cast<const float*>(xc);
    float* y = reinterpret_cast<float*>(yc);
    const float* hr = reinterpret_cast<const float*>(hrc);
    int n = 0;
    // Sixteen outputs per sweep over the taps: four accumulators, each tap
    // broadcast once and applied to four shifted loads.
    for (; n + 16 <= count; n += 16) {
        __m256 acc0 = _mm256_setzero_ps(), acc1 = _mm256_setzero_ps();
        __m256 acc2 = _mm256_setzero_ps(), acc3 = _mm256_setzero_ps();
        __m256 alt0 = _mm256_setzero_ps(), alt1 = _mm256_setzero_ps();
        __m256 alt2 = _mm256_setzero_ps(), alt3 = _mm256_setzero_ps();
        const float* xp = x + 2 * size_t(n);
        for (int j = 0; j < taps; ++j) {
            const __m256 hrv = _mm256_set1_ps(hr[2 * j]);
            const __m256 hiv = _mm256_set1_ps(hr[2 * j + 1]);
            const float* s = xp + 2 * size_t(j);
            const __m256 v0 = _mm256_loadu_ps(s), v1 = _mm256_loadu_ps(s + 8);
            const __m256 v2 = _mm256_loadu_ps(s + 16), v3 = _mm256_loadu_ps(s + 24);
            acc0 = _mm256_fmadd_ps(v0, hrv, acc0);
            acc1 = _mm256_fmadd_ps(v1, hrv, acc1);
            acc2 = _mm256_fmadd_ps(v2, hrv, acc2);
            acc3 = _mm256_fmadd_ps(v3, hrv, acc3);
            alt0 = _mm256_fmadd_ps(v0, hiv, alt0);
            alt1 = _mm256_fmadd_ps(v1, hiv, alt1);
            alt2 = _mm256_fmadd_ps(v2, hiv, alt2);
            alt3 = _mm256_fmadd_ps(v3, hiv, alt3);
        }
        // alt holds (xr*hi, xi*hi); the product needs (-xi*hi, xr*hi).
        const __m256 sign = _mm256_setr_ps(-0.0f, 0.0f, -0.0f, 0.0f, -0.0f, 0.0f, -0.0f, 0.0f);
        auto fin = [&](__m256 acc, __m256 alt) {
            return _mm256_add_ps(acc, _mm256_xor_ps(_mm256_permute_ps(alt, 0xB1), sign));
        };
        _mm256_storeu_ps(y + 2 * size_t(n), fin(acc0, alt0));
        _mm256_storeu_ps(y + 2 * size_t(n) + 8, fin(acc1, alt1));
        _mm256_storeu_ps(y + 2 * size_t(n) + 16, fin(acc2, alt2));
        _mm256_storeu_ps(y + 2 * size_t(n) + 24, fin(acc3, alt3));
    }
    if (n < count) firComplexPortable(xc + n, yc + n, count - n, hrc, taps);
}

}  // namespace zr::fftk
