#pragma once
// The demodulator's signal chain, one 32 ms pass at a time: 100000 complex
// samples at 3.125 MS/s, a 1024-tap low-pass and every tenth sample to
// 312.5 kS/s, the IF filter, demodulation, the audio low-pass and every
// tenth sample to 31250 S/s, then the high-pass. Every filter's delay line
// and every demodulator's memory carries from pass to pass and belongs to
// this object, so two instruments demodulating never share state.
//
// Everything is allocated by the constructor; a pass allocates nothing.
#include <vector>

#include "device/device.h"
#include "dsp/filters.h"

namespace zr {

class AudioChain {
public:
    static constexpr int kInput = 100000;  // complex samples a pass, 3.125 MS/s
    static constexpr int kMid = 10000;     // 312.5 kS/s
    static constexpr int kOutput = 1000;   // audio samples a pass, 31250 S/s
    static constexpr double kMidRate = 312500.0;
    static constexpr int kHilbertTaps = 2047;
    static constexpr int kHilbertDelay = (kHilbertTaps - 1) / 2;
    // The frequency shift that makes a carrier at the centre a CW tone.
    static constexpr double kCwOffsetHz = 520.0;

    // Builds the filters for the settings' bandwidths; the type is chosen
    // per pass. Throws std::bad_alloc.
    explicit AudioChain(const AudioSettings& settings);

    // One pass. iq (kInput samples) is used as work space.
    void process(cf32* iq, ZrAudioType type, float* audio);

private:
    void am(float* out);
    void fm(float* out);
    void sideband(bool upper, float* out);

    FirFilterComplex decimation_, intermediate_;
    FirFilterReal lowPass_;
    IirFilter highPass_, deemphasis_;
    std::vector<double> hilbert_;   // the non-zero (even-index) taps, in order
    int downPhase1_ = 0, downPhase2_ = 0;

    std::vector<cf32> mid_;          // kMid
    std::vector<float> demod_;       // kMid
    std::vector<double> hilbertIn_;  // the last kHilbertTaps - 1 inputs, then kMid new ones
    std::vector<double> hilbertOut_; // kMid
    std::vector<double> qDelay_;     // the last kHilbertDelay Q samples, then kMid new ones

    double amDc_ = 0.1000000015;
    double amAlpha_;
    float fmLast_ = 0.0f;
    float fmGain_;
    double ssbEnvelope_ = 0.1000000015;
    double ssbAlpha_;
};

}  // namespace zr
