#pragma once
// The joint between the RF word arithmetic and the rest of the library:
// copying words into a CommandList, building the RF state from calibration
// images, and answering the plan's calibration questions from a correction
// set.

#include <cstdint>

#include "calibration/correction_set.h"
#include "rf/frequency_plan.h"
#include "transport/command_list.h"
#include "zr_correction_def.h"

namespace zr::rf {

// Appends the words item by item: a register write with its payload is one
// item and never straddles a block; every other word stands alone.
void appendToList(CommandList& list, const Words& words);

// Mesa: per-temperature LO tables from the record's measured curve.
void buildMesaRfState(MesaRfState& state, const MesaCalData& image);

// Ridge: the CBB columns of the transport image replace the LO table's core,
// band and bias, and connect the planner to its calibration. Returns whether
// the image had CBB data; without it the table and the connection stay.
bool loadCbbColumns(RidgeRfState& state, const RidgeCalData& transportImage);

// Overrides set by the admin functions survive configuration.
struct RidgeOverrides {
    bool vva = false;
    bool gateBias = false;
};

// At each configuration: temperature, VVA table and gate bias from the
// record, except where an override holds. A VVA table that was never
// written (all-ones first word) leaves the current table, so no NaN drive
// value can reach a DAC word.
void refreshRidgeForConfigure(RidgeRfState& state, const RidgeOverrides& overrides, float temperature,
                              const RidgeCalData& image, float gateBias);

// Calibration answers from a correction set. Written against the set's
// public members so that any set with the same shape serves (the device's
// CorrectionSet and test doubles alike).
template <class Set>
class CorrectionSetRf final : public RfCalibration {
public:
    explicit CorrectionSetRf(const Set& set) : set_(set) {}
    int tempIndex() const override { return set_.tempIndex; }
    double tempFrac() const override { return set_.tempFrac; }
    uint8_t loConfig(int t, int loIndex) const override {
        if (!set_.mesa || loIndex < 0 || loIndex >= kMesaLoIndices) return 0;
        return set_.mesa->loConfig[t][loIndex];
    }
    uint32_t band5Gain(int index) const override { return set_.ridge ? set_.ridge->band5Gain[index] : 0; }
    void band6Words(double loFreq, uint32_t& balance, uint32_t& gain) const override {
        balance = gain = 0;
        if (set_.ridge) set_.GetBand6Words(loFreq, &balance, &gain);
    }
    bool hasLoTables() const override {
        return set_.ridge && static_cast<uint16_t>(set_.ridge->loftI[0]) != 0xFFFF;
    }
    int32_t loftI(int index) const override { return set_.ridge ? set_.ridge->loftI[index] : 0; }
    int32_t loftQ(int index) const override { return set_.ridge ? set_.ridge->loftQ[index] : 0; }
    bool loftOverride(int32_t& i, int32_t& q) const override {
        if (!set_.loftOverride) return false;
        i = static_cast<int32_t>(set_.loftOverrideI);
        q = static_cast<int32_t>(set_.loftOverrideQ);
        return true;
    }
    uint32_t ifOutBalance(int index) const override { return set_.ridge ? set_.ridge->ifOutBalance[index] : 0; }
    uint32_t ifOutGain(int index) const override { return set_.ridge ? set_.ridge->ifOutGain[index] : 0; }

private:
    const Set& set_;
};

// The RF state a device keeps: both families' planners, one in use.
struct RfState {
    MesaRfState mesa;
    RidgeRfState ridge;
};

// The one way in for the modes: appends the family's words and sets the
// request's band and sub-band.
void tune(RfState& rf, bool ridge, const RfCalibration& cal, CommandList& list, TuneRequest& req);

// What a device's plans hand to the tune.
using DeviceRfCalibration = CorrectionSetRf<CorrectionSet>;

// List forms of the tunes and fixed lists.
void tune(CommandList& list, const MesaRfState& state, const RfCalibration& cal, TuneRequest& req);
void tune(CommandList& list, RidgeRfState& state, const RfCalibration& cal, TuneRequest& req);
bool appendRidgeWakeIfPending(CommandList& list, RidgeRfState& state);

}  // namespace zr::rf
