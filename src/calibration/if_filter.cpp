// The IF correction filter: a half-band-wide low-pass prototype whose
// spectrum is shaped, column by column, by the measured IF flatness, I/Q
// amplitude ratio and I/Q phase of one slice, then brought back to taps for
// the FPGA's I and Q paths.
//
// The 64-point real transforms are done here by a direct DFT in double
// precision. At this size that costs a few thousand multiplies per filter,
// which is far below the rest of a plan, and it keeps this file free of any
// FFT library's packing and scaling conventions. The packing used is the one
// the filter arithmetic is written in: DC, Nyquist, then re/im of bins 1..31;
// forward scaled by 1/64, inverse unscaled.
#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

#include "calibration/correction_set.h"

namespace zr {

namespace {

constexpr int kN = 64;

struct Twiddles {
    std::array<double, kN> cosine, sine;  // of 2 pi k / 64
};

const Twiddles& twiddles() {
    static const Twiddles t = [] {
        Twiddles w;
        for (int k = 0; k < kN; ++k) {
            w.cosine[k] = std::cos(2.0 * std::numbers::pi * k / kN);
            w.sine[k] = std::sin(2.0 * std::numbers::pi * k / kN);
        }
        return w;
    }();
    return t;
}

void forwardRealPacked64(const double* x, double* out) {
    const Twiddles& w = twiddles();
    for (int m = 0; m <= kN / 2; ++m) {
        double re = 0.0, im = 0.0;
        for (int n = 0; n < kN; ++n) {
            const int k = (m * n) % kN;
            re += x[n] * w.cosine[k];
            im -= x[n] * w.sine[k];
        }
        re /= kN;
        im /= kN;
        if (m == 0) out[0] = re;
        else if (m == kN / 2) out[1] = re;
        else {
            out[2 * m] = re;
            out[2 * m + 1] = im;
        }
    }
}

void inverseRealPacked64(const double* in, double* x) {
    const Twiddles& w = twiddles();
    for (int n = 0; n < kN; ++n) {
        double v = in[0] + ((n & 1) ? -in[1] : in[1]);
        for (int m = 1; m < kN / 2; ++m) {
            const int k = (m * n) % kN;
            v += 2.0 * (in[2 * m] * w.cosine[k] - in[2 * m + 1] * w.sine[k]);
        }
        x[n] = v;
    }
}

// Rectangular-window sinc low-pass, 63 taps, unity gain at DC.
void lowpassPrototype(double relCutoff, double* taps) {
    constexpr int kCentre = kIFFilterTaps / 2;
    double sum = 0.0;
    for (int n = 0; n < kIFFilterTaps; ++n) {
        const int m = n - kCentre;
        taps[n] = m == 0 ? 2.0 * relCutoff : std::sin(2.0 * std::numbers::pi * relCutoff * m) / (std::numbers::pi * m);
        sum += taps[n];
    }
    for (int n = 0; n < kIFFilterTaps; ++n) taps[n] /= sum;
}

float lerpExact(float a, float b, float t) {
    if (t == 0.0f) return a;
    if (t == 1.0f) return b;
    return (1.0f - t) * a + t * b;
}

void multiplyBin(double* spectrum, int bin, double c, double s) {
    const double re = spectrum[2 * bin], im = spectrum[2 * bin + 1];
    spectrum[2 * bin] = re * c - im * s;
    spectrum[2 * bin + 1] = re * s + im * c;
}

template <class Image>
void buildIFFilter(const Image& im, int ti, float t, int slice, float* taps, bool narrow, double* gainDb) {
    float R[kCalIFColumns], P[kCalIFColumns], F[kCalIFColumns];
    for (int k = 0; k < kCalIFColumns; ++k) {
        R[k] = lerpExact(im.ifRatio[ti][slice][k], im.ifRatio[ti + 1][slice][k], t);
        P[k] = lerpExact(im.ifPhase[ti][slice][k], im.ifPhase[ti + 1][slice][k], t);
        F[k] = lerpExact(im.ifFlatness[ti][slice][k], im.ifFlatness[ti + 1][slice][k], t);
    }
    // Columns beyond the usable IF width were measured in the roll-off; the
    // last good column stands in for them. The lowest slices see less of
    // the IF (the band edge at DC).
    int good = narrow ? 15 : 25;
    if (slice < 4) good = 23;
    if (slice == 4) good = 9;

    double proto[kN] = {};
    lowpassPrototype(static_cast<double>(0.45f), proto);
    double SI[kN], SQ[kN];
    forwardRealPacked64(proto, SI);
    std::copy(SI, SI + kN, SQ);

    // DC balance: the I/Q ratio at DC extrapolated from the first two columns.
    const float r0 = std::sqrt(2.0f * R[0] - R[1]);
    SI[0] /= r0;
    SQ[0] *= r0;

    for (int k = 0; k < kN / 2 - 1; ++k) {
        const int j = std::min(k, good - 1);
        const int bin = k + 1;
        const double s = std::sqrt(std::pow(10.0, F[j] / 10.0));
        SI[2 * bin] *= s;
        SI[2 * bin + 1] *= s;
        SQ[2 * bin] *= s;
        SQ[2 * bin + 1] *= s;
        if (k == 0) {
            SI[0] *= s;
            SQ[0] *= s;
        }
        const float r = std::sqrt(R[j]);
        SI[2 * bin] /= r;
        SI[2 * bin + 1] /= r;
        SQ[2 * bin] *= r;
        SQ[2 * bin + 1] *= r;

        // Half the phase error goes to each path, in opposite directions.
        const float half = P[j] / 2.0f;
        multiplyBin(SI, bin, std::cos(-half), std::sin(-half));
        multiplyBin(SQ, bin, std::cos(half), std::sin(half));
    }
    // The (DC, Nyquist) pair is multiplied by (1, 0): unchanged.

    double xI[kN], xQ[kN];
    inverseRealPacked64(SI, xI);
    inverseRealPacked64(SQ, xQ);
    float a[kIFFilterTaps], b[kIFFilterTaps];
    for (int n = 0; n < kIFFilterTaps; ++n) {
        const double hamming = 0.54 - 0.46 * std::cos(2.0 * std::numbers::pi * n / (kIFFilterTaps - 1));
        a[n] = static_cast<float>(xI[n] * hamming);
        b[n] = static_cast<float>(xQ[n] * hamming);
    }

    const float centre = std::max(a[31], b[31]);
    float A = 0.0f, B = 0.0f;
    for (int n = 0; n < kIFFilterTaps; ++n) {
        a[n] /= centre;
        b[n] /= centre;
        A += a[n];
        B += b[n];
    }
    double gain = -20.0 * std::log10(std::sqrt(static_cast<double>(A) * A + static_cast<double>(B) * B));

    // Outer taps have 16-bit registers (the three centre pairs 18 bits);
    // 0.25 of the 18-bit scale is the most an outer tap can carry, so a
    // filter with larger outer taps is scaled down and the level made up in
    // the gain.
    float peak = 0.0f;
    for (int n = 0; n < kIFFilterTaps; ++n) {
        if (n >= 30 && n <= 32) continue;
        peak = std::max({peak, std::fabs(a[n]), std::fabs(b[n])});
    }
    double scale = 1.0;
    if (peak > 0.25f) {
        scale = 0.25 / peak;
        gain += 20.0 * std::log10(1.0 / scale);
    }
    for (int n = 0; n < kIFFilterTaps; ++n) {
        taps[2 * n] = static_cast<float>(a[n] * scale);
        taps[2 * n + 1] = static_cast<float>(b[n] * scale);
    }
    if (gainDb) *gainDb = gain;
}

}  // namespace

void CorrectionSet::BuildIFFilter(int slice, float taps[kIFFilterValues], bool narrow, double* gainDb) const {
    const float t = static_cast<float>(tempFrac);
    if (isRidge) buildIFFilter(*ridge, tempIndex, t, std::clamp(slice, 0, kRidgeSlices - 1), taps, narrow, gainDb);
    else buildIFFilter(*mesa, tempIndex, t, std::clamp(slice, 0, kMesaSlices - 1), taps, narrow, gainDb);
}

}  // namespace zr
