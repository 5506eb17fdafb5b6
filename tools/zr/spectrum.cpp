#include "spectrum.h"

#include <algorithm>
#include <cmath>

namespace zrtool {

void fft(std::vector<std::complex<double>>& x) {
    const size_t n = x.size();
    for (size_t i = 1, j = 0; i < n; ++i) {
        size_t bit = n >> 1;
        for (; j & bit; bit >>= 1) j ^= bit;
        j ^= bit;
        if (i < j) std::swap(x[i], x[j]);
    }
    for (size_t len = 2; len <= n; len <<= 1) {
        const std::complex<double> step = std::polar(1.0, -2.0 * M_PI / double(len));
        for (size_t i = 0; i < n; i += len) {
            std::complex<double> w = 1.0;
            for (size_t k = 0; k < len / 2; ++k) {
                const std::complex<double> a = x[i + k], b = x[i + k + len / 2] * w;
                x[i + k] = a + b;
                x[i + k + len / 2] = a - b;
                w *= step;
            }
        }
    }
}

SpectrumAverager::SpectrumAverager(int size) : n_(size), window_(size_t(size)), power_(size_t(size)), work_(size_t(size)) {
    // Flat-top: a tone's level holds wherever it falls between bins.
    const double a[5] = {0.21557895, 0.41663158, 0.277263158, 0.083578947, 0.006947368};
    double sum = 0.0;
    for (int i = 0; i < n_; ++i) {
        const double p = 2.0 * M_PI * i / (n_ - 1);
        window_[size_t(i)] = a[0] - a[1] * std::cos(p) + a[2] * std::cos(2 * p) - a[3] * std::cos(3 * p) + a[4] * std::cos(4 * p);
        sum += window_[size_t(i)];
    }
    for (double& w : window_) w /= sum;  // unit gain for a tone
}

void SpectrumAverager::add(const std::complex<float>* x) {
    for (int i = 0; i < n_; ++i) work_[size_t(i)] = std::complex<double>(x[i]) * window_[size_t(i)];
    fft(work_);
    for (int i = 0; i < n_; ++i) power_[size_t((i + n_ / 2) % n_)] += std::norm(work_[size_t(i)]);
    ++count_;
}

std::vector<float> SpectrumAverager::dbm() const {
    std::vector<float> out(static_cast<size_t>(n_));
    for (int i = 0; i < n_; ++i)
        out[size_t(i)] = float(10.0 * std::log10(std::max(power_[size_t(i)] / std::max(count_, 1), 1e-30)));
    return out;
}

}  // namespace zrtool
