// The kernel table chosen once by dspInit.
#pragma once

#include "dsp/fft_kernels.h"

namespace zr {

struct DspKernels {
    fftk::Radix4Fn radix4;
    fftk::Radix2Fn radix2;
    fftk::MulConjFn mulConj;
    fftk::FirComplexFn firComplex;
    bool wide;
};

// Runs dspInit on first use, so a primitive called before the first open
// still gets a valid table.
const DspKernels& dspKernels();

}  // namespace zr
