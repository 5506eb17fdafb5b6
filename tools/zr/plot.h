// Spectrum plots as PNG images, drawn by hand: trace, grid, axes labelled
// in Hz units and dBm, a title line and numbered markers at the peaks.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "peaks.h"

namespace zrtool {

struct Rgb {
    uint8_t r, g, b;
    bool operator==(const Rgb&) const = default;
};

class Image {
public:
    Image(int width, int height, Rgb background);
    int width() const { return w_; }
    int height() const { return h_; }
    Rgb at(int x, int y) const;
    void set(int x, int y, Rgb c);  // outside the image: ignored
    void fillRect(int x0, int y0, int x1, int y1, Rgb c);  // inclusive corners
    void line(int x0, int y0, int x1, int y1, Rgb c);
    // Top-left corner at (x, y); every glyph pixel becomes scale x scale.
    void text(int x, int y, const std::string& s, Rgb c, int scale = 1);
    const std::vector<uint8_t>& rgb() const { return px_; }

private:
    int w_, h_;
    std::vector<uint8_t> px_;
};

struct Tick {
    double value;
    std::string label;
};

// Round values (1, 2 or 5 times a power of ten apart) inside [lo, hi], at
// most about maxTicks of them.
std::vector<double> niceTicks(double lo, double hi, int maxTicks);
// Frequency ticks labelled in one unit, chosen from the range; `unitName`
// gets "Hz", "kHz", "MHz" or "GHz".
std::vector<Tick> frequencyTicks(double lo, double hi, int maxTicks, std::string* unitName);

// The frequency axis of a plot: absolute frequencies in one unit, or, when
// the span is under 1 % of the frequency, offsets from a round centre so
// that a narrow span shows its kHz and Hz ("+20", "-40" under "kHz from
// 2.93 GHz").
struct FrequencyAxis {
    std::vector<Tick> ticks;
    std::string title;
};
FrequencyAxis frequencyAxis(double lo, double hi, int maxTicks);

struct PlotInput {
    const float* levels = nullptr;  // dBm per bin
    int count = 0;
    double startHz = 0, binHz = 0;
    std::string title;     // large, first line
    std::string subtitle;  // the settings, second line
    std::vector<Peak> peaks;  // strongest first; the first gets a text label
    // The top of the level axis, 10 dB a division down from it, as an
    // analyzer's screen; without it the axis fits the data.
    std::optional<double> refLevel;
};

// Where the data land in the image; tests and callers map values to pixels.
struct PlotGeometry {
    int left, top, right, bottom;  // plot area, inclusive
    double fLo, fHi, yLo, yHi;     // Hz and dBm at its edges
    int xOf(double hz) const;
    int yOf(double dbm) const;
};

constexpr Rgb kTraceColor{20, 90, 200};
constexpr Rgb kMarkerColor{210, 30, 30};

Image renderPlot(const PlotInput& in, PlotGeometry* geometry = nullptr);

// Repeated sweeps as an image: one row per sweep, the first on top, each
// pixel column the highest level of the bins under it, coloured by level
// with a scale in dBm beside it.
struct WaterfallInput {
    std::vector<std::vector<float>> rows;  // dBm per column, all the same width
    double startHz = 0, stopHz = 0;
    double seconds = 0;                    // from the first row to the last
    std::string title, subtitle;
    double lowDbm = -120, highDbm = 0;     // the colour scale's ends
};
// Pixel columns of a waterfall for one trace.
constexpr int kWaterfallColumns = 880;
std::vector<float> waterfallRow(const float* levels, int count);
// The colour of a level between the scale's ends (0 .. 1).
Rgb waterfallColour(double fraction);
Image renderWaterfall(const WaterfallInput& in);
bool writePng(const std::string& path, const Image& image, std::string* error);

}  // namespace zrtool
