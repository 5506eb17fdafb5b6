#pragma once
// Double to int without undefined behaviour. A plan derives counts, sizes
// and bin indices from settings in double; a value that is not finite or
// does not fit an int32 is refused here, once, instead of saturating (or
// worse) into the arithmetic that sizes buffers and copies.
#include <cmath>
#include <cstdint>
#include <stdexcept>

namespace zr {

// Thrown by the checked conversions; the frame answers it with
// zrInvalidParameterErr, since only settings can lead a plan there.
struct OutOfRange : std::range_error {
    using std::range_error::range_error;
};

// Towards zero.
inline int32_t truncChecked(double x) {
    if (!(x > -2147483649.0 && x < 2147483648.0)) throw OutOfRange("value outside int32");
    return static_cast<int32_t>(x);
}

// floor(x + 0.5).
inline int32_t roundChecked(double x) { return truncChecked(std::floor(x + 0.5)); }

}  // namespace zr
