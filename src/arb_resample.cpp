#include "arb_resample.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "platform/guard.h"
#include "zr_api.h"

namespace zr {

namespace {

int32_t factorial(int n) {
    // Precondition n <= 12: 12! is the largest factorial that fits.
    int32_t f = 1;
    for (int k = 2; k <= n; ++k) f *= k;
    return f;
}

double sinc(double x) {
    if (x == 0.0) return 1.0;
    return std::sin(M_PI * x) / (M_PI * x);
}

}  // namespace

double arbBesselI0(double z) {
    double sum = 0.0;
    for (int k = 0; k <= 12; ++k) {
        const double t = std::pow(z / 2.0, k) / double(factorial(k));
        sum += t * t;
    }
    return sum;
}

void buildArbResampler(ArbResampler& r, double ratio, double cutoff, double beta) {
    cutoff = std::clamp(cutoff, 0.0, 1.0);
    r.filterSize = 33;
    r.phases = 192;
    r.ratio = ratio;
    r.step = 192.0 / ratio;
    r.time = 96.0;
    r.history.fill(0.0f);
    const int n = r.filterSize * r.phases;  // 6336
    std::vector<double> proto(static_cast<size_t>(n));
    for (int i = 0; i < n; ++i) {
        const double t = -16.5 + double(i) / 192.0;
        proto[size_t(i)] = sinc(t * cutoff);
    }
    // Kaiser window, built from the middle outwards and mirrored.
    const double alpha = beta * M_PI;
    const double i0a = arbBesselI0(alpha);
    const int half = (n + 1) / 2;
    const int mid = n / 2;
    for (int i = 0; i < half; ++i) {
        const double x = 2.0 * double(i) / double(n - 1);
        const double w = arbBesselI0(alpha * std::sqrt(1.0 - x * x)) / i0a;
        proto[size_t(mid + i)] *= w;
        proto[size_t(mid - 1 - i)] *= w;
    }
    r.phaseTaps.assign(size_t(r.phases), std::vector<float>(size_t(r.filterSize)));
    for (int p = 0; p < r.phases; ++p) {
        std::vector<float>& v = r.phaseTaps[size_t(191 - p)];
        for (int k = 0; k < r.filterSize; ++k) v[size_t(k)] = float(proto[size_t(p + 192 * k)]);
        double sum = 0.0;
        for (float t : v) sum += double(t);
        for (float& t : v) t = float(double(t) / sum);
    }
}

namespace {

struct Acc {
    float i, q;
};

inline Acc dot(const float* samples, const std::vector<float>& taps) {
    Acc a{0.0f, 0.0f};
    for (size_t k = 0; k < taps.size(); ++k) {
        a.i += samples[2 * k] * taps[k];
        a.q += samples[2 * k + 1] * taps[k];
    }
    return a;
}

// One output from the samples starting at complex position i; advances time
// and, on each wrap, the position.
inline void produce(ArbResampler& r, const float* samples, int& i, float* out) {
    const int p = int(std::floor(r.time));
    const double frac = r.time - double(p);
    int p2 = p + 1;
    if (p2 == r.phases) p2 = 0;
    const Acc a = dot(samples + 2 * i, r.phaseTaps[size_t(p)]);
    const Acc b = dot(samples + 2 * (i + (p2 == 0 ? 1 : 0)), r.phaseTaps[size_t(p2)]);
    out[0] = float(double(a.i) * (1.0 - frac) + double(b.i) * frac);
    out[1] = float(double(a.q) * (1.0 - frac) + double(b.q) * frac);
    r.time += r.step;
    while (r.time >= double(r.phases)) {
        r.time -= double(r.phases);
        ++i;
    }
}

}  // namespace

int runArbResampler(ArbResampler& r, const float* src, int srcLen, float* dst, int dstLen) {
    const int fs = r.filterSize;
    if (srcLen <= fs) return 0;
    std::memcpy(r.history.data() + 2 * fs, src, sizeof(float) * 2 * size_t(fs));
    int out = 0;
    int i = 0;
    // The join of the previous block's tail with this block's head. It is
    // bounded by dstLen here too, though a caller leaving room for 33 samples
    // never reaches that bound.
    while (i < fs && out < dstLen) {
        produce(r, r.history.data(), i, dst + 2 * out);
        ++out;
    }
    i = 0;
    while (i < srcLen - fs && out < dstLen) {
        produce(r, src, i, dst + 2 * out);
        ++out;
    }
    std::memcpy(r.history.data(), src + 2 * size_t(srcLen - fs), sizeof(float) * 2 * size_t(fs));
    return out;
}

ArbResampler& segIQResampler() {
    static ArbResampler r = [] {
        ArbResampler a;
        // 245.76 MHz (an LTE-derived rate) from 250 MS/s capture data.
        buildArbResampler(a, 0.98304, 0.7, 9.0);
        return a;
    }();
    return r;
}

int& segIQSkip() {
    static int skip = 16;  // the filter's delay, removed from the stream head
    return skip;
}

}  // namespace zr

extern "C" ZR_EXPORT ZrStatus zrSegIQLTEResample(float* input, int inputLen, float* output,
                                                 int* outputLen, ZrBool clearDelayLine) {
    return zr::guarded([&] {
        if (!input || !output || !outputLen) return zrNullPtrErr;
        zr::ArbResampler& r = zr::segIQResampler();
        int& skip = zr::segIQSkip();
        // Too short a block cannot feed the filter: refuse it and keep the state.
        if (inputLen <= r.filterSize) return zrInvalidParameterErr;
        if (clearDelayLine) {
            skip = 16;
            r.history.fill(0.0f);
        }
        int produced = zr::runArbResampler(r, input, inputLen, output, std::max(*outputLen, 0));
        if (skip > 0 && produced <= skip) {
            skip -= produced;
            produced = 0;
        } else if (skip > 0) {
            std::memmove(output, output + 2 * size_t(skip), sizeof(float) * 2 * size_t(produced - skip));
            produced -= skip;
            skip = 0;
        }
        *outputLen = produced;
        return zrNoError;
    });
}
