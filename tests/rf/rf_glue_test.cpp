// The joint to command lists and calibration images.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>

#include "rf/rf_glue.h"

namespace zr::rf {
namespace {

TEST(ListGlue, RegisterWriteNeverStraddlesABlock) {
    CommandList list;
    for (int i = 0; i < 500; ++i) list.AppendWord(1000 + i);  // 2000 bytes
    Words w;
    appendDds(w, 100.0);               // 16 bytes + pause: fits before 2032
    w.insert(w.end(), {header(7, kPort120), 1, 2, 3, 4, 5, 6, 7});  // 32 bytes: does not
    appendToList(list, w);
    EXPECT_EQ(list.wordAt(2000), 0x04030100u);
    EXPECT_EQ(list.wordAt(2012), 0x61A7999Au);
    EXPECT_EQ(list.wordAt(2016), 1u);  // the DDS pause, its own item
    ASSERT_EQ(list.blockCount(), 2u);
    EXPECT_EQ(list.wordAt(2020), 1u);  // pad
    EXPECT_EQ(list.wordAt(2048), 0x04070120u);
    EXPECT_EQ(list.wordAt(2048 + 28), 7u);
    EXPECT_EQ(list.writePos(), 2048 + 32);
}

TEST(ListGlue, TuneIntoListMatchesWords) {
    MesaRfState mesa;
    NoRfCalibration cal;
    TuneRequest a;
    a.rfFreq = 5e9;
    a.loFreq = 5.0390625e9;
    a.loIndex = 129 * 5;
    TuneRequest b = a;
    Words w;
    tuneMesa(w, mesa, cal, a);
    CommandList list;
    tune(list, mesa, cal, b);
    ASSERT_EQ(list.writePos(), static_cast<int32_t>(w.size() * 4));
    for (size_t i = 0; i < w.size(); ++i) EXPECT_EQ(list.wordAt(i * 4), w[i]) << i;
    EXPECT_EQ(b.band, a.band);

    resetRidgeMixModeMemory();
    RidgeRfState ridge;
    TuneRequest r;
    r.rfFreq = 1e10;
    r.loFreq = 1.0039e10;
    CommandList rl;
    tune(rl, ridge, cal, r);
    EXPECT_EQ(r.band, 3);
    // The list form of the pending wake: the words themselves are pinned with the tune.
    CommandList wake;
    EXPECT_TRUE(appendRidgeWakeIfPending(wake, ridge));
    EXPECT_EQ(wake.writePos(), 63 * 4);
}

TEST(ListGlue, DeviceTuneDispatchesByFamily) {
    resetRidgeMixModeMemory();
    auto rf = std::make_unique<RfState>();
    NoRfCalibration cal;
    TuneRequest m;
    m.rfFreq = 1e10;
    m.loFreq = 1.0039e10;
    TuneRequest r = m;
    CommandList ml, rl;
    tune(*rf, false, cal, ml, m);
    tune(*rf, true, cal, rl, r);
    EXPECT_EQ(m.band, 2);  // Mesa: LO above 6.2e9
    EXPECT_EQ(r.band, 3);  // Ridge: LO above 6.2e9 is band 3
    EXPECT_EQ(ml.wordAt(0), 0x04040150u);  // Mesa path words first
    EXPECT_EQ(rl.wordAt(0), 0x04070120u);  // Ridge LO chip words first
    EXPECT_EQ(rf->ridge.band, 3);
}

TEST(ImageGlue, CbbColumnsReplaceTheLoTable) {
    auto image = std::make_unique<RidgeCalData>();
    std::memset(image.get(), 0xFF, sizeof(RidgeCalData));
    RidgeRfState state;
    EXPECT_FALSE(loadCbbColumns(state, *image));
    EXPECT_FALSE(state.calConnected);
    EXPECT_EQ(state.loTable[200].band, 200 & 127);
    for (int n = 0; n < kRidgeLoRows; ++n) {
        image->cbbCore[n] = 2;
        image->cbbBand[n] = static_cast<uint8_t>(n % 200);
        image->cbbBias[n] = 7;
    }
    EXPECT_TRUE(loadCbbColumns(state, *image));
    EXPECT_TRUE(state.calConnected);
    EXPECT_EQ(state.loTable[200].core, 2);
    EXPECT_EQ(state.loTable[200].band, 0);
    EXPECT_EQ(state.loTable[512].bias, 7);
}

TEST(ImageGlue, ConfigureRefreshKeepsOverrides) {
    auto image = std::make_unique<RidgeCalData>();
    std::memset(image.get(), 0xFF, sizeof(RidgeCalData));
    RidgeRfState state;
    refreshRidgeForConfigure(state, {}, 40.0f, *image, -1.4f);
    EXPECT_EQ(state.temperature, 40.0f);
    EXPECT_EQ(state.vva[17], 25.0f);  // never written: the table stays
    EXPECT_EQ(state.gateBias, -1.4f);
    for (int i = 0; i < kVvaPoints; ++i) image->vva[i] = 10.0f + i;
    refreshRidgeForConfigure(state, {}, 41.0f, *image, -1.3f);
    EXPECT_EQ(state.vva[17], 27.0f);
    state.vva[17] = 5.0f;
    state.gateBias = -0.5f;
    refreshRidgeForConfigure(state, {true, true}, 42.0f, *image, -1.3f);
    EXPECT_EQ(state.temperature, 42.0f);
    EXPECT_EQ(state.vva[17], 5.0f);
    EXPECT_EQ(state.gateBias, -0.5f);
}

TEST(ImageGlue, MesaTablesFromTheRecord) {
    auto image = std::make_unique<MesaCalData>();
    for (int b = 0; b < 4; ++b)
        for (int i = 0; i < 256; ++i) image->loFreq[b][i] = 3000.0f + 800.0f * b + 4.0f * i;
    MesaRfState state;
    buildMesaRfState(state, *image);
    EXPECT_EQ(state.lo.table[7][1][10], 3840.0f);
    EXPECT_FLOAT_EQ(state.lo.table[6][0][0], 3002.25f);
}

// A correction set of the same shape as the device's.
struct FakeSet {
    std::unique_ptr<MesaCalData> mesa = std::make_unique<MesaCalData>();
    std::unique_ptr<RidgeCalData> ridge = std::make_unique<RidgeCalData>();
    int32_t tempIndex = 4;
    double tempFrac = 0.25;
    uint8_t loftOverride = 0;
    uint32_t loftOverrideI = 0, loftOverrideQ = 0;
    mutable double lastBand6Lo = 0;
    void GetBand6Words(double loFreq, uint32_t* balance, uint32_t* gain) const {
        lastBand6Lo = loFreq;
        *balance = 11;
        *gain = 22;
    }
};

TEST(ImageGlue, CorrectionSetAnswers) {
    FakeSet set;
    set.mesa->loConfig[4][640] = 9;
    set.ridge->band5Gain[100] = 77;
    set.ridge->loftI[0] = -5;
    set.ridge->loftQ[3] = 1234;
    set.ridge->ifOutBalance[39] = 5;
    set.ridge->ifOutGain[2] = 6;
    CorrectionSetRf<FakeSet> cal(set);
    EXPECT_EQ(cal.tempIndex(), 4);
    EXPECT_EQ(cal.tempFrac(), 0.25);
    EXPECT_EQ(cal.loConfig(4, 640), 9);
    EXPECT_EQ(cal.band5Gain(100), 77u);
    uint32_t b = 0, g = 0;
    cal.band6Words(4.2e10, b, g);
    EXPECT_EQ(set.lastBand6Lo, 4.2e10);
    EXPECT_EQ(b, 11u);
    EXPECT_EQ(g, 22u);
    EXPECT_TRUE(cal.hasLoTables());
    EXPECT_EQ(cal.loftI(0), -5);
    EXPECT_EQ(cal.loftQ(3), 1234);
    EXPECT_EQ(cal.ifOutBalance(39), 5u);
    EXPECT_EQ(cal.ifOutGain(2), 6u);
    int32_t i = 0, q = 0;
    EXPECT_FALSE(cal.loftOverride(i, q));
    set.loftOverride = 1;
    set.loftOverrideI = 100;
    set.loftOverrideQ = 200;
    EXPECT_TRUE(cal.loftOverride(i, q));
    EXPECT_EQ(i, 100);
    EXPECT_EQ(q, 200);
    set.ridge->loftI[0] = -1;  // 0xFFFF: never written
    EXPECT_FALSE(cal.hasLoTables());
}

TEST(ImageGlue, DeviceCorrectionSetFeedsTheRidgeTune) {
    resetRidgeMixModeMemory();
    CorrectionSet set;  // neutral images
    DeviceRfCalibration cal(set);
    EXPECT_EQ(cal.loConfig(0, 640), 3);  // neutral loConfig
    // Band 6 words come from the set's own lookup: LO 4.2039e10 lies
    // round((4.2039e10 - 4.1015625e10) / 3.90625e7) = 26 steps up.
    set.ridge->band6Balance[set.tempIndex][26] = 20;
    set.ridge->band6Gain[set.tempIndex][26] = 3;
    uint32_t b = 0, g = 0;
    cal.band6Words(4.2039e10, b, g);
    EXPECT_EQ(b, 20u);
    EXPECT_EQ(g, 3u);

    RidgeRfState state;
    state.calConnected = true;
    TuneRequest r;
    r.rfFreq = 4.2e10;
    r.loFreq = 4.2039e10;
    Words w;
    tuneRidge(w, state, cal, r);
    const MmWaveWords mm = mmWaveWords((4.2039e10 - 3e9) / 4e6, 3, 20);
    const Words group = {0x04050150, 0x6622E, mm.w1, mm.w2, mm.w3, mm.w4, 1};
    EXPECT_NE(std::search(w.begin(), w.end(), group.begin(), group.end()), w.end());
    resetRidgeMixModeMemory();
}

}  // namespace
}  // namespace zr::rf
