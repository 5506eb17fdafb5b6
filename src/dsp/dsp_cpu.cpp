// Processor detection and the choice between portable and wide kernels.
#include <atomic>

#include <cpuid.h>

#include "dsp/dsp.h"
#include "dsp/dsp_dispatch.h"
#include "dsp/fft_kernels.h"

namespace zr {
namespace {

uint64_t detectFeatures() {
    uint64_t mask = 0;
    unsigned a = 0, b = 0, c = 0, d = 0;
    if (__get_cpuid(0, &a, &b, &c, &d) == 0) return 0;
    const unsigned maxLeaf = a;
    if (__get_cpuid(1, &a, &b, &c, &d) == 0) return 0;
    const bool avx = (c & bit_AVX) != 0;
    const bool osxsave = (c & bit_OSXSAVE) != 0;
    const bool fma = (c & bit_FMA) != 0;
    if (avx) mask |= kCpuAvx;
    bool osWide = false;
    if (osxsave) {
        unsigned lo = 0, hi = 0;
        __asm__ volatile("xgetbv" : "=a"(lo), "=d"(hi) : "c"(0));
        osWide = (lo & 0x6) == 0x6;  // XMM and YMM state saved on context switch
    }
    if (osWide) mask |= kCpuOsWideRegs;
    if (maxLeaf >= 7) {
        __cpuid_count(7, 0, a, b, c, d);
        const bool avx2 = (b & bit_AVX2) != 0;
        const bool bmi1 = (b & bit_BMI) != 0;
        const bool bmi2 = (b & bit_BMI2) != 0;
        if (avx2 && fma && bmi1 && bmi2) mask |= kCpuAvx2Fma;
    }
    return mask;
}

std::atomic<bool> gForcePortable{false};

void selectKernels(DspKernels& k, bool wide) {
    if (wide) {
        k.radix4 = fftk::radix4Avx2;
        k.radix2 = fftk::radix2Avx2;
        k.mulConj = fftk::mulConjAvx2;
        k.firComplex = fftk::firComplexAvx2;
    } else {
        k.radix4 = fftk::radix4Portable;
        k.radix2 = fftk::radix2Portable;
        k.mulConj = fftk::mulConjPortable;
        k.firComplex = fftk::firComplexPortable;
    }
    k.wide = wide;
}

bool hasWide() {
    const uint64_t f = dspGetCpuFeatures();
    const uint64_t need = kCpuAvx | kCpuOsWideRegs | kCpuAvx2Fma;
    return (f & need) == need;
}

}  // namespace

DspKernels gDspKernels = {fftk::radix4Portable, fftk::radix2Portable, fftk::mulConjPortable,
                          fftk::firComplexPortable, false};

uint64_t dspGetCpuFeatures() {
    static const uint64_t features = detectFeatures();
    return features;
}

void dspInit() {
    // A function-local static: concurrent first calls wait for the one that
    // fills the table, so no thread ever sees it half written.
    static const bool selected = [] {
        selectKernels(gDspKernels, hasWide() && !gForcePortable.load());
        return true;
    }();
    (void)selected;
}

const DspKernels& dspKernels() {
    dspInit();
    return gDspKernels;
}

bool dspWideKernelsActive() { return dspKernels().wide; }

void dspForcePortable(bool portable) {
    dspInit();
    gForcePortable.store(portable);
    selectKernels(gDspKernels, hasWide() && !portable);
}

}  // namespace zr
