// FIR primitives. Short filters run directly over a buffer that joins the
// delay line to the new samples; long ones (complex and real f32) run by FFT
// overlap-save. Either way the caller's delay line carries the last len - 1
// inputs, oldest first, from call to call.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>

#include "dsp/dsp.h"
#include "dsp/dsp_dispatch.h"
#include "dsp/fft_kernels.h"

namespace zr {

void fftRun(const cf32* src, cf32* dst, const DspFFTSpec* spec, uint8_t* work, float scale);

namespace fftk {
void firComplexPortable(const cf32* xc, cf32* yc, int count, const cf32* hrc, int taps) {
    const float* x = reinterpret_cast<const float*>(xc);
    float* y = reinterpret_cast<float*>(yc);
    const float* hr = reinterpret_cast<const float*>(hrc);
    for (int n = 0; n < count; ++n) {
        float re = 0.0f, im = 0.0f;
        const float* s = x + 2 * size_t(n);
        for (int j = 0; j < taps; ++j) {
            re += s[2 * j] * hr[2 * j] - s[2 * j + 1] * hr[2 * j + 1];
            im += s[2 * j] * hr[2 * j + 1] + s[2 * j + 1] * hr[2 * j];
        }
        y[2 * n] = re;
        y[2 * n + 1] = im;
    }
}
}  // namespace fftk

struct DspFIRSpec {
    int dataType;
    int len;
    bool useFFT;
    int fftLen;      // L
    int fftBlock;    // new samples per transform: L - (len - 1)
    size_t fftWorkBytes;
    void* rtaps;     // taps in reverse order, in the element type
    DspFFTSpec* fft;
    cf32* H;         // scaled transform of the zero-padded taps
};

namespace {

constexpr int kDirectChunk = 2048;
constexpr int kComplexFFTThreshold = 128;
constexpr int kRealFFTThreshold = 256;

constexpr size_t roundUp(size_t v) { return (v + kDspAlign - 1) / kDspAlign * kDspAlign; }

template <class T>
T* alignPtr(T* p) {
    return reinterpret_cast<T*>((reinterpret_cast<uintptr_t>(p) + kDspAlign - 1) &
                                ~uintptr_t(kDspAlign - 1));
}

size_t elemSize(int dataType) {
    switch (dataType) {
        case kFirReal32: return sizeof(float);
        case kFirComplex32: return sizeof(cf32);
        case kFirReal64: return sizeof(double);
        default: return 0;
    }
}

bool fftCandidate(int len, int dataType) {
    if (dataType == kFirComplex32) return len >= kComplexFFTThreshold;
    if (dataType == kFirReal32) return len >= kRealFFTThreshold;
    return false;  // f64 filters are short in this system; they stay direct
}

int fftOrderFor(int len) {
    int order = 6;
    while ((1 << order) < 4 * (len - 1)) ++order;
    return order;
}

struct Sizes {
    size_t spec;
    size_t buf;
    size_t fftSpecBytes;
    size_t fftWorkBytes;
    int order;
};

bool computeSizes(int len, int dataType, Sizes& s) {
    const size_t es = elemSize(dataType);
    if (es == 0 || len < 1) return false;
    s = Sizes{};
    s.spec = roundUp(sizeof(DspFIRSpec)) + roundUp(es * size_t(len)) + kDspAlign;
    s.buf = roundUp(es * size_t(len - 1 + kDirectChunk)) + kDspAlign;
    if (fftCandidate(len, dataType)) {
        s.order = fftOrderFor(len);
        int specSize = 0, initSize = 0, workSize = 0;
        if (dspFFTGetSize(s.order, 1, 1, specSize, initSize, workSize) != 0) return false;
        const size_t L = size_t(1) << s.order;
        s.fftSpecBytes = roundUp(size_t(specSize));
        s.fftWorkBytes = roundUp(size_t(workSize));
        s.spec += s.fftSpecBytes + 2 * roundUp(L * sizeof(cf32));  // H and init scratch
        const size_t fftBuf = 2 * roundUp(L * sizeof(cf32)) + s.fftWorkBytes + kDspAlign;
        s.buf = std::max(s.buf, fftBuf);
    }
    return true;
}

template <class T>
int initCommon(const T* taps, int len, int algorithm, uint8_t* mem, int dataType) {
    Sizes sz;
    if (!taps || !mem || !computeSizes(len, dataType, sz)) return -1;
    uint8_t* base = alignPtr(mem);
    auto* spec = new (base) DspFIRSpec{};
    spec->dataType = dataType;
    spec->len = len;
    uint8_t* p = base + roundUp(sizeof(DspFIRSpec));
    T* rt = reinterpret_cast<T*>(p);
    for (int j = 0; j < len; ++j) rt[j] = taps[len - 1 - j];
    spec->rtaps = rt;
    p += roundUp(sizeof(T) * size_t(len));
    const bool fftOk = fftCandidate(len, dataType);
    spec->useFFT = fftOk && (algorithm == 0 || algorithm == 2);
    if (spec->useFFT) {
        const int L = 1 << sz.order;
        DspFFTSpec* fs = nullptr;
        if (dspFFTInit(fs, sz.order, 1, 1, p, nullptr) != 0) return -1;
        p += sz.fftSpecBytes;
        spec->fft = fs;
        spec->fftLen = L;
        spec->fftBlock = L - (len - 1);
        spec->fftWorkBytes = sz.fftWorkBytes;
        spec->H = reinterpret_cast<cf32*>(p);
        p += roundUp(size_t(L) * sizeof(cf32));
        // The init scratch doubles as the transform's work buffer here.
        uint8_t* scratch = p;
        for (int i = 0; i < L; ++i) spec->H[i] = cf32(0.0f, 0.0f);
        for (int j = 0; j < len; ++j) spec->H[j] = cf32(taps[j]);
        // The scratch area is L complex values plus alignment slack, which is
        // exactly the work size of an order-sz.order transform.
        fftRun(spec->H, spec->H, fs, scratch, 1.0f / float(L));
    }
    return 0;
}

// Overlap-save over complex samples. The segment buffer's head holds the
// last len - 1 inputs on entry and on return; `load` copies c new inputs into
// the segment (as complex), `store` writes c outputs from the transformed
// segment, whose values come out conjugated.
template <class Load, class Store>
cf32* overlapSave(const DspFIRSpec* spec, int numIters, uint8_t* buffer, Load load, Store store) {
    const DspKernels& k = dspKernels();
    const int L = spec->fftLen;
    const int hist = spec->len - 1;
    uint8_t* p = alignPtr(buffer);
    cf32* seg = reinterpret_cast<cf32*>(p);
    p += roundUp(size_t(L) * sizeof(cf32));
    cf32* freq = reinterpret_cast<cf32*>(p);
    p += roundUp(size_t(L) * sizeof(cf32));
    uint8_t* work = p;
    for (int off = 0; off < numIters;) {
        const int c = std::min(spec->fftBlock, numIters - off);
        load(seg + hist, off, c);
        fftRun(seg, freq, spec->fft, work, 1.0f);
        k.mulConj(freq, spec->H, freq, L);
        fftRun(freq, freq, spec->fft, work, 1.0f);
        store(freq + hist, off, c);
        std::memmove(seg, seg + c, sizeof(cf32) * size_t(hist));
        off += c;
    }
    return seg;
}

cf32* segmentOf(uint8_t* buffer) { return reinterpret_cast<cf32*>(alignPtr(buffer)); }

template <class T, class Kernel>
void directRun(const T* src, T* dst, int numIters, const DspFIRSpec* spec, const T* dlySrc,
               T* dlyDst, uint8_t* buffer, Kernel kernel) {
    const int hist = spec->len - 1;
    T* ext = reinterpret_cast<T*>(alignPtr(buffer));
    std::memmove(ext, dlySrc, sizeof(T) * size_t(hist));
    const T* rt = static_cast<const T*>(spec->rtaps);
    for (int off = 0; off < numIters;) {
        const int c = std::min(kDirectChunk, numIters - off);
        std::memcpy(ext + hist, src + off, sizeof(T) * size_t(c));
        kernel(ext, dst + off, c, rt, spec->len);
        std::memmove(ext, ext + c, sizeof(T) * size_t(hist));
        off += c;
    }
    std::memmove(dlyDst, ext, sizeof(T) * size_t(hist));
}

template <class T>
void directRealKernel(const T* x, T* y, int count, const T* hr, int taps) {
    constexpr int kBlock = 16;
    int n = 0;
    for (; n + kBlock <= count; n += kBlock) {
        T acc[kBlock] = {};
        for (int j = 0; j < taps; ++j) {
            const T h = hr[j];
            const T* s = x + n + j;
            for (int b = 0; b < kBlock; ++b) acc[b] += h * s[b];
        }
        for (int b = 0; b < kBlock; ++b) y[n + b] = acc[b];
    }
    for (; n < count; ++n) {
        T acc = 0;
        for (int j = 0; j < taps; ++j) acc += hr[j] * x[n + j];
        y[n] = acc;
    }
}

const DspFIRSpec* specOf(const uint8_t* mem) {
    return reinterpret_cast<const DspFIRSpec*>(alignPtr(mem));
}

}  // namespace

int dspFIRGetSize(int len, int dataType, int& specSize, int& bufSize) {
    Sizes sz;
    if (!computeSizes(len, dataType, sz)) return -1;
    specSize = int(sz.spec);
    bufSize = int(sz.buf);
    return 0;
}

int dspFIRInit(const float* taps, int len, int algorithm, uint8_t* spec) {
    return initCommon(taps, len, algorithm, spec, kFirReal32);
}
int dspFIRInitComplex(const cf32* taps, int len, int algorithm, uint8_t* spec) {
    return initCommon(taps, len, algorithm, spec, kFirComplex32);
}
int dspFIRInit64f(const double* taps, int len, int algorithm, uint8_t* spec) {
    return initCommon(taps, len, algorithm, spec, kFirReal64);
}

bool dspFIRUsesFFT(const uint8_t* spec) { return specOf(spec)->useFFT; }

void dspFIRFilterComplex(const cf32* src, cf32* dst, int numIters, const uint8_t* specMem,
                         const cf32* dlySrc, cf32* dlyDst, uint8_t* buffer) {
    const DspFIRSpec* spec = specOf(specMem);
    if (numIters <= 0) {
        if (dlyDst != dlySrc) std::memmove(dlyDst, dlySrc, sizeof(cf32) * size_t(spec->len - 1));
        return;
    }
    if (spec->useFFT) {
        const size_t hist = size_t(spec->len - 1);
        std::memmove(segmentOf(buffer), dlySrc, sizeof(cf32) * hist);
        cf32* seg = overlapSave(
            spec, numIters, buffer,
            [src](cf32* s, int off, int c) {
                std::memcpy(s, src + off, sizeof(cf32) * size_t(c));
            },
            [dst](const cf32* out, int off, int c) {
                for (int i = 0; i < c; ++i) dst[off + i] = std::conj(out[i]);
            });
        std::memcpy(dlyDst, seg, sizeof(cf32) * hist);
        return;
    }
    directRun(src, dst, numIters, spec, dlySrc, dlyDst, buffer, dspKernels().firComplex);
}

void dspFIRFilter(const float* src, float* dst, int numIters, const uint8_t* specMem,
                  const float* dlySrc, float* dlyDst, uint8_t* buffer) {
    const DspFIRSpec* spec = specOf(specMem);
    const int hist = spec->len - 1;
    if (numIters <= 0) {
        if (dlyDst != dlySrc) std::memmove(dlyDst, dlySrc, sizeof(float) * size_t(hist));
        return;
    }
    if (spec->useFFT) {
        // Real samples ride in the real part; with real taps the imaginary
        // part stays zero and is dropped on the way out.
        cf32* head = segmentOf(buffer);
        for (int i = 0; i < hist; ++i) head[i] = cf32(dlySrc[i], 0.0f);
        cf32* seg = overlapSave(
            spec, numIters, buffer,
            [src](cf32* s, int off, int c) {
                for (int i = 0; i < c; ++i) s[i] = cf32(src[off + i], 0.0f);
            },
            [dst](const cf32* out, int off, int c) {
                for (int i = 0; i < c; ++i) dst[off + i] = out[i].real();
            });
        for (int i = 0; i < hist; ++i) dlyDst[i] = seg[i].real();
        return;
    }
    directRun(src, dst, numIters, spec, dlySrc, dlyDst, buffer, directRealKernel<float>);
}

void dspFIRFilter64f(const double* src, double* dst, int numIters, const uint8_t* specMem,
                     const double* dlySrc, double* dlyDst, uint8_t* buffer) {
    const DspFIRSpec* spec = specOf(specMem);
    if (numIters <= 0) {
        if (dlyDst != dlySrc) std::memmove(dlyDst, dlySrc, sizeof(double) * size_t(spec->len - 1));
        return;
    }
    directRun(src, dst, numIters, spec, dlySrc, dlyDst, buffer, directRealKernel<double>);
}

// ---- design -------------------------------------------------------------------

int dspFIRGenGetBufferSize(int len, int& size) {
    if (len < 1) return -1;
    size = int(sizeof(double) * size_t(len));
    return 0;
}

int dspFIRGenLowpass(double relFreq, double* taps, int len, int window, int normalize,
                     uint8_t* buffer) {
    if (!(relFreq >= 0.0 && relFreq <= 0.5) || len < 5 || !taps) return -1;
    double* w = buffer ? reinterpret_cast<double*>(buffer) : nullptr;
    const double centre = 0.5 * double(len - 1);
    const double span = double(len - 1);
    const double alpha = -0.5 / (1.0 + std::cos(2.0 * M_PI / span));
    double sum = 0.0;
    for (int k = 0; k < len; ++k) {
        const double m = double(k) - centre;
        const double ideal = (m == 0.0) ? 2.0 * relFreq : std::sin(2.0 * M_PI * relFreq * m) / (M_PI * m);
        double win = 1.0;
        if (window == 1) {
            win = (alpha + 1.0) / 2.0 - 0.5 * std::cos(2.0 * M_PI * k / span) -
                  (alpha / 2.0) * std::cos(4.0 * M_PI * k / span);
        }
        const double v = ideal * win;
        if (w) w[k] = v;
        taps[k] = v;
        sum += v;
    }
    if (normalize == 1 && sum != 0.0) {
        for (int k = 0; k < len; ++k) taps[k] /= sum;
    }
    return 0;
}

}  // namespace zr
