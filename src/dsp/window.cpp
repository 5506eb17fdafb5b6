#include "dsp/window.h"

#include <cmath>
#include <vector>

#include "zr_api.h"

namespace zr {

double windowBandwidthFactor(int kind) {
    switch (kind) {
        case zrWindowFlatTop: return 3.7702;
        case zrWindowNuttall: return 2.0212;
        case zrWindowBlackman: return 1.73;
        case zrWindowHamming: return 1.3628;
        case zrWindowGaussian: return 2.65;
        case zrWindowRect: return 1.0;
        default: return 1.0;
    }
}

namespace {

// The flat top and Nuttall take their cosines in single precision: their
// coefficients are defined at that accuracy.
inline double cosf32(double x) { return double(std::cos(float(x))); }

double gaussianTerm(double x, double c, double s) {
    const double u = (x - c) / s;
    return std::exp(-u * u);
}

}  // namespace

void buildWindow(int kind, double* out, int n) {
    if (n < 1) return;
    if (n == 1) {
        out[0] = 1.0;
        return;
    }
    const double m = double(n - 1);
    switch (kind) {
        case zrWindowNuttall:
            for (int i = 0; i < n; ++i) {
                const double x = M_PI * i / m;
                out[i] = 0.355768 - 0.487396 * cosf32(2 * x) + 0.144232 * cosf32(4 * x) -
                         0.012604 * cosf32(6 * x);
            }
            return;
        case zrWindowBlackman:
            for (int i = 0; i < n; ++i)
                out[i] = 0.42659 - 0.49656 * std::cos(2 * M_PI * i / m) +
                         0.076849 * std::cos(4 * M_PI * i / m);
            return;
        case zrWindowHamming:
            for (int i = 0; i < n; ++i) out[i] = 0.54 - 0.46 * std::cos(2 * M_PI * i / m);
            return;
        case zrWindowGaussian: {
            const double sigma = 0.1;
            const double c = m / 2.0;
            const double s = 2.0 * sigma * n;
            // The correction uses the integer points 0, n - 1 and -n where the
            // textbook form has half-integers; the library's numbers follow this.
            const double g0 = gaussianTerm(0.0, c, s);
            const double denom = gaussianTerm(double(n - 1), c, s) + gaussianTerm(double(-n), c, s);
            for (int i = 0; i < n; ++i)
                out[i] = gaussianTerm(i, c, s) -
                         g0 * (gaussianTerm(double(i + n), c, s) + gaussianTerm(double(i - n), c, s)) / denom;
            return;
        }
        case zrWindowRect:
            for (int i = 0; i < n; ++i) out[i] = 1.0;
            return;
        case zrWindowFlatTop:
        default:
            for (int i = 0; i < n; ++i) {
                const double x = M_PI * i / m;
                out[i] = 1.0 - 1.93 * cosf32(2 * x) + 1.29 * cosf32(4 * x) -
                         0.388 * cosf32(6 * x) + 0.028 * cosf32(8 * x);
            }
            return;
    }
}

void buildWindowReal(int kind, float* out, int n) {
    std::vector<double> w(size_t(n > 0 ? n : 0));
    buildWindow(kind, w.data(), n);
    for (int i = 0; i < n; ++i) out[i] = float(w[size_t(i)]);
}

void buildWindowComplex(int kind, cf32* out, int n) {
    std::vector<double> w(size_t(n > 0 ? n : 0));
    buildWindow(kind, w.data(), n);
    for (int i = 0; i < n; ++i) out[i] = cf32(float(w[size_t(i)]), 0.0f);
}

}  // namespace zr
