#pragma once
// Calibration images for tests that must tell one table entry from its
// neighbours. Every table varies with slice, temperature, attenuator and IF
// column in a smooth but non-linear way, roughly as a receiver does (gain
// falling with frequency and warming, IF ripple of a fraction of a dB), so
// a wrong index or a wrong interpolation weight shows as a level error.
#include <cmath>
#include <cstring>
#include <memory>
#include <vector>

#include "zr_correction_def.h"

namespace zr::test {

// Actual temperature points: near the nominal grid but not on it, so code
// that assumes the nominal axis gives the wrong weights.
inline constexpr float kCalTemperatures[kCalTemps] = {-43.1f, -32.6f, -21.9f, -11.3f, -0.2f, 10.4f,
                                                      21.7f,  32.2f,  43.5f,  54.1f,  65.3f};

inline float gainModel(int t, int atten, int slice) {
    const double f = slice * 0.0390625;  // GHz
    const double dT = kCalTemperatures[t] - 25.0;
    return static_cast<float>(-(4.0 + 1.9 * std::sqrt(f) + 0.35 * std::sin(0.37 * slice)) + 5.0 * atten +
                              0.03 * atten * atten + 0.018 * dT + 0.0004 * dT * dT);
}
inline float flatnessModel(int t, int slice, int k) {
    const double dT = kCalTemperatures[t] - 25.0;
    return static_cast<float>(0.6 * std::sin(0.45 * k + 0.013 * slice) - 0.02 * k + 0.004 * dT * std::cos(0.2 * k));
}
inline float ratioModel(int t, int slice, int k) {
    const double dT = kCalTemperatures[t] - 25.0;
    return static_cast<float>(1.0 + 0.04 * std::cos(0.3 * k + 0.011 * slice) + 0.0005 * dT);
}
inline float phaseModel(int t, int slice, int k) {
    const double dT = kCalTemperatures[t] - 25.0;
    return static_cast<float>(0.06 * std::sin(0.2 * k + 0.007 * slice) - 0.004 * k + 0.001 * dT);
}
inline float preselectModel(int t, int filter, int p) {
    const double u = (p - 15.5) / 15.5;
    return static_cast<float>(-(1.2 + 0.15 * filter) - 4.0 * u * u * u * u - 0.3 * u -
                              0.01 * (kCalTemperatures[t] - 25.0));
}
inline float lowFreqModel(int n) { return static_cast<float>(0.9 * std::exp(-n / 7.0) + 0.01 + 0.001 * n); }
inline int16_t timebaseOffsetModel(int t) { return static_cast<int16_t>((t - 5) * 7 + t * t); }

template <class Image>
void fillCorrections(Image& im) {
    constexpr int slices = CalTraits<Image>::slices;
    im.calDate = 1700000000u;
    im.calVersion = 2;
    for (int t = 0; t < kCalTemps; ++t) {
        im.temperature[t] = kCalTemperatures[t];
        im.timebaseTempOffset[t] = timebaseOffsetModel(t);
    }
    for (int i = 0; i < 3; ++i) {
        im.timebaseValue[i] = static_cast<uint16_t>(0x7A10 + i);
        im.timebaseDate[i] = 1690000000ull + 1000ull * i;
    }
    for (int s = 0; s < slices; ++s) im.gainCode[s] = static_cast<uint8_t>(s % 200);
    for (int n = 0; n < kLowFreqPoints; ++n) im.lowFreqCorrection[n] = lowFreqModel(n);
    for (int t = 0; t < kCalTemps; ++t) {
        for (int a = 0; a < kCalAttens; ++a)
            for (int s = 0; s < slices; ++s) im.gain[t][a][s] = gainModel(t, a, s);
        for (int s = 0; s < slices; ++s)
            for (int k = 0; k < kCalIFColumns; ++k) {
                im.ifRatio[t][s][k] = ratioModel(t, s, k);
                im.ifPhase[t][s][k] = phaseModel(t, s, k);
                im.ifFlatness[t][s][k] = flatnessModel(t, s, k);
            }
        for (int f = 0; f < kPreselectFilters; ++f)
            for (int p = 0; p < kPreselectPoints; ++p) im.preselect[t][f][p] = preselectModel(t, f, p);
    }
}

// The masked word sum written out the long way: a copy with the excluded
// fields set to 0xFF, then every word added.
inline uint32_t referenceRidgeChecksum(const RidgeCalData& image) {
    std::vector<uint8_t> copy(sizeof image);
    std::memcpy(copy.data(), &image, sizeof image);
    std::memset(copy.data() + offsetof(RidgeCalData, checksum), 0xFF, 4);
    std::memset(copy.data() + offsetof(RidgeCalData, timebaseValue), 0xFF, 128);
    std::memset(copy.data() + offsetof(RidgeCalData, timebaseDate), 0xFF, 512);
    uint32_t sum = 0;
    for (size_t i = 0; i < copy.size(); i += 4) {
        sum += static_cast<uint32_t>(copy[i]) | static_cast<uint32_t>(copy[i + 1]) << 8 |
               static_cast<uint32_t>(copy[i + 2]) << 16 | static_cast<uint32_t>(copy[i + 3]) << 24;
    }
    return sum;
}

// `serial` goes in the head, where a cache is checked against the instrument.
inline std::unique_ptr<MesaCalData> makeMesaImage(uint32_t serial = 18000123) {
    auto im = std::make_unique<MesaCalData>();
    buildDummyCorrections(*im);
    std::memcpy(im->flashHeader, &serial, 4);
    for (int b = 0; b < 4; ++b)
        for (int c = 0; c < 256; ++c) im->loFreq[b][c] = static_cast<float>(3000.0 + 1000.0 * b + 3.9 * c);
    fillCorrections(*im);
    for (int t = 0; t < kCalTemps; ++t)
        for (int i = 0; i < 2625; ++i) im->loConfig[t][i] = static_cast<uint8_t>((i + t) % 7);
    return im;
}

inline std::unique_ptr<RidgeCalData> makeRidgeImage(uint32_t serial = 19000456) {
    auto im = std::make_unique<RidgeCalData>();
    buildDummyCorrections(*im);
    std::memcpy(im->flashHeader, &serial, 4);
    for (int i = 0; i < 513; ++i) {
        im->cbbCore[i] = static_cast<uint8_t>(i % 3);
        im->cbbBand[i] = static_cast<uint8_t>(i / 3 % 64);
        im->cbbBias[i] = static_cast<uint8_t>(4 + i % 4);
    }
    im->loGateBiasDefault = -1.45f;
    for (int i = 0; i < 461; ++i) im->vva[i] = static_cast<float>(20.0 + 0.01 * i);
    for (int i = 0; i < 455; ++i) {
        im->loftI[i] = static_cast<int16_t>(i - 200);
        im->loftQ[i] = static_cast<int16_t>(150 - i);
    }
    for (int i = 0; i < 40; ++i) {
        im->ifOutBalance[i] = 0x100u + i;
        im->ifOutGain[i] = 0x200u + i;
    }
    im->usesLTC6947 = 1;
    fillCorrections(*im);
    for (int t = 0; t < kCalTemps; ++t) {
        im->loGateBias[t] = static_cast<float>(-1.62 + 0.013 * t);
        for (int i = 0; i < 81; ++i) {
            im->band6Balance[t][i] = 0x20000u + 256u * t + i;
            im->band6Gain[t][i] = 0x30000u + 256u * t + 2u * i;
        }
    }
    for (int i = 0; i < 435; ++i) im->band5Gain[i] = 0x4000u + i;
    im->checksum = referenceRidgeChecksum(*im);
    return im;
}

}  // namespace zr::test
