// Known answers for the RF register words: values worked out by hand from
// the word formulas, with the arithmetic shown where it is not obvious.

#include <gtest/gtest.h>

#include <cmath>
#include <set>

#include "rf/rf_words.h"

namespace zr::rf {
namespace {

// ---------------------------------------------------------------------------
// DDS

TEST(DdsWord, HundredMegahertzSplitsIntoRoundedHalves) {
    // x = 2^48 / 10 = 1677721.6 * 2^24: hi = 1677721, lo = round(0.6 * 2^24).
    const DdsTuning t = ddsTuning(100.0);
    EXPECT_EQ(t.hi, 1677721u);
    EXPECT_EQ(t.lo, 10066330u);
    // hi = 0x199999, lo = 0x99999A.
    const auto w = ddsWords(100.0);
    EXPECT_EQ(w[0], 0x61AB1999u);
    EXPECT_EQ(w[1], 0x61A99999u);
    EXPECT_EQ(w[2], 0x61A7999Au);
}

TEST(DdsWord, LowHalfRoundingUpToTwoToThe24CarriesIntoHigh) {
    // Ask for x = k * 2^24 + (2^24 - 0.25): the low half rounds to 2^24.
    for (double k : {0.0, 5.0, 1000.0}) {
        const double x = k * 16777216.0 + 16777216.0 - 0.25;
        const double f = x * 1000.0 / 281474976710656.0;
        const DdsTuning t = ddsTuning(f);
        EXPECT_EQ(t.hi, static_cast<uint32_t>(k) + 1) << k;
        EXPECT_EQ(t.lo, 0u) << k;
    }
    // Just below the rounding point nothing carries.
    const double x = 16777216.0 - 0.75;
    const DdsTuning t = ddsTuning(x * 1000.0 / 281474976710656.0);
    EXPECT_EQ(t.hi, 0u);
    EXPECT_EQ(t.lo, 16777215u);
}

TEST(DdsWord, WriteIsHeaderThreeWordsAndShortestPause) {
    Words w;
    appendDds(w, 100.0);
    ASSERT_EQ(w.size(), 5u);
    EXPECT_EQ(w[0], 0x04030100u);
    EXPECT_EQ(w[4], 1u);
}

// ---------------------------------------------------------------------------
// Mesa LO tables and lookup

// A synthetic measured curve: sub-band b covers 3000 + 800 b MHz upward in
// 4 MHz steps, so neighbouring sub-bands overlap by nothing and leave a gap
// of 820 - 1020 = -220 MHz (the next sub-band starts below the last code).
struct LinearCurve {
    float v[kMesaLoSubBands][kMesaLoCodes];
    LinearCurve() {
        for (int b = 0; b < kMesaLoSubBands; ++b)
            for (int i = 0; i < kMesaLoCodes; ++i) v[b][i] = 3000.0f + 800.0f * b + 4.0f * i;
    }
};

class MesaLoCurve : public ::testing::Test {
protected:
    MesaLoCurve() { buildMesaLoTables(c.v, t); }
    LinearCurve c;
    MesaLoTables t;
};

TEST_F(MesaLoCurve, MeasuredPointIsIndexSevenAndOthersDriftBySubBand) {
    EXPECT_EQ(t.table[7][2][100], c.v[2][100]);
    // t = 8, b = 0, i = 0: one step above the measured point lowers by 2.25.
    EXPECT_FLOAT_EQ(t.table[8][0][0], 3000.0f - 2.25f);
    // t = 5, b = 3, i = 128: (4.0 + 128 * 0.017578125) * -2 = -12.5, raised.
    EXPECT_FLOAT_EQ(t.table[5][3][128], c.v[3][128] + 12.5f);
    // t = 0, b = 1, i = 255: (2.75 + 255 * 0.009765625) * -7.
    EXPECT_FLOAT_EQ(t.table[0][1][255], c.v[1][255] + (2.75f + 255 * 0.009765625f) * 7.0f);
    // Edges: mid-point of the last code of b and the first of b + 1.
    EXPECT_FLOAT_EQ(t.edge[7][0], (4020.0f + 3800.0f) / 2);
    EXPECT_FLOAT_EQ(t.edge[7][3], 6601.0f);
}

TEST_F(MesaLoCurve, PicksSubBandByEdgeAndNearestCode) {
    // 4301 MHz at t 7: edge[0] = 3910 and edge[1] = 4710, so sub-band 1;
    // codes 3800 + 4i: 4300 is code 125, 4304 code 126, 4301 is nearer 125.
    MesaLoSetting s = mesaLoLookup(t, 7, 640, 4301.0, 9);
    EXPECT_EQ(s.subBand, 1);
    EXPECT_EQ(s.code, 125);
    EXPECT_EQ(s.config, 9);
    // 4303 is nearer the upper neighbour.
    EXPECT_EQ(mesaLoLookup(t, 7, 640, 4303.0, 0).code, 126);
    // Equal distance takes the lower code.
    EXPECT_EQ(mesaLoLookup(t, 7, 640, 4302.0, 0).code, 125);
    // Below 3300 MHz the synthesizer sits at twice the frequency: 2150 -> 4300.
    s = mesaLoLookup(t, 7, 640, 2150.0, 0);
    EXPECT_EQ(s.subBand, 1);
    EXPECT_EQ(s.code, 125);
}

TEST_F(MesaLoCurve, CodeTwoFiftyFiveHasNoUpperNeighbour) {
    // Sub-band 3 tops out at 5400 + 1020 = 6420 MHz; anything above stays 255.
    MesaLoSetting s = mesaLoLookup(t, 7, 0, 6500.0, 0);
    EXPECT_EQ(s.subBand, 3);
    EXPECT_EQ(s.code, 255);
    // Just below the edge of sub-band 2 (5510) the lookup stays in it: 5500
    // is code 225; above the edge it moves to sub-band 3 (5520 is code 30).
    s = mesaLoLookup(t, 7, 0, 5500.0, 0);
    EXPECT_EQ(s.subBand, 2);
    EXPECT_EQ(s.code, 225);
    s = mesaLoLookup(t, 7, 0, 5520.0, 0);
    EXPECT_EQ(s.subBand, 3);
    EXPECT_EQ(s.code, 30);
}

TEST_F(MesaLoCurve, TemperatureIndexShiftsTheCurve) {
    // At t 9 sub-band 1 lies 2 * (2.75 + i * 0.009765625) lower, so 4300 MHz
    // lands above code 125 (4300 - 7.94 = 4292.06): nearest is code 127
    // (4308 - 7.98 = 4300.02) rather than 126 (4296.03).
    EXPECT_EQ(mesaLoLookup(t, 9, 0, 4300.0, 0).code, 127);
}

TEST(MesaLoLookup, RoundedTemperatureIndexAndModeDigits) {
    EXPECT_EQ(roundedTempIndex(3, 0.49), 3);
    EXPECT_EQ(roundedTempIndex(3, 0.5), 4);
    EXPECT_EQ(roundedTempIndex(9, 1.0), 10);
    EXPECT_EQ(roundedTempIndex(-2, 0.0), 0);
    // The mode table starts 3333333 4 ... and ends ...444: five LO indices
    // share a slice's digit.
    EXPECT_EQ(mesaLoDefaultMode(0), 3);
    EXPECT_EQ(mesaLoDefaultMode(34), 3);
    EXPECT_EQ(mesaLoDefaultMode(35), 4);
    EXPECT_EQ(mesaLoDefaultMode(39), 4);
    EXPECT_EQ(mesaLoDefaultMode(40), 3);
    EXPECT_EQ(mesaLoDefaultMode(2624), 4);
    std::set<int> seen;
    for (int i = 0; i < kMesaLoIndices; ++i) seen.insert(mesaLoDefaultMode(i));
    EXPECT_EQ(seen, (std::set<int>{3, 4}));
}

// ---------------------------------------------------------------------------
// Mesa synthesizer

TEST(MesaSynth, OffsetSearchTakesSmallestQualifyingOffset) {
    // 3300 / 3 = 1100: offset 100 with divider 3.
    MesaOffset o = mesaOffsetSearch(3300.0);
    EXPECT_EQ(o.divider, 3);
    EXPECT_DOUBLE_EQ(o.offset, 100.0);
    // 6000: /5 = 1200 gives 200, /6 = 1000 gives 0 (too small), /4 = 1500
    // gives 500 (too large).
    o = mesaOffsetSearch(6000.0);
    EXPECT_EQ(o.divider, 5);
    EXPECT_DOUBLE_EQ(o.offset, 200.0);
    // 4400: /4 = 1100 (100), /3 = 1466 (too large): 100 with divider 4.
    o = mesaOffsetSearch(4400.0);
    EXPECT_EQ(o.divider, 4);
    // 3100: /3 = 1033.3 offset 33.3 fails; below-clock side: 1000 - 775
    // = 225 with divider 4, 1000 - 620 = 380 fails: divider 4, 225.
    o = mesaOffsetSearch(3100.0);
    EXPECT_EQ(o.divider, 4);
    EXPECT_NEAR(o.offset, 225.0, 1e-9);
}

TEST(MesaSynth, DdsTimingAndSide) {
    MesaLoSetting s{1, 10, 2, 3};
    // 3300, mode 3: o = 100 -> d = 150, T = round(150 * 512 / 750) = 102;
    // d above o, f/k above 1000 -> side 0.
    MesaSynthPlan p = mesaSynthPlan(3300.0, s);
    EXPECT_DOUBLE_EQ(p.ddsMHz, 150.0);
    EXPECT_EQ(p.timing, 102u);
    EXPECT_FALSE(p.side);
    // 6000, mode 4: o = 200 -> d = 160, T = round(160 * 512 / 1000) = 82;
    // d below o, f/k above 1000 -> side 1.
    s.mode = 4;
    p = mesaSynthPlan(6000.0, s);
    EXPECT_DOUBLE_EQ(p.ddsMHz, 160.0);
    EXPECT_EQ(p.timing, 82u);
    EXPECT_TRUE(p.side);
    // 3100, mode 4: o = 225 (below-clock side) -> d = 180, below o, f/k
    // below 1000 -> side 0.
    p = mesaSynthPlan(3100.0, s);
    EXPECT_NEAR(p.ddsMHz, 180.0, 1e-9);
    EXPECT_FALSE(p.side);
}

TEST(MesaSynth, SequenceWordsAndRange) {
    const MesaLoSetting s{2, 100, 3, 4};
    Words w;
    EXPECT_FALSE(appendMesaSynth(w, 3099.9, s));
    EXPECT_FALSE(appendMesaSynth(w, 6200.1, s));
    EXPECT_TRUE(w.empty());

    ASSERT_TRUE(appendMesaSynth(w, 3300.0, s));
    // 3300, mode 4: o = 100, d = 133.33, T = round(133.33 * 512 / 1000) = 68.
    const Words expectHead = {0x04010110, 74, 1, 54, 83, 0x04010120, 0x4127, 1, 150, 0x04030140, 0x20C00FBA,
                              (0x10000u << 2) - 1600 + 0x602FFB, 0x60C00FBA, 1, 0x04020130, 0x440, 3 + 0x1018, 1, 204,
                              0x04020120, 16 + 0x100000, 0x101, 1, 300, 0x04020141, 0x1500E3F6, 0x1000, 1};
    ASSERT_GE(w.size(), expectHead.size());
    EXPECT_EQ(Words(w.begin(), w.begin() + expectHead.size()), expectHead);
    const auto dds = ddsWords(400.0 / 3.0);
    const Words expectTail = {0x04030100, dds[0], dds[1], dds[2], 1, 594,
                              0x04010120, ((3u * 2304u + 0u) << 7) + 0x4022, 1, 150,
                              0x04010110, 202, 1, 54, 0x0401002C, 68, 1};
    EXPECT_EQ(Words(w.begin() + expectHead.size(), w.end()), expectTail);

    // Just below 3300 the mode pair switches to the doubled form.
    Words w2;
    ASSERT_TRUE(appendMesaSynth(w2, 3299.0, s));
    EXPECT_EQ(w2[25], 0x1520E3F6u);
}

// ---------------------------------------------------------------------------
// Ridge LO chain

TEST(RidgeDivider, RunsExpandToTheTable) {
    // First run 92 x 4, then 88 x 4; last run 184 x 6.
    EXPECT_EQ(ridgeDivider(0), 92);
    EXPECT_EQ(ridgeDivider(3), 92);
    EXPECT_EQ(ridgeDivider(4), 88);
    EXPECT_EQ(ridgeDivider(2042), 184);
    EXPECT_EQ(ridgeDivider(2047), 184);
    EXPECT_EQ(ridgeDivider(5000), 184);
    // 92x4 88x4 84x5 80x6 76x6 72x7 68x8 64x8 60x8 58x1: row 56 is 58.
    EXPECT_EQ(ridgeDivider(56), 58);
    EXPECT_EQ(ridgeDivider(57), 60);
}

TEST(RidgeOffsetPlan, TenGigahertz) {
    // F = 10000: not high, W = 5000, P = 5, row floor(2001 / 3.90625) = 512.
    const RidgeOffsetPlan p = ridgeOffsetPlan(1e10);
    EXPECT_FALSE(p.high);
    EXPECT_EQ(p.prescale, 5);
    EXPECT_EQ(p.n, ridgeDivider(512));
    const double a = 1000.0, b = 5000.0 / p.n;
    // A = 1000: limit 957.5 is not above A, so O = A - B, below 1000.
    EXPECT_DOUBLE_EQ(p.offset, a - b);
    EXPECT_FALSE(p.above);
    EXPECT_TRUE(p.flip);
    EXPECT_DOUBLE_EQ(p.ddsMHz, b);
    EXPECT_EQ(p.nWord, p.n);
}

TEST(RidgeOffsetPlan, HighHalfHalvesAndRestoresDivider) {
    // F = 14000: high, W = 3500, P = 4, A = 875, limit 957.5 above A: O = A + B.
    const RidgeOffsetPlan p = ridgeOffsetPlan(1.4e10);
    EXPECT_TRUE(p.high);
    EXPECT_EQ(p.prescale, 4);
    const int row = static_cast<int>(std::floor((14000.0 - 7999.0) / 3.90625));
    EXPECT_EQ(p.n, ridgeDivider(row) / 2);
    EXPECT_EQ(p.nWord, p.n * 2);
    EXPECT_DOUBLE_EQ(p.offset, 875.0 + 3500.0 / p.n);
    EXPECT_FALSE(p.flip);
}

RidgeLoTable uniformTable(uint8_t core, uint8_t band, uint8_t bias) {
    RidgeLoTable t{};
    for (auto& r : t) r = {core, band, bias};
    return t;
}

TEST(RidgeVco, SettleBoundaries) {
    // F = 14000 (high, P 4, p 8), core 1: x = ((200 - band) * 0.14 + 40) / 8.
    const RidgeOffsetPlan hp = ridgeOffsetPlan(1.4e10);
    // band 150: x = 47 / 8 = 5.875, n = 16 -> 15.
    EXPECT_EQ(ridgeVcoSetting(uniformTable(1, 150, 3), 1.4e10, 33.0f, hp).settle, 15);
    // band 170: x = 44.2 / 8, n = 17 -> 15.
    EXPECT_EQ(ridgeVcoSetting(uniformTable(1, 170, 3), 1.4e10, 33.0f, hp).settle, 15);
    // band 100: x = 54 / 8 = 6.75, n = 14 -> 13.
    EXPECT_EQ(ridgeVcoSetting(uniformTable(1, 100, 3), 1.4e10, 33.0f, hp).settle, 13);
    // F = 6000 (W 3000, P 3), core 4, band 0: x = 88 / 3, n = 3 -> 3.
    const RidgeOffsetPlan lp = ridgeOffsetPlan(6e9);
    EXPECT_EQ(ridgeVcoSetting(uniformTable(4, 0, 3), 6e9, 33.0f, lp).settle, 3);
    // Core 8, band 0: x = 80 / 3, n = 3 -> 3; core 2 band 200: x = 40 / 3, n = 7 -> 6.
    EXPECT_EQ(ridgeVcoSetting(uniformTable(8, 0, 3), 6e9, 33.0f, lp).settle, 3);
    EXPECT_EQ(ridgeVcoSetting(uniformTable(2, 200, 3), 6e9, 33.0f, lp).settle, 6);
}

TEST(RidgeVco, TemperatureMovesRowOrBand) {
    const RidgeLoTable t = defaultRidgeLoTable();
    EXPECT_EQ(t[0].core, 1);
    EXPECT_EQ(t[130].band, 2);  // 130 & 127
    EXPECT_EQ(t[512].bias, 3);
    const RidgeOffsetPlan p = ridgeOffsetPlan(1e10);
    // At 33 C: row floor((10000 - 7992.2) / 15.625) = 128, band 0.
    RidgeVcoSetting s = ridgeVcoSetting(t, 1e10, 33.0f, p);
    EXPECT_EQ(s.row, 128);
    EXPECT_EQ(s.band, 0);
    // At 83 C: F' = 1.003 * 10000 = 10030 -> row 130.
    s = ridgeVcoSetting(t, 1e10, 83.0f, p);
    EXPECT_EQ(s.row, 130);
    EXPECT_EQ(s.band, 2);
    // Near the top, F' leaves the table: row by F, band shifted by
    // round((33 - 83) * 0.077) = round(-3.35) = -3, held at 0 from row band 0.
    const RidgeOffsetPlan tp = ridgeOffsetPlan(1.6e10);
    s = ridgeVcoSetting(t, 1.6e10, 83.0f, tp);
    EXPECT_EQ(s.row, 512);
    EXPECT_EQ(s.band, 0);
    // Cold: F' = (1 - 60e-5) * 8000 = 7995.2 leaves the table at the bottom;
    // shift round(60 * 0.077) = round(4.62) = 5; bias 3 -> 4 below 0 C.
    const RidgeOffsetPlan bp = ridgeOffsetPlan(8e9);
    s = ridgeVcoSetting(t, 8e9, -27.0f, bp);
    EXPECT_EQ(s.row, 0);
    EXPECT_EQ(s.band, 5);
    EXPECT_EQ(s.bias, 4);
    // Bias 15 is not raised further.
    EXPECT_EQ(ridgeVcoSetting(uniformTable(1, 0, 15), 8e9, -27.0f, bp).bias, 15);
    // Band held at 255.
    EXPECT_EQ(ridgeVcoSetting(uniformTable(1, 253, 3), 8e9, -27.0f, bp).band, 255);
}

TEST(RidgeLoWords, LoopCodeBoundaries) {
    EXPECT_EQ(ridgeLoopCode(8.4e9 - 1), 227u);
    EXPECT_EQ(ridgeLoopCode(8.4e9), 195u);
    EXPECT_EQ(ridgeLoopCode(1.22e10), 67u);
    EXPECT_EQ(ridgeLoopCode(1.45e10), 3u);
}

TEST(RidgeLoWords, GroupLayoutAndDividerForms) {
    const RidgeLoTable t = defaultRidgeLoTable();
    Words w;
    const RidgeOffsetPlan p = appendRidgeLO(w, t, 33.0f, 1e10, 1, 0);
    // H(7) + 7 + 2 pauses, H(1, 0x140) 0x442, H(2, 0x110) + 2 + pause, DDS 5.
    ASSERT_EQ(w.size(), 10u + 2u + 4u + 5u);
    EXPECT_EQ(w[0], 0x04070120u);
    EXPECT_EQ(w[1], 0x7000u + 131u);  // 1e10 is the first value of the 131 step
    EXPECT_EQ(w[2], 0x3800u + 16u + 3u);
    EXPECT_EQ(w[3], 0x3700u);
    EXPECT_EQ(w[4], 0x251Eu);
    EXPECT_EQ(w[5], 0x2480u);
    EXPECT_EQ(w[7], 0x1000u + static_cast<uint32_t>(p.nWord));
    EXPECT_EQ(w[10], 0x04010140u);
    EXPECT_EQ(w[11], 0x442u);
    EXPECT_EQ(w[12], 0x04020110u);
    EXPECT_EQ(w[14], 5u + 0x1018u);
    EXPECT_EQ(w[16], 0x04030100u);

    // Output select 2 uses 0x251D and 0x2490; a low divider of 1 adds 16, others 8.
    Words w1;
    appendRidgeLO(w1, t, 33.0f, 1e10, 2, 1);
    EXPECT_EQ(w1[4], 0x251Du);
    EXPECT_EQ(w1[5], 0x2490u);
    EXPECT_EQ(Words(w1.begin() + 10, w1.begin() + 14), (Words{0x04020140, 0x440, 0x1011, 1}));
    Words w4;
    appendRidgeLO(w4, t, 33.0f, 1e10, 1, 4);
    EXPECT_EQ(w4[12], 0x100Cu);
}

// ---------------------------------------------------------------------------
// Ridge millimetre-wave and DAC words

TEST(MmWave, BalanceTermThresholds) {
    EXPECT_EQ(mmWaveWords(8900.0, 0, 0).w1, 0x8AC80u);
    EXPECT_EQ(mmWaveWords(7300.0, 0, 0).w1, 0x8AC8Au);  // exactly 7300: t 5
    EXPECT_EQ(mmWaveWords(7299.9, 0, 0).w1, 0x8AC94u);
    EXPECT_EQ(mmWaveWords(8899.9, 0, 0).w1, 0x8AC8Au);
}

TEST(MmWave, GainAndBalanceWords) {
    // g 0: 0x58101 * 2; g 3: (128 - 2) * 4 + 0x58101 = 0x582F9, * 2.
    EXPECT_EQ(mmWaveWords(9000.0, 0, 0).w2, 0xB0202u);
    EXPECT_EQ(mmWaveWords(9000.0, 3, 0).w2, 0xB05F2u);
    // b 0: p = q = 8: x = 32776, w3 = (32776 * 16 + 8) * 2; w4 = 2304 * 512.
    MmWaveWords m = mmWaveWords(9000.0, 0, 0);
    EXPECT_EQ(m.w3, 1048848u);
    EXPECT_EQ(m.w4, 0x120000u);
    // b 20: b' 8 and a1: p 12, q 4: x = 2049 * 16 + 4, w3 = (x * 16 + 12) * 2.
    m = mmWaveWords(9000.0, 0, 20);
    EXPECT_EQ(m.w3, (32788u * 16 + 12) * 2);
    EXPECT_EQ(m.w4, 0x120000u);
    // b -3: negative: u 3, p 9, q 6: x = 32768 + 9, w3 = (x * 16 + 6) * 2.
    m = mmWaveWords(9000.0, 0, static_cast<uint32_t>(-3));
    EXPECT_EQ(m.w3, (32777u * 16 + 6) * 2);
    // b -20: b' -8 and a2: u 8, p 12, q 4: x = 32768 + 12, w3 = (x * 16 + 4) * 2.
    m = mmWaveWords(9000.0, 0, static_cast<uint32_t>(-20));
    EXPECT_EQ(m.w3, (32780u * 16 + 4) * 2);
    EXPECT_EQ(m.w4, 2305u * 512);
}

TEST(MmWave, GroupForms) {
    Words w;
    appendMmWaveBand5(w, 7000.0, 0);
    EXPECT_EQ(w, (Words{0x04030150, 0x6702E, 0x8AC94, 0xB0202, 1}));
    w.clear();
    appendMmWaveBand6(w, 9600.0, 0, 0);
    EXPECT_EQ(w, (Words{0x04050150, 0x6622E, 0x8AC80, 0xB0202, 1048848, 0x120000, 1}));
    w.clear();
    appendMmWaveIdle(w);
    EXPECT_EQ(w, (Words{0x04010150, 0x6976E, 1}));
}

TEST(DacWords, GateVoltage) {
    EXPECT_EQ(gateWord(-2.0f), 0x180000u);
    // -1.5 V: 1.25 * 13107 = 16383.75 -> 0x183FFF.
    EXPECT_EQ(gateWord(-1.5f), 0x183FFFu);
    // -1.8 V is the fixed gate of the Ridge start-up, 0x181999.
    EXPECT_EQ(gateWord(-1.8f), 0x181999u);
    Words w;
    appendGate(w, -2.0f);
    EXPECT_EQ(w, (Words{0x04020160, 0x180000, 0x1B87B9, 1}));
}

TEST(DacWords, VvaSegments) {
    // 25: x 0, y = 10 * 0.04 - 0.8 = -0.4: (1.6 * 2.5) * 13107 = 52428; x: 65535.
    auto v = vvaWords(25.0f);
    EXPECT_EQ(v[0], 0x190000u + 52428u);
    EXPECT_EQ(v[1], 0x1A0000u + 65535u);
    // 2: y -2, x = 1.25 - 2 - 0.3 = -1.05: 0.95 * 2.5 = 2.375 * 13107 = 31129.125.
    v = vvaWords(2.0f);
    EXPECT_EQ(v[0], 0x190000u);
    EXPECT_EQ(v[1], 0x1A0000u + 31129u);
    // 7: x = 0.4 - 0.8 = -0.4 -> 52428 (within a float step).
    v = vvaWords(7.0f);
    EXPECT_NEAR(static_cast<double>(v[1]), 0x1A0000 + 52428.0, 1.0);
    // 13: x 0, y = 1.08 - 2 - 0.24 = -1.16: 0.84 * 2.5 = 2.1 * 13107 = 27524.7.
    v = vvaWords(13.0f);
    EXPECT_EQ(v[0], 0x190000u + 27524u);
    EXPECT_EQ(v[1], 0x1A0000u + 65535u);
}

TEST(DacWords, LoFeedthroughOffsetsBy32768) {
    Words w;
    appendLoft(w, 0, 0);
    appendLoft(w, 32768, 32769);
    appendLoft(w, -1, 65535);
    EXPECT_EQ(w, (Words{0x04020180, 0x188000, 0x198000, 1, 0x04020180, 0x180000, 0x190001, 1, 0x04020180, 0x187FFF,
                        0x197FFF, 1}));
}

// ---------------------------------------------------------------------------
// Fixed lists

TEST(FixedLists, MesaStartupBlock) {
    Words w;
    appendMesaStartupBlock(w);
    const Words expect = {0x04010110, 10, 1, 54,
                          0x04020100, 0x61AB1999, 0x61A99999, 1, 396,
                          0x04020100, 0x240C03FF, 0x240C03FF, 1, 396,
                          0x04070140, 0x4000050C, 0x61200B, 0x60000FBA, 0xB203E49, 0x102D0438, 0x100002E7, 0x1500E3F6, 1, 1036,
                          0x04060140, 0x800005, 0x23F04, 3, 258, 1, 0x10000, 1, 888,
                          0x4000,
                          0x04020140, 1, 0x800005, 1, 444,
                          0x04030033, 0, 0, 5, 1, 1};
    EXPECT_EQ(w, expect);
}

TEST(FixedLists, LoChipTableAndCalMode) {
    const auto normal = loChipTable(false);
    const auto cal = loChipTable(true);
    EXPECT_EQ(normal.front().reg, 0);
    EXPECT_EQ(normal.front().value, 24);
    EXPECT_EQ(normal.back().reg, 16);
    EXPECT_EQ(normal.back().value, 100);
    int differing = 0;
    for (int i = 0; i < kLoChipRows; ++i) {
        EXPECT_EQ(normal[i].reg, cal[i].reg);
        if (normal[i].value != cal[i].value) ++differing;
    }
    EXPECT_EQ(differing, 11);
    EXPECT_EQ(cal[9].value, 244);  // register 82 untouched
    std::set<int> regs;
    for (const auto& r : normal) regs.insert(r.reg);
    EXPECT_EQ(regs.size(), static_cast<size_t>(kLoChipRows));
}

TEST(FixedLists, RidgeStartup) {
    Words w;
    appendRidgeStartup(w, false);
    const Words head = {0x04010100, 0x240C03FF, 1, 1, 0x04010150, 0x16E4F8, 1, 0x04020160, 0x181999, 0x1B7C6A, 1,
                        0x4000, 0x04020160, 0x19CCCC, 0x1AFFFF, 1, 0x4000, 0x0401002C, 4, 0x04010120, 0x81, 0x4000};
    ASSERT_EQ(w.size(), head.size() + 3u * kLoChipRows);
    EXPECT_EQ(Words(w.begin(), w.begin() + head.size()), head);
    EXPECT_EQ(Words(w.begin() + head.size(), w.begin() + head.size() + 6),
              (Words{0x04010120, 0x0018, 1024, 0x04010120, 0x0100, 1024}));
    EXPECT_EQ(w.back(), 1024u);
    EXPECT_EQ(w[w.size() - 2], 0x1064u);
    Words c;
    appendRidgeStartup(c, true);
    EXPECT_EQ(c[head.size() + 1], 0x0000u);
    EXPECT_EQ(c[c.size() - 2], 0x1028u);
}

}  // namespace
}  // namespace zr::rf
