// The instrument's two bulk endpoints: OUT takes 2048-byte command blocks
// and runs their words; IN serves posted reads from the bounded reply FIFO,
// rendering each reply (data, status, FFT, flash, poll words) as it leaves.
#include "instrument.h"

#include "fft_sweep.h"
#include "instrument_detail.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <limits>
#include <string>

namespace zr::sim {

using namespace detail;

// ------------------------------------------------------------------ OUT

bool Instrument::writeBlock(const uint8_t* block, int timeoutMs) {
    std::unique_lock lock(mu_);
    if (detached_) return false;
    if (failNextWrite_) {
        failNextWrite_ = false;
        return false;
    }
    if (hungReads_ > 0) return true;  // taken by the controller, never run
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    for (int i = 0; i < kBlockBytes / 4; ++i) {
        uint32_t w;
        std::memcpy(&w, block + 4 * i, 4);
        if (!decodeWord(w, lock, deadline)) return false;
    }
    return true;
}

void Instrument::pushPoll(ReplyKind kind, uint32_t arg, std::unique_lock<std::mutex>& lock,
                          std::chrono::steady_clock::time_point deadline, bool& ok) {
    ok = pushReply(Reply{kind, 0, arg, 0, 0, 0}, lock, deadline);
    for (uint8_t p = 1; p < 4 && ok; ++p) ok = pushReply(Reply{ReplyKind::Zero, p, 0, 0, 0, 0}, lock, deadline);
}

bool Instrument::pushReply(Reply r, std::unique_lock<std::mutex>& lock,
                           std::chrono::steady_clock::time_point deadline) {
    for (;;) {
        if (detached_) return false;
        pump();
        if (fifoCount_ < kFifoReplies) break;
        // The FIFO is full: the OUT endpoint stalls until the host reads.
        const int64_t ready = headReadyNs();
        auto wake = deadline;
        if (ready != kNever) wake = std::min(wake, epoch_ + std::chrono::nanoseconds(ready));
        if (std::chrono::steady_clock::now() >= deadline) return false;
        cv_.wait_until(lock, wake);
    }
    const int64_t now = nowNs();
    r.readyNs = std::max({r.readyNs, now, lastReadyNs_});
    lastReadyNs_ = r.readyNs;
    if (r.kind == ReplyKind::Status) {
        r.statusTick = paced_ ? pacedTick(r.readyNs) : virtualTick_;
        r.runningTick = streaming_ || blocksProduced_ > 0 ? runningTickLocked() : r.statusTick;
    }
    const size_t slot = (fifoHead_ + fifoCount_) % kFifoReplies;
    // Samples are taken when the word is executed, under the tune then in
    // force; a list that retunes before the host reads must not move them.
    if (r.kind == ReplyKind::Data && r.arg != 0) generateLocked(sampleSlots_.data() + slot * 2 * kSamplesPerBlock);
    fifo_[slot] = r;
    ++fifoCount_;
    pump();
    cv_.notify_all();
    return true;
}

// ------------------------------------------------------------------- IN

int64_t Instrument::headReadyNs() const {
    if (readHead_ == nullptr) return kNever;
    if (readHead_->stalled) return kNever;
    if (fifoCount_ < readHead_->needed || readHead_->needed == 0) return kNever;
    return fifo_[(fifoHead_ + readHead_->needed - 1) % kFifoReplies].readyNs;
}

void Instrument::pump() {
    const int64_t now = nowNs();
    const auto clock = std::chrono::steady_clock::now();
    while (readHead_ != nullptr) {
        ReadRequest* r = readHead_;
        if (clock >= r->deadline) {
            // Nobody finished it in time: the endpoint gives up on it.
            if (hungReads_ > 0) --hungReads_;
            r->failed = true;
            r->done = true;
            readHead_ = r->next;
            if (readHead_ == nullptr) readTail_ = nullptr;
            cv_.notify_all();
            continue;
        }
        if (r->stalled || hungReads_ > 0) break;
        if (fifoCount_ < r->needed) break;
        if (r->needed > 0 && fifo_[(fifoHead_ + r->needed - 1) % kFifoReplies].readyNs > now) break;
        for (uint32_t i = 0; i < r->needed; ++i) {
            const uint32_t off = i * kReplyBytes;
            render(fifo_[fifoHead_], r->dst + off, std::min<uint32_t>(kReplyBytes, r->size - off));
            fifoHead_ = (fifoHead_ + 1) % kFifoReplies;
            --fifoCount_;
        }
        // Status faults last a number of reads, whatever number of status
        // blocks each read carries.
        if (statusInRead_) {
            if (badMagic_ > 0) --badMagic_;
            if (jesd_ > 0) --jesd_;
            if (overloadReads_ > 0) --overloadReads_;
            statusInRead_ = false;
        }
        r->transferred = r->shortByOne && r->size > 0 ? r->size - 1 : r->size;
        r->failed = false;
        r->done = true;
        readHead_ = r->next;
        if (readHead_ == nullptr) readTail_ = nullptr;
        cv_.notify_all();
    }
}

void Instrument::postRead(ReadRequest& r, uint8_t* dst, uint32_t size, int timeoutMs) {
    std::lock_guard lock(mu_);
    r.dst = dst;
    r.size = size;
    r.needed = (size + kReplyBytes - 1) / kReplyBytes;
    r.done = false;
    r.failed = false;
    r.transferred = 0;
    r.next = nullptr;
    r.deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(std::max(timeoutMs, 0));
    r.stalled = timeOutNextRead_;
    timeOutNextRead_ = false;
    r.shortByOne = shortNextRead_;
    shortNextRead_ = false;
    if (detached_) {
        r.failed = true;
        r.done = true;
        return;
    }
    if (readTail_ != nullptr) readTail_->next = &r;
    else readHead_ = &r;
    readTail_ = &r;
    pump();
    cv_.notify_all();
}

void Instrument::withdrawLocked(ReadRequest& r) {
    // A withdrawn read took nothing from the FIFO.
    ReadRequest** link = &readHead_;
    ReadRequest* prev = nullptr;
    while (*link != nullptr && *link != &r) {
        prev = *link;
        link = &(*link)->next;
    }
    if (*link == &r) {
        *link = r.next;
        if (readTail_ == &r) readTail_ = prev;
        if (hungReads_ > 0) --hungReads_;
    }
    r.next = nullptr;
    r.done = true;
    r.failed = true;
    cv_.notify_all();
}

void Instrument::cancelRead(ReadRequest& r) {
    std::lock_guard lock(mu_);
    if (!r.done) withdrawLocked(r);
}

ReadOutcome Instrument::waitRead(ReadRequest& r) {
    std::unique_lock lock(mu_);
    for (;;) {
        if (!r.done) pump();
        if (r.done) return {r.failed, r.failed ? 0u : r.transferred};
        const auto now = std::chrono::steady_clock::now();
        if (now >= r.deadline) {
            withdrawLocked(r);
            return {true, 0};
        }
        auto wake = r.deadline;
        const int64_t ready = headReadyNs();
        if (ready != kNever) wake = std::min(wake, epoch_ + std::chrono::nanoseconds(ready));
        if (readHead_ != nullptr && readHead_ != &r) wake = std::min(wake, readHead_->deadline);
        cv_.wait_until(lock, wake);
    }
}

bool Instrument::waitReadUntil(ReadRequest& r, std::chrono::steady_clock::time_point until) {
    std::unique_lock lock(mu_);
    for (;;) {
        if (!r.done) pump();
        if (r.done) return true;
        const auto now = std::chrono::steady_clock::now();
        if (now >= until) return false;
        auto wake = until;
        const int64_t ready = headReadyNs();
        if (ready != kNever) wake = std::min(wake, epoch_ + std::chrono::nanoseconds(ready));
        if (readHead_ != nullptr && readHead_ != &r) wake = std::min(wake, readHead_->deadline);
        cv_.wait_until(lock, wake);
    }
}

ReadOutcome Instrument::read(uint8_t* dst, uint32_t size, int timeoutMs) {
    ReadRequest r;
    postRead(r, dst, size, timeoutMs);
    return waitRead(r);
}

void Instrument::failAllLocked() {
    for (ReadRequest* r = readHead_; r != nullptr;) {
        ReadRequest* next = r->next;
        r->failed = true;
        r->done = true;
        r->next = nullptr;
        r = next;
    }
    readHead_ = readTail_ = nullptr;
    fifoHead_ = fifoCount_ = 0;
    cv_.notify_all();
}

// --------------------------------------------------------------- render

void Instrument::render(const Reply& r, uint8_t* dst, uint32_t bytes) {
    switch (r.kind) {
        case ReplyKind::Data:
            ++dataBlocksSent_;
            if (r.arg != 0) {
                const size_t slot = static_cast<size_t>(&r - fifo_.data());
                std::memcpy(dst, sampleSlots_.data() + slot * 2 * kSamplesPerBlock, bytes);
            } else {
                std::memset(dst, 0, bytes);
            }
            return;
        case ReplyKind::Status:
            if (bytes == kReplyBytes) {
                renderStatus(r, dst);
            } else {
                uint8_t tmp[kReplyBytes];
                renderStatus(r, tmp);
                std::memcpy(dst, tmp, bytes);
            }
            return;
        case ReplyKind::Zero:
            std::memset(dst, 0, bytes);
            return;
        case ReplyKind::Fft:
            fft_->render(r.arg, r.part, dst, bytes);
            return;
        case ReplyKind::Word:
            std::memset(dst, 0, bytes);
            if (bytes >= 4) put32(dst, 0, r.arg);
            return;
        case ReplyKind::Flash:
            for (uint32_t o = 0; o < bytes; o += 1024) {
                const uint32_t page = r.arg + r.part * 8u + o / 1024;
                const uint32_t n = std::min<uint32_t>(1024, bytes - o);
                auto it = flash_.find(page);
                if (it == flash_.end()) std::memset(dst + o, 0xFF, n);
                else std::memcpy(dst + o, it->second.data(), n);
            }
            return;
    }
}

void Instrument::renderStatus(const Reply& r, uint8_t* p) {
    std::memset(p, 0, kReplyBytes);
    uint32_t magic = kMagic;
    statusInRead_ = true;
    if (badMagic_ > 0) magic = 0x0BADF00D;
    put32(p, 0, magic);
    put32(p, 4, fwRevision_);
    put32(p, 8, static_cast<uint32_t>(r.statusTick));
    advanceTriggerRingLocked(r.statusTick);
    renderTriggerRing(p);

    put32(p, 24, static_cast<uint32_t>(r.runningTick));
    uint8_t flags = 0;
    if (adcOverload_ || overloadReads_ > 0 || clippedSinceStatus_) flags |= 0x01;
    clippedSinceStatus_ = false;
    if (pendingLoss_ > 0) {
        flags |= 0x04;
        lossCounter_ = static_cast<uint8_t>(lossCounter_ + pendingLoss_);
        pendingLoss_ = 0;
    }
    if (jesd_ > 0) flags |= 0x08;
    if (ppsValid_ || (gpsLocked_ && !gpsSilent_)) flags |= 0x10;
    p[28] = flags;
    p[29] = lossCounter_;
    renderGps(r, p);
    put32(p, 36, 0x00A5A5A5);
    put16(p, 40, static_cast<uint16_t>(static_cast<int>((celsius_ + 265.0f) * 1024.0f) / 693));
    p[44] = gpioInput_;
    put16(p, 64, 1091);  // 12.0 V
    put16(p, 66, 180);
    put16(p, 68, 450);
    put16(p, 70, 600);
    put16(p, 72, fwMinor_);
    put16(p, 74, fwMajor_);
    put16(p, 76, sensorCode(celsius_ + 2.0f));
    put16(p, 80, sensorCode(celsius_));
    put16(p, 82, sensorCode(celsius_ - 1.5f));
    put16(p, 84, sensorCode(celsius_ + 0.75f));
    put16(p, 86, sensorCode(celsius_ + 4.0f));
    put16(p, 128, 0xFFFF);  // no SFP module on a USB instrument
}

}  // namespace zr::sim
