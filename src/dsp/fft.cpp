// Complex f32 FFT (Stockham autosort, radix-4 passes with one closing radix-2
// pass for odd orders) and the small real f64 packed transform.
//
// Stockham keeps every pass a pure streaming read/write between two buffers,
// which is what the wide kernels want, and needs no bit-reversal pass. The
// caller's work buffer is the second buffer; the pass count decides which
// buffer the first pass writes so that the last pass always lands in dst.
#include <cmath>
#include <cstring>
#include <new>

#include "dsp/dsp.h"
#include "dsp/dsp_dispatch.h"
#include "dsp/fft_kernels.h"

namespace zr {

struct DspFFTSpec {
    int order;
    int n;
    int radix4Passes;  // followed by one radix-2 pass when order is odd
    cf32* twiddles;    // all radix-4 passes, back to back
};

struct DspFFTRealSpec {
    int order;
    int n;
    double* cosTable;  // cos(2 pi k / n), k < n
    double* sinTable;
};

namespace {

constexpr size_t roundUp(size_t v) { return (v + kDspAlign - 1) / kDspAlign * kDspAlign; }

size_t twiddleCount(int order) {
    size_t total = 0;
    for (size_t n = size_t(1) << order; n >= 4; n /= 4) total += 3 * (n / 4);
    return total;
}

}  // namespace

// ---- portable kernels -------------------------------------------------------
namespace fftk {

void radix4Portable(const cf32* xc, cf32* yc, int n, int s, const cf32* twc, float scale) {
    const int m = n / 4;
    const float* x = reinterpret_cast<const float*>(xc);
    float* y = reinterpret_cast<float*>(yc);
    const float* tw = reinterpret_cast<const float*>(twc);
    const size_t S = size_t(s);
    for (int p = 0; p < m; ++p) {
        const float w1r = tw[2 * p], w1i = tw[2 * p + 1];
        const float w2r = tw[2 * (m + p)], w2i = tw[2 * (m + p) + 1];
        const float w3r = tw[2 * (2 * m + p)], w3i = tw[2 * (2 * m + p) + 1];
        const float* xa = x + 2 * S * p;
        const float* xb = x + 2 * S * (p + m);
        const float* xcp = x + 2 * S * (p + 2 * m);
        const float* xd = x + 2 * S * (p + 3 * m);
        float* y0 = y + 2 * S * (4 * size_t(p));
        float* y1 = y0 + 2 * S;
        float* y2 = y1 + 2 * S;
        float* y3 = y2 + 2 * S;
        for (size_t q = 0; q < S; ++q) {
            const float ar = xa[2 * q], ai = xa[2 * q + 1];
            const float br = xb[2 * q], bi = xb[2 * q + 1];
            const float cr = xcp[2 * q], ci = xcp[2 * q + 1];
            const float dr = xd[2 * q], di = xd[2 * q + 1];
            const float apcr = ar + cr, apci = ai + ci;
            const float amcr = ar - cr, amci = ai - ci;
            const float bpdr = br + dr, bpdi = bi + di;
            // -j (b - d)
            const float jr = bi - di, ji = dr - br;
            const float t0r = apcr + bpdr, t0i = apci + bpdi;
            const float t1r = amcr + jr, t1i = amci + ji;
            const float t2r = apcr - bpdr, t2i = apci - bpdi;
            const float t3r = amcr - jr, t3i = amci - ji;
            y0[2 * q] = t0r * scale;
            y0[2 * q + 1] = t0i * scale;
            y1[2 * q] = (t1r * w1r - t1i * w1i) * scale;
            y1[2 * q + 1] = (t1r * w1i + t1i * w1r) * scale;
            y2[2 * q] = (t2r * w2r - t2i * w2i) * scale;
            y2[2 * q + 1] = (t2r * w2i + t2i * w2r) * scale;
            y3[2 * q] = (t3r * w3r - t3i * w3i) * scale;
            y3[2 * q + 1] = (t3r * w3i + t3i * w3r) * scale;
        }
    }
}

void radix2Portable(const cf32* xc, cf32* yc, int s, float scale) {
    const float* x = reinterpret_cast<const float*>(xc);
    float* y = reinterpret_cast<float*>(yc);
    const size_t n = 2 * size_t(s);
    for (size_t q = 0; q < n; ++q) {
        const float a = x[q], b = x[q + n];
        y[q] = (a + b) * scale;
        y[q + n] = (a - b) * scale;
    }
}

void mulConjPortable(const cf32* a, const cf32* b, cf32* y, int len) {
    const float* pa = reinterpret_cast<const float*>(a);
    const float* pb = reinterpret_cast<const float*>(b);
    float* py = reinterpret_cast<float*>(y);
    for (int i = 0; i < len; ++i) {
        const float ar = pa[2 * i], ai = pa[2 * i + 1];
        const float br = pb[2 * i], bi = pb[2 * i + 1];
        py[2 * i] = ar * br - ai * bi;
        py[2 * i + 1] = -(ar * bi + ai * br);
    }
}

}  // namespace fftk

// ---- complex plan -----------------------------------------------------------

int dspFFTGetSize(int order, int flag, int hint, int& specSize, int& initSize, int& workSize) {
    (void)hint;
    if (order < kFFTMinOrder || order > kFFTMaxOrder || flag != 1) return -1;
    const size_t n = size_t(1) << order;
    const size_t spec = roundUp(sizeof(DspFFTSpec)) + roundUp(twiddleCount(order) * sizeof(cf32)) +
                        kDspAlign;
    const size_t work = n * sizeof(cf32) + kDspAlign;
    if (spec > size_t(INT32_MAX) || work > size_t(INT32_MAX)) return -1;
    specSize = int(spec);
    initSize = 0;
    workSize = int(work);
    return 0;
}

int dspFFTInit(DspFFTSpec*& spec, int order, int flag, int hint, uint8_t* specMem,
               uint8_t* initMem) {
    (void)initMem;
    int specSize = 0, initSize = 0, workSize = 0;
    if (dspFFTGetSize(order, flag, hint, specSize, initSize, workSize) != 0 || !specMem) return -1;
    uint8_t* base = reinterpret_cast<uint8_t*>(
        (reinterpret_cast<uintptr_t>(specMem) + kDspAlign - 1) & ~uintptr_t(kDspAlign - 1));
    auto* sp = new (base) DspFFTSpec{};
    sp->order = order;
    sp->n = 1 << order;
    sp->radix4Passes = order / 2;
    sp->twiddles = reinterpret_cast<cf32*>(base + roundUp(sizeof(DspFFTSpec)));
    cf32* tw = sp->twiddles;
    for (size_t n = size_t(1) << order; n >= 4; n /= 4) {
        const size_t m = n / 4;
        for (int r = 1; r <= 3; ++r) {
            for (size_t p = 0; p < m; ++p) {
                // Reduce the index first so the angle stays small and exact.
                const size_t k = (size_t(r) * p) % n;
                const double ang = -2.0 * M_PI * double(k) / double(n);
                tw[p] = cf32(float(std::cos(ang)), float(std::sin(ang)));
            }
            tw += m;
        }
    }
    spec = sp;
    return 0;
}

namespace {

uint8_t* alignWork(uint8_t* work) {
    return reinterpret_cast<uint8_t*>((reinterpret_cast<uintptr_t>(work) + kDspAlign - 1) &
                                      ~uintptr_t(kDspAlign - 1));
}

}  // namespace

// Runs all passes with the given closing scale. Also the engine of the
// inverse, which conjugates around an unscaled forward run.
void fftRun(const cf32* src, cf32* dst, const DspFFTSpec* spec, uint8_t* work, float scale) {
    const DspKernels& k = dspKernels();
    const int n = spec->n;
    cf32* wbuf = reinterpret_cast<cf32*>(alignWork(work));
    const int passes = spec->radix4Passes + (spec->order & 1);
    // Pass i writes dst when (passes - 1 - i) is even.
    const cf32* in = src;
    if ((passes & 1) && src == dst) {
        std::memcpy(wbuf, src, sizeof(cf32) * size_t(n));
        in = wbuf;
    }
    cf32* out = (passes & 1) ? dst : wbuf;
    const cf32* tw = spec->twiddles;
    int len = n, stride = 1;
    for (int i = 0; i < spec->radix4Passes; ++i) {
        const bool last = (i == passes - 1);
        k.radix4(in, out, len, stride, tw, last ? scale : 1.0f);
        tw += 3 * (len / 4);
        len /= 4;
        stride *= 4;
        in = out;
        out = (out == dst) ? wbuf : dst;
    }
    if (spec->order & 1) k.radix2(in, out, stride, scale);
}

void dspFFTForwardComplex(const cf32* src, cf32* dst, const DspFFTSpec* spec, uint8_t* work) {
    fftRun(src, dst, spec, work, 1.0f / float(spec->n));
}

void dspFFTInverseComplex(const cf32* src, cf32* dst, const DspFFTSpec* spec, uint8_t* work) {
    const int n = spec->n;
    for (int i = 0; i < n; ++i) dst[i] = std::conj(src[i]);
    fftRun(dst, dst, spec, work, 1.0f);
    for (int i = 0; i < n; ++i) dst[i] = std::conj(dst[i]);
}

// ---- real f64 packed ----------------------------------------------------------
// Only small orders are needed (the IF correction filters use 64 points), so
// the transform is a direct evaluation against an exact table: accuracy is
// what those callers ask for.
constexpr int kRealMaxOrder = 12;

int dspFFTRealGetSize(int order, int flag, int hint, int& specSize, int& initSize,
                      int& workSize) {
    (void)hint;
    if (order < 1 || order > kRealMaxOrder || flag != 1) return -1;
    const size_t n = size_t(1) << order;
    specSize = int(roundUp(sizeof(DspFFTRealSpec)) + 2 * n * sizeof(double) + kDspAlign);
    initSize = 0;
    workSize = int(n * sizeof(double) + kDspAlign);
    return 0;
}

int dspFFTRealInit(DspFFTRealSpec*& spec, int order, int flag, int hint, uint8_t* specMem,
                   uint8_t* initMem) {
    (void)initMem;
    int a = 0, b = 0, c = 0;
    if (dspFFTRealGetSize(order, flag, hint, a, b, c) != 0 || !specMem) return -1;
    uint8_t* base = alignWork(specMem);
    auto* sp = new (base) DspFFTRealSpec{};
    sp->order = order;
    sp->n = 1 << order;
    sp->cosTable = reinterpret_cast<double*>(base + roundUp(sizeof(DspFFTRealSpec)));
    sp->sinTable = sp->cosTable + sp->n;
    for (int k = 0; k < sp->n; ++k) {
        const double ang = 2.0 * M_PI * double(k) / double(sp->n);
        sp->cosTable[k] = std::cos(ang);
        sp->sinTable[k] = std::sin(ang);
    }
    spec = sp;
    return 0;
}

void dspFFTForwardRealPacked(const double* src, double* dst, const DspFFTRealSpec* spec,
                             uint8_t* work) {
    const int n = spec->n;
    double* x = reinterpret_cast<double*>(alignWork(work));
    std::memcpy(x, src, sizeof(double) * size_t(n));  // src may be dst
    const double inv = 1.0 / double(n);
    for (int k = 0; k <= n / 2; ++k) {
        double re = 0.0, im = 0.0;
        for (int t = 0; t < n; ++t) {
            const int idx = int((int64_t(k) * t) & (n - 1));
            re += x[t] * spec->cosTable[idx];
            im -= x[t] * spec->sinTable[idx];
        }
        if (k == 0) {
            dst[0] = re * inv;
        } else if (k == n / 2) {
            dst[1] = re * inv;
        } else {
            dst[2 * k] = re * inv;
            dst[2 * k + 1] = im * inv;
        }
    }
}

void dspFFTInverseRealPacked(const double* src, double* dst, const DspFFTRealSpec* spec,
                             uint8_t* work) {
    const int n = spec->n;
    double* X = reinterpret_cast<double*>(alignWork(work));
    std::memcpy(X, src, sizeof(double) * size_t(n));
    for (int t = 0; t < n; ++t) {
        double acc = X[0] + ((t & 1) ? -X[1] : X[1]);
        for (int k = 1; k < n / 2; ++k) {
            const int idx = int((int64_t(k) * t) & (n - 1));
            acc += 2.0 * (X[2 * k] * spec->cosTable[idx] - X[2 * k + 1] * spec->sinTable[idx]);
        }
        dst[t] = acc;
    }
}

}  // namespace zr
