// The signal scene and the analogue chain: tones and noise at the RF input,
// the RF gain model, the IF channels and the loaded correction filter, the
// ADC, and the instrument FFT that sees the same chain.
#include "instrument.h"

#include "fft_sweep.h"
#include "instrument_detail.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <limits>
#include <string>

namespace zr::sim {

using namespace detail;

// ---------------------------------------------------------------- signal

double Instrument::pathGainDb(double freqHz, double attenDb, double celsius) {
    return model::rfGainDb(freqHz, attenDb, celsius);
}

double Instrument::pathGainDb(double freqHz) const {
    std::lock_guard lock(mu_);
    return pathGainDb(freqHz, attenDb_, celsius_);
}

// ------------------------------------------------------------ IF chain
//
// After the ADC and the down-converter the I and Q paths are two real
// channels with their own IF response (shape, amplitude and phase
// imbalance) and then the FPGA's correction filter, one real FIR per path:
// taps a for I, b for Q. A complex tone at v through real channels T_I and
// T_Q comes out as (T_I + T_Q) / 2 at v and conj(T_I - T_Q) / 2 at -v.

namespace {
using cd = std::complex<double>;

// Signed 18-bit centre values, 16-bit outer ones, as the filter load packs them.
void decodeIFTaps(const std::vector<uint32_t>& regs, double a[63], double b[63]) {
    const uint32_t wide = regs[0x3D];
    for (int half = 0; half < 2; ++half) {
        double* out = half == 0 ? a : b;
        for (int p = 0; p < 63; ++p) {
            const int lane = p + 1;
            const uint32_t reg = regs[0x40 + half * 32 + lane / 2];
            int32_t v = static_cast<int32_t>((lane & 1) ? reg >> 16 : reg & 0xFFFF);
            if (p >= 30 && p <= 32) {
                const int shift = (half == 0 ? 6 : 0) + (p - 30) * 2;
                v |= static_cast<int32_t>((wide >> shift) & 3) << 16;
                if (v & 0x20000) v -= 0x40000;
            } else if (v & 0x8000) {
                v -= 0x10000;
            }
            out[p] = v / 131071.0;
        }
    }
}

cd firResponse(const double* taps, double v) {
    cd acc = 0.0;
    for (int n = 0; n < 63; ++n) acc += taps[n] * std::polar(1.0, -kTwoPi * v * n);
    return acc;
}
}  // namespace

// The two real channels at a stream offset of v cycles per sample.
void Instrument::ifChannels(double v, double slicePos, cd& ti, cd& tq) const {
    const double w = std::fabs(v);
    const double s = std::pow(10.0, model::ifShapeDb(w, slicePos, celsius_) / 20.0);
    const double r = std::sqrt(model::ifRatio(w, slicePos, celsius_));
    const double half = (v < 0 ? -0.5 : 0.5) * model::ifPhase(w, slicePos, celsius_);
    ti = std::polar(s * r, half);
    tq = std::polar(s / r, -half);
    if (!ifFilterLoaded_) return;
    ti *= firResponse(ifTapsA_.data(), v);
    tq *= firResponse(ifTapsB_.data(), v);
}

// The FFT sees the same chain as the stream (RF path, gain code, the IF
// channels and the correction filter the host loaded), with the filter
// running at the FFT's 250 MHz clock. Its band follows the tune, unless a
// test fixed the centre.
double Instrument::fftBandCentreLocked(const RfPath& path) const {
    return centerOverride_ ? centerHz_ : FftSweep::bandCentreHz(path.direct, (regs_[0x3C] & 8) != 0, path.firstLoHz);
}

double Instrument::fftChainGainLocked(const RfPath& path, double centre, double f) const {
    double db = pathGainDb(f, attenDb_, celsius_);
    if (centerOverride_) return db;
    if (path.known) db += model::gainCodeDb(path.gainCode);
    if (path.direct) db -= model::lowFreqLossDb(f);
    cd ti, tq;
    ifChannels((f - centre) / 250e6, centre / 39.0625e6, ti, tq);
    return db + 20.0 * std::log10(std::abs(0.5 * (ti + tq)));
}

void Instrument::captureFftLocked() {
    const RfPath path = rf_.path(celsius_);
    const double centre = fftBandCentreLocked(path);
    if (ifFilterLoaded_) decodeIFTaps(regs_, ifTapsA_.data(), ifTapsB_.data());
    bool clipped = false;
    fft_->capture(regs_.data(),
                  FftSweep::Scene{tones_, noiseDbmPerHz_, centre, !centerOverride_ && path.direct,
                                  [&](double f) { return fftChainGainLocked(path, centre, f); }},
                  clipped);
    clippedSinceStatus_ |= clipped;
}

void Instrument::rebuildScene() {
    std::vector<ToneState> next;
    next.reserve(2 * tones_.size());
    const RfPath path = rf_.path(celsius_);
    const double centre = centerLocked();
    const double slicePos = centre / 39.0625e6;
    if (ifFilterLoaded_) decodeIFTaps(regs_, ifTapsA_.data(), ifTapsB_.data());
    auto addTone = [&](double offset, cd amplitude) {
        // The instrument's anti-alias filtering keeps only the inner 90 %.
        if (std::fabs(offset) > 0.45 || std::abs(amplitude) < 1e-3) return;
        ToneState s;
        s.offsetCycles = offset;
        s.phase = std::arg(amplitude) / kTwoPi;
        s.amplitude = static_cast<float>(std::abs(amplitude));
        s.stepRe.resize(kSamplesPerBlock);
        s.stepIm.resize(kSamplesPerBlock);
        for (int n = 0; n < kSamplesPerBlock; ++n) {
            const double ph = kTwoPi * std::fmod(offset * n, 1.0);
            s.stepRe[n] = static_cast<float>(std::cos(ph));
            s.stepIm[n] = static_cast<float>(std::sin(ph));
        }
        next.push_back(std::move(s));
    };
    for (const Tone& t : tones_) {
        double hz = t.freqHz - centerHz_;
        if (!centerOverride_ && !streamHz(path, t.freqHz, hz)) continue;
        double db = t.powerDbm + pathGainDb(t.freqHz, attenDb_, celsius_);
        if (centerOverride_) {  // the test override: an ideal IF
            addTone(hz / sampleRate_, std::polar(32767.0 * std::pow(10.0, db / 20.0), t.phaseRad));
            continue;
        }
        if (path.known) db += model::gainCodeDb(path.gainCode);
        if (path.direct) db -= model::lowFreqLossDb(t.freqHz);
        const double a = 32767.0 * std::pow(10.0, db / 20.0);
        cd ti, tq;
        ifChannels(hz / 50e6, slicePos, ti, tq);
        const cd phase = std::polar(1.0, t.phaseRad);
        addTone(hz / sampleRate_, a * 0.5 * (ti + tq) * phase);
        addTone(-hz / sampleRate_, a * 0.5 * std::conj((ti - tq) * phase));
    }
    // Keep phases of tones that survive a rebuild so a temperature change
    // does not jump the signal.
    for (size_t i = 0; i < next.size() && i < toneStates_.size(); ++i)
        if (next[i].offsetCycles == toneStates_[i].offsetCycles) next[i].phase = toneStates_[i].phase;
    toneStates_ = std::move(next);
    // The scene's noise through the path, plus the converter's own floor,
    // which no attenuator setting removes.
    const double bandDb = 10.0 * std::log10(sampleRate_);
    double noiseDbfs = noiseDbmPerHz_ + bandDb + pathGainDb(centre, attenDb_, celsius_);
    if (!centerOverride_) {
        if (path.known) noiseDbfs += model::gainCodeDb(path.gainCode);
        cd ti, tq;
        ifChannels(1.0 / 64.0, slicePos, ti, tq);
        noiseDbfs += 10.0 * std::log10((std::norm(ti) + std::norm(tq)) / 2.0);
    }
    const double power = std::pow(10.0, noiseDbfs / 10.0) + std::pow(10.0, (model::kAdcNoiseDbfsPerHz + bandDb) / 10.0);
    noiseSigma_ = static_cast<float>(32767.0 * std::sqrt(power / 2.0));
}

void Instrument::generateLocked(int16_t* iq) {
    float* re = scratchRe_.data();
    float* im = scratchIm_.data();
    // A random window of the noise table, contiguous so the loops vectorise.
    const size_t start = static_cast<size_t>(xorshift(rng_) % (kNoiseTable - kSamplesPerBlock));
    const float sigma = noiseSigma_;
    const float* nr = noiseRe_.data() + start;
    const float* ni = noiseIm_.data() + start;
    for (int n = 0; n < kSamplesPerBlock; ++n) {
        re[n] = nr[n] * sigma;
        im[n] = ni[n] * sigma;
    }
    for (ToneState& t : toneStates_) {
        const float cr = static_cast<float>(t.amplitude * std::cos(kTwoPi * t.phase));
        const float ci = static_cast<float>(t.amplitude * std::sin(kTwoPi * t.phase));
        const float* sr = t.stepRe.data();
        const float* si = t.stepIm.data();
        for (int n = 0; n < kSamplesPerBlock; ++n) {
            re[n] += cr * sr[n] - ci * si[n];
            im[n] += cr * si[n] + ci * sr[n];
        }
        t.phase = std::fmod(t.phase + t.offsetCycles * kSamplesPerBlock, 1.0);
    }
    float peak = 0.0f;
    for (int n = 0; n < kSamplesPerBlock; ++n) {
        const float a = re[n], b = im[n];
        const float ma = a < 0.0f ? -a : a;
        const float mb = b < 0.0f ? -b : b;
        peak = peak > ma ? peak : ma;
        peak = peak > mb ? peak : mb;
        const float ca = a > 32767.0f ? 32767.0f : (a < -32768.0f ? -32768.0f : a);
        const float cb = b > 32767.0f ? 32767.0f : (b < -32768.0f ? -32768.0f : b);
        // Round half away from zero. (GCC does not vectorise this loop yet;
        // it is the largest cost of a block.)
        iq[2 * n] = static_cast<int16_t>(static_cast<int32_t>(ca + (ca < 0.0f ? -0.5f : 0.5f)));
        iq[2 * n + 1] = static_cast<int16_t>(static_cast<int32_t>(cb + (cb < 0.0f ? -0.5f : 0.5f)));
    }
    clippedSinceStatus_ |= peak > 32767.5f;
}

void Instrument::generateBlock(int16_t* iq) {
    std::lock_guard lock(mu_);
    generateLocked(iq);
}

}  // namespace zr::sim
