// The instrument model's word decoder and reply FIFO, driven with raw blocks.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "instrument.h"
#include "support/watchdog.h"

namespace zr::sim {
namespace {

using test::Watchdog;

// Raw 2048-byte blocks: the given words, then pad.
std::vector<uint8_t> block(std::initializer_list<uint32_t> words) {
    std::vector<uint8_t> b(2048);
    for (size_t o = 0; o < 2048; o += 4) {
        uint32_t pad = 1;
        std::memcpy(b.data() + o, &pad, 4);
    }
    size_t i = 0;
    for (uint32_t w : words) std::memcpy(b.data() + 4 * i++, &w, 4);
    return b;
}

// A block whose last word is `last` (and the rest pad).
std::vector<uint8_t> blockEndingWith(uint32_t last) {
    auto b = block({});
    std::memcpy(b.data() + 2044, &last, 4);
    return b;
}

uint32_t word(const std::vector<uint8_t>& buf, size_t index) {
    uint32_t w;
    std::memcpy(&w, buf.data() + 4 * index, 4);
    return w;
}

TEST(SimDecoder, RegisterPayloadContinuesAcrossBlocks) {
    Instrument inst(zrDeviceTypeMesa2, 10000001);
    ASSERT_TRUE(inst.writeBlock(blockEndingWith(0x04030100).data()));
    // The payload words look like reply words; they must land in registers.
    ASSERT_TRUE(inst.writeBlock(block({0x24000000, 0x23000000, 0x04010005, 0x04010002, 77}).data()));
    EXPECT_EQ(inst.reg(0x100), 0x24000000u);
    EXPECT_EQ(inst.reg(0x101), 0x23000000u);
    EXPECT_EQ(inst.reg(0x102), 0x04010005u);
    EXPECT_EQ(inst.reg(0x002), 77u);
    EXPECT_EQ(inst.queuedReplies(), 0u);
    EXPECT_EQ(inst.unknownWords(), 0u);
}

TEST(SimDecoder, ListHeadIsSkippedAsSevenWordsEvenAcrossBlocks) {
    Instrument inst(zrDeviceTypeMesa2, 10000002);
    ASSERT_TRUE(inst.writeBlock(blockEndingWith(0xFF530000).data()));
    ASSERT_TRUE(inst.writeBlock(
        block({0x24000000, 0x24000000, 0x24000000, 0x24000000, 0x24000000, 0x24000000, 0x24000000}).data()));
    EXPECT_EQ(inst.queuedReplies(), 1u);  // only the seventh word is a command
}

TEST(SimDecoder, ServicePayloadsAreNotCommands) {
    Instrument inst(zrDeviceTypeMesa2, 10000003);
    std::vector<uint32_t> w(1 + 256, 0x24000000);
    w[0] = 0xFFFE0040;  // flash page 64, data full of status words
    auto b = block({});
    std::memcpy(b.data(), w.data(), w.size() * 4);
    ASSERT_TRUE(inst.writeBlock(b.data()));
    EXPECT_EQ(inst.queuedReplies(), 0u);
    std::vector<uint8_t> unload(2048);
    for (int i = 0; i < 128; ++i) unload[i] = static_cast<uint8_t>(i);
    const uint32_t u = 0xFFFA0000;
    std::memcpy(unload.data(), &u, 4);
    for (size_t o = 128; o < 2048; o += 4) unload[o] = 1;
    ASSERT_TRUE(inst.writeBlock(unload.data()));
    EXPECT_EQ(inst.unknownWords(), 0u);
    EXPECT_EQ(inst.queuedReplies(), 0u);
}

TEST(SimDecoder, FlashHasNorSemantics) {
    Watchdog dog;
    Instrument inst(zrDeviceTypeMesa2, 10000004);
    auto writePage = [&](uint16_t page, uint8_t fill) {
        std::vector<uint32_t> w(257);
        w[0] = 0xFFFE0000u | page;
        std::memset(w.data() + 1, fill, 1024);
        auto b = block({});
        std::memcpy(b.data(), w.data(), w.size() * 4);
        ASSERT_TRUE(inst.writeBlock(b.data()));
    };
    std::vector<uint8_t> out(32768);
    auto readAt = [&](uint16_t page) {
        ASSERT_TRUE(inst.writeBlock(block({0xFFFD0000u | page}).data()));
        ReadOutcome r = inst.read(out.data(), 32768, 1000);
        ASSERT_FALSE(r.failed);
        ASSERT_EQ(r.transferred, 32768u);
    };
    writePage(65, 0xF0);
    writePage(65, 0x3C);  // programming only clears bits
    writePage(90, 0x00);
    readAt(64);
    EXPECT_EQ(out[0], 0xFF);       // page 64 never written
    EXPECT_EQ(out[1024], 0x30);    // page 65
    EXPECT_EQ(out[2047], 0x30);
    EXPECT_EQ(out[2048], 0xFF);
    EXPECT_EQ(out[26 * 1024], 0x00);  // page 90 is in the same 32 KiB window
    ASSERT_TRUE(inst.writeBlock(block({0xFFFC0041}).data()));  // erases the sector 64..127
    readAt(64);
    for (uint8_t b : out) ASSERT_EQ(b, 0xFF);
}

TEST(SimDecoder, UnknownWordsAreCountedAndCanBeFatal) {
    Instrument inst(zrDeviceTypeMesa1, 10000005);
    ASSERT_TRUE(inst.writeBlock(block({0x77000000, 0xFFAA0000, 0x13000000}).data()));
    EXPECT_EQ(inst.unknownWords(), 3u);  // 0x13 with decimation 0 is not a start
    inst.setStrictWords(true);
    EXPECT_FALSE(inst.writeBlock(block({0x99000000}).data()));
    EXPECT_TRUE(inst.writeBlock(block({0x04010034, 0}).data()));
}

TEST(SimDecoder, EveryReplyWordQueuesOneReply) {
    Instrument inst(zrDeviceTypeMesa2, 10000006);
    ASSERT_TRUE(inst.writeBlock(block({0x20030000, 0x21000000, 0x22050000, 0x23000000, 0x24000000, 0x25010000,
                                       0x26000000, 0x2E000000, 0x2F000000, 0x10000000, 0x11020000, 0x16000010,
                                       0x50000004, 0x51000000})
                                    .data()));
    EXPECT_EQ(inst.queuedReplies(), 9u);
    EXPECT_EQ(inst.unknownWords(), 0u);
    EXPECT_EQ(inst.pauseWords(), 512u - 14u);
}

TEST(SimReplies, ReadTakesWholeRepliesInOrderAndTimesOutWithoutConsuming) {
    Watchdog dog;
    Instrument inst(zrDeviceTypeMesa2, 10000007);
    std::vector<uint8_t> out(32768);
    ASSERT_TRUE(inst.writeBlock(block({0xFFFF0000, 0x24000000}).data()));  // 4 + 1 replies
    ReadOutcome r = inst.read(out.data(), 32768, 1000);
    ASSERT_FALSE(r.failed);
    EXPECT_EQ(word(out, 0), 2u);  // boot version
    r = inst.read(out.data(), 16384, 30);
    EXPECT_TRUE(r.failed);  // one reply is not two
    EXPECT_EQ(inst.queuedReplies(), 1u);
    ASSERT_TRUE(inst.writeBlock(block({0x24000000}).data()));
    r = inst.read(out.data(), 16384, 1000);
    ASSERT_FALSE(r.failed);
    EXPECT_EQ(word(out, 0), Instrument::kMagic);
    EXPECT_EQ(word(out, 2048), Instrument::kMagic);
}

TEST(SimReplies, ReadPostedBeforeTheWordsCompletesWhenTheyArrive) {
    Watchdog dog;
    Instrument inst(zrDeviceTypeMesa2, 10000008);
    std::vector<uint8_t> a(8192), b(8192);
    ReadRequest ra, rb;
    inst.postRead(ra, a.data(), 8192, 2000);
    inst.postRead(rb, b.data(), 8192, 2000);
    ASSERT_TRUE(inst.writeBlock(block({0xFFF90000}).data()));  // poll of 4 replies; first word 0
    // The reads complete in posting order: a got the first reply.
    ReadOutcome ob = inst.waitRead(rb);
    ReadOutcome oa = inst.waitRead(ra);
    ASSERT_FALSE(oa.failed);
    ASSERT_FALSE(ob.failed);
    EXPECT_EQ(inst.queuedReplies(), 2u);
}

TEST(SimReplies, FullFifoStallsTheWriterUntilItTimesOut) {
    Watchdog dog;
    Instrument inst(zrDeviceTypeMesa2, 10000009);
    std::vector<uint32_t> words(500, 0x24000000);
    auto b = block({});
    std::memcpy(b.data(), words.data(), words.size() * 4);
    EXPECT_FALSE(inst.writeBlock(b.data(), 50));
    EXPECT_EQ(inst.queuedReplies(), Instrument::kFifoReplies);
    // Reading frees space, and the next block goes through again.
    std::vector<uint8_t> out(1 << 20);
    ASSERT_FALSE(inst.read(out.data(), 1 << 20, 1000).failed);
    EXPECT_TRUE(inst.writeBlock(block({0x24000000}).data(), 50));
}

}  // namespace
}  // namespace zr::sim
