#pragma once
// Register words of the RF section. Every function here is pure arithmetic
// that appends 32-bit instrument words to a plain vector, so the word
// formulas can be checked without a command list or a calibration image;
// the frequency plan (frequency_plan.h) strings them together and a thin
// layer copies the vector into a CommandList.

#include <array>
#include <cstdint>
#include <vector>

namespace zr::rf {

using Words = std::vector<uint32_t>;

// Register-write header: n payload words for port a follow it.
constexpr uint32_t header(uint32_t n, uint32_t a) { return 0x04000000u + n * 0x10000u + a; }

// Ports of the RF serial devices.
enum : uint32_t {
    kPortTiming = 0x002C,
    kPortDds = 0x0100,
    kPort110 = 0x0110,
    kPort120 = 0x0120,
    kPort130 = 0x0130,
    kPort140 = 0x0140,
    kPort141 = 0x0141,
    kPort150 = 0x0150,
    kPort160 = 0x0160,
    kPort170 = 0x0170,
    kPort180 = 0x0180,
};

// ---------------------------------------------------------------------------
// DDS (both families): 48-bit tuning word at a 1000 MHz clock.

struct DdsTuning {
    uint32_t hi = 0;  // upper 24 bits
    uint32_t lo = 0;  // lower 24 bits
};
DdsTuning ddsTuning(double freqMHz);
std::array<uint32_t, 3> ddsWords(double freqMHz);
// H(3, 0x100), the three words, pause 1.
void appendDds(Words& out, double freqMHz);

// ---------------------------------------------------------------------------
// Mesa LO tables and lookup.

constexpr int kTempPoints = 11;
constexpr int kMesaLoSubBands = 4;
constexpr int kMesaLoCodes = 256;
constexpr int kMesaLoIndices = 2625;  // 525 slices x 5

struct MesaLoTables {
    // [temperature][VCO sub-band][code], MHz.
    std::array<std::array<std::array<float, kMesaLoCodes>, kMesaLoSubBands>, kTempPoints> table{};
    std::array<std::array<float, kMesaLoSubBands>, kTempPoints> edge{};
};
// measured: the record's loFreq[4][256] taken at temperature index 7.
void buildMesaLoTables(const float measured[kMesaLoSubBands][kMesaLoCodes], MesaLoTables& out);

// Mode byte per LO index: five equal entries per slice.
uint8_t mesaLoDefaultMode(int loIndex);

// Temperature index with the fraction rounded, held to 0..10.
int roundedTempIndex(int tempIndex, double tempFrac);

struct MesaLoSetting {
    uint8_t subBand = 0;
    uint8_t code = 0;
    uint8_t config = 0;  // loConfig[t][loIndex] of the calibration
    uint8_t mode = 0;    // default mode of the LO index
};
// t is roundedTempIndex(); config is the calibration byte for (t, loIndex).
MesaLoSetting mesaLoLookup(const MesaLoTables& tables, int t, int loIndex, double freqMHz, uint8_t config);

// ---------------------------------------------------------------------------
// Mesa second-stage synthesizer.

struct MesaOffset {
    int divider = 0;     // 3..6, 0 when nothing qualifies
    double offset = 0;   // MHz
};
MesaOffset mesaOffsetSearch(double freqMHz);

struct MesaSynthPlan {
    MesaOffset off;
    double ddsMHz = 0;
    uint32_t timing = 0;
    bool side = false;
};
MesaSynthPlan mesaSynthPlan(double freqMHz, const MesaLoSetting& s);

// Appends nothing outside 3100..6200 MHz. Returns whether words were added.
bool appendMesaSynth(Words& out, double freqMHz, const MesaLoSetting& s);

// ---------------------------------------------------------------------------
// Mesa RF path (four words on port 0x150).

struct MesaPathInput {
    int band = 0;           // 0..3
    int divider = 1;        // output divider word d: 1, 2, 4, 6
    float chainHz = 0;      // loFreq / multiplier before the output divider
    double loFreq = 0;
    double rfFreq = 0;
    int attenIndex = 0;
    uint8_t gainCode = 0;
    bool preselect = false;
    int filter = -1;
    bool sweep = false;
    int firstSlice = 0;
    int lastSlice = 500;
};
std::array<uint32_t, 4> mesaPathWords(const MesaPathInput& in);
void appendMesaRFPath(Words& out, const MesaPathInput& in);

// ---------------------------------------------------------------------------
// Ridge LO chain.

// The divider of the LO loop, one entry per 3.90625 MHz from 8.00390625 GHz.
constexpr int kRidgeDividerRows = 2048;
int ridgeDivider(int row);

struct RidgeOffsetPlan {
    bool high = false;
    double w = 0;
    int n = 0;        // divider after halving for the high half
    int prescale = 0; // P
    double a = 0, b = 0;
    double offset = 0;  // O, MHz
    bool above = false;
    bool flip = false;
    double ddsMHz = 0;
    int nWord = 0;      // N'
};
RidgeOffsetPlan ridgeOffsetPlan(double vcoHz);

struct RidgeLoRow {
    uint8_t core = 1;
    uint8_t band = 0;
    uint8_t bias = 3;
};
constexpr int kRidgeLoRows = 513;  // one per 15.625 MHz from 8 GHz
using RidgeLoTable = std::array<RidgeLoRow, kRidgeLoRows>;
RidgeLoTable defaultRidgeLoTable();

struct RidgeVcoSetting {
    int row = 0;
    int core = 1;
    int band = 0;
    int bias = 3;
    int settle = 0;
};
RidgeVcoSetting ridgeVcoSetting(const RidgeLoTable& table, double vcoHz, float temperature, const RidgeOffsetPlan& plan);

uint32_t ridgeLoopCode(double vcoHz);

// LO chip words, divider words and DDS for a VCO frequency; outSelect 1..3,
// lowDivider the band-0 / low-band output divider (0 when none). Returns the
// offset plan, whose `above` feeds the path and routing words.
RidgeOffsetPlan appendRidgeLO(Words& out, const RidgeLoTable& table, float temperature, double vcoHz, int outSelect,
                              int lowDivider);

// ---------------------------------------------------------------------------
// Ridge RF path words E and F (port 0x170).

struct RidgePathInput {
    int band = 0;
    int subBand = 0;
    int attenIndex = 0;
    uint8_t gainCode = 0;
    double rfFreq = 0;
    // LO chain frequency in the VCO range. The LO filter field of word F
    // is chosen by this scaled frequency; its steps (8.0001 to
    // 13.4001 GHz) only make sense inside the 8..16 GHz VCO range, and the
    // gain-calibration group picks the same field from the frequency it
    // programs.
    double vcoHz = 0;
    bool offsetAbove = false;
    bool high = false;
    uint32_t mask = 1;
};
uint32_t ridgeWordE(const RidgePathInput& in);
uint32_t ridgeWordF(const RidgePathInput& in);
bool ridgeMixMode(int band, int subBand);

// Millimetre-wave words.
struct MmWaveWords {
    uint32_t w1 = 0, w2 = 0, w3 = 0, w4 = 0;
};
MmWaveWords mmWaveWords(double gMHz, uint32_t gain, uint32_t balance);
void appendMmWaveBand5(Words& out, double gMHz, uint32_t gain);
void appendMmWaveBand6(Words& out, double gMHz, uint32_t gain, uint32_t balance);
void appendMmWaveIdle(Words& out);

// DAC words.
uint32_t gateWord(float volts);
void appendGate(Words& out, float volts);
std::array<uint32_t, 2> vvaWords(float value);
void appendVva(Words& out, float value);
void appendLoft(Words& out, int32_t i, int32_t q);

// ---------------------------------------------------------------------------
// Fixed lists.

// Mesa start-up block up to (not including) the LO lookup and the
// synthesizer sequence that follow it.
void appendMesaStartupBlock(Words& out);

struct LoChipRow {
    uint8_t reg;
    uint8_t value;
};
constexpr int kLoChipRows = 56;
std::array<LoChipRow, kLoChipRows> loChipTable(bool calMode);
void appendRidgeStartup(Words& out, bool loCalMode);

}  // namespace zr::rf
