#include <gtest/gtest.h>

#include <cstring>

#include "scripted_transport.h"
#include "transport/command_list.h"
#include "transport/wait.h"

namespace zr {
namespace {

using test::ScriptedRead;
using test::ScriptedTransport;

// The fixed protocol waits add up to minutes here; none of these tests is
// about them.
class Protocol : public ::testing::Test {
protected:
    void SetUp() override { setProtocolWaitScale(0.0); }
    void TearDown() override { setProtocolWaitScale(1.0); }
    ScriptedTransport t;
};

TEST_F(Protocol, SendCommandListWritesEveryBlockInOrder) {
    CommandList list;
    for (int i = 0; i < 1200; ++i) list.AppendWord(0x00100000u + i);
    ASSERT_EQ(list.blockCount(), 3u);
    EXPECT_TRUE(SendCommandList(t, list));
    ASSERT_EQ(t.written.size(), 3u);
    for (size_t b = 0; b < 3; ++b)
        EXPECT_EQ(std::memcmp(t.written[b].data(), list.data() + 2048 * b, 2048), 0);
    EXPECT_EQ(t.status, zrNoError);
}

TEST_F(Protocol, SendCommandListStopsAtFirstBadBlock) {
    CommandList list;
    for (int i = 0; i < 2000; ++i) list.AppendWord(1);
    ASSERT_EQ(list.blockCount(), 4u);
    t.failWriteAt = 1;
    EXPECT_FALSE(SendCommandList(t, list));
    EXPECT_EQ(t.written.size(), 2u);
    EXPECT_EQ(t.status, zrConnectionLostErr);
}

TEST_F(Protocol, ReadStatusBlockPostsReadThenSendsHeadAndFourStatusWords) {
    t.reads.push_back({false, 0, 0x31555834});
    uint8_t buf[8192];
    ASSERT_TRUE(ReadStatusBlock(t, buf));
    uint32_t magic;
    std::memcpy(&magic, buf, 4);
    EXPECT_EQ(magic, 0x31555834u);
    ASSERT_EQ(t.written.size(), 1u);
    EXPECT_EQ(t.writtenWord(0, 0), 0xFF530000u);
    for (int i = 7; i < 11; ++i) EXPECT_EQ(t.writtenWord(0, i), 0x24000000u);
    EXPECT_EQ(t.writtenWord(0, 11), 1u);
    EXPECT_EQ(t.readTimeouts, std::vector<int>{2000});
}

TEST_F(Protocol, ReadStatusBlockShortReplyIsNotGood) {
    t.reads.push_back({false, 1, 0x31555834});
    uint8_t buf[8192];
    EXPECT_FALSE(ReadStatusBlock(t, buf));
    EXPECT_EQ(t.status, zrConnectionLostErr);
}

TEST_F(Protocol, TestConnectionSucceedsOnSixteenthTryAndClearsStatus) {
    t.status = zrConnectionLostErr;
    t.reads.push_back({false, 0, 5});  // stale reply, drained
    t.reads.push_back({true});         // drain ends
    for (int i = 0; i < 15; ++i) t.reads.push_back({true});
    t.reads.push_back({false, 0, 0x31555834});
    EXPECT_TRUE(TestConnection(t));
    EXPECT_EQ(t.status, zrNoError);
    EXPECT_EQ(t.written.size(), 16u);
    EXPECT_EQ(t.writtenWord(0, 0), 0x24000000u);
    EXPECT_EQ(t.writtenWord(0, 1), 1u);
    for (int ms : t.readTimeouts) EXPECT_EQ(ms, 100);
}

TEST_F(Protocol, TestConnectionGivesUpAfterSixteenSilentTries) {
    EXPECT_FALSE(TestConnection(t));
    EXPECT_EQ(t.written.size(), 16u);
    EXPECT_EQ(t.beginReads, 17);  // one drain read, then one per try
}

TEST_F(Protocol, TestConnectionEndsAtBadWrite) {
    t.failWriteAt = 2;
    EXPECT_FALSE(TestConnection(t));
    EXPECT_EQ(t.written.size(), 3u);
    EXPECT_EQ(t.status, zrConnectionLostErr);
}

TEST_F(Protocol, StartFPGAOutcomes) {
    {
        ScriptedTransport s;
        s.reads.push_back({false, 0, 0});
        EXPECT_EQ(StartFPGA(s), zrFPGABootErr);
        EXPECT_EQ(s.writtenWord(0, 0), 0xFFFB4000u);
    }
    {
        ScriptedTransport s;
        for (int i = 0; i < 5; ++i) s.reads.push_back({true});
        s.reads.push_back({false, 0, 1});
        EXPECT_EQ(StartFPGA(s), zrNoError);
        EXPECT_EQ(s.finishReads, 6);
    }
    {
        ScriptedTransport s;
        EXPECT_EQ(StartFPGA(s), zrNoError);
        EXPECT_EQ(s.finishReads, 40);
    }
    {
        ScriptedTransport s;
        s.failWriteAt = 0;
        EXPECT_EQ(StartFPGA(s), zrConnectionLostErr);
        EXPECT_EQ(s.beginReads, 0);
    }
}

TEST_F(Protocol, FlashHelpers) {
    uint8_t page[1024];
    for (int i = 0; i < 1024; ++i) page[i] = static_cast<uint8_t>(255 - i);
    EXPECT_EQ(WriteFlashPage(t, 0x0102, page), zrNoError);
    EXPECT_EQ(t.writtenWord(0, 0), 0xFFFE0102u);
    EXPECT_EQ(std::memcmp(t.written[0].data() + 4, page, 1024), 0);

    t.reads.push_back({false, 0, 0xCAFEF00D});
    uint8_t out[32768];
    EXPECT_EQ(ReadFlashBlock(t, 7, out), zrNoError);
    EXPECT_EQ(t.writtenWord(1, 0), 0xFFFD0007u);
    uint32_t first;
    std::memcpy(&first, out, 4);
    EXPECT_EQ(first, 0xCAFEF00Du);

    // Erase polls while busy, stops when bit 0 clears.
    ScriptedTransport e;
    e.reads.push_back({false, 0, 1});
    e.reads.push_back({false, 0, 3});
    e.reads.push_back({false, 0, 2});
    e.reads.push_back({false, 0, 1});
    EXPECT_EQ(EraseFlashPage(e, 64, 2), zrNoError);
    EXPECT_EQ(e.writtenWord(0, 0), 0xFFFC0040u);
    EXPECT_EQ(e.writtenWord(1, 0), 0xFFF90000u);
    EXPECT_EQ(e.finishReads, 3);
    EXPECT_EQ(e.reads.size(), 1u);

    ScriptedTransport old;
    EXPECT_EQ(EraseFlashPage(old, 1, 1), zrNoError);
    EXPECT_EQ(old.written.size(), 1u);
    EXPECT_EQ(old.beginReads, 0);

    ScriptedTransport lost;  // a read that fails ends the polling with the status it left
    EXPECT_EQ(EraseFlashPage(lost, 1, 2), zrConnectionLostErr);
    EXPECT_EQ(lost.finishReads, 1);
}

TEST_F(Protocol, BootVersionRetriesOnceAndUnloadSendsItsBlock) {
    t.reads.push_back({true});
    t.reads.push_back({false, 0, 2});
    uint32_t version = 0;
    ReadBootVersion(t, &version);
    EXPECT_EQ(version, 2u);
    EXPECT_EQ(t.finishReads, 2);
    EXPECT_EQ(t.writtenWord(0, 0), 0xFFFF0000u);

    ScriptedTransport u;
    UnloadFx3Program(u);
    ASSERT_EQ(u.written.size(), 1u);
    EXPECT_EQ(u.writtenWord(0, 0), 0xFFFA0000u);
    EXPECT_EQ(u.writtenWord(0, 1), 0x07060504u);
    EXPECT_EQ(u.writtenWord(0, 32), 1u);  // pad after the 128 bytes
}

TEST(ProtocolWait, ScaleIsProcessWideAndRejectsNonsense) {
    setProtocolWaitScale(0.25);
    const double base = protocolWaitScale();
    setProtocolWaitScale(-1.0);
    EXPECT_EQ(protocolWaitScale(), base);
    setProtocolWaitScale(0.5);
    EXPECT_DOUBLE_EQ(protocolWaitScale(), base * 2.0);
    setProtocolWaitScale(1.0);
}

}  // namespace
}  // namespace zr
