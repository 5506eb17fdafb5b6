// Polyphase resampler at a fixed rational-looking rate, behind
// zrSegIQLTEResample: 192 phases of 33 real taps over complex samples, with
// linear interpolation between neighbouring phases.
#pragma once

#include <array>
#include <vector>

namespace zr {

struct ArbResampler {
    int filterSize = 33;
    int phases = 192;
    std::vector<std::vector<float>> phaseTaps;  // phases x filterSize
    double time = 96.0;
    double step = 0.0;
    double ratio = 0.0;
    std::array<float, 132> history{};  // 66 complex samples
};

// I0 as this library defines it: the first 13 terms of the series, factorials
// as 32-bit integers. The truncation is part of the filter's numbers.
double arbBesselI0(double z);

// ratio = output rate / input rate; cutoff limited to 0 .. 1; beta is the
// Kaiser parameter over pi.
void buildArbResampler(ArbResampler& r, double ratio, double cutoff, double beta);

// src holds srcLen complex samples (srcLen > filterSize), dst room for dstLen.
// Returns the number of complex samples written.
int runArbResampler(ArbResampler& r, const float* src, int srcLen, float* dst, int dstLen);

// The library-wide resampler of zrSegIQLTEResample and its head-skip count.
ArbResampler& segIQResampler();
int& segIQSkip();

}  // namespace zr
