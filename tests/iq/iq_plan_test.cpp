// The I/Q plan's arithmetic against hand-worked answers: down-converter
// words and slices, limits, the host's stages and the networked
// instrument's filters and lists.
#include <gtest/gtest.h>

#include <cmath>

#include "iq/iq_plan.h"

namespace zr {
namespace {

TEST(IQPlan, UsbSliceAndDownConverterWord) {
    struct Case {
        double center, rate;
        int slice;
        int32_t word;
        double ddc;
    };
    const Case cases[] = {
        // top 1.025 GHz: slice 26, LO 1054.6875 MHz, reference 1179.6875 MHz.
        {1e9, 5e7, 26, 736, 1e9},
        // Below 165 MHz the slice stops at 3, on the 125 MHz LO: k = -102.
        {100e6, 5e7, 3, 102, 125e6 - 102 * kDdcStepHz},
        // Under one step in the direct slices: k 0, word 1024.
        {200e3, 6.25e6, 0, 1024, 0.0},
        // Slice 1 (direct): k counts up from 0 Hz.
        {40e6, 6.25e6, 1, 1024 - 163, 163 * kDdcStepHz},
        // Off the step grid above slice 3: reference 2585.9375 MHz, 761.19
        // steps away; the rest is the host oscillator's.
        {2.4e9 + 1e5, 5e7, 62, 761, 2400146484.375},
    };
    for (const Case& c : cases) {
        const UsbIQTune t = usbIQTune(c.center, c.rate);
        EXPECT_EQ(t.slice, c.slice) << c.center;
        EXPECT_EQ(t.word, c.word) << c.center;
        EXPECT_DOUBLE_EQ(t.ddcCenterHz, c.ddc) << c.center;
    }
    // The oscillator moves the rest, as a fraction of the instrument's
    // output rate, wrapped into 0..1.
    EXPECT_DOUBLE_EQ(usbOscillatorFrequency(2400100000.0, 2400146484.375, 5e7, 1), 46484.375 / 5e7);
    EXPECT_DOUBLE_EQ(usbOscillatorFrequency(2400100000.0, 2400053515.625, 5e7, 8), 1.0 - 46484.375 / 6.25e6);
    EXPECT_EQ(usbOscillatorFrequency(1e9, 1e9, 5e7, 1), 0.0);
}

TEST(IQPlan, LimitsOfBandwidthAndQueue) {
    struct Bw {
        double bw, rate;
        int dec;
        bool net;
        double expect;
    };
    for (const Bw& c : {Bw{5e7, 5e7, 1, false, 4.15e7}, Bw{5e7, 6.144e7, 1, false, 4.15e7},
                        Bw{1.0, 5e7, 1, false, 5e5}, Bw{3e7, 2.5e7, 2, false, 0.768 * 2.5e7},
                        Bw{1e9, 2e8, 1, true, 1.6e8}, Bw{NAN, 5e7, 1, false, 5e5}})
        EXPECT_DOUBLE_EQ(clampIQBandwidth(c.bw, c.rate, c.dec, c.net), c.expect) << c.bw;
    struct Queue {
        float ms;
        int transfers;
    };
    for (const Queue& q : {Queue{31.45728f, 12}, Queue{5.24288f, 2}, Queue{41.94304f, 16}, Queue{1000.0f, 16},
                           Queue{3.9f, 2}, Queue{3.94f, 2}, Queue{9.2f, 4}})
        EXPECT_EQ(iqQueueTransfers(q.ms), q.transfers) << q.ms;
}

TEST(IQPlan, HostStagesOfBothTransports) {
    // USB: 4096 = 8 on the instrument, 8 then 64 on the host; a block of
    // 8 chunks less the status yields 28 samples.
    const HostStages u = usbHostStages(softwareDecimationFor(4096), 5000.0);
    EXPECT_EQ(hardwareDecimationFor(4096), 8);
    EXPECT_EQ(u.oneFactor, 8);
    EXPECT_EQ(u.twoFactor, 64);
    EXPECT_EQ((64 / 8 - 1) * 2048 / (u.oneFactor * u.twoFactor), 28);
    EXPECT_EQ(u.oneCutoff, 0.048);
    EXPECT_DOUBLE_EQ(u.twoCutoff, 5000.0 / 781250.0 * 0.5);
    const HostStages u16 = usbHostStages(2, 2e6);
    EXPECT_EQ(u16.twoFactor, 1);
    EXPECT_DOUBLE_EQ(u16.oneCutoff, 2e6 / 6.25e6 * 0.5);
    EXPECT_EQ(usbHostStages(1, 1e6).oneTaps, 0);

    struct Net {
        int sw, one, two;
    };
    for (const Net& n : {Net{2, 2, 1}, Net{32, 32, 1}, Net{64, 32, 2}, Net{128, 32, 4}, Net{512, 32, 16}}) {
        const HostStages h = networkedHostStages(n.sw, 1e5, 2e8);
        EXPECT_EQ(h.oneFactor, n.one) << n.sw;
        EXPECT_EQ(h.twoFactor, n.two) << n.sw;
        EXPECT_EQ(h.oneTaps, n.one * 64 + 1);
        EXPECT_DOUBLE_EQ(h.oneCutoff, n.two > 1 ? 0.4 / n.one : 1e5 / 2.5e7 * 0.5);
        EXPECT_DOUBLE_EQ(h.twoCutoff, 1e5 / (2.5e7 / n.one) * 0.5);
    }
}

TEST(IQPlan, NetworkedTuneWord) {
    // 1 GHz at 200 MS/s: the LO lands at 1117.1875 MHz, the word is -2^51
    // as a 56-bit count.
    const NetworkedIQTune t = networkedIQTune(1e9, 2e8);
    EXPECT_EQ(t.word56, 0x00F8000000000000ull);
    EXPECT_EQ(t.loFreq, 1117.1875e6);
    EXPECT_EQ(t.loIndex, 138);
    EXPECT_EQ(t.slice, 28);
    // The two LO indices whose slice is fixed rather than rounded.
    const double for788 = 793 * 7.8125e6 - 1e8 - 1.5625e7;
    EXPECT_EQ(networkedIQTune(for788, 2e8).loIndex, 788);
    EXPECT_EQ(networkedIQTune(for788, 2e8).slice, 157);
    const double for1403 = 1408 * 7.8125e6 - 1e8 - 1.5625e7;
    EXPECT_EQ(networkedIQTune(for1403, 2e8).slice, 280);
    // Narrow streams tune as USB does, the word counting down from the LO.
    const NetworkedIQTune n = networkedIQTune(1e9, 2.5e7);
    EXPECT_EQ(n.slice, 26);
    EXPECT_EQ(n.loFreq, 27 * 39.0625e6);
    const double steps = (1e9 - (27 * 39.0625e6 - 1.25e8)) / -kNetworkedDdcStepHz;
    EXPECT_EQ(n.word56, uint64_t(int64_t(std::trunc(steps)) + (int64_t(1) << 56)));
}

TEST(IQPlan, NetworkedInstrumentFilters) {
    struct Case {
        int dec;
        bool sw;
        double bw;
        int narrowed;
        double cutoff;
    };
    for (const Case& c : {Case{1, false, 1.6e8, 1, 0.08}, Case{1, false, 1e6, 1, 0.02}, Case{2, false, 4e7, 2, 0.1},
                          Case{4, false, 4e7, 3, 0.2}, Case{4, true, 4e7, 0, 0.0}, Case{8, false, 1e7, 4, 0.1},
                          Case{16, false, 1e6, 0, 0.0}}) {
        const InstrumentFirCutoffs f = instrumentFirCutoffs(c.dec, c.sw, c.bw, 2e8);
        EXPECT_EQ(f.narrowed, c.narrowed) << c.dec;
        if (c.narrowed) {
            EXPECT_DOUBLE_EQ(f.cutoff[size_t(c.narrowed - 1)], c.cutoff) << c.dec;
        }
    }
    // Defaults: symmetric prototypes whose centre tap is 1; the end list
    // writes the four of them, 8 zero words and half the taps each.
    for (int stage = 1; stage <= 4; ++stage) {
        const std::vector<double> t = defaultDecimationTaps(stage);
        ASSERT_EQ(int(t.size()), decimationTapCount(stage));
        EXPECT_EQ(t[t.size() / 2], 1.0);
        EXPECT_EQ(t.front(), t.back());
    }
    const CommandList end = networkedIQEndList();
    const uint32_t heads[4] = {0x04670478u, 0x04300578u, 0x04580678u, 0x04580778u};
    size_t at = 0;
    for (uint32_t head : heads) {
        while (at < end.buffer().size() && end.wordAt(at) != head) at += 4;
        ASSERT_LT(at, end.buffer().size()) << std::hex << head;
        EXPECT_EQ(end.wordAt(at + 4), 0u);
    }
}

TEST(IQPlan, RequestListsAskOneTransferEach) {
    for (int hw : {1, 2, 4, 8}) {
        const CommandList u = usbIQRequestList(hw);
        EXPECT_EQ(u.blockCount(), 1u);
        EXPECT_EQ(u.dataWordCounts()[0], uint32_t(64 / hw - 1));
        EXPECT_EQ(u.statusWordCounts()[0], 1u);
        const CommandList n = networkedIQRequestList(hw);
        EXPECT_EQ(n.wordAt(0), 0x50000000u | uint32_t(256 / hw));
        EXPECT_EQ(n.dataWordCounts()[0], uint32_t(256 / hw - 1));
    }
}

}  // namespace
}  // namespace zr
