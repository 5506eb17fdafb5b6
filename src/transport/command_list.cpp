#include "transport/command_list.h"

#include <algorithm>
#include <cstring>

namespace zr {

namespace {
void fillPad(uint8_t* p, size_t bytes) {
    for (size_t i = 0; i + 4 <= bytes; i += 4) {
        const uint32_t pad = cmd::kPad;
        std::memcpy(p + i, &pad, 4);
    }
}
}  // namespace

void CommandList::Init() {
    buffer_.assign(kBlockSize, 0);
    fillPad(buffer_.data(), buffer_.size());
    writePos_ = 0;
    dataWordCounts_.assign(1, 0);
    statusWordCounts_.assign(1, 0);
}

void CommandList::NewBlock() {
    const size_t old = buffer_.size();
    writePos_ = static_cast<int32_t>(old);
    buffer_.resize(old + kBlockSize);
    fillPad(buffer_.data() + old, kBlockSize);
    dataWordCounts_.push_back(0);
    statusWordCounts_.push_back(0);
}

void CommandList::reserve(size_t n) {
    if (static_cast<size_t>(writePos_) + n > buffer_.size() - kTailReserve) NewBlock();
}

void CommandList::copyIn(const void* src, size_t n) {
    std::memcpy(buffer_.data() + writePos_, src, n);
    writePos_ += static_cast<int32_t>(n);
}

void CommandList::AppendWord(uint32_t word) {
    reserve(4);
    copyIn(&word, 4);
}

void CommandList::AppendWords(const uint32_t* words, size_t n) {
    const size_t bytes = n * 4;
    if (bytes > static_cast<size_t>(kBlockSize - kTailReserve)) {
        // Too long to keep whole in any block: it has to be split somewhere,
        // and word boundaries are the only places that stay decodable.
        for (size_t i = 0; i < n; ++i) AppendWord(words[i]);
        return;
    }
    reserve(bytes);
    copyIn(words, bytes);
}

void CommandList::AppendBytes(const void* bytes, size_t n) {
    n &= ~size_t{3};
    if (n > static_cast<size_t>(kBlockSize - kTailReserve)) {
        const auto* p = static_cast<const uint8_t*>(bytes);
        for (size_t i = 0; i < n; i += 4) {
            uint32_t w;
            std::memcpy(&w, p + i, 4);
            AppendWord(w);
        }
        return;
    }
    reserve(n);
    copyIn(bytes, n);
}

void CommandList::AppendRegister(uint32_t address, uint32_t value) {
    const uint32_t pair[2] = {cmd::registerWord(1, address), value};
    AppendWords(pair, 2);
}

void CommandList::afterReply() {
    if (replyLimit_ != 0 && dataWordCounts_.back() + statusWordCounts_.back() >= replyLimit_) NewBlock();
}

void CommandList::AppendDataWord() {
    AppendWord(cmd::kDataWord);
    ++dataWordCounts_.back();
    afterReply();
}

void CommandList::AppendStatusWord() {
    AppendWord(cmd::kStatusWord);
    ++statusWordCounts_.back();
    afterReply();
}

void CommandList::AppendCountedDataReply(uint32_t word) {
    AppendWord(word);
    ++dataWordCounts_.back();
    afterReply();
}

void CommandList::AppendListHead() {
    const uint32_t head[7] = {cmd::kListHead, 0, 0, 0, 0, 0, 0};
    AppendWords(head, 7);
}

uint32_t CommandList::wordAt(size_t byteOffset) const {
    uint32_t w = 0;
    if (byteOffset + 4 <= buffer_.size()) std::memcpy(&w, buffer_.data() + byteOffset, 4);
    return w;
}

// ---------------------------------------------------------------- builders

void AppendFlashWrite(CommandList& list, uint16_t page, const uint8_t* data1024) {
    uint8_t item[4 + 1024];
    const uint32_t word = cmd::kFlashWrite | page;
    std::memcpy(item, &word, 4);
    std::memcpy(item + 4, data1024, 1024);
    list.AppendBytes(item, sizeof item);
}

void AppendUnloadFx3(CommandList& list) {
    uint8_t item[128];
    for (int i = 0; i < 128; ++i) item[i] = static_cast<uint8_t>(i);
    const uint32_t word = cmd::kUnloadFx3;
    std::memcpy(item, &word, 4);
    list.AppendBytes(item, sizeof item);
}

void AppendIFFilter(CommandList& list, int band, int subBand, const float* taps126, bool ridge) {
    constexpr int kPairs = 63;
    int32_t a[kPairs], b[kPairs];
    // Range first, conversion after: a tap that is not finite or does not
    // fit its lane (calibration tables gone wrong) must never reach the
    // cast, and sends the pass-through filter instead.
    auto scale = [&](const float* taps) {
        for (int p = 0; p < kPairs; ++p) {
            const double x = taps[2 * p] * 131071.0, y = taps[2 * p + 1] * 131071.0;
            const bool wide = p >= 30 && p <= 32;
            const double lo = wide ? -131072.0 : -32768.0, hi = wide ? 131071.0 : 32767.0;
            if (!(x > lo - 1.0 && x < hi + 1.0 && y > lo - 1.0 && y < hi + 1.0)) return false;
            a[p] = static_cast<int32_t>(x);
            b[p] = static_cast<int32_t>(y);
        }
        return true;
    };
    if (!scale(taps126)) {
        float passThrough[2 * kPairs] = {};
        passThrough[62] = 1.0f;
        passThrough[63] = 1.0f;
        scale(passThrough);
    }

    uint32_t control = 0;
    if (band > 0) control |= 1u;
    if (ridge && (band == 4 || band == 5)) control |= 2u;
    if (band == 0) control |= 4u;
    if (band > 0 || subBand == 1) control |= 8u;
    auto top = [](int32_t v) { return (static_cast<uint32_t>(v) >> 16) & 3u; };
    const uint32_t wideBits = top(a[32]) << 10 | top(a[31]) << 8 | top(a[30]) << 6 | top(b[32]) << 4 |
                              top(b[31]) << 2 | top(b[30]);
    const uint32_t head[5] = {cmd::registerWord(4, reg::kIFFilter), control, wideBits, 0, 0};
    list.AppendWords(head, 5);

    uint16_t lanes[128] = {};
    for (int p = 0; p < kPairs; ++p) {
        lanes[p + 1] = static_cast<uint16_t>(a[p]);
        lanes[64 + p + 1] = static_cast<uint16_t>(b[p]);
    }
    uint32_t taps[65];
    taps[0] = cmd::registerWord(64, 0x0040);
    for (int r = 0; r < 64; ++r) taps[1 + r] = uint32_t{lanes[2 * r]} | uint32_t{lanes[2 * r + 1]} << 16;
    list.AppendWords(taps, 65);
}

void AppendGPIOSwitching(CommandList& list, bool enabled, const uint8_t* values, const uint32_t* durations,
                         uint32_t count) {
    if (!enabled || count == 0) return;
    count = std::min<uint32_t>(count, 64);
    uint32_t words[65];
    words[0] = cmd::registerWord(count, 0x0200);
    for (uint32_t i = 0; i < count; ++i) {
        words[1 + i] = uint32_t{values[i]} << 24 | 1u << 23 | (i + 1 == count ? 1u << 22 : 0u) |
                       (durations[i] & 0x3FFFFFu);
    }
    list.AppendWords(words, count + 1);
}

void AppendGPIOSwitchingClear(CommandList& list) {
    uint32_t words[65] = {};
    words[0] = cmd::registerWord(64, 0x0200);
    list.AppendWords(words, 65);
}

void AppendWindowTable(CommandList& list, const uint32_t* values, size_t count) {
    uint32_t run[65];
    for (size_t r = 0; (r + 1) * 64 <= count; ++r) {
        run[0] = cmd::registerWord(64, reg::kFftWindowTable + 64 * r);
        std::memcpy(run + 1, values + 64 * r, 64 * 4);
        list.AppendWords(run, 65);
    }
}

void AppendMaskTable(CommandList& list, const std::vector<int16_t>& values) {
    uint32_t run[33];
    for (size_t r = 0; (r + 1) * 32 <= values.size(); ++r) {
        run[0] = cmd::registerWord(32, 0x8000 + 32 * r);
        for (int i = 0; i < 32; ++i) run[1 + i] = static_cast<uint32_t>(static_cast<int32_t>(values[32 * r + i]));
        list.AppendWords(run, 33);
    }
}

void AppendLOBias(CommandList& list, float v, float c) {
    float x = v + 2.0f;
    x = x * 2.5f;
    x = x * 13107.0f;
    x = x + 1572864.0f;
    float y = c * 0.001f;
    y = y * 2430.0f;
    y = y / 220.0f;
    y = y * 13107.0f;
    y = y + 1769472.0f;
    const uint32_t words[4] = {cmd::registerWord(2, 0x0160), static_cast<uint32_t>(static_cast<int32_t>(x)),
                               static_cast<uint32_t>(static_cast<int32_t>(y)), cmd::kPad};
    list.AppendWords(words, 4);
}

void AppendLOReadback(CommandList& list) {
    static constexpr uint32_t steps[8][3] = {
        {0x0120, 13100, 16384}, {0x0130, 61184, 16384}, {0x0008, 0, 1},     {0x0130, 60928, 16384},
        {0x0008, 1, 16384},     {0x0120, 13164, 16384}, {0x0130, 60928, 16384}, {0x0008, 2, 1},
    };
    for (const auto& s : steps) {
        list.AppendRegister(s[0], s[1]);
        list.AppendWord(s[2]);
    }
}

void AppendStreamStart(CommandList& list, int decimation, uint64_t tuneValue, bool baseRate61M44) {
    const uint32_t code = static_cast<uint32_t>(decimation + 32 + (baseRate61M44 ? 16 : 0)) & 0xFFu;
    const uint32_t words[5] = {cmd::registerWord(1, 0x0022), static_cast<uint32_t>(tuneValue >> 32),
                               cmd::registerWord(1, 0x0023), static_cast<uint32_t>(tuneValue),
                               0x13000000u | code << 16 | static_cast<uint32_t>(tuneValue & 0xFFFF)};
    list.AppendWords(words, 5);
}

void AppendCapture(CommandList& list, uint32_t startPage, uint32_t pageCount, ZrTriggerType trigger,
                   uint32_t timeoutCount, uint32_t preTriggerPages, MemoryTest memoryTest) {
    uint32_t code = 0;
    switch (trigger) {
        case zrTriggerTypeImmediate: code = 0; break;
        case zrTriggerTypeVideo: code = 2; break;
        case zrTriggerTypeExternal: code = 1; break;
        case zrTriggerTypeFrequencyMask: code = 3; break;
    }
    const uint32_t count = (code == 0 || timeoutCount == 0) ? 0 : timeoutCount - 1;
    const uint32_t testBits = memoryTest == MemoryTest::CountingUp     ? 0x80000000u
                              : memoryTest == MemoryTest::CountingDown ? 0xC0000000u
                                                                       : 0u;
    const uint32_t length = (pageCount - 1) | testBits;
    if (memoryTest != MemoryTest::None) list.AppendRegister(reg::kCaptureLength, length | 0x20000000u);
    list.AppendRegister(reg::kCaptureLength, length);
    list.AppendRegister(reg::kCaptureControl, code << 30 | (count & 0x3FFFFu));
    list.AppendRegister(reg::kCapturePreTrigger, preTriggerPages);
    list.AppendWord(0x17000000u | (startPage & 0xFFFFFFu));
}

int decimationTapCount(int stage) {
    switch (stage) {
        case 1: return 189;
        case 2: return 79;
        default: return 159;
    }
}

void AppendDecimationTaps(CommandList& list, int stage, const double* taps) {
    const int n = decimationTapCount(stage);
    const double scale = stage == 1 ? 0x80000 : 0x40000;
    const uint32_t address = stage == 1 ? 0x0478 : stage == 2 ? 0x0578 : stage == 3 ? 0x0678 : 0x0778;
    double sum = 0.0;
    for (int i = 0; i < n; ++i) sum += taps[i];
    const double norm = 1.0 / sum;
    const int half = (n + 1) / 2;
    uint32_t words[1 + 8 + 95] = {};
    words[0] = cmd::registerWord(static_cast<uint32_t>(8 + half), address);
    for (int i = 0; i < half; ++i) {
        words[1 + 8 + i] = static_cast<uint32_t>(static_cast<int32_t>(taps[i] * norm * scale));
    }
    list.AppendWords(words, static_cast<size_t>(1 + 8 + half));
}

void AppendNetworkFlush(CommandList& list) {
    const uint32_t words[3] = {cmd::kNetworkFlush, 1, 0x4000};
    list.AppendWords(words, 3);
}

// ------------------------------------------------------- wake and standby

void AppendMesaWake(CommandList& list) {
    const uint32_t ports[6] = {cmd::registerWord(4, 0x0150), 0x000F4219, 0x54000A20, 0x30123700, 0x002A0055,
                               cmd::kPad};
    list.AppendWords(ports, 6);
    const uint32_t dacs[4] = {cmd::registerWord(2, 0x0110), 202, 202, cmd::kPad};
    list.AppendWords(dacs, 4);
    list.AppendRegister(reg::kFftControl, 0x01000000);
    list.AppendWord(cmd::kPad);
    list.AppendWord(144);
    for (int i = 0; i < 88; ++i) list.AppendWord(0x8000);
}

void AppendMesaStandby(CommandList& list) {
    list.AppendRegister(reg::kFftControl, 0);
    const uint32_t ports[6] = {cmd::registerWord(4, 0x0150), 0x000FC019, 0x54000A20, 0x30181700, 0x002A0055,
                               cmd::kPad};
    list.AppendWords(ports, 6);
    const uint32_t dacs[4] = {cmd::registerWord(2, 0x0110), 164, 164, cmd::kPad};
    list.AppendWords(dacs, 4);
    list.AppendRegister(reg::kFftControl, 0x01000008);
    list.AppendWord(cmd::kPad);
    list.AppendWord(144);
}

}  // namespace zr
