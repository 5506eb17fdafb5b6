// Runs that take minutes, outside the default suite (CTest label "long"):
//   ctest --test-dir build -L long --output-on-failure
#include <gtest/gtest.h>

#include <chrono>
#include <complex>
#include <cstdio>
#include <vector>

#include "support/temp_folder.h"
#include "support/watchdog.h"
#include "zr_api.h"
#include "zr_sim.h"

namespace zr {
namespace {

// A paced stream at the full 50 MS/s for a minute: every sample arrives,
// every read is contiguous with the one before, to the nanosecond.
TEST(LongIQ, MinuteAtFullRateLosesNothing) {
    test::TempFolder folder;
    test::Watchdog dog{std::chrono::seconds(180)};
    constexpr int kSerial = 10006262;
    ASSERT_EQ(zrSetDataFolder(folder.str().c_str()), zrNoError);
    zrSimSetWaitScale(0.0);
    ASSERT_EQ(zrSimAttachUSB(zrDeviceTypeMesa2, kSerial), zrNoError);
    int h = -1;
    ASSERT_GE(zrOpenDeviceBySerial(&h, kSerial), zrNoError);
    zrSetIQSampleRate(h, 1);
    ASSERT_GE(zrConfigure(h, zrModeIQStreaming), zrNoError);
    constexpr int n = 1 << 20;
    std::vector<std::complex<float>> buf(n);
    int64_t previous = 0, ns = 0;
    int loss = 0, losses = 0, gaps = 0;
    long long samples = 0;
    const auto start = std::chrono::steady_clock::now();
    while (samples < 60LL * 50000000) {
        ASSERT_GE(zrGetIQ(h, buf.data(), n, nullptr, 0, &ns, zrFalse, &loss, nullptr), zrNoError);
        losses += loss;
        if (samples > 0 && ns - previous != int64_t(n) * 20) ++gaps;
        previous = ns;
        samples += n;
    }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::printf("%lld samples in %.2f s (%.2f MS/s), %d losses, %d gaps\n", samples, seconds, samples / seconds / 1e6,
                losses, gaps);
    EXPECT_EQ(losses, 0);
    EXPECT_EQ(gaps, 0);
    zrCloseDevice(h);
    zrSimDetach(kSerial);
}

}  // namespace
}  // namespace zr
