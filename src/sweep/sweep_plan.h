#pragma once
// The plan of a sweep: FFT sizes, the per-step capture budget and one record
// per tuned slice piece. All three sweep engines share these records; fields
// that only one engine fills keep their defaults in the others.

#include <array>
#include <cstdint>
#include <vector>

#include "calibration/correction_set.h"

namespace zr {

// The instrument's sample rate of a swept slice and the slice grid.
constexpr double kSweepSampleRate = 5e7;
constexpr double kSweepSliceHz = 3.90625e7;   // 25/32 of the sample rate
constexpr int kCaptureBlockSamples = 2048;    // samples behind one 0x23 word

struct SweepStep {
    double loMHz = 0.0;                 // first LO
    int32_t ddcWord = 0;                // down-converter word of the capture word
    std::array<float, kIFFilterValues> ifFilter{};  // 63 complex taps
    int32_t decimation = 1;
    double ncoFrequency = 0.0;          // narrow-span plan only
    int32_t firstBin = 0;               // first FFT bin kept
    int32_t binCount = 0;               // FFT bins kept
    int32_t sliceNumber = 0;            // fast plan only
    float gainDb = 0.0f;
    // Spur rejection: the second pass went through another slice's chain
    // (its LO, gain code and IF filter), whose gain this is.
    bool secondPassOwnGain = false;
    float secondPassGainDb = 0.0f;
    bool hasBinCorrection = false;
    // fftSize values: dB with the log scale, voltage ratios with the linear.
    std::vector<float> binCorrection;
};

struct SweepPlan {
    int32_t fftSize = 32;
    int32_t windowSize = 32;
    int32_t zeroPad = 0;
    int32_t stepCount = 0;       // may exceed the slice count (preselector pieces)
    int32_t blocksPerStep = 1;   // capture blocks per pass of one step
    int32_t passes = 1;          // 2 with spur rejection
    double vbwRatio = 1.0;       // VBW / RBW, at most 1
    int32_t fftCount = 1;        // FFTs per pass
    int32_t usableBins = 25;
    int32_t firstUsableBin = 3;
    int32_t startBin = 0;        // sweep bin 0 in the concatenated kept bins
    float windowGainDb = 0.0f;   // fast plan only
    float fftGainDb = 0.0f;      // fast plan only
    int32_t firstKeptBin = 0;    // narrow plan only: FFT bin of sweep bin 0
    std::vector<SweepStep> steps;  // acquisition order
};

}  // namespace zr
