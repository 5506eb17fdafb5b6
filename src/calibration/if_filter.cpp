// The IF correction filter: a wide low-pass prototype whose spectrum is
// shaped, column by column, by the measured IF flatness, I/Q amplitude ratio
// and I/Q phase of one slice, then brought back to taps for the FPGA's I and
// Q paths. The design runs in double precision on the 64-point real FFT of
// the signal-processing library (packed: DC, Nyquist, then re/im of bins 1
// to 31; forward scaled by 1/64, inverse unscaled).
#include <algorithm>
#include <cmath>
#include <numbers>
#include <vector>

#include "calibration/correction_set.h"
#include "dsp/dsp.h"

namespace zr {

namespace {

constexpr int kN = 64;
constexpr int kOrder = 6;
constexpr int kHintAccurate = 2;
constexpr int kWindowRect = 0;  // any window code but Blackman's
constexpr double kPrototypeCutoff = static_cast<double>(0.45f);

// Scratch for the transforms: on the stack at the sizes the library asks
// for today, on the heap should it ever ask for more.
struct FFTScratch {
    alignas(64) uint8_t specStack[2048];
    alignas(64) uint8_t initStack[256];
    alignas(64) uint8_t workStack[1024];
    std::vector<uint8_t> specHeap, initHeap, workHeap;
    uint8_t* spec = specStack;
    uint8_t* init = initStack;
    uint8_t* work = workStack;
    DspFFTRealSpec* fft = nullptr;

    FFTScratch() {
        int specSize = 0, initSize = 0, workSize = 0;
        dspFFTRealGetSize(kOrder, 1, kHintAccurate, specSize, initSize, workSize);
        if (specSize > static_cast<int>(sizeof specStack)) spec = (specHeap.resize(specSize), specHeap.data());
        if (initSize > static_cast<int>(sizeof initStack)) init = (initHeap.resize(initSize), initHeap.data());
        if (workSize > static_cast<int>(sizeof workStack)) work = (workHeap.resize(workSize), workHeap.data());
        dspFFTRealInit(fft, kOrder, 1, kHintAccurate, spec, init);
    }
};

void multiplyBin(double* spectrum, int bin, double c, double s) {
    const double re = spectrum[2 * bin], im = spectrum[2 * bin + 1];
    spectrum[2 * bin] = re * c - im * s;
    spectrum[2 * bin + 1] = re * s + im * c;
}

template <class Image>
void buildIFFilter(const Image& im, int ti, float t, int slice, float* taps, bool narrow, double* gainDb) {
    float R[kCalIFColumns], P[kCalIFColumns], F[kCalIFColumns];
    for (int k = 0; k < kCalIFColumns; ++k) {
        R[k] = mixExact(im.ifRatio[ti][slice][k], im.ifRatio[ti + 1][slice][k], t);
        P[k] = mixExact(im.ifPhase[ti][slice][k], im.ifPhase[ti + 1][slice][k], t);
        F[k] = mixExact(im.ifFlatness[ti][slice][k], im.ifFlatness[ti + 1][slice][k], t);
    }
    // Columns beyond the usable IF width were measured in the roll-off; the
    // last good column stands in for them. The lowest slices see less of
    // the IF (the band edge at DC).
    int good = narrow ? 15 : 25;
    if (slice < 4) good = 23;
    if (slice == 4) good = 9;

    FFTScratch scratch;
    double proto[kN] = {};
    double designBuffer[kIFFilterTaps];
    dspFIRGenLowpass(kPrototypeCutoff, proto, kIFFilterTaps, kWindowRect, 1, reinterpret_cast<uint8_t*>(designBuffer));
    double SI[kN], SQ[kN];
    dspFFTForwardRealPacked(proto, SI, scratch.fft, scratch.work);
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
    dspFFTInverseRealPacked(SI, xI, scratch.fft, scratch.work);
    dspFFTInverseRealPacked(SQ, xQ, scratch.fft, scratch.work);
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
