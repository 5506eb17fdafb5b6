// Temperature interpolation and the table lookups of the plans.
#include "calibration/correction_set.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <type_traits>

namespace zr {

namespace {

// Mix of two table values by a fraction in f32. The ends are taken exactly,
// so a lookup at a table point returns the stored value bit for bit.
float lerpExact(float a, float b, float t) {
    if (t == 0.0f) return a;
    if (t == 1.0f) return b;
    return (1.0f - t) * a + t * b;
}

// Index and fraction of position x on a table of `last` + 1 points: below
// the first point the first value, from the last point on the last value.
void tablePosition(double x, int last, int& index, float& frac) {
    if (x < 0.0) {
        index = 0;
        frac = 0.0f;
    } else if (x >= last) {
        index = last - 1;
        frac = 1.0f;
    } else {
        index = static_cast<int>(x);
        frac = static_cast<float>(x - index);
    }
}

template <class Image>
void copyCorrectionsBlock(Image& dst, const Image& src) {
    std::memcpy(reinterpret_cast<uint8_t*>(&dst) + kCalHeadSize, reinterpret_cast<const uint8_t*>(&src) + kCalHeadSize,
                sizeof(Image) - kCalHeadSize);
}

}  // namespace

CorrectionSet::CorrectionSet() : mesa(new MesaCalData), ridge(new RidgeCalData) {
    buildDummyCorrections(*mesa);
    buildDummyCorrections(*ridge);
}

ZrStatus CorrectionSet::SetCorrectionMode(uint32_t mode) {
    if (mode > 1) return zrInvalidParameterErr;
    correctionMode = mode;
    return zrNoError;
}

ZrStatus CorrectionSet::SetCorrectionIndex(int index) {
    correctionIndex = std::clamp(index, 0, kCalTemps - 1);
    return correctionIndex == index ? zrNoError : zrSettingClamped;
}

void CorrectionSet::LoadCorrections(const MesaCalData& image) {
    copyCorrectionsBlock(*mesa, image);
    isRidge = 0;
}

void CorrectionSet::LoadCorrections(const RidgeCalData& image) {
    copyCorrectionsBlock(*ridge, image);
    isRidge = 1;
}

void CorrectionSet::SetTemperature(float degrees) {
    if (correctionMode == 1) {
        tempIndex = correctionIndex;
        tempFrac = 0.0;
        if (tempIndex >= kCalTemps - 1) {
            tempIndex = kCalTemps - 2;
            tempFrac = 1.0;
        }
        return;
    }
    temperature = degrees;
    const float* T = isRidge ? ridge->temperature : mesa->temperature;
    if (T[0] > degrees) {
        tempIndex = 0;
        tempFrac = 0.0;
        return;
    }
    // The first point strictly above: a temperature on a point starts the
    // segment at that point with fraction 0.
    for (int i = 1; i < kCalTemps; ++i) {
        if (T[i] > degrees) {
            tempIndex = i - 1;
            tempFrac = (degrees - T[i - 1]) / (T[i] - T[i - 1]);
            return;
        }
    }
    tempIndex = kCalTemps - 2;
    tempFrac = 1.0;
}

float CorrectionSet::mixF(float a, float b) const { return lerpExact(a, b, static_cast<float>(tempFrac)); }

float CorrectionSet::GetAttenGain(int attenIndex, int slice) const {
    const int a = std::clamp(attenIndex, 0, kCalAttens - 1);
    const int s = std::clamp(slice, 0, sliceCount() - 1);
    if (isRidge) return mixF(ridge->gain[tempIndex][a][s], ridge->gain[tempIndex + 1][a][s]);
    return mixF(mesa->gain[tempIndex][a][s], mesa->gain[tempIndex + 1][a][s]);
}

float CorrectionSet::GetPreselectLoss(int filter) const {
    const int f = std::clamp(filter, 0, kPreselectFilters - 1);
    const float* row = isRidge ? ridge->preselect[tempIndex][f] : mesa->preselect[tempIndex][f];
    double sum = 0.0;
    for (int p = 0; p < kPreselectPoints; ++p) sum += row[p];
    return static_cast<float>(sum * 0.03125);
}

void CorrectionSet::GetLowFreqCurve(double f0, double df, int n, float* out) const {
    if (n <= 0 || !out) return;
    if (f0 > 500000.0) {
        std::fill(out, out + n, 0.0f);
        return;
    }
    const float* table = isRidge ? ridge->lowFreqCorrection : mesa->lowFreqCorrection;
    for (int i = 0; i < n; ++i) {
        int index;
        float frac;
        tablePosition((i * df + f0 - 100000.0) / 10000.0, kLowFreqPoints - 1, index, frac);
        out[i] = lerpExact(table[index], table[index + 1], frac);
    }
}

void CorrectionSet::GetPreselectCurve(int filter, double f0, double df, int n, float* out) const {
    if (n <= 0 || !out) return;
    const int f = std::clamp(filter, 0, kPreselectFilters - 1);
    const PreselectFilter& info = preselectFilter(f);
    const double step = info.step();
    const float* lo = isRidge ? ridge->preselect[tempIndex][f] : mesa->preselect[tempIndex][f];
    const float* hi = isRidge ? ridge->preselect[tempIndex + 1][f] : mesa->preselect[tempIndex + 1][f];
    for (int i = 0; i < n; ++i) {
        int index;
        float frac;
        tablePosition((i * df + f0 - info.start) / step, kPreselectPoints - 1, index, frac);
        out[i] = mixF(lerpExact(lo[index], lo[index + 1], frac), lerpExact(hi[index], hi[index + 1], frac));
    }
    // The low-frequency correction rides on top; it is all zeros unless the
    // span starts at or below 500 kHz. Added value by value, so no scratch.
    if (f0 > 500000.0) return;
    const float* table = isRidge ? ridge->lowFreqCorrection : mesa->lowFreqCorrection;
    for (int i = 0; i < n; ++i) {
        int index;
        float frac;
        tablePosition((i * df + f0 - 100000.0) / 10000.0, kLowFreqPoints - 1, index, frac);
        out[i] += lerpExact(table[index], table[index + 1], frac);
    }
}

int CorrectionSet::GetTimebaseOffset() const {
    const int16_t* table = isRidge ? ridge->timebaseTempOffset : mesa->timebaseTempOffset;
    const double a = table[tempIndex], b = table[tempIndex + 1];
    const double t = static_cast<float>(tempFrac);
    double v;
    if (t == 0.0) v = a;
    else if (t == 1.0) v = b;
    else v = (1.0 - t) * a + t * b;
    return static_cast<int>(v);
}

float CorrectionSet::GetLOGateBias() const {
    if (!isRidge) return -2.0f;
    if (ridge->calDate == kNoCalDate) return ridge->loGateBiasDefault;
    return mixF(ridge->loGateBias[tempIndex], ridge->loGateBias[tempIndex + 1]);
}

void CorrectionSet::GetBand6Words(double loFreq, uint32_t* balance, uint32_t* gain) const {
    constexpr double kStart = 4.1015625e10, kStep = 3.90625e7;
    int index = 0;
    if (loFreq >= kStart) index = static_cast<int>(std::min(std::floor((loFreq - kStart) / kStep + 0.5), 80.0));
    const int row = tempFrac > 0.5 ? tempIndex + 1 : tempIndex;
    if (balance) *balance = ridge->band6Balance[row][index];
    if (gain) *gain = ridge->band6Gain[row][index];
}

uint32_t CorrectionSet::CalDate() const { return isRidge ? correctionCalDate(*ridge) : correctionCalDate(*mesa); }

namespace {

template <class Image>
ZrStatus coefficientsFor(const Image* image, int slice, float temperature, bool narrow, int coeffs[kIFFilterValues],
                         bool& fits) {
    if (!image || !coeffs) return zrNullPtrErr;
    if (slice < 0 || slice >= CalTraits<Image>::slices) return zrInvalidParameterErr;
    // A private set, so the device's own interpolation point is not moved.
    // Like the open path it takes the image's corrections only when the
    // image has any, and keeps the neutral tables otherwise.
    auto set = std::make_unique<CorrectionSet>();
    if (image->calDate != kNoCalDate) set->LoadCorrections(*image);
    set->isRidge = std::is_same_v<Image, RidgeCalData>;
    set->SetTemperature(temperature);
    float taps[kIFFilterValues];
    double gainDb = 0.0;
    set->BuildIFFilter(slice, taps, narrow, &gainDb);
    fits = true;
    for (int i = 0; i < kIFFilterValues; ++i) {
        const double scaled = taps[i] * kIFCoefficientScale;
        // Values beyond int (or NaN from a damaged table) cannot fit any
        // register; they are pinned rather than converted.
        if (!(std::fabs(scaled) < 2147483647.0)) {
            coeffs[i] = std::isnan(scaled) ? 0 : (scaled > 0 ? 2147483647 : -2147483647);
            fits = false;
            continue;
        }
        coeffs[i] = static_cast<int>(scaled);
        if (!ifCoefficientFits(i, coeffs[i])) fits = false;
    }
    return zrNoError;
}

}  // namespace

ZrStatus ifCorrectionCoefficients(const MesaCalData* image, int slice, float temperature, bool narrow,
                                  int coeffs[kIFFilterValues], bool& fits) {
    return coefficientsFor(image, slice, temperature, narrow, coeffs, fits);
}

ZrStatus ifCorrectionCoefficients(const RidgeCalData* image, int slice, float temperature, bool narrow,
                                  int coeffs[kIFFilterValues], bool& fits) {
    return coefficientsFor(image, slice, temperature, narrow, coeffs, fits);
}

}  // namespace zr
