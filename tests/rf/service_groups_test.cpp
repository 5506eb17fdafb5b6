// Word groups that the calibration service sends on their own.

#include <gtest/gtest.h>

#include "rf/frequency_plan.h"

namespace zr::rf {
namespace {

TEST(ServiceGroups, MesaCalLOStep) {
    Words w;
    EXPECT_EQ(appendMesaCalLOStep(w, 1024), -5);
    EXPECT_EQ(appendMesaCalLOStep(w, -1), -5);
    EXPECT_TRUE(w.empty());
    ASSERT_EQ(appendMesaCalLOStep(w, 600), 0);
    // 600: sub-band 2, code 88: 0x40000 - 1408 + 0x602FFB = 0x642A7B.
    EXPECT_EQ(w, (Words{0x04040120, 0x4143, 0x4142, 4, 0x101, 1, 0x04010110, 10, 1, 54, 0x04030100, 0x61AB1999,
                        0x61A99999, 0x61A7999A, 1, 594, 1, 0x04050140, 0x1520E3F6, 0x1000, 0x20C00FBA, 0x642A7B,
                        0x60C00FBA, 1}));
    w.clear();
    appendMesaCalLOStep(w, 511);
    EXPECT_EQ(w[18], 0x1500E3F6u);
    // 511: sub-band 1, code 255: 0x20000 - 4080 + 0x602FFB.
    EXPECT_EQ(w[21], 0x20000u - 4080u + 0x602FFBu);
}

TEST(ServiceGroups, RidgeLOForCal) {
    Words w;
    appendRidgeLOForCal(w, 13);
    // 13: bit 3 -> 0x1701; 13 & 7 = 5 -> 0x16A0; 525 >> 4 = 32 -> 0x1020.
    EXPECT_EQ(w, (Words{1, 0x04030120, 0x1701, 0x16A0, 0x1020, 0x4000, 0x04020160, 0x180000, 0x1B7C6A, 1, 0x04020160,
                        0x19CCCC, 0x1AFFFF, 1, 0x4000, 0x0401002C, 4, 1}));
}

Words tail(const Words& w, size_t n) { return Words(w.end() - n, w.end()); }

TEST(ServiceGroups, RidgeGainCalLOStep) {
    RidgeRfState state;
    // Step 100: 254 * 39.0625 MHz = 9.921875 GHz, in range, output select 3.
    Words w;
    appendRidgeGainCalLOStep(w, state, 100);
    Words lo;
    RidgeOffsetPlan p = appendRidgeLO(lo, state.loTable, 33.0f, 9.921875e9, 1, 0);
    ASSERT_EQ(w.size(), lo.size() + 7);
    EXPECT_EQ(Words(w.begin(), w.begin() + lo.size()), lo);
    EXPECT_EQ(tail(w, 7), (Words{0x04020170, 0x4000, 4 * 2 + 0x500000u + (p.above ? 0u : 0x8000u), 1, 0x0401002C,
                                 p.above ? 12u : 4u, 1}));

    // Step 300: 17.734375 GHz is halved (select 4): 8.8671875 GHz.
    w.clear();
    appendRidgeGainCalLOStep(w, state, 300);
    lo.clear();
    p = appendRidgeLO(lo, state.loTable, 33.0f, 8.8671875e9, 1, 0);
    EXPECT_EQ(Words(w.begin(), w.begin() + lo.size()), lo);
    EXPECT_EQ(tail(w, 7)[1], 0xC000u);
    EXPECT_EQ(tail(w, 7)[2], 0xD0001Cu + (p.above ? 0u : 0x8000u));

    // Step 0: 6.015625 GHz is doubled to 12.03125 GHz: the high half.
    w.clear();
    appendRidgeGainCalLOStep(w, state, 0);
    lo.clear();
    p = appendRidgeLO(lo, state.loTable, 33.0f, 1.203125e10, 1, 0);
    EXPECT_TRUE(p.high);
    EXPECT_EQ(tail(w, 7)[1], 0x4000u);
    EXPECT_EQ(tail(w, 7)[2], 11u * 2 + 1 + 0x500000u + (p.above ? 0u : 0x8000u));
}

TEST(ServiceGroups, LoCalModeFlagPicksTheChipTable) {
    EXPECT_FALSE(ridgeLoCalMode());
    setRidgeLoCalMode(true);
    EXPECT_TRUE(ridgeLoCalMode());
    Words w;
    appendRidgeStartup(w, ridgeLoCalMode());
    EXPECT_EQ(w[w.size() - 2], 0x1028u);  // register 16 at 40
    setRidgeLoCalMode(false);
}

}  // namespace
}  // namespace zr::rf
