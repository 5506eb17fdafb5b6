// The six FFT windows of the spectral modes and their bandwidth factors.
#pragma once

#include "dsp/dsp.h"

namespace zr {

// RBW = factor * sample rate / window length. Unknown kinds give 1.0.
double windowBandwidthFactor(int kind);
// Symmetric (end points included), not normalised. Unknown kinds build the
// flat top. n >= 2.
void buildWindow(int kind, double* out, int n);
void buildWindowReal(int kind, float* out, int n);
void buildWindowComplex(int kind, cf32* out, int n);

}  // namespace zr
