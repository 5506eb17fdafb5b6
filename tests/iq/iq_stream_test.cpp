// I/Q streaming end to end on simulated USB instruments, through the
// public interface only: calibrated levels and frequencies at every kind of
// decimation, exact time stamps against the instrument's own clock and GPS
// time, trigger positions, loss, faults and a pulled cable.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <complex>
#include <functional>
#include <thread>
#include <vector>

#include "support/lost_link.h"
#include "support/temp_folder.h"
#include "support/watchdog.h"
#include "zr_api.h"
#include "zr_sim.h"

namespace zr {
namespace {

using cf = std::complex<float>;
using Clock = std::chrono::steady_clock;

struct StreamConfig {
    double center = 1e9;
    int decimation = 1;
    double bandwidth = 1.6e8;
    bool softwareFilter = false;
    ZrIQBaseRate rate = zrIQBaseRate50M;
    ZrDataType type = zrDataType32fc;
};

double basePerSecond(ZrIQBaseRate r) { return r == zrIQBaseRate61M44 ? 61.44e6 : 50e6; }
double ticksPerBase(ZrIQBaseRate r) { return 250e6 / basePerSecond(r); }

// Delay of the host's filters in instrument ticks: a symmetric FIR of N
// taps delays by (N - 1) / 2 samples of its input.
double hostDelayTicks(const StreamConfig& c) {
    const int hw = std::min(c.decimation, 8);
    const int sw = c.decimation > 8 ? c.decimation / 8 : 1;
    const double tpb = ticksPerBase(c.rate);
    if (sw == 1) return c.softwareFilter ? hw * tpb * 32 : 0.0;
    const int one = std::min(sw, 8), two = sw > 8 ? sw / 8 : 1;
    return hw * tpb * 1024 + (two > 1 ? one * hw * tpb * 1024 : 0.0);
}

class IQStream : public ::testing::TestWithParam<ZrDeviceType> {
protected:
    static constexpr int kSerial = 10006161;

    void SetUp() override {
        ASSERT_EQ(zrSetDataFolder(folder.str().c_str()), zrNoError);
        zrSimSetWaitScale(0.0);
        ASSERT_EQ(zrSimAttachUSB(GetParam(), kSerial), zrNoError);
        // Firmware that takes the 61.44 MS/s base rate on every model.
        ASSERT_EQ(zrSimSetFirmware(kSerial, 7, 5, 11), zrNoError);
        ASSERT_GE(zrOpenDeviceBySerial(&handle, kSerial), zrNoError);
        zrSimSetNoiseFloor(kSerial, -170.0);
    }
    void TearDown() override {
        if (handle >= 0) zrCloseDevice(handle);
        zrSimDetach(kSerial);
        zrSimSetWaitScale(1.0);
        zrSetIQTriggerSentinel(0.0);
    }

    ZrStatus configure(const StreamConfig& c) {
        config = c;
        zrSetIQCenterFreq(handle, c.center);
        zrSetIQSampleRate(handle, c.decimation);
        zrSetIQBandwidth(handle, c.softwareFilter ? zrTrue : zrFalse, c.bandwidth);
        zrSetIQBaseSampleRate(handle, c.rate);
        zrSetIQDataType(handle, c.type);
        const ZrStatus s = zrConfigure(handle, zrModeIQStreaming);
        zrGetIQParameters(handle, &rate, &bandwidth);
        return s;
    }
    // n samples as complex floats in mW^0.5 (16sc scaled by the correction).
    std::vector<cf> read(int n, ZrStatus* status = nullptr) {
        std::vector<cf> out(static_cast<size_t>(n));
        ZrStatus s;
        if (config.type == zrDataType16sc) {
            std::vector<int16_t> raw(size_t(2 * n));
            s = zrGetIQ(handle, raw.data(), n, nullptr, 0, &ns, zrFalse, &loss, nullptr);
            float scale = 0.0f;
            zrGetIQCorrection(handle, &scale);
            for (int i = 0; i < n; ++i)
                out[size_t(i)] = cf(raw[size_t(2 * i)], raw[size_t(2 * i + 1)]) * (scale / 32768.0f);
        } else {
            s = zrGetIQ(handle, out.data(), n, nullptr, 0, &ns, zrFalse, &loss, nullptr);
        }
        if (status) *status = s;
        else EXPECT_GE(s, zrNoError);
        return out;
    }

    test::TempFolder folder;
    test::Watchdog dog{std::chrono::seconds(240)};
    int handle = -1;
    StreamConfig config;
    double rate = 0.0, bandwidth = 0.0;
    int64_t ns = 0;
    int loss = 0;
};

double powerDbm(const std::vector<cf>& x, size_t skip) {
    double p = 0.0;
    for (size_t i = skip; i < x.size(); ++i) p += std::norm(x[i]);
    return 10.0 * std::log10(p / double(x.size() - skip));
}

// The frequency of the dominant tone, from its mean phase step, in cycles
// per sample.
double toneCycles(const std::vector<cf>& x, size_t skip) {
    std::complex<double> acc = 0.0;
    for (size_t i = skip + 1; i < x.size(); ++i) acc += std::complex<double>(x[i]) * std::conj(std::complex<double>(x[i - 1]));
    return std::arg(acc) / (2.0 * M_PI);
}

TEST_P(IQStream, ToneReadsItsLevelAndFrequencyAtEveryDecimation) {
    struct Path {
        int decimation;
        bool softwareFilter;
    };
    const Path paths[] = {{1, false}, {2, false}, {8, false}, {8, true}, {16, false}, {256, false}, {4096, false}};
    const double tone = -25.0;
    zrSetRefLevel(handle, -10.0);
    for (ZrIQBaseRate r : {zrIQBaseRate50M, zrIQBaseRate61M44}) {
        for (const Path& p : paths) {
            // Off the down-converter's grid, so the host oscillator works too.
            StreamConfig c;
            c.center = 2.4e9 + 12345.678;
            c.decimation = p.decimation;
            c.softwareFilter = p.softwareFilter;
            c.rate = r;
            const double outRate = basePerSecond(r) / p.decimation;
            const double offset = 0.13 * outRate;
            zrSimClearSignals(kSerial);
            zrSimAddTone(kSerial, c.center + offset, tone);
            ASSERT_GE(configure(c), zrNoError);
            ASSERT_DOUBLE_EQ(rate, outRate);
            // Enough samples to settle the host filters and resolve a bin of
            // a 4096-point FFT.
            const int n = std::max(8192, int(std::min(outRate * 0.01, 4e5)));
            const std::vector<cf> x = read(n);
            const size_t skip = 4096;
            EXPECT_NEAR(powerDbm(x, skip), tone, 0.5) << "decimation " << p.decimation << " rate " << r;
            EXPECT_NEAR(toneCycles(x, skip), offset / outRate, 1.0 / 4096) << "decimation " << p.decimation;
        }
    }
    // 16-bit samples times the correction read the same level.
    StreamConfig c;
    c.center = 915e6;
    c.decimation = 4;
    c.type = zrDataType16sc;
    zrSimClearSignals(kSerial);
    zrSimAddTone(kSerial, 915e6 + 1e6, tone);
    ASSERT_GE(configure(c), zrNoError);
    EXPECT_NEAR(powerDbm(read(65536), 0), tone, 0.5);
}

TEST_P(IQStream, OutOfBandToneIsRejected) {
    StreamConfig c;
    c.center = 1.5e9;
    c.decimation = 64;
    c.bandwidth = 5e5;
    ASSERT_GE(configure(c), zrNoError);
    ASSERT_DOUBLE_EQ(bandwidth, 5e5);
    zrSetRefLevel(handle, 0.0);
    // Beside the band and beyond the output's Nyquist: neither may leak in.
    for (double offset : {3.6e5, 1.1e6}) {
        zrSimClearSignals(kSerial);
        zrSimAddTone(kSerial, c.center + offset, -10.0);
        ASSERT_GE(configure(c), zrNoError);
        EXPECT_LT(powerDbm(read(32768), 8192), -70.0) << offset;
    }
}

TEST_P(IQStream, KnownWordsReachTheInstrument) {
    struct Case {
        double center;
        ZrIQBaseRate rate;
        uint32_t word;
    };
    for (const Case& k : {Case{1e9, zrIQBaseRate50M, 0x130102E0u}, Case{1e9, zrIQBaseRate61M44, 0x131102E0u},
                          Case{100e6, zrIQBaseRate50M, 0x13010066u}}) {
        StreamConfig c;
        c.center = k.center;
        c.rate = k.rate;
        c.bandwidth = 5e7;
        ASSERT_GE(configure(c), zrNoError);
        EXPECT_EQ(bandwidth, 4.15e7);  // at decimation 1, whatever the base
        read(16);
        uint32_t word = 0;
        ASSERT_EQ(zrSimGetLastCommand(kSerial, 0x13, &word), zrNoError);
        EXPECT_EQ(word, k.word) << k.center;
        double center = 0.0;
        EXPECT_EQ(zrGetIQCenterFreq(handle, &center), zrNoError);
        EXPECT_EQ(center, k.center);
    }
    uint32_t edge = 1;
    zrSimGetRegister(kSerial, 0x36, &edge);
    EXPECT_EQ(edge, 0u);
    // Leaving the mode stops the instrument's stream.
    EXPECT_EQ(zrAbort(handle), zrNoError);
    uint32_t word = 0;
    zrSimGetLastCommand(kSerial, 0x13, &word);
    EXPECT_EQ(word, 0x13000100u);
    EXPECT_EQ(zrGetIQParameters(handle, nullptr, nullptr), zrInvalidConfigurationErr);
}

TEST_P(IQStream, TimesFollowTheInstrumentClockAcrossTheTickWrap) {
    // Without GPS the time runs on from the host clock by the instrument's
    // ticks: consecutive reads are contiguous to the nanosecond.
    StreamConfig c;
    ASSERT_GE(configure(c), zrNoError);
    read(129024);
    int64_t previous = ns;
    int exact = 0;
    for (int i = 0; i < 12; ++i) {
        read(129024);
        if (loss == 0) {
            EXPECT_EQ(ns - previous, 2580480);
            ++exact;
        }
        previous = ns;
    }
    EXPECT_GE(exact, 6);

    // GPS locked, the 32-bit tick counter 0.3 s before it wraps: every
    // sample carries the instrument's UTC of its tick, less the delay of the
    // host's filters.
    zrAbort(handle);
    zrSimSetGPS(kSerial, zrTrue, 48.1, 11.6, 520.0);
    ASSERT_EQ(zrSimSetTick(kSerial, (uint64_t(3) << 32) - 75000000), zrNoError);
    int state = 0;
    for (auto until = Clock::now() + std::chrono::seconds(5); state == 0 && Clock::now() < until;) {
        zrGetGPSState(handle, &state);
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    ASSERT_GE(state, 1);
    // 12.5 and 3.125 MS/s: a loaded machine (the sanitizer runs) keeps up
    // with them without a loss, which would lose the samples' count.
    for (int decimation : {4, 16}) {
        c.decimation = decimation;
        const int n = decimation == 4 ? 61440 : 14336;
        int checked = 0;
        // A loss (on a loaded machine) loses the sample count too: start over.
        for (int attempt = 0; attempt < 3 && checked == 0; ++attempt) {
            ASSERT_GE(configure(c), zrNoError);
            const double period = 1e9 / rate;
            read(n);
            uint64_t t0 = 0;
            ASSERT_EQ(zrSimGetStreamStartTick(kSerial, &t0), zrNoError);
            const int reads = int(0.4 * rate / n) + 2;
            for (int k = 0; k < reads; ++k) {
                if (k > 0) read(n);
                if (loss != 0) {
                    checked = 0;
                    break;
                }
                int64_t utc = 0;
                zrSimUtcAtTick(kSerial, t0 + uint64_t(double(k) * n * decimation * ticksPerBase(c.rate)), &utc);
                ASSERT_NEAR(double(ns - utc), -4.0 * hostDelayTicks(c), period) << decimation << " read " << k;
                ++checked;
            }
        }
        EXPECT_GT(checked, 0) << decimation;
    }
}

// Positions of the triggers injected at `ticks`, in samples of the stream;
// empty when the stream lost samples (a loaded machine), whose count then
// no longer says where a sample lies.
std::vector<double> triggerPositions(int handle, int serial, const std::vector<uint64_t>& ticks, double widthNs,
                                     uint64_t t0, double ticksPerOutputSample) {
    for (uint64_t t : ticks) zrSimTriggerAtTick(serial, t, widthNs);
    const int64_t until = int64_t(double(ticks.back() - t0 + 10000000) / ticksPerOutputSample);
    std::vector<cf> buf(1 << 16);
    std::vector<double> trig(8), found;
    int64_t position = 1;  // the sample read to start the stream
    while (position < until) {
        const int n = int(std::min<int64_t>(int64_t(buf.size()), until - position));
        int loss = 0;
        if (zrGetIQ(handle, buf.data(), n, trig.data(), 8, nullptr, zrFalse, &loss, nullptr) < zrNoError || loss)
            return {};
        for (double p : trig) {
            if (p == -1.0) break;
            found.push_back(double(position) + p);
        }
        EXPECT_EQ(trig.back(), -1.0);  // the entries left over hold the sentinel
        position += n;
    }
    return found;
}

TEST_P(IQStream, TriggersLandOnTheirSamples) {
    zrSetIQTriggerSentinel(-1.0);
    const double widthNs = 4000.0;
    for (int decimation : {1, 8, 64}) {
        for (int edge : {0, 1}) {
            StreamConfig c;
            c.decimation = decimation;
            zrSetIQExtTriggerEdge(handle, edge ? zrTriggerEdge1 : zrTriggerEdge0);
            const double ticksPerSample = decimation * ticksPerBase(c.rate);
            std::vector<uint64_t> ticks;
            std::vector<double> found;
            uint64_t t0 = 0;
            for (int attempt = 0; attempt < 3 && found.empty(); ++attempt) {
                ASSERT_GE(configure(c), zrNoError);
                cf first;
                ASSERT_GE(zrGetIQ(handle, &first, 1, nullptr, 0, nullptr, zrFalse, nullptr, nullptr), zrNoError);
                uint64_t now = 0;
                zrSimGetStreamStartTick(kSerial, &t0);
                zrSimGetTick(kSerial, &now);
                ticks.clear();
                for (int k = 0; k < 3; ++k) ticks.push_back(now + 25000000 + uint64_t(k) * 7500013);
                found = triggerPositions(handle, kSerial, ticks, widthNs, t0, ticksPerSample);
            }
            ASSERT_EQ(found.size(), ticks.size()) << decimation << " edge " << edge;
            for (size_t k = 0; k < ticks.size(); ++k) {
                const double at = double(ticks[k] - t0) + (edge ? widthNs / 4.0 : 0.0) + hostDelayTicks(c);
                EXPECT_NEAR(found[k], at / ticksPerSample, 0.5) << decimation << " edge " << edge << " #" << k;
            }
        }
    }
}

TEST_P(IQStream, SlowReaderLearnsOfTheGapAndTimesStayOnTheGrid) {
    // At 6.25 MS/s even a loaded machine makes the half second the queue
    // holds well within the reader's pause.
    StreamConfig c;
    c.decimation = 8;
    ASSERT_GE(configure(c), zrNoError);
    read(65536);
    const int64_t before = ns;
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    read(65536);
    EXPECT_EQ(loss, 1);
    // The time after the gap is a sample's time of the same stream, later
    // by at least the half second the queue could not hold.
    EXPECT_GT(ns - before, 500000000);
    EXPECT_EQ((ns - before) % 160, 0);
    // The flag is not sticky.
    for (int i = 0; i < 5 && loss; ++i) read(65536);
    EXPECT_EQ(loss, 0);
}

TEST_P(IQStream, InstrumentFaultsReachTheCaller) {
    StreamConfig c;
    c.decimation = 8;
    ASSERT_GE(configure(c), zrNoError);
    struct Fault {
        ZrSimFault fault;
        ZrStatus status;
    };
    for (const Fault& f : {Fault{zrSimFaultADCOverflow, zrADCOverflow}, Fault{zrSimFaultSampleLoss, zrUncalData},
                           Fault{zrSimFaultBadMagic, zrSyncErr}}) {
        ZrStatus s = zrNoError;
        read(16384, &s);
        ASSERT_EQ(s, zrNoError);
        ASSERT_EQ(zrSimInjectFault(kSerial, f.fault, 2), zrNoError);
        bool seen = false;
        for (int i = 0; i < 50 && !seen; ++i) {
            read(16384, &s);
            seen = s == f.status;
        }
        EXPECT_TRUE(seen) << f.status;
        // It passes with the fault.
        for (int i = 0; i < 50 && s != zrNoError; ++i) read(16384, &s);
        EXPECT_EQ(s, zrNoError);
    }
}

TEST_P(IQStream, LostLinksNeverHang) {
    // An instrument that stops answering, then one whose cable is pulled
    // while a reader waits: within 4 s the reader hears of it, and close
    // stays prompt.
    const std::function<void()> faults[] = {
        [] { zrSimInjectFault(kSerial, zrSimFaultStopAnswering, 1000); },
        [] { test::pullCableSoon(kSerial); }};
    std::vector<cf> big(1 << 22);
    for (const auto& fault : faults) {
        if (handle < 0) {
            zrSimDetach(kSerial);
            ASSERT_EQ(zrSimAttachUSB(GetParam(), kSerial), zrNoError);
            ASSERT_GE(zrOpenDeviceBySerial(&handle, kSerial), zrNoError);
        }
        ASSERT_GE(configure(StreamConfig{}), zrNoError);
        read(1000);
        fault();
        test::expectPromptLoss(handle, [&] {
            return zrGetIQ(handle, big.data(), int(big.size()), nullptr, 0, nullptr, zrFalse, nullptr, nullptr);
        });
    }
    // The detaching thread is done once the link is lost.
}

TEST_P(IQStream, AbortReleasesAWaitingReaderAndBadCallsAreRefused) {
    std::vector<cf> buf(1 << 16);
    double trig[4];
    EXPECT_EQ(zrGetIQ(handle, buf.data(), 16, nullptr, 0, nullptr, zrFalse, nullptr, nullptr), zrInvalidConfigurationErr);
    StreamConfig c;
    c.decimation = 4096;  // 12 kS/s: the reader waits for seconds
    ASSERT_GE(configure(c), zrNoError);
    EXPECT_EQ(zrGetIQ(handle, nullptr, 16, nullptr, 0, nullptr, zrFalse, nullptr, nullptr), zrNullPtrErr);
    EXPECT_EQ(zrGetIQ(handle, buf.data(), 0, nullptr, 0, nullptr, zrFalse, nullptr, nullptr), zrInvalidParameterErr);
    EXPECT_EQ(zrGetIQ(handle, buf.data(), 16, nullptr, 4, nullptr, zrFalse, nullptr, nullptr), zrNullPtrErr);
    EXPECT_EQ(zrGetIQCorrection(handle, nullptr), zrNullPtrErr);
    // Each transfer of 7 chunks of 2048 samples, after 4096 on the host,
    // stores 28 samples.
    int remaining = 0;
    ASSERT_GE(zrGetIQ(handle, buf.data(), 1, nullptr, 0, nullptr, zrFalse, nullptr, &remaining), zrNoError);
    EXPECT_EQ((remaining + 1) % 28, 0) << remaining;

    zrSetIQTriggerSentinel(-7.0);
    std::atomic<ZrStatus> status{zrMeasErr};
    std::thread reader([&] {
        status = zrGetIQ(handle, buf.data(), int(buf.size()), trig, 4, nullptr, zrFalse, nullptr, nullptr);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    const auto t = Clock::now();
    EXPECT_EQ(zrAbort(handle), zrNoError);
    reader.join();
    EXPECT_LT(Clock::now() - t, std::chrono::seconds(1));
    EXPECT_GE(status.load(), zrNoError);
    for (double v : trig) EXPECT_EQ(v, -7.0);
    EXPECT_EQ(zrGetIQ(handle, buf.data(), 16, nullptr, 0, nullptr, zrFalse, nullptr, nullptr), zrInvalidConfigurationErr);
    float scale = 0.0f;
    EXPECT_EQ(zrGetIQCorrection(handle, &scale), zrInvalidConfigurationErr);
}

INSTANTIATE_TEST_SUITE_P(Models, IQStream,
                         ::testing::Values(zrDeviceTypeMesa1, zrDeviceTypeMesa2, zrDeviceTypeRidge2),
                         [](const auto& info) {
                             switch (info.param) {
                                 case zrDeviceTypeMesa1: return std::string("Mesa1");
                                 case zrDeviceTypeMesa2: return std::string("Mesa2");
                                 default: return std::string("Ridge2");
                             }
                         });

}  // namespace
}  // namespace zr
