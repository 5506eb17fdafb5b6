// The normal engine's plan: sizes, steps, the sweep's list, and the engine
// choice of the sweeping mode.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "support/fake_transport.h"
#include "sweep/engine_sweep_controller.h"
#include "device/modes.h"
#include "sweep/engine_narrow.h"
#include "sweep/sweep_mode.h"

namespace zr {
namespace {

using test::InstalledDevice;

// The list as items: register writes with their payload, other words alone.
struct ListItems {
    struct Item {
        uint32_t word;
        std::vector<uint32_t> payload;
    };
    std::vector<Item> items;
    explicit ListItems(const CommandList& list) {
        const size_t words = list.buffer().size() / 4;
        for (size_t i = 0; i < words; ++i) {
            const uint32_t w = list.wordAt(i * 4);
            Item it{w, {}};
            if ((w >> 24) == 0x04) {
                const uint32_t n = (w >> 16) & 0xFF;
                for (uint32_t k = 0; k < n && i + 1 < words; ++k) it.payload.push_back(list.wordAt(++i * 4));
            }
            items.push_back(std::move(it));
        }
    }
    int count(uint32_t word) const {
        int n = 0;
        for (const auto& it : items) n += it.word == word;
        return n;
    }
    // Down-converter words of the capture starts, in order.
    std::vector<uint32_t> captureWords() const {
        std::vector<uint32_t> v;
        for (const auto& it : items)
            if ((it.word >> 24) == 0x13 && it.word != cmd::kStreamStop) v.push_back(it.word);
        return v;
    }
};

constexpr uint32_t kIFLoad = 0x0404003C;

struct Planned {
    SweepPlan plan;
    CommandList list;
};

class SweepPlanTest : public ::testing::Test {
protected:
    InstalledDevice installed{zrDeviceTypeMesa2};
    ZrDevice& dev = installed.device();

    void setSweep(double centre, double span, double rbw, double vbw, double sweepTime, ZrWindowType w) {
        dev.sweep.center = centre;
        dev.sweep.span = span;
        dev.sweep.rbw = rbw;
        dev.sweep.vbw = vbw;
        dev.sweep.sweepTime = sweepTime;
        dev.sweep.window = w;
        dev.sweep.speed = zrSweepSpeedNormal;
    }
    Planned plan() {
        Planned p;
        EXPECT_TRUE(buildControllerPlan(dev, p.plan, p.list));
        return p;
    }
};

TEST_F(SweepPlanTest, WorkedExample) {
    setSweep(1e9, 2e8, 1e5, 1e5, 1e-3, zrWindowFlatTop);
    const Planned p = plan();
    EXPECT_EQ(p.plan.windowSize, 1884);
    EXPECT_EQ(p.plan.fftSize, 2048);
    EXPECT_EQ(p.plan.zeroPad, 164);
    EXPECT_EQ(p.plan.stepCount, 6);  // slices 23 to 28
    EXPECT_EQ(p.plan.blocksPerStep, 3);
    EXPECT_EQ(p.plan.fftCount, 9);
    EXPECT_EQ(p.plan.usableBins, 1600);
    EXPECT_EQ(p.plan.firstUsableBin, 224);
    EXPECT_EQ(p.plan.startBin, 864);
    EXPECT_EQ(dev.sweep.sweepLength, 8192);
    EXPECT_DOUBLE_EQ(dev.sweep.binSize, 24414.0625);
    EXPECT_NEAR(dev.sweep.actualRBW, 100058.386, 1e-3);
    EXPECT_DOUBLE_EQ(dev.sweep.startFreq, 9e8);
    EXPECT_DOUBLE_EQ(dev.sweep.windowBandwidth, 3.7702);
    for (int i = 0; i < 6; ++i) {
        EXPECT_DOUBLE_EQ(p.plan.steps[i].loMHz, (23 + i + 1) * 39.0625);
        EXPECT_EQ(p.plan.steps[i].ddcWord, 672);
        EXPECT_FALSE(p.plan.steps[i].hasBinCorrection);
    }
    // 18 capture blocks, two status blocks to make 20; one tune per slice.
    const ListItems items(p.list);
    EXPECT_EQ(items.count(cmd::kDataWord), 18);
    EXPECT_EQ(items.count(cmd::kStatusWord), 2);
    EXPECT_EQ(items.count(kIFLoad), 6);
    EXPECT_EQ(items.captureWords(), std::vector<uint32_t>(6, 0x130102A0u));
    EXPECT_EQ(items.items[0].word, cmd::kListHead);
    uint32_t data = 0, status = 0;
    for (uint32_t c : p.list.dataWordCounts()) data += c;
    for (uint32_t c : p.list.statusWordCounts()) status += c;
    EXPECT_EQ(data, 18u);
    EXPECT_EQ(status, 2u);
}

TEST_F(SweepPlanTest, SizesAtTheEdgesOfTheSettings) {
    // Top RBW: the smallest FFT.
    setSweep(1e9, 2e8, 12.5e6, 12.5e6, 0.0, zrWindowFlatTop);
    Planned p = plan();
    EXPECT_EQ(p.plan.windowSize, 14);
    EXPECT_EQ(p.plan.fftSize, 32);
    EXPECT_EQ(p.plan.zeroPad, 18);

    // VBW above RBW is capped at one FFT; the reported VBW is the setting.
    setSweep(1e9, 2e8, 1e5, 3e5, 0.0, zrWindowNuttall);
    p = plan();
    EXPECT_EQ(p.plan.vbwRatio, 1.0);
    EXPECT_EQ(p.plan.fftCount, 1);
    EXPECT_EQ(dev.sweep.actualVBW, 3e5);

    // A long sweep time buys FFTs, not a different FFT.
    setSweep(5e9, 4e9, 1e5, 1e5, 0.0, zrWindowNuttall);
    const Planned quick = plan();
    const double bin = dev.sweep.binSize;
    const int length = dev.sweep.sweepLength;
    setSweep(5e9, 4e9, 1e5, 1e5, 100.0, zrWindowNuttall);
    const Planned slow = plan();
    EXPECT_EQ(slow.plan.fftSize, quick.plan.fftSize);
    EXPECT_EQ(dev.sweep.binSize, bin);
    EXPECT_EQ(dev.sweep.sweepLength, length);
    EXPECT_GT(slow.plan.blocksPerStep, 100 * quick.plan.blocksPerStep);
    EXPECT_EQ(slow.plan.fftCount,
              (slow.plan.blocksPerStep * 2048 - slow.plan.windowSize) / (slow.plan.fftSize / 4) + 1);

    // One slice: one step, bin 0 measured from the slice's lower edge, and
    // the start not snapped to the bin grid.
    setSweep(1.015e9, 1e7, 1e4, 1e4, 0.0, zrWindowFlatTop);
    p = plan();
    EXPECT_EQ(p.plan.stepCount, 1);
    const double lower = 26 * 39.0625e6 - 19531250.0;
    EXPECT_EQ(p.plan.startBin, int((1.01e9 - lower) / dev.sweep.binSize));
    EXPECT_NEAR(dev.sweep.startFreq, 1.01e9, 1e-3);
}

TEST_F(SweepPlanTest, StatusBlocksPadTheSweepToFours) {
    // Four slices of one block each: a multiple of four still gets four.
    setSweep(1e9, 1.2e8, 1e5, 1e5, 0.0, zrWindowFlatTop);
    Planned p = plan();
    ASSERT_EQ(p.plan.stepCount * p.plan.blocksPerStep % 4, 0);
    EXPECT_EQ(ListItems(p.list).count(cmd::kStatusWord), 4);
    setSweep(1e9, 1.6e8, 1e5, 1e5, 0.0, zrWindowFlatTop);  // five slices
    p = plan();
    EXPECT_EQ(ListItems(p.list).count(cmd::kStatusWord), 3);
}

TEST_F(SweepPlanTest, PreselectorPiecesPartitionTheirSlices) {
    dev.preselectorEnabled = 1;
    dev.sweep.spurReject = 1;
    setSweep(5.5e7, 9e7, 1e5, 1e5, 0.0, zrWindowFlatTop);  // 10 MHz to 100 MHz: slices 0 to 3
    const Planned p = plan();
    ASSERT_EQ(p.plan.stepCount, 7);  // slice 1 has four filters
    const int u = p.plan.fftSize / 32;
    // Slice 1's pieces abut and cover its kept bins exactly.
    EXPECT_EQ(p.plan.steps[1].firstBin, p.plan.firstUsableBin);
    for (int s = 1; s < 4; ++s)
        EXPECT_EQ(p.plan.steps[s].firstBin + p.plan.steps[s].binCount, p.plan.steps[s + 1].firstBin);
    EXPECT_EQ(p.plan.steps[4].firstBin + p.plan.steps[4].binCount, p.plan.firstUsableBin + p.plan.usableBins);
    EXPECT_EQ(p.plan.steps[2].firstBin, 8 * u);
    for (const SweepStep& s : p.plan.steps) {
        EXPECT_TRUE(s.hasBinCorrection);
        EXPECT_EQ(int(s.binCorrection.size()), p.plan.fftSize);
    }
    // Two passes, but the second pass of a preselector piece does not retune.
    const ListItems items(p.list);
    EXPECT_EQ(items.count(kIFLoad), 7);
    EXPECT_EQ(int(items.captureWords().size()), 14);
}

TEST_F(SweepPlanTest, PreselectorStretchesEndAtSlice16) {
    dev.preselectorEnabled = 1;
    setSweep(1.5e9, 1e9, 1e6, 1e6, 0.0, zrWindowFlatTop);  // above slice 16: none preselected
    Planned p = plan();
    for (const SweepStep& s : p.plan.steps) EXPECT_FALSE(s.hasBinCorrection);
    setSweep(5e8, 4e8, 1e6, 1e6, 0.0, zrWindowFlatTop);  // 300 to 700 MHz: slices 8 to 18
    p = plan();
    ASSERT_EQ(p.plan.stepCount, 11);
    for (int i = 0; i < 11; ++i) EXPECT_EQ(p.plan.steps[i].hasBinCorrection, i < 9) << i;
}

TEST_F(SweepPlanTest, SpurRejectionSecondPass) {
    dev.sweep.spurReject = 1;
    setSweep(1.4e8, 1.2e8, 1e6, 1e6, 0.0, zrWindowFlatTop);  // 80 to 200 MHz: slices 2 to 5
    const Planned p = plan();
    EXPECT_EQ(p.plan.passes, 2);
    // Below slice 4 the second pass repeats the word; above it looks through
    // the next slice's LO, 160 units up, and the next slice needs no tune.
    EXPECT_EQ(ListItems(p.list).captureWords(),
              (std::vector<uint32_t>{0x130102C0, 0x130102C0, 0x13010020, 0x13010020, 0x130102A0, 0x13010340,
                                     0x130102A0, 0x13010340}));
    EXPECT_EQ(ListItems(p.list).count(kIFLoad), 7);
}

TEST_F(SweepPlanTest, GpioSweepAndMesaSettlePause) {
    dev.gpioSweep = {{2.0e9, 0x5}, {1.0e9, 0x3}};
    dev.gpioRegister = 0x100;
    setSweep(1.5e9, 1.2e9, 1e6, 1e6, 0.0, zrWindowFlatTop);
    Planned p = plan();
    std::vector<uint32_t> gpio;
    for (const auto& it : ListItems(p.list).items)
        if (it.word == 0x040101A0) gpio.push_back(it.payload.at(0));
    EXPECT_EQ(gpio, (std::vector<uint32_t>{0x103, 0x105}));
    EXPECT_EQ(ListItems(p.list).count(64000), 0);

    dev.gpioSweep.clear();
    setSweep(1.3e10, 1e9, 1e6, 1e6, 0.0, zrWindowFlatTop);
    p = plan();
    const ListItems items(p.list);
    EXPECT_EQ(items.count(64000), 1);
    for (size_t i = 0; i < items.items.size(); ++i)
        if (items.items[i].word == 64000) {
            ASSERT_GE(i, 1u);
            EXPECT_EQ(items.items[i - 1].word, cmd::registerWord(64, 0x0040));  // right behind the filter
        }
}

TEST(SweepEngineChoice, FastEligibility) {
    ZrSweepSettings s{};
    s.window = zrWindowFlatTop;
    s.rbw = s.vbw = 1e5;  // 9424 points
    EXPECT_TRUE(fastSweepEligible(s, false));
    EXPECT_FALSE(fastSweepEligible(s, true));
    s.spurReject = 1;
    EXPECT_FALSE(fastSweepEligible(s, false));
    s.spurReject = 0;
    s.rbw = s.vbw = 5.6e4;  // 16830 points: inside the allowance above 16384
    EXPECT_TRUE(fastSweepEligible(s, false));
    s.rbw = s.vbw = 5e4;  // 18850 points
    EXPECT_FALSE(fastSweepEligible(s, false));
    s.rbw = 1e5;
    s.vbw = 3e4;
    EXPECT_FALSE(fastSweepEligible(s, false));
}

TEST(SweepEngineChoice, ConfigureClampsRbwAndBuildsTheNormalEngine) {
    InstalledDevice installed(zrDeviceTypeMesa2);
    ZrDevice& dev = installed.device();
    dev.sweep.speed = zrSweepSpeedNormal;
    dev.sweep.center = 1e9;
    dev.sweep.span = 1e8;
    dev.sweep.rbw = 2e7;
    EXPECT_EQ(configureSweeping(dev), zrNoError);
    EXPECT_EQ(dev.sweep.rbw, 12.5e6);
    ASSERT_NE(dynamic_cast<EngineSweepController*>(dev.engine.get()), nullptr);
    EXPECT_FALSE(dev.engine->busy());
    stopEngines(dev);
    EXPECT_EQ(dev.engine, nullptr);

    // A narrow span goes to the narrow engine whatever the speed, unclamped.
    dev.sweep.span = 5e6;
    dev.sweep.rbw = 5.0;
    configureSweeping(dev);
    EXPECT_NE(dynamic_cast<EngineSweepNarrow*>(dev.engine.get()), nullptr);
    EXPECT_EQ(dev.sweep.rbw, 5.0);
    stopEngines(dev);
}

}  // namespace
}  // namespace zr
