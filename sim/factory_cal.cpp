#include "factory_cal.h"

#include <cmath>
#include <cstring>
#include <memory>
#include <mutex>

#include "instrument.h"
#include "rf_model.h"

namespace zr::sim {

namespace {

constexpr int kTemps = ZR_CAL_TEMPERATURES;
constexpr int kAttens = ZR_CAL_ATTEN_STATES;
constexpr int kColumns = ZR_CAL_IF_COLUMNS;
constexpr double kSliceHz = 39.0625e6;

bool ridgeFamily(ZrDeviceType type) { return type == zrDeviceTypeRidge2 || type == zrDeviceTypeRidge3; }

// Gain that reads a tone right through the correction the host builds:
// the IF correction filter flattens the IF to its first column and
// balances I and Q, its own gain figure takes the filter's DC response,
// which carries the I/Q balance as sqrt(1 / r0^2 + r0^2), r0 extrapolated
// from the first two ratio columns.
template <class Image>
void measureCorrections(Image& im, int slices) {
    for (int t = 0; t < kTemps; ++t) {
        const double celsius = im.temperature[t];
        for (int s = 0; s < slices; ++s) {
            float* ratio = im.ifRatio[t][s];
            float* phase = im.ifPhase[t][s];
            float* flat = im.ifFlatness[t][s];
            for (int k = 0; k < kColumns; ++k) {
                const double w = (k + 1) / 64.0;
                ratio[k] = static_cast<float>(model::ifRatio(w, s, celsius));
                phase[k] = static_cast<float>(model::ifPhase(w, s, celsius));
                flat[k] = static_cast<float>(-model::ifShapeDb(w, s, celsius));
            }
            const float r0 = std::sqrt(2.0f * ratio[0] - ratio[1]);
            const double balanceDb = 10.0 * std::log10(1.0 / (double(r0) * r0) + double(r0) * r0);
            // Measured one column off the slice centre, clear of the direct
            // path's coupling loss near DC.
            const double rf = s * kSliceHz + 781250.0;
            const double fixed = model::gainCodeDb(im.gainCode[s]) + model::ifShapeDb(1.0 / 64.0, s, celsius);
            for (int a = 0; a < kAttens; ++a)
                im.gain[t][a][s] = static_cast<float>(balanceDb - fixed - model::rfGainDb(rf, 5.0 * a, celsius));
        }
        // The preselector filters of this model are lossless.
        for (auto& filter : im.preselect[t])
            for (float& v : filter) v = 0.0f;
    }
}

template <class Image>
void fillCommon(Image& im, int slices) {
    im.calDate = 1751328000u;
    im.calVersion = 2;
    for (int t = 0; t < kTemps; ++t) {
        im.temperature[t] = static_cast<float>(factoryTemperature(t));
        const double dt = factoryTemperature(t) - 25.0;
        im.timebaseTempOffset[t] = static_cast<int16_t>(std::lround(0.012 * dt * dt - 0.8 * dt));
    }
    // Three adjustments of the reference oscillator before shipping.
    const uint16_t history[3] = {0x7A12, 0x7A17, 0x7A15};
    for (int i = 0; i < 3; ++i) {
        im.timebaseValue[i] = history[i];
        im.timebaseDate[i] = 1745000000ull + 2000000ull * i;
    }
    for (int s = 0; s < slices; ++s) im.gainCode[s] = model::factoryGainCode(s);
    for (int n = 0; n < ZR_CAL_LOW_FREQ_POINTS; ++n)
        im.lowFreqCorrection[n] = static_cast<float>(model::lowFreqLossDb(1e5 + 1e4 * n));
    measureCorrections(im, slices);
}

void fillMesa(MesaCalData& im) {
    for (int b = 0; b < 4; ++b)
        for (int c = 0; c < 256; ++c) im.loFreq[b][c] = static_cast<float>(RfFrontEnd::mesaVcoMHz(b, c, 33.0));
    fillCommon(im, ZR_CAL_MESA_SLICES);
    std::memset(im.loConfig, 3, sizeof im.loConfig);
}

void fillRidge(RidgeCalData& im) {
    for (int n = 0; n < 513; ++n) {
        im.cbbCore[n] = static_cast<uint8_t>(n < 128 ? 1 : n < 256 ? 2 : n < 384 ? 4 : 8);
        im.cbbBand[n] = static_cast<uint8_t>(255 - 2 * (n % 128));
        im.cbbBias[n] = static_cast<uint8_t>(3 + n % 3);
    }
    im.loGateBiasDefault = -1.5f;
    for (int i = 0; i < 461; ++i) im.vva[i] = static_cast<float>(22.0 + 2.0 * std::sin(i / 60.0));
    for (int i = 0; i < 455; ++i) {
        im.loftI[i] = static_cast<int16_t>(std::lround(40.0 * std::sin(i / 30.0)));
        im.loftQ[i] = static_cast<int16_t>(std::lround(-35.0 * std::cos(i / 25.0)));
    }
    for (int i = 0; i < 40; ++i) {
        im.ifOutBalance[i] = 0x100u + 3u * i;
        im.ifOutGain[i] = 0x200u + 2u * i;
    }
    im.usesLTC6947 = 1;
    fillCommon(im, ZR_CAL_RIDGE_SLICES);
    for (int t = 0; t < kTemps; ++t) {
        im.loGateBias[t] = static_cast<float>(-1.6 + 0.01 * t);
        for (int i = 0; i < 81; ++i) {
            im.band6Balance[t][i] = 0x20000u + 16u * t + i;
            im.band6Gain[t][i] = 0x30000u + 16u * t + 2u * i;
        }
    }
    for (int i = 0; i < 435; ++i) im.band5Gain[i] = 0x4000u + (7u * i) % 256u;
}

// Word sum of the image with the checksum and the timebase history read as
// erased.
uint32_t ridgeChecksum(const RidgeCalData& im) {
    const auto* bytes = reinterpret_cast<const uint8_t*>(&im);
    auto erased = [](size_t at) {
        return (at >= offsetof(RidgeCalData, checksum) && at < offsetof(RidgeCalData, checksum) + 4) ||
               (at >= offsetof(RidgeCalData, timebaseValue) && at < offsetof(RidgeCalData, timebaseValue) + 128) ||
               (at >= offsetof(RidgeCalData, timebaseDate) && at < offsetof(RidgeCalData, timebaseDate) + 512);
    };
    uint32_t sum = 0;
    for (size_t i = 0; i < sizeof im; i += 4) {
        if (erased(i)) {
            sum += 0xFFFFFFFFu;
            continue;
        }
        uint32_t w;
        std::memcpy(&w, bytes + i, 4);
        sum += w;
    }
    return sum;
}

// The tables are the same for every instrument of a family (they share one
// model); they are measured once.
const std::vector<uint8_t>& familyImage(bool ridge) {
    static std::once_flag once[2];
    static std::vector<uint8_t> images[2];
    std::call_once(once[ridge], [ridge] {
        std::vector<uint8_t>& out = images[ridge];
        if (ridge) {
            auto im = std::make_unique<RidgeCalData>();
            std::memset(im.get(), 0xFF, sizeof *im);
            fillRidge(*im);
            out.assign(reinterpret_cast<const uint8_t*>(im.get()), reinterpret_cast<const uint8_t*>(im.get() + 1));
        } else {
            auto im = std::make_unique<MesaCalData>();
            std::memset(im.get(), 0xFF, sizeof *im);
            fillMesa(*im);
            out.assign(reinterpret_cast<const uint8_t*>(im.get()), reinterpret_cast<const uint8_t*>(im.get() + 1));
        }
    });
    return images[ridge];
}

}  // namespace

double factoryTemperature(int index) { return index * 11.0 - 44.0 + 0.4 * std::sin(1.7 * index + 0.2); }

std::vector<uint8_t> factoryImage(ZrDeviceType type, int serial) {
    const bool ridge = ridgeFamily(type);
    std::vector<uint8_t> image = familyImage(ridge);
    const uint32_t s = static_cast<uint32_t>(serial);
    std::memcpy(image.data(), &s, 4);
    if (ridge) {
        auto* im = reinterpret_cast<RidgeCalData*>(image.data());
        im->checksum = ridgeChecksum(*im);
    }
    return image;
}

void factoryCalibrate(Instrument& instrument) {
    const std::vector<uint8_t> image = factoryImage(instrument.type(), instrument.serial());
    instrument.programFlash(kFactoryImageOffset, image.data(), image.size());
}

}  // namespace zr::sim
