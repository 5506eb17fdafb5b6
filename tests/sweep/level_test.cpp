// Calibrated levels of the normal sweep on simulated instruments whose RF
// path follows the words they are sent: a tone reads its power, and white
// noise reads its density in the resolution bandwidth.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <cmath>
#include <numeric>
#include <vector>

#include "registry.h"
#include "support/temp_folder.h"
#include "support/watchdog.h"
#include "zr_api.h"
#include "zr_sim.h"

namespace zr {
namespace {

class SweepLevel : public ::testing::TestWithParam<ZrDeviceType> {
protected:
    static constexpr int kSerial = 10005151;

    void SetUp() override {
        ASSERT_EQ(zrSetDataFolder(folder.str().c_str()), zrNoError);
        zrSimSetWaitScale(0.0);
        ASSERT_EQ(zrSimAttachUSB(GetParam(), kSerial), zrNoError);
        ASSERT_GE(zrOpenDeviceBySerial(&handle, kSerial), zrNoError);
        sim::findInstrument(kSerial)->setPaced(false);
        zrSetSweepSpeed(handle, zrSweepSpeedNormal);
        zrSetSweepWindow(handle, zrWindowFlatTop);
        // Levels are only meaningful once the simulated instrument follows
        // the LO the sweep tunes and carries a factory calibration of its
        // own physics for the library to apply.
        uint64_t calDate = 0;
        zrGetCalDate(handle, &calDate);
        if (calDate == 0xFFFFFFFFu) GTEST_SKIP() << "the simulated instrument has no factory calibration";
        sweep(5.3e9, 2e7, 1e5, 1e5);
        if (std::fabs(sim::findInstrument(kSerial)->centerFrequency() - 5.3e9) > 5e7)
            GTEST_SKIP() << "the simulated instrument does not follow its tune";
    }
    void TearDown() override {
        if (handle >= 0) zrCloseDevice(handle);
        zrSimDetach(kSerial);
        zrSimSetWaitScale(1.0);
    }
    // One configured sweep; the trace in dBm.
    void sweep(double centre, double span, double rbw, double vbw) {
        zrSetSweepCenterSpan(handle, centre, span);
        zrSetSweepCoupling(handle, rbw, vbw, 0.0);
        ASSERT_GE(zrConfigure(handle, zrModeSweeping), zrNoError);
        int length = 0;
        zrGetSweepParameters(handle, &actualRBW, nullptr, nullptr, nullptr, &length);
        trace.assign(size_t(length), 0.0f);
        ASSERT_GE(zrGetSweep(handle, nullptr, trace.data(), nullptr), zrNoError);
    }

    test::TempFolder folder;
    test::Watchdog dog{std::chrono::seconds(120)};
    int handle = -1;
    double actualRBW = 0.0;
    std::vector<float> trace;
};

TEST_P(SweepLevel, ToneReadsItsPowerAcrossBandsTemperaturesAndAttenuators) {
    std::vector<double> freqs{4.5e7, 1.2e8, 1.0173e9, 5.31e9, 13.1e9};
    if (GetParam() == zrDeviceTypeRidge2) freqs.push_back(30.2e9);
    struct Level {
        int atten;
        double refLevel, tone;
    };
    for (float celsius : {25.0f, 50.0f}) {
        zrSimSetTemperature(kSerial, celsius);
        for (const Level lv : {Level{-1, -20.0, -30.0}, Level{2, 0.0, -5.0}}) {
            zrSetAttenuator(handle, lv.atten);
            zrSetRefLevel(handle, lv.refLevel);
            for (double f : freqs) {
                zrSimClearSignals(kSerial);
                zrSimAddTone(kSerial, f, lv.tone);
                sweep(f, 2e7, 3e4, 3e4);
                const float peak = *std::max_element(trace.begin(), trace.end());
                EXPECT_NEAR(peak, lv.tone, 0.5) << f << " Hz, " << celsius << " C, atten " << lv.atten;
            }
        }
    }
}

TEST_P(SweepLevel, WhiteNoiseReadsItsDensityInTheResolutionBandwidth) {
    const double density = -135.0;  // dBm/Hz
    zrSimClearSignals(kSerial);
    zrSimSetNoiseFloor(kSerial, density);
    zrSetSweepDetector(handle, zrDetectorAverage, zrVideoPower);
    zrSetRefLevel(handle, -30.0);
    for (double f : {1.0e9, 7.7e9}) {
        sweep(f, 2e7, 1e5, 1e4);  // ten FFTs averaged in every bin
        double sum = 0.0;
        for (float v : trace) sum += std::pow(10.0, v / 10.0);
        const double mean = 10.0 * std::log10(sum / double(trace.size()));
        EXPECT_NEAR(mean, density + 10.0 * std::log10(actualRBW), 0.5) << f;
    }
}

TEST_P(SweepLevel, SpurRejectionLeavesAToneWhereItIs) {
    // The second pass looks through the next slice's LO: normal engine
    // (20 MHz span) and narrow engine (2 MHz), each with the pass on and off,
    // at slices whose gain codes differ from their neighbour's.
    zrSetAttenuator(handle, -1);
    zrSetRefLevel(handle, -20.0);
    for (double f : {1.31e9, 6.12e9, 9.87e9, 13.15e9, 18.7e9}) {
        for (double span : {2e7, 2e6}) {
            for (ZrBool reject : {zrFalse, zrTrue}) {
                zrSimClearSignals(kSerial);
                zrSimAddTone(kSerial, f, -30.0);
                zrSetSweepSpurReject(handle, reject);
                sweep(f, span, 3e4, 3e4);
                const float peak = *std::max_element(trace.begin(), trace.end());
                EXPECT_NEAR(peak, -30.0, 0.5) << f << " Hz, span " << span << ", reject " << reject;
            }
        }
    }
}

TEST(SweepLevelCache, AnotherFamilysCacheUnderTheSameSerialIsRefused) {
    // A Ridge2 leaves its 8 MiB calibration in the cache; a Mesa2 that comes
    // along with the same serial must not believe it.
    test::TempFolder folder;
    test::Watchdog dog{std::chrono::seconds(120)};
    ASSERT_EQ(zrSetDataFolder(folder.str().c_str()), zrNoError);
    zrSimSetWaitScale(0.0);
    constexpr int kSerial = 10005252;
    int h = -1;
    ASSERT_EQ(zrSimAttachUSB(zrDeviceTypeRidge2, kSerial), zrNoError);
    ASSERT_GE(zrOpenDeviceBySerial(&h, kSerial), zrNoError);
    zrCloseDevice(h);
    zrSimDetach(kSerial);

    ASSERT_EQ(zrSimAttachUSB(zrDeviceTypeMesa2, kSerial), zrNoError);
    ASSERT_EQ(zrOpenDeviceBySerial(&h, kSerial), zrNoError);
    sim::findInstrument(kSerial)->setPaced(false);
    zrSimAddTone(kSerial, 1e9, -30.0);
    zrSetSweepSpeed(h, zrSweepSpeedNormal);
    zrSetSweepWindow(h, zrWindowFlatTop);
    zrSetSweepCenterSpan(h, 1e9, 2e7);
    zrSetSweepCoupling(h, 3e4, 3e4, 0.0);
    for (int atten : {-1, 0, 2, 4, 6}) {
        zrSetAttenuator(h, atten);
        ASSERT_GE(zrConfigure(h, zrModeSweeping), zrNoError);
        int n = 0;
        zrGetSweepParameters(h, nullptr, nullptr, nullptr, nullptr, &n);
        std::vector<float> trace(static_cast<size_t>(n), 0.0f);
        ASSERT_GE(zrGetSweep(h, nullptr, trace.data(), nullptr), zrNoError);
        EXPECT_NEAR(*std::max_element(trace.begin(), trace.end()), -30.0, 0.5) << "atten " << atten;
    }
    zrCloseDevice(h);
    zrSimDetach(kSerial);
    char name[32];
    std::snprintf(name, sizeof name, "cal_files/zr%08d.bin", kSerial);
    EXPECT_EQ(std::filesystem::file_size(folder.path() / name), sizeof(MesaCalData));
    zrSimSetWaitScale(1.0);
}

INSTANTIATE_TEST_SUITE_P(Families, SweepLevel, ::testing::Values(zrDeviceTypeMesa2, zrDeviceTypeRidge2));

}  // namespace
}  // namespace zr
