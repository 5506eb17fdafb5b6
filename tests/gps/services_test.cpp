#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <memory>
#include <string>
#include <thread>

#include "device/device.h"
#include "device/gps_services.h"
#include "gps_test_support.h"
#include "support/fake_transport.h"

using namespace zr;
using zr::test::ManualClock;
using zr::test::nmea;
using zr::test::StatusBytes;

namespace {

constexpr uint32_t kSecTicks = 250000000u;

class GpsServices : public ::testing::Test {
protected:
    GpsServices() : dev(std::make_unique<zr::test::OfflineTransport>(zrDeviceTypeMesa2, 55500011)) {
        dev.gps.clock = &clock;
        dev.transport->status = zrNoError;
    }

    // Two blocks: the first arms the pulse tracking, the second brings the
    // text with a new pulse.
    void feedPulse(const std::string& text) {
        StatusBytes a;
        a.pulseTick(pulse_).filling(half_);
        decodeGPS(dev.gps, a.view(), true);
        clock.advanceMs(1000);
        pulse_ += kSecTicks;
        half_ ^= 1;
        StatusBytes b;
        b.pulseTick(pulse_).finishedText(half_, text);
        decodeGPS(dev.gps, b.view(), true);
    }

    ManualClock clock;
    ZrDevice dev;
    uint32_t pulse_ = 1000;
    int half_ = 0;
};

const std::string kRmc = nmea("GPRMC,081500,A,5130.000,N,00007.500,W,0.0,0.0,221126,,,A");
const std::string kGga = nmea("GPGGA,081500,5130.000,N,00007.500,W,1,10,0.8,35.0,M,47.0,M,,");

}  // namespace

TEST_F(GpsServices, InfoWithLockGivesFixTextAndTheUpdatedFlagOnce) {
    feedPulse(kRmc + kGga);
    ASSERT_EQ(dev.gps.locked, 1);

    ZrBool updated = zrFalse;
    int64_t secs = 0;
    double lat = 0, lon = 0, alt = 0;
    char text[1100];
    int len = sizeof text;
    EXPECT_EQ(deliverGpsInfo(dev, &updated, &secs, &lat, &lon, &alt, text, &len), zrNoError);
    EXPECT_EQ(updated, zrTrue);
    EXPECT_EQ(secs, 1795305600ll + 8 * 3600 + 15 * 60 + 1);
    EXPECT_DOUBLE_EQ(lat, 51.5);
    EXPECT_DOUBLE_EQ(lon, -0.125);
    EXPECT_DOUBLE_EQ(alt, 35.0);
    EXPECT_EQ(len, dev.gps.nmeaLength + 1);
    EXPECT_EQ(std::string(text), kRmc + kGga);

    EXPECT_EQ(deliverGpsInfo(dev, &updated, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr), zrNoError);
    EXPECT_EQ(updated, zrFalse) << "nothing new since the last call";

    dev.transport->status = zrConnectionLostErr;
    EXPECT_EQ(deliverGpsInfo(dev, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr),
              zrConnectionLostErr);
}

TEST_F(GpsServices, TextIsCutToTheCallersCapacityWithItsTerminator) {
    feedPulse(kRmc);
    char text[16];
    std::memset(text, 'x', sizeof text);
    int len = 10;
    deliverGpsInfo(dev, nullptr, nullptr, nullptr, nullptr, nullptr, text, &len);
    EXPECT_EQ(len, 10);
    EXPECT_EQ(std::string(text), kRmc.substr(0, 9));
    EXPECT_EQ(text[10], 'x') << "nothing written past the capacity";

    // No capacity, or no length to read it from: no text.
    len = 0;
    text[0] = 'q';
    deliverGpsInfo(dev, nullptr, nullptr, nullptr, nullptr, nullptr, text, &len);
    EXPECT_EQ(text[0], 'q');
    EXPECT_EQ(len, 0);
    deliverGpsInfo(dev, nullptr, nullptr, nullptr, nullptr, nullptr, text, nullptr);
    EXPECT_EQ(text[0], 'q');
}

TEST_F(GpsServices, WithoutLockZerosAndNotLockedButTheTextComesAllTheSame) {
    // GGA sets an altitude even when RMC says there is no fix.
    std::string v = nmea("GPRMC,081500,V,,,,,,,221126,,,N");
    feedPulse(v + kGga);
    ASSERT_EQ(dev.gps.locked, 0);
    ASSERT_NE(dev.gps.altitude, 0.0);

    ZrBool updated = zrFalse;
    int64_t secs = 5;
    double lat = 1, lon = 1, alt = 1;
    char text[1100];
    int len = sizeof text;
    EXPECT_EQ(deliverGpsInfo(dev, &updated, &secs, &lat, &lon, &alt, text, &len), zrGPSNotLockedErr);
    EXPECT_EQ(updated, zrTrue);
    EXPECT_EQ(secs, 0);
    EXPECT_EQ(lat, 0.0);
    EXPECT_EQ(lon, 0.0);
    EXPECT_EQ(alt, 0.0);
    EXPECT_EQ(std::string(text), v + kGga);
}

TEST_F(GpsServices, ReadersSeeWholeTextsWhileTheDecoderRuns) {
    const std::string a = nmea("GPRMC,081500,A,5130.000,N,00007.500,W,0.0,0.0,221126,,,A");
    const std::string b = nmea("GPRMC,081501,V,,,,,,,221126,,,N") + kGga;
    std::atomic<bool> stop{false};
    std::thread decoder([&] {
        uint32_t pulse = 1000;
        int half = 0;
        StatusBytes blk;
        for (int i = 0; i < 4000; ++i) {
            pulse += kSecTicks;
            half ^= 1;
            blk.pulseTick(pulse).finishedText(half, (i % 2) ? a : b);
            decodeGPS(dev.gps, blk.view(), true);
        }
        stop = true;
    });
    int seen = 0;
    do {
        char text[1100];
        int len = sizeof text;
        deliverGpsInfo(dev, nullptr, nullptr, nullptr, nullptr, nullptr, text, &len);
        std::string s(text);
        if (!(s.empty() || s == a || s == b)) {
            ADD_FAILURE() << "torn text: " << s;
            break;
        }
        ++seen;
    } while (!stop);
    decoder.join();
    EXPECT_GT(seen, 0);
}
