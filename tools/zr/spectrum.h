// The averaged spectrum of I/Q samples for a plot: flat-top windowed FFTs
// whose power is averaged bin by bin, lowest frequency first, so that a
// tone reads its power in dBm.
#pragma once

#include <complex>
#include <vector>

namespace zrtool {

class SpectrumAverager {
public:
    explicit SpectrumAverager(int size);  // a power of two
    int size() const { return n_; }
    // One segment of size() samples.
    void add(const std::complex<float>* x);
    int segments() const { return count_; }
    // dBm per bin, bin 0 at -rate/2.
    std::vector<float> dbm() const;

private:
    int n_;
    int count_ = 0;
    std::vector<double> window_;
    std::vector<double> power_;
    std::vector<std::complex<double>> work_;
};

// In-place radix-2 FFT of a power-of-two length (forward, unscaled).
void fft(std::vector<std::complex<double>>& x);

}  // namespace zrtool
