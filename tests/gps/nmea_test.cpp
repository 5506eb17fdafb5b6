#include <gtest/gtest.h>

#include <string>

#include "gps/gps_receiver.h"
#include "gps_test_support.h"

using namespace zr;
using zr::test::nmea;

namespace {

constexpr int64_t kSec = 1000000000ll;
// 2026-11-22 12:35:19 UTC
constexpr int64_t kT123519 = 1795350919ll;

const std::string kRmc = nmea("GPRMC,123519,A,4807.038,N,01131.000,E,022.4,084.4,221126,003.1,W");
const std::string kGga = nmea("GPGGA,123519,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,");

bool rmc(GpsReceiver& g, const std::string& s) { return parseRMC(g, s.data(), static_cast<int>(s.size())); }
void gga(GpsReceiver& g, const std::string& s) { parseGGA(g, s.data(), static_cast<int>(s.size())); }

}  // namespace

TEST(NmeaRmc, ValidSentenceGivesFixPositionAndTheSecondOfTheNextPulse) {
    GpsReceiver g;
    ASSERT_TRUE(rmc(g, kRmc));
    EXPECT_EQ(g.locked, 1);
    EXPECT_NEAR(g.latitude, 48.0 + 7.038 / 60.0, 1e-12);
    EXPECT_NEAR(g.longitude, 11.0 + 31.0 / 60.0, 1e-12);
    EXPECT_EQ(g.pulseTime, (kT123519 + 1) * kSec);
    EXPECT_EQ(g.timestamp, kT123519 + 1);
    EXPECT_STREQ(g.rmcFields[0].data(), "123519");
    EXPECT_STREQ(g.rmcFields[8].data(), "221126");
    // The checksum stays part of the last field: it is not checked or cut.
    EXPECT_EQ(std::string(g.rmcFields[10].data()), "W*" + kRmc.substr(kRmc.size() - 4, 2));
}

TEST(NmeaRmc, SentenceFoundAnywhereInTextAfterOtherSentences) {
    GpsReceiver g;
    std::string text = nmea("GPGSV,3,1,11,03,03,111,00,04,15,270,00,06,01,010,00,13,06,292,00") + kGga + kRmc;
    ASSERT_TRUE(rmc(g, text));
    EXPECT_NEAR(g.latitude, 48.1173, 1e-4);
}

TEST(NmeaRmc, SouthAndWestNegateAndAnyOtherHemisphereTextCountsAsWrong) {
    GpsReceiver g;
    ASSERT_TRUE(rmc(g, nmea("GNRMC,000001,A,3352.128,S,15112.558,W,0.0,0.0,010126,,,A")));
    EXPECT_NEAR(g.latitude, -(33.0 + 52.128 / 60.0), 1e-12);
    EXPECT_NEAR(g.longitude, -(151.0 + 12.558 / 60.0), 1e-12);
    // "NN" is not a single "N"; "E" still counts.
    ASSERT_TRUE(rmc(g, nmea("GNRMC,000001,A,3352.128,NN,15112.558,E,0.0,0.0,010126,,,A")));
    EXPECT_LT(g.latitude, 0.0);
    EXPECT_GT(g.longitude, 0.0);
}

TEST(NmeaRmc, StatusOtherThanAUnlocksAndClearsTheFix) {
    for (const char* status : {"V", "", "AA", "a"}) {
        GpsReceiver g;
        ASSERT_TRUE(rmc(g, kRmc));
        gga(g, kGga);
        ASSERT_NE(g.altitude, 0.0);
        int64_t pulse = g.pulseTime;
        std::string s = nmea(std::string("GPRMC,123520,") + status + ",4807.038,N,01131.000,E,,,221126,,");
        EXPECT_FALSE(rmc(g, s)) << status;
        EXPECT_EQ(g.locked, 0) << status;
        EXPECT_EQ(g.timestamp, 0);
        EXPECT_EQ(g.latitude, 0.0);
        EXPECT_EQ(g.longitude, 0.0);
        EXPECT_EQ(g.altitude, 0.0);
        // The anchor of the time stamps is not touched by a lost fix.
        EXPECT_EQ(g.pulseTime, pulse);
    }
}

TEST(NmeaRmc, EmptyFieldsAndFieldsNotReached) {
    GpsReceiver g;
    ASSERT_TRUE(rmc(g, kRmc));
    // A latitude but an empty longitude: still locked, old position stays.
    ASSERT_TRUE(rmc(g, nmea("GPRMC,123520,A,5000.000,N,,E,022.4,084.4,221126,003.1,W")));
    EXPECT_EQ(g.locked, 1);
    EXPECT_NEAR(g.latitude, 48.1173, 1e-4);
    EXPECT_NEAR(g.longitude, 11.5167, 1e-4);
    EXPECT_STREQ(g.rmcFields[4].data(), "");
    EXPECT_EQ(g.timestamp, kT123519 + 2);

    // A sentence cut short replaces only the fields it reaches: the
    // longitude and the date come from the previous sentence's text.
    GpsReceiver h;
    ASSERT_TRUE(rmc(h, kRmc));
    ASSERT_TRUE(rmc(h, "$GPRMC,123530,A,5000.000,S\r\n"));
    EXPECT_NEAR(h.latitude, -50.0, 1e-12);
    EXPECT_NEAR(h.longitude, 11.5167, 1e-4);
    EXPECT_EQ(h.timestamp, kT123519 + 12);
    EXPECT_STREQ(h.rmcFields[5].data(), "E");
}

TEST(NmeaRmc, MissingDateKeepsFixAndPositionButNotTheTime) {
    GpsReceiver g;
    ASSERT_TRUE(rmc(g, kRmc));
    g.statusTime = 5 * kSec + 123456789;
    ASSERT_TRUE(rmc(g, nmea("GPRMC,123600,A,4900.000,N,01200.000,E,0.0,0.0,,,")));
    EXPECT_EQ(g.locked, 1);
    EXPECT_NEAR(g.latitude, 49.0, 1e-12);
    EXPECT_EQ(g.pulseTime, (kT123519 + 1) * kSec);
    EXPECT_EQ(g.timestamp, kT123519 + 1);
    EXPECT_EQ(g.statusTime, 5 * kSec + 123456789);
}

TEST(NmeaRmc, NewTimeKeepsTheSubSecondPartOfTheStatusTime) {
    GpsReceiver g;
    g.statusTime = 77 * kSec + 250000004;
    ASSERT_TRUE(rmc(g, kRmc));
    EXPECT_EQ(g.statusTime, (kT123519 + 1) * kSec + 250000004);
}

TEST(NmeaRmc, TwoDigitYearsAreThisCentury) {
    GpsReceiver g;
    ASSERT_TRUE(rmc(g, nmea("GPRMC,235959,A,0000.000,N,00000.000,E,0,0,311299,,")));
    // 2099-12-31 23:59:59 UTC, plus the one second to the pulse.
    EXPECT_EQ(g.timestamp, 4102444799ll + 1);
}

TEST(NmeaRmc, SentenceLengthLimitIs511BytesFromTheNameToTheLineEnd) {
    auto padded = [](size_t total) {
        std::string s = "RMC,123519,A,4807.038,N,01131.000,E,0,0,221126,,,";
        s += std::string(total - s.size(), '0');
        return "$GP" + s + "\r\n";
    };
    GpsReceiver g;
    EXPECT_TRUE(rmc(g, padded(511)));
    EXPECT_EQ(g.locked, 1);
    GpsReceiver h;
    h.locked = 1;
    h.latitude = 1.0;
    EXPECT_FALSE(rmc(h, padded(512)));
    // Rejected before any field is looked at: the old state stays.
    EXPECT_EQ(h.locked, 1);
    EXPECT_EQ(h.latitude, 1.0);
}

TEST(NmeaRmc, TextWithoutAWholeSentenceIsNotParsed) {
    GpsReceiver g;
    g.locked = 1;
    EXPECT_FALSE(parseRMC(g, "RM", 2));
    EXPECT_FALSE(rmc(g, nmea("GPGGA,123519,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,")));
    std::string noEnd = kRmc.substr(0, kRmc.size() - 2);
    EXPECT_FALSE(rmc(g, noEnd));
    EXPECT_EQ(g.locked, 1);
    EXPECT_STREQ(g.rmcFields[0].data(), "");
}

TEST(NmeaRmc, CoordinatesWithoutDegreesFailAndLeaveThePosition) {
    GpsReceiver g;
    ASSERT_TRUE(rmc(g, kRmc));
    // The dot at position 2 leaves no degree digits.
    ASSERT_TRUE(rmc(g, nmea("GPRMC,123520,A,07.038,N,01131.000,E,0,0,221126,,")));
    EXPECT_NEAR(g.latitude, 48.1173, 1e-4);
    ASSERT_TRUE(rmc(g, nmea("GPRMC,123520,A,4807,N,01131.000,E,0,0,221126,,")));
    EXPECT_NEAR(g.latitude, 48.1173, 1e-4);
    // Three degree digits on the longitude.
    ASSERT_TRUE(rmc(g, nmea("GPRMC,123520,A,0130.000,N,17959.400,E,0,0,221126,,")));
    EXPECT_NEAR(g.latitude, 1.5, 1e-12);
    EXPECT_NEAR(g.longitude, 179.99, 1e-12);
}

TEST(NmeaGga, AltitudeFromFieldEight) {
    GpsReceiver g;
    gga(g, kGga);
    EXPECT_DOUBLE_EQ(g.altitude, 545.4);
    EXPECT_STREQ(g.ggaFields[12].data(), "");
    gga(g, nmea("GPGGA,123520,4807.038,N,01131.000,E,1,08,0.9,-12.5,M,46.9,M,,"));
    EXPECT_DOUBLE_EQ(g.altitude, -12.5);
}

TEST(NmeaGga, MissingOrShortSentencesZeroTheAltitudeBadTextKeepsIt) {
    GpsReceiver g;
    gga(g, kGga);
    gga(g, nmea("GPGGA,123520,4807.038,N,01131.000,E,1,08,0.9,oops,M,46.9,M,,"));
    EXPECT_DOUBLE_EQ(g.altitude, 545.4);
    gga(g, std::string(600, 'x') + "GGA" + std::string(600, '1') + "\r\n");
    EXPECT_DOUBLE_EQ(g.altitude, 545.4) << "an overlong sentence changes nothing";
    gga(g, nmea("GPGGA,123520,4807.038,N,01131.000"));
    EXPECT_EQ(g.altitude, 0.0) << "too few fields";
    gga(g, kGga);
    gga(g, kRmc);
    EXPECT_EQ(g.altitude, 0.0) << "no GGA at all";
    gga(g, kGga);
    gga(g, kGga.substr(0, kGga.size() - 2));
    EXPECT_EQ(g.altitude, 0.0) << "no line end";
}
