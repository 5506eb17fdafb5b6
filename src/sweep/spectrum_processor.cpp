#include "sweep/spectrum_processor.h"

#include <cmath>
#include <new>

#include "dsp/window.h"

namespace zr {

namespace {

int log2Exact(int n) {
    int order = 0;
    while ((1 << order) < n) ++order;
    return order;
}

template <class T>
T* allocVector(size_t count) {
    void* p = dspMalloc(count * sizeof(T));
    if (!p) throw std::bad_alloc();
    return static_cast<T*>(p);
}

}  // namespace

SpectrumFFT::SpectrumFFT(ZrWindowType windowKind, int windowSize, int fftSize, ZrVideoUnits units)
    : windowKind_(windowKind), windowSize_(windowSize), fftSize_(fftSize), zeroPad_(fftSize - windowSize),
      units_(units) {
    order_ = log2Exact(fftSize);
    int specSize = 0, initSize = 0, workSize = 0;
    if (dspFFTGetSize(order_, 1, 1, specSize, initSize, workSize) != 0) throw std::bad_alloc();
    try {
        specMem_ = allocVector<uint8_t>(size_t(specSize));
        fftWork_ = allocVector<uint8_t>(size_t(workSize) + kDspAlign);
        window_ = allocVector<cf32>(size_t(fftSize));
        work_ = allocVector<cf32>(size_t(fftSize));
        if (dspFFTInit(spec_, order_, 1, 1, specMem_, nullptr) != 0) throw std::bad_alloc();

        // The window is built into the real parts of `work`, padded with
        // zeros, and scaled so that its sum is fftSize: with the 1/N of the
        // transform a full-scale tone at a bin centre then reads |X| = 1 for
        // every window and size.
        float* real = reinterpret_cast<float*>(work_);
        buildWindowReal(windowKind, real, windowSize);
        dspZero(real + windowSize, zeroPad_);
        float sum = 0.0f;
        dspSum(real, fftSize, sum, 2);
        const float scale = float(double(fftSize) / double(sum));
        for (int i = 0; i < fftSize; ++i) window_[i] = cf32(real[i] * scale, 0.0f);
    } catch (...) {
        dspFree(work_);
        dspFree(window_);
        dspFree(fftWork_);
        dspFree(specMem_);
        throw;
    }
}

SpectrumFFT::~SpectrumFFT() {
    dspFree(work_);
    dspFree(window_);
    dspFree(fftWork_);
    dspFree(specMem_);
}

void SpectrumFFT::transform(const cf32* samples, float* out) {
    dspMulComplex(samples, window_, work_, windowSize_);
    dspZeroComplex(work_ + windowSize_, zeroPad_);
    dspFFTForwardComplex(work_, work_, spec_, fftWork_);
    const int half = fftSize_ / 2;
    if (units_ == zrVideoVoltage) {
        dspMagnitude(work_ + half, out, half);
        dspMagnitude(work_, out + half, half);
        return;
    }
    dspPowerSpectrum(work_ + half, out, half);
    dspPowerSpectrum(work_, out + half, half);
    if (units_ == zrVideoLog) {
        dspLn(out, out, fftSize_);
        dspMulCInPlace(kLnToDb10, out, fftSize_);
    }
}

SpectrumProcessor::SpectrumProcessor(const ZrSweepSettings& settings, const SweepPlan& plan)
    : SpectrumFFT(settings.window, plan.windowSize, plan.fftSize, settings.videoUnits), settings_(settings),
      fftCount_(plan.fftCount), hop_(plan.fftSize / 4), vbwRatio_(plan.vbwRatio) {
    plan_ = plan;
    plan_.steps.clear();
    plan_.steps.shrink_to_fit();
    spectrum_ = allocVector<float>(size_t(fftSize_));
    try {
        videoState_ = allocVector<float>(size_t(fftSize_));
    } catch (...) {
        dspFree(spectrum_);
        throw;
    }
}

SpectrumProcessor::~SpectrumProcessor() {
    dspFree(videoState_);
    dspFree(spectrum_);
}

// v = v * (1 - c) + x * c on the video state; `spectrum` holds x and is
// consumed. A zero weight on v is skipped rather than multiplied, so a state
// of -inf dB (a silent input) cannot turn into NaN.
void SpectrumProcessor::videoUpdate(const float* x, double coefficient) {
    const float keep = float(1.0 - coefficient);
    const float take = float(coefficient);
    if (keep == 0.0f) {
        dspMulC(x, take, videoState_, fftSize_);
        return;
    }
    dspMulCInPlace(keep, videoState_, fftSize_);
    dspMulCInPlace(take, spectrum_, fftSize_);
    dspAddInPlace(spectrum_, videoState_, fftSize_);
}

void SpectrumProcessor::processPass(const cf32* samples, float* minOut, float* maxOut) {
    const int n = fftSize_;
    dspZero(minOut, n);
    dspZero(maxOut, n);
    dspZero(videoState_, n);

    if (units_ == zrVideoSample) {
        transform(samples, minOut);
        dspCopy(minOut, maxOut, n);
    } else if (settings_.detector == zrDetectorAverage) {
        for (int i = 0; i < fftCount_; ++i) {
            transform(samples + size_t(i) * hop_, spectrum_);
            dspAddInPlace(spectrum_, minOut, n);
        }
        dspMulCInPlace(float(1.0 / fftCount_), minOut, n);
        dspCopy(minOut, maxOut, n);
    } else {
        // Video filter: a running mean primes the state until its weight
        // falls to the VBW ratio; from then on every FFT is an update.
        double a = 1.0;
        int c = 2;
        bool first = true;
        for (int i = 0; i < fftCount_; ++i) {
            transform(samples + size_t(i) * hop_, spectrum_);
            if (a > vbwRatio_) {
                videoUpdate(spectrum_, a);
                a = 1.0 / c;
                ++c;
                continue;
            }
            videoUpdate(spectrum_, vbwRatio_);
            if (first) {
                dspCopy(videoState_, minOut, n);
                dspCopy(videoState_, maxOut, n);
                first = false;
            } else {
                dspMinEvery(videoState_, minOut, minOut, n);
                dspMaxEvery(videoState_, maxOut, maxOut, n);
            }
        }
    }
    convert(minOut);
    convert(maxOut);
}

void SpectrumProcessor::convert(float* x) const {
    const int n = fftSize_;
    const bool lin = settings_.scale == zrScaleLin;
    switch (units_) {
        case zrVideoLog:
            if (lin) {
                dspAddCInPlace(kDbmOfMilliVolt, x, n);
                dspMulCInPlace(kDb20ToLn, x, n);
                dspExpInPlace(x, n);
            }
            return;
        case zrVideoVoltage:
            if (lin) {
                dspMulCInPlace(kMilliVoltsFullScale, x, n);
            } else {
                dspSqr(x, x, n);
                dspLn(x, x, n);
                dspMulCInPlace(kLnToDb10, x, n);
            }
            return;
        default:  // power and sample video
            if (lin) {
                dspSqrt(x, x, n);
                dspMulCInPlace(kMilliVoltsFullScale, x, n);
            } else {
                dspLn(x, x, n);
                dspMulCInPlace(kLnToDb10, x, n);
            }
            return;
    }
}

void SpectrumProcessor::mergePasses(float* a, float* b, float* c, float* d, int start, int count) const {
    const bool log = settings_.scale == zrScaleLog;
    float* a0 = a + start;
    float* c0 = c + start;
    if (log) {
        dspMulCInPlace(kDb10ToLn, a0, count);
        dspExpInPlace(a0, count);
        dspMulCInPlace(kDb10ToLn, c0, count);
        dspExpInPlace(c0, count);
    }
    const int end = start + count;
    for (int i = start; i < end; ++i) {
        double s = 0.0;
        const int lo = i - 2 < start ? start : i - 2;
        const int hi = i + 2 >= end ? end - 1 : i + 2;
        for (int j = lo; j <= hi; ++j) s += c[j];
        if (double(a[i]) > s) {
            a[i] = c[i];
            b[i] = d[i];
        }
    }
    if (log) {
        dspLn(a0, a0, count);
        dspMulCInPlace(kLnToDb10, a0, count);
        dspLn(c0, c0, count);
        dspMulCInPlace(kLnToDb10, c0, count);
    }
}

void alignSecondPass(const SweepStep& step, ZrScale scale, float* minTrace, float* maxTrace, int count) {
    if (!step.secondPassOwnGain) return;
    const float delta = step.secondPassGainDb - step.gainDb;
    if (scale == zrScaleLog) {
        dspAddCInPlace(delta, minTrace, count);
        dspAddCInPlace(delta, maxTrace, count);
    } else {
        const float factor = float(std::pow(10.0, double(delta) * 0.05));
        dspMulCInPlace(factor, minTrace, count);
        dspMulCInPlace(factor, maxTrace, count);
    }
}

void applyStepGain(const SweepStep& step, ZrScale scale, float* minTrace, float* maxTrace, int fftSize) {
    const bool correct = step.hasBinCorrection && int(step.binCorrection.size()) >= fftSize;
    if (scale == zrScaleLog) {
        dspAddCInPlace(step.gainDb, minTrace, fftSize);
        dspAddCInPlace(step.gainDb, maxTrace, fftSize);
        if (correct) {
            dspAddInPlace(step.binCorrection.data(), minTrace, fftSize);
            dspAddInPlace(step.binCorrection.data(), maxTrace, fftSize);
        }
        return;
    }
    const float factor = float(std::pow(10.0, double(step.gainDb) * 0.05));
    dspMulCInPlace(factor, minTrace, fftSize);
    dspMulCInPlace(factor, maxTrace, fftSize);
    if (correct) {
        dspMulInPlace(step.binCorrection.data(), minTrace, fftSize);
        dspMulInPlace(step.binCorrection.data(), maxTrace, fftSize);
    }
}

}  // namespace zr
