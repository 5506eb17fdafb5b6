#include "dsp/filters.h"

#include <algorithm>
#include <cmath>

namespace zr {

// ---- designs ------------------------------------------------------------------

void DesignLowPass(double* taps, int length, float cutoff, int window) {
    int size = 0;
    if (dspFIRGenGetBufferSize(length, size) != 0) return;
    std::vector<uint8_t> buffer(size_t(size), 0);
    dspFIRGenLowpass(double(cutoff), taps, length, window, 1, buffer.data());
}

namespace {
// Runs the design into a double copy so that a refused design leaves the
// caller's taps as they were.
bool designInto(std::vector<double>& d, int length, float cutoff) {
    if (length < 5 || !(cutoff >= 0.0f && cutoff <= 0.5f)) return false;
    d.assign(size_t(length), 0.0);
    DesignLowPass(d.data(), length, cutoff, 1);
    return true;
}
}  // namespace

void DesignLowPassComplex(cf32* taps, int length, float cutoff) {
    std::vector<double> d;
    if (!designInto(d, length, cutoff)) return;
    for (int i = 0; i < length; ++i) taps[i] = cf32(float(d[size_t(i)]), 0.0f);
}

void DesignLowPassReal(float* taps, int length, float cutoff) {
    std::vector<double> d;
    if (!designInto(d, length, cutoff)) return;
    for (int i = 0; i < length; ++i) taps[i] = float(d[size_t(i)]);
}

namespace {
void designIir(double relFreq, double ripple, int order, float* taps, bool high) {
    int size = 0;
    if (dspIIRGenGetBufferSize(order, size) != 0) return;
    std::vector<uint8_t> buffer(size_t(size), 0);
    std::vector<double> d(size_t(2 * order + 2));
    const int rc = high ? dspIIRGenHighpass(relFreq, ripple, order, d.data(), 1, buffer.data())
                        : dspIIRGenLowpass(relFreq, ripple, order, d.data(), 1, buffer.data());
    if (rc != 0) return;
    for (size_t i = 0; i < d.size(); ++i) taps[i] = float(d[i]);
}
}  // namespace

void DesignIirLowPass(double relFreq, double ripple, int order, float* taps) {
    designIir(relFreq, ripple, order, taps, false);
}
void DesignIirHighPass(double relFreq, double ripple, int order, float* taps) {
    designIir(relFreq, ripple, order, taps, true);
}

// ---- FIR objects ----------------------------------------------------------------

namespace {
int firInit(const float* t, int len, uint8_t* spec) { return dspFIRInit(t, len, 0, spec); }
int firInit(const cf32* t, int len, uint8_t* spec) { return dspFIRInitComplex(t, len, 0, spec); }
int firInit(const double* t, int len, uint8_t* spec) { return dspFIRInit64f(t, len, 0, spec); }
void firRun(const float* s, float* d, int n, const uint8_t* sp, float* dl, uint8_t* b) {
    dspFIRFilter(s, d, n, sp, dl, dl, b);
}
void firRun(const cf32* s, cf32* d, int n, const uint8_t* sp, cf32* dl, uint8_t* b) {
    dspFIRFilterComplex(s, d, n, sp, dl, dl, b);
}
void firRun(const double* s, double* d, int n, const uint8_t* sp, double* dl, uint8_t* b) {
    dspFIRFilter64f(s, d, n, sp, dl, dl, b);
}
}  // namespace

template <class T, int DataType>
bool FirFilterT<T, DataType>::Setup(const T* newTaps, int length) {
    Reset();
    int specSize = 0, bufSize = 0;
    if (!newTaps || length < 1 || dspFIRGetSize(length, DataType, specSize, bufSize) != 0)
        return false;
    taps.assign(newTaps, newTaps + length);
    specStorage.assign(size_t(specSize), 0);
    workBuffer.assign(size_t(bufSize), 0);
    if (firInit(taps.data(), length, specStorage.data()) != 0) {
        Reset();
        return false;
    }
    spec = specStorage.data();
    delayLine.assign(size_t(length - 1), T{});
    return true;
}

template <class T, int DataType>
void FirFilterT<T, DataType>::Filter(const T* src, T* dst, int n) {
    if (!spec || n <= 0) return;
    firRun(src, dst, n, spec, delayLine.data(), workBuffer.data());
}

template <class T, int DataType>
void FirFilterT<T, DataType>::Reset() {
    spec = nullptr;
    specStorage.clear();
    workBuffer.clear();
    taps.clear();
    delayLine.clear();
}

template <class T, int DataType>
bool FirFilterT<T, DataType>::usesFFT() const {
    return spec && dspFIRUsesFFT(spec);
}

template class FirFilterT<cf32, kFirComplex32>;
template class FirFilterT<float, kFirReal32>;
template class FirFilterT<double, kFirReal64>;

// ---- IIR ------------------------------------------------------------------------

bool IirFilter::Setup(const float* newTaps, int newOrder) {
    int size = 0;
    state = nullptr;
    if (!newTaps || dspIIRGetStateSize(newOrder, size) != 0) return false;
    order = newOrder;
    taps.assign(newTaps, newTaps + 2 * newOrder + 2);
    stateStorage.assign(size_t(size), 0);
    return dspIIRInit(state, taps.data(), order, nullptr, stateStorage.data()) == 0;
}

void IirFilter::Filter(float* srcDst, int n) {
    if (state && n > 0) dspIIRFilterInPlace(srcDst, n, state);
}

// ---- oscillator -----------------------------------------------------------------

double ComplexOscillator::WrapRelFreq(double f) {
    if (f < 0.0) f += 1.0;
    if (f < 0.0) f = 0.0;
    if (f > 1.0) f = 1.0;
    return f;
}

void ComplexOscillator::Configure(double newRelFreq, int newBlockLength, bool newPrecise) {
    relFreq = newRelFreq;
    blockLength = std::max(newBlockLength, 0);
    precise = newPrecise ? 1 : 0;
    phase = 0.0;
    tone64.assign(size_t(blockLength), cf64{});
    tone32.assign(size_t(blockLength), cf32{});
    relFreq = WrapRelFreq(relFreq);
}

namespace {
inline cf32 mulf(cf32 a, cf32 b) {
    return cf32(a.real() * b.real() - a.imag() * b.imag(), a.real() * b.imag() + a.imag() * b.real());
}
}  // namespace

void ComplexOscillator::generateFast(int total) {
    constexpr int kChunk = 1024;
    const double w = relFreq * 2.0 * M_PI;
    const cf32 step(float(std::cos(2.0 * M_PI * relFreq)), float(std::sin(2.0 * M_PI * relFreq)));
    for (int base = 0; base < total; base += kChunk) {
        const int n = std::min(kChunk, total - base);
        cf32* dst = tone32.data() + base;
        // Each chunk restarts from the double phase, so float rounding in the
        // recurrences lasts at most one chunk.
        dst[0] = cf32(float(std::cos(phase)), float(std::sin(phase)));
        cf32 pw[9];
        pw[1] = step;
        for (int k = 2; k <= 8; ++k) pw[k] = mulf(pw[k - 1], step);
        const int head = std::min(n, 8);
        for (int k = 1; k < head; ++k) dst[k] = mulf(dst[0], pw[k]);
        if (n > 8) {
            const int body = n / 8 * 8;
            for (int i = 8; i < body; ++i) dst[i] = mulf(dst[i - 8], pw[8]);
            for (int i = std::max(body, 8); i < n; ++i) dst[i] = mulf(dst[i - 1], step);
        }
        phase = std::fmod(double(n) * w + phase, 2.0 * M_PI);
    }
}

void ComplexOscillator::Generate(int n) {
    n = std::min(n, blockLength);
    if (n <= 0) return;
    if (precise) {
        dspToneComplex64(tone64.data(), n, 1.0, relFreq, phase, 1);
        dspConvert64fTo32f(reinterpret_cast<const double*>(tone64.data()),
                           reinterpret_cast<float*>(tone32.data()), 2 * n);
    } else {
        generateFast(n);
    }
}

void ComplexOscillator::Apply(const cf32* src, cf32* dst, int n) {
    Generate(n);
    if (relFreq == 1.0) return;
    dspMulComplex(src, tone32.data(), dst, std::min(n, blockLength));
}

}  // namespace zr
