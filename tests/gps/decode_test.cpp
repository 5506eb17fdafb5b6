#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "gps/gps_receiver.h"
#include "gps_test_support.h"

using namespace zr;
using zr::test::ManualClock;
using zr::test::nmea;
using zr::test::StatusBytes;

namespace {

constexpr int64_t kSec = 1000000000ll;
constexpr uint32_t kTicksPerSec = 250000000u;
// 2026-11-22 00:00:00 UTC
constexpr int64_t kDay = 1795305600ll;

std::string rmcAt(int64_t utcSeconds, const char* status = "A") {
    int64_t s = utcSeconds - kDay;  // same day in these tests
    char body[160];
    std::snprintf(body, sizeof body, "GPRMC,%02d%02d%02d.00,%s,4807.038,N,01131.000,E,0.1,0.0,221126,,,A",
                  static_cast<int>(s / 3600), static_cast<int>(s / 60 % 60), static_cast<int>(s % 60), status);
    return nmea(body);
}

std::string ggaAt(double altitude) {
    char body[160];
    std::snprintf(body, sizeof body, "GPGGA,120000.00,4807.038,N,01131.000,E,1,09,0.9,%.1f,M,46.9,M,,",
                  altitude);
    return nmea(body);
}

// A receiver on a hand-driven clock, fed one block at a time.
class GpsFeed : public ::testing::Test {
protected:
    GpsFeed() { gps.clock = &clock; }

    void feed(const StatusBytes& b, bool gpsFlag = true) { decodeGPS(gps, b.view(), gpsFlag); }

    // A block carrying a new pulse tick and a finished RMC/GGA text, the
    // half flipping each time as the instrument does once per second.
    StatusBytes pulseBlock(uint32_t pulse, uint32_t status, uint32_t running, const std::string& text) {
        half_ ^= 1;
        StatusBytes b;
        b.pulseTick(pulse).statusTick(status).runningTick(running).ppsValid(true).finishedText(half_, text);
        return b;
    }

    // Brings the receiver to lock with the pulse at `pulse` and the RMC of
    // `utc`: a first block to arm the pulse tracking, then the pulse.
    void lockAt(uint32_t pulse, int64_t utc) {
        feed(pulseBlock(pulse - kTicksPerSec, pulse - kTicksPerSec, pulse - kTicksPerSec, rmcAt(utc - 1)));
        clock.advanceMs(1000);
        feed(pulseBlock(pulse, pulse, pulse, rmcAt(utc) + ggaAt(545.4)));
        ASSERT_EQ(gps.locked, 1);
    }

    ManualClock clock;
    GpsReceiver gps;
    int half_ = 0;
};

}  // namespace

// ---------------------------------------------------------------------------
// Lock and loss of lock

TEST_F(GpsFeed, FirstBlockOnlyArmsThePulseTrackingNothingIsParsed) {
    feed(pulseBlock(1000, 1000, 1000, rmcAt(kDay + 100)));
    EXPECT_EQ(gps.locked, 0);
    EXPECT_EQ(gps.messageCount, 0u);
    EXPECT_EQ(gps.nmeaLength, 0);
    EXPECT_EQ(gps.lastPulseTick, 1000u);
    // The first block starts the free-running time from the host clock.
    EXPECT_EQ(gps.statusTime, clock.ns);
    EXPECT_EQ(gps.freeRunTime, clock.ns);

    clock.advanceMs(1000);
    std::string text = rmcAt(kDay + 101) + ggaAt(545.4);
    feed(pulseBlock(1000 + kTicksPerSec, 1000 + kTicksPerSec, 1000, text));
    EXPECT_EQ(gps.locked, 1);
    EXPECT_EQ(gps.messageCount, 1u);
    EXPECT_EQ(gps.lastRmcMs, clock.ms);
    EXPECT_DOUBLE_EQ(gps.altitude, 545.4);
    EXPECT_EQ(gps.timestamp, kDay + 102);
    // The text is the finished half padded to whole words, zero terminated.
    EXPECT_EQ(gps.nmeaLength, static_cast<int>((text.size() + 3) / 4 * 4));
    EXPECT_EQ(std::string(gps.nmeaText.data()), text);
}

TEST_F(GpsFeed, LockIsLostOnlyAfterMoreThan5000msWithoutAValidRmc) {
    lockAt(500000000u, kDay + 200);
    gps.useAverage = 1;
    gps.pulseAverage.lastTick = 500000000;
    gps.pulseAverage.error = 7;

    StatusBytes quiet;  // no new pulse, same half
    quiet.pulseTick(500000000u).statusTick(600000000u).runningTick(600000000u).filling(half_);
    clock.advanceMs(5000);
    feed(quiet);
    EXPECT_EQ(gps.locked, 1) << "exactly 5000 ms keeps the lock";
    EXPECT_NE(gps.latitude, 0.0);

    clock.advanceMs(1);
    feed(quiet);
    EXPECT_EQ(gps.locked, 0);
    EXPECT_EQ(gps.timestamp, 0);
    EXPECT_EQ(gps.latitude, 0.0);
    EXPECT_EQ(gps.longitude, 0.0);
    EXPECT_EQ(gps.altitude, 0.0);
    EXPECT_EQ(gps.pulseAverage.lastTick, -1);
    EXPECT_EQ(gps.pulseAverage.error, 0);
}

TEST_F(GpsFeed, EachValidRmcAtAPulseRestartsTheLockTimeout) {
    uint32_t p = 100;
    lockAt(p, kDay + 300);
    for (int s = 1; s <= 10; ++s) {
        clock.advanceMs(4000);
        p += kTicksPerSec;
        feed(pulseBlock(p, p, p, rmcAt(kDay + 300 + s)));
        ASSERT_EQ(gps.locked, 1) << s;
    }
    // A pulse whose text has no RMC does not restart it.
    clock.advanceMs(4000);
    p += kTicksPerSec;
    feed(pulseBlock(p, p, p, ggaAt(1.0)));
    EXPECT_EQ(gps.locked, 1);
    clock.advanceMs(1001);
    StatusBytes quiet;
    quiet.pulseTick(p).statusTick(p + 5).runningTick(p + 5).filling(half_);
    feed(quiet);
    EXPECT_EQ(gps.locked, 0);
}

TEST_F(GpsFeed, RmcWithStatusVAtAPulseUnlocksAtOnce) {
    lockAt(100, kDay + 400);
    clock.advanceMs(1000);
    feed(pulseBlock(100 + kTicksPerSec, 100 + kTicksPerSec, 100, rmcAt(kDay + 401, "V")));
    EXPECT_EQ(gps.locked, 0);
    EXPECT_EQ(gps.latitude, 0.0);
}

TEST_F(GpsFeed, TextIsTakenFromTheHalfThatBit8DoesNotName) {
    for (int fillingHalf : {0, 1}) {
        GpsReceiver g;
        g.clock = &clock;
        std::string good = rmcAt(kDay + 500), bad = rmcAt(kDay + 500, "V");
        StatusBytes first;
        first.pulseTick(10).filling(fillingHalf);
        decodeGPS(g, first.view(), true);
        StatusBytes b;
        b.pulseTick(10 + kTicksPerSec).filling(fillingHalf).halfText(fillingHalf, bad);
        b.halfText(fillingHalf ^ 1, good).textWords(static_cast<uint16_t>(good.size() / 4 + 1));
        decodeGPS(g, b.view(), true);
        EXPECT_EQ(g.locked, 1) << fillingHalf;
        EXPECT_EQ(std::string(g.nmeaText.data()), good);
    }
}

TEST_F(GpsFeed, AHalfChangeWithoutAPulseTakesTheTextButParsesNothing) {
    StatusBytes b;
    b.pulseTick(10).finishedText(0, rmcAt(kDay + 600));
    feed(b);
    EXPECT_EQ(gps.messageCount, 0u) << "the first block has no previous half to differ from";
    b.finishedText(1, rmcAt(kDay + 601));
    feed(b);
    EXPECT_EQ(gps.messageCount, 1u);
    EXPECT_EQ(std::string(gps.nmeaText.data()), rmcAt(kDay + 601));
    EXPECT_EQ(gps.locked, 0);
    feed(b);
    EXPECT_EQ(gps.messageCount, 1u) << "same half again";
}

TEST_F(GpsFeed, TextLengthIsCappedAtOneHalf) {
    StatusBytes b;
    b.pulseTick(10).filling(0).textWords(0xFFFF);
    feed(b);
    b.filling(1);
    feed(b);
    EXPECT_EQ(gps.nmeaLength, kGpsTextHalfBytes);
    EXPECT_EQ(gps.nmeaText[kGpsTextHalfBytes], '\0');
}

TEST_F(GpsFeed, BlockWithWrongMagicChangesNothing) {
    lockAt(100, kDay + 700);
    int64_t status = gps.statusTime;
    uint32_t count = gps.messageCount;
    StatusBytes bad = pulseBlock(999999, 999999, 999999, rmcAt(kDay + 800, "V"));
    bad.magic(0x31555835);
    clock.advanceMs(10000);
    feed(bad);
    EXPECT_EQ(gps.locked, 1);
    EXPECT_EQ(gps.lastPulseTick, 100u);
    EXPECT_EQ(gps.statusTime, status);
    EXPECT_EQ(gps.messageCount, count);
}

// ---------------------------------------------------------------------------
// Time stamps with lock

TEST_F(GpsFeed, LockedTimesAreThePulseUtcPlusFourNsPerTick) {
    const uint32_t p = 1234567;
    lockAt(p, kDay + 1000);
    const int64_t pulseUtc = (kDay + 1001) * kSec;
    ASSERT_EQ(gps.pulseTime, pulseUtc);

    const uint32_t statusTicks = 98765432, runningTicks = 12345678;
    StatusBytes b;
    b.pulseTick(p).statusTick(p + statusTicks).runningTick(p + runningTicks).filling(half_);
    feed(b);
    EXPECT_EQ(gps.statusTime, pulseUtc + int64_t{statusTicks} * 4);
    // The running tick lags the samples by 1024 periods of 20 ns.
    EXPECT_EQ(gps.blockTime, pulseUtc + int64_t{runningTicks} * 4 + 20480);

    gps.latencyTerm = 12.5;
    feed(b);
    EXPECT_EQ(gps.blockTime, pulseUtc + int64_t{runningTicks} * 4 + 12800);
    gps.latencyTerm = 1.0 / 3.0;  // 341.33 -> 341
    feed(b);
    EXPECT_EQ(gps.blockTime, pulseUtc + int64_t{runningTicks} * 4 + 341);
}

TEST_F(GpsFeed, LockedTimesMoveForwardAcrossCounterWraps) {
    // Start 3 s before a wrap and run 40 s: every counter wraps at least
    // twice, at different places relative to the pulse.
    uint32_t p = 0u - 3 * kTicksPerSec;
    int64_t utc = kDay + 2000;
    lockAt(p, utc);
    int64_t lastStatus = 0, lastBlock = 0;
    for (int s = 0; s < 40; ++s) {
        if (s > 0) {
            clock.advanceMs(1000);
            p += kTicksPerSec;
            ++utc;
            feed(pulseBlock(p, p + 3, p + 7, rmcAt(utc)));
            ASSERT_EQ(gps.locked, 1);
        }
        const int64_t pulseUtc = (utc + 1) * kSec;
        for (uint32_t q = 1; q <= 4; ++q) {
            uint32_t st = p + q * 60000000u, rt = st - 1000u;
            clock.advanceMs(1);
            StatusBytes b;
            b.pulseTick(p).statusTick(st).runningTick(rt).filling(half_);
            feed(b);
            ASSERT_EQ(gps.statusTime, pulseUtc + int64_t{q} * 240000000) << s << " " << q;
            ASSERT_EQ(gps.blockTime, pulseUtc + int64_t{q} * 240000000 - 4000 + 20480) << s << " " << q;
            ASSERT_GT(gps.statusTime, lastStatus);
            ASSERT_GT(gps.blockTime, lastBlock);
            lastStatus = gps.statusTime;
            lastBlock = gps.blockTime;
        }
    }
}

TEST_F(GpsFeed, RunningTickLatchedJustBeforeThePulseGivesATimeJustBeforeIt) {
    // Also when the counter wrapped between the two: the pulse just after
    // the wrap, the running tick just before it.
    for (const uint32_t p : {100u, 20u}) {
        lockAt(p, kDay + 3000);
        StatusBytes b;
        b.pulseTick(p).statusTick(p).runningTick(p - 40).filling(half_);
        feed(b);
        EXPECT_EQ(gps.blockTime, gps.pulseTime - 40 * 4 + 20480) << p;
    }
}

// ---------------------------------------------------------------------------
// Time stamps without lock

TEST_F(GpsFeed, FreeRunningTimesFollowTheTicksAcrossWraps) {
    const int64_t start = clock.ns;
    uint32_t tick = 0xF0000000u;
    StatusBytes b;
    b.pulseTick(77).statusTick(tick).runningTick(tick);
    feed(b, false);  // the first block starts the clocks
    ASSERT_EQ(gps.statusTime, start);

    // The running time starts at the first data block, from the host clock.
    clock.advanceMs(250);
    tick += 62500000u;
    b.statusTick(tick).runningTick(tick);
    feed(b);
    const int64_t runStart = clock.ns;
    ASSERT_EQ(gps.freeRunTime, runStart);
    ASSERT_EQ(gps.freeRunStarted, 1);
    ASSERT_EQ(gps.statusTime, start + 250000000);

    int64_t lastStatus = gps.statusTime, lastRun = gps.freeRunTime;
    for (int i = 1; i <= 300; ++i) {  // 75 s: four wraps
        clock.advanceMs(250);
        tick += 62500000u;
        b.statusTick(tick).runningTick(tick);
        feed(b);
        ASSERT_EQ(gps.statusTime, start + 250000000ll * (i + 1)) << i;
        ASSERT_EQ(gps.freeRunTime, runStart + 250000000ll * i) << i;
        ASSERT_GT(gps.statusTime, lastStatus);
        ASSERT_GT(gps.freeRunTime, lastRun);
        lastStatus = gps.statusTime;
        lastRun = gps.freeRunTime;
    }
}

TEST_F(GpsFeed, FreeRunningTimeIsLeftAloneByBlocksWithoutData) {
    StatusBytes b;
    b.pulseTick(77).statusTick(1000).runningTick(1000);
    feed(b, false);
    int64_t run = gps.freeRunTime;
    clock.advanceMs(1000);
    b.statusTick(1000 + kTicksPerSec).runningTick(1000 + kTicksPerSec);
    feed(b, false);
    EXPECT_EQ(gps.freeRunTime, run);
    EXPECT_EQ(gps.statusTime, run + kSec);
}

TEST_F(GpsFeed, LongGapsBetweenBlocksAreJudgedByTheHostClock) {
    StatusBytes b;
    uint32_t tick = 123;
    b.pulseTick(77).statusTick(tick).runningTick(tick);
    feed(b, false);
    int64_t t = gps.statusTime;
    // 40 s, 10 s, 20 s, 35 s, 30 s: between none and two whole wraps, and
    // some with a tick difference that looks small.
    for (int seconds : {40, 10, 20, 35, 30, 1}) {
        clock.advanceMs(static_cast<uint64_t>(seconds) * 1000);
        tick += static_cast<uint32_t>(static_cast<uint64_t>(seconds) * kTicksPerSec);
        b.statusTick(tick);
        feed(b, false);
        t += seconds * kSec;
        ASSERT_EQ(gps.statusTime, t) << seconds;
    }
}

TEST_F(GpsFeed, StatusTimeRunsOnFromTheGpsTimeWhenLockIsLost) {
    const uint32_t p = 4000000000u;
    lockAt(p, kDay + 4000);
    StatusBytes b;
    b.pulseTick(p).statusTick(p + 100).runningTick(p + 100).filling(half_);
    feed(b);
    const int64_t locked = gps.statusTime;
    ASSERT_EQ(locked, (kDay + 4001) * kSec + 400);

    clock.advanceMs(1000);
    uint32_t p2 = p + kTicksPerSec;  // wraps
    feed(pulseBlock(p2, p2, p2, rmcAt(kDay + 4001, "V")));
    ASSERT_EQ(gps.locked, 0);
    EXPECT_EQ(gps.statusTime, locked + (kTicksPerSec - 100) * 4ll);
    clock.advanceMs(500);
    b.pulseTick(p2).statusTick(p2 + kTicksPerSec / 2);
    feed(b);
    EXPECT_EQ(gps.statusTime, locked + (kTicksPerSec + kTicksPerSec / 2 - 100) * 4ll);
}

TEST(AdvanceByTicks, RecoversWholeWrapsUnderHostClockJitter) {
    // Any true interval, sampled with a host clock that is off by up to
    // 50 ms either way, gives back exactly the tick time.
    uint64_t seed = 12345;
    auto next = [&seed] {
        seed = seed * 6364136223846793005ull + 1442695040888963407ull;
        return seed >> 33;
    };
    for (int i = 0; i < 20000; ++i) {
        int64_t ticks = static_cast<int64_t>(next() % 30000000000ull);  // up to 120 s
        int64_t jitter = static_cast<int64_t>(next() % 100000001ull) - 50000000;
        uint32_t oldTick = static_cast<uint32_t>(next());
        uint32_t newTick = static_cast<uint32_t>(oldTick + static_cast<uint64_t>(ticks));
        int64_t host = 1000 * kSec;
        int64_t now = host + ticks * 4 + jitter;
        int64_t moved = advanceByTicks(oldTick, host, newTick, now);
        ASSERT_EQ(moved, ticks * 4) << "ticks " << ticks << " jitter " << jitter;
        ASSERT_EQ(oldTick, newTick);
        ASSERT_EQ(host, now);
    }
}

TEST(AdvanceByTicks, ThresholdsOfTheWrapRecovery) {
    uint32_t old = 0;
    int64_t host = 0;
    // Small tick difference: a wrap is assumed from 8750000001 ns on.
    EXPECT_EQ(advanceByTicks(old, host, 100, 8750000000ll), 400);
    old = 0;
    host = 0;
    EXPECT_EQ(advanceByTicks(old, host, 100, 8750000001ll), ((int64_t{1} << 32) + 100) * 4);
    // A large difference never gains a wrap below 17.5 s.
    old = 0;
    host = 0;
    EXPECT_EQ(advanceByTicks(old, host, 0x40000000u, 17500000000ll), int64_t{0x40000000} * 4);
}

// ---------------------------------------------------------------------------
// Pulse average

TEST(PulseAverageFilter, ErrorOf1001ResetsAndGivesTheRawTick1000DoesNot) {
    PulseAverage a;
    a.filter(0);
    // 1000 ticks slow in one second: kept, and pulled back by the average.
    int64_t out = a.filter(kTicksPerSec + 1000);
    EXPECT_EQ(a.error, 1000);
    EXPECT_EQ(out, (1000 / 30 - 1000 + kTicksPerSec + 1000));
    EXPECT_EQ(a.window[29], 1000);
    // One more tick of error: reset, raw tick out.
    out = a.filter(2ll * kTicksPerSec + 1001);
    EXPECT_EQ(out, 2ll * kTicksPerSec + 1001);
    EXPECT_EQ(a.lastTick, -1);
    EXPECT_EQ(a.error, 0);
    for (int64_t w : a.window) EXPECT_EQ(w, 0);
}

TEST(PulseAverageFilter, SymmetricJitterIsRemovedAndABiasShowsAsTheWindowMean) {
    PulseAverage a;
    const int64_t base = 1000;
    a.filter(base);
    // Pulses alternately 20 ticks late and early around a perfect second:
    // the output lands on the true second every time.
    for (int i = 1; i <= 16; ++i) {
        int64_t truth = base + int64_t{i} * kTicksPerSec;
        int64_t jitter = (i % 2) ? 20 : -20;
        ASSERT_EQ(a.filter(truth + jitter), truth) << i;
    }
    // Now late by 60 and on time alternately: after 16 pulses the window
    // holds eight errors of 60, a mean of 16 ticks, which the output carries.
    PulseAverage b;
    b.filter(base);
    int64_t out = 0, truth = 0;
    for (int i = 1; i <= 16; ++i) {
        truth = base + int64_t{i} * kTicksPerSec;
        out = b.filter(truth + ((i % 2) ? 60 : 0));
    }
    EXPECT_EQ(out, truth + 16);
}

TEST(PulseAverageFilter, WrapAddsOneTickShortOfTwoToThe32) {
    PulseAverage a;
    a.filter(0xFFFFFFFFll - 100);
    int64_t out = a.filter(kTicksPerSec - 101);  // exactly one second on a 2^32 counter
    EXPECT_EQ(a.error, -1);
    EXPECT_EQ(out, kTicksPerSec - 101 + 1);
}

TEST_F(GpsFeed, AverageIsUsedOnlyWithLockPulseValidAndTheFirmwareOption) {
    gps.useAverage = 1;
    uint32_t p = 1000;
    lockAt(p, kDay + 5000);
    // The averager saw this pulse first: it gives it back unchanged.
    EXPECT_EQ(gps.filteredPulseTick, p);
    clock.advanceMs(1000);
    p += kTicksPerSec + 30;
    feed(pulseBlock(p, p, p, rmcAt(kDay + 5001)));
    EXPECT_EQ(gps.pulseAverage.error, 30);
    EXPECT_EQ(gps.filteredPulseTick, int64_t{p} + 1 - 30);

    // Without the valid flag the raw tick stands.
    clock.advanceMs(1000);
    p += kTicksPerSec + 30;
    StatusBytes b = pulseBlock(p, p, p, rmcAt(kDay + 5002));
    b.ppsValid(false);
    feed(b);
    EXPECT_EQ(gps.filteredPulseTick, p);
}

// ---------------------------------------------------------------------------
// Trigger ring

TEST(TriggerRing, FirstBlockSetsTheOriginThenEntriesComeRelativeToIt) {
    GpsPulseReader r;
    r.tickOffset = 50;
    StatusBytes b;
    b.ringWrite(510).runningTick(1000);
    readTriggerRing(r, b.view());
    EXPECT_EQ(r.readIndex, 510);
    EXPECT_EQ(r.origin, 1050u);
    EXPECT_EQ(r.count, 0u);

    b.ringEntry(510, 2000).ringEntry(511, 3000).ringEntry(0, 500).ringWrite(1).runningTick(9000);
    readTriggerRing(r, b.view());
    ASSERT_EQ(r.count, 3u);
    EXPECT_EQ(r.entries[0], 950u);
    EXPECT_EQ(r.entries[1], 1950u);
    EXPECT_EQ(r.entries[2], 500u - 1050u) << "an entry before the origin wraps as u32";
    EXPECT_EQ(r.readIndex, 1);
    EXPECT_EQ(r.origin, 9050u);

    readTriggerRing(r, b.view());
    EXPECT_EQ(r.count, 0u);

    StatusBytes bad;
    bad.magic(0).ringWrite(7);
    readTriggerRing(r, bad.view());
    EXPECT_EQ(r.readIndex, 1);
}
