// Peak table of a trace: the strongest local maxima that stand clear of the
// noise floor and of each other.
#pragma once

#include <vector>

namespace zrtool {

struct Peak {
    int bin;
    double frequency;  // Hz
    float level;       // dBm
};

struct PeakSearch {
    int maxPeaks = 5;
    // A peak is the highest bin within this many bins on either side, so one
    // tone's skirt never shows up as a second peak.
    int separationBins = 3;
    // dB above the trace's median, which stands for the noise floor. A
    // single sweep's noise spreads wide in dB; its peaks would pass a fixed
    // margin, so the margin grows to three times the spread below the
    // median (median minus the 10th percentile) where that is larger.
    float minProminence = 10.0f;
    float spreadFactor = 3.0f;
};

// Strongest first. Equal levels inside one window count once (the first).
// `threshold`, when given, receives the level a peak had to reach.
std::vector<Peak> findPeaks(const float* levels, int count, double startHz, double binHz,
                            const PeakSearch& search, float* threshold = nullptr);

// Bins on either side that keep two tones apart: a few bins, or two
// resolution bandwidths where the bins are finer than the RBW.
int separationFor(double rbwHz, double binHz);

}  // namespace zrtool
