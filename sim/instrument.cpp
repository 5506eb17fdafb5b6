#include "instrument.h"

#include "fft_sweep.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>
#include <limits>

namespace zr::sim {

namespace {
constexpr double kTwoPi = 6.283185307179586;
constexpr size_t kNoiseTable = 1 << 16;
constexpr int64_t kNever = std::numeric_limits<int64_t>::max();

void put16(uint8_t* p, size_t off, uint16_t v) { std::memcpy(p + off, &v, 2); }
void put32(uint8_t* p, size_t off, uint32_t v) { std::memcpy(p + off, &v, 4); }

// The sensors report quarter degrees in a 10-bit field at bits 11..2, with
// bit 12 marking a value below zero (stored as 1024 less the magnitude).
uint16_t sensorCode(float celsius) {
    int q = static_cast<int>(std::lround(celsius * 4.0f));
    q = std::clamp(q, -1023, 1023);
    if (q >= 0) return static_cast<uint16_t>((q & 0x3FF) << 2);
    return static_cast<uint16_t>(1u << 12 | ((1024 + q) & 0x3FF) << 2);
}

uint64_t xorshift(uint64_t& s) {
    s ^= s << 13;
    s ^= s >> 7;
    s ^= s << 17;
    return s;
}
}  // namespace

Instrument::Instrument(ZrDeviceType type, int serial)
    : type_(type), serial_(serial), epoch_(std::chrono::steady_clock::now()), regs_(0x10000, 0),
      rf_(type == zrDeviceTypeRidge2 || type == zrDeviceTypeRidge3), fft_(std::make_unique<FftSweep>()) {
    utcSecondsAtTickZero_ = std::chrono::duration_cast<std::chrono::seconds>(
                                std::chrono::system_clock::now().time_since_epoch()).count();
    noiseRe_.resize(kNoiseTable);
    noiseIm_.resize(kNoiseTable);
    uint64_t s = 0x2545F4914F6CDD1Dull ^ static_cast<uint64_t>(serial);
    for (size_t i = 0; i < kNoiseTable; ++i) {
        double u1 = (static_cast<double>(xorshift(s) >> 11) + 1.0) * 0x1.0p-53;
        double u2 = static_cast<double>(xorshift(s) >> 11) * 0x1.0p-53;
        double r = std::sqrt(-2.0 * std::log(u1));
        noiseRe_[i] = static_cast<float>(r * std::cos(kTwoPi * u2));
        noiseIm_[i] = static_cast<float>(r * std::sin(kTwoPi * u2));
    }
    sampleSlots_.resize(kFifoReplies * 2 * kSamplesPerBlock);
    scratchRe_.resize(kSamplesPerBlock);
    scratchIm_.resize(kSamplesPerBlock);
    rebuildScene();
}

Instrument::~Instrument() { detach(); }

int64_t Instrument::nowNs() const {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now() - epoch_).count();
}

uint64_t Instrument::deviceTick(int64_t ns) const {
    return paced_ ? static_cast<uint64_t>(ns / 4) : virtualTick_;
}

// ------------------------------------------------------------------ OUT

bool Instrument::writeBlock(const uint8_t* block, int timeoutMs) {
    std::unique_lock lock(mu_);
    if (detached_) return false;
    if (failNextWrite_) {
        failNextWrite_ = false;
        return false;
    }
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    for (int i = 0; i < kBlockBytes / 4; ++i) {
        uint32_t w;
        std::memcpy(&w, block + 4 * i, 4);
        if (!decodeWord(w, lock, deadline)) return false;
    }
    return true;
}

bool Instrument::decodeWord(uint32_t w, std::unique_lock<std::mutex>& lock,
                            std::chrono::steady_clock::time_point deadline) {
    switch (parse_) {
        case Parse::Skip:
            if (--remaining_ == 0) parse_ = Parse::Word;
            return true;
        case Parse::Registers:
            registerWord(regAddress_, w);
            ++regAddress_;
            if (--remaining_ == 0) parse_ = Parse::Word;
            return true;
        case Parse::FlashData: {
            std::memcpy(flashBuffer_.data() + (256 - remaining_) * 4, &w, 4);
            if (--remaining_ == 0) {
                parse_ = Parse::Word;
                auto [it, fresh] = flash_.try_emplace(flashPage_);
                if (fresh) it->second.fill(0xFF);
                for (size_t i = 0; i < 1024; ++i) it->second[i] &= flashBuffer_[i];  // NOR: bits only clear
            }
            return true;
        }
        case Parse::Word:
            break;
    }

    const uint32_t top = w >> 24;
    if (!running_ && top != 0x00 && top != 0xFF) {
        // The boot firmware knows pauses and service words only.
        ++unknownWords_;
        return !strict_;
    }
    bool ok = true;
    auto skip = [&](uint32_t n) {
        parse_ = Parse::Skip;
        remaining_ = n;
    };
    switch (top) {
        case 0x00:
            ++pauseWords_;
            return true;
        case 0x04: {
            const uint32_t count = (w >> 16) & 0xFF;
            if (count > 0) {
                parse_ = Parse::Registers;
                remaining_ = count;
                regAddress_ = w & 0xFFFF;
                portAddress_ = regAddress_;
                portCount_ = 0;
            }
            return true;
        }
        case 0x10: case 0x11: case 0x12: case 0x16: case 0x17: case 0x1E: case 0x50: case 0x51:
            return true;
        case 0x13:
            if (w == 0x13000100) {
                streaming_ = false;
            } else {
                startStream((w >> 16) & 0xFF, w & 0xFFFF);
            }
            return true;
        case 0x23: {
            Reply r{ReplyKind::Data, 0, 0, 0, 0, 0};
            if (streaming_) {
                const uint64_t index = blocksProduced_++;
                r.arg = 1;
                const double tps = kTickHz / sampleRate_;
                r.runningTick = static_cast<uint64_t>(streamStartTick_ + static_cast<double>(index + 1) * kSamplesPerBlock * tps);
                if (paced_) {
                    r.readyNs = streamStartNs_ + static_cast<int64_t>(static_cast<double>(index + 1) * kSamplesPerBlock / sampleRate_ * 1e9);
                } else {
                    virtualTick_ = r.runningTick;
                }
            }
            return pushReply(r, lock, deadline);
        }
        case 0x24: {
            Reply r{ReplyKind::Status, 0, 0, 0, 0, 0};
            return pushReply(r, lock, deadline);
        }
        case 0x15:
            captureFftLocked();
            return true;
        case 0x25:
            return pushReply(Reply{ReplyKind::Fft, uint8_t(w >> 16), fft_->fetch((w >> 16) & 0xFF), 0, 0, 0}, lock,
                             deadline);
        case 0x20: case 0x21: case 0x22: case 0x26: case 0x2E: case 0x2F:
            return pushReply(Reply{ReplyKind::Zero, 0, 0, 0, 0, 0}, lock, deadline);
        case 0xFF:
            switch (w >> 16) {
                case 0xFF53:
                    if (w == 0xFF530000) { skip(6); return true; }
                    break;
                case 0xFFFE:
                    parse_ = Parse::FlashData;
                    remaining_ = 256;
                    flashPage_ = w & 0xFFFF;
                    return true;
                case 0xFFFD:
                    for (uint8_t p = 0; p < 4 && ok; ++p)
                        ok = pushReply(Reply{ReplyKind::Flash, p, w & 0xFFFF, 0, 0, 0}, lock, deadline);
                    return ok;
                case 0xFFFC: {
                    // Sectors are 64 pages of 1024 bytes.
                    const uint32_t base = (w & 0xFFFF) & ~63u;
                    flash_.erase(flash_.lower_bound(base), flash_.lower_bound(base + 64));
                    return true;
                }
                case 0xFFFB:
                    if (w == 0xFFFB4000) {
                        pushPoll(ReplyKind::Word, fpgaLoadFails_ ? 0 : 1, lock, deadline, ok);
                        if (!fpgaLoadFails_) running_ = true;
                        return ok;
                    }
                    break;
                case 0xFFFA:
                    if (w == 0xFFFA0000) { skip(31); return true; }
                    break;
                case 0xFFF9:
                    if (w == 0xFFF90000) { pushPoll(ReplyKind::Word, 0, lock, deadline, ok); return ok; }
                    break;
                case 0xFFFF:
                    if (w == 0xFFFF0000) { pushPoll(ReplyKind::Word, bootVersion_, lock, deadline, ok); return ok; }
                    break;
                case 0xFFF0: case 0xFFF1: skip(96); return true;
                case 0xFFF2: skip(64); return true;
                case 0xFFF3: skip(1); return true;
                case 0xFFF4: pushPoll(ReplyKind::Zero, 0, lock, deadline, ok); return ok;
                case 0xFFEF:
                    if (w == 0xFFEF0000) { pushPoll(ReplyKind::Word, 3, lock, deadline, ok); return ok; }
                    break;
                default:
                    break;
            }
            break;
        default:
            break;
    }
    ++unknownWords_;
    return !strict_;
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
        r.statusTick = paced_ ? static_cast<uint64_t>(r.readyNs / 4) : virtualTick_;
        r.runningTick = streaming_ || blocksProduced_ > 0
                            ? static_cast<uint64_t>(streamStartTick_ + static_cast<double>(blocksProduced_) *
                                                                           kSamplesPerBlock * kTickHz / sampleRate_)
                            : r.statusTick;
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

void Instrument::startStream(uint32_t code, uint32_t tune) {
    const uint32_t dec = code & 0x0F;
    if (dec != 1 && dec != 2 && dec != 4 && dec != 8) {
        ++unknownWords_;
        return;
    }
    const double base = (code & 16) ? 61.44e6 : 50e6;
    sampleRate_ = base / dec;
    tuneWord_ = tune;
    streaming_ = true;
    blocksProduced_ = 0;
    const int64_t now = std::max(nowNs(), lastReadyNs_);
    streamStartNs_ = now;
    streamStartTick_ = static_cast<double>(paced_ ? static_cast<uint64_t>(now / 4) : virtualTick_);
    rebuildScene();
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
            r->failed = true;
            r->done = true;
            readHead_ = r->next;
            if (readHead_ == nullptr) readTail_ = nullptr;
            cv_.notify_all();
            continue;
        }
        if (r->stalled) break;
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

void Instrument::programFlash(uint32_t byteOffset, const uint8_t* data, size_t n) {
    std::lock_guard lock(mu_);
    if (n == 0) return;
    // A factory programmer erases the 64-page sectors it writes to first.
    const uint32_t firstPage = byteOffset / 1024, lastPage = static_cast<uint32_t>((byteOffset + n - 1) / 1024);
    flash_.erase(flash_.lower_bound(firstPage & ~63u), flash_.lower_bound((lastPage | 63u) + 1));
    for (uint32_t page = firstPage; page <= lastPage; ++page) {
        std::array<uint8_t, 1024> bytes;
        bytes.fill(0xFF);
        const size_t from = std::max<size_t>(byteOffset, size_t{page} * 1024);
        const size_t to = std::min<size_t>(size_t{byteOffset} + n, (size_t{page} + 1) * 1024);
        std::memcpy(bytes.data() + from % 1024, data + (from - byteOffset), to - from);
        // Erased pages stay absent.
        if (std::any_of(bytes.begin(), bytes.end(), [](uint8_t b) { return b != 0xFF; })) flash_[page] = bytes;
    }
}

void Instrument::eraseFlash() {
    std::lock_guard lock(mu_);
    flash_.clear();
}

bool Instrument::running() const {
    std::lock_guard lock(mu_);
    return running_;
}

void Instrument::setRunning(bool running) {
    std::lock_guard lock(mu_);
    running_ = running;
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

void Instrument::reset() {
    std::lock_guard lock(mu_);
    failAllLocked();
    running_ = false;
    parse_ = Parse::Word;
    remaining_ = 0;
    streaming_ = false;
    blocksProduced_ = 0;
}

void Instrument::detach() {
    std::lock_guard lock(mu_);
    detached_ = true;
    failAllLocked();
}

bool Instrument::detached() const {
    std::lock_guard lock(mu_);
    return detached_;
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

    put32(p, 24, static_cast<uint32_t>(r.runningTick));
    uint8_t flags = 0;
    if (adcOverload_ || clippedSinceStatus_) flags |= 0x01;
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

// ---------------------------------------------------------------- GPS

namespace {

constexpr uint64_t kTicksPerSecond = 250000000ull;

void nmeaCoordinate(char* out, size_t n, double degrees, int degreeDigits) {
    const double a = std::fabs(degrees);
    const int whole = static_cast<int>(a);
    std::snprintf(out, n, "%0*d%08.5f", degreeDigits, whole, (a - whole) * 60.0);
}

// "$" + body + "*hh\r\n", hh the XOR of the body's characters.
std::string nmeaSentence(const std::string& body) {
    uint8_t sum = 0;
    for (char c : body) sum ^= static_cast<uint8_t>(c);
    char tail[8];
    std::snprintf(tail, sizeof tail, "*%02X\r\n", sum);
    return "$" + body + tail;
}

}  // namespace

void Instrument::setGps(bool locked, double latitude, double longitude, double altitude) {
    std::lock_guard lock(mu_);
    gpsLocked_ = locked;
    gpsSilent_ = false;
    gpsLatitude_ = latitude;
    gpsLongitude_ = longitude;
    gpsAltitude_ = altitude;
}

void Instrument::setGpsSilent(bool silent) {
    std::lock_guard lock(mu_);
    if (silent && !gpsSilent_) gpsFrozenPulse_ = deviceTick(nowNs()) / kTicksPerSecond;
    gpsSilent_ = silent;
}

int64_t Instrument::utcNsAtTick(uint64_t tick) const {
    std::lock_guard lock(mu_);
    return utcSecondsAtTickZero_ * 1000000000ll + static_cast<int64_t>(tick) * 4;
}

void Instrument::renderGps(const Reply& r, uint8_t* p) {
    uint64_t pulse = r.statusTick / kTicksPerSecond;
    if (gpsSilent_) pulse = std::min(pulse, gpsFrozenPulse_);
    put32(p, 12, static_cast<uint32_t>(pulse * kTicksPerSecond));
    // The receiver fills one half during a second; the other holds the
    // finished text of the previous second, the one the last pulse closed.
    const unsigned filling = static_cast<unsigned>(pulse & 1u);
    put16(p, 20, static_cast<uint16_t>(filling << 8));

    // The reported tune: what the host set, and under GPS discipline a slow
    // wander of +-12 counts around it, as a disciplined oscillator shows.
    uint32_t tune = regs_[0x002E] >> 16;
    if (tune == 0) tune = 0x8000;
    if ((regs_[0x002E] & 0x8) && gpsLocked_ && !gpsSilent_)
        tune += static_cast<uint32_t>(static_cast<int>(std::lround(12.0 * std::sin(pulse * 6.283185307 / 120.0))));
    put16(p, 34, static_cast<uint16_t>(tune));

    if (pulse == 0) return;  // nothing finished yet
    const int64_t second = utcSecondsAtTickZero_ + static_cast<int64_t>(pulse) - 1;
    const std::time_t t = static_cast<std::time_t>(second);
    std::tm utc{};
    gmtime_r(&t, &utc);
    char hms[16], dmy[16];
    std::snprintf(hms, sizeof hms, "%02d%02d%02d.00", utc.tm_hour, utc.tm_min, utc.tm_sec);
    std::snprintf(dmy, sizeof dmy, "%02d%02d%02d", utc.tm_mday, utc.tm_mon + 1, utc.tm_year % 100);
    std::string text;
    if (gpsLocked_) {
        char lat[24], lon[24], body[192];
        nmeaCoordinate(lat, sizeof lat, gpsLatitude_, 2);
        nmeaCoordinate(lon, sizeof lon, gpsLongitude_, 3);
        const char ns = gpsLatitude_ < 0 ? 'S' : 'N', ew = gpsLongitude_ < 0 ? 'W' : 'E';
        std::snprintf(body, sizeof body, "GPRMC,%s,A,%s,%c,%s,%c,0.0,0.0,%s,,,A", hms, lat, ns, lon, ew, dmy);
        text += nmeaSentence(body);
        std::snprintf(body, sizeof body, "GPGGA,%s,%s,%c,%s,%c,1,09,0.9,%.1f,M,0.0,M,,", hms, lat, ns, lon, ew,
                      gpsAltitude_);
        text += nmeaSentence(body);
    } else {
        char body[96];
        std::snprintf(body, sizeof body, "GPRMC,%s,V,,,,,,,%s,,,N", hms, dmy);
        text += nmeaSentence(body);
        text += nmeaSentence(std::string("GPGGA,") + hms + ",,,,,0,00,99.9,,M,,M,,");
    }
    const size_t finished = filling ? 4096 : 5120;
    const size_t n = std::min<size_t>(text.size(), 1024);
    std::memcpy(p + finished, text.data(), n);
    put16(p, 22, static_cast<uint16_t>((n + 3) / 4));
}

// ------------------------------------------------------------ RF decoding
//
// Writes that start at an RF port (0x100..0x180) are serial transfers: all
// their words go to that one port, which decodes them when the transfer is
// complete. The register file keeps the plain view as well.

void Instrument::registerWord(uint32_t address, uint32_t w) {
    regs_[address & 0xFFFF] = w;
    if (address == 0x2C) rf_.setRouting(w);
    if (address >= 0x40 && address <= 0x7F) ifFilterLoaded_ = true;
    if (portAddress_ < 0x100 || portAddress_ > 0x180) {
        if (address == 0x3C && streaming_) rebuildScene();
        return;
    }
    portWords_[portCount_++] = w;
    if (remaining_ != 1) return;  // more words of this transfer to come
    rf_.portWrite(portAddress_, portWords_.data(), portCount_);
    if (portAddress_ == 0x150 || portAddress_ == 0x170) {
        const RfPath p = rf_.path(celsius_);
        if (p.known) attenDb_ = p.attenDb;
    }
    if (streaming_) rebuildScene();
}

// The down-converter's NCO steps in 1/1024 of the 250 MHz clock, counted
// down from 0 or, with the filter control's bit 3, from half the clock.
double Instrument::ncoHz() const {
    const double half = (regs_[0x3C] & 8) ? 125e6 : 0.0;
    return half - static_cast<double>(tuneWord_) * 244140.625;
}

namespace {
double wrapClock(double hz) { return hz - 250e6 * std::floor((hz + 125e6) / 250e6); }
}  // namespace

bool Instrument::streamHz(const RfPath& path, double rfHz, double& out) const {
    if (path.direct) {
        // The direct path's low-pass ends above the highest direct slice.
        if (rfHz < 0.0 || rfHz > 160e6) return false;
        out = wrapClock(rfHz - ncoHz());
        return true;
    }
    // High-side LO; the IF filter passes 0 to 120 MHz below it. The image
    // (RF above the LO) is rejected by the quadrature mixer.
    const double below = path.firstLoHz - rfHz;
    if (below <= 0.0 || below > 120e6) return false;
    out = wrapClock(rfHz - path.firstLoHz - ncoHz());
    return true;
}

double Instrument::centerLocked() const {
    if (centerOverride_) return centerHz_;
    const RfPath p = rf_.path(celsius_);
    if (p.direct) return wrapClock(ncoHz() - 125e6) + 125e6;  // 0 to 250 MHz
    return p.firstLoHz + wrapClock(ncoHz());
}

RfPath Instrument::rfPath() const {
    std::lock_guard lock(mu_);
    return rf_.path(celsius_);
}

// ---------------------------------------------------------------- signal

double Instrument::pathGainDb(double freqHz, double attenDb, double celsius) {
    return model::rfGainDb(freqHz, attenDb, celsius);
}

double Instrument::pathGainDb(double freqHz) const {
    std::lock_guard lock(mu_);
    return pathGainDb(freqHz, attenDb_, celsius_);
}

// ------------------------------------------------------------ IF chain
//
// After the ADC and the down-converter the I and Q paths are two real
// channels with their own IF response (shape, amplitude and phase
// imbalance) and then the FPGA's correction filter, one real FIR per path:
// taps a for I, b for Q. A complex tone at v through real channels T_I and
// T_Q comes out as (T_I + T_Q) / 2 at v and conj(T_I - T_Q) / 2 at -v.

namespace {
using cd = std::complex<double>;

// Signed 18-bit centre values, 16-bit outer ones, as the filter load packs them.
void decodeIFTaps(const std::vector<uint32_t>& regs, double a[63], double b[63]) {
    const uint32_t wide = regs[0x3D];
    for (int half = 0; half < 2; ++half) {
        double* out = half == 0 ? a : b;
        for (int p = 0; p < 63; ++p) {
            const int lane = p + 1;
            const uint32_t reg = regs[0x40 + half * 32 + lane / 2];
            int32_t v = static_cast<int32_t>((lane & 1) ? reg >> 16 : reg & 0xFFFF);
            if (p >= 30 && p <= 32) {
                const int shift = (half == 0 ? 6 : 0) + (p - 30) * 2;
                v |= static_cast<int32_t>((wide >> shift) & 3) << 16;
                if (v & 0x20000) v -= 0x40000;
            } else if (v & 0x8000) {
                v -= 0x10000;
            }
            out[p] = v / 131071.0;
        }
    }
}

cd firResponse(const double* taps, double v) {
    cd acc = 0.0;
    for (int n = 0; n < 63; ++n) acc += taps[n] * std::polar(1.0, -kTwoPi * v * n);
    return acc;
}
}  // namespace

// The two real channels at a stream offset of v cycles per sample.
void Instrument::ifChannels(double v, double slicePos, cd& ti, cd& tq) const {
    const double w = std::fabs(v);
    const double s = std::pow(10.0, model::ifShapeDb(w, slicePos, celsius_) / 20.0);
    const double r = std::sqrt(model::ifRatio(w, slicePos, celsius_));
    const double half = (v < 0 ? -0.5 : 0.5) * model::ifPhase(w, slicePos, celsius_);
    ti = std::polar(s * r, half);
    tq = std::polar(s / r, -half);
    if (!ifFilterLoaded_) return;
    ti *= firResponse(ifTapsA_.data(), v);
    tq *= firResponse(ifTapsB_.data(), v);
}

// The FFT sees the same chain as the stream (RF path, gain code, the IF
// channels and the correction filter the host loaded), with the filter
// running at the FFT's 250 MHz clock. Its band follows the tune, unless a
// test fixed the centre.
double Instrument::fftBandCentreLocked(const RfPath& path) const {
    return centerOverride_ ? centerHz_ : FftSweep::bandCentreHz(path.direct, (regs_[0x3C] & 8) != 0, path.firstLoHz);
}

double Instrument::fftChainGainLocked(const RfPath& path, double centre, double f) const {
    double db = pathGainDb(f, attenDb_, celsius_);
    if (centerOverride_) return db;
    if (path.known) db += model::gainCodeDb(path.gainCode);
    if (path.direct) db -= model::lowFreqLossDb(f);
    cd ti, tq;
    ifChannels((f - centre) / 250e6, centre / 39.0625e6, ti, tq);
    return db + 20.0 * std::log10(std::abs(0.5 * (ti + tq)));
}

void Instrument::captureFftLocked() {
    const RfPath path = rf_.path(celsius_);
    const double centre = fftBandCentreLocked(path);
    if (ifFilterLoaded_) decodeIFTaps(regs_, ifTapsA_.data(), ifTapsB_.data());
    fft_->capture(regs_.data(), FftSweep::Scene{tones_, noiseDbmPerHz_, centre, !centerOverride_ && path.direct,
                                                [&](double f) { return fftChainGainLocked(path, centre, f); }});
}

void Instrument::rebuildScene() {
    std::vector<ToneState> next;
    next.reserve(2 * tones_.size());
    const RfPath path = rf_.path(celsius_);
    const double centre = centerLocked();
    const double slicePos = centre / 39.0625e6;
    if (ifFilterLoaded_) decodeIFTaps(regs_, ifTapsA_.data(), ifTapsB_.data());
    auto addTone = [&](double offset, cd amplitude) {
        // The instrument's anti-alias filtering keeps only the inner 90 %.
        if (std::fabs(offset) > 0.45 || std::abs(amplitude) < 1e-3) return;
        ToneState s;
        s.offsetCycles = offset;
        s.phase = std::arg(amplitude) / kTwoPi;
        s.amplitude = static_cast<float>(std::abs(amplitude));
        s.stepRe.resize(kSamplesPerBlock);
        s.stepIm.resize(kSamplesPerBlock);
        for (int n = 0; n < kSamplesPerBlock; ++n) {
            const double ph = kTwoPi * std::fmod(offset * n, 1.0);
            s.stepRe[n] = static_cast<float>(std::cos(ph));
            s.stepIm[n] = static_cast<float>(std::sin(ph));
        }
        next.push_back(std::move(s));
    };
    for (const Tone& t : tones_) {
        double hz = t.freqHz - centerHz_;
        if (!centerOverride_ && !streamHz(path, t.freqHz, hz)) continue;
        double db = t.powerDbm + pathGainDb(t.freqHz, attenDb_, celsius_);
        if (centerOverride_) {  // the test override: an ideal IF
            addTone(hz / sampleRate_, 32767.0 * std::pow(10.0, db / 20.0));
            continue;
        }
        if (path.known) db += model::gainCodeDb(path.gainCode);
        if (path.direct) db -= model::lowFreqLossDb(t.freqHz);
        const double a = 32767.0 * std::pow(10.0, db / 20.0);
        cd ti, tq;
        ifChannels(hz / 50e6, slicePos, ti, tq);
        addTone(hz / sampleRate_, a * 0.5 * (ti + tq));
        addTone(-hz / sampleRate_, a * 0.5 * std::conj(ti - tq));
    }
    // Keep phases of tones that survive a rebuild so a temperature change
    // does not jump the signal.
    for (size_t i = 0; i < next.size() && i < toneStates_.size(); ++i)
        if (next[i].offsetCycles == toneStates_[i].offsetCycles) next[i].phase = toneStates_[i].phase;
    toneStates_ = std::move(next);
    // The scene's noise through the path, plus the converter's own floor,
    // which no attenuator setting removes.
    constexpr double kAdcNoiseDbfsPerHz = -165.0;
    const double bandDb = 10.0 * std::log10(sampleRate_);
    double noiseDbfs = noiseDbmPerHz_ + bandDb + pathGainDb(centre, attenDb_, celsius_);
    if (!centerOverride_) {
        if (path.known) noiseDbfs += model::gainCodeDb(path.gainCode);
        cd ti, tq;
        ifChannels(1.0 / 64.0, slicePos, ti, tq);
        noiseDbfs += 10.0 * std::log10((std::norm(ti) + std::norm(tq)) / 2.0);
    }
    const double power = std::pow(10.0, noiseDbfs / 10.0) + std::pow(10.0, (kAdcNoiseDbfsPerHz + bandDb) / 10.0);
    noiseSigma_ = static_cast<float>(32767.0 * std::sqrt(power / 2.0));
}

void Instrument::generateLocked(int16_t* iq) {
    float* re = scratchRe_.data();
    float* im = scratchIm_.data();
    // A random window of the noise table, contiguous so the loops vectorise.
    const size_t start = static_cast<size_t>(xorshift(rng_) % (kNoiseTable - kSamplesPerBlock));
    const float sigma = noiseSigma_;
    const float* nr = noiseRe_.data() + start;
    const float* ni = noiseIm_.data() + start;
    for (int n = 0; n < kSamplesPerBlock; ++n) {
        re[n] = nr[n] * sigma;
        im[n] = ni[n] * sigma;
    }
    for (ToneState& t : toneStates_) {
        const float cr = static_cast<float>(t.amplitude * std::cos(kTwoPi * t.phase));
        const float ci = static_cast<float>(t.amplitude * std::sin(kTwoPi * t.phase));
        const float* sr = t.stepRe.data();
        const float* si = t.stepIm.data();
        for (int n = 0; n < kSamplesPerBlock; ++n) {
            re[n] += cr * sr[n] - ci * si[n];
            im[n] += cr * si[n] + ci * sr[n];
        }
        t.phase = std::fmod(t.phase + t.offsetCycles * kSamplesPerBlock, 1.0);
    }
    float peak = 0.0f;
    for (int n = 0; n < kSamplesPerBlock; ++n) {
        const float a = re[n], b = im[n];
        const float ma = a < 0.0f ? -a : a;
        const float mb = b < 0.0f ? -b : b;
        peak = peak > ma ? peak : ma;
        peak = peak > mb ? peak : mb;
        const float ca = a > 32767.0f ? 32767.0f : (a < -32768.0f ? -32768.0f : a);
        const float cb = b > 32767.0f ? 32767.0f : (b < -32768.0f ? -32768.0f : b);
        // Round half away from zero. (GCC does not vectorise this loop yet;
        // it is the largest cost of a block.)
        iq[2 * n] = static_cast<int16_t>(static_cast<int32_t>(ca + (ca < 0.0f ? -0.5f : 0.5f)));
        iq[2 * n + 1] = static_cast<int16_t>(static_cast<int32_t>(cb + (cb < 0.0f ? -0.5f : 0.5f)));
    }
    clippedSinceStatus_ |= peak > 32767.5f;
}

void Instrument::generateBlock(int16_t* iq) {
    std::lock_guard lock(mu_);
    generateLocked(iq);
}

// --------------------------------------------------------------- setters

void Instrument::addTone(double freqHz, double powerDbm) {
    std::lock_guard lock(mu_);
    tones_.push_back({freqHz, powerDbm});
    rebuildScene();
}
void Instrument::clearSignals() {
    std::lock_guard lock(mu_);
    tones_.clear();
    rebuildScene();
}
void Instrument::setNoiseFloor(double dbmPerHz) {
    std::lock_guard lock(mu_);
    noiseDbmPerHz_ = dbmPerHz;
    rebuildScene();
}
void Instrument::setTemperature(float celsius) {
    std::lock_guard lock(mu_);
    celsius_ = celsius;
    rebuildScene();
}
float Instrument::temperature() const {
    std::lock_guard lock(mu_);
    return celsius_;
}
void Instrument::setCenterFrequency(double hz) {
    std::lock_guard lock(mu_);
    centerHz_ = hz;
    centerOverride_ = true;
    rebuildScene();
}
void Instrument::clearCenterOverride() {
    std::lock_guard lock(mu_);
    centerOverride_ = false;
    rebuildScene();
}
double Instrument::centerFrequency() const {
    std::lock_guard lock(mu_);
    return centerLocked();
}
void Instrument::setAttenuatorDb(double db) {
    std::lock_guard lock(mu_);
    attenDb_ = db;
    rebuildScene();
}
void Instrument::setPaced(bool paced) {
    std::lock_guard lock(mu_);
    paced_ = paced;
}
void Instrument::setUnpacedTicks(uint64_t ticks) {
    std::lock_guard lock(mu_);
    virtualTick_ = ticks;
}
void Instrument::setFirmware(uint32_t revision, uint16_t minor, uint16_t major) {
    std::lock_guard lock(mu_);
    fwRevision_ = revision;
    fwMinor_ = minor;
    fwMajor_ = major;
}
void Instrument::setGpioInput(uint8_t value) {
    std::lock_guard lock(mu_);
    gpioInput_ = value;
}
void Instrument::setPpsValid(bool valid) {
    std::lock_guard lock(mu_);
    ppsValid_ = valid;
}
void Instrument::setBootVersion(uint32_t version) {
    std::lock_guard lock(mu_);
    bootVersion_ = version;
}
void Instrument::setFpgaLoadFails(bool fails) {
    std::lock_guard lock(mu_);
    fpgaLoadFails_ = fails;
}

void Instrument::injectBadMagic(int n) { std::lock_guard lock(mu_); badMagic_ = n; }
void Instrument::injectJesdUnsynced(int n) { std::lock_guard lock(mu_); jesd_ = n; }
void Instrument::setAdcOverload(bool on) { std::lock_guard lock(mu_); adcOverload_ = on; }
void Instrument::injectSampleLoss(int lost) { std::lock_guard lock(mu_); pendingLoss_ += lost; }
void Instrument::failNextWrite() { std::lock_guard lock(mu_); failNextWrite_ = true; }
void Instrument::shortNextRead() { std::lock_guard lock(mu_); shortNextRead_ = true; }
void Instrument::timeOutNextRead() { std::lock_guard lock(mu_); timeOutNextRead_ = true; }
void Instrument::setStrictWords(bool strict) { std::lock_guard lock(mu_); strict_ = strict; }

uint32_t Instrument::reg(uint32_t address) const { std::lock_guard lock(mu_); return regs_[address & 0xFFFF]; }
uint64_t Instrument::unknownWords() const { std::lock_guard lock(mu_); return unknownWords_; }
uint64_t Instrument::dataBlocksSent() const { std::lock_guard lock(mu_); return dataBlocksSent_; }
bool Instrument::streaming() const { std::lock_guard lock(mu_); return streaming_; }
double Instrument::sampleRate() const { std::lock_guard lock(mu_); return sampleRate_; }
uint32_t Instrument::digitalTuneWord() const { std::lock_guard lock(mu_); return tuneWord_; }
uint64_t Instrument::pauseWords() const { std::lock_guard lock(mu_); return pauseWords_; }
size_t Instrument::queuedReplies() const { std::lock_guard lock(mu_); return fifoCount_; }

}  // namespace zr::sim
