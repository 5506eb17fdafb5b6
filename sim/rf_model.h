#pragma once
// The instrument's RF front end as its serial ports see it: the words that
// arrive on the RF ports are kept per port, and the state of the
// conversion chain (first LO, band, attenuator, gain code) is worked out
// from them the way the hardware would settle: the synthesizers lock where
// their dividers, offset loops and reference DDS put them, and the switch
// words pick the path.
//
// Not thread-safe; the instrument calls it under its own lock.
#include <array>
#include <cstdint>

namespace zr::sim {

// The physics the instrument runs and its factory measures. Frequencies of
// the IF are |stream offset| / 50 MHz; `slicePos` is the stream centre in
// units of 39.0625 MHz.
namespace model {
// RF front end to the ADC, dB per dBm, at the nominal gain code.
double rfGainDb(double freqHz, double attenDb, double celsius);
// The IF amplifier's steps around its nominal code.
double gainCodeDb(int code);
// The code the factory sets per slice to centre the IF amplifier.
uint8_t factoryGainCode(int slice);
// The direct path's coupling loss near DC (0 from 500 kHz up).
double lowFreqLossDb(double freqHz);
// IF response shared by the I and Q paths (dB), and the I/Q imbalance: I
// over Q amplitude and the I path's phase lead over Q (radians).
double ifShapeDb(double w, double slicePos, double celsius);
double ifRatio(double w, double slicePos, double celsius);
double ifPhase(double w, double slicePos, double celsius);
// The converter: its own noise floor, which no attenuator setting removes,
// and its full scale (1.0, where each of I and Q clips). Every path that
// turns the ADC's samples into results (the stream and the instrument's
// FFT) sees the same converter.
constexpr double kAdcNoiseDbfsPerHz = -165.0;
constexpr double kAdcFullScale = 1.0;
}  // namespace model

// What the words put in force.
struct RfPath {
    bool known = false;     // a path word has been seen
    bool direct = true;     // no conversion: the ADC sees the RF input
    int band = 0;
    double firstLoHz = 0.0; // 0 on the direct path
    double attenDb = 0.0;
    int gainCode = 0;
};

class RfFrontEnd {
public:
    explicit RfFrontEnd(bool ridge) : ridge_(ridge) {}

    // One register write of n words that starts at an RF port (0x100 to
    // 0x180); the words go to that one port, as the serial devices take
    // them.
    void portWrite(uint32_t port, const uint32_t* words, uint32_t n);
    // The routing register (0x2C) as last written.
    void setRouting(uint32_t value) { routing_ = value; }

    RfPath path(double celsius) const;

    // Coarse tuning curve of the Mesa synthesizer's VCO: frequency in MHz of
    // sub-band b, code c, at a temperature. The factory measures this.
    static double mesaVcoMHz(int b, int c, double celsius);
    // The Mesa synthesizer's output in MHz, or 0 before it was programmed.
    double mesaSynthMHz(double celsius) const;
    // The Ridge LO chain's output in Hz, or 0 before it was programmed.
    double ridgeChainHz() const;

private:
    static int ridgeBandFromWords(uint32_t e, uint32_t f);
    RfPath mesaPath(double celsius) const;
    RfPath ridgePath() const;

    const bool ridge_;
    uint32_t routing_ = 0;
    double ddsMHz_ = 0.0;
    // Mesa path words A..D and synthesizer settings.
    std::array<uint32_t, 4> mesaPathWords_{};
    bool mesaPathSeen_ = false;
    int vcoSubBand_ = -1, vcoCode_ = 0, divider_ = 0, mode_ = 3, side_ = 0;
    bool halfOutput_ = false;
    // Ridge LO chip, dividers and path words.
    uint32_t ridgeN_ = 0, ridgeSelect_ = 1, ridgeP_ = 0, ridgeV_ = 0;
    bool ridgeFlip_ = false;
    uint32_t ridgeE_ = 0, ridgeF_ = 0;
    bool ridgePathSeen_ = false;
};

}  // namespace zr::sim
