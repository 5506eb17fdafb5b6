// Audio demodulation end to end on a simulated Mesa2, whose AM and FM
// sources are its own spectral lines: depth, deviation, sidebands and the
// CW offset come out as the demodulators promise; a type switch reaches the
// next block; a pulled cable or an abort never leaves a reader waiting.
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <complex>
#include <thread>
#include <vector>

#include "audio/audio_chain.h"
#include "support/lost_link.h"
#include "support/temp_folder.h"
#include "support/watchdog.h"
#include "zr_api.h"
#include "zr_sim.h"

namespace zr {
namespace {

constexpr double kAudioRate = 31250.0;
constexpr double kPi = 3.14159265358979323846;

// Amplitude of the sine at hz, through a Hann window (so any frequency).
double amplitudeAt(const std::vector<float>& x, double hz) {
    std::complex<double> acc = 0.0;
    double wsum = 0.0;
    const size_t n = x.size();
    for (size_t i = 0; i < n; ++i) {
        const double w = 0.5 - 0.5 * std::cos(2.0 * kPi * double(i) / double(n - 1));
        acc += w * double(x[i]) * std::polar(1.0, -2.0 * kPi * hz * double(i) / kAudioRate);
        wsum += w;
    }
    return 2.0 * std::abs(acc) / wsum;
}

double strongestHz(const std::vector<float>& x, double from, double to) {
    double best = from, level = 0.0;
    auto scan = [&](double a, double b, double step) {
        for (double f = a; f <= b; f += step)
            if (const double v = amplitudeAt(x, f); v > level) level = v, best = f;
    };
    scan(from, to, 20.0);
    scan(best - 20.0, best + 20.0, 0.5);
    return best;
}

class Audio : public ::testing::Test {
protected:
    static constexpr int kSerial = 20007070;
    static constexpr double kCarrier = 100e6;

    void SetUp() override {
        ASSERT_EQ(zrSetDataFolder(folder.str().c_str()), zrNoError);
        zrSimSetWaitScale(0.0);
        ASSERT_EQ(zrSimAttachUSB(zrDeviceTypeMesa2, kSerial), zrNoError);
        ASSERT_GE(zrOpenDeviceBySerial(&handle, kSerial), zrNoError);
        zrSimSetNoiseFloor(kSerial, -170.0);
        zrSetRefLevel(handle, 0.0);
        zrSetAudioCenterFreq(handle, kCarrier);
    }
    void TearDown() override {
        if (handle >= 0) zrCloseDevice(handle);
        zrSimDetach(kSerial);
        zrSimSetWaitScale(1.0);
    }
    ZrStatus start(ZrAudioType type) {
        zrSetAudioType(handle, type);
        return zrConfigure(handle, zrModeAudio);
    }
    // blocks of audio after skipping the first (filter transients).
    std::vector<float> listen(int blocks, int skip = 3) {
        std::vector<float> out, block(1000);
        for (int i = 0; i < skip + blocks; ++i) {
            EXPECT_EQ(zrGetAudio(handle, block.data()), zrNoError);
            if (i >= skip) out.insert(out.end(), block.begin(), block.end());
        }
        return out;
    }

    test::TempFolder folder;
    test::Watchdog watchdog{std::chrono::seconds(60)};
    int handle = -1;
};

TEST_F(Audio, AmAndFmComeOutAtTheirDepthAndDeviation) {
    zrSimAddAM(kSerial, kCarrier, -20.0, 1000.0, 0.5);
    ASSERT_EQ(start(zrAudioAM), zrNoError);
    // The carrier tracker starts at the level of a -20 dBm carrier.
    EXPECT_NEAR(amplitudeAt(listen(16), 1000.0), 0.5, 0.025);

    // FM: the phase step per sample at 312.5 kS/s, scaled by 160000 / IF
    // bandwidth, through a first-order de-emphasis whose band edge (0.2 dB
    // down) is at 0.3275 / tau of the rate, prewarped.
    auto predicted = [](double ifBandwidth, double tauUs) {
        const double eps2 = std::pow(10.0, 0.02) - 1.0;
        const double r = std::tan(kPi * 1000.0 / 312500.0) / std::tan(kPi * 0.3275 / tauUs);
        return 2.0 * kPi * 10000.0 / 312500.0 * 160000.0 / ifBandwidth / std::sqrt(1.0 + eps2 * r * r);
    };
    zrSimClearSignals(kSerial);
    zrSimAddFM(kSerial, kCarrier, -20.0, 1000.0, 10000.0);
    ASSERT_EQ(zrSetAudioFilters(handle, 200000.0, 12000.0, 100.0), zrNoError);
    ASSERT_EQ(zrSetAudioFMDeemphasis(handle, 75.0), zrNoError);
    ASSERT_EQ(start(zrAudioFM), zrNoError);
    const double fm = amplitudeAt(listen(16), 1000.0);
    EXPECT_NEAR(fm, predicted(200000.0, 75.0), 0.05 * predicted(200000.0, 75.0));

    // Out-of-range filters are clamped to 500 .. 250000, 1000 .. 12000 and
    // 20 .. 1000; the clamped IF bandwidth sets the FM gain, and a 12 kHz
    // low-pass still passes the tone.
    EXPECT_EQ(zrSetAudioFilters(handle, 1e6, 20000.0, 5000.0), zrSettingClamped);
    EXPECT_EQ(zrSetAudioFMDeemphasis(handle, 500.0), zrSettingClamped);
    ASSERT_EQ(start(zrAudioFM), zrNoError);
    EXPECT_NEAR(amplitudeAt(listen(16), 1000.0) / fm, predicted(250000.0, 100.0) / predicted(200000.0, 75.0), 0.03);
}

TEST_F(Audio, SidebandsAndCwAndATypeSwitchOnTheRunningStream) {
    zrSimAddTone(kSerial, kCarrier + 1000.0, -20.0);
    ASSERT_EQ(start(zrAudioUSB), zrNoError);
    const std::vector<float> upper = listen(16);
    // The switch reaches the block after the one being made.
    ASSERT_EQ(zrSetAudioType(handle, zrAudioLSB), zrNoError);
    const std::vector<float> lower = listen(8, 2);
    EXPECT_NEAR(amplitudeAt(upper, 1000.0), 1.0, 0.05);
    EXPECT_NEAR(strongestHz(upper, 200.0, 5000.0), 1000.0, 1.0);
    EXPECT_LT(20.0 * std::log10(amplitudeAt(lower, 1000.0) / amplitudeAt(upper, 1000.0)), -30.0);

    // CW: a carrier at the audio centre sounds at 520 Hz.
    zrSimClearSignals(kSerial);
    zrSimAddTone(kSerial, kCarrier, -20.0);
    ASSERT_EQ(start(zrAudioCW), zrNoError);
    const std::vector<float> cw = listen(16);
    EXPECT_NEAR(strongestHz(cw, 100.0, 5000.0), 520.0, 1.0);
    EXPECT_NEAR(amplitudeAt(cw, 520.0), 1.0, 0.05);
}

TEST_F(Audio, ReadersAreReleasedByAbortAndByAPulledCable) {
    std::vector<float> block(1000);
    EXPECT_EQ(zrGetAudio(handle, block.data()), zrInvalidConfigurationErr);
    EXPECT_EQ(zrSetAudioType(handle, ZrAudioType(5)), zrInvalidParameterErr);
    ASSERT_EQ(start(zrAudioFM), zrNoError);
    EXPECT_EQ(zrGetAudio(handle, nullptr), zrNullPtrErr);
    EXPECT_EQ(zrGetIQ(handle, block.data(), 100, nullptr, 0, nullptr, zrFalse, nullptr, nullptr),
              zrInvalidConfigurationErr);

    // An abort from another thread while a reader waits: it returns.
    std::thread reader([&] {
        ZrStatus s = zrNoError;
        std::vector<float> b(1000);
        while (s == zrNoError) s = zrGetAudio(handle, b.data());
        EXPECT_EQ(s, zrInvalidConfigurationErr);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_EQ(zrAbort(handle), zrNoError);
    reader.join();

    ASSERT_EQ(start(zrAudioAM), zrNoError);
    listen(1, 0);
    test::pullCableSoon(kSerial);
    // 200 blocks are over 6 s: the loss must come first.
    int calls = 0;
    test::expectPromptLoss(handle, [&] {
        ZrStatus s = zrNoError;
        while (s == zrNoError && ++calls < 200) s = zrGetAudio(handle, block.data());
        return s;
    });
}

// Two demodulators interleaved give exactly what each gives alone.
TEST(AudioChainState, BelongsToEachChain) {
    AudioSettings settings;
    std::vector<cf32> am(AudioChain::kInput), ssb(AudioChain::kInput), work(AudioChain::kInput);
    for (int i = 0; i < AudioChain::kInput; ++i) {
        const double t = i / 3.125e6;
        am[size_t(i)] = cf32(float(0.05 * (1.0 + 0.3 * std::sin(2 * kPi * 700 * t))), 0.0f);
        ssb[size_t(i)] = std::polar(0.2f, float(2 * kPi * 1500 * t));
    }
    auto run = [&](AudioChain& c, const std::vector<cf32>& in, ZrAudioType type, std::vector<float>& out) {
        work = in;
        std::vector<float> block(AudioChain::kOutput);
        c.process(work.data(), type, block.data());
        out.insert(out.end(), block.begin(), block.end());
    };
    AudioChain alone1(settings), alone2(settings), mixed1(settings), mixed2(settings);
    std::vector<float> a1, a2, m1, m2;
    for (int pass = 0; pass < 3; ++pass) run(alone1, am, zrAudioAM, a1);
    for (int pass = 0; pass < 3; ++pass) run(alone2, ssb, zrAudioUSB, a2);
    for (int pass = 0; pass < 3; ++pass) {
        run(mixed1, am, zrAudioAM, m1);
        run(mixed2, ssb, zrAudioUSB, m2);
    }
    EXPECT_EQ(a1, m1);
    EXPECT_EQ(a2, m2);
    EXPECT_GT(amplitudeAt(std::vector<float>(a1.end() - 1000, a1.end()), 700.0), 0.1);
}

}  // namespace
}  // namespace zr
