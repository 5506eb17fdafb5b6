#pragma once
// The instrument's own FFT of a sweep step. A 0x15 word captures fftSize
// samples of the 250 MHz IF at the current tune, windows them with the
// table the host loaded, transforms them in the FPGA's fixed scaling and
// keeps the log spectrum. 0x25ii0000 words fetch 8192-byte blocks of it.
//
// Results wait in a one-deep queue behind the one being read: a step's
// result is fetched while the next step is already captured, and a last
// fetch with no capture behind it still finds the last step.
#include <cstdint>
#include <functional>
#include <vector>

#include "instrument.h"

namespace zr::sim {

class FftSweep {
public:
    static constexpr double kRate = 250e6;
    static constexpr int kMaxSize = 16384;
    static constexpr int kValuesPerBlock = 4096;  // i16 in 0.01 dB

    FftSweep();

    // What a capture sees: the scene, the tune, and the path gain in dB
    // (full scale per dBm) of a signal at an RF frequency.
    struct Scene {
        const std::vector<Tone>& tones;
        double noiseDbmPerHz;
        double centreHz;  // RF at the centre of the IF band (bandCentreHz)
        bool direct;      // the direct path, whose low-pass ends at 160 MHz
        std::function<double(double)> pathGainDb;
    };

    // A 0x15 word: regs is the register file (FFT size, arming, window).
    // Returns false when the FFT sweep is not armed or its size is invalid;
    // nothing is captured then. `clipped`: the converter clipped a sample.
    bool capture(const uint32_t* regs, const Scene& scene, bool& clipped);
    // A 0x25ii0000 word: the result it reads, as a handle for render().
    uint32_t fetch(uint32_t block);
    // Fills one reply of a fetch; results that no longer exist read zero.
    void render(uint32_t handle, uint32_t block, uint8_t* dst, uint32_t bytes) const;

    // Where the band of a tune lies: on the direct path it is centred on 0
    // or, with the half-clock bit of the IF control, on 125 MHz; behind the
    // LO it is the 250 MHz below the LO.
    static double bandCentreHz(bool direct, bool halfClock, double loHz);

private:
    struct Result {
        uint32_t id = 0;
        int size = 0;
        std::vector<int16_t> values;
    };
    Result& slotFor(uint32_t id) { return ring_[id % ring_.size()]; }

    void transform(int n);  // in place on re_/im_, forward, natural order

    std::vector<Result> ring_;  // sized to outlive every reply in the FIFO
    uint32_t nextId_ = 1;
    uint32_t reading_ = 0;      // result the fetches read, 0 for none
    bool readingSeen_ = false;  // a fetch sequence has started on it
    uint32_t queued_ = 0;       // the one result waiting behind it
    std::vector<double> re_, im_, window_;
    std::vector<double> cos_, sin_;  // e^(-j 2 pi k / kMaxSize), k < kMaxSize / 2
    std::vector<float> noiseRe_, noiseIm_;
    uint64_t rng_ = 0x853C49E6748FEA9Bull;
};

}  // namespace zr::sim
