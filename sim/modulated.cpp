// AM and FM sources. A sine-modulated carrier is exactly a set of spectral
// lines with fixed phases: AM a carrier and two sidebands at depth / 2, FM
// the Bessel series J_n(beta) at n times the modulation frequency. The
// scene adds them as coherent tones, so the stream, the instrument FFT and
// every mode see the same signal without a path of their own.
#include <cmath>
#include <vector>

#include "instrument.h"
#include "registry.h"
#include "zr_sim.h"

namespace zr::sim {

void Instrument::addLines(const std::vector<Tone>& lines) {
    std::lock_guard lock(mu_);
    tones_.insert(tones_.end(), lines.begin(), lines.end());
    rebuildScene();
}

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kMaxBeta = 200.0;       // a few hundred lines at most
constexpr double kSmallestLine = 1e-5;  // -100 dB relative to the carrier

void addLine(std::vector<Tone>& out, double hz, double dbm, double amplitude) {
    if (hz < 0.0 || std::fabs(amplitude) < kSmallestLine) return;
    out.push_back({hz, dbm + 20.0 * std::log10(std::fabs(amplitude)), amplitude < 0.0 ? kPi : 0.0});
}

bool validCarrier(double carrierHz, double powerDbm, double modHz) {
    return std::isfinite(carrierHz) && std::isfinite(powerDbm) && std::isfinite(modHz) && carrierHz >= 0.0 &&
           powerDbm <= 30.0 && modHz >= 1.0 && modHz <= 1e6;
}

ZrStatus addTo(int serial, const std::vector<Tone>& lines) {
    auto instrument = findInstrument(serial);
    if (!instrument) return zrDeviceNotFoundErr;
    instrument->addLines(lines);
    return zrNoError;
}

}  // namespace
}  // namespace zr::sim

using namespace zr::sim;

extern "C" {

ZR_EXPORT ZrStatus zrSimAddAM(int serial, double carrierHz, double powerDbm, double modHz, double depth) {
    if (!validCarrier(carrierHz, powerDbm, modHz) || !(depth >= 0.0 && depth <= 1.0)) return zrInvalidParameterErr;
    std::vector<Tone> lines;
    addLine(lines, carrierHz, powerDbm, 1.0);
    addLine(lines, carrierHz - modHz, powerDbm, depth / 2.0);
    addLine(lines, carrierHz + modHz, powerDbm, depth / 2.0);
    return addTo(serial, lines);
}

ZR_EXPORT ZrStatus zrSimAddFM(int serial, double carrierHz, double powerDbm, double modHz, double deviationHz) {
    if (!validCarrier(carrierHz, powerDbm, modHz) || !(deviationHz >= 0.0 && deviationHz <= kMaxBeta * modHz))
        return zrInvalidParameterErr;
    const double beta = deviationHz / modHz;
    // Carson's rule and a margin: beyond beta + 30 the lines are far below
    // anything a converter resolves.
    const int last = int(beta) + 30;
    std::vector<Tone> lines;
    for (int n = -last; n <= last; ++n) {
        const double j = std::cyl_bessel_j(double(std::abs(n)), beta) * ((n < 0 && (n & 1)) ? -1.0 : 1.0);
        addLine(lines, carrierHz + n * modHz, powerDbm, j);
    }
    return addTo(serial, lines);
}

}  // extern "C"
