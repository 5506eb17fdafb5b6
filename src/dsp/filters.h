// Filter objects that engines hold: each owns its taps, plan and delay line,
// so an engine treats a filter as one thing whose state carries across blocks.
// Setup allocates (configuration time); Filter never does.
#pragma once

#include <cstdint>
#include <vector>

#include "dsp/dsp.h"

namespace zr {

// ---- designs ------------------------------------------------------------------
// Windowed-sinc low-pass, unity gain at DC. cutoff is a fraction of the
// filter's own sample rate, 0 .. 0.5; out of range or length < 5 leaves taps
// untouched. Window 1 is the Blackman form every caller uses.
void DesignLowPass(double* taps, int length, float cutoff, int window);
void DesignLowPassComplex(cf32* taps, int length, float cutoff);
void DesignLowPassReal(float* taps, int length, float cutoff);
// Chebyshev type I, ripple in dB; taps gets b0..bN then a0..aN (2 * order + 2).
void DesignIirLowPass(double relFreq, double ripple, int order, float* taps);
void DesignIirHighPass(double relFreq, double ripple, int order, float* taps);

// ---- FIR objects ----------------------------------------------------------------
template <class T, int DataType>
class FirFilterT {
  public:
    FirFilterT() = default;
    // Copies the taps, builds the plan, zeroes the delay line. Returns false
    // (and leaves the object empty) if the primitive refuses the length.
    bool Setup(const T* taps, int length);
    // n outputs from n inputs; src may equal dst.
    void Filter(const T* src, T* dst, int n);
    void Reset();
    bool empty() const { return spec == nullptr; }
    int length() const { return int(taps.size()); }
    bool usesFFT() const;

    uint8_t* spec = nullptr;           // points into specStorage
    std::vector<uint8_t> specStorage;  // sized with alignment slack
    std::vector<uint8_t> workBuffer;
    std::vector<T> taps;
    std::vector<T> delayLine;  // length - 1 samples, oldest first
};

using FirFilterComplex = FirFilterT<cf32, kFirComplex32>;
using FirFilterReal = FirFilterT<float, kFirReal32>;
using FirFilter64 = FirFilterT<double, kFirReal64>;

extern template class FirFilterT<cf32, kFirComplex32>;
extern template class FirFilterT<float, kFirReal32>;
extern template class FirFilterT<double, kFirReal64>;

// ---- IIR ------------------------------------------------------------------------
class IirFilter {
  public:
    bool Setup(const float* taps, int order);
    void Filter(float* srcDst, int n);

    DspIIRState* state = nullptr;
    std::vector<uint8_t> stateStorage;
    std::vector<float> taps;  // 2 * order + 2
    int order = 0;
};

// ---- oscillator -----------------------------------------------------------------
class ComplexOscillator {
  public:
    ComplexOscillator() = default;
    void Configure(double relFreq, int blockLength, bool precise);
    // Fills tone32[0 .. n) and advances phase. n is limited to blockLength.
    void Generate(int n);
    // dst = src * tone, except that relFreq 1.0 leaves dst unwritten.
    void Apply(const cf32* src, cf32* dst, int n);

    static double WrapRelFreq(double relFreq);

    double relFreq = 0.0;
    double phase = 0.0;
    int blockLength = 0;
    uint8_t precise = 1;
    std::vector<cf64> tone64;
    std::vector<cf32> tone32;

  private:
    void generateFast(int n);
};

}  // namespace zr
