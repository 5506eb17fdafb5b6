#pragma once
// Frequency plan: the 39.0625 MHz tuning grid, bands and sub-bands of both
// families, the preselector, the automatic attenuator, and `tune`, which
// turns a TuneRequest into RF words (rf_words.h) and reports the band and
// sub-band that the IF filter load needs.
//
// Calibration reaches the plan only through RfCalibration, so the plan can be
// driven by a test double and by the device's correction set alike.

#include <array>
#include <cstdint>

#include "rf/rf_words.h"
#include "zr_correction_def.h"

namespace zr::rf {

// ---------------------------------------------------------------------------
// Grid

constexpr double kSliceHz = 39.0625e6;  // 25/32 of 50 MS/s
constexpr double kLoStepHz = 7.8125e6;  // fractional LO grid: five steps a slice

// LO of a slice in Hz: slices 0..2 take the direct path (0), slice 3 sits at
// 125 MHz, and from slice 4 the LO is one slice above the slice.
double sliceLoHz(int slice);

// Slice for a centre frequency f captured at sample rate r: the one whose
// LO serves the top of the band. Below 165 MHz the slice is at most 3:
// slice 4's LO (195.3 MHz) would put such a capture on the converted path
// with its image in band, while the lower slices need the direct path and
// stay as computed.
int sliceForCenter(double f, double sampleRate);

// The USB down-converter steps by 250 MHz / 1024. In the direct slices
// (0..3) its word counts up from the slice's LO (1024 - k, or -k below
// slice 3's LO); above them it counts down from the LO plus 125 MHz.
constexpr double kDownConverterStepHz = 244140.625;
struct DownConverterTune {
    int32_t word = 0;
    double centerHz = 0.0;  // what the word really tunes, within one step of the centre
};
DownConverterTune downConverterTune(int slice, double center);

// ---------------------------------------------------------------------------
// Attenuator

// Automatic attenuator state for a reference level in dBm.
int autoAttenIndex(double refLevelDbm);
// The setting when it is 0 or above, otherwise the automatic state.
int attenIndexFor(int setting, double refLevelDbm);

// ---------------------------------------------------------------------------
// Preselector

// Filter edges are the calibration's table (preselectFilter), which also
// spans the 32 preselector points of the record.
constexpr int kPreselectFilterCount = 11;

// Process-wide filter choice. Returns 0 always; a filter outside 0..10
// changes nothing.
int adminSetPreselectorFilter(int filter);
int adminSetAutoPreselector();
bool preselectorAutomatic();

// Highest frequency at which a plan may switch the preselector in.
constexpr double kPreselectMaxHz = 6.45e8;

// Whether a plan puts the preselector in the path: the setting is on and
// the frequency is at or below the preselector's top.
inline bool preselectorInPath(bool setting, double freq) { return setting && freq <= kPreselectMaxHz; }

int selectPreselectFilter(double freq, int slice);

// Coverage of a sweep slice: lo and hi in 1/32 of the captured band.
struct PreselectRow {
    int filter;
    int lo;
    int hi;
};
struct PreselectRows {
    std::array<PreselectRow, 4> rows{};
    int count = 0;
};
PreselectRows preselectRowsForSlice(int slice);

// ---------------------------------------------------------------------------
// Tune request

enum : uint32_t { kTuneFixed = 0, kTuneSweep = 1 };

struct TuneRequest {
    uint32_t kind = kTuneFixed;  // 1 in a sweep; any other value is a fixed tune
    double rfFreq = 0.0;         // Hz
    double loFreq = 0.0;         // Hz
    int32_t attenIndex = 0;      // 0..6, 5 dB a state
    uint8_t gainCode = 0;        // of the slice, from the calibration record
    uint8_t preselect = 0;       // 1 when the preselector is in the path
    int32_t filter = -1;         // 0..10, -1 for none
    int32_t firstSlice = 0;      // sweeps; fixed tunes pass 0 and 500
    int32_t lastSlice = 500;
    int32_t loIndex = 0;         // Mesa LO table index: slice * 5 plus any offset
    int32_t band = 0;            // result
    int32_t subBand = 0;         // result
};

// ---------------------------------------------------------------------------
// Calibration seam

class RfCalibration {
public:
    virtual ~RfCalibration() = default;
    // Temperature point of the correction set.
    virtual int tempIndex() const = 0;
    virtual double tempFrac() const = 0;
    // Mesa: the LO configuration byte for a rounded temperature index.
    virtual uint8_t loConfig(int t, int loIndex) const = 0;
    // Ridge: millimetre-wave trims.
    virtual uint32_t band5Gain(int index) const = 0;               // index 0..434
    virtual void band6Words(double loFreq, uint32_t& balance, uint32_t& gain) const = 0;
    virtual bool hasLoTables() const = 0;                          // loftI / loftQ stored
    virtual int32_t loftI(int index) const = 0;                    // index 0..454
    virtual int32_t loftQ(int index) const = 0;
    virtual bool loftOverride(int32_t& i, int32_t& q) const = 0;   // admin override set
    virtual uint32_t ifOutBalance(int index) const = 0;            // index 0..39
    virtual uint32_t ifOutGain(int index) const = 0;
};

// A correction set that holds nothing: dummy-image values.
class NoRfCalibration : public RfCalibration {
public:
    int tempIndex() const override { return 0; }
    double tempFrac() const override { return 0.0; }
    uint8_t loConfig(int, int) const override { return 3; }
    uint32_t band5Gain(int) const override { return 0; }
    void band6Words(double, uint32_t& b, uint32_t& g) const override { b = g = 0; }
    bool hasLoTables() const override { return false; }
    int32_t loftI(int) const override { return 0; }
    int32_t loftQ(int) const override { return 0; }
    bool loftOverride(int32_t&, int32_t&) const override { return false; }
    uint32_t ifOutBalance(int) const override { return 0; }
    uint32_t ifOutGain(int) const override { return 0; }
};

// ---------------------------------------------------------------------------
// Mesa family

struct MesaBandPlan {
    int band = 0;
    double multiplier = 1.0;  // final: loFreq / multiplier is the synthesizer frequency
    float chainHz = 0.0f;     // L, before the output divider
    int divider = 1;
    int subBand = 0;
    double synthMHz = 0.0;
};
MesaBandPlan planMesaBand(double loFreq, double rfFreq);

struct MesaRfState {
    MesaLoTables lo;
};

void tuneMesa(Words& out, const MesaRfState& state, const RfCalibration& cal, TuneRequest& req);

// Start-up: the fixed block, then the synthesizer for 3300 MHz with the
// setting looked up at LO index 640 and 5000 MHz.
void appendMesaStartup(Words& out, const MesaRfState& state, const RfCalibration& cal);

// Synthesizer words that close the Mesa wake list: 3906.25 MHz.
//
// The LO index of these words is 500, the LO frequency counted
// in 7.8125 MHz steps (3906.25 / 7.8125), the same rule by which the start-up
// lookup at 5000 MHz uses index 640.
constexpr int kMesaWakeLoIndex = 500;
void appendMesaWakeSynth(Words& out, const MesaRfState& state, const RfCalibration& cal);

// ---------------------------------------------------------------------------
// Ridge family

constexpr int kVvaPoints = 461;

struct RidgeRfState {
    int band = 0;
    int subBand = 0;
    // Set when the record's CBB data replaced the LO table columns; without it
    // the planner has no calibration connection (see tuneRidge).
    bool calConnected = false;
    RidgeLoTable loTable = defaultRidgeLoTable();
    float temperature = 33.0f;
    std::array<float, kVvaPoints> vva = filledVva();
    // Gate bias for bands 3 and 4; -2.0 V (gate off) until the first
    // configuration refreshes it from the correction set.
    float gateBias = -2.0f;
    float previousGate = -2.0f;
    bool maskLatch = false;   // m = mask & 0x78 at the last path words
    bool bit4Latch = false;   // mask bit 4 at the last path words
    bool wakePending = false;
    bool band6Backdoor = false;
    // The reference path carries the alternative synthesizer chip (record
    // word 1638, or the admin override); kept for the admin interface.
    bool usesLTC6947 = false;

    static std::array<float, kVvaPoints> filledVva() {
        std::array<float, kVvaPoints> v{};
        v.fill(25.0f);
        return v;
    }
};

// Result of the band decision of a Ridge tune.
struct RidgeBandPlan {
    int band = 0;
    int subBand = 0;
    double loFreq = 0.0;   // doubled in band 1
    double chainHz = 0.0;  // what the LO chain makes
    int lowDivider = 0;    // output divider of bands 0 and 1
    double vcoHz = 0.0;    // chain scaled into 8..16 GHz
    int outSelect = 1;
};
RidgeBandPlan planRidgeBand(const TuneRequest& req, bool band6Backdoor);

// Sub-band of bands 5 and 6 by RF frequency.
int ridgeMmSubBand(double rfFreq, bool band6Backdoor);

uint32_t ridgePathMask(uint32_t kind, int band, int firstSlice, int lastSlice);
int ridgeVvaIndex(double loFreq, int band);

// Process-wide memory of the mixer mode bit; the switch needs settling time
// whichever device last set it.
uint32_t ridgeRememberedMixMode();
void resetRidgeMixModeMemory();

// Path words E and F with their pauses and latches.
void appendRidgeRFPath(Words& out, RidgeRfState& state, const RidgePathInput& in);

void tuneRidge(Words& out, RidgeRfState& state, const RfCalibration& cal, TuneRequest& req);

// IF output tune for f in 2.4e10..4.35e10 Hz; returns 0, or -5 outside.
int tuneIFOutput(Words& out, RidgeRfState& state, const RfCalibration& cal, double freq, int attenIndex);

// standbyList of a Ridge; clears the path latches and resets the gate memory.
void appendRidgeShutdown(Words& out, RidgeRfState& state);
// wakeList of a Ridge (63 words).
void appendRidgeWake(Words& out);
// At the end of a configuration: the wake words when a path needs them.
// Returns whether words were added.
bool appendRidgeWakeIfPending(Words& out, RidgeRfState& state);

// ---------------------------------------------------------------------------
// Word groups of the calibration service

// Picks the LO chip table at Ridge start-up; process-wide, off at load.
void setRidgeLoCalMode(bool on);
bool ridgeLoCalMode();

// Mesa LO calibration step (sub-band in step / 256, code step % 256):
// returns -5 for a step of 1024 or more, else 0.
int appendMesaCalLOStep(Words& out, int step);
// Ridge LO chip set directly for a calibration step.
void appendRidgeLOForCal(Words& out, int step);
// Ridge LO on the 39.0625 MHz grid from 6.015625 GHz for gain calibration.
void appendRidgeGainCalLOStep(Words& out, const RidgeRfState& state, int step);

}  // namespace zr::rf
