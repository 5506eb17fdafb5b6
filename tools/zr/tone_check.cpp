// zr_csv_tone_check FILE FREQ:DBM...: passes when the trace in FILE (as
// written by zr sweep --csv) has, for each tone, its highest point near
// FREQ within one bin of FREQ and within 1 dB of DBM.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "zr/units.h"

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: zr_csv_tone_check FILE FREQ:DBM...\n");
        return 2;
    }
    FILE* f = std::fopen(argv[1], "r");
    if (!f) {
        std::fprintf(stderr, "%s: cannot open\n", argv[1]);
        return 1;
    }
    char header[64];
    if (!std::fgets(header, sizeof header, f) || std::string(header) != "frequency_hz,level_dbm\n") {
        std::fprintf(stderr, "%s: not a zr sweep CSV\n", argv[1]);
        return 1;
    }
    std::vector<double> freq;
    std::vector<double> level;
    double fv, lv;
    while (std::fscanf(f, "%lf,%lf", &fv, &lv) == 2) {
        freq.push_back(fv);
        level.push_back(lv);
    }
    std::fclose(f);
    if (freq.size() < 2) {
        std::fprintf(stderr, "%s: fewer than two rows\n", argv[1]);
        return 1;
    }
    const double bin = (freq.back() - freq.front()) / (freq.size() - 1);
    int failures = 0;
    for (int a = 2; a < argc; ++a) {
        const std::string tone = argv[a];
        const size_t colon = tone.find(':');
        auto tf = zrtool::parseFrequency(tone.substr(0, colon));
        auto tp = colon == std::string::npos ? std::nullopt : zrtool::parseLevel(tone.substr(colon + 1));
        if (!tf || !tp) {
            std::fprintf(stderr, "%s: not FREQ:DBM\n", tone.c_str());
            return 2;
        }
        // The highest point within 1 MHz or 20 bins, whichever is wider:
        // enough for the tone's own skirt, too little to reach another tone.
        const double reach = std::max(1e6, 20 * bin);
        size_t best = freq.size();
        for (size_t i = 0; i < freq.size(); ++i)
            if (std::fabs(freq[i] - *tf) <= reach && (best == freq.size() || level[i] > level[best])) best = i;
        if (best == freq.size()) {
            std::fprintf(stderr, "%s: outside the sweep\n", tone.c_str());
            ++failures;
            continue;
        }
        const bool ok = std::fabs(freq[best] - *tf) <= bin && std::fabs(level[best] - *tp) <= 1.0;
        std::printf("%s: highest point %.1f Hz at %.2f dBm (bin %.1f Hz) %s\n", tone.c_str(), freq[best], level[best], bin,
                    ok ? "ok" : "WRONG");
        failures += !ok;
    }
    return failures ? 1 : 0;
}
