// Tunes checked against words computed by a separate script
// (tests/data/rf_reference.py, which explains how the table was made).

#include <gtest/gtest.h>

#include <vector>

#include "rf/frequency_plan.h"

namespace zr::rf {
namespace {

struct MesaCase {
    uint32_t kind;
    double rf, lo;
    int atten, gainCode, preselect, filter, first, last;
    int band, subBand, divider;
    double synthMHz;
    uint32_t words[4];
};

struct RidgeLoCase {
    double rf, lo;
    int band;
    double chainHz, vcoHz;
    int outSelect, lowDivider;
    std::vector<uint32_t> words;
};

#include "data/rf_reference_cases.inc"

const MesaCase kMesaCases[] = {ZR_MESA_REFERENCE_CASES};
const RidgeLoCase kRidgeCases[] = {ZR_RIDGE_LO_REFERENCE_CASES};

TEST(WorkedExamples, MesaSliceInEachBand) {
    MesaRfState state;
    NoRfCalibration cal;
    bool bandSeen[4] = {};
    for (const MesaCase& c : kMesaCases) {
        SCOPED_TRACE(c.rf);
        const MesaBandPlan p = planMesaBand(c.lo, c.rf);
        EXPECT_EQ(p.band, c.band);
        EXPECT_EQ(p.subBand, c.subBand);
        EXPECT_EQ(p.divider, c.divider);
        EXPECT_DOUBLE_EQ(p.synthMHz, c.synthMHz);
        bandSeen[c.band] = true;

        TuneRequest req;
        req.kind = c.kind;
        req.rfFreq = c.rf;
        req.loFreq = c.lo;
        req.attenIndex = c.atten;
        req.gainCode = static_cast<uint8_t>(c.gainCode);
        req.preselect = static_cast<uint8_t>(c.preselect);
        req.filter = c.filter;
        req.firstSlice = c.first;
        req.lastSlice = c.last;
        req.loIndex = 100;
        Words w;
        tuneMesa(w, state, cal, req);
        EXPECT_EQ(req.band, c.band);
        EXPECT_EQ(req.subBand, c.subBand);
        ASSERT_GE(w.size(), 6u);
        EXPECT_EQ(Words(w.begin(), w.begin() + 6),
                  (Words{0x04040150, c.words[0], c.words[1], c.words[2], c.words[3], 1}));
        const bool slowDivider = c.divider == 4 || c.divider == 6;
        EXPECT_EQ(w[6] == 3200u, slowDivider);
        // Every case lands the synthesizer in its range, so its sequence follows
        // and ends with the timing word.
        EXPECT_EQ(w[w.size() - 3], 0x0401002Cu);
    }
    for (bool seen : bandSeen) EXPECT_TRUE(seen);
}

TEST(WorkedExamples, RidgeLoInEachBand) {
    resetRidgeMixModeMemory();
    NoRfCalibration cal;
    bool bandSeen[7] = {};
    for (const RidgeLoCase& c : kRidgeCases) {
        SCOPED_TRACE(c.rf);
        TuneRequest req;
        req.rfFreq = c.rf;
        req.loFreq = c.lo;
        const RidgeBandPlan p = planRidgeBand(req, false);
        EXPECT_EQ(p.band, c.band);
        EXPECT_DOUBLE_EQ(p.chainHz, c.chainHz);
        EXPECT_DOUBLE_EQ(p.vcoHz, c.vcoHz);
        EXPECT_EQ(p.outSelect, c.outSelect);
        EXPECT_EQ(p.lowDivider, c.lowDivider);
        bandSeen[c.band] = true;

        RidgeRfState state;
        Words w;
        tuneRidge(w, state, cal, req);
        EXPECT_EQ(req.band, c.band);
        ASSERT_GE(w.size(), c.words.size());
        EXPECT_EQ(Words(w.begin(), w.begin() + c.words.size()), c.words);
    }
    for (bool seen : bandSeen) EXPECT_TRUE(seen);
}

}  // namespace
}  // namespace zr::rf
