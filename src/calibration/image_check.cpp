#include "calibration/image_check.h"

#include <cmath>
#include <cstring>

#include "zr_correction_def.h"

namespace zr {

namespace {

struct FloatTable {
    size_t offset;
    size_t count;
    float lo, hi;
    float neutral;
};

bool allOnes(const uint8_t* p, size_t bytes) {
    for (size_t i = 0; i < bytes; ++i)
        if (p[i] != 0xFF) return false;
    return true;
}

// Values outside [lo, hi] (NaN and infinities among them); repaired in
// place when asked. Copies through memcpy: the image is a byte buffer.
size_t checkTable(uint8_t* image, const FloatTable& t, bool repair) {
    uint8_t* base = image + t.offset;
    if (allOnes(base, t.count * sizeof(float))) {
        if (repair)
            for (size_t i = 0; i < t.count; ++i) std::memcpy(base + i * sizeof(float), &t.neutral, sizeof(float));
        return 0;
    }
    size_t bad = 0;
    for (size_t i = 0; i < t.count; ++i) {
        float v;
        std::memcpy(&v, base + i * sizeof(float), sizeof v);
        if (v >= t.lo && v <= t.hi) continue;
        ++bad;
        if (repair) std::memcpy(base + i * sizeof(float), &t.neutral, sizeof(float));
    }
    return bad;
}

// The temperature points must also ascend, or no interpolation between
// them means anything; the standard ladder replaces a table that does not.
size_t checkTemperatures(uint8_t* image, size_t offset, bool repair) {
    size_t bad = checkTable(image, {offset, kCalTemps, -100.0f, 200.0f, 25.0f}, repair);
    float t[kCalTemps];
    std::memcpy(t, image + offset, sizeof t);
    bool ascending = true;
    for (int i = 1; i < kCalTemps; ++i) ascending = ascending && t[i] > t[i - 1];
    if (!ascending) {
        if (bad == 0) bad = 1;
        if (repair) {
            for (int i = 0; i < kCalTemps; ++i) t[i] = float(i * 11 - 44);
            std::memcpy(image + offset, t, sizeof t);
        }
    }
    return bad;
}

// The VCO's curve: four sub-bands of 256 codes from 3.3 to 6.6 GHz. What an
// unmeasured synthesizer is assumed to do, close enough to lock.
size_t checkMesaLoCurve(uint8_t* image, bool repair) {
    constexpr size_t kOffset = offsetof(MesaCalData, loFreq);
    constexpr size_t kValues = 4 * 256;
    const bool unwritten = allOnes(image + kOffset, kValues * sizeof(float));
    size_t bad = 0;
    for (size_t i = 0; i < kValues; ++i) {
        float v;
        std::memcpy(&v, image + kOffset + i * sizeof v, sizeof v);
        if (!unwritten && v >= 1000.0f && v <= 10000.0f) continue;
        if (!unwritten) ++bad;
        if (repair) {
            const float nominal = 3300.0f + 825.0f * float(i / 256) + 825.0f * float(i % 256) / 255.0f;
            std::memcpy(image + kOffset + i * sizeof v, &nominal, sizeof nominal);
        }
    }
    return bad;
}

template <class T>
size_t checkCorrections(uint8_t* image, size_t slices, bool repair) {
    const size_t ifValues = kCalTemps * slices * 28;
    size_t bad = checkTemperatures(image, offsetof(T, temperature), repair);
    const FloatTable tables[] = {
        {offsetof(T, lowFreqCorrection), 40, -100.0f, 100.0f, 0.0f},
        {offsetof(T, gain), kCalTemps * 7 * slices, -200.0f, 200.0f, 0.0f},
        {offsetof(T, ifRatio), ifValues, 0.01f, 100.0f, 1.0f},
        {offsetof(T, ifPhase), ifValues, -10.0f, 10.0f, 0.0f},
        {offsetof(T, ifFlatness), ifValues, -100.0f, 100.0f, 0.0f},
        {offsetof(T, preselect), kCalTemps * 11 * 32, -200.0f, 200.0f, 0.0f},
    };
    for (const FloatTable& t : tables) bad += checkTable(image, t, repair);
    return bad;
}

}  // namespace

size_t checkCalibrationValues(uint8_t* image, bool ridge, bool repair) {
    if (!image) return 0;
    size_t bad = 0;
    const bool corrections = zrCalDoesCorrectionsExist(image);
    if (ridge) {
        if (zrCalDoesPretestDataExist(image)) {
            bad += checkTable(image, {offsetof(RidgeCalData, loGateBiasDefault), 1, -10.0f, 10.0f, -2.0f}, repair);
            bad += checkTable(image, {offsetof(RidgeCalData, vva), 461, 0.0f, 60.0f, 25.0f}, repair);
        }
        if (corrections) {
            bad += checkCorrections<RidgeCalData>(image, kRidgeSlices, repair);
            bad += checkTable(image, {offsetof(RidgeCalData, loGateBias), kCalTemps, -10.0f, 10.0f, -2.0f}, repair);
        }
    } else {
        bad += checkMesaLoCurve(image, repair);
        if (corrections) bad += checkCorrections<MesaCalData>(image, kMesaSlices, repair);
    }
    return bad;
}

}  // namespace zr
