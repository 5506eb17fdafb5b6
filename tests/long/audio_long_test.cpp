// Audio at its rate for half a minute (CTest label "long").
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <vector>

#include "support/temp_folder.h"
#include "support/watchdog.h"
#include "zr_api.h"
#include "zr_sim.h"

namespace zr {
namespace {

// 31250 samples a second within 0.1 %, counted over 30 s of blocks against
// the clock the paced instrument keeps, with every block delivered.
TEST(LongAudio, ThirtySecondsAt31250PerSecond) {
    test::TempFolder folder;
    test::Watchdog dog{std::chrono::seconds(90)};
    constexpr int kSerial = 20007171;
    ASSERT_EQ(zrSetDataFolder(folder.str().c_str()), zrNoError);
    zrSimSetWaitScale(0.0);
    ASSERT_EQ(zrSimAttachUSB(zrDeviceTypeMesa2, kSerial), zrNoError);
    zrSimAddFM(kSerial, 98e6, -30.0, 1000.0, 10000.0);
    int h = -1;
    ASSERT_GE(zrOpenDeviceBySerial(&h, kSerial), zrNoError);
    zrSetAudioCenterFreq(h, 98e6);
    ASSERT_EQ(zrConfigure(h, zrModeAudio), zrNoError);
    std::vector<float> block(1000);
    ASSERT_EQ(zrGetAudio(h, block.data()), zrNoError);
    const auto start = std::chrono::steady_clock::now();
    long long samples = 0;
    double seconds = 0.0;
    while (seconds < 30.0) {
        ASSERT_EQ(zrGetAudio(h, block.data()), zrNoError);
        samples += 1000;
        seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    }
    const double rate = double(samples) / seconds;
    std::printf("%lld audio samples in %.3f s: %.2f per second\n", samples, seconds, rate);
    EXPECT_NEAR(rate, 31250.0, 31.25);
    zrCloseDevice(h);
    zrSimDetach(kSerial);
    zrSimSetWaitScale(1.0);
}

}  // namespace
}  // namespace zr
