// Element-wise primitives. These are written as plain loops that the compiler
// vectorises; the hot ones (conversion, copy, down-sampling) have no
// dependencies between elements so they vectorise at the baseline width.
#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "dsp/dsp.h"

namespace zr {

void* dspMalloc(size_t nBytes) {
    const size_t rounded = (std::max<size_t>(nBytes, 1) + kDspAlign - 1) / kDspAlign * kDspAlign;
    return std::aligned_alloc(kDspAlign, rounded);
}
void dspFree(void* ptr) { std::free(ptr); }
void dspCopyBytes(const void* src, void* dst, size_t nBytes) { std::memcpy(dst, src, nBytes); }
void dspZeroBytes(void* dst, size_t nBytes) { std::memset(dst, 0, nBytes); }

void dspCopy(const float* src, float* dst, int len) { std::memcpy(dst, src, sizeof(float) * size_t(len)); }
void dspMove(const float* src, float* dst, int len) { std::memmove(dst, src, sizeof(float) * size_t(len)); }
void dspZero(float* dst, int len) { std::fill(dst, dst + len, 0.0f); }
void dspSet(float value, float* dst, int len) { std::fill(dst, dst + len, value); }
void dspCopyComplex(const cf32* src, cf32* dst, int len) { std::memcpy(dst, src, sizeof(cf32) * size_t(len)); }
void dspMoveComplex(const cf32* src, cf32* dst, int len) { std::memmove(dst, src, sizeof(cf32) * size_t(len)); }
void dspZeroComplex(cf32* dst, int len) { std::memset(static_cast<void*>(dst), 0, sizeof(cf32) * size_t(len)); }
void dspCopy64f(const double* src, double* dst, int len) { std::memcpy(dst, src, sizeof(double) * size_t(len)); }
void dspZero64f(double* dst, int len) { std::fill(dst, dst + len, 0.0); }
void dspCopyComplex64(const cf64* src, cf64* dst, int len) { std::memcpy(static_cast<void*>(dst), src, sizeof(cf64) * size_t(len)); }
void dspSetComplex64(const cf64* value, cf64* dst, int len) { std::fill(dst, dst + len, *value); }
void dspCopy16sc(const ci16* src, ci16* dst, int len) { std::memcpy(dst, src, sizeof(ci16) * size_t(len)); }
void dspCopyInt(const int32_t* src, int32_t* dst, int len) { std::memcpy(dst, src, sizeof(int32_t) * size_t(len)); }
void dspZeroInt(int32_t* dst, int len) { std::fill(dst, dst + len, 0); }
void dspSetInt(int32_t value, int32_t* dst, int len) { std::fill(dst, dst + len, value); }

void dspAdd(const float* a, const float* b, float* d, int len) { for (int i = 0; i < len; ++i) d[i] = a[i] + b[i]; }
void dspMul(const float* a, const float* b, float* d, int len) { for (int i = 0; i < len; ++i) d[i] = a[i] * b[i]; }
void dspAddC(const float* s, float v, float* d, int len) { for (int i = 0; i < len; ++i) d[i] = s[i] + v; }
void dspMulC(const float* s, float v, float* d, int len) { for (int i = 0; i < len; ++i) d[i] = s[i] * v; }
void dspAddInPlace(const float* s, float* sd, int len) { for (int i = 0; i < len; ++i) sd[i] += s[i]; }
void dspMulInPlace(const float* s, float* sd, int len) { for (int i = 0; i < len; ++i) sd[i] *= s[i]; }
void dspAddCInPlace(float v, float* sd, int len) { for (int i = 0; i < len; ++i) sd[i] += v; }
void dspMulCInPlace(float v, float* sd, int len) { for (int i = 0; i < len; ++i) sd[i] *= v; }
void dspSqr(const float* s, float* d, int len) { for (int i = 0; i < len; ++i) d[i] = s[i] * s[i]; }
void dspSqrt(const float* s, float* d, int len) { for (int i = 0; i < len; ++i) d[i] = std::sqrt(s[i]); }
void dspExp(const float* s, float* d, int len) { for (int i = 0; i < len; ++i) d[i] = std::exp(s[i]); }
void dspExpInPlace(float* sd, int len) { for (int i = 0; i < len; ++i) sd[i] = std::exp(sd[i]); }
void dspLn(const float* s, float* d, int len) { for (int i = 0; i < len; ++i) d[i] = std::log(s[i]); }
void dspMaxEvery(const float* a, const float* b, float* d, int len) { for (int i = 0; i < len; ++i) d[i] = a[i] > b[i] ? a[i] : b[i]; }
void dspMinEvery(const float* a, const float* b, float* d, int len) { for (int i = 0; i < len; ++i) d[i] = a[i] < b[i] ? a[i] : b[i]; }

void dspMulComplex(const cf32* a, const cf32* b, cf32* d, int len) {
    const float* pa = reinterpret_cast<const float*>(a);
    const float* pb = reinterpret_cast<const float*>(b);
    float* pd = reinterpret_cast<float*>(d);
    for (int i = 0; i < len; ++i) {
        const float ar = pa[2 * i], ai = pa[2 * i + 1], br = pb[2 * i], bi = pb[2 * i + 1];
        pd[2 * i] = ar * br - ai * bi;
        pd[2 * i + 1] = ar * bi + ai * br;
    }
}
void dspMulComplex64(const cf64* a, const cf64* b, cf64* d, int len) {
    const double* pa = reinterpret_cast<const double*>(a);
    const double* pb = reinterpret_cast<const double*>(b);
    double* pd = reinterpret_cast<double*>(d);
    for (int i = 0; i < len; ++i) {
        const double ar = pa[2 * i], ai = pa[2 * i + 1], br = pb[2 * i], bi = pb[2 * i + 1];
        pd[2 * i] = ar * br - ai * bi;
        pd[2 * i + 1] = ar * bi + ai * br;
    }
}
void dspMulReal64(const double* a, const double* b, double* d, int len) { for (int i = 0; i < len; ++i) d[i] = a[i] * b[i]; }
void dspMagnitude(const cf32* s, float* d, int len) {
    const float* p = reinterpret_cast<const float*>(s);
    for (int i = 0; i < len; ++i) d[i] = std::sqrt(p[2 * i] * p[2 * i] + p[2 * i + 1] * p[2 * i + 1]);
}
void dspPowerSpectrum(const cf32* s, float* d, int len) {
    const float* p = reinterpret_cast<const float*>(s);
    for (int i = 0; i < len; ++i) d[i] = p[2 * i] * p[2 * i] + p[2 * i + 1] * p[2 * i + 1];
}
void dspPhaseComplex(const cf32* s, float* d, int len) {
    for (int i = 0; i < len; ++i) d[i] = std::atan2(s[i].imag(), s[i].real());
}
void dspAddInt(const int32_t* a, const int32_t* b, int32_t* d, int len) {
    for (int i = 0; i < len; ++i) d[i] = int32_t(uint32_t(a[i]) + uint32_t(b[i]));
}
void dspSubInt(const int32_t* s, const int32_t* sd1, int32_t* d, int len, int scale) {
    for (int i = 0; i < len; ++i) {
        int64_t v = int64_t(sd1[i]) - int64_t(s[i]);
        if (scale > 0) v >>= scale;
        d[i] = int32_t(std::clamp<int64_t>(v, INT32_MIN, INT32_MAX));
    }
}
void dspMulCInt16InPlace(int16_t val, int16_t* sd, int len) {
    for (int i = 0; i < len; ++i) sd[i] = int16_t(std::clamp<int32_t>(int32_t(sd[i]) * val, INT16_MIN, INT16_MAX));
}

void dspSum(const float* s, int len, float& sum, int hint) {
    if (hint == 2) {
        double acc = 0.0;
        for (int i = 0; i < len; ++i) acc += s[i];
        sum = float(acc);
        return;
    }
    // Eight partial sums: vectorises and loses less than one running sum.
    float part[8] = {};
    int i = 0;
    for (; i + 8 <= len; i += 8)
        for (int k = 0; k < 8; ++k) part[k] += s[i + k];
    float acc = 0.0f;
    for (float p : part) acc += p;
    for (; i < len; ++i) acc += s[i];
    sum = acc;
}
void dspSumComplex(const cf32* s, int len, cf32& sum, int hint) {
    (void)hint;
    double re = 0.0, im = 0.0;
    for (int i = 0; i < len; ++i) {
        re += s[i].real();
        im += s[i].imag();
    }
    sum = cf32(float(re), float(im));
}
void dspSum64f(const double* s, int len, double& sum) {
    double acc = 0.0;
    for (int i = 0; i < len; ++i) acc += s[i];
    sum = acc;
}
void dspMax(const float* s, int len, float& max) {
    float m = -FLT_MAX;
    for (int i = 0; i < len; ++i) m = s[i] > m ? s[i] : m;
    max = m;
}

void dspConvert16sTo32fScaled(const int16_t* s, float* d, int len, int scaleExp) {
    const float k = std::ldexp(1.0f, -scaleExp);
    for (int i = 0; i < len; ++i) d[i] = float(s[i]) * k;
}

namespace {
// Round as the library rounds everywhere, floor(x + 0.5), or truncate.
template <class Out>
Out convertSaturate(float v, float k, int round) {
    constexpr double lo = double(std::numeric_limits<Out>::min());
    constexpr double hi = double(std::numeric_limits<Out>::max());
    double x = double(v) * double(k);
    x = round ? std::floor(x + 0.5) : std::trunc(x);
    if (!(x >= lo)) return std::isnan(x) ? Out(0) : std::numeric_limits<Out>::min();
    if (x > hi) return std::numeric_limits<Out>::max();
    return Out(x);
}
}  // namespace

void dspConvert32fTo16sScaled(const float* s, int16_t* d, int len, int round, int scaleExp) {
    const float k = std::ldexp(1.0f, -scaleExp);
    for (int i = 0; i < len; ++i) d[i] = convertSaturate<int16_t>(s[i], k, round);
}
void dspConvert32fTo32sScaled(const float* s, int32_t* d, int len, int round, int scaleExp) {
    const float k = std::ldexp(1.0f, -scaleExp);
    for (int i = 0; i < len; ++i) d[i] = convertSaturate<int32_t>(s[i], k, round);
}
void dspConvert64fTo32f(const double* s, float* d, int len) { for (int i = 0; i < len; ++i) d[i] = float(s[i]); }

template <class T>
static void sampleDown(const T* src, int srcLen, T* dst, int& dstLen, int factor, int& phase) {
    int k = 0;
    int i = phase;
    for (; i < srcLen; i += factor) dst[k++] = src[i];
    dstLen = k;
    phase = i - srcLen;
}
void dspSampleDown(const float* src, int srcLen, float* dst, int& dstLen, int factor, int& phase) {
    sampleDown(src, srcLen, dst, dstLen, factor, phase);
}
void dspSampleDownComplex(const cf32* src, int srcLen, cf32* dst, int& dstLen, int factor, int& phase) {
    sampleDown(src, srcLen, dst, dstLen, factor, phase);
}

void dspToneComplex64(cf64* dst, int len, double magnitude, double relFreq, double& phase, int hint) {
    (void)hint;
    const double w = 2.0 * M_PI * relFreq;
    for (int n = 0; n < len; ++n) {
        // Each sample from its own angle: no drift however long the block.
        const double a = w * double(n) + phase;
        dst[n] = cf64(magnitude * std::cos(a), magnitude * std::sin(a));
    }
    phase = std::fmod(w * double(len) + phase, 2.0 * M_PI);
}

void dspTranspose32f(const float* src, int srcStepBytes, float* dst, int dstStepBytes, int width,
                     int height) {
    const auto* s = reinterpret_cast<const uint8_t*>(src);
    auto* d = reinterpret_cast<uint8_t*>(dst);
    for (int r = 0; r < height; ++r) {
        const float* row = reinterpret_cast<const float*>(s + size_t(r) * size_t(srcStepBytes));
        for (int c = 0; c < width; ++c)
            reinterpret_cast<float*>(d + size_t(c) * size_t(dstStepBytes))[r] = row[c];
    }
}

void dspWinBlackmanStd64f(double* sd, int len) {
    if (len < 2) return;
    const double m = double(len - 1);
    for (int n = 0; n < len; ++n)
        sd[n] *= 0.42 - 0.5 * std::cos(2.0 * M_PI * n / m) + 0.08 * std::cos(4.0 * M_PI * n / m);
}

}  // namespace zr
