// Complex f32 FFT (Stockham autosort, radix-4 passes with one closing radix-2
// pass for odd orders) and the small real f64 packed transform.
//
// Stockham keeps every pass a pure streaming read/write between two buffers,
// which is what the wide kernels want, and needs no bit-reversal pass. The
// caller's work buffer is the second buffer; the pass count decides which
// buffer the first pass writes so that the last pass always lands in dst.
// From 2^21 points on, the transform is split four-step into two sets of
// cache-sized Stockham transforms (see fourStepRun).
#include <algorithm>
#include <cmath>
#include <atomic>
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
    // Large sizes: four-step split n = n1 * n2 over two smaller plans.
    bool fourStep;
    int n1, n2;
    DspFFTSpec* sub1;  // length n1 (columns)
    DspFFTSpec* sub2;  // length n2 (rows)
    cf32* twHi;        // w^(4096 h), w = e^{-2 pi i / n}
    cf32* twLo;        // w^l, l < 4096
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

namespace {

// From this order on, whole-array Stockham passes stream the data through
// memory a dozen times; the four-step split does two sweeps of transposed
// blocks whose sub-transforms stay in cache.
std::atomic<int> gFourStepOrder{21};
constexpr int kFourStepBlock = 8;  // columns gathered at once: one cache line
constexpr int kTwLoBits = 12;

struct FFTLayout {
    size_t spec;
    size_t work;
};

FFTLayout fftLayout(int order) {
    FFTLayout l{};
    const size_t n = size_t(1) << order;
    l.spec = roundUp(sizeof(DspFFTSpec)) + kDspAlign;
    if (order >= gFourStepOrder.load(std::memory_order_relaxed)) {
        const int o1 = order / 2, o2 = order - order / 2;
        const FFTLayout a = fftLayout(o1), b = fftLayout(o2);
        const size_t n2 = size_t(1) << o2;
        l.spec += roundUp(a.spec) + roundUp(b.spec) +
                  roundUp((n >> kTwLoBits) * sizeof(cf32)) + roundUp((size_t(1) << kTwLoBits) * sizeof(cf32));
        // Intermediate array, a gathered block of rows, and the rows' work.
        l.work = roundUp(n * sizeof(cf32)) + roundUp(kFourStepBlock * n2 * sizeof(cf32)) +
                 roundUp(std::max(a.work, b.work)) + kDspAlign;
    } else {
        l.spec += roundUp(twiddleCount(order) * sizeof(cf32));
        l.work = n * sizeof(cf32) + kDspAlign;
    }
    return l;
}

uint8_t* alignUp(uint8_t* p) {
    return reinterpret_cast<uint8_t*>((reinterpret_cast<uintptr_t>(p) + kDspAlign - 1) &
                                      ~uintptr_t(kDspAlign - 1));
}

// Builds a spec at specMem (aligned inside), returns it.
DspFFTSpec* buildSpec(int order, uint8_t* specMem) {
    uint8_t* base = alignUp(specMem);
    auto* sp = new (base) DspFFTSpec{};
    sp->order = order;
    sp->n = 1 << order;
    sp->radix4Passes = order / 2;
    uint8_t* p = base + roundUp(sizeof(DspFFTSpec));
    if (order >= gFourStepOrder.load(std::memory_order_relaxed)) {
        const int o1 = order / 2, o2 = order - order / 2;
        sp->fourStep = true;
        sp->n1 = 1 << o1;
        sp->n2 = 1 << o2;
        sp->sub1 = buildSpec(o1, p);
        p += roundUp(fftLayout(o1).spec);
        sp->sub2 = buildSpec(o2, p);
        p += roundUp(fftLayout(o2).spec);
        const size_t n = size_t(1) << order;
        const size_t hi = n >> kTwLoBits, lo = size_t(1) << kTwLoBits;
        sp->twHi = reinterpret_cast<cf32*>(p);
        p += roundUp(hi * sizeof(cf32));
        sp->twLo = reinterpret_cast<cf32*>(p);
        for (size_t h = 0; h < hi; ++h) {
            const double ang = -2.0 * M_PI * double(h << kTwLoBits) / double(n);
            sp->twHi[h] = cf32(float(std::cos(ang)), float(std::sin(ang)));
        }
        for (size_t l = 0; l < lo; ++l) {
            const double ang = -2.0 * M_PI * double(l) / double(n);
            sp->twLo[l] = cf32(float(std::cos(ang)), float(std::sin(ang)));
        }
        return sp;
    }
    sp->twiddles = reinterpret_cast<cf32*>(p);
    cf32* tw = sp->twiddles;
    for (size_t n = size_t(1) << order; n >= 4; n /= 4) {
        const size_t m = n / 4;
        for (int r = 1; r <= 3; ++r) {
            for (size_t q = 0; q < m; ++q) {
                // Reduce the index first so the angle stays small and exact.
                const size_t k = (size_t(r) * q) % n;
                const double ang = -2.0 * M_PI * double(k) / double(n);
                tw[q] = cf32(float(std::cos(ang)), float(std::sin(ang)));
            }
            tw += m;
        }
    }
    return sp;
}

}  // namespace

void dspFFTSetSplitOrder(int order) { gFourStepOrder.store(std::max(order, 14)); }

int dspFFTGetSize(int order, int flag, int hint, int& specSize, int& initSize, int& workSize) {
    (void)hint;
    if (order < kFFTMinOrder || order > kFFTMaxOrder || flag != 1) return -1;
    const FFTLayout l = fftLayout(order);
    if (l.spec > size_t(INT32_MAX) || l.work > size_t(INT32_MAX)) return -1;
    specSize = int(l.spec);
    initSize = 0;
    workSize = int(l.work);
    return 0;
}

int dspFFTInit(DspFFTSpec*& spec, int order, int flag, int hint, uint8_t* specMem,
               uint8_t* initMem) {
    (void)initMem;
    int specSize = 0, initSize = 0, workSize = 0;
    if (dspFFTGetSize(order, flag, hint, specSize, initSize, workSize) != 0 || !specMem) return -1;
    spec = buildSpec(order, specMem);
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
namespace {

void fourStepRun(const cf32* src, cf32* dst, const DspFFTSpec* spec, uint8_t* work, float scale);

}  // namespace

void fftRun(const cf32* src, cf32* dst, const DspFFTSpec* spec, uint8_t* work, float scale) {
    if (spec->fourStep) {
        fourStepRun(src, dst, spec, work, scale);
        return;
    }
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

namespace {

// x[n2 + N2 n1] -> X[k1 + N1 k2]: length-N1 transforms down the columns, the
// twiddle w^(n2 k1), then length-N2 transforms along the rows. Columns and
// rows are gathered kFourStepBlock at a time so every strided access moves a
// whole cache line. src is fully read before dst is written.
void fourStepRun(const cf32* src, cf32* dst, const DspFFTSpec* spec, uint8_t* work, float scale) {
    const size_t n = size_t(spec->n), n1 = size_t(spec->n1), n2 = size_t(spec->n2);
    constexpr size_t B = kFourStepBlock;
    uint8_t* p = alignWork(work);
    cf32* inter = reinterpret_cast<cf32*>(p);  // inter[n2 * N1 + k1]
    p += roundUp(n * sizeof(cf32));
    cf32* rows = reinterpret_cast<cf32*>(p);
    p += roundUp(B * n2 * sizeof(cf32));
    uint8_t* subWork = p;
    const size_t loMask = (size_t(1) << kTwLoBits) - 1;
    for (size_t c = 0; c < n2; c += B) {
        for (size_t r = 0; r < n1; ++r) {
            const cf32* in = src + r * n2 + c;
            for (size_t b = 0; b < B; ++b) rows[b * n1 + r] = in[b];
        }
        for (size_t b = 0; b < B; ++b) {
            cf32* row = rows + b * n1;
            fftRun(row, row, spec->sub1, subWork, 1.0f);
            cf32* out = inter + (c + b) * n1;
            const size_t col = c + b;
            for (size_t k1 = 0; k1 < n1; ++k1) {
                const size_t m = (col * k1) & (n - 1);
                const cf32 h = spec->twHi[m >> kTwLoBits], l = spec->twLo[m & loMask];
                const float wr = (h.real() * l.real() - h.imag() * l.imag()) * scale;
                const float wi = (h.real() * l.imag() + h.imag() * l.real()) * scale;
                const float xr = row[k1].real(), xi = row[k1].imag();
                out[k1] = cf32(xr * wr - xi * wi, xr * wi + xi * wr);
            }
        }
    }
    for (size_t c = 0; c < n1; c += B) {
        for (size_t r = 0; r < n2; ++r) {
            const cf32* in = inter + r * n1 + c;
            for (size_t b = 0; b < B; ++b) rows[b * n2 + r] = in[b];
        }
        for (size_t b = 0; b < B; ++b) {
            cf32* row = rows + b * n2;
            fftRun(row, row, spec->sub2, subWork, 1.0f);
        }
        for (size_t k2 = 0; k2 < n2; ++k2) {
            cf32* out = dst + c + k2 * n1;
            for (size_t b = 0; b < B; ++b) out[b] = rows[b * n2 + k2];
        }
    }
}

}  // namespace

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
