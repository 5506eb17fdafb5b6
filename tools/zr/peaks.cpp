#include "peaks.h"

#include <algorithm>
#include <cmath>

namespace zrtool {

std::vector<Peak> findPeaks(const float* levels, int count, double startHz, double binHz,
                            const PeakSearch& search, float* threshold) {
    std::vector<Peak> peaks;
    if (count <= 0 || search.maxPeaks <= 0) return peaks;
    std::vector<float> sorted(levels, levels + count);
    std::nth_element(sorted.begin(), sorted.begin() + count / 2, sorted.end());
    const float median = sorted[count / 2];
    std::nth_element(sorted.begin(), sorted.begin() + count / 10, sorted.begin() + count / 2);
    const float spread = median - sorted[count / 10];
    const float floor = median + std::max(search.minProminence, search.spreadFactor * spread);
    if (threshold) *threshold = floor;
    const int sep = std::max(1, search.separationBins);
    for (int i = 0; i < count; ++i) {
        const float v = levels[i];
        if (!(v >= floor)) continue;
        bool isMax = true;
        for (int j = std::max(0, i - sep); j <= std::min(count - 1, i + sep) && isMax; ++j)
            isMax = j < i ? levels[j] < v : (j == i || levels[j] <= v);
        if (isMax) peaks.push_back({i, startHz + i * binHz, v});
    }
    std::stable_sort(peaks.begin(), peaks.end(), [](const Peak& a, const Peak& b) { return a.level > b.level; });
    if (static_cast<int>(peaks.size()) > search.maxPeaks) peaks.resize(search.maxPeaks);
    return peaks;
}

int separationFor(double rbwHz, double binHz) {
    if (!(binHz > 0) || !(rbwHz > 0)) return 3;
    return std::max(3, static_cast<int>(std::ceil(2.0 * rbwHz / binHz)));
}

}  // namespace zrtool
