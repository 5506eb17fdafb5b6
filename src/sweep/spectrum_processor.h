#pragma once
// The arithmetic of one sweep step: windowed FFTs over complex samples
// (full scale 1.0), a detector across the FFTs of a pass, the conversion to
// the caller's scale, the spur test between two passes and the step's gain.
// Everything is allocated at construction; a processor belongs to one thread.

#include <cstdint>

#include "dsp/dsp.h"
#include "sweep/sweep_plan.h"
#include "zr_api.h"

namespace zr {

// f32 constants of the dB arithmetic.
constexpr float kLnToDb10 = 4.3429446f;     // 10 / ln 10
constexpr float kDb20ToLn = 0.115129255f;   // ln 10 / 20
constexpr float kDb10ToLn = 0.23025849f;    // ln 10 / 10
constexpr float kMilliVoltsFullScale = 223.6f;  // 0 dBm into 50 ohm
constexpr float kDbmOfMilliVolt = 46.9897f;     // 20 log10(223.6)

// Windowed FFT with the halves swapped (index fftSize / 2 is zero frequency)
// and the output in the form that the video units ask for.
class SpectrumFFT {
public:
    SpectrumFFT(ZrWindowType windowKind, int windowSize, int fftSize, ZrVideoUnits units);
    ~SpectrumFFT();
    SpectrumFFT(const SpectrumFFT&) = delete;
    SpectrumFFT& operator=(const SpectrumFFT&) = delete;

    // windowSize samples in, fftSize values out: dB of power for log video,
    // magnitude for voltage, power for power and sample.
    void transform(const cf32* samples, float* out);

    int fftSize() const { return fftSize_; }
    int windowSize() const { return windowSize_; }
    const cf32* window() const { return window_; }

protected:
    int order_ = 0;
    DspFFTSpec* spec_ = nullptr;
    uint8_t* specMem_ = nullptr;
    uint8_t* fftWork_ = nullptr;
    cf32* window_ = nullptr;  // normalised so that its sum is fftSize
    cf32* work_ = nullptr;
    ZrWindowType windowKind_;
    int windowSize_;
    int fftSize_;
    int zeroPad_;
    ZrVideoUnits units_;
};

class SpectrumProcessor : public SpectrumFFT {
public:
    // The plan's steps are not needed here and are not copied.
    SpectrumProcessor(const ZrSweepSettings& settings, const SweepPlan& plan);
    ~SpectrumProcessor();

    // One pass of the plan: fftCount FFTs a quarter FFT apart (one with
    // sample video), the detector, and the conversion to the scale.
    void processPass(const cf32* samples, float* minOut, float* maxOut);

    // The spur test over `count` bins from `start`: bins of the first pass
    // that stand above the second pass's five-bin neighbourhood take the
    // second pass's values.
    void mergePasses(float* firstMax, float* firstMin, float* secondMax, float* secondMin, int start,
                     int count) const;

    // FFT-stage values to the scale's units, in place.
    void convert(float* x) const;

    const SweepPlan& plan() const { return plan_; }

private:
    void videoUpdate(const float* x, double coefficient);

    ZrSweepSettings settings_;
    SweepPlan plan_;
    int fftCount_;
    int hop_;
    double vbwRatio_;
    float* spectrum_ = nullptr;
    float* videoState_ = nullptr;
};

// The step's gain and bin correction on both traces, fftSize values each.
void applyStepGain(const SweepStep& step, ZrScale scale, float* minTrace, float* maxTrace, int fftSize);

// Brings a second pass that went through another slice's chain to the first
// pass's gain, so that the merge compares like with like.
void alignSecondPass(const SweepStep& step, ZrScale scale, float* minTrace, float* maxTrace, int count);

}  // namespace zr
