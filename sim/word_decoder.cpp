// The word decoder: every command word the instrument runs, with state
// across blocks (register runs, skipped payloads, flash pages). Features
// with their own state live in their own files behind it.
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
        case Parse::FlashData:
            flashDataWord(w);
            return true;
        case Parse::Word:
            break;
    }

    const uint32_t top = w >> 24;
    lastWord_[top] = w;
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
                // Data replies carry the tick just after their last sample.
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
                case 0xFFFD:
                case 0xFFFC:
                    return flashWord(w, lock, deadline);
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

}  // namespace zr::sim
