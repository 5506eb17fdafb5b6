#include "audio/audio_chain.h"

#include "audio/hilbert.h"

#include <algorithm>
#include <cmath>

namespace zr {

namespace {

constexpr int kFirTaps = 1024;
constexpr double kDecimationCutoff = 0.0448;

// The FM discriminator's output for a deviation is scaled to the IF
// bandwidth, so wide and narrow FM come out at comparable loudness.
constexpr double kFmGainNumerator = 160000.0;

template <class Filter, class T, class Design>
void build(Filter& f, double cutoff, Design design) {
    std::vector<T> taps(kFirTaps);
    design(taps.data(), kFirTaps, static_cast<float>(cutoff));
    if (!f.Setup(taps.data(), kFirTaps)) throw std::bad_alloc();
}

bool finite(double v) { return std::isfinite(v); }

}  // namespace

void hilbertAccumulate(const double* taps, int tapCount, const double* in, double* y, int n) {
    if (dspWideKernelsActive()) hilbertAccumulateWide(taps, tapCount, in, y, n);
    else hilbertAccumulateLoop(taps, tapCount, in, y, n);
}

AudioChain::AudioChain(const AudioSettings& s)
    : mid_(kMid), demod_(kMid), hilbertIn_(kHilbertTaps - 1 + kMid, 0.0), hilbertOut_(kMid),
      qDelay_(kHilbertDelay + kMid, 0.0) {
    build<FirFilterComplex, cf32>(decimation_, kDecimationCutoff, DesignLowPassComplex);
    build<FirFilterComplex, cf32>(intermediate_, std::min(s.ifBandwidth / kMidRate * 0.5, 0.49),
                                  DesignLowPassComplex);
    build<FirFilterReal, float>(lowPass_, s.lowPass / kMidRate, DesignLowPassReal);

    float iir[6];  // b0..b2, a0..a2 of the second-order section
    DesignIirHighPass(s.highPass / (kMidRate / 10.0), 0.2, 2, iir);
    if (!highPass_.Setup(iir, 2)) throw std::bad_alloc();
    DesignIirLowPass(0.3275 / s.fmDeemphasisUs, 0.2, 1, iir);
    if (!deemphasis_.Setup(iir, 1)) throw std::bad_alloc();

    // 2/pi over the odd distances from the centre, under a Blackman
    // window; the taps at even distances are zero and are left out.
    std::vector<double> taps(kHilbertTaps, 0.0);
    for (int i = 0; i < kHilbertTaps; i += 2) taps[size_t(i)] = 0.6366197723675394 / double(i - kHilbertDelay);
    dspWinBlackmanStd64f(taps.data(), kHilbertTaps);
    for (int i = 0; i < kHilbertTaps; i += 2) hilbert_.push_back(taps[size_t(i)]);

    amAlpha_ = std::pow(2.71828, -1.5625e-5);
    ssbAlpha_ = std::pow(2.71828, -1e-5);
    fmGain_ = static_cast<float>(kFmGainNumerator / s.ifBandwidth);
}

void AudioChain::process(cf32* iq, ZrAudioType type, float* audio) {
    decimation_.Filter(iq, iq, kInput);
    int n = 0;
    dspSampleDownComplex(iq, kInput, mid_.data(), n, 10, downPhase1_);
    intermediate_.Filter(mid_.data(), mid_.data(), kMid);
    switch (type) {
        case zrAudioAM: am(demod_.data()); break;
        case zrAudioFM: fm(demod_.data()); break;
        case zrAudioUSB: sideband(true, demod_.data()); break;
        default: sideband(false, demod_.data()); break;  // LSB, and CW on a shifted centre
    }
    lowPass_.Filter(demod_.data(), demod_.data(), kMid);
    dspSampleDown(demod_.data(), kMid, audio, n, 10, downPhase2_);
    highPass_.Filter(audio, kOutput);
}

// Envelope against its own slow average: the modulation depth, whatever
// the carrier's level.
void AudioChain::am(float* out) {
    double dc = amDc_;
    const double a = amAlpha_;
    for (int i = 0; i < kMid; ++i) {
        const double m = std::abs(mid_[size_t(i)]);
        dc = m * (1.0 - a) + dc * a;
        out[i] = static_cast<float>((m - dc) / dc);
    }
    amDc_ = finite(dc) ? dc : 0.1000000015;
}

// Phase difference between neighbours: the instantaneous frequency.
void AudioChain::fm(float* out) {
    constexpr float kPi = 3.14159265358979f;
    dspPhaseComplex(mid_.data(), out, kMid);
    float last = fmLast_;
    for (int i = 0; i < kMid; ++i) {
        const float p = out[i];
        float d = p - last;
        if (d > kPi) d -= 2.0f * kPi;
        if (d < -kPi) d += 2.0f * kPi;
        out[i] = d * fmGain_;
        last = p;
    }
    fmLast_ = last;
    deemphasis_.Filter(out, kMid);
}

// The phasing method: I through the Hilbert filter plus Q delayed by the
// filter's group delay keeps one sideband; negating I keeps the other.
// The envelope follower's value at the end of the pass scales the whole
// pass, so the audio level does not pump within a block.
void AudioChain::sideband(bool upper, float* out) {
    constexpr int kHistory = kHilbertTaps - 1;
    double env = ssbEnvelope_;
    const double a = ssbAlpha_;
    double* in = hilbertIn_.data() + kHistory;
    double* q = qDelay_.data() + kHilbertDelay;
    for (int i = 0; i < kMid; ++i) {
        const cf32 v = mid_[size_t(i)];
        const float x = std::abs(v) * 2.0f;
        env = x > env ? double(x) : (1.0 - a) * x + env * a;
        in[i] = upper ? double(v.real()) : -double(v.real());
        q[i] = double(v.imag());
    }
    if (!finite(env)) env = 0.1000000015;
    ssbEnvelope_ = env;

    double* y = hilbertOut_.data();
    std::fill(y, y + kMid, 0.0);
    hilbertAccumulate(hilbert_.data(), int(hilbert_.size()), in, y, kMid);
    const double* qd = qDelay_.data();  // q[j - kHilbertDelay]
    for (int j = 0; j < kMid; ++j) out[j] = static_cast<float>((y[j] + qd[j]) / env);

    std::copy(hilbertIn_.end() - kHistory, hilbertIn_.end(), hilbertIn_.begin());
    std::copy(qDelay_.end() - kHilbertDelay, qDelay_.end(), qDelay_.begin());
}

}  // namespace zr
