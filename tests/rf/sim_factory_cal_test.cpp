// A freshly attached simulated instrument carries a factory calibration of
// its own physics: the library loads it over the simulated USB bus, and
// its corrections, applied the way the sweep plan applies them, read a
// tone at its true power at and between the calibration temperatures.

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <memory>
#include <vector>

#include "calibration/correction_set.h"
#include "calibration/load_usb.h"
#include "factory_cal.h"
#include "instrument.h"
#include "registry.h"
#include "rf/rf_glue.h"
#include "support/temp_folder.h"
#include "zr_sim.h"

namespace zr {
namespace {

double toneDbfs(const int16_t* iq, double cyclesPerSample) {
    std::complex<double> acc = 0.0;
    for (int n = 0; n < sim::Instrument::kSamplesPerBlock; ++n)
        acc += std::complex<double>(iq[2 * n], iq[2 * n + 1]) * std::polar(1.0, -6.283185307179586 * cyclesPerSample * n);
    return 20.0 * std::log10(std::abs(acc) / sim::Instrument::kSamplesPerBlock / 32768.0);
}

struct Case {
    ZrDeviceType type;
    int serial;
    std::vector<int> slices;
};

class SimFactoryCal : public ::testing::TestWithParam<Case> {
protected:
    void SetUp() override {
        ASSERT_EQ(zrSetDataFolder(folder.str().c_str()), zrNoError);
        zrSimSetWaitScale(0.0);
        ASSERT_EQ(zrSimAttachUSB(GetParam().type, GetParam().serial), zrNoError);
    }
    void TearDown() override {
        zrSimDetach(GetParam().serial);
        zrSimSetWaitScale(1.0);
    }
    test::TempFolder folder;
};

TEST_P(SimFactoryCal, LibraryCorrectionsReadToneLevelsFromTheImageInFlash) {
    const bool ridge = GetParam().type == zrDeviceTypeRidge2;
    DeviceInterfaceUSB usb;
    ASSERT_EQ(loadCalibrationUSB(usb, GetParam().serial), zrNoError);
    EXPECT_EQ(usb.calInvalid, 0);
    ASSERT_GE(usb.image.size(), ridge ? sizeof(RidgeCalData) : sizeof(MesaCalData));
    if (ridge) EXPECT_TRUE(ridgeChecksumValid(*reinterpret_cast<const RidgeCalData*>(usb.image.data())));
    usb.Close();

    CorrectionSet set;
    set.LoadFromTransportImage(usb.image.data(), ridge);
    auto rfState = std::make_unique<rf::RfState>();
    // The RF state comes from the head of the transport image, as a device builds it.
    if (ridge)
        rf::loadCbbColumns(rfState->ridge, *reinterpret_cast<const RidgeCalData*>(usb.image.data()));
    else
        rf::buildMesaRfState(rfState->mesa, *reinterpret_cast<const MesaCalData*>(usb.image.data()));
    rf::DeviceRfCalibration cal(set);

    // The instrument under test is the one in the registry, flash and all.
    auto inst = sim::findInstrument(GetParam().serial);
    inst->setRunning(true);
    inst->setPaced(false);
    inst->setNoiseFloor(-200.0);
    std::vector<int16_t> iq(2 * sim::Instrument::kSamplesPerBlock);
    float taps[kIFFilterValues];
    const double power = -20.0;

    // At two calibration points and between them.
    for (double celsius : {sim::factoryTemperature(5), sim::factoryTemperature(6),
                           0.5 * (sim::factoryTemperature(6) + sim::factoryTemperature(7)), 47.3}) {
        set.SetTemperature(static_cast<float>(celsius));
        inst->setTemperature(static_cast<float>(celsius));
        for (int atten : {0, 3, 6}) {
            for (int n : GetParam().slices) {
                SCOPED_TRACE(::testing::Message() << "slice " << n << ", " << celsius << " C, atten " << atten);
                double filterGain = 0.0;
                set.BuildIFFilter(n, taps, true, &filterGain);
                const double correction = set.GetAttenGain(atten, n) + filterGain;

                rf::TuneRequest req;
                req.kind = 1;
                req.rfFreq = n * 39062500.0;
                req.loFreq = n < 3 ? 0.0 : n == 3 ? 125e6 : (n + 1) * 39.0625e6;
                req.attenIndex = atten;
                req.gainCode = ridge ? set.ridge->gainCode[n] : set.mesa->gainCode[n];
                req.lastSlice = ridge ? 1129 : 524;
                req.loIndex = 5 * n;
                CommandList list;
                rf::tune(*rfState, ridge, cal, list, req);
                AppendIFFilter(list, req.band, req.subBand, taps, ridge);
                const uint32_t ddc = n == 0 ? 0 : n == 1 ? 864 : n == 2 ? 704 : n == 3 ? 32 : 672;
                list.AppendWord(0x13010000u | ddc);
                for (size_t b = 0; b < list.blockCount(); ++b)
                    ASSERT_TRUE(inst->writeBlock(list.data() + b * CommandList::kBlockSize));

                inst->clearSignals();
                inst->addTone(n * 39062500.0 + 3e6, power);
                inst->generateBlock(iq.data());
                EXPECT_NEAR(toneDbfs(iq.data(), 3e6 / 50e6) + correction, power, 0.2);
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Families, SimFactoryCal,
    ::testing::Values(Case{zrDeviceTypeMesa2, 10007001, {0, 2, 4, 5, 26, 137, 300, 524}},
                      Case{zrDeviceTypeRidge2, 10007002, {1, 4, 16, 160, 400, 700, 1000, 1129}}),
    [](const auto& info) { return info.param.type == zrDeviceTypeRidge2 ? "Ridge2" : "Mesa2"; });

}  // namespace
}  // namespace zr
