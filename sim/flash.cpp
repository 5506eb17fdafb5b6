// The instrument's NOR flash: page writes that only clear bits, 64-page
// sector erases, and factory programming that bypasses the USB words.
#include "instrument.h"

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

bool Instrument::flashWord(uint32_t w, std::unique_lock<std::mutex>& lock,
                           std::chrono::steady_clock::time_point deadline) {
    switch (w >> 16) {
        case 0xFFFE:  // write a page: 256 words follow
            parse_ = Parse::FlashData;
            remaining_ = 256;
            flashPage_ = w & 0xFFFF;
            return true;
        case 0xFFFD: {  // read a page: four replies of 256 bytes
            bool ok = true;
            for (uint8_t p = 0; p < 4 && ok; ++p)
                ok = pushReply(Reply{ReplyKind::Flash, p, w & 0xFFFF, 0, 0, 0}, lock, deadline);
            return ok;
        }
        default: {  // erase the sector of a page: 64 pages of 1024 bytes
            const uint32_t base = (w & 0xFFFF) & ~63u;
            flash_.erase(flash_.lower_bound(base), flash_.lower_bound(base + 64));
            return true;
        }
    }
}

void Instrument::flashDataWord(uint32_t w) {
    std::memcpy(flashBuffer_.data() + (256 - remaining_) * 4, &w, 4);
    if (--remaining_ == 0) {
        parse_ = Parse::Word;
        auto [it, fresh] = flash_.try_emplace(flashPage_);
        if (fresh) it->second.fill(0xFF);
        for (size_t i = 0; i < 1024; ++i) it->second[i] &= flashBuffer_[i];  // NOR: bits only clear
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

}  // namespace zr::sim
