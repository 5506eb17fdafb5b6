#include "rf/frequency_plan.h"

#include "platform/checked.h"

#include <algorithm>
#include <atomic>
#include <cmath>

namespace zr::rf {

// ---------------------------------------------------------------------------
// Grid

double sliceLoHz(int slice) {
    if (slice <= 2) return 0.0;
    if (slice == 3) return 125e6;
    return (slice + 1) * kSliceHz;
}

int sliceForCenter(double f, double sampleRate) {
    const double top = f + sampleRate / 2.0;
    int n = static_cast<int>(std::floor(top / kSliceHz + 0.5));
    if (top < 165e6) n = std::min(n, 3);
    return n;
}

DownConverterTune downConverterTune(int slice, double center) {
    DownConverterTune t;
    const double lo = sliceLoHz(slice);
    if (slice <= 3) {
        const int32_t k = truncChecked((center - lo) / kDownConverterStepHz);
        t.centerHz = lo + k * kDownConverterStepHz;
        t.word = (slice == 3 && k < 0) ? -k : 1024 - k;
    } else {
        const double reference = lo + 1.25e8;
        t.word = truncChecked((reference - center) / kDownConverterStepHz);
        t.centerHz = reference - t.word * kDownConverterStepHz;
    }
    return t;
}

// ---------------------------------------------------------------------------
// Attenuator

int autoAttenIndex(double r) {
    if (r <= -20.0) return 0;
    if (r <= -15.0) return 1;
    if (r <= -10.0) return 2;
    if (r <= -5.0) return 3;
    if (r <= 0.0) return 4;
    if (r <= 5.0) return 5;
    return 6;
}

int attenIndexFor(int setting, double refLevelDbm) { return setting >= 0 ? setting : autoAttenIndex(refLevelDbm); }

// ---------------------------------------------------------------------------
// Preselector

namespace {

struct CoverageRow {
    int firstSlice, lastSlice;
    PreselectRow row;
};
constexpr CoverageRow kCoverage[] = {
    {0, 0, {0, 0, 32}},   {1, 1, {1, 0, 8}},    {1, 1, {2, 8, 14}},  {1, 1, {3, 14, 21}}, {1, 1, {4, 21, 32}},
    {2, 2, {5, 0, 32}},   {3, 3, {6, 0, 32}},   {4, 4, {7, 0, 32}},  {5, 5, {7, 0, 18}},  {5, 5, {8, 18, 32}},
    {6, 7, {8, 0, 32}},   {8, 10, {9, 0, 32}},  {11, 16, {10, 0, 32}},
};

// Both hold for every device; written only by the admin calls.
std::atomic<bool> gAutoPreselect{true};
std::atomic<int> gForcedFilter{0};

}  // namespace

int adminSetPreselectorFilter(int filter) {
    if (filter >= 0 && filter < kPreselectFilterCount) {
        gForcedFilter = filter;
        gAutoPreselect = false;
    }
    return 0;
}

int adminSetAutoPreselector() {
    gAutoPreselect = true;
    return 0;
}

bool preselectorAutomatic() { return gAutoPreselect; }

int selectPreselectFilter(double freq, int slice) {
    if (freq > kPreselectMaxHz) return 0;
    if (!gAutoPreselect) return gForcedFilter;
    int result = 0;
    for (int k = 0; k < kPreselectFilterCount; ++k) {
        if (freq <= preselectFilter(k).start + 3e6) break;
        result = k;
    }
    // Slice 3 is centred on the 125 MHz LO; filter 6 covers it whole.
    if (result == 7 && slice == 3) result = 6;
    return result;
}

PreselectRows preselectRowsForSlice(int slice) {
    PreselectRows out;
    const bool forced = !gAutoPreselect;
    const int forcedFilter = gForcedFilter;
    for (const CoverageRow& c : kCoverage) {
        if (slice < c.firstSlice || slice > c.lastSlice) continue;
        PreselectRow r = c.row;
        if (forced) r.filter = forcedFilter;
        out.rows[out.count++] = r;
    }
    return out;
}

// ---------------------------------------------------------------------------
// Mesa

MesaBandPlan planMesaBand(double lo, double rf) {
    MesaBandPlan p;
    if (lo > 1.1e10) {
        p.band = 3;
        p.multiplier = lo <= 1.24e10 ? 2.0 : 4.0;
    } else if (lo > 6.2e9) {
        p.band = 2;
        p.multiplier = 2.0;
    } else if (rf > 1.5e8) {
        p.band = 1;
    } else {
        p.band = 0;
    }
    float L = static_cast<float>(lo / p.multiplier);
    if (p.band == 1 && rf < 6.5e8) {
        p.multiplier /= 2.0;
        L *= 2.0f;
    }
    if (L < 3.875e8f) {
        p.divider = 6;
        p.multiplier /= 6.0;
    } else if (L < 7.75e8f) {
        p.divider = 4;
        p.multiplier /= 8.0;
    } else if (L < 1.55e9f) {
        p.divider = 2;
        p.multiplier /= 4.0;
    } else if (L < 3.1e9f) {
        p.divider = 1;
        p.multiplier /= 2.0;
    } else {
        p.divider = 1;
    }
    p.chainHz = L;
    if (lo >= 6.25e7 && lo < 1.28e8)
        p.subBand = 1;
    else if (lo >= 1.28e8 && lo < 6.5e8)
        p.subBand = 2;
    p.synthMHz = p.band == 0 ? 5000.0 : lo / 1e6 / p.multiplier;
    return p;
}

namespace {

void appendMesaSynthAt(Words& out, const MesaRfState& state, const RfCalibration& cal, int loIndex, double lookupMHz,
                       double synthMHz) {
    const int t = roundedTempIndex(cal.tempIndex(), cal.tempFrac());
    const MesaLoSetting s = mesaLoLookup(state.lo, t, loIndex, lookupMHz, cal.loConfig(t, loIndex));
    appendMesaSynth(out, synthMHz, s);
}

}  // namespace

void tuneMesa(Words& out, const MesaRfState& state, const RfCalibration& cal, TuneRequest& req) {
    const MesaBandPlan p = planMesaBand(req.loFreq, req.rfFreq);
    MesaPathInput in;
    in.band = p.band;
    in.divider = p.divider;
    in.chainHz = p.chainHz;
    in.loFreq = req.loFreq;
    in.rfFreq = req.rfFreq;
    in.attenIndex = req.attenIndex;
    in.gainCode = req.gainCode;
    in.preselect = req.preselect == 1;
    in.filter = req.filter;
    in.sweep = req.kind == kTuneSweep;
    in.firstSlice = req.firstSlice;
    in.lastSlice = req.lastSlice;
    appendMesaRFPath(out, in);
    req.band = p.band;
    req.subBand = p.subBand;
    appendMesaSynthAt(out, state, cal, req.loIndex, p.synthMHz, p.synthMHz);
}

void appendMesaStartup(Words& out, const MesaRfState& state, const RfCalibration& cal) {
    appendMesaStartupBlock(out);
    appendMesaSynthAt(out, state, cal, 640, 5000.0, 3300.0);
}

void appendMesaWakeSynth(Words& out, const MesaRfState& state, const RfCalibration& cal) {
    appendMesaSynthAt(out, state, cal, kMesaWakeLoIndex, 3906.25, 3906.25);
}

// ---------------------------------------------------------------------------
// Ridge

namespace {

std::atomic<uint32_t> gMixMode{0};

int bandOneTwoSubBand(double rf, bool preselect) {
    if (!preselect && rf < 6.2e8) return 0;
    if (rf < 2e8) return 1;
    if (rf < 2.9e8) return 2;
    if (rf < 4.4e8) return 3;
    if (rf < 6.2e8) return 4;
    if (rf < 9.5e8) return 5;
    if (rf < 1.37e9) return 6;
    if (rf < 1.8e9) return 7;
    if (rf < 2.39e9) return 8;
    if (rf < 3.26e9) return 9;
    if (rf < 4.46e9) return 10;
    return 11;
}

int bandZeroSubBand(double rf, bool preselect) {
    if (!preselect) return 0;
    if (rf < 2.03e7) return 1;
    if (rf < 2.96e7) return 2;
    if (rf < 4.35e7) return 4;
    if (rf < 6.4e7) return 5;
    if (rf < 9.3e7) return 6;
    return 7;
}

void appendTiming(Words& out, int band, bool offsetAbove) {
    out.insert(out.end(), {header(1, kPortTiming), (band < 6 ? 4u : 5u) + (offsetAbove ? 8u : 0u), 1u});
}

}  // namespace

uint32_t ridgeRememberedMixMode() { return gMixMode; }
void resetRidgeMixModeMemory() { gMixMode = 0; }

int ridgeMmSubBand(double rf, bool band6Backdoor) {
    if (band6Backdoor) return 4;
    if (rf > 3.9849e10) return 6;
    if (rf > 3.7249e10) return 5;
    if (rf > 3.4149e10) return 4;
    if (rf > 3.1549e10) return 3;
    if (rf > 2.9249e10) return 2;
    if (rf > 2.6999e10) return 1;
    return 0;
}

RidgeBandPlan planRidgeBand(const TuneRequest& req, bool band6Backdoor) {
    RidgeBandPlan p;
    double lo = req.loFreq;
    const double rf = req.rfFreq;
    if (lo > 4.1e10) {
        p.band = 6;
        p.chainHz = (lo - 3e9) / 4.0;
    } else if (lo > 2.4e10) {
        p.band = 5;
        p.chainHz = lo / 4.0;
    } else if (lo > 1.6e10) {
        p.band = 4;
        p.chainHz = lo / 2.0;
    } else if (lo > 6.2e9) {
        p.band = 3;
        p.chainHz = lo;
    } else if (lo > 1.4e8 && rf >= 1.8e9) {
        p.band = 2;
        p.chainHz = lo;
    } else if (lo > 1.4e8) {
        // The low band runs the LO at twice the request for the rest of the
        // tune. The caller's request keeps its value so it can be tuned again.
        p.band = 1;
        lo *= 2.0;
        if (lo > 3e9) p.lowDivider = 1;
        else if (lo > 1.5e9) p.lowDivider = 2;
        else if (lo > 7.5e8) p.lowDivider = 4;
        else p.lowDivider = 6;
        p.chainHz = p.lowDivider * lo;
    } else {
        p.band = 0;
        p.chainHz = 4e9;
        p.lowDivider = 4;
    }
    p.loFreq = lo;

    const bool presel = req.preselect == 1;
    switch (p.band) {
    case 6:
    case 5: p.subBand = ridgeMmSubBand(rf, band6Backdoor); break;
    case 4: p.subBand = rf > 1.9599e10 ? 1 : 0; break;
    case 3: p.subBand = rf > 1.2299e10 ? 2 : (rf > 8.1999e9 ? 1 : 0); break;
    case 2:
    case 1: p.subBand = bandOneTwoSubBand(rf, presel); break;
    default: p.subBand = bandZeroSubBand(rf, presel); break;
    }
    // A preselector filter in the path (switched in, with a filter 0..10
    // chosen) names the sub-band itself; a request with filter -1 keeps the
    // frequency rule.
    if (presel && req.filter >= 0 && req.filter <= 10 && p.band <= 2) {
        if (p.band != 1 || p.subBand < 5) p.subBand = req.filter < 7 ? req.filter + 1 : req.filter - 6;
    }

    double f = p.chainHz;
    if (f < 2e9) {
        f *= 8.0;
        p.outSelect = 3;
    } else if (f < 4e9) {
        f *= 4.0;
        p.outSelect = 2;
    } else if (f < 8e9) {
        f *= 2.0;
        p.outSelect = 1;
    } else {
        p.outSelect = 1;
    }
    p.vcoHz = f;
    return p;
}

uint32_t ridgePathMask(uint32_t kind, int band, int f, int l) {
    if (kind != kTuneSweep) return 1u << band;
    uint32_t m = 0;
    if (f < 5) m |= 1u << 0;
    if (f < 50 && l >= 3) m |= 1u << 1;
    if (f < 162 && l >= 45) m |= 1u << 2;
    if (f < 415 && l >= 157) m |= 1u << 3;
    if (f < 620 && l >= 405) m |= 1u << 4;
    if (f < 1055 && l >= 610) m |= 1u << 5;
    if (l > 1045) m |= 1u << 6;
    return m;
}

int ridgeVvaIndex(double loFreq, int band) {
    const double L = band > 4 ? loFreq / 4.0 : loFreq;
    const double idx = std::floor((L - 6.015625e9 + 1.9e7) / 3.90625e7);
    return static_cast<int>(std::clamp(idx, 0.0, 460.0));
}

void appendRidgeRFPath(Words& out, RidgeRfState& state, const RidgePathInput& in) {
    const bool m = (in.mask & 0x78u) != 0;
    const bool bit4 = ((in.mask >> 4) & 1u) != 0;
    out.insert(out.end(), {header(2, kPort170), ridgeWordE(in), ridgeWordF(in)});
    // The amplifier that bit 4 powers needs time after it comes on.
    out.push_back(bit4 && !state.bit4Latch ? 2500u : 1u);
    if (in.band >= 5) {
        const uint32_t mix = ridgeMixMode(in.band, in.subBand) ? 1u : 0u;
        if (mix != gMixMode.load()) {
            out.insert(out.end(), {30000u, 30000u, 30000u});
            gMixMode = mix;
        }
    }
    if (m && !state.maskLatch) state.wakePending = true;
    state.maskLatch = m;
    state.bit4Latch = bit4;
}

void tuneRidge(Words& out, RidgeRfState& state, const RfCalibration& cal, TuneRequest& req) {
    const RidgeBandPlan p = planRidgeBand(req, state.band6Backdoor);

    // Without CBB data the planner has no calibration connection, so
    // every Ridge-specific trim is left at zero: the
    // millimetre-wave gain and balance words, and the LO feedthrough values
    // (an override by the admin call still applies). The tune itself is the
    // same; only the trims are flat, as with a dummy image.
    uint32_t mmGain = 0, mmBalance = 0;
    if (state.calConnected) {
        if (p.band == 5) {
            const double x = (p.loFreq - 24023437500.0) / 3.90625e7;
            const int idx = x < 0.0 ? 0 : std::min(static_cast<int>(std::floor(x + 0.5)), 434);
            mmGain = cal.band5Gain(idx);
        } else if (p.band == 6) {
            cal.band6Words(p.loFreq, mmBalance, mmGain);
        }
    }

    const RidgeOffsetPlan lo = appendRidgeLO(out, state.loTable, state.temperature, p.vcoHz, p.outSelect, p.lowDivider);

    const bool sweep = req.kind == kTuneSweep;
    const uint32_t mask = ridgePathMask(req.kind, p.band, req.firstSlice, req.lastSlice);

    RidgePathInput in;
    in.band = p.band;
    in.subBand = p.subBand;
    in.attenIndex = req.attenIndex;
    in.gainCode = req.gainCode;
    in.rfFreq = req.rfFreq;
    in.vcoHz = p.vcoHz;
    in.offsetAbove = lo.above;
    in.high = lo.high;
    in.mask = mask;
    appendRidgeRFPath(out, state, in);

    // The millimetre-wave balance term is chosen by the LO chain's own
    // frequency (before scaling into the VCO range), the one the
    // band-4 sweep form fixes at 7000 MHz.
    const double chainMHz = p.chainHz / 1e6;
    if (p.band == 6)
        appendMmWaveBand6(out, chainMHz, mmGain, mmBalance);
    else if (p.band == 5)
        appendMmWaveBand5(out, chainMHz, mmGain);
    else if (p.band == 4 && sweep && (mask & (1u << 5)))
        appendMmWaveBand5(out, 7000.0, 0);
    else
        appendMmWaveIdle(out);

    const float gate = (p.band == 3 || p.band == 4) ? state.gateBias : -2.0f;
    appendGate(out, gate);
    const int vvaIndex = ridgeVvaIndex(p.loFreq, p.band);
    appendVva(out, state.vva[vvaIndex]);

    const int loftIndex = std::clamp(vvaIndex - 5, 0, 454);
    int32_t li = 0, lq = 0;
    if (!cal.loftOverride(li, lq)) {
        if (state.calConnected && cal.hasLoTables()) {
            li = cal.loftI(loftIndex);
            lq = cal.loftQ(loftIndex);
        } else {
            li = lq = 0;
        }
    }
    appendLoft(out, li, lq);

    appendTiming(out, p.band, lo.above);

    // The LO amplifier draws its drain current only once the gate is up;
    // give it time when it has just been switched on.
    if (state.previousGate < -1.9f && gate > -1.9f) out.push_back(2500u);
    state.previousGate = gate;

    state.band = p.band;
    state.subBand = p.band == 0 ? (req.loFreq >= 6.25e7 ? 1 : 0) : p.subBand;
    req.band = p.band;
    // In band 0 the IF filter control takes the planner's sub-band: the
    // slice above the direct range (98-137 MHz) is mixed down, and only that
    // sub-band sets the 125 MHz offset its samples need.
    req.subBand = p.band == 0 ? state.subBand : p.subBand;
}

int tuneIFOutput(Words& out, RidgeRfState& state, const RfCalibration& cal, double freq, int attenIndex) {
    if (!(freq >= 2.4e10 && freq <= 4.35e10)) return -5;
    const double rf = freq;
    const double loFreq = freq - 1.5e9;
    const int band = 6;
    const int subBand = ridgeMmSubBand(rf, state.band6Backdoor);
    const int idx = std::clamp(static_cast<int>(std::floor((rf - 2.4e10) / 5e8 + 0.5)), 0, 39);

    const double chain = loFreq / 4.0;
    const double vco = chain <= 8e9 ? chain * 2.0 : chain;
    const RidgeOffsetPlan lo = appendRidgeLO(out, state.loTable, state.temperature, vco, 1, 0);

    RidgePathInput in;
    in.band = band;
    in.subBand = subBand;
    in.attenIndex = attenIndex;
    in.gainCode = 0;
    in.rfFreq = rf;
    in.vcoHz = vco;
    in.offsetAbove = lo.above;
    in.high = lo.high;
    in.mask = 64;
    appendRidgeRFPath(out, state, in);

    appendMmWaveBand6(out, chain / 1e6, cal.ifOutGain(idx), cal.ifOutBalance(idx));
    appendGate(out, -2.0f);
    appendVva(out, state.vva[ridgeVvaIndex(loFreq, band)]);
    appendLoft(out, 0, 0);
    out.insert(out.end(), {header(1, kPortTiming), lo.above ? 12u : 4u, 1u});
    state.previousGate = -2.0f;
    state.band = band;
    state.subBand = subBand;
    return 0;
}

void appendRidgeShutdown(Words& out, RidgeRfState& state) {
    out.insert(out.end(), {header(2, kPort170), 0u, 0x80000u, 1u});
    appendMmWaveIdle(out);
    appendGate(out, -2.0f);
    appendLoft(out, 0, 0);
    out.insert(out.end(), {header(1, kPortTiming), 4u, 1u});
    state.maskLatch = false;
    state.bit4Latch = false;
    state.previousGate = -2.0f;
}

void appendRidgeWake(Words& out) {
    out.insert(out.end(), {header(2, kPort170), 0x03000007u, 0x60F00000u});
    out.insert(out.end(), 60, 30000u);
}

bool appendRidgeWakeIfPending(Words& out, RidgeRfState& state) {
    if (!state.wakePending) return false;
    appendRidgeWake(out);
    state.wakePending = false;
    state.maskLatch = true;
    state.bit4Latch = true;
    return true;
}

// ---------------------------------------------------------------------------
// Calibration service groups

namespace {
std::atomic<bool> gLoCalMode{false};
}

void setRidgeLoCalMode(bool on) { gLoCalMode = on; }
bool ridgeLoCalMode() { return gLoCalMode; }

int appendMesaCalLOStep(Words& out, int step) {
    if (step < 0 || step >= 1024) return -5;
    const uint32_t s = static_cast<uint32_t>(step);
    out.insert(out.end(), {header(4, kPort120), 0x4143u, 0x4142u, 4u, 0x101u, 1u});
    out.insert(out.end(), {header(1, kPort110), 10u, 1u, 54u});
    appendDds(out, 100.0);
    out.insert(out.end(), {594u, 1u});
    out.insert(out.end(), {header(5, kPort140), s > 511 ? 0x1520E3F6u : 0x1500E3F6u, 0x1000u, 0x20C00FBAu,
                           (0x10000u << (s / 256)) - (s % 256) * 16u + 0x602FFBu, 0x60C00FBAu, 1u});
    return 0;
}

void appendRidgeLOForCal(Words& out, int step) {
    const uint32_t s = static_cast<uint32_t>(step);
    out.push_back(1u);
    out.insert(out.end(), {header(3, kPort120), 0x1700u + ((s & 8u) >> 3), 0x1600u + (s & 7u) * 32u,
                           0x1000u + ((s + 512u) >> 4), 0x4000u});
    out.insert(out.end(), {header(2, kPort160), 0x180000u, 0x1B7C6Au, 1u});
    appendVva(out, 25.0f);
    out.push_back(0x4000u);
    out.insert(out.end(), {header(1, kPortTiming), 4u, 1u});
}

void appendRidgeGainCalLOStep(Words& out, const RidgeRfState& state, int step) {
    double f = (step + 154) * 0.0390625e9;
    int outSel = 3;
    if (f > 1.6001e10) {
        outSel = 4;
        f /= 2.0;
    }
    if (f < 7.999e9) f *= 2.0;
    // The switch and filter words are chosen by the frequency that the LO
    // words program, after halving or doubling.
    const RidgeOffsetPlan lo = appendRidgeLO(out, state.loTable, state.temperature, f, 1, 0);
    uint32_t w1;
    if (outSel == 4)
        w1 = 3u << 14;
    else
        w1 = (f > 1.2299e10 ? 2u : (f > 8.1999e9 ? 1u : 0u)) << 14;
    uint32_t p;
    if (f < 8.0001e9) p = 62;
    else if (f < 9.7501e9) p = 14;
    else if (f < 1.12501e10) p = 4;
    else if (f < 1.34001e10) p = 11;
    else p = 1;
    uint32_t w2 = ((outSel == 4 ? 0x400000u : 0u) | p) * 2u + (lo.high ? 1u : 0u) + 0x500000u;
    if (!lo.above) w2 += 0x8000u;
    out.insert(out.end(), {header(2, kPort170), w1, w2, 1u});
    out.insert(out.end(), {header(1, kPortTiming), lo.above ? 12u : 4u, 1u});
}

}  // namespace zr::rf
