#include "rf/rf_glue.h"

#include <algorithm>
#include <cstring>

namespace zr::rf {

void appendToList(CommandList& list, const Words& words) {
    size_t i = 0;
    while (i < words.size()) {
        const uint32_t w = words[i];
        size_t n = 1;
        if ((w >> 24) == 0x04) n += (w >> 16) & 0xFF;
        n = std::min(n, words.size() - i);
        list.AppendWords(words.data() + i, n);
        i += n;
    }
}

void buildMesaRfState(MesaRfState& state, const MesaCalData& image) { buildMesaLoTables(image.loFreq, state.lo); }

bool loadCbbColumns(RidgeRfState& state, const RidgeCalData& image) {
    if (!zrCalDoesCBBDataExist(&image)) return false;
    for (int n = 0; n < kRidgeLoRows; ++n)
        state.loTable[n] = {image.cbbCore[n], image.cbbBand[n], image.cbbBias[n]};
    state.calConnected = true;
    return true;
}

void refreshRidgeForConfigure(RidgeRfState& state, const RidgeOverrides& overrides, float temperature,
                              const RidgeCalData& image, float gateBias) {
    state.temperature = temperature;
    if (!overrides.vva) {
        uint32_t first;
        std::memcpy(&first, &image.vva[0], sizeof first);
        if (first != 0xFFFFFFFFu)
            for (int i = 0; i < kVvaPoints; ++i) state.vva[i] = image.vva[i];
    }
    if (!overrides.gateBias) state.gateBias = gateBias;
}

void tune(CommandList& list, const MesaRfState& state, const RfCalibration& cal, TuneRequest& req) {
    // One buffer per thread: a sweep plan tunes thousands of times.
    thread_local Words w;
    w.clear();
    tuneMesa(w, state, cal, req);
    appendToList(list, w);
}

void tune(CommandList& list, RidgeRfState& state, const RfCalibration& cal, TuneRequest& req) {
    // One buffer per thread: a sweep plan tunes thousands of times.
    thread_local Words w;
    w.clear();
    tuneRidge(w, state, cal, req);
    appendToList(list, w);
}

void tune(RfState& rf, bool ridge, const RfCalibration& cal, CommandList& list, TuneRequest& req) {
    if (ridge)
        tune(list, rf.ridge, cal, req);
    else
        tune(list, rf.mesa, cal, req);
}

bool appendRidgeWakeIfPending(CommandList& list, RidgeRfState& state) {
    Words w;
    if (!appendRidgeWakeIfPending(w, state)) return false;
    appendToList(list, w);
    return true;
}

}  // namespace zr::rf
