#pragma once
// CorrectionSet: a device's working calibration images and every lookup the
// plans make in them. The images start neutral, so a lookup always finds
// numbers; the open path copies the instrument's corrections in when it has
// any. Lookups interpolate between the two temperature points chosen by the
// last SetTemperature and are only ever made while a mode is configured,
// never on a data thread.

#include <cstdint>
#include <memory>

#include "zr_api.h"
#include "zr_correction_def.h"

namespace zr {

// The instrument's IF correction filter: 63 pairs of taps (I path, Q path).
constexpr int kIFFilterTaps = 63;
constexpr int kIFFilterValues = 2 * kIFFilterTaps;
// Full scale of an instrument filter coefficient. The three centre pairs
// (values 60 to 65) have 18 bits, all others 16.
constexpr double kIFCoefficientScale = 131071.0;

class CorrectionSet {
public:
    CorrectionSet();
    CorrectionSet(const CorrectionSet&) = delete;
    CorrectionSet& operator=(const CorrectionSet&) = delete;

    std::unique_ptr<MesaCalData> mesa;
    std::unique_ptr<RidgeCalData> ridge;
    uint8_t isRidge = 0;          // which image is in force
    uint32_t correctionMode = 0;  // 0: follow the temperature; 1: fixed index
    int32_t correctionIndex = 0;
    float temperature = 0.0f;     // last temperature given in mode 0
    int32_t tempIndex = 0;        // lower table point, 0..9
    double tempFrac = 0.0;        // 0..1 towards tempIndex + 1
    uint8_t loftOverride = 0;
    uint32_t loftOverrideI = 0;
    uint32_t loftOverrideQ = 0;

    // zrInvalidParameterErr above 1.
    ZrStatus SetCorrectionMode(uint32_t mode);
    // Limits to 0..10; zrSettingClamped when it had to.
    ZrStatus SetCorrectionIndex(int index);

    // Replaces the corrections block (bytes 0x40000 to the end) of the
    // family's working image and puts that family in force. The head stays.
    void LoadCorrections(const MesaCalData& image);
    void LoadCorrections(const RidgeCalData& image);

    void SetTemperature(float degrees);

    // dB; indices are limited to the table.
    float GetAttenGain(int attenIndex, int slice) const;
    // 63 tap pairs into taps[126] and the gain in dB the filter adds to the
    // level. `slice` must lie in the family's range.
    void BuildIFFilter(int slice, float taps[kIFFilterValues], bool narrow, double* gainDb) const;
    float GetPreselectLoss(int filter) const;
    // n values in dB for bins f0 + i * df (Hz) across preselector `filter`,
    // with the low-frequency curve added.
    void GetPreselectCurve(int filter, double f0, double df, int n, float* out) const;
    // n values in dB; all zero unless f0 is at most 500 kHz.
    void GetLowFreqCurve(double f0, double df, int n, float* out) const;
    int GetTimebaseOffset() const;
    float GetLOGateBias() const;
    void GetBand6Words(double loFreq, uint32_t* balance, uint32_t* gain) const;
    // The correction date of the image in force.
    uint32_t CalDate() const;

private:
    float mixF(float a, float b) const;
    int sliceCount() const { return isRidge ? kRidgeSlices : kMesaSlices; }
};

// Whether a scaled coefficient fits the register of its position: -32768
// to 32768 for the outer values, -131071 to 131071 for values 60 to 65.
// (32768 itself passes here although the command builder refuses it.)
inline bool ifCoefficientFits(int index, int value) {
    const bool centre = index >= 60 && index <= 65;
    return centre ? (value >= -131071 && value <= 131071) : (value >= -32768 && value <= 32768);
}

// The coefficients the instrument would get for an image at a temperature:
// each filter value scaled to 131071 and truncated. `fits` tells whether
// every value lies in its register's range. zrNullPtrErr for null pointers,
// zrInvalidParameterErr for a slice outside the family's range.
ZrStatus ifCorrectionCoefficients(const MesaCalData* image, int slice, float temperature, bool narrow,
                                  int coeffs[kIFFilterValues], bool& fits);
ZrStatus ifCorrectionCoefficients(const RidgeCalData* image, int slice, float temperature, bool narrow,
                                  int coeffs[kIFFilterValues], bool& fits);

}  // namespace zr
