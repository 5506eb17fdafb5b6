#include "audio/hilbert.h"

namespace zr {

void hilbertAccumulateWide(const double* taps, int tapCount, const double* in, double* y, int n) {
    hilbertAccumulateLoop(taps, tapCount, in, y, n);
}

}  // namespace zr
