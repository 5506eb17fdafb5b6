// The sample queue between a stream's thread and its reader: wrap-around,
// overflow, the trigger FIFO, the format conversions and the time of the
// oldest sample.
#include <gtest/gtest.h>

#include <complex>
#include <cstdint>
#include <vector>

#include "iq/iq_sample_queue.h"

namespace zr {
namespace {

using cf = std::complex<float>;

// A queue of 10 samples (20 S/s, half a second); a sample lasts kNs.
constexpr int64_t kNs = 50000000;
struct SmallQueue {
    ByteStorage storage;
    IQSampleQueue q{storage, IQSampleQueue::kFloat, 20.0};

    void store(int first, int n, std::vector<double> triggers, int64_t time) {
        std::vector<cf> s(static_cast<size_t>(n));
        for (int i = 0; i < n; ++i) s[size_t(i)] = cf(float(first + i), -float(first + i));
        q.store(s.data(), uint64_t(n), triggers.data(), int(triggers.size()), time);
    }
    std::vector<cf> read(uint64_t wanted, std::vector<double>& triggers, int maxTriggers, int64_t& first) {
        std::vector<cf> out(wanted);
        triggers.assign(size_t(std::max(maxTriggers, 0)), -1.0);
        uint64_t got = 0;
        int n = 0;
        q.read(out.data(), wanted, got, triggers.data(), maxTriggers, n, first, zrDataType32fc);
        out.resize(got);
        triggers.resize(size_t(n));
        return out;
    }
};

TEST(IQQueue, WrapsTimesAndTriggersThroughTheRing) {
    SmallQueue s;
    EXPECT_EQ(s.q.capacitySamples(), 10u);
    s.store(0, 6, {0.0, 2.5}, 1000);
    std::vector<double> tr;
    int64_t t = 0;
    // A read takes what is there, triggers inside its span, the oldest time.
    auto a = s.read(4, tr, 8, t);
    ASSERT_EQ(a.size(), 4u);
    EXPECT_EQ(a[3], cf(3, -3));
    EXPECT_EQ(tr, (std::vector<double>{0.0, 2.5}));
    EXPECT_EQ(t, 1000);
    // The next store wraps (write offset 6, 7 samples): its time sets the
    // time of the two older samples still held.
    s.store(6, 7, {1.25}, 2000);
    EXPECT_EQ(s.q.count(), 9u);
    a = s.read(6, tr, 8, t);
    EXPECT_EQ(t, 2000 - 2 * kNs);
    ASSERT_EQ(a.size(), 6u);
    EXPECT_EQ(a[5], cf(9, -9));   // across the ring's end
    EXPECT_EQ(tr, (std::vector<double>{3.25}));
    // Reading exactly to the ring's end and beyond: contiguous samples.
    a = s.read(3, tr, 8, t);
    EXPECT_EQ(t, 2000 + 4 * kNs);
    EXPECT_EQ(a, (std::vector<cf>{cf(10, -10), cf(11, -11), cf(12, -12)}));
    EXPECT_FALSE(s.q.takeOverflowed());
}

TEST(IQQueue, FullRingDropsTheBacklogAndSaysSo) {
    SmallQueue s;
    s.store(0, 6, {5.0}, 0);
    // 6 + 4 reaches the capacity: the backlog goes, the new block stays.
    s.store(100, 4, {1.0}, 7000);
    EXPECT_EQ(s.q.count(), 4u);
    EXPECT_TRUE(s.q.takeOverflowed());
    EXPECT_FALSE(s.q.takeOverflowed());
    std::vector<double> tr;
    int64_t t = 0;
    auto a = s.read(10, tr, 4, t);
    EXPECT_EQ(a.front(), cf(100, -100));
    EXPECT_EQ(t, 7000);
    EXPECT_EQ(tr, (std::vector<double>{1.0}));
    // A gap upstream does the same; purge clears without the flag.
    s.store(0, 3, {}, 0);
    s.q.markGap();
    EXPECT_EQ(s.q.count(), 0u);
    EXPECT_TRUE(s.q.takeOverflowed());
    s.store(0, 3, {0.5}, 0);
    s.q.purge();
    EXPECT_EQ(s.q.count(), 0u);
    EXPECT_FALSE(s.q.takeOverflowed());
    s.store(7, 2, {}, 500);
    a = s.read(2, tr, 4, t);
    EXPECT_TRUE(tr.empty());  // the purged trigger is gone
    EXPECT_EQ(t, 500);
}

TEST(IQQueue, TriggersBeyondTheListAreDroppedOthersWait) {
    SmallQueue s;
    s.store(0, 8, {0.0, 1.0, 2.0, 3.0, 6.5}, 0);
    std::vector<double> tr;
    int64_t t = 0;
    s.read(4, tr, 2, t);  // room for two of the four in the span
    EXPECT_EQ(tr, (std::vector<double>{0.0, 1.0}));
    s.read(4, tr, 0, t);  // no list: the trigger in the span goes
    EXPECT_TRUE(tr.empty());
    s.store(8, 1, {0.0}, 0);
    s.read(1, tr, 4, t);
    EXPECT_EQ(tr, (std::vector<double>{0.0}));
}

TEST(IQQueue, ConvertsBetweenStoredAndAskedFormats) {
    const std::vector<float> values{0.5f, -0.5f, 1.5f, -1.5f, 0.25f / 32768.0f, 0.75f / 32768.0f, -0.5f / 32768.0f, 1.0f};
    ByteStorage storage;
    IQSampleQueue f(storage, IQSampleQueue::kFloat, 20.0);
    f.store(values.data(), 4, nullptr, 0, 0);
    int16_t out16[8];
    uint64_t got;
    int n;
    int64_t t;
    f.read(out16, 4, got, nullptr, 0, n, t, zrDataType16sc);
    // x 2^15, rounded half up, saturated.
    const int16_t expect16[8] = {16384, -16384, 32767, -32768, 0, 1, 0, 32767};
    EXPECT_EQ(std::vector<int16_t>(out16, out16 + 8), std::vector<int16_t>(expect16, expect16 + 8));

    ByteStorage storage16;
    IQSampleQueue i(storage16, IQSampleQueue::kInt16, 20.0);
    EXPECT_EQ(i.bytesPerSample(), 4u);
    i.store(expect16, 4, nullptr, 0, 0);
    i.store(expect16, 4, nullptr, 0, 0);
    float outF[8];
    i.read(outF, 4, got, nullptr, 0, n, t, zrDataType32fc);
    EXPECT_EQ(outF[0], 0.5f);
    EXPECT_EQ(outF[3], -1.0f);
    i.read(out16, 4, got, nullptr, 0, n, t, zrDataType16sc);
    EXPECT_EQ(out16[2], 32767);
}

}  // namespace
}  // namespace zr
