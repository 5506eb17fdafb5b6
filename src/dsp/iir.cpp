// IIR primitives: a transposed direct-form II filter with double state, and
// the Chebyshev type I designs (analog prototype, frequency transform,
// bilinear transform with pre-warping, expansion into polynomials).
#include <cmath>
#include <complex>
#include <cstring>
#include <new>
#include <vector>

#include "dsp/dsp.h"

namespace zr {

struct DspIIRState {
    int order;
    double* b;  // order + 1, normalised by a0
    double* a;  // order + 1, a[0] == 1
    double* z;  // order
};

namespace {
constexpr size_t roundUp(size_t v) { return (v + 15) / 16 * 16; }
constexpr int kMaxOrder = 32;
}  // namespace

int dspIIRGetStateSize(int order, int& size) {
    if (order < 1 || order > kMaxOrder) return -1;
    size = int(roundUp(sizeof(DspIIRState)) + sizeof(double) * size_t(3 * order + 2) + 16);
    return 0;
}

int dspIIRInit(DspIIRState*& state, const float* taps, int order, const float* dly,
               uint8_t* buffer) {
    int size = 0;
    if (!taps || !buffer || dspIIRGetStateSize(order, size) != 0) return -1;
    uint8_t* base = reinterpret_cast<uint8_t*>((reinterpret_cast<uintptr_t>(buffer) + 15) & ~uintptr_t(15));
    auto* st = new (base) DspIIRState{};
    st->order = order;
    st->b = reinterpret_cast<double*>(base + roundUp(sizeof(DspIIRState)));
    st->a = st->b + order + 1;
    st->z = st->a + order + 1;
    const double a0 = taps[order + 1] != 0.0f ? double(taps[order + 1]) : 1.0;
    for (int i = 0; i <= order; ++i) {
        st->b[i] = double(taps[i]) / a0;
        st->a[i] = double(taps[order + 1 + i]) / a0;
    }
    for (int i = 0; i < order; ++i) st->z[i] = dly ? double(dly[i]) : 0.0;
    state = st;
    return 0;
}

void dspIIRFilterInPlace(float* sd, int len, DspIIRState* st) {
    const int n = st->order;
    const double* b = st->b;
    const double* a = st->a;
    double* z = st->z;
    for (int i = 0; i < len; ++i) {
        const double x = sd[i];
        const double y = b[0] * x + z[0];
        for (int k = 1; k < n; ++k) z[k - 1] = b[k] * x - a[k] * y + z[k];
        z[n - 1] = b[n] * x - a[n] * y;
        sd[i] = float(y);
    }
}

int dspIIRGenGetBufferSize(int order, int& size) {
    if (order < 1 || order > kMaxOrder) return -1;
    size = int(sizeof(std::complex<double>) * size_t(4 * order + 4));
    return 0;
}

namespace {

using cd = std::complex<double>;

// Coefficients of prod (x - r_k), highest power first, real parts kept.
void expand(const cd* roots, int n, double* out) {
    cd c[kMaxOrder + 1];
    c[0] = 1.0;
    for (int i = 1; i <= n; ++i) c[i] = 0.0;
    for (int k = 0; k < n; ++k)
        for (int i = k + 1; i >= 1; --i) c[i] -= roots[k] * c[i - 1];
    for (int i = 0; i <= n; ++i) out[i] = c[i].real();
}

int chebyshev1(double relFreq, double ripple, int order, double* taps, int filterType,
               bool highPass) {
    if (filterType != 1 || !taps || order < 1 || order > kMaxOrder) return -1;
    if (!(relFreq > 0.0 && relFreq < 0.5) || !(ripple > 0.0)) return -1;
    const int n = order;
    const double eps = std::sqrt(std::pow(10.0, 0.1 * ripple) - 1.0);
    const double mu = std::asinh(1.0 / eps) / double(n);
    cd poles[kMaxOrder];
    cd prod = 1.0;
    for (int k = 0; k < n; ++k) {
        const double theta = M_PI * double(2 * k + 1) / double(2 * n);
        poles[k] = cd(-std::sinh(mu) * std::sin(theta), std::cosh(mu) * std::cos(theta));
        prod *= -poles[k];
    }
    double gain = prod.real();
    // Even orders start the pass band at the bottom of the ripple.
    if (n % 2 == 0) gain /= std::sqrt(1.0 + eps * eps);
    // Bilinear transform at a sample rate of 1 (s = 2 (z - 1) / (z + 1)), with
    // the edge pre-warped so that it lands exactly on relFreq.
    const double warped = 2.0 * std::tan(M_PI * relFreq);
    cd zpoles[kMaxOrder];
    cd zzeros[kMaxOrder];
    cd denom = 1.0;
    cd num = 1.0;
    for (int k = 0; k < n; ++k) {
        const cd p = highPass ? warped / poles[k] : warped * poles[k];
        if (highPass) num /= -poles[k];
        zpoles[k] = (2.0 + p) / (2.0 - p);
        denom *= (2.0 - p);
        zzeros[k] = highPass ? cd(1.0, 0.0) : cd(-1.0, 0.0);
    }
    double k0;
    if (highPass) {
        // Zeros at s = 0 map to z = 1; each contributes (2 - 0) to the gain.
        k0 = gain * num.real() * std::pow(2.0, n) / denom.real();
    } else {
        k0 = gain * std::pow(warped, n) / denom.real();
    }
    double b[kMaxOrder + 1], a[kMaxOrder + 1];
    expand(zzeros, n, b);
    expand(zpoles, n, a);
    for (int i = 0; i <= n; ++i) {
        taps[i] = b[i] * k0;
        taps[n + 1 + i] = a[i];
    }
    return 0;
}

}  // namespace

int dspIIRGenLowpass(double relFreq, double ripple, int order, double* taps, int filterType,
                     uint8_t* buffer) {
    (void)buffer;
    return chebyshev1(relFreq, ripple, order, taps, filterType, false);
}

int dspIIRGenHighpass(double relFreq, double ripple, int order, double* taps, int filterType,
                      uint8_t* buffer) {
    (void)buffer;
    return chebyshev1(relFreq, ripple, order, taps, filterType, true);
}

}  // namespace zr
