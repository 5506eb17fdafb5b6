// Flat vector primitives: every bulk loop of the library goes through these.
// Lengths count elements of the vector's own type (complex values for complex
// vectors) unless a function says otherwise. Nothing here allocates except
// dspMalloc; plans (FFT and FIR specs, IIR state) are built once by the caller
// into memory it owns.
#pragma once

#include <complex>
#include <cstddef>
#include <cstdint>

namespace zr {

using cf32 = std::complex<float>;
using cf64 = std::complex<double>;
struct ci16 {
    int16_t re;
    int16_t im;
};

// ---- start-up -------------------------------------------------------------
constexpr uint64_t kCpuAvx = 0x100;
constexpr uint64_t kCpuOsWideRegs = 0x200;
constexpr uint64_t kCpuAvx2Fma = 0x8000;  // AVX2 with FMA, BMI1 and BMI2

void dspInit();
uint64_t dspGetCpuFeatures();
// True when the AVX2+FMA kernels are in use (decided by dspInit).
bool dspWideKernelsActive();
// Test hook: forces the portable kernels even on an AVX2 machine (or back).
void dspForcePortable(bool portable);

// ---- memory ---------------------------------------------------------------
constexpr size_t kDspAlign = 64;
void* dspMalloc(size_t nBytes);
void dspFree(void* ptr);
void dspCopyBytes(const void* src, void* dst, size_t nBytes);
void dspZeroBytes(void* dst, size_t nBytes);

// ---- copy and fill --------------------------------------------------------
void dspCopy(const float* src, float* dst, int len);
void dspMove(const float* src, float* dst, int len);
void dspZero(float* dst, int len);
void dspSet(float value, float* dst, int len);
void dspCopyComplex(const cf32* src, cf32* dst, int len);
void dspMoveComplex(const cf32* src, cf32* dst, int len);
void dspZeroComplex(cf32* dst, int len);
void dspCopy64f(const double* src, double* dst, int len);
void dspZero64f(double* dst, int len);
void dspCopyComplex64(const cf64* src, cf64* dst, int len);
void dspSetComplex64(const cf64* value, cf64* dst, int len);
void dspCopy16sc(const ci16* src, ci16* dst, int len);
void dspCopyInt(const int32_t* src, int32_t* dst, int len);
void dspZeroInt(int32_t* dst, int len);
void dspSetInt(int32_t value, int32_t* dst, int len);

// ---- element-wise ---------------------------------------------------------
void dspAdd(const float* src1, const float* src2, float* dst, int len);
void dspMul(const float* src1, const float* src2, float* dst, int len);
void dspAddC(const float* src, float val, float* dst, int len);
void dspMulC(const float* src, float val, float* dst, int len);
void dspAddInPlace(const float* src, float* srcDst, int len);
void dspMulInPlace(const float* src, float* srcDst, int len);
void dspAddCInPlace(float val, float* srcDst, int len);
void dspMulCInPlace(float val, float* srcDst, int len);
void dspSqr(const float* src, float* dst, int len);
void dspSqrt(const float* src, float* dst, int len);
void dspExp(const float* src, float* dst, int len);
void dspExpInPlace(float* srcDst, int len);
void dspLn(const float* src, float* dst, int len);
void dspMaxEvery(const float* src1, const float* src2, float* dst, int len);
void dspMinEvery(const float* src1, const float* src2, float* dst, int len);
void dspMulComplex(const cf32* src1, const cf32* src2, cf32* dst, int len);
void dspMulComplex64(const cf64* src1, const cf64* src2, cf64* dst, int len);
void dspMulReal64(const double* src1, const double* src2, double* dst, int len);
void dspMagnitude(const cf32* src, float* dst, int len);
void dspPowerSpectrum(const cf32* src, float* dst, int len);
void dspPhaseComplex(const cf32* src, float* dst, int len);
void dspAddInt(const int32_t* src1, const int32_t* src2, int32_t* dst, int len);
void dspSubInt(const int32_t* src, const int32_t* srcDst1, int32_t* dst, int len, int scale);
void dspMulCInt16InPlace(int16_t val, int16_t* srcDst, int len);

// ---- reductions -----------------------------------------------------------
void dspSum(const float* src, int len, float& sum, int hint);
void dspSumComplex(const cf32* src, int len, cf32& sum, int hint);
void dspSum64f(const double* src, int len, double& sum);
void dspMax(const float* src, int len, float& max);

// ---- conversions ----------------------------------------------------------
// These two count real values: a complex block of n samples passes 2n.
void dspConvert16sTo32fScaled(const int16_t* src, float* dst, int len, int scaleExp);
void dspConvert32fTo16sScaled(const float* src, int16_t* dst, int len, int round, int scaleExp);
void dspConvert32fTo32sScaled(const float* src, int32_t* dst, int len, int round, int scaleExp);
void dspConvert64fTo32f(const double* src, float* dst, int len);

// ---- rate change, tone, transpose -----------------------------------------
void dspSampleDown(const float* src, int srcLen, float* dst, int& dstLen, int factor, int& phase);
void dspSampleDownComplex(const cf32* src, int srcLen, cf32* dst, int& dstLen, int factor,
                          int& phase);
void dspToneComplex64(cf64* dst, int len, double magnitude, double relFreq, double& phase,
                      int hint);
void dspTranspose32f(const float* src, int srcStepBytes, float* dst, int dstStepBytes, int width,
                     int height);
void dspWinBlackmanStd64f(double* srcDst, int len);

// ---- FFT ------------------------------------------------------------------
struct DspFFTSpec;      // complex f32
struct DspFFTRealSpec;  // real f64, packed
constexpr int kFFTMinOrder = 1;
constexpr int kFFTMaxOrder = 27;

// Test hook: sizes from this order on are planned as a four-step split (the
// default is 21); a plan keeps the choice it was made with. Orders below 14
// are not accepted.
void dspFFTSetSplitOrder(int order);

// All return 0 on success, -1 for an order or flag they cannot serve.
int dspFFTGetSize(int order, int flag, int hint, int& specSize, int& initSize, int& workSize);
int dspFFTInit(DspFFTSpec*& spec, int order, int flag, int hint, uint8_t* specMem,
               uint8_t* initMem);
// Forward, scaled by 1/N. src == dst is allowed (and is the usual case).
void dspFFTForwardComplex(const cf32* src, cf32* dst, const DspFFTSpec* spec, uint8_t* work);
// Inverse, unscaled. Used by the overlap-save filters.
void dspFFTInverseComplex(const cf32* src, cf32* dst, const DspFFTSpec* spec, uint8_t* work);

int dspFFTRealGetSize(int order, int flag, int hint, int& specSize, int& initSize,
                      int& workSize);
int dspFFTRealInit(DspFFTRealSpec*& spec, int order, int flag, int hint, uint8_t* specMem,
                   uint8_t* initMem);
// dst: DC, Nyquist, then (re, im) of bins 1 .. N/2 - 1. Scaled by 1/N.
void dspFFTForwardRealPacked(const double* src, double* dst, const DspFFTRealSpec* spec,
                             uint8_t* work);
// Inverse of the packed form, unscaled.
void dspFFTInverseRealPacked(const double* src, double* dst, const DspFFTRealSpec* spec,
                             uint8_t* work);

// ---- FIR ------------------------------------------------------------------
constexpr int kFirReal32 = 13;
constexpr int kFirComplex32 = 14;
constexpr int kFirReal64 = 19;
struct DspFIRSpec;

// Sizes cover both algorithms. algorithm 0 picks by length (overlap-save for
// long f32 filters, direct otherwise); 1 forces direct; 2 asks for
// overlap-save wherever the length qualifies for it.
int dspFIRGetSize(int len, int dataType, int& specSize, int& bufSize);
int dspFIRInit(const float* taps, int len, int algorithm, uint8_t* spec);
int dspFIRInitComplex(const cf32* taps, int len, int algorithm, uint8_t* spec);
int dspFIRInit64f(const double* taps, int len, int algorithm, uint8_t* spec);
// The delay line holds the last len - 1 inputs, oldest first. dlySrc may equal
// dlyDst, and src may equal dst.
void dspFIRFilter(const float* src, float* dst, int numIters, const uint8_t* spec,
                  const float* dlySrc, float* dlyDst, uint8_t* buffer);
void dspFIRFilterComplex(const cf32* src, cf32* dst, int numIters, const uint8_t* spec,
                         const cf32* dlySrc, cf32* dlyDst, uint8_t* buffer);
void dspFIRFilter64f(const double* src, double* dst, int numIters, const uint8_t* spec,
                     const double* dlySrc, double* dlyDst, uint8_t* buffer);
// Whether a spec chose the FFT (overlap-save) path.
bool dspFIRUsesFFT(const uint8_t* spec);

int dspFIRGenGetBufferSize(int len, int& size);
// Returns 0, or -1 (taps untouched) for relFreq outside 0..0.5 or len < 5.
int dspFIRGenLowpass(double relFreq, double* taps, int len, int window, int normalize,
                     uint8_t* buffer);

// ---- IIR ------------------------------------------------------------------
struct DspIIRState;
int dspIIRGetStateSize(int order, int& size);
int dspIIRInit(DspIIRState*& state, const float* taps, int order, const float* dly,
               uint8_t* buffer);
void dspIIRFilterInPlace(float* srcDst, int len, DspIIRState* state);
int dspIIRGenGetBufferSize(int order, int& size);
// taps: b0..bN, a0..aN with a0 = 1. Returns -1 (taps untouched) when refused.
int dspIIRGenLowpass(double relFreq, double ripple, int order, double* taps, int filterType,
                     uint8_t* buffer);
int dspIIRGenHighpass(double relFreq, double ripple, int order, double* taps, int filterType,
                      uint8_t* buffer);

}  // namespace zr
