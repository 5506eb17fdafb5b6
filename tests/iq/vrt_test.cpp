// VITA 49 packets of a simulated Mesa2's stream, decoded word by word: the
// context packet's fields and change indicator, with and without GPS; data
// packets' headers, counts, trailers and samples at the reference level's
// scale, contiguous across packets; the packet-size and mode rules.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <complex>
#include <thread>
#include <vector>

#include "support/lost_link.h"
#include "support/temp_folder.h"
#include "support/watchdog.h"
#include "zr_api.h"
#include "zr_sim.h"

namespace zr {
namespace {

constexpr double kPi = 3.14159265358979323846;

std::vector<uint32_t> hostOrder(const uint32_t* w, size_t n) {
    std::vector<uint32_t> out(n);
    for (size_t i = 0; i < n; ++i) out[i] = ntohl(w[i]);
    return out;
}
double fixed20(const std::vector<uint32_t>& w, int i) {
    return double(int64_t(uint64_t(w[size_t(i)]) | (uint64_t(w[size_t(i) + 1]) << 32))) / 1048576.0;
}

class Vrt : public ::testing::Test {
protected:
    static constexpr int kSerial = 20007272;
    static constexpr double kTone = 1.0005e9;

    void SetUp() override {
        ASSERT_EQ(zrSetDataFolder(folder.str().c_str()), zrNoError);
        zrSimSetWaitScale(0.0);
        ASSERT_EQ(zrSimAttachUSB(zrDeviceTypeMesa2, kSerial), zrNoError);
        ASSERT_GE(zrOpenDeviceBySerial(&handle, kSerial), zrNoError);
        zrSimSetNoiseFloor(kSerial, -170.0);
        zrSimAddTone(kSerial, kTone, -30.0);
        zrSetRefLevel(handle, -10.0);
        zrSetIQCenterFreq(handle, 1e9);
        zrSetIQSampleRate(handle, 8);
        zrSetVrtStreamID(handle, 0xC0FFEE01);
    }
    void TearDown() override {
        if (handle >= 0) zrCloseDevice(handle);
        zrSimDetach(kSerial);
        zrSimSetWaitScale(1.0);
    }
    std::vector<uint32_t> context() {
        uint32_t w[28], n = 0;
        EXPECT_EQ(zrGetVrtContextPkt(handle, w, &n), zrNoError);
        EXPECT_EQ(n, 28u);
        return hostOrder(w, 28);
    }
    std::vector<uint32_t> packets(uint32_t count, uint16_t size) {
        std::vector<uint32_t> w(size_t(count) * (size + 6u));
        uint32_t n = 0;
        EXPECT_EQ(zrGetVrtPackets(handle, w.data(), &n, count, zrFalse), zrNoError);
        EXPECT_EQ(n, w.size());
        return hostOrder(w.data(), w.size());
    }

    test::TempFolder folder;
    test::Watchdog watchdog{std::chrono::seconds(60)};
    int handle = -1;
};

TEST_F(Vrt, SizesAndModesFollowTheirRules) {
    uint16_t samples = 1;
    uint32_t words = 1, buf[200] = {};
    // Index 7 is never opened here: its records are as the process began.
    EXPECT_EQ(zrGetVrtPacketSize(7, &samples, &words), zrNoError);
    EXPECT_EQ(samples, 0);
    EXPECT_EQ(words, 6u);
    EXPECT_EQ(zrGetVrtPackets(7, buf, &words, 1, zrFalse), zrInvalidDeviceErr);  // not open
    EXPECT_EQ(zrGetVrtContextPktSize(100, &words), zrNoError);
    EXPECT_EQ(words, 28u);
    EXPECT_EQ(zrSetVrtStreamID(9, 1), zrInvalidDeviceErr);
    for (auto [asked, stored] : {std::pair<int, int>{0, 128}, {65535, 65529}, {1000, 1000}}) {
        ASSERT_EQ(zrSetVrtPacketSize(7, uint16_t(asked)), zrNoError);
        EXPECT_EQ(zrGetVrtPacketSize(7, &samples, &words), zrNoError);
        EXPECT_EQ(samples, stored);
        EXPECT_EQ(words, uint32_t(stored) + 6);
    }
    // Not streaming: neither packet kind.
    EXPECT_EQ(zrSetVrtPacketSize(handle, 128), zrNoError);
    EXPECT_EQ(zrGetVrtContextPkt(handle, buf, &words), zrInvalidConfigurationErr);
    EXPECT_EQ(zrGetVrtPackets(handle, buf, &words, 1, zrFalse), zrInvalidConfigurationErr);
    EXPECT_EQ(zrGetVrtPackets(handle, buf, &words, 0, zrFalse), zrNoError);
    EXPECT_EQ(words, 0u);
}

TEST_F(Vrt, ContextFieldsAndTheChangeIndicator) {
    // A centre no other test of this index uses: the first packet is a change.
    zrSetIQCenterFreq(handle, 999.9e6);
    ASSERT_EQ(zrConfigure(handle, zrModeIQStreaming), zrNoError);
    double rate = 0, bandwidth = 0;
    ZrDeviceDiagnostics diag;
    zrGetIQParameters(handle, &rate, &bandwidth);
    zrGetFullDeviceDiagnostics(handle, &diag);
    const auto w = context();
    EXPECT_EQ(w[0] & 0xFFF0FFFF, 0x4160001Cu);
    EXPECT_EQ(w[1], 0xC0FFEE01u);
    EXPECT_NEAR(double(w[2]), double(std::time(nullptr)), 2.0);
    EXPECT_LT(uint64_t(w[3]) | (uint64_t(w[4]) << 32), 1000000000000ull);
    EXPECT_EQ(w[5], 0x29A60000u | 0x80000000u);  // the first is a change, no GPS
    EXPECT_EQ(fixed20(w, 6), std::trunc(bandwidth * 1048576.0) / 1048576.0);
    EXPECT_EQ(fixed20(w, 8), 999.9e6);
    EXPECT_EQ(fixed20(w, 12), rate);
    EXPECT_EQ(w[10], uint32_t(-10 * 128));  // sign-extended 16 bits
    EXPECT_EQ(w[11], uint32_t(-128));       // automatic attenuation: -1 dB
    EXPECT_NEAR(double(int32_t(w[14])) / 64.0, diag.tempFPGA, 0.05);
    EXPECT_EQ(w[15], 0u);
    EXPECT_EQ(w[16], (uint32_t(zrDeviceTypeMesa2) << 12) + 4096);
    for (int i = 17; i < 28; ++i) EXPECT_EQ(w[size_t(i)], 0x7FFFFFFFu) << i;

    // Unchanged: no indicator, and the data trailers count the repeats.
    EXPECT_EQ(context()[5], 0x29A60000u);
    ASSERT_EQ(zrSetVrtPacketSize(handle, 512), zrNoError);
    EXPECT_EQ(packets(1, 512).back() & 63, 2u);
    zrSetAttenuator(handle, 2);
    const auto changed = context();
    EXPECT_EQ(changed[11], uint32_t(10 * 128));
    EXPECT_EQ(changed[5] >> 31, 1u);
    EXPECT_EQ(packets(1, 512).back() & 63, 1u);

    // GPS locked: its bit, the packet's time again and the position in the
    // formatted field's fixed point.
    zrSimSetGPS(kSerial, zrTrue, 48.1, -11.6, 520.5);
    std::vector<uint32_t> g;
    for (auto until = std::chrono::steady_clock::now() + std::chrono::seconds(5);
         std::chrono::steady_clock::now() < until && !((g = context())[5] & 0x4000);)
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    ASSERT_EQ(g[5], 0x29A60000u | 0x80000000u | 0x4000u);
    EXPECT_EQ(g[18], g[2]);
    EXPECT_EQ(g[19], g[3]);
    EXPECT_EQ(int32_t(g[21]), int32_t(std::trunc(48.1 * 4194304.0)));
    EXPECT_EQ(int32_t(g[22]), int32_t(std::trunc(-11.6 * 4194304.0)));
    EXPECT_EQ(int32_t(g[23]), int32_t(520.5 * 32));
    EXPECT_EQ(g[17], 0x7FFFFFFFu);
}

TEST_F(Vrt, DataPacketsCarryTheStreamAtTheReferenceLevelsScale) {
    constexpr uint16_t kSize = 1000;
    ASSERT_EQ(zrSetVrtPacketSize(handle, kSize), zrNoError);
    for (ZrDataType type : {zrDataType32fc, zrDataType16sc}) {
        SCOPED_TRACE(type);
        zrSetIQDataType(handle, type);
        ASSERT_EQ(zrConfigure(handle, zrModeIQStreaming), zrNoError);
        double rate = 0;
        zrGetIQParameters(handle, &rate, nullptr);
        context();
        const auto w = packets(20, kSize);
        const uint32_t contextCount = w[kSize + 5] & 63;
        EXPECT_GE(contextCount, 1u);
        // A -30 dBm tone under a -10 dBm reference: 20 dB below full scale.
        const double expected = 32768.0 * std::pow(10.0, -20.0 / 20.0);
        const double step = 2.0 * kPi * (kTone - 1e9) / rate;
        std::complex<double> previous;
        int steps = 0, jumps = 0;
        for (int p = 0; p < 20; ++p) {
            const uint32_t* pk = w.data() + size_t(p) * (kSize + 6);
            EXPECT_EQ(pk[0] >> 16, 0x1460u | ((pk[0] >> 16) & 15));
            EXPECT_EQ(pk[0] & 0xFFFF, kSize + 6u);
            if (p > 0) {
                EXPECT_EQ((pk[0] >> 16) & 15, (((pk - (kSize + 6))[0] >> 16) + 1) & 15);
            }
            EXPECT_EQ(pk[1], 0xC0FFEE01u);
            const uint32_t trailer = pk[kSize + 5];
            EXPECT_EQ(trailer & ~0x3Fu & ~(1u << 18), 0xE3000080u);
            EXPECT_EQ(trailer & 63, contextCount);
            double power = 0;
            for (int i = 0; i < kSize; ++i) {
                const uint32_t s = pk[5 + i];
                const std::complex<double> x(int16_t(s & 0xFFFF), int16_t(s >> 16));
                power += std::norm(x);
                if (p + i > 0) {
                    // Each sample one step of the tone on from the one before,
                    // across packet boundaries too.
                    const double d = std::arg(x * std::conj(previous)) - step;
                    ++steps;
                    jumps += std::fabs(std::remainder(d, 2 * kPi)) > 0.05;
                }
                previous = x;
            }
            if (p > 2) {
                EXPECT_NEAR(10 * std::log10(power / kSize / (expected * expected)), 0.0, 0.5);
            }
        }
        EXPECT_EQ(jumps, 0) << steps;
    }

    // An overload shows in the trailers only; the call succeeds.
    zrSimInjectFault(kSerial, zrSimFaultADCOverflow, 4);
    bool overload = false;
    // Reads of a backlog (a loaded machine) return before the faulted
    // transfers arrive: give them two seconds.
    for (auto until = std::chrono::steady_clock::now() + std::chrono::seconds(2);
         !overload && std::chrono::steady_clock::now() < until;) {
        const uint32_t trailer = packets(1, kSize).back();
        overload = (trailer >> 13) & 1;
        if (overload) {
            EXPECT_EQ((trailer >> 18) & 1, 0u);
        }
    }
    EXPECT_TRUE(overload);

    // A reader that falls behind the host's queue: the next packet says so.
    std::this_thread::sleep_for(std::chrono::milliseconds(700));  // past the half-second queue
    const uint32_t late = packets(1, kSize).back();
    EXPECT_EQ((late >> 12) & 1, 1u);
    EXPECT_EQ((packets(1, kSize).back() >> 12) & 1, 0u);

    // A pulled cable ends a call within 4 s, with no words counted.
    test::pullCableSoon(kSerial);
    std::vector<uint32_t> big(size_t(64) * (kSize + 6));
    uint32_t n = 12345;
    test::expectPromptLoss(handle, [&] {
        ZrStatus s = zrNoError;
        for (int i = 0; i < 500 && s == zrNoError; ++i) {  // 500 calls are 5 s of samples
            n = 12345;
            s = zrGetVrtPackets(handle, big.data(), &n, 64, zrFalse);
        }
        return s;
    });
    EXPECT_EQ(n, 12345u);
}

}  // namespace
}  // namespace zr
