// What zr makes of a trace: the peak table, the CSV file and the PNG plot,
// all from synthetic traces with tones at known places.
#include <gtest/gtest.h>
#include <png.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "support/temp_folder.h"
#include "zr/csv.h"
#include "zr/font.h"
#include "zr/peaks.h"
#include "zr/plot.h"
#include "zr/sweep_output.h"
#include "zr/usb_access.h"

using namespace zrtool;

namespace {

// A noise floor near -100 dBm with ripple, and tones with a few bins of
// skirt on either side, as a windowed FFT draws them.
std::vector<float> traceWithTones(int bins, const std::vector<std::pair<int, float>>& tones) {
    std::vector<float> t(bins);
    for (int i = 0; i < bins; ++i) t[i] = -100.0f + 2.0f * std::sin(i * 0.7f) * std::cos(i * 0.13f);
    for (auto [bin, level] : tones)
        for (int d = -4; d <= 4; ++d)
            if (bin + d >= 0 && bin + d < bins) t[bin + d] = std::max(t[bin + d], level - 6.0f * std::abs(d));
    return t;
}

}  // namespace

TEST(ToolPeaks, StrongestFirstOnePerToneAboveTheFloor) {
    const auto t = traceWithTones(4000, {{500, -30}, {1200, -55}, {1206, -60}, {3000, -20}, {3500, -95}});
    PeakSearch s;
    s.separationBins = 3;
    auto peaks = findPeaks(t.data(), 4000, 1e9, 1e3, s);
    // -95 dBm is within 10 dB of the floor; 1206 is a second tone 6 bins off.
    ASSERT_EQ(peaks.size(), 4u);
    EXPECT_EQ(peaks[0].bin, 3000);
    EXPECT_EQ(peaks[0].frequency, 1e9 + 3000 * 1e3);
    EXPECT_EQ(peaks[1].bin, 500);
    EXPECT_EQ(peaks[2].bin, 1200);
    EXPECT_EQ(peaks[3].bin, 1206);
    EXPECT_FLOAT_EQ(peaks[3].level, -60.0f);
    // A wider separation folds the close pair into its stronger member.
    s.separationBins = 10;
    peaks = findPeaks(t.data(), 4000, 1e9, 1e3, s);
    ASSERT_EQ(peaks.size(), 3u);
    EXPECT_EQ(peaks[2].bin, 1200);
    s.maxPeaks = 1;
    EXPECT_EQ(findPeaks(t.data(), 4000, 1e9, 1e3, s).size(), 1u);

    // A flat top counts once, at its first bin.
    std::vector<float> flat(100, -100.0f);
    flat[40] = flat[41] = flat[42] = -20.0f;
    peaks = findPeaks(flat.data(), 100, 0, 1, PeakSearch{});
    ASSERT_EQ(peaks.size(), 1u);
    EXPECT_EQ(peaks[0].bin, 40);
    EXPECT_EQ(separationFor(1e6, 24414.0625), 82);
    EXPECT_EQ(separationFor(1e3, 24414.0625), 3);
}

TEST(ToolPeaks, SingleSweepNoiseRaisesTheBar) {
    // Noise power of one FFT per bin is exponential: in dB it spreads wide
    // and its tail passes any fixed 10 dB margin somewhere in 20000 bins.
    std::mt19937 rng(7);
    std::exponential_distribution<float> power(1.0f);
    std::vector<float> t(20000);
    for (float& v : t) v = -110.0f + 10.0f * std::log10(power(rng));
    t[12345] = -60.0f;
    float threshold = 0;
    auto peaks = findPeaks(t.data(), 20000, 0, 1, PeakSearch{}, &threshold);
    ASSERT_EQ(peaks.size(), 1u);
    EXPECT_EQ(peaks[0].bin, 12345);
    EXPECT_GT(threshold, -110.0f - 1.6f + 20.0f);  // the median sits 1.6 dB below the mean
    PeakSearch fixedMargin;
    fixedMargin.spreadFactor = 0;
    EXPECT_GT(findPeaks(t.data(), 20000, 0, 1, fixedMargin).size(), 1u);
}

TEST(ToolCsv, OneRowPerBinWithItsFrequency) {
    zr::test::TempFolder dir;
    const std::string path = dir.str() + "t.csv";
    const std::vector<float> levels = {-90.5f, -30.25f, -91.0f};
    std::string error;
    ASSERT_TRUE(writeTraceCsv(path, levels.data(), 3, 2.4e9, 0.25, &error)) << error;
    std::ifstream in(path);
    std::string line;
    std::vector<std::string> lines;
    while (std::getline(in, line)) lines.push_back(line);
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[0], "frequency_hz,level_dbm");
    EXPECT_EQ(lines[2], "2400000000.250,-30.250");
    EXPECT_EQ(lines[3], "2400000000.500,-91.000");
    EXPECT_FALSE(writeTraceCsv(dir.str() + "missing/t.csv", levels.data(), 3, 0, 1, &error));
    EXPECT_NE(error.find("missing/t.csv"), std::string::npos);
}

TEST(ToolPlot, TicksAreRoundAndShareOneUnit) {
    std::string unit;
    auto ticks = frequencyTicks(100e6, 6e9, 10, &unit);
    EXPECT_EQ(unit, "GHz");
    ASSERT_EQ(ticks.size(), 6u);
    EXPECT_EQ(ticks.front().label, "1");
    EXPECT_EQ(ticks.back().value, 6e9);
    ticks = frequencyTicks(2.39e9, 2.41e9, 10, &unit);
    EXPECT_EQ(unit, "GHz");
    ASSERT_GE(ticks.size(), 2u);
    EXPECT_EQ(ticks[0].label, "2.39");
    EXPECT_EQ(ticks[1].label, "2.392");
    ticks = frequencyTicks(0, 50e3, 5, &unit);
    EXPECT_EQ(unit, "kHz");
    EXPECT_EQ(ticks[1].label, "10");
    const auto levels = niceTicks(-103, -17, 8);
    EXPECT_EQ(levels.front(), -100);
    EXPECT_EQ(levels[1] - levels[0], 20);
    // A span under 1 % of its frequency is labelled as offsets from a round
    // centre, in the span's unit.
    const FrequencyAxis narrow = frequencyAxis(2.92995e9, 2.93005e9, 10);
    EXPECT_EQ(narrow.title, "kHz from 2.930000 GHz");
    ASSERT_GE(narrow.ticks.size(), 3u);
    EXPECT_EQ(narrow.ticks.front().label, "-50");
    EXPECT_EQ(narrow.ticks.back().label, "+50");
    EXPECT_DOUBLE_EQ(narrow.ticks.back().value, 2.93005e9);
    EXPECT_EQ(frequencyAxis(1e9, 3e9, 10).title, "Frequency (GHz)");
}

TEST(ToolOutputs, NumpyHeaderAndWaterfallColumns) {
    // Version 1.0, a 64-byte-aligned header ending in a newline.
    const std::string h = npyHeader(12, 6553);
    ASSERT_EQ(h.size(), 128u);
    EXPECT_EQ(h.substr(0, 8), std::string("\x93NUMPY\x01\x00", 8));
    EXPECT_EQ(uint8_t(h[8]) + 256 * uint8_t(h[9]), 118);
    EXPECT_NE(h.find("'shape': (12, 6553)"), std::string::npos);
    EXPECT_EQ(h.back(), '\n');
    // Each column shows the highest of its bins; a narrow peak survives.
    std::vector<float> trace(10000, -100.0f);
    trace[5003] = -20.0f;
    const std::vector<float> row = waterfallRow(trace.data(), int(trace.size()));
    ASSERT_EQ(row.size(), size_t(kWaterfallColumns));
    EXPECT_EQ(*std::max_element(row.begin(), row.end()), -20.0f);
    EXPECT_EQ(std::count(row.begin(), row.end(), -20.0f), 1);
    EXPECT_EQ(waterfallColour(0.0), (Rgb{10, 10, 60}));
    EXPECT_EQ(waterfallColour(2.0), (Rgb{220, 40, 30}));
}

TEST(ToolPlot, EveryLabelCharacterHasAGlyph) {
    for (char c : std::string("Mesa1 Mesa2 Ridge2 0123456789 RBW VBW ref atten auto dB dBm Hz kHz MHz GHz "
                              "Frequency (GHz) average minmax flattop nuttall blackman hamming gaussian rect "
                              "of to . - + : / %"))
        EXPECT_TRUE(hasGlyph(c)) << "'" << c << "'";
    EXPECT_FALSE(hasGlyph('~'));
    // Glyphs are distinct where a misreading would change a number.
    EXPECT_NE(glyphRows('0'), glyphRows('8'));
    EXPECT_NE(glyphRows('1'), glyphRows('7'));
    EXPECT_NE(glyphRows('5'), glyphRows('6'));
    EXPECT_EQ(textWidth("dBm", 2), 34);
}

TEST(ToolPlot, TraceAndMarkerLandWhereTheToneIs) {
    const int bins = 245000;  // far more bins than columns
    const auto t = traceWithTones(bins, {{61234, -30}, {200000, -60}});
    const double start = 100e6, bin = 24414.0625;
    auto peaks = findPeaks(t.data(), bins, start, bin, PeakSearch{});
    ASSERT_EQ(peaks.size(), 2u);
    PlotGeometry g{};
    const Image img = renderPlot({t.data(), bins, start, bin, "Mesa2 10000001", "RBW 100 kHz", peaks, std::nullopt}, &g);

    // The highest trace pixel is the strong tone, found however much the
    // trace was thinned out.
    int topX = -1, topY = img.height();
    for (int x = g.left; x <= g.right; ++x)
        for (int y = g.top; y < topY; ++y)
            if (img.at(x, y) == kTraceColor) {
                topX = x;
                topY = y;
                break;
            }
    EXPECT_NEAR(topX, g.xOf(start + 61234 * bin), 1);
    EXPECT_NEAR(topY, g.yOf(-30), 1);
    EXPECT_GT(g.yHi, -30);
    EXPECT_LT(g.yLo, -102);
    // The narrow weak tone survives decimation too.
    const int weakX = g.xOf(start + 200000 * bin);
    bool weakSeen = false;
    for (int y = g.yOf(-60) - 1; y <= g.yOf(-60) + 1; ++y) weakSeen |= img.at(weakX, y) == kTraceColor;
    EXPECT_TRUE(weakSeen);
    // Markers sit right above both peaks.
    EXPECT_EQ(img.at(g.xOf(peaks[0].frequency), g.yOf(-30) - 5), kMarkerColor);
    EXPECT_EQ(img.at(g.xOf(peaks[1].frequency), g.yOf(-60) - 5), kMarkerColor);
}

TEST(ToolPlot, PngReadsBackPixelForPixel) {
    Image img(40, 30, {255, 255, 255});
    img.line(0, 0, 39, 29, kTraceColor);
    img.text(2, 20, "1G", kMarkerColor);
    zr::test::TempFolder dir;
    const std::string path = dir.str() + "p.png";
    std::string error;
    ASSERT_TRUE(writePng(path, img, &error)) << error;

    png_image read{};
    read.version = PNG_IMAGE_VERSION;
    ASSERT_TRUE(png_image_begin_read_from_file(&read, path.c_str()));
    read.format = PNG_FORMAT_RGB;
    std::vector<uint8_t> px(PNG_IMAGE_SIZE(read));
    ASSERT_TRUE(png_image_finish_read(&read, nullptr, px.data(), 0, nullptr));
    EXPECT_EQ(read.width, 40u);
    EXPECT_EQ(read.height, 30u);
    EXPECT_EQ(px, img.rgb());
    EXPECT_FALSE(writePng(dir.str() + "no/p.png", img, &error));
}

TEST(ToolUsbAccess, FindsTheInstrumentsNodesInTheKernelsList) {
    zr::test::TempFolder tmp;
    const std::string sys = tmp.str() + "sys", dev = tmp.str() + "dev";
    auto device = [&](const std::string& name, const char* vendor, const char* bus, const char* num) {
        std::filesystem::create_directories(sys + "/" + name);
        std::ofstream(sys + "/" + name + "/idVendor") << vendor << "\n";
        std::ofstream(sys + "/" + name + "/busnum") << bus << "\n";
        std::ofstream(sys + "/" + name + "/devnum") << num << "\n";
    };
    device("1-2", "7a31", "1", "5");
    device("1-3", "046d", "1", "6");  // another vendor's
    device("2-1", "7a31", "2", "12");
    std::filesystem::create_directories(dev + "/002");
    std::ofstream(dev + "/002/012") << "";
    std::vector<UsbNode> nodes = instrumentNodes(sys, dev);
    std::sort(nodes.begin(), nodes.end(), [](const UsbNode& a, const UsbNode& b) { return a.bus < b.bus; });
    ASSERT_EQ(nodes.size(), 2u);
    EXPECT_EQ(nodes[0].path, dev + "/001/005");
    EXPECT_FALSE(nodes[0].accessible);  // no node at all
    EXPECT_EQ(nodes[1].path, dev + "/002/012");
    EXPECT_TRUE(nodes[1].accessible);
    EXPECT_TRUE(instrumentNodes(tmp.str() + "absent", dev).empty());
}
