// Frequency plan: grid, attenuator, preselector, band and sub-band rules of
// both families, and the stateful parts of the Ridge tune (latches, pauses,
// calibration trims).

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "rf/frequency_plan.h"

namespace zr::rf {
namespace {

// ---------------------------------------------------------------------------
// Grid and attenuator

TEST(Grid, SliceLo) {
    EXPECT_EQ(sliceLoHz(0), 0.0);
    EXPECT_EQ(sliceLoHz(2), 0.0);
    EXPECT_EQ(sliceLoHz(3), 125e6);
    EXPECT_EQ(sliceLoHz(4), 195.3125e6);
    EXPECT_EQ(sliceLoHz(524), 525 * 39.0625e6);
}

TEST(Grid, SliceOfCentre) {
    // (1e9 + 25e6) / 39.0625e6 = 26.24 -> 26.
    EXPECT_EQ(sliceForCenter(1e9, 5e7), 26);
    // 150 MHz top: 3.84 rounds to 4, held at 3 below 165 MHz.
    EXPECT_EQ(sliceForCenter(1.4e8, 2e7), 3);
    // Exactly 165 MHz is not below: 4.22 rounds to 4.
    EXPECT_EQ(sliceForCenter(1.55e8, 2e7), 4);
    // Low slices are not raised.
    EXPECT_EQ(sliceForCenter(1e7, 0.0), 0);
    EXPECT_EQ(sliceForCenter(6e7, 0.0), 2);
}

TEST(Attenuator, AutomaticFollowsReferenceLevel) {
    EXPECT_EQ(autoAttenIndex(-50.0), 0);
    EXPECT_EQ(autoAttenIndex(-20.0), 0);
    EXPECT_EQ(autoAttenIndex(-19.99), 1);
    EXPECT_EQ(autoAttenIndex(-15.0), 1);
    EXPECT_EQ(autoAttenIndex(-14.9), 2);
    EXPECT_EQ(autoAttenIndex(-5.0), 3);
    EXPECT_EQ(autoAttenIndex(0.0), 4);
    EXPECT_EQ(autoAttenIndex(0.1), 5);
    EXPECT_EQ(autoAttenIndex(5.0), 5);
    EXPECT_EQ(autoAttenIndex(5.01), 6);
    EXPECT_EQ(attenIndexFor(3, 30.0), 3);
    EXPECT_EQ(attenIndexFor(0, 30.0), 0);
    EXPECT_EQ(attenIndexFor(-1, 30.0), 6);
}

// ---------------------------------------------------------------------------
// Preselector

class Preselector : public ::testing::Test {
protected:
    // The choice is process-wide; every test leaves it automatic.
    void TearDown() override { adminSetAutoPreselector(); }
};

TEST_F(Preselector, WalkStopsAtFirstFilterStartingAboveFrequency) {
    EXPECT_EQ(selectPreselectFilter(6.45e8, 10), 10);
    EXPECT_EQ(selectPreselectFilter(6.46e8, 10), 0);
    // 2 MHz is below start(0) + 3 MHz: nothing passed.
    EXPECT_EQ(selectPreselectFilter(2e6, 0), 0);
    // 50 MHz passes filter 4 (start 42 + 3) and stops at 5 (59 + 3).
    EXPECT_EQ(selectPreselectFilter(5e7, 1), 4);
    // Exactly start(5) + 3 MHz stops at 5 too.
    EXPECT_EQ(selectPreselectFilter(6.2e7, 1), 4);
    EXPECT_EQ(selectPreselectFilter(6.2e7 + 1, 1), 5);
    // 150 MHz gives 7, except on slice 3, which filter 6 covers.
    EXPECT_EQ(selectPreselectFilter(1.5e8, 4), 7);
    EXPECT_EQ(selectPreselectFilter(1.5e8, 3), 6);
}

TEST_F(Preselector, InPathOnlyWithSettingAndAtOrBelowTop) {
    EXPECT_TRUE(preselectorInPath(true, 6.45e8));
    EXPECT_FALSE(preselectorInPath(true, 6.45e8 + 1));
    EXPECT_FALSE(preselectorInPath(false, 1e8));
}

TEST_F(Preselector, ForcedFilterAndInvalidRequests) {
    EXPECT_EQ(adminSetPreselectorFilter(11), 0);
    EXPECT_TRUE(preselectorAutomatic());
    EXPECT_EQ(adminSetPreselectorFilter(-1), 0);
    EXPECT_TRUE(preselectorAutomatic());
    EXPECT_EQ(selectPreselectFilter(5e7, 1), 4);

    EXPECT_EQ(adminSetPreselectorFilter(2), 0);
    EXPECT_FALSE(preselectorAutomatic());
    EXPECT_EQ(selectPreselectFilter(5e7, 1), 2);
    EXPECT_EQ(selectPreselectFilter(6.46e8, 1), 0);  // above the preselector still none
    EXPECT_EQ(adminSetPreselectorFilter(11), 0);     // ignored: filter 2 stays
    EXPECT_EQ(selectPreselectFilter(5e7, 1), 2);
    EXPECT_EQ(adminSetAutoPreselector(), 0);
    EXPECT_EQ(selectPreselectFilter(5e7, 1), 4);
}

TEST_F(Preselector, CoverageRows) {
    PreselectRows r = preselectRowsForSlice(1);
    ASSERT_EQ(r.count, 4);
    EXPECT_EQ(r.rows[0].filter, 1);
    EXPECT_EQ(r.rows[1].lo, 8);
    EXPECT_EQ(r.rows[2].hi, 21);
    EXPECT_EQ(r.rows[3].filter, 4);
    r = preselectRowsForSlice(5);
    ASSERT_EQ(r.count, 2);
    EXPECT_EQ(r.rows[0].filter, 7);
    EXPECT_EQ(r.rows[0].hi, 18);
    EXPECT_EQ(r.rows[1].filter, 8);
    EXPECT_EQ(preselectRowsForSlice(7).rows[0].filter, 8);
    EXPECT_EQ(preselectRowsForSlice(10).rows[0].filter, 9);
    EXPECT_EQ(preselectRowsForSlice(16).rows[0].filter, 10);
    EXPECT_EQ(preselectRowsForSlice(17).count, 0);
    adminSetPreselectorFilter(3);
    r = preselectRowsForSlice(5);
    ASSERT_EQ(r.count, 2);
    EXPECT_EQ(r.rows[0].filter, 3);
    EXPECT_EQ(r.rows[1].filter, 3);
    EXPECT_EQ(r.rows[1].lo, 18);
}

// ---------------------------------------------------------------------------
// Mesa band plan

TEST(MesaBand, LoThresholdsAndMultipliers) {
    MesaBandPlan p = planMesaBand(1.1e10, 1.1e10);
    EXPECT_EQ(p.band, 2);
    EXPECT_DOUBLE_EQ(p.synthMHz, 5500.0);
    p = planMesaBand(1.24e10, 1.2e10);
    EXPECT_EQ(p.band, 3);
    EXPECT_DOUBLE_EQ(p.synthMHz, 6200.0);  // multiplier 2 at exactly 1.24e10
    p = planMesaBand(1.2402e10, 1.2e10);
    EXPECT_EQ(p.band, 3);
    EXPECT_DOUBLE_EQ(p.synthMHz, 3100.5);  // multiplier 4 above
    p = planMesaBand(6.2e9, 6.1e9);
    EXPECT_EQ(p.band, 1);
    EXPECT_DOUBLE_EQ(p.synthMHz, 6200.0);
    p = planMesaBand(6.2e9 + 1e3, 6.1e9);
    EXPECT_EQ(p.band, 2);
    p = planMesaBand(2e8, 1.5e8);
    EXPECT_EQ(p.band, 0);
    EXPECT_DOUBLE_EQ(p.synthMHz, 5000.0);
}

TEST(MesaBand, BandOneBelow650HalvesTheMultiplier) {
    // LO 700 MHz: from 650 MHz L = 7e8 picks divider 4; below, L = 1.4e9
    // picks divider 2. The synthesizer lands at 5600 MHz either way.
    MesaBandPlan above = planMesaBand(7e8, 6.6e8);
    MesaBandPlan below = planMesaBand(7e8, 6e8);
    EXPECT_EQ(above.divider, 4);
    EXPECT_EQ(below.divider, 2);
    EXPECT_FLOAT_EQ(below.chainHz, 1.4e9f);
    EXPECT_DOUBLE_EQ(above.synthMHz, 5600.0);
    EXPECT_DOUBLE_EQ(below.synthMHz, 5600.0);
}

TEST(MesaBand, SubBandByLo) {
    EXPECT_EQ(planMesaBand(6.2499e7, 0).subBand, 0);
    EXPECT_EQ(planMesaBand(6.25e7, 0).subBand, 1);
    EXPECT_EQ(planMesaBand(1.28e8, 0).subBand, 2);
    EXPECT_EQ(planMesaBand(6.4999e8, 6e8).subBand, 2);
    EXPECT_EQ(planMesaBand(6.5e8, 6e8).subBand, 0);
}

TEST(MesaTune, SweepBitsFollowSliceBounds) {
    MesaPathInput in;
    in.band = 2;
    in.loFreq = 8e9;
    in.rfFreq = 7.96e9;
    in.divider = 1;
    in.chainHz = 4e9f;
    const uint32_t fixedC = mesaPathWords(in)[2];
    EXPECT_EQ((fixedC >> 19) & 1, 0u);
    EXPECT_EQ((fixedC >> 17) & 1, 0u);
    in.sweep = true;
    in.firstSlice = 10;
    in.lastSlice = 100;
    const uint32_t sweepC = mesaPathWords(in)[2];
    EXPECT_EQ((sweepC >> 19) & 1, 1u);  // last below 156
    EXPECT_EQ((sweepC >> 17) & 1, 1u);  // first below 160, last from 16
    in.firstSlice = 160;
    in.lastSlice = 300;
    const uint32_t highC = mesaPathWords(in)[2];
    EXPECT_EQ((highC >> 19) & 1, 0u);
    EXPECT_EQ((highC >> 17) & 1, 0u);
    EXPECT_EQ(highC & ~((1u << 19) | (1u << 17)), fixedC & ~((1u << 19) | (1u << 17)));
}

TEST(MesaTune, LoDriveAndSwitch) {
    MesaPathInput in;
    in.band = 2;
    in.loFreq = 1.05e10;
    in.rfFreq = 1.0e10;
    in.divider = 1;
    // Chain 5.25e9: 10 + truncate(0.75e9 / 3e8) = 12.
    in.chainHz = 5.25e9f;
    in.gainCode = 0;
    uint32_t d = mesaPathWords(in)[3];
    EXPECT_EQ((d >> 16) & 0xF, 12u);
    // gainCode 0: 81, no flips: 255 - 81 = 174.
    EXPECT_EQ(d & 0xFF, 174u);
    // Chain far above: held at 15.
    in.chainHz = 6.2e9f;
    EXPECT_EQ((mesaPathWords(in)[3] >> 16) & 0xF, 15u);
    // gainCode 7 sets every flip: 113 ^ 24 ^ 192 = 169 -> 86.
    in.gainCode = 7;
    EXPECT_EQ(mesaPathWords(in)[3] & 0xFF, 86u);
    // gainCode 2: 81 ^ 24 = 73 -> 182.
    in.gainCode = 2;
    EXPECT_EQ(mesaPathWords(in)[3] & 0xFF, 182u);
}

TEST(MesaTune, StartupAndWakeEndInSynthesizerWords) {
    MesaRfState state;
    NoRfCalibration cal;
    Words start;
    appendMesaStartup(start, state, cal);
    Words block;
    appendMesaStartupBlock(block);
    ASSERT_GT(start.size(), block.size());
    EXPECT_EQ(Words(start.begin(), start.begin() + block.size()), block);
    // The synthesizer for 3300 MHz follows: divider 3 and the 3300 mode pair.
    EXPECT_EQ(start[block.size()], 0x04010110u);
    EXPECT_NE(std::find(start.begin() + block.size(), start.end(), 0x1500E3F6u), start.end());
    EXPECT_NE(std::find(start.begin() + block.size(), start.end(), 3u + 0x1018u), start.end());
    Words wake;
    appendMesaWakeSynth(wake, state, cal);
    EXPECT_EQ(wake[wake.size() - 3], 0x0401002Cu);
}

TEST(MesaTune, TwiceGivesTheSameWords) {
    MesaRfState state;
    NoRfCalibration cal;
    TuneRequest a;
    a.rfFreq = 2e9;
    a.loFreq = 2.0390625e9;
    a.attenIndex = 2;
    a.loIndex = 52 * 5;
    TuneRequest b = a;
    Words w1, w2;
    tuneMesa(w1, state, cal, a);
    tuneMesa(w2, state, cal, b);
    EXPECT_EQ(w1, w2);
}

// ---------------------------------------------------------------------------
// Ridge band plan

TuneRequest ridgeReq(double rf, double lo) {
    TuneRequest r;
    r.rfFreq = rf;
    r.loFreq = lo;
    return r;
}

TEST(RidgeBand, Thresholds) {
    EXPECT_EQ(planRidgeBand(ridgeReq(4.0e10, 4.1e10), false).band, 5);
    EXPECT_EQ(planRidgeBand(ridgeReq(4.0e10, 4.1e10 + 1e3), false).band, 6);
    EXPECT_EQ(planRidgeBand(ridgeReq(2.3e10, 2.4e10), false).band, 4);
    EXPECT_EQ(planRidgeBand(ridgeReq(1.5e10, 1.6e10), false).band, 3);
    EXPECT_EQ(planRidgeBand(ridgeReq(6e9, 6.2e9), false).band, 2);
    EXPECT_EQ(planRidgeBand(ridgeReq(1.8e9, 1.84e9), false).band, 2);
    EXPECT_EQ(planRidgeBand(ridgeReq(1.8e9 - 1, 1.84e9), false).band, 1);
    EXPECT_EQ(planRidgeBand(ridgeReq(1e8, 1.4e8), false).band, 0);
    // Band 6 chain: (42e9 - 3e9) / 4 = 9.75 GHz; band 5 chain 30e9 / 4 = 7.5 GHz,
    // doubled into the VCO range.
    RidgeBandPlan p = planRidgeBand(ridgeReq(4.1e10, 4.2e10), false);
    EXPECT_DOUBLE_EQ(p.chainHz, 9.75e9);
    EXPECT_DOUBLE_EQ(p.vcoHz, 9.75e9);
    p = planRidgeBand(ridgeReq(2.9e10, 3e10), false);
    EXPECT_DOUBLE_EQ(p.vcoHz, 1.5e10);
    EXPECT_EQ(p.outSelect, 1);
}

TEST(RidgeBand, LowBandDoublesLoAndPicksDivider) {
    // LO 1.6e9 -> 3.2e9: divider 1.
    RidgeBandPlan p = planRidgeBand(ridgeReq(1.5e9, 1.6e9), false);
    EXPECT_DOUBLE_EQ(p.loFreq, 3.2e9);
    EXPECT_EQ(p.lowDivider, 1);
    EXPECT_DOUBLE_EQ(p.chainHz, 3.2e9);
    EXPECT_EQ(p.outSelect, 2);
    // LO 3e8 -> 6e8: divider 6, chain 3.6e9.
    p = planRidgeBand(ridgeReq(2.5e8, 3e8), false);
    EXPECT_EQ(p.lowDivider, 6);
    EXPECT_DOUBLE_EQ(p.chainHz, 3.6e9);
    // Band 0: 4 GHz, divider 4, doubled into 8 GHz.
    p = planRidgeBand(ridgeReq(1e8, 1e8), false);
    EXPECT_EQ(p.lowDivider, 4);
    EXPECT_DOUBLE_EQ(p.vcoHz, 8e9);
}

TEST(RidgeBand, SubBands) {
    EXPECT_EQ(planRidgeBand(ridgeReq(1.23e10, 1.24e10), false).subBand, 2);
    EXPECT_EQ(planRidgeBand(ridgeReq(8.2e9, 8.3e9), false).subBand, 1);
    EXPECT_EQ(planRidgeBand(ridgeReq(1.96e10, 1.97e10), false).subBand, 1);
    EXPECT_EQ(planRidgeBand(ridgeReq(1.9599e10, 1.97e10), false).subBand, 0);
    EXPECT_EQ(planRidgeBand(ridgeReq(3.8e10, 3.9e10), false).subBand, 5);
    EXPECT_EQ(planRidgeBand(ridgeReq(3.8e10, 3.9e10), true).subBand, 4);
    EXPECT_EQ(planRidgeBand(ridgeReq(4.4e10, 4.5e10), false).subBand, 6);
    // Bands 1 and 2 without preselector: 0 below 620 MHz, then by table.
    EXPECT_EQ(planRidgeBand(ridgeReq(3e8, 3.4e8), false).subBand, 0);
    EXPECT_EQ(planRidgeBand(ridgeReq(1.5e9, 1.54e9), false).subBand, 7);
    EXPECT_EQ(planRidgeBand(ridgeReq(2e9, 2.04e9), false).subBand, 8);
    EXPECT_EQ(planRidgeBand(ridgeReq(5e9, 5.04e9), false).subBand, 11);
}

TEST(RidgeBand, PreselectorFilterReplacesSubBand) {
    TuneRequest r = ridgeReq(3e8, 3.4e8);
    r.preselect = 1;
    EXPECT_EQ(planRidgeBand(r, false).subBand, 3);  // by frequency
    r.filter = 7;
    EXPECT_EQ(planRidgeBand(r, false).subBand, 1);  // 7 - 6
    r.filter = 4;
    EXPECT_EQ(planRidgeBand(r, false).subBand, 5);  // 4 + 1
    // In band 1 at sub-band 5 and above the frequency rule stays.
    r = ridgeReq(7e8, 7.4e8);
    r.preselect = 1;
    r.filter = 10;
    EXPECT_EQ(planRidgeBand(r, false).subBand, 5);
    // Band 0 always takes the filter.
    r = ridgeReq(8e7, 1e8);
    r.preselect = 1;
    EXPECT_EQ(planRidgeBand(r, false).subBand, 6);
    r.filter = 9;
    EXPECT_EQ(planRidgeBand(r, false).subBand, 3);
    r.preselect = 0;
    EXPECT_EQ(planRidgeBand(r, false).subBand, 0);
}

TEST(RidgeBand, PathMask) {
    EXPECT_EQ(ridgePathMask(kTuneFixed, 3, 0, 500), 8u);
    EXPECT_EQ(ridgePathMask(2, 6, 0, 500), 64u);
    EXPECT_EQ(ridgePathMask(kTuneSweep, 0, 0, 1129), 0x7Fu);
    EXPECT_EQ(ridgePathMask(kTuneSweep, 0, 500, 700), 0x30u);
    EXPECT_EQ(ridgePathMask(kTuneSweep, 0, 4, 2), 0x01u);
    EXPECT_EQ(ridgePathMask(kTuneSweep, 0, 5, 3), 0x02u);
    EXPECT_EQ(ridgePathMask(kTuneSweep, 0, 1055, 1046), 0x40u);
}

TEST(RidgeBand, VvaIndex) {
    EXPECT_EQ(ridgeVvaIndex(6e9, 3), 0);
    // (1e10 - 6.015625e9 + 1.9e7) / 3.90625e7 = 102.49.
    EXPECT_EQ(ridgeVvaIndex(1e10, 3), 102);
    // Above band 4 the LO is divided by 4: 7.5e9 gives 38.49.
    EXPECT_EQ(ridgeVvaIndex(3e10, 5), 38);
    EXPECT_EQ(ridgeVvaIndex(3e10, 4), 460);
}

// ---------------------------------------------------------------------------
// Ridge path words

TEST(RidgePathWords, HandWorkedWords) {
    RidgePathInput in;
    in.band = 3;
    in.subBand = 1;
    in.attenIndex = 2;
    in.gainCode = 5;
    in.rfFreq = 1e10;
    in.vcoHz = 1.0039e10;
    in.mask = 8;
    EXPECT_EQ(ridgeWordE(in), 0x0A108345u);
    EXPECT_EQ(ridgeWordF(in), 0x0470CF08u);

    in = {};
    in.band = 6;
    in.subBand = 5;
    in.rfFreq = 3.8e10;
    in.vcoHz = 9.7578e9;
    in.mask = 64;
    EXPECT_EQ(ridgeWordE(in), 0x20BCCB80u);
    EXPECT_EQ(ridgeWordF(in), 0x0072CF88u);
    // e4 goes out with its bits swapped: 1 -> bit 15, 2 -> bit 14.
    in.subBand = 6;
    EXPECT_EQ(ridgeWordE(in) & 0xC000u, 0x8000u);
    in.subBand = 4;
    EXPECT_EQ(ridgeWordE(in) & 0xC000u, 0x4000u);

    in = {};
    in.band = 1;
    in.rfFreq = 1.5e9;
    in.mask = 2;
    EXPECT_EQ(ridgeWordF(in), 0x853C8F00u);

    in = {};
    in.band = 0;
    in.subBand = 4;
    in.attenIndex = 1;
    in.gainCode = 63;
    EXPECT_EQ(ridgeWordE(in), 0x05C801FFu);
}

// ---------------------------------------------------------------------------
// Ridge tune: state across tunes

// Calibration double that answers with recognisable values.
class FakeCal : public NoRfCalibration {
public:
    bool loftTables = true;
    bool overrideSet = false;
    mutable int lastBand5Index = -1;
    mutable int lastLoftIndex = -1;
    uint32_t band5Gain(int index) const override {
        lastBand5Index = index;
        return 6;
    }
    void band6Words(double, uint32_t& b, uint32_t& g) const override {
        b = 20;
        g = 3;
    }
    bool hasLoTables() const override { return loftTables; }
    int32_t loftI(int index) const override {
        lastLoftIndex = index;
        return 40000;
    }
    int32_t loftQ(int) const override { return 30000; }
    bool loftOverride(int32_t& i, int32_t& q) const override {
        if (!overrideSet) return false;
        i = 32768;
        q = 32769;
        return true;
    }
    uint32_t ifOutBalance(int index) const override { return static_cast<uint32_t>(index); }
    uint32_t ifOutGain(int index) const override { return static_cast<uint32_t>(2 * index); }
};

bool contains(const Words& w, std::initializer_list<uint32_t> seq) {
    return std::search(w.begin(), w.end(), seq.begin(), seq.end()) != w.end();
}

// The mixer mode is remembered process-wide: every test starts and ends
// without it.
class RidgeTune : public ::testing::Test {
protected:
    void SetUp() override { resetRidgeMixModeMemory(); }
    void TearDown() override { resetRidgeMixModeMemory(); }
    RidgeRfState state;
    NoRfCalibration cal;
    FakeCal fake;
    Words w;
};

TEST_F(RidgeTune, TwiceGivesSameWordsButTheGateWait) {
    state.gateBias = -1.5f;
    TuneRequest a = ridgeReq(1e10, 1.0039e10);
    TuneRequest b = a;
    Words w1, w2;
    tuneRidge(w1, state, cal, a);
    tuneRidge(w2, state, cal, b);
    ASSERT_EQ(w1.size(), w2.size() + 1);
    EXPECT_EQ(w1.back(), 2500u);
    EXPECT_EQ(Words(w1.begin(), w1.end() - 1), w2);
    EXPECT_TRUE(contains(w1, {0x04020160, gateWord(-1.5f), 0x1B87B9, 1}));
    EXPECT_FLOAT_EQ(state.previousGate, -1.5f);
}

TEST_F(RidgeTune, GateWaitOnlyOnRiseAcrossMinus19) {
    state.gateBias = -1.5f;
    TuneRequest r = ridgeReq(3e9, 3.04e9);  // band 2: gate stays at -2.0
    tuneRidge(w, state, cal, r);
    EXPECT_NE(w.back(), 2500u);
    w.clear();
    r = ridgeReq(1e10, 1.0039e10);  // band 3: gate rises
    tuneRidge(w, state, cal, r);
    EXPECT_EQ(w.back(), 2500u);
    w.clear();
    r = ridgeReq(3e9, 3.04e9);  // back down, then up again
    tuneRidge(w, state, cal, r);
    w.clear();
    r = ridgeReq(1e10, 1.0039e10);
    tuneRidge(w, state, cal, r);
    EXPECT_EQ(w.back(), 2500u);
}

TEST_F(RidgeTune, BitFourRiseMixModeAndWakePending) {
    TuneRequest r = ridgeReq(2e10, 2.0039e10);  // band 4, mask 16
    tuneRidge(w, state, cal, r);
    EXPECT_TRUE(state.wakePending);
    EXPECT_TRUE(state.bit4Latch);
    // The path words are followed by the long pause on the first rise only.
    auto pathAt = std::find(w.begin(), w.end(), 0x04020170u);
    ASSERT_NE(pathAt, w.end());
    EXPECT_EQ(*(pathAt + 3), 2500u);
    w.clear();
    tuneRidge(w, state, cal, r);
    pathAt = std::find(w.begin(), w.end(), 0x04020170u);
    EXPECT_EQ(*(pathAt + 3), 1u);

    // Band 5 at sub-band 3 and up switches the mixer mode: three long pauses,
    // once, remembered across devices.
    w.clear();
    r = ridgeReq(3.2e10, 3.2039e10);
    tuneRidge(w, state, cal, r);
    EXPECT_EQ(r.band, 5);
    EXPECT_EQ(r.subBand, 3);
    pathAt = std::find(w.begin(), w.end(), 0x04020170u);
    EXPECT_EQ(Words(pathAt + 3, pathAt + 7), (Words{1, 30000, 30000, 30000}));
    EXPECT_EQ(ridgeRememberedMixMode(), 1u);
    RidgeRfState other;
    Words w2;
    TuneRequest r2 = ridgeReq(3.2e10, 3.2039e10);
    tuneRidge(w2, other, cal, r2);
    EXPECT_EQ(std::count(w2.begin(), w2.end(), 30000u), 0);
}

TEST_F(RidgeTune, WakeAndShutdownDriveTheLatches) {
    EXPECT_FALSE(appendRidgeWakeIfPending(w, state));
    EXPECT_TRUE(w.empty());
    TuneRequest r = ridgeReq(1e10, 1.0039e10);
    tuneRidge(w, state, cal, r);
    ASSERT_TRUE(state.wakePending);
    Words wake;
    EXPECT_TRUE(appendRidgeWakeIfPending(wake, state));
    ASSERT_EQ(wake.size(), 63u);
    EXPECT_EQ(Words(wake.begin(), wake.begin() + 4), (Words{0x04020170, 0x03000007, 0x60F00000, 30000}));
    EXPECT_FALSE(state.wakePending);
    EXPECT_TRUE(state.bit4Latch);
    // With both latches set a band-4 tune raises nothing.
    Words w4;
    r = ridgeReq(2e10, 2.0039e10);
    tuneRidge(w4, state, cal, r);
    EXPECT_FALSE(state.wakePending);
    auto pathAt = std::find(w4.begin(), w4.end(), 0x04020170u);
    EXPECT_EQ(*(pathAt + 3), 1u);

    Words down;
    state.previousGate = -1.0f;
    appendRidgeShutdown(down, state);
    EXPECT_EQ(down, (Words{0x04020170, 0, 0x80000, 1, 0x04010150, 0x6976E, 1, 0x04020160, 0x180000, 0x1B87B9, 1,
                           0x04020180, 0x188000, 0x198000, 1, 0x0401002C, 4, 1}));
    EXPECT_FALSE(state.maskLatch);
    EXPECT_FALSE(state.bit4Latch);
    EXPECT_FLOAT_EQ(state.previousGate, -2.0f);
    Words again;
    tuneRidge(again, state, cal, r);
    EXPECT_TRUE(state.wakePending);
}

TEST_F(RidgeTune, CalibrationTrimsNeedTheConnection) {
    // Band 5: index round((3.0039e10 - 24023437500) / 3.90625e7) = 154.
    TuneRequest r = ridgeReq(3e10, 30039062500.0);
    tuneRidge(w, state, fake, r);
    EXPECT_EQ(fake.lastBand5Index, -1);  // not connected: not looked up
    MmWaveWords zero = mmWaveWords(30039062500.0 / 4e6, 0, 0);
    EXPECT_TRUE(contains(w, {0x04030150, 0x6702E, zero.w1, zero.w2, 1}));
    EXPECT_TRUE(contains(w, {0x04020180, 0x188000, 0x198000, 1}));

    state.calConnected = true;
    w.clear();
    tuneRidge(w, state, fake, r);
    EXPECT_EQ(fake.lastBand5Index, 154);
    MmWaveWords six = mmWaveWords(30039062500.0 / 4e6, 6, 0);
    EXPECT_TRUE(contains(w, {0x04030150, 0x6702E, six.w1, six.w2, 1}));
    // LO feedthrough from the tables at VVA index - 5.
    const int vva = ridgeVvaIndex(30039062500.0, 5);
    EXPECT_EQ(fake.lastLoftIndex, vva - 5);
    EXPECT_TRUE(contains(w, {0x04020180, 0x180000 + 7232, 0x190000 + ((30000 - 32768) & 0xFFFF), 1}));

    // The admin override wins, connected or not.
    fake.overrideSet = true;
    state.calConnected = false;
    w.clear();
    tuneRidge(w, state, fake, r);
    EXPECT_TRUE(contains(w, {0x04020180, 0x180000, 0x190001, 1}));

    // Band 6 takes balance and gain.
    fake.overrideSet = false;
    state.calConnected = true;
    w.clear();
    r = ridgeReq(4.2e10, 4.2039e10);
    tuneRidge(w, state, fake, r);
    const MmWaveWords b6 = mmWaveWords((4.2039e10 - 3e9) / 4e6, 3, 20);
    EXPECT_TRUE(contains(w, {0x04050150, 0x6622E, b6.w1, b6.w2, b6.w3, b6.w4, 1}));
}

TEST_F(RidgeTune, BandFourSweepWithBitFiveUsesBand5Form) {
    TuneRequest r = ridgeReq(2e10, 2.0039e10);
    r.kind = kTuneSweep;
    r.firstSlice = 500;
    r.lastSlice = 700;
    tuneRidge(w, state, cal, r);
    EXPECT_TRUE(contains(w, {0x04030150, 0x6702E, 0x8AC94, 0xB0202, 1}));
    r = ridgeReq(2e10, 2.0039e10);
    r.kind = kTuneSweep;
    r.firstSlice = 400;
    r.lastSlice = 600;  // bit 5 clear
    w.clear();
    tuneRidge(w, state, cal, r);
    EXPECT_TRUE(contains(w, {0x04010150, 0x6976E, 1}));
}

TEST_F(RidgeTune, TimingWordAndBandZeroMemory) {
    TuneRequest r = ridgeReq(4.2e10, 4.2039e10);
    tuneRidge(w, state, cal, r);
    const RidgeOffsetPlan lo = ridgeOffsetPlan(planRidgeBand(ridgeReq(4.2e10, 4.2039e10), false).vcoHz);
    EXPECT_TRUE(contains(w, {0x0401002C, 5u + (lo.above ? 8u : 0u), 1}));
    w.clear();
    r = ridgeReq(5e7, 1e8);
    tuneRidge(w, state, cal, r);
    EXPECT_EQ(r.band, 0);
    // From an LO of 62.5 MHz band 0 is mixed down, and the result carries
    // that sub-band to the IF filter control.
    EXPECT_EQ(state.subBand, 1);
    EXPECT_EQ(r.subBand, 1);
}

TEST_F(RidgeTune, IFOutputRangeIndexAndWords) {
    EXPECT_EQ(tuneIFOutput(w, state, fake, 2.39e10, 0), -5);
    EXPECT_EQ(tuneIFOutput(w, state, fake, 4.36e10, 0), -5);
    EXPECT_TRUE(w.empty());
    state.previousGate = -1.0f;
    // 3.0e10: index floor(12 + 0.5) = 12; LO 2.85e10, chain 7.125e9 doubled.
    ASSERT_EQ(tuneIFOutput(w, state, fake, 3.0e10, 1), 0);
    const MmWaveWords mm = mmWaveWords(7125.0, 24, 12);
    EXPECT_TRUE(contains(w, {0x04050150, 0x6622E, mm.w1, mm.w2, mm.w3, mm.w4, 1}));
    EXPECT_TRUE(contains(w, {0x04020160, 0x180000, 0x1B87B9, 1}));
    EXPECT_TRUE(contains(w, {0x04020180, 0x188000, 0x198000, 1}));
    EXPECT_EQ(w[w.size() - 3], 0x0401002Cu);
    const RidgeOffsetPlan lo = ridgeOffsetPlan(1.425e10);
    EXPECT_EQ(w[w.size() - 2], lo.above ? 12u : 4u);
    EXPECT_FLOAT_EQ(state.previousGate, -2.0f);
    EXPECT_EQ(state.band, 6);
    // The top of the range is inside; the boundaries at both ends work.
    Words top;
    EXPECT_EQ(tuneIFOutput(top, state, fake, 4.35e10, 0), 0);
    Words bottom;
    EXPECT_EQ(tuneIFOutput(bottom, state, fake, 2.4e10, 0), 0);
    EXPECT_TRUE(contains(bottom, {0x04050150, 0x6622E}));
}

}  // namespace
}  // namespace zr::rf
