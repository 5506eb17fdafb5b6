// Reading and writing frequencies and levels the way people type them:
// "1.5G", "100M", "10k", "2.4e9", "915MHz", "-30", "-30dBm".
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zrtool {

// A finite number with an optional k/M/G multiplier and an optional "Hz".
// Negative values are refused: no frequency the tool takes can be below 0.
std::optional<double> parseFrequency(std::string_view text);

// A finite number of dBm, with or without the "dBm" suffix.
std::optional<double> parseLevel(std::string_view text);

// A whole number in [lo, hi].
std::optional<long> parseInteger(std::string_view text, long lo, long hi);

// "2.4 GHz", "915 MHz", "12.5 kHz", "800 Hz": the largest unit that keeps
// the value at or above 1, with up to `decimals` places and no trailing
// zeros.
std::string formatFrequency(double hz, int decimals = 6);

// Fixed places, as many as tell apart values `resolutionHz` apart, so that
// a column of them lines up.
std::string formatFrequencyTo(double hz, double resolutionHz);

// Unit for a range of frequencies, so that all labels of an axis share it.
struct FrequencyUnit {
    double scale;      // Hz per unit
    const char* name;  // "Hz", "kHz", "MHz", "GHz"
};
FrequencyUnit unitFor(double hz);

// Fixed-point text with at most `decimals` places and no trailing zeros.
std::string trimmedNumber(double value, int decimals);

// A time in ns since 1970 as ISO 8601 UTC: "2026-11-24T08:15:02.123456789Z".
std::string isoUtc(int64_t nsSinceEpoch);

}  // namespace zrtool
