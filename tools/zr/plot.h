// Spectrum plots as PNG images, drawn by hand: trace, grid, axes labelled
// in Hz units and dBm, a title line and numbered markers at the peaks.
#pragma once

#include <cstdint>
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

struct PlotInput {
    const float* levels = nullptr;  // dBm per bin
    int count = 0;
    double startHz = 0, binHz = 0;
    std::string title;     // large, first line
    std::string subtitle;  // the settings, second line
    std::vector<Peak> peaks;  // strongest first; the first gets a text label
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
bool writePng(const std::string& path, const Image& image, std::string* error);

}  // namespace zrtool
