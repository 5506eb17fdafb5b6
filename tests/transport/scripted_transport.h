#pragma once
// A transport that answers from a script: it records every written block and
// finishes each read with the next scripted outcome (silence once the script
// runs out). Counts of each operation let tests check what was not sent.
#include <cstring>
#include <deque>
#include <vector>

#include "transport/device_interface.h"

namespace zr::test {

struct ScriptedRead {
    bool failed = false;
    int shortBy = 0;          // bytes missing from the requested length
    uint32_t firstWord = 0;   // the rest of the reply is zero
};

class ScriptedTransport : public DeviceInterface {
public:
    std::vector<std::vector<uint8_t>> written;
    std::deque<ScriptedRead> reads;
    int failWriteAt = -1;  // index of the write that fails
    int beginReads = 0;
    int finishReads = 0;
    std::vector<int> readTimeouts;

    ScriptedTransport() : reply_(1 << 20, 0) { connected = 1; }
    ZrDeviceType GetDeviceType() override { return zrDeviceTypeMesa2; }
    void Close() override { connected = 0; }
    bool Reset() override { return true; }
    void BeginWrite(int, const void* block) override {
        const auto* p = static_cast<const uint8_t*>(block);
        written.emplace_back(p, p + kWriteBlockSize);
    }
    TransferResult FinishWrite(int) override {
        TransferResult r;
        r.requested = kWriteBlockSize;
        const bool fail = static_cast<int>(written.size()) - 1 == failWriteAt;
        r.failed = fail ? 1 : 0;
        r.transferred = fail ? 0 : kWriteBlockSize;
        noteResult(r);
        return r;
    }
    void BeginRead(int, int size, int timeoutMs) override {
        ++beginReads;
        pending_ = size;
        readTimeouts.push_back(timeoutMs);
    }
    TransferResult FinishRead(int) override {
        ++finishReads;
        TransferResult r;
        r.requested = static_cast<uint32_t>(pending_);
        if (reads.empty()) {
            r.failed = 1;
        } else {
            ScriptedRead s = reads.front();
            reads.pop_front();
            r.failed = s.failed ? 1 : 0;
            if (!s.failed) {
                std::memset(reply_.data(), 0, static_cast<size_t>(pending_));
                std::memcpy(reply_.data(), &s.firstWord, 4);
                r.transferred = static_cast<uint32_t>(pending_ - s.shortBy);
                r.data = reply_.data();
            }
        }
        noteResult(r);
        return r;
    }

    uint32_t writtenWord(size_t block, size_t index) const {
        uint32_t w;
        std::memcpy(&w, written.at(block).data() + 4 * index, 4);
        return w;
    }

private:
    std::vector<uint8_t> reply_;
    int pending_ = 0;
};

}  // namespace zr::test
