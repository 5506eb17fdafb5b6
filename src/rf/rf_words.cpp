#include "rf/rf_words.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace zr::rf {

// ---------------------------------------------------------------------------
// DDS

DdsTuning ddsTuning(double freqMHz) {
    const double two24 = 16777216.0;
    const double x = freqMHz * 281474976710656.0 / 1000.0;  // f * 2^48 / clock
    double hi = std::floor(x / two24);
    double lo = std::floor(x - hi * two24 + 0.5);
    // Rounding the low half can reach 2^24; the excess belongs to the high half.
    if (lo >= two24) {
        lo -= two24;
        hi += 1.0;
    }
    return {static_cast<uint32_t>(hi), static_cast<uint32_t>(lo)};
}

std::array<uint32_t, 3> ddsWords(double freqMHz) {
    const DdsTuning t = ddsTuning(freqMHz);
    return {0x61AB0000u + (t.hi >> 8), 0x61A90000u + ((t.hi & 0xFFu) << 8) + (t.lo >> 16),
            0x61A70000u + (t.lo & 0xFFFFu)};
}

void appendDds(Words& out, double freqMHz) {
    const auto w = ddsWords(freqMHz);
    out.insert(out.end(), {header(3, kPortDds), w[0], w[1], w[2], 1u});
}

// ---------------------------------------------------------------------------
// Mesa LO tables

namespace {

// Drift of the synthesizer's tuning curve per temperature step, per VCO
// sub-band: a fixed part and a part that grows with the tuning code.
constexpr float kLoDriftOffset[kMesaLoSubBands] = {2.25f, 2.75f, 3.5f, 4.0f};
constexpr float kLoDriftSlope[kMesaLoSubBands] = {0.0087890625f, 0.009765625f, 0.01171875f, 0.017578125f};
constexpr int kMeasuredTempIndex = 7;

constexpr char kLoDefaultModeDigits[] =
    "3333333433443434334334443334434433433443433444444333333444334444434334333344443334434334444444344433"
    "4333334343443444334344443444443334434344434343333444344433344334444433433343444433434434343434343343"
    "3444434344344434344433444434443443434433444343443443444334443344433333443444333344444444443333444334"
    "3434334344344343343444334434333334333434344434433333334333433344333444444344333343343444433443334443"
    "4334443334433333334344443343333344444433334334443444343444344433343443344344334343343343343344343344"
    "3443343444334444444444444";
static_assert(sizeof(kLoDefaultModeDigits) - 1 == 525, "one mode digit per Mesa slice");

}  // namespace

void buildMesaLoTables(const float measured[kMesaLoSubBands][kMesaLoCodes], MesaLoTables& out) {
    for (int t = 0; t < kTempPoints; ++t) {
        const float steps = static_cast<float>(t - kMeasuredTempIndex);
        for (int b = 0; b < kMesaLoSubBands; ++b) {
            for (int i = 0; i < kMesaLoCodes; ++i) {
                if (t == kMeasuredTempIndex) {
                    out.table[t][b][i] = measured[b][i];
                } else {
                    const float drift = (kLoDriftOffset[b] + static_cast<float>(i) * kLoDriftSlope[b]) * steps;
                    out.table[t][b][i] = measured[b][i] - drift;
                }
            }
        }
        for (int b = 0; b < kMesaLoSubBands - 1; ++b)
            out.edge[t][b] = (out.table[t][b][kMesaLoCodes - 1] + out.table[t][b + 1][0]) * 0.5f;
        out.edge[t][kMesaLoSubBands - 1] = 6601.0f;
    }
}

uint8_t mesaLoDefaultMode(int loIndex) {
    const int slice = std::clamp(loIndex / 5, 0, 524);
    return static_cast<uint8_t>(kLoDefaultModeDigits[slice] - '0');
}

int roundedTempIndex(int tempIndex, double tempFrac) {
    return std::clamp(tempIndex + (tempFrac >= 0.5 ? 1 : 0), 0, kTempPoints - 1);
}

MesaLoSetting mesaLoLookup(const MesaLoTables& tables, int t, int loIndex, double freqMHz, uint8_t config) {
    t = std::clamp(t, 0, kTempPoints - 1);
    // Below 3300 MHz the synthesizer runs at twice the frequency.
    const double f = freqMHz < 3300.0 ? freqMHz * 2.0 : freqMHz;
    int b = kMesaLoSubBands - 1;
    for (int k = 0; k < kMesaLoSubBands - 1; ++k) {
        if (tables.edge[t][k] > f) {
            b = k;
            break;
        }
    }
    const auto& row = tables.table[t][b];
    int code = 0;
    for (int step = 128; step >= 1; step /= 2) {
        if (f > row[code + step]) code += step;
    }
    if (code < kMesaLoCodes - 1) {
        const double below = std::fabs(f - row[code]);
        const double above = std::fabs(row[code + 1] - f);
        if (above < below) code += 1;
    }
    return {static_cast<uint8_t>(b), static_cast<uint8_t>(code), config, mesaLoDefaultMode(loIndex)};
}

// ---------------------------------------------------------------------------
// Mesa synthesizer

MesaOffset mesaOffsetSearch(double f) {
    auto search = [f](bool below) {
        MesaOffset best;
        for (int k = 3; k <= 6; ++k) {
            const double o = below ? 1000.0 - f / k : f / k - 1000.0;
            if (o >= 89.99 && o <= 250.01 && o < 1000.0 && (best.divider == 0 || o < best.offset)) {
                best.divider = k;
                best.offset = o;
            }
        }
        return best;
    };
    MesaOffset r = search(false);
    if (r.divider == 0) r = search(true);
    return r;
}

MesaSynthPlan mesaSynthPlan(double f, const MesaLoSetting& s) {
    MesaSynthPlan p;
    p.off = mesaOffsetSearch(f);
    const double o = p.off.offset;
    if (s.mode == 4)
        p.ddsMHz = o > 150.0 ? 0.8 * o : o * 4.0 / 3.0;
    else
        p.ddsMHz = o > 125.0 ? 0.75 * o : 1.5 * o;
    const double m = s.mode;
    p.timing = static_cast<uint32_t>(std::floor(p.ddsMHz * 512.0 / (m * 250.0) + 0.5));
    const bool up = p.ddsMHz > o;
    const bool belowClock = p.off.divider != 0 && f / p.off.divider < 1000.0;
    p.side = belowClock ? up : !up;
    return p;
}

bool appendMesaSynth(Words& out, double f, const MesaLoSetting& s) {
    if (f < 3100.0 || f > 6200.0) return false;
    const MesaSynthPlan p = mesaSynthPlan(f, s);
    const uint32_t b = s.subBand, c = s.code, g = s.config, m = s.mode;
    const uint32_t k = static_cast<uint32_t>(p.off.divider);
    out.insert(out.end(), {header(1, kPort110), 74u, 1u, 54u, 83u});
    out.insert(out.end(), {header(1, kPort120), 0x4127u, 1u, 150u});
    out.insert(out.end(), {header(3, kPort140), 0x20C00FBAu, (0x10000u << b) - c * 16u + 0x602FFBu, 0x60C00FBAu, 1u});
    out.insert(out.end(), {header(2, kPort130), 0x440u, k + 0x1018u, 1u, 204u});
    out.insert(out.end(), {header(2, kPort120), m * 4u + 0x100000u, 0x101u, 1u, 300u});
    out.insert(out.end(), {header(2, kPort141), f < 3300.0 ? 0x1520E3F6u : 0x1500E3F6u, 0x1000u, 1u});
    appendDds(out, p.ddsMHz);
    out.push_back(594u);
    out.insert(out.end(), {header(1, kPort120), ((g * 2304u + (p.side ? 1u : 0u)) << 7) + 0x4022u, 1u, 150u});
    out.insert(out.end(), {header(1, kPort110), 202u, 1u, 54u});
    out.insert(out.end(), {header(1, kPortTiming), p.timing, 1u});
    return true;
}

// ---------------------------------------------------------------------------
// Mesa RF path

namespace {

uint32_t mesaLoLevelCode(double lo) {
    if (lo < 7.25e8) return 15;
    if (lo < 1.15e9) return 75;
    if (lo < 1.8e9) return 135;
    if (lo < 2.4e9) return 195;
    if (lo < 3.4e9) return 18;
    if (lo < 4.4e9) return 33;
    return 48;
}

uint32_t mesaFilterCode(const MesaPathInput& in) {
    static constexpr uint32_t kByFilter[11] = {24, 16, 48, 32, 0, 40, 8, 1, 6, 2, 4};
    const double rf = in.rfFreq;
    if (in.band > 1) return 7;
    if (in.filter >= 0 && in.filter <= 10) return kByFilter[in.filter];
    if (in.band == 0) {
        if (!in.preselect) return 56;
        if (rf < 2.03e7) return 24;
        if (rf < 2.96e7) return 16;
        if (rf < 4.35e7) return 32;
        if (rf < 6.4e7) return 0;
        if (rf < 9.3e7) return 40;
        return 8;
    }
    if (rf < 6.5e8) {
        if (!in.preselect) return 3;
        if (rf < 2e8) return 1;
        if (rf < 2.9e8) return 6;
        if (rf < 4.4e8) return 2;
        return 4;
    }
    if (rf < 9.5e8) return 448;
    if (rf < 1.37e9) return 192;
    if (rf < 1.85e9) return 320;
    if (rf < 2.39e9) return 128;
    if (rf < 3.26e9) return 256;
    if (rf < 4.46e9) return 64;
    return 384;
}

uint32_t mesaRfFilter(double rf) {
    if (rf < 1.95e8) return 103;
    if (rf < 2.75e8) return 87;
    if (rf < 4.3e8) return 47;
    if (rf < 6.5e8) return 31;
    if (rf > 4.46e9) return 2;
    if (rf > 3.26e9) return 4;
    if (rf > 2.39e9) return 1;
    if (rf > 1.85e9) return 5;
    if (rf > 1.45e9) return 0;
    if (rf > 9.5e8) return 6;
    return 3;
}

}  // namespace

std::array<uint32_t, 4> mesaPathWords(const MesaPathInput& in) {
    const int band = in.band;
    const double lo = in.loFreq, rf = in.rfFreq;
    const uint32_t a = static_cast<uint32_t>(std::min(in.attenIndex * 5, 30));
    const bool r650 = rf >= 6.5e8;
    const uint32_t C = mesaLoLevelCode(lo);
    const uint32_t S = mesaFilterCode(in);
    const uint32_t gc = in.gainCode;

    uint32_t rangeSel = 0, loPathA = 1, loPathB = 0, loPathC = 0, midBand = 0, lowLO1 = 0, lowLO2 = 0, trim = 0;
    switch (band) {
    case 0:
        rangeSel = 1;
        trim = gc + 7;
        break;
    case 1:
        rangeSel = rf < 6.5e8 ? 1 : 0;
        loPathA = lo >= 3.1e9 ? 1 : 0;
        loPathB = lo < 3.1e9 ? 1 : 0;
        trim = gc;
        break;
    case 2:
        rangeSel = 2;
        loPathC = 1;
        midBand = 1;
        lowLO1 = lo < 1e10;
        lowLO2 = lo < 7.8e9;
        trim = gc < 8 ? 0 : gc - 7;
        break;
    default:
        rangeSel = lo > 1.24e10 ? 2 : 3;
        loPathC = lo > 1.24e10;
        lowLO1 = lo < 2e10;
        lowLO2 = lo < 1.56e10;
        trim = gc < 8 ? 0 : gc - 7;
        break;
    }

    uint32_t rfSplit;
    if (band <= 2)
        rfSplit = rf > 8.2e9 ? 1 : 0;
    else
        rfSplit = rf > 1.4e10 ? 3 : 2;
    uint32_t rfSplitInv = 1 - (rfSplit & 1);
    if ((band == 2 && rf > 8.2e9) || (band == 3 && rf > 1.4e10)) rfSplitInv = 0;

    uint32_t loDrive = 10;
    if (lo > 1.24e10) {
        loDrive = 5;
    } else if (in.chainHz > 4.5e9f) {
        const int extra = static_cast<int>((static_cast<double>(in.chainHz) - 4.5e9) / 3e8);
        loDrive = static_cast<uint32_t>(std::min(10 + extra, 15));
    }

    uint32_t loSwitch = 85;
    if (band > 1) {
        const bool all = gc >= 7;
        uint32_t v = ((gc & 1) || all) ? 113 : 81;
        if ((gc & 2) || all) v ^= 24;
        if ((gc & 4) || all) v ^= 192;
        loSwitch = 255 - v;
    }

    const uint32_t d = static_cast<uint32_t>(in.divider);
    const uint32_t wordA = ((band >= 2 ? (31 - a) : 0u) << 16) | ((loPathA ? 66u : 64u) << 8) | ((d + 24) & 0xFF);

    uint32_t wordB = (r650 ? 2u : 1u) << 30;
    wordB |= (trim & 0x3F) << 24;
    wordB |= (static_cast<uint32_t>(3 - band) & 7) << 21;
    wordB |= ((C >> 4) & 0xF) << 17;
    wordB |= ((S >> 6) & 7) << 13;
    wordB |= midBand << 12;
    wordB |= (rf < 6.5e8 ? 1u : 0u) << 11;
    wordB |= (r650 ? 1u : 0u) << 10;
    wordB |= band == 1 ? (1u << 8) : (1u << 9);
    wordB |= ((band == 0 ? a : 63 - 2 * a) & 0x3F) << 2;
    wordB |= (S >> 4) & 3;

    const uint32_t bit18 = (band == 1 && r650) ? 1 : 0;
    uint32_t bit19, bit17;
    if (in.sweep) {
        bit19 = in.lastSlice < 156;
        bit17 = in.firstSlice < 160 && in.lastSlice >= 16;
    } else {
        bit19 = band <= 1;
        bit17 = bit18;
    }
    uint32_t wordC = rangeSel << 30;
    wordC |= rfSplit << 28;
    wordC |= (C & 7) << 25;
    wordC |= ((C >> 3) & 1) << 24;
    wordC |= bit19 << 19;
    wordC |= bit18 << 18;
    wordC |= bit17 << 17;
    wordC |= (band == 0 ? 1u : 0u) << 16;
    wordC |= lowLO1 << 15;
    wordC |= lowLO2 << 14;
    wordC |= 1u << 13;
    wordC |= (band >= 2 ? 1u : 0u) << 12;
    wordC |= (S & 0xF) << 8;
    wordC |= mesaRfFilter(rf) << 1;

    const uint32_t wordD =
        (loPathC << 23) | (loPathB << 22) | (loPathA << 21) | (rfSplitInv << 20) | ((loDrive & 0xF) << 16) | loSwitch;
    return {wordA, wordB, wordC, wordD};
}

void appendMesaRFPath(Words& out, const MesaPathInput& in) {
    const auto w = mesaPathWords(in);
    out.insert(out.end(), {header(4, kPort150), w[0], w[1], w[2], w[3], 1u});
    // The slow output dividers need time to settle before the synthesizer moves.
    if (in.divider == 4 || in.divider == 6) out.push_back(3200u);
}

// ---------------------------------------------------------------------------
// Ridge LO chain

namespace {

struct DividerRun {
    uint16_t value;
    uint16_t count;
};
constexpr DividerRun kDividerRuns[] = {
    {92, 4}, {88, 4}, {84, 5}, {80, 6}, {76, 6}, {72, 7}, {68, 8}, {64, 8}, {60, 8}, {58, 1},
    {60, 2}, {56, 8}, {54, 4}, {52, 9}, {50, 4}, {48, 14}, {46, 4}, {44, 13}, {42, 5}, {40, 21},
    {38, 7}, {36, 21}, {34, 6}, {104, 4}, {100, 4}, {96, 5}, {92, 5}, {88, 4}, {84, 6}, {80, 6},
    {76, 6}, {72, 7}, {68, 6}, {65, 1}, {70, 11}, {75, 9}, {80, 9}, {85, 7}, {90, 7}, {95, 6},
    {100, 7}, {105, 6}, {110, 4}, {35, 6}, {37, 7}, {38, 7}, {40, 20}, {42, 7}, {43, 6}, {45, 16},
    {47, 4}, {48, 5}, {50, 14}, {52, 5}, {53, 3}, {55, 10}, {57, 4}, {58, 4}, {60, 10}, {62, 2},
    {63, 3}, {65, 9}, {67, 2}, {70, 1}, {68, 2}, {70, 8}, {75, 11}, {80, 9}, {85, 9}, {90, 7},
    {95, 7}, {100, 6}, {105, 5}, {110, 5}, {115, 7}, {110, 5}, {105, 7}, {100, 7}, {95, 7}, {90, 9},
    {85, 9}, {80, 11}, {75, 13}, {70, 10}, {68, 4}, {67, 4}, {65, 9}, {63, 3}, {62, 4}, {60, 13},
    {58, 4}, {57, 4}, {55, 16}, {53, 6}, {52, 6}, {50, 16}, {48, 6}, {47, 7}, {45, 26}, {43, 8},
    {130, 3}, {125, 5}, {120, 6}, {115, 1}, {120, 8}, {126, 7}, {132, 3}, {42, 3}, {44, 9}, {45, 8},
    {46, 8}, {48, 20}, {50, 6}, {51, 5}, {52, 6}, {54, 16}, {56, 6}, {57, 6}, {58, 4}, {60, 12},
    {62, 4}, {63, 4}, {64, 5}, {66, 11}, {68, 3}, {69, 3}, {70, 4}, {72, 10}, {74, 3}, {75, 2},
    {76, 3}, {78, 9}, {80, 3}, {81, 2}, {84, 1}, {82, 1}, {84, 10}, {90, 12}, {96, 11}, {102, 10},
    {108, 9}, {114, 9}, {120, 6}, {126, 6}, {132, 6}, {138, 5}, {144, 1}, {138, 4}, {132, 7}, {126, 7},
    {120, 8}, {114, 10}, {108, 9}, {102, 12}, {96, 13}, {90, 14}, {84, 19}, {78, 19}, {72, 26}, {66, 30},
    {60, 33}, {54, 50}, {156, 5}, {150, 8}, {144, 6}, {138, 7}, {132, 6}, {126, 9}, {120, 9}, {114, 9},
    {108, 12}, {102, 12}, {96, 15}, {90, 16}, {84, 20}, {78, 20}, {72, 49}, {76, 9}, {80, 21}, {84, 7},
    {88, 24}, {92, 5}, {96, 16}, {100, 7}, {104, 15}, {112, 2}, {108, 2}, {112, 14}, {120, 15}, {128, 13},
    {136, 13}, {144, 11}, {152, 10}, {160, 9}, {168, 9}, {176, 9}, {56, 16}, {60, 16}, {64, 36}, {68, 11},
    {72, 33}, {76, 11}, {80, 27}, {84, 7}, {88, 22}, {92, 8}, {96, 19}, {100, 5}, {104, 18}, {108, 5},
    {112, 12}, {120, 19}, {128, 15}, {136, 13}, {144, 11}, {152, 11}, {160, 10}, {168, 9}, {176, 8}, {184, 6},
};

constexpr std::array<uint16_t, kRidgeDividerRows> expandDividers() {
    std::array<uint16_t, kRidgeDividerRows> t{};
    int pos = 0;
    for (const DividerRun& r : kDividerRuns)
        for (int i = 0; i < r.count; ++i) t[pos++] = r.value;
    return t;
}

constexpr int dividerRowsInRuns() {
    int n = 0;
    for (const DividerRun& r : kDividerRuns) n += r.count;
    return n;
}
static_assert(dividerRowsInRuns() == kRidgeDividerRows, "divider runs cover 8 to 16 GHz exactly");
constexpr std::array<uint16_t, kRidgeDividerRows> kDividers = expandDividers();

}  // namespace

int ridgeDivider(int row) { return kDividers[std::clamp(row, 0, kRidgeDividerRows - 1)]; }

RidgeOffsetPlan ridgeOffsetPlan(double vcoHz) {
    RidgeOffsetPlan p;
    const double F = vcoHz / 1e6;
    p.high = F > 12000.0;
    p.w = p.high ? F / 4.0 : F / 2.0;
    int row = static_cast<int>(std::floor((F - 7999.0) / 3.90625));
    row = std::min(row, kRidgeDividerRows - 1);
    p.n = ridgeDivider(row);
    if (p.high) p.n /= 2;
    if (p.w < 3428.5714285714284)
        p.prescale = 3;
    else if (p.w < 4444.444444444444)
        p.prescale = 4;
    else if (p.w < 5454.545454545455)
        p.prescale = 5;
    else
        p.prescale = 6;
    p.a = p.w / p.prescale;
    p.b = p.w / p.n;
    const double limit = (p.a > 1085.0 || (p.a > 915.0 && p.a < 1000.0)) ? 1042.5 : 957.5;
    p.offset = limit > p.a ? p.a + p.b : p.a - p.b;
    p.above = p.offset > 1000.0;
    p.flip = p.a > p.offset;
    p.ddsMHz = std::fabs(1000.0 - p.offset);
    p.nWord = p.high ? p.n * 2 : p.n;
    return p;
}

RidgeLoTable defaultRidgeLoTable() {
    RidgeLoTable t{};
    for (int n = 0; n < kRidgeLoRows; ++n) t[n] = {1, static_cast<uint8_t>(n & 127), 3};
    return t;
}

RidgeVcoSetting ridgeVcoSetting(const RidgeLoTable& table, double vcoHz, float temperature,
                                const RidgeOffsetPlan& plan) {
    RidgeVcoSetting s;
    const double F = vcoHz / 1e6;
    const double T = temperature;
    const double Fd = ((T - 33.0) * 6e-5 + 1.0) * F;
    const bool outside = Fd < 7996.0 || Fd > 16004.0;
    const double G = outside ? F : Fd;
    s.row = std::clamp(static_cast<int>(std::floor((G - 7992.2) / 15.625)), 0, kRidgeLoRows - 1);
    const int shift = outside ? static_cast<int>(std::floor((33.0 - T) * 0.077 + 0.5)) : 0;
    const RidgeLoRow& r = table[s.row];
    s.core = r.core;
    s.band = std::clamp(r.band + shift, 0, 255);
    s.bias = r.bias;
    if (T < 0.0 && s.bias < 15) s.bias += 1;

    // Loop settling count; a core value the table does not know is treated as
    // the first core, the one the default table uses everywhere.
    double c = 40.0, sl = 0.14;
    switch (s.core) {
    case 2: c = 40.0; sl = 0.175; break;
    case 4: c = 45.0; sl = 0.215; break;
    case 8: c = 50.0; sl = 0.15; break;
    default: break;
    }
    const double p = plan.high ? plan.prescale * 2.0 : plan.prescale;
    const double x = ((200 - s.band) * sl + c) / p;
    const int n = static_cast<int>(96.0 / x);
    s.settle = n > 16 ? 15 : std::max(n, 4) - 1;
    return s;
}

uint32_t ridgeLoopCode(double f) {
    if (f < 8.4e9) return 227;
    if (f < 9.4e9) return 195;
    if (f < 1e10) return 163;
    if (f < 1.15e10) return 131;
    if (f < 1.22e10) return 99;
    if (f < 1.37e10) return 67;
    if (f < 1.45e10) return 35;
    return 3;
}

RidgeOffsetPlan appendRidgeLO(Words& out, const RidgeLoTable& table, float temperature, double vcoHz, int outSelect,
                              int lowDivider) {
    const RidgeOffsetPlan p = ridgeOffsetPlan(vcoHz);
    const RidgeVcoSetting s = ridgeVcoSetting(table, vcoHz, temperature, p);
    const double F = vcoHz / 1e6;
    const uint32_t o = static_cast<uint32_t>(outSelect);
    out.insert(out.end(), {header(7, kPort120), 0x7000u + ridgeLoopCode(vcoHz),
                           0x3800u + static_cast<uint32_t>(s.core * 16 + s.bias), 0x3700u + static_cast<uint32_t>(s.band),
                           (F > 5999.0 && o == 1) ? 0x251Eu : 0x251Du, 0x2470u + o * 16u,
                           0x1E00u + static_cast<uint32_t>(s.settle) * 16u + (p.flip ? 0u : 8u),
                           0x1000u + static_cast<uint32_t>(p.nWord), 1u, 1u});
    if (lowDivider > 0) {
        const uint32_t v = static_cast<uint32_t>(lowDivider);
        out.insert(out.end(), {header(2, kPort140), 0x440u, v + 0x1000u + (v == 1 ? 16u : 8u), 1u});
    } else {
        out.insert(out.end(), {header(1, kPort140), 0x442u});
    }
    out.insert(out.end(), {header(2, kPort110), 0x440u, static_cast<uint32_t>(p.prescale) + 0x1018u, 1u});
    appendDds(out, p.ddsMHz);
    return p;
}

// ---------------------------------------------------------------------------
// Ridge RF path

bool ridgeMixMode(int band, int subBand) { return band >= 5 && subBand > 2; }

uint32_t ridgeWordE(const RidgePathInput& in) {
    static constexpr uint32_t kE3High[7] = {0, 2, 1, 3, 3, 3, 3};
    static constexpr uint32_t kE4High[7] = {0, 0, 0, 0, 2, 3, 1};
    static constexpr uint32_t kE5Band0[8] = {7, 6, 2, 3, 1, 0, 5, 4};
    static constexpr uint32_t kE5[12] = {4, 3, 2, 1, 0, 11, 10, 7, 8, 5, 9, 6};
    const int band = in.band;
    const int sb = in.subBand;
    const bool mm = band >= 5;
    const int sbHigh = std::clamp(sb, 0, 6);

    uint32_t e1 = 0;
    if (band == 1 || band == 2) e1 = 3;
    else if (mm) e1 = sb < 3 ? 2 : 1;

    uint32_t e2 = 2;
    if (band == 0) e2 = 3;
    else if (band == 3) e2 = 0;
    else if (band == 4) e2 = 1;

    const uint32_t e3 = mm ? kE3High[sbHigh] : (static_cast<uint32_t>(sb) & 3);

    uint32_t e4 = static_cast<uint32_t>(sb) & 3;
    if (band == 4) e4 = 3;
    else if (mm) e4 = kE4High[sbHigh];

    const uint32_t e5 = band == 0 ? kE5Band0[std::clamp(sb, 0, 7)] : kE5[std::clamp(sb, 0, 11)];

    uint32_t e6 = 2;
    if (band == 0) e6 = 3;
    else if (band == 3 || band == 4) e6 = 1;
    else if (band == 5) e6 = 0;

    uint32_t w = e1 << 29;
    w |= (static_cast<uint32_t>(in.attenIndex * 5) & 0x1F) << 24;
    w |= e2 << 22;
    w |= e3 << 20;
    w |= (sb >= 3 ? 1u : 0u) << 19;
    w |= (ridgeMixMode(band, sb) ? 1u : 0u) << 18;
    w |= (e4 & 1) << 15;
    w |= ((e4 >> 1) & 1) << 14;
    w |= e5 << 8;
    w |= e6 << 6;
    w |= in.gainCode & 0x3Fu;
    return w;
}

uint32_t ridgeWordF(const RidgePathInput& in) {
    const int band = in.band;
    const double rf = in.rfFreq;
    const bool m = (in.mask & 0x78u) != 0;
    const uint32_t bit4 = (in.mask >> 4) & 1;

    uint32_t f1 = 0;
    if (band == 1 || band == 2) {
        if (rf > 5.6e9) f1 = 7;
        else if (rf > 5.2e9) f1 = 6;
        else if (rf > 4.5e9) f1 = 5;
        else if (rf > 3e9 || (band == 1 && rf > 1.2e9)) f1 = 4;
        else f1 = 3;
    }

    uint32_t f2;
    if (band == 6) f2 = 0;
    else if (rf < 1.95e8) f2 = 27;
    else if (rf < 2.75e8) f2 = 26;
    else if (rf < 4.3e8) f2 = 25;
    else if (rf < 6.1e8) f2 = 24;
    else if (rf < 8.8e8) f2 = 7;
    else if (rf < 1.18e9) f2 = 6;
    else if (band == 1) f2 = 5;
    else if (rf < 2.83e9) f2 = 3;
    else if (rf < 3.78e9) f2 = 1;
    else f2 = 4;

    uint32_t f3 = 7;
    if (band == 2) {
        if (rf < 1.8e9) f3 = 6;
        else if (rf < 2.8e9) f3 = 2;
        else if (rf < 3.8e9) f3 = 4;
        else f3 = 0;
    }

    uint32_t f4 = 0;
    if (band >= 3) {
        const double f = in.vcoHz;
        if (f < 8.0001e9) f4 = 62;
        else if (f < 9.7501e9) f4 = 14;
        else if (f < 1.12501e10) f4 = 4;
        else if (f < 1.34001e10) f4 = 11;
        else f4 = 1;
        if (band >= 5) f4 += 64;
    }

    uint32_t w = f1 << 29;
    w |= f2 << 24;
    w |= bit4 << 23;
    w |= (m ? 1u : 0u) << 22;
    w |= 3u << 20;
    w |= (m ? 0u : 1u) << 19;
    w |= (band == 1 ? 1u : 0u) << 18;
    w |= (band == 2 || band == 6 ? 1u : 0u) << 17;
    w |= (band == 0 ? 1u : 0u) << 16;
    w |= (in.offsetAbove ? 0u : 1u) << 15;
    w |= (band == 2 || band == 3 || band == 6 ? 1u : 0u) << 14;
    w |= ((band == 4 && in.subBand >= 1) ? 0u : 1u) << 11;
    w |= f3 << 8;
    w |= (f4 & 0x7F) << 1;
    w |= in.high ? 1u : 0u;
    return w;
}

// ---------------------------------------------------------------------------
// Millimetre-wave words

MmWaveWords mmWaveWords(double gMHz, uint32_t gain, uint32_t balance) {
    MmWaveWords w;
    int64_t t = 10;
    if (gMHz >= 8900.0) t = 0;
    else if (gMHz >= 7300.0) t = 5;
    w.w1 = static_cast<uint32_t>((0x45640 + t) * 2);

    const int64_t g = static_cast<int32_t>(gain);
    w.w2 = static_cast<uint32_t>((((g / 2) * 128 - (g + 1) / 2) * 4 + 0x58101) * 2);

    // The balance word is a signed trim; beyond +-15 a coarse step of 12 is
    // switched in on the matching side.
    int64_t b = static_cast<int32_t>(balance);
    int64_t a1 = 0, a2 = 0;
    if (b > 15) {
        b -= 12;
        a1 = 1;
    }
    if (b < -15) {
        b += 12;
        a2 = 1;
    }
    const bool neg = b < 0;
    const int64_t u = neg ? -b : b;
    const int64_t p = u / 2 + 8;
    const int64_t q = 8 - (u + 1) / 2;
    const int64_t x = (a1 + 2048) * 16 + (neg ? p : q);
    w.w3 = static_cast<uint32_t>((x * 16 + (neg ? q : p)) * 2);
    w.w4 = static_cast<uint32_t>((a2 + 2304) * 256 * 2);
    return w;
}

void appendMmWaveBand5(Words& out, double gMHz, uint32_t gain) {
    const MmWaveWords w = mmWaveWords(gMHz, gain, 0);
    out.insert(out.end(), {header(3, kPort150), 0x6702Eu, w.w1, w.w2, 1u});
}

void appendMmWaveBand6(Words& out, double gMHz, uint32_t gain, uint32_t balance) {
    const MmWaveWords w = mmWaveWords(gMHz, gain, balance);
    out.insert(out.end(), {header(5, kPort150), 0x6622Eu, w.w1, w.w2, w.w3, w.w4, 1u});
}

void appendMmWaveIdle(Words& out) { out.insert(out.end(), {header(1, kPort150), 0x6976Eu, 1u}); }

// ---------------------------------------------------------------------------
// DACs

uint32_t gateWord(float volts) {
    const float scaled = (volts + 2.0f) * 2.5f;
    const float code = scaled * 13107.0f + static_cast<float>(0x180000);
    return static_cast<uint32_t>(static_cast<int32_t>(code));
}

void appendGate(Words& out, float volts) { out.insert(out.end(), {header(2, kPort160), gateWord(volts), 0x1B87B9u, 1u}); }

std::array<uint32_t, 2> vvaWords(float value) {
    const double a = value;
    double y = -2.0, x = 0.0;
    if (a <= 11.0) {
        y = -2.0;
        x = a <= 3.0 ? 0.625 * a - 2.0 - 0.075 * a * a : (a - 3.0) * 0.1 - 0.8;
    } else {
        x = 0.0;
        y = a < 15.0 ? (a - 11.0) * 0.54 - 2.0 - (a - 11.0) * 0.06 * (a - 11.0) : (a - 15.0) * 0.04 - 0.8;
    }
    const float ys = static_cast<float>((y + 2.0) * 2.5);
    const float xs = static_cast<float>((x + 2.0) * 2.5);
    const float yc = ys * 13107.0f + static_cast<float>(0x190000);
    const float xc = xs * 13107.0f + static_cast<float>(0x1A0000);
    return {static_cast<uint32_t>(static_cast<int32_t>(yc)), static_cast<uint32_t>(static_cast<int32_t>(xc))};
}

void appendVva(Words& out, float value) {
    const auto w = vvaWords(value);
    out.insert(out.end(), {header(2, kPort160), w[0], w[1], 1u});
}

void appendLoft(Words& out, int32_t i, int32_t q) {
    out.insert(out.end(), {header(2, kPort180), 0x180000u + (static_cast<uint32_t>(i - 32768) & 0xFFFFu),
                           0x190000u + (static_cast<uint32_t>(q - 32768) & 0xFFFFu), 1u});
}

// ---------------------------------------------------------------------------
// Fixed lists

void appendMesaStartupBlock(Words& out) {
    const auto dds100 = ddsWords(100.0);
    out.insert(out.end(), {header(1, kPort110), 10u, 1u, 54u});
    out.insert(out.end(), {header(2, kPortDds), dds100[0], dds100[1], 1u, 396u});
    out.insert(out.end(), {header(2, kPortDds), 0x240C03FFu, 0x240C03FFu, 1u, 396u});
    out.insert(out.end(), {header(7, kPort140), 0x4000050Cu, 0x61200Bu, 0x60000FBAu, 0xB203E49u, 0x102D0438u,
                           0x100002E7u, 0x1500E3F6u, 1u, 1036u});
    out.insert(out.end(), {header(6, kPort140), 0x800005u, 0x23F04u, 3u, 258u, 1u, 0x10000u, 1u, 888u});
    out.push_back(0x4000u);
    out.insert(out.end(), {header(2, kPort140), 1u, 0x800005u, 1u, 444u});
    out.insert(out.end(), {header(3, 0x33), 0u, 0u, 5u, 1u, 1u});
}

std::array<LoChipRow, kLoChipRows> loChipTable(bool calMode) {
    std::array<LoChipRow, kLoChipRows> rows = {{
        {0, 24},   {1, 0},    {124, 0},  {115, 0},  {114, 50}, {113, 96}, {112, 3},  {111, 0},  {110, 0},  {82, 244},
        {71, 192}, {65, 40},  {64, 80},  {63, 128}, {62, 12},  {61, 0},   {58, 85},  {57, 7},   {56, 18},  {55, 175},
        {54, 48},  {53, 76},  {52, 62},  {51, 12},  {50, 4},   {49, 167}, {48, 63},  {47, 10},  {46, 10},  {45, 9},
        {44, 36},  {43, 1},   {42, 0},   {40, 3},   {39, 197}, {38, 50},  {37, 14},  {36, 128}, {35, 2},   {34, 0},
        {32, 28},  {31, 1},   {30, 168}, {29, 0},   {28, 0},   {27, 0},   {26, 3},   {25, 232}, {24, 0},   {23, 0},
        {22, 0},   {21, 0},   {20, 0},   {18, 0},   {17, 0},   {16, 100},
    }};
    if (calMode) {
        static constexpr LoChipRow kCal[] = {{0, 0},    {56, 0},   {55, 0},  {52, 158}, {43, 0}, {35, 0},
                                             {32, 4},   {30, 24},  {22, 128}, {18, 64}, {16, 40}};
        for (const LoChipRow& c : kCal)
            for (LoChipRow& r : rows)
                if (r.reg == c.reg) r.value = c.value;
    }
    return rows;
}

void appendRidgeStartup(Words& out, bool loCalMode) {
    out.insert(out.end(), {header(1, kPortDds), 0x240C03FFu, 1u, 1u});
    out.insert(out.end(), {header(1, kPort150), 0x16E4F8u, 1u});
    out.insert(out.end(), {header(2, kPort160), 0x181999u, 0x1B7C6Au, 1u, 0x4000u});
    appendVva(out, 25.0f);
    out.push_back(0x4000u);
    out.insert(out.end(), {header(1, kPortTiming), 4u});
    out.insert(out.end(), {header(1, kPort120), 0x81u, 0x4000u});  // resets the LO chip
    for (const LoChipRow& r : loChipTable(loCalMode))
        out.insert(out.end(), {header(1, kPort120), (static_cast<uint32_t>(r.reg) << 8) + r.value, 1024u});
}

}  // namespace zr::rf
