#include "fft_sweep.h"

#include "rf_model.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace zr::sim {

namespace {
constexpr double kTwoPi = 6.283185307179586;
constexpr uint32_t kRegFftSize = 0x0030;
constexpr uint32_t kRegDataPath = 0x0034;
constexpr uint32_t kFftSweepArmed = 0x00040005;
constexpr uint32_t kRegWindow = 0x2000;
constexpr double kWindowOne = 131072.0;  // window values are 15.17 fixed point
// The FPGA scales every transform as if it were 2048 points long, so a
// longer FFT gains 6 dB per doubling and a shorter one loses it.
constexpr double kFixedScale = 1.0 / 2048.0;
constexpr size_t kNoiseTable = 1 << 16;
constexpr size_t kResultSlots = Instrument::kFifoReplies + 4;

uint64_t xorshift(uint64_t& s) {
    s ^= s << 13;
    s ^= s >> 7;
    s ^= s << 17;
    return s;
}
double uniform(uint64_t& s) { return static_cast<double>(xorshift(s) >> 11) * 0x1.0p-53; }
}  // namespace

FftSweep::FftSweep() : ring_(kResultSlots) {
    noiseRe_.resize(kNoiseTable);
    noiseIm_.resize(kNoiseTable);
    for (size_t i = 0; i < kNoiseTable; ++i) {
        const double r = std::sqrt(-2.0 * std::log(uniform(rng_) + 0x1.0p-53));
        const double a = kTwoPi * uniform(rng_);
        noiseRe_[i] = static_cast<float>(r * std::cos(a));
        noiseIm_[i] = static_cast<float>(r * std::sin(a));
    }
    re_.resize(kMaxSize);
    im_.resize(kMaxSize);
    window_.resize(kMaxSize);
    cos_.resize(kMaxSize / 2);
    sin_.resize(kMaxSize / 2);
    for (int k = 0; k < kMaxSize / 2; ++k) {
        cos_[k] = std::cos(kTwoPi * k / kMaxSize);
        sin_[k] = -std::sin(kTwoPi * k / kMaxSize);
    }
}

double FftSweep::bandCentreHz(bool direct, bool halfClock, double loHz) {
    if (direct) return halfClock ? 125e6 : 0.0;
    return loHz - 125e6;
}

bool FftSweep::capture(const uint32_t* regs, const Scene& scene, bool& clipped) {
    const int n = static_cast<int>(regs[kRegFftSize]);
    if (regs[kRegDataPath] != kFftSweepArmed || n < 32 || n > kMaxSize || (n & (n - 1)) != 0) return false;

    // The table holds the first half; the window is symmetric.
    for (int i = 0; i < n / 2; ++i) {
        const double w = static_cast<int32_t>(regs[kRegWindow + i]) / kWindowOne;
        window_[i] = w;
        window_[n - 1 - i] = w;
    }

    // Noise over the whole IF band (the scene's through the path, and the
    // converter's own), then the tones that fall into it.
    const double centre = scene.centreHz;
    const double bandDb = 10.0 * std::log10(kRate);
    const double noisePower = std::pow(10.0, (scene.noiseDbmPerHz + bandDb + scene.pathGainDb(centre)) / 10.0) +
                              std::pow(10.0, (model::kAdcNoiseDbfsPerHz + bandDb) / 10.0);
    const double sigma = std::sqrt(noisePower / 2.0);
    const size_t start = xorshift(rng_) % (kNoiseTable - kMaxSize);
    for (int i = 0; i < n; ++i) {
        re_[i] = sigma * noiseRe_[start + i];
        im_[i] = sigma * noiseIm_[start + i];
    }
    for (const Tone& t : scene.tones) {
        const double offset = (t.freqHz - centre) / kRate;
        if (std::fabs(offset) >= 0.5 || (scene.direct && (t.freqHz < 0.0 || t.freqHz > 160e6))) continue;
        const double amplitude = std::pow(10.0, (t.powerDbm + scene.pathGainDb(t.freqHz)) / 20.0);
        // A rotating phasor, renormalised now and then against drift.
        const double step = kTwoPi * offset;
        const double sr = std::cos(step), si = std::sin(step);
        const double phase = kTwoPi * uniform(rng_);
        double pr = amplitude * std::cos(phase), pi = amplitude * std::sin(phase);
        for (int i = 0; i < n; ++i) {
            re_[i] += pr;
            im_[i] += pi;
            const double t = pr * sr - pi * si;
            pi = pr * si + pi * sr;
            pr = t;
            if ((i & 1023) == 1023) {
                const double g = amplitude / std::hypot(pr, pi);
                pr *= g;
                pi *= g;
            }
        }
    }
    // The converter clips each of I and Q at its full scale, as the stream's does.
    clipped = false;
    for (int i = 0; i < n; ++i) {
        const double fs = model::kAdcFullScale;
        if (std::fabs(re_[i]) > fs || std::fabs(im_[i]) > fs) {
            clipped = true;
            re_[i] = std::clamp(re_[i], -fs, fs);
            im_[i] = std::clamp(im_[i], -fs, fs);
        }
        re_[i] *= window_[i] * kFixedScale;
        im_[i] *= window_[i] * kFixedScale;
    }
    transform(n);

    const uint32_t id = nextId_++;
    Result& r = slotFor(id);
    r.id = id;
    r.size = n;
    r.values.resize(static_cast<size_t>(n));
    for (int k = 0; k < n; ++k) {
        // A window table of absurd values (the host writes it) can overflow
        // the arithmetic; the result register then saturates.
        const double db = 10.0 * std::log10(re_[k] * re_[k] + im_[k] * im_[k] + 1e-300);
        const double code = std::floor(db * 100.0 + 0.5);
        r.values[k] = static_cast<int16_t>(std::isnan(code) ? 32767.0 : std::clamp(code, -32768.0, 32767.0));
    }
    if (queued_ != 0) {
        reading_ = queued_;
        readingSeen_ = false;
    }
    queued_ = id;
    return true;
}

uint32_t FftSweep::fetch(uint32_t block) {
    // Block 0 opens a fetch; once the result in front has been read, the
    // one queued behind it moves up.
    if (block == 0) {
        if (queued_ != 0 && (reading_ == 0 || readingSeen_)) {
            reading_ = queued_;
            queued_ = 0;
        }
        readingSeen_ = true;
    }
    return reading_;
}

void FftSweep::render(uint32_t handle, uint32_t block, uint8_t* dst, uint32_t bytes) const {
    std::memset(dst, 0, bytes);
    const Result& r = ring_[handle % ring_.size()];
    if (handle == 0 || r.id != handle) return;
    const int first = static_cast<int>(block) * kValuesPerBlock;
    const int count = std::min<int>({r.size - first, kValuesPerBlock, static_cast<int>(bytes / 2)});
    if (count > 0) std::memcpy(dst, r.values.data() + first, static_cast<size_t>(count) * 2);
}

void FftSweep::transform(int n) {
    for (int i = 1, j = 0; i < n; ++i) {
        int bit = n >> 1;
        for (; j & bit; bit >>= 1) j ^= bit;
        j ^= bit;
        if (i < j) {
            std::swap(re_[i], re_[j]);
            std::swap(im_[i], im_[j]);
        }
    }
    for (int len = 2; len <= n; len <<= 1) {
        const int stride = kMaxSize / len;
        for (int k = 0; k < len / 2; ++k) {
            const double wr = cos_[k * stride], wi = sin_[k * stride];
            for (int i = k; i < n; i += len) {
                const int j = i + len / 2;
                const double xr = re_[j] * wr - im_[j] * wi;
                const double xi = re_[j] * wi + im_[j] * wr;
                re_[j] = re_[i] - xr;
                im_[j] = im_[i] - xi;
                re_[i] += xr;
                im_[i] += xi;
            }
        }
    }
}

}  // namespace zr::sim
