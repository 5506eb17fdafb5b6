#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "transport/command_list.h"
#include "transport/status_block.h"

namespace zr {
namespace {

std::vector<uint32_t> wordsOf(const CommandList& list) {
    std::vector<uint32_t> w(list.buffer().size() / 4);
    std::memcpy(w.data(), list.data(), list.buffer().size());
    return w;
}

// Words from byte offset `from` up to writePos.
std::vector<uint32_t> wordsFrom(const CommandList& list, size_t from) {
    std::vector<uint32_t> w;
    for (size_t o = from; o < static_cast<size_t>(list.writePos()); o += 4) w.push_back(list.wordAt(o));
    return w;
}

TEST(CommandListLayout, NewListIsOneBlockOfPadWithZeroCounts) {
    CommandList list;
    EXPECT_EQ(list.buffer().size(), 2048u);
    EXPECT_EQ(list.writePos(), 0);
    for (uint32_t w : wordsOf(list)) ASSERT_EQ(w, 1u);
    EXPECT_EQ(list.dataWordCounts(), std::vector<uint32_t>{0});
    EXPECT_EQ(list.statusWordCounts(), std::vector<uint32_t>{0});
}

TEST(CommandListLayout, FiveHundredNinthWordStartsNextBlockAndTailStaysPad) {
    CommandList list;
    for (uint32_t i = 0; i < 508; ++i) list.AppendWord(0x00100000 + i);
    EXPECT_EQ(list.writePos(), 2032);
    EXPECT_EQ(list.blockCount(), 1u);
    list.AppendWord(0xABCD0000);
    ASSERT_EQ(list.blockCount(), 2u);
    EXPECT_EQ(list.wordAt(2048), 0xABCD0000u);
    EXPECT_EQ(list.writePos(), 2052);
    for (size_t o = 2032; o < 2048; o += 4) EXPECT_EQ(list.wordAt(o), 1u) << o;
    for (size_t o = 2052; o < 4096; o += 4) ASSERT_EQ(list.wordAt(o), 1u) << o;
    EXPECT_EQ(list.dataWordCounts().size(), 2u);
    EXPECT_EQ(list.statusWordCounts().size(), 2u);
}

TEST(CommandListLayout, ItemThatDoesNotFitMovesWholeToNextBlock) {
    CommandList list;
    // 1948 bytes used leaves exactly 100 bytes in the block.
    for (int i = 0; i < 487; ++i) list.AppendWord(7);
    ASSERT_EQ(2048 - list.writePos(), 100);
    std::vector<uint32_t> item(65);
    for (size_t i = 0; i < item.size(); ++i) item[i] = 0x1000 + static_cast<uint32_t>(i);
    list.AppendWords(item.data(), item.size());
    ASSERT_EQ(list.blockCount(), 2u);
    for (size_t o = 1948; o < 2048; o += 4) EXPECT_EQ(list.wordAt(o), 1u);
    for (size_t i = 0; i < item.size(); ++i) EXPECT_EQ(list.wordAt(2048 + 4 * i), item[i]);
}

TEST(CommandListLayout, ReplyWordsAreCountedPerBlock) {
    CommandList list;
    list.AppendListHead();
    list.AppendDataWord();
    list.AppendDataWord();
    list.AppendStatusWord();
    list.NewBlock();
    list.AppendStatusWord();
    list.AppendCountedDataReply(0x25010000);
    list.AppendWord(0x2F000000);  // the filler is not counted
    EXPECT_EQ(list.dataWordCounts(), (std::vector<uint32_t>{2, 1}));
    EXPECT_EQ(list.statusWordCounts(), (std::vector<uint32_t>{1, 1}));
    EXPECT_EQ(list.wordAt(0), 0xFF530000u);
    for (int i = 1; i < 7; ++i) EXPECT_EQ(list.wordAt(4 * i), 0u);
    EXPECT_EQ(list.wordAt(28), 0x23000000u);
}

TEST(CommandListLayout, ReplyLimitClosesBlockAtOneHundredTwentyEight) {
    CommandList list;
    list.setReplyLimit(128);
    for (int i = 0; i < 100; ++i) list.AppendDataWord();
    for (int i = 0; i < 28; ++i) list.AppendStatusWord();
    ASSERT_EQ(list.blockCount(), 2u);
    EXPECT_EQ(list.dataWordCounts()[0] + list.statusWordCounts()[0], 128u);
    EXPECT_EQ(list.writePos(), 2048);
    list.AppendDataWord();
    EXPECT_EQ(list.dataWordCounts()[1], 1u);
}

// ------------------------------------------------------------ IF filter

struct IFLoad {
    uint32_t control = 0, wide = 0;
    std::vector<uint16_t> lanes;  // 128 lanes
    std::vector<uint32_t> words;
};

IFLoad loadIF(int band, int subBand, const std::vector<float>& taps, bool ridge) {
    CommandList list;
    AppendIFFilter(list, band, subBand, taps.data(), ridge);
    IFLoad r;
    r.words = wordsFrom(list, 0);
    EXPECT_EQ(r.words.size(), 70u);  // 280 bytes
    EXPECT_EQ(r.words[0], 0x0404003Cu);
    r.control = r.words[1];
    r.wide = r.words[2];
    EXPECT_EQ(r.words[3], 0u);
    EXPECT_EQ(r.words[4], 0u);
    EXPECT_EQ(r.words[5], 0x04400040u);
    for (int i = 0; i < 64; ++i) {
        r.lanes.push_back(static_cast<uint16_t>(r.words[6 + i]));
        r.lanes.push_back(static_cast<uint16_t>(r.words[6 + i] >> 16));
    }
    return r;
}

TEST(IFFilterLoad, CentreTapOfOneFillsLaneAndWideField) {
    std::vector<float> taps(126, 0.0f);
    taps[62] = 1.0f;  // a of pair 31
    taps[63] = 1.0f;  // b of pair 31
    IFLoad r = loadIF(2, 0, taps, false);
    EXPECT_EQ(r.lanes[32], 0xFFFF);
    EXPECT_EQ(r.lanes[64 + 32], 0xFFFF);
    EXPECT_EQ(r.wide, (1u << 8) | (1u << 2));
    EXPECT_EQ(r.lanes[0], 0);
    EXPECT_EQ(r.lanes[64], 0);
}

TEST(IFFilterLoad, LanesFollowPairsAndTruncateTowardsZero) {
    std::vector<float> taps(126, 0.0f);
    taps[0] = 0.1f;     // a of pair 0 -> 13107.1 -> 13107
    taps[1] = -0.1f;    // b of pair 0 -> -13107
    taps[2 * 62] = 0.25f;  // a of pair 62, last lane
    taps[2 * 30 + 1] = -1.0f;  // b of pair 30: -131071 in 18 bits
    IFLoad r = loadIF(1, 0, taps, false);
    EXPECT_EQ(r.lanes[1], 13107);
    EXPECT_EQ(r.lanes[65], static_cast<uint16_t>(-13107));
    EXPECT_EQ(r.lanes[63], static_cast<uint16_t>(static_cast<int32_t>(0.25f * 131071.0)));
    EXPECT_EQ(r.lanes[64 + 31], static_cast<uint16_t>(-131071));
    // -131071 = 0x...E0001: bits 17..16 are 2.
    EXPECT_EQ(r.wide, 2u);
}

TEST(IFFilterLoad, OverflowingNarrowPairFallsBackToPassThroughWithBandControl) {
    std::vector<float> taps(126, 0.0f);
    taps[20] = 0.3f;  // a of pair 10: 39321 does not fit 16 bits
    taps[62] = 0.5f;
    IFLoad r = loadIF(0, 1, taps, false);
    for (int lane = 0; lane < 128; ++lane) {
        const uint16_t expect = (lane == 32 || lane == 96) ? 0xFFFF : 0;
        EXPECT_EQ(r.lanes[lane], expect) << lane;
    }
    EXPECT_EQ(r.wide, (1u << 8) | (1u << 2));
    EXPECT_EQ(r.control, 4u | 8u);  // band 0 with sub-band 1
}

TEST(IFFilterLoad, WidePairsMayUseEighteenBitsButNotMore) {
    std::vector<float> taps(126, 0.0f);
    taps[2 * 32] = 0.9f;  // 117963: fits 18 bits
    EXPECT_EQ(loadIF(1, 0, taps, false).lanes[33], static_cast<uint16_t>(117963));
    taps[2 * 32] = 1.5f;  // beyond 18 bits
    EXPECT_EQ(loadIF(1, 0, taps, false).lanes[33], 0);
    taps[2 * 32] = 0.0f;
    taps[2 * 29] = 0.26f;  // pair 29 is narrow
    EXPECT_EQ(loadIF(1, 0, taps, false).lanes[30], 0);
}

TEST(IFFilterLoad, ControlWordFollowsBandSubBandAndModel) {
    std::vector<float> taps(126, 0.0f);
    EXPECT_EQ(loadIF(0, 0, taps, false).control, 4u);
    EXPECT_EQ(loadIF(3, 0, taps, false).control, 1u | 8u);
    EXPECT_EQ(loadIF(4, 0, taps, false).control, 1u | 8u);
    EXPECT_EQ(loadIF(4, 0, taps, true).control, 1u | 2u | 8u);
    EXPECT_EQ(loadIF(5, 1, taps, true).control, 1u | 2u | 8u);
    EXPECT_EQ(loadIF(6, 0, taps, true).control, 1u | 8u);
}

// ------------------------------------------------------------ tables

TEST(TableBuilders, GpioSwitchingMarksOnlyTheLastEntry) {
    CommandList list;
    const uint8_t values[2] = {0x5A, 0xC3};
    const uint32_t durations[2] = {100, 0x3FFFFE};
    AppendGPIOSwitching(list, true, values, durations, 2);
    EXPECT_EQ(wordsFrom(list, 0),
              (std::vector<uint32_t>{0x04020200, 0x5A800064, 0xC3C00000u | 0x3FFFFE}));
    CommandList off;
    AppendGPIOSwitching(off, false, values, durations, 2);
    EXPECT_EQ(off.writePos(), 0);
    CommandList clear;
    AppendGPIOSwitchingClear(clear);
    auto w = wordsFrom(clear, 0);
    ASSERT_EQ(w.size(), 65u);
    EXPECT_EQ(w[0], 0x04400200u);
    for (size_t i = 1; i < w.size(); ++i) EXPECT_EQ(w[i], 0u);
}

TEST(TableBuilders, MaskTableSendsWholeRunsOfThirtyTwoSignExtended) {
    std::vector<int16_t> mask(100);
    for (int i = 0; i < 100; ++i) mask[i] = static_cast<int16_t>(-50 + i);
    CommandList list;
    AppendMaskTable(list, mask);
    auto w = wordsFrom(list, 0);
    ASSERT_EQ(w.size(), 99u);
    for (int r = 0; r < 3; ++r) {
        EXPECT_EQ(w[33 * r], 0x04208000u + 32u * r);
        for (int i = 0; i < 32; ++i)
            ASSERT_EQ(static_cast<int32_t>(w[33 * r + 1 + i]), -50 + 32 * r + i);
    }
}

TEST(TableBuilders, WindowTableRunsOfSixtyFourRaiseTheAddress) {
    std::vector<uint32_t> window(192);
    for (size_t i = 0; i < window.size(); ++i) window[i] = 0x3F000000u + static_cast<uint32_t>(i);
    CommandList list;
    AppendWindowTable(list, window.data(), window.size());
    std::vector<uint32_t> heads;
    std::vector<uint32_t> values;
    for (size_t o = 0; o + 4 <= list.buffer().size(); o += 4) {
        uint32_t w = list.wordAt(o);
        if ((w >> 24) == 0x04) heads.push_back(w);
        else if (w != 1) values.push_back(w);
    }
    EXPECT_EQ(heads, (std::vector<uint32_t>{0x04402000, 0x04402040, 0x04402080}));
    EXPECT_EQ(values, window);
}

TEST(TableBuilders, DecimationTapsSendHalfBehindEightZerosScaledAndTruncated) {
    std::vector<double> taps(189, 1.0);
    taps[0] = 2.0;
    CommandList list;
    AppendDecimationTaps(list, 1, taps.data());
    auto w = wordsFrom(list, 0);
    ASSERT_EQ(w.size(), 1u + 8 + 95);
    EXPECT_EQ(w[0], 0x04670478u);  // 103 words
    for (int i = 1; i <= 8; ++i) EXPECT_EQ(w[i], 0u);
    // Taps sum to 190: 2 / 190 * 2^19 = 5518.3, 1 / 190 * 2^19 = 2759.2.
    EXPECT_EQ(w[9], 5518u);
    EXPECT_EQ(w[10], 2759u);

    std::vector<double> t4(159, 0.5);
    CommandList l4;
    AppendDecimationTaps(l4, 4, t4.data());
    EXPECT_EQ(l4.wordAt(0), 0x04580778u);  // 8 + 80 words
    CommandList l2;
    std::vector<double> t2(79, -0.25);
    t2[39] = 1.0;
    AppendDecimationTaps(l2, 2, t2.data());
    EXPECT_EQ(l2.wordAt(0), 0x04300578u);  // 8 + 40
    // Divided by the signed sum (-18.5), not its magnitude: -0.25 / -18.5 * 2^18 = 3542.5.
    EXPECT_EQ(static_cast<int32_t>(l2.wordAt(4 * 9)), 3542);
}

// ------------------------------------------------------------ fixed shapes

TEST(FixedShapes, LOBiasWords) {
    CommandList list;
    AppendLOBias(list, 1.0f, 150.0f);
    // 3 * 2.5 * 13107 + 1572864 = 1671166.5 and
    // 0.15 * 2430 / 220 * 13107 + 1769472 = 1791187.6, both truncated.
    EXPECT_EQ(wordsFrom(list, 0), (std::vector<uint32_t>{0x04020160, 1671166, 1791187, 1}));
}

TEST(FixedShapes, LOReadbackSequence) {
    CommandList list;
    AppendLOReadback(list);
    EXPECT_EQ(wordsFrom(list, 0),
              (std::vector<uint32_t>{0x04010120, 13100, 16384, 0x04010130, 61184, 16384, 0x04010008, 0, 1,
                                     0x04010130, 60928, 16384, 0x04010008, 1, 16384, 0x04010120, 13164, 16384,
                                     0x04010130, 60928, 16384, 0x04010008, 2, 1}));
}

TEST(FixedShapes, StreamStartCarriesTuneValueAndCode) {
    CommandList list;
    AppendStreamStart(list, 4, 0x0000001234ABCDEFull, true);
    EXPECT_EQ(wordsFrom(list, 0),
              (std::vector<uint32_t>{0x04010022, 0x12, 0x04010023, 0x34ABCDEF, 0x1334CDEF}));
    CommandList plain;
    AppendStreamStart(plain, 1, 0x100, false);
    EXPECT_EQ(plain.wordAt(16), 0x13210100u);
}

TEST(FixedShapes, CaptureListWithAndWithoutMemoryTest) {
    CommandList list;
    AppendCapture(list, 0x123456, 16, zrTriggerTypeVideo, 1000, 3);
    EXPECT_EQ(wordsFrom(list, 0), (std::vector<uint32_t>{0x04010026, 15, 0x04010027, 0x80000000u | 999,
                                                         0x04010028, 3, 0x17123456}));
    CommandList imm;
    AppendCapture(imm, 0, 1, zrTriggerTypeImmediate, 1000, 0);
    EXPECT_EQ(imm.wordAt(12), 0u);
    CommandList ext;
    AppendCapture(ext, 0, 2, zrTriggerTypeExternal, 0, 0);
    EXPECT_EQ(ext.wordAt(12), 0x40000000u);
    CommandList mask;
    AppendCapture(mask, 0, 2, zrTriggerTypeFrequencyMask, 0x50000, 0);
    EXPECT_EQ(mask.wordAt(12), 0xC0000000u | ((0x50000 - 1) & 0x3FFFF));
    CommandList test;
    AppendCapture(test, 5, 8, zrTriggerTypeImmediate, 0, 0, MemoryTest::CountingDown);
    EXPECT_EQ(wordsFrom(test, 0), (std::vector<uint32_t>{0x04010026, 0xE0000007, 0x04010026, 0xC0000007,
                                                         0x04010027, 0, 0x04010028, 0, 0x17000005}));
}

TEST(FixedShapes, ServiceItemsStayWholeInOneBlock) {
    CommandList list;
    for (int i = 0; i < 300; ++i) list.AppendWord(1);
    uint8_t page[1024];
    for (int i = 0; i < 1024; ++i) page[i] = static_cast<uint8_t>(i * 7);
    AppendFlashWrite(list, 0x0203, page);
    ASSERT_EQ(list.blockCount(), 2u);
    EXPECT_EQ(list.wordAt(2048), 0xFFFE0203u);
    EXPECT_EQ(std::memcmp(list.data() + 2052, page, 1024), 0);

    CommandList unload;
    AppendUnloadFx3(unload);
    EXPECT_EQ(unload.writePos(), 128);
    EXPECT_EQ(unload.wordAt(0), 0xFFFA0000u);
    for (int i = 4; i < 128; ++i) EXPECT_EQ(unload.data()[i], i);

    CommandList flush;
    AppendNetworkFlush(flush);
    EXPECT_EQ(wordsFrom(flush, 0), (std::vector<uint32_t>{0x51000000, 1, 0x4000}));
}

TEST(FixedShapes, WakeAndStandbyLists) {
    CommandList wake;
    AppendMesaWake(wake);
    auto w = wordsFrom(wake, 0);
    ASSERT_EQ(w.size(), 6u + 4 + 4 + 88);
    EXPECT_EQ(w[0], 0x04040150u);
    EXPECT_EQ(w[4], 0x002A0055u);
    EXPECT_EQ(w[6], 0x04020110u);
    EXPECT_EQ(w[7], 202u);
    EXPECT_EQ(w[10], 0x04010034u);
    EXPECT_EQ(w[11], 0x01000000u);
    EXPECT_EQ(w[13], 144u);
    for (size_t i = 14; i < w.size(); ++i) EXPECT_EQ(w[i], 0x8000u);

    CommandList standby;
    AppendMesaStandby(standby);
    EXPECT_EQ(wordsFrom(standby, 0),
              (std::vector<uint32_t>{0x04010034, 0, 0x04040150, 0x000FC019, 0x54000A20, 0x30181700, 0x002A0055,
                                     1, 0x04020110, 164, 164, 1, 0x04010034, 0x01000008, 1, 144}));
}

TEST(StatusBlockLayout, FieldsReadFromWireBytes) {
    uint8_t raw[8192] = {};
    const uint32_t magic = 0x31555834, tick = 0xFFFFFFF0;
    std::memcpy(raw, &magic, 4);
    std::memcpy(raw + 24, &tick, 4);
    raw[28] = 0x09;
    raw[29] = 7;
    raw[80] = 0x64;
    raw[128] = 0xFF;
    raw[129] = 0xFF;
    raw[2048 + 4 * 511] = 0x42;
    StatusBlock s;
    std::memcpy(&s, raw, sizeof s);
    EXPECT_EQ(s.magic, StatusBlock::kMagic);
    EXPECT_EQ(s.runningTick, tick);
    EXPECT_EQ(s.flags & StatusBlock::kFlagJesdUnsynced, StatusBlock::kFlagJesdUnsynced);
    EXPECT_EQ(s.lossCounter, 7);
    EXPECT_EQ(s.tempCal, 0x64);
    EXPECT_EQ(s.sfpTemperature, 0xFFFF);
    EXPECT_EQ(s.triggerRing[511], 0x42u);
}

}  // namespace
}  // namespace zr
