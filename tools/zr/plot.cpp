#include "plot.h"

#include <png.h>

#include <algorithm>
#include <cmath>
#include <csetjmp>
#include <cstdio>

#include "font.h"
#include "units.h"

namespace zrtool {
namespace {

constexpr Rgb kWhite{255, 255, 255};
constexpr Rgb kInk{30, 30, 30};
constexpr Rgb kGrid{222, 222, 222};
constexpr int kWidth = 1000, kHeight = 560;
constexpr int kLeft = 64, kRight = kWidth - 24, kTop = 50, kBottom = kHeight - 52;

double niceStep(double range, int maxTicks) {
    const double raw = range / std::max(1, maxTicks);
    const double mag = std::pow(10.0, std::floor(std::log10(raw)));
    for (double m : {1.0, 2.0, 5.0, 10.0})
        if (m * mag >= raw) return m * mag;
    return 10.0 * mag;
}

int decimalsFor(double step) { return std::max(0, static_cast<int>(std::ceil(-std::log10(step) - 1e-9))); }

}  // namespace

Image::Image(int width, int height, Rgb background)
    : w_(width), h_(height), px_(static_cast<size_t>(width) * height * 3) {
    fillRect(0, 0, width - 1, height - 1, background);
}

Rgb Image::at(int x, int y) const {
    const size_t i = (static_cast<size_t>(y) * w_ + x) * 3;
    return {px_[i], px_[i + 1], px_[i + 2]};
}

void Image::set(int x, int y, Rgb c) {
    if (x < 0 || y < 0 || x >= w_ || y >= h_) return;
    const size_t i = (static_cast<size_t>(y) * w_ + x) * 3;
    px_[i] = c.r;
    px_[i + 1] = c.g;
    px_[i + 2] = c.b;
}

void Image::fillRect(int x0, int y0, int x1, int y1, Rgb c) {
    for (int y = std::min(y0, y1); y <= std::max(y0, y1); ++y)
        for (int x = std::min(x0, x1); x <= std::max(x0, x1); ++x) set(x, y, c);
}

void Image::line(int x0, int y0, int x1, int y1, Rgb c) {
    const int dx = std::abs(x1 - x0), dy = -std::abs(y1 - y0);
    const int sx = x0 < x1 ? 1 : -1, sy = y0 < y1 ? 1 : -1;
    int err = dx + dy;
    for (;;) {
        set(x0, y0, c);
        if (x0 == x1 && y0 == y1) return;
        const int e2 = 2 * err;
        if (e2 >= dy) { err += dy; x0 += sx; }
        if (e2 <= dx) { err += dx; y0 += sy; }
    }
}

void Image::text(int x, int y, const std::string& s, Rgb c, int scale) {
    for (char ch : s) {
        const auto rows = glyphRows(ch);
        for (int r = 0; r < kGlyphHeight; ++r)
            for (int col = 0; col < kGlyphWidth; ++col)
                if (rows[r] & (1u << (kGlyphWidth - 1 - col)))
                    fillRect(x + col * scale, y + r * scale, x + (col + 1) * scale - 1, y + (r + 1) * scale - 1, c);
        x += kCellWidth * scale;
    }
}

std::vector<double> niceTicks(double lo, double hi, int maxTicks) {
    std::vector<double> ticks;
    if (!(hi > lo)) return ticks;
    const double step = niceStep(hi - lo, maxTicks);
    // Multiples of the step, so that labels are round whatever the edges.
    for (double k = std::ceil(lo / step - 1e-9); k * step <= hi + step * 1e-9; k += 1.0)
        ticks.push_back(k * step == 0 ? 0.0 : k * step);
    return ticks;
}

std::vector<Tick> frequencyTicks(double lo, double hi, int maxTicks, std::string* unitName) {
    std::vector<Tick> ticks;
    const FrequencyUnit unit = unitFor(std::max(std::fabs(lo), std::fabs(hi)));
    *unitName = unit.name;
    const std::vector<double> values = niceTicks(lo, hi, maxTicks);
    if (values.size() < 2) {
        for (double v : values) ticks.push_back({v, trimmedNumber(v / unit.scale, 6)});
        return ticks;
    }
    const int decimals = decimalsFor((values[1] - values[0]) / unit.scale);
    for (double v : values) ticks.push_back({v, trimmedNumber(v / unit.scale, decimals)});
    return ticks;
}

FrequencyAxis frequencyAxis(double lo, double hi, int maxTicks) {
    FrequencyAxis axis;
    const double top = std::max(std::fabs(lo), std::fabs(hi));
    if (!(hi > lo) || hi - lo >= 0.01 * top) {
        std::string unit;
        axis.ticks = frequencyTicks(lo, hi, maxTicks, &unit);
        axis.title = "Frequency (" + unit + ")";
        return axis;
    }
    // A narrow span far from 0 Hz: offsets from a round centre.
    const double step = niceStep(hi - lo, maxTicks);
    const double centre = std::round((lo + hi) / 2.0 / step) * step;
    std::string unit;
    const std::vector<Tick> offsets = frequencyTicks(lo - centre, hi - centre, maxTicks, &unit);
    for (const Tick& t : offsets) {
        const bool zero = std::fabs(t.value) < step * 1e-6;
        axis.ticks.push_back({centre + t.value, zero ? "0" : (t.value > 0 ? "+" : "") + t.label});
    }
    axis.title = unit + " from " + formatFrequencyTo(centre, step / 10.0);
    return axis;
}

int PlotGeometry::xOf(double hz) const {
    if (fHi <= fLo) return (left + right) / 2;
    return left + static_cast<int>(std::lround((hz - fLo) / (fHi - fLo) * (right - left)));
}

int PlotGeometry::yOf(double dbm) const {
    const double t = std::clamp((dbm - yLo) / (yHi - yLo), 0.0, 1.0);
    return bottom - static_cast<int>(std::lround(t * (bottom - top)));
}

Image renderPlot(const PlotInput& in, PlotGeometry* geometryOut) {
    Image img(kWidth, kHeight, kWhite);
    PlotGeometry g{kLeft, kTop, kRight, kBottom, in.startHz, in.startHz + (in.count - 1) * in.binHz, -100, 0};

    // Level axis: the data with some room, on round 10 dB-ish steps.
    float lo = 0, hi = 0;
    bool any = false;
    for (int i = 0; i < in.count; ++i) {
        if (!std::isfinite(in.levels[i])) continue;
        lo = any ? std::min(lo, in.levels[i]) : in.levels[i];
        hi = any ? std::max(hi, in.levels[i]) : in.levels[i];
        any = true;
    }
    if (in.refLevel) {
        g.yHi = *in.refLevel;
        g.yLo = *in.refLevel - 100.0;
    } else if (any) {
        const double step = niceStep(std::max(10.0, hi - lo + 10.0), 8);
        g.yLo = std::floor((lo - 2.0) / step) * step;
        g.yHi = std::ceil((hi + 8.0) / step) * step;  // room for the peak label
    }

    // Grid and tick labels.
    const FrequencyAxis axis = frequencyAxis(g.fLo, g.fHi, 10);
    for (const Tick& t : axis.ticks) {
        const int x = g.xOf(t.value);
        for (int y = g.top; y <= g.bottom; y += 2) img.set(x, y, kGrid);
        img.line(x, g.bottom, x, g.bottom + 4, kInk);
        img.text(x - textWidth(t.label, 1) / 2, g.bottom + 8, t.label, kInk);
    }
    std::vector<double> levels;
    if (in.refLevel)
        for (int d = 0; d <= 10; ++d) levels.push_back(g.yHi - 10.0 * d);
    else
        levels = niceTicks(g.yLo, g.yHi, 8);
    const int levelDecimals = levels.size() > 1 ? decimalsFor(levels[1] - levels[0]) : 0;
    for (double v : levels) {
        const int y = g.yOf(v);
        for (int x = g.left; x <= g.right; x += 2) img.set(x, y, kGrid);
        img.line(g.left - 4, y, g.left, y, kInk);
        const std::string label = trimmedNumber(v, levelDecimals);
        img.text(g.left - 7 - textWidth(label, 1), y - 3, label, kInk);
    }
    img.line(g.left, g.top, g.left, g.bottom, kInk);
    img.line(g.left, g.bottom, g.right, g.bottom, kInk);
    img.line(g.right, g.top, g.right, g.bottom, kInk);
    img.line(g.left, g.top, g.right, g.top, kInk);
    img.text((g.left + g.right - textWidth(axis.title, 1)) / 2, g.bottom + 24, axis.title, kInk);
    img.text(g.left - 7 - textWidth("dBm", 1), g.top - 12, "dBm", kInk);
    img.text(g.left, 8, in.title, kInk, 2);
    img.text(g.left, 30, in.subtitle, kInk);

    // Trace. With more bins than columns each column shows the span of its
    // bins, so narrow tones survive any amount of decimation.
    int prevX = -1, prevY = 0;
    int colX = -1, colLo = 0, colHi = 0;
    auto flush = [&]() {
        if (colX >= 0) img.line(colX, colLo, colX, colHi, kTraceColor);
    };
    for (int i = 0; i < in.count; ++i) {
        if (!std::isfinite(in.levels[i])) continue;
        const int x = g.xOf(in.startHz + i * in.binHz), y = g.yOf(in.levels[i]);
        if (x == colX) {
            colLo = std::min(colLo, y);
            colHi = std::max(colHi, y);
        } else {
            flush();
            if (prevX >= 0) img.line(prevX, prevY, x, y, kTraceColor);
            colX = x;
            colLo = colHi = y;
        }
        prevX = x;
        prevY = y;
    }
    flush();

    // Markers: a numbered triangle over each peak, the strongest labelled.
    for (size_t k = 0; k < in.peaks.size(); ++k) {
        const Peak& p = in.peaks[k];
        const int x = g.xOf(p.frequency), y = g.yOf(p.level) - 3;
        for (int row = 0; row < 6; ++row) img.line(x - row, y - row, x + row, y - row, kMarkerColor);
        const std::string num = std::to_string(k + 1);
        img.text(x - textWidth(num, 1) / 2, y - 16, num, kMarkerColor);
        if (k == 0) {
            // The peak table's precision: the bin's frequency, 0.01 dB.
            char level[32];
            std::snprintf(level, sizeof level, "%.2f dBm", p.level);
            const std::string label = formatFrequencyTo(p.frequency, in.binHz) + "  " + level;
            const int w = textWidth(label, 1);
            const int lx = std::clamp(x + 12, g.left + 2, g.right - 2 - w);
            img.text(lx, std::max(g.top + 2, y - 16), label, kMarkerColor);
        }
    }
    if (geometryOut) *geometryOut = g;
    return img;
}

std::vector<float> waterfallRow(const float* levels, int count) {
    std::vector<float> row(kWaterfallColumns, -1e30f);
    for (int i = 0; i < count; ++i) {
        const int c = count > 1 ? int(int64_t(i) * (kWaterfallColumns - 1) / (count - 1)) : 0;
        row[size_t(c)] = std::max(row[size_t(c)], levels[i]);
    }
    // Columns no bin reached (fewer bins than columns) take their neighbour's.
    for (int c = 1; c < kWaterfallColumns; ++c)
        if (row[size_t(c)] < -1e29f) row[size_t(c)] = row[size_t(c - 1)];
    return row;
}

Rgb waterfallColour(double t) {
    // Dark blue through cyan, green and yellow to red: low to high.
    static const Rgb stops[] = {{10, 10, 60}, {20, 80, 200}, {20, 190, 190}, {90, 200, 60}, {240, 220, 40}, {220, 40, 30}};
    constexpr int n = sizeof stops / sizeof stops[0];
    t = std::clamp(t, 0.0, 1.0) * (n - 1);
    const int i = std::min(int(t), n - 2);
    const double f = t - i;
    auto mix = [f](uint8_t a, uint8_t b) { return uint8_t(std::lround(a + (b - a) * f)); };
    return {mix(stops[i].r, stops[i + 1].r), mix(stops[i].g, stops[i + 1].g), mix(stops[i].b, stops[i + 1].b)};
}

Image renderWaterfall(const WaterfallInput& in) {
    constexpr int kMaxRows = 600;
    const int sweeps = int(in.rows.size());
    // More sweeps than rows: each row shows the highest of the sweeps under it.
    const int rows = std::max(1, std::min(sweeps, kMaxRows));
    const int rowHeight = std::max(1, 300 / rows);
    const int left = 64, top = 50, width = kWaterfallColumns, height = rows * rowHeight;
    Image img(left + width + 90, top + height + 52, kWhite);
    const double span = std::max(in.highDbm - in.lowDbm, 1e-6);
    for (int r = 0; r < rows; ++r) {
        const int first = int(int64_t(r) * sweeps / rows), last = std::max(first + 1, int(int64_t(r + 1) * sweeps / rows));
        for (int c = 0; c < width; ++c) {
            float v = -1e30f;
            for (int k = first; k < last && k < sweeps; ++k) v = std::max(v, in.rows[size_t(k)][size_t(c)]);
            img.fillRect(left + c, top + r * rowHeight, left + c, top + (r + 1) * rowHeight - 1,
                         waterfallColour((v - in.lowDbm) / span));
        }
    }
    const int bottom = top + height - 1, right = left + width - 1;
    img.line(left, top, right, top, kInk);
    img.line(left, bottom, right, bottom, kInk);
    img.line(left, top, left, bottom, kInk);
    img.line(right, top, right, bottom, kInk);
    const FrequencyAxis axis = frequencyAxis(in.startHz, in.stopHz, 10);
    for (const Tick& t : axis.ticks) {
        const int x = left + int(std::lround((t.value - in.startHz) / std::max(in.stopHz - in.startHz, 1e-9) * (width - 1)));
        img.line(x, bottom, x, bottom + 4, kInk);
        img.text(x - textWidth(t.label, 1) / 2, bottom + 8, t.label, kInk);
    }
    img.text((left + right - textWidth(axis.title, 1)) / 2, bottom + 24, axis.title, kInk);
    // Time runs down: the first sweep at the top, seconds since it beside.
    img.text(left - 7 - textWidth("0 s", 1), top - 3, "0 s", kInk);
    const std::string end = trimmedNumber(in.seconds, in.seconds < 10 ? 2 : 0) + " s";
    img.text(left - 7 - textWidth(end, 1), bottom - 6, end, kInk);
    // The colour scale.
    const int barX = right + 20;
    for (int y = top; y <= bottom; ++y)
        img.fillRect(barX, y, barX + 14, y, waterfallColour(1.0 - double(y - top) / std::max(1, bottom - top)));
    for (double v : niceTicks(in.lowDbm, in.highDbm, 6)) {
        const int y = bottom - int(std::lround((v - in.lowDbm) / span * (bottom - top)));
        img.line(barX + 15, y, barX + 18, y, kInk);
        img.text(barX + 21, y - 3, trimmedNumber(v, 0), kInk);
    }
    img.text(barX, top - 12, "dBm", kInk);
    img.text(left, 8, in.title, kInk, 2);
    img.text(left, 30, in.subtitle, kInk);
    return img;
}

bool writePng(const std::string& path, const Image& image, std::string* error) {
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) {
        *error = path + ": cannot be created";
        return false;
    }
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    if (!png || !info) {
        png_destroy_write_struct(&png, nullptr);
        std::fclose(f);
        *error = path + ": out of memory";
        return false;
    }
    std::vector<png_bytep> rows(image.height());
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        std::fclose(f);
        *error = path + ": write failed";
        return false;
    }
    png_init_io(png, f);
    png_set_IHDR(png, info, image.width(), image.height(), 8, PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    for (int y = 0; y < image.height(); ++y)
        rows[y] = const_cast<png_bytep>(image.rgb().data() + static_cast<size_t>(y) * image.width() * 3);
    png_write_image(png, rows.data());
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    if (std::fclose(f) != 0) {
        *error = path + ": write failed";
        return false;
    }
    return true;
}

}  // namespace zrtool
