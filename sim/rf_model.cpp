#include "rf_model.h"

#include <cmath>

namespace zr::sim {

namespace {
constexpr uint32_t kPortDds = 0x100, kPort110 = 0x110, kPort120 = 0x120, kPort130 = 0x130, kPort140 = 0x140, kPort141 = 0x141,
                   kPort150 = 0x150, kPort170 = 0x170;

// The DDS's 48-bit tuning word, spread over three words, back to MHz.
double ddsMHz(const uint32_t* w) {
    const uint64_t hi = (uint64_t{w[0] & 0xFFFF} << 8) | ((w[1] >> 8) & 0xFF);
    const uint64_t lo = (uint64_t{w[1] & 0xFF} << 16) | (w[2] & 0xFFFF);
    return static_cast<double>((hi << 24) + lo) * 1000.0 / 281474976710656.0;
}
}  // namespace

double RfFrontEnd::mesaVcoMHz(int b, int c, double celsius) {
    // Four overlapping varactor ranges of about 1 GHz each, slightly
    // compressive towards the top code, drifting down with temperature
    // (more so at high codes and in the upper ranges).
    static constexpr double kDriftOffset[4] = {0.21, 0.26, 0.33, 0.37};
    static constexpr double kDriftSlope[4] = {0.00082, 0.00091, 0.0011, 0.00164};
    const double base = 3000.0 + 1000.0 * b + 6.0 * std::sin(0.9 * b + 0.4);
    const double tuning = 4.02 * c - 0.00047 * c * c;
    return base + tuning - (kDriftOffset[b] + c * kDriftSlope[b]) * (celsius - 33.0);
}

void RfFrontEnd::portWrite(uint32_t port, const uint32_t* w, uint32_t n) {
    switch (port) {
        case kPortDds:
            if (n == 3 && (w[0] >> 16) == 0x61AB) ddsMHz_ = ddsMHz(w);
            return;
        case kPort110:
            if (ridge_ && n == 2 && w[1] >= 0x1018) ridgeP_ = w[1] - 0x1018;
            return;
        case kPort120:
            if (ridge_) {
                if (n != 7) return;  // chip set-up rows and resets leave the loop alone
                for (uint32_t i = 0; i < n; ++i) {
                    const uint32_t reg = (w[i] >> 8) & 0xFF;
                    if (reg == 0x24) ridgeSelect_ = ((w[i] & 0xFF) - 0x70) / 16;
                    if (reg == 0x1E) ridgeFlip_ = (w[i] & 8) == 0;
                }
                ridgeN_ = w[6] - 0x1000;  // the divider register, 9 bits wide, written last
            } else if (n == 2 && w[0] >= 0x100000) {
                mode_ = static_cast<int>((w[0] - 0x100000) / 4);
            } else if (n == 1 && w[0] >= 0x4022 && ((w[0] - 0x4022) & 0x7F) == 0) {
                side_ = static_cast<int>(((w[0] - 0x4022) >> 7) % 2304);
            }
            return;
        case kPort130:
            if (!ridge_ && n == 2) divider_ = static_cast<int>(w[1] - 0x1018);
            return;
        case kPort140:
            if (ridge_) {
                if (n == 2) {
                    const uint32_t x = w[1] - 0x1000;
                    ridgeV_ = x == 17 ? 1 : x - 8;
                } else if (n == 1 && w[0] == 0x442) {
                    ridgeV_ = 0;
                }
            } else if (n == 3 && w[0] == 0x20C00FBA) {
                // (0x10000 << b) - 16 c: the range bit, less the code
                const uint32_t v = w[1] - 0x602FFB;
                const uint32_t range = (v + 0xFFFF) >> 16;
                int b = 0;
                while (b < 3 && (1u << b) < range) ++b;
                vcoSubBand_ = b;
                vcoCode_ = static_cast<int>(((0x10000u << b) - v) / 16);
            }
            return;
        case kPort141:
            // The mode pair's bit 21 puts the output divider by 2 after the VCO.
            if (!ridge_ && n == 2) halfOutput_ = (w[0] >> 21) & 1;
            return;
        case kPort150:
            if (!ridge_ && n == 4) {
                for (int i = 0; i < 4; ++i) mesaPathWords_[i] = w[i];
                mesaPathSeen_ = true;
            }
            return;
        case kPort170:
            if (ridge_ && n == 2) {
                ridgeE_ = w[0];
                ridgeF_ = w[1];
                ridgePathSeen_ = true;
            }
            return;
        default:
            return;
    }
}

// ---------------------------------------------------------------- Mesa

double RfFrontEnd::mesaSynthMHz(double celsius) const {
    if (vcoSubBand_ < 0 || divider_ < 3 || ddsMHz_ <= 0.0) return 0.0;
    // The offset loop compares VCO / k with the 1 GHz reference; the DDS
    // stands for the offset through the mode's fixed ratio, which the side
    // bit resolves. Of the two lock points the loop takes the one the
    // coarse VCO setting sits near.
    auto offset = [&](bool up) {
        if (mode_ == 4) return up ? ddsMHz_ * 0.75 : ddsMHz_ / 0.8;
        return up ? ddsMHz_ / 1.5 : ddsMHz_ / 0.75;
    };
    const double below = divider_ * (1000.0 - offset(side_ != 0));
    const double above = divider_ * (1000.0 + offset(side_ == 0));
    const double coarse = mesaVcoMHz(vcoSubBand_, vcoCode_, celsius) / (halfOutput_ ? 2.0 : 1.0);
    return std::fabs(below - coarse) < std::fabs(above - coarse) ? below : above;
}

RfPath RfFrontEnd::mesaPath(double celsius) const {
    RfPath p;
    if (!mesaPathSeen_) return p;
    const uint32_t a = mesaPathWords_[0], b = mesaPathWords_[1], c = mesaPathWords_[2], d = mesaPathWords_[3];
    p.known = true;
    p.band = 3 - static_cast<int>((b >> 21) & 7);
    const int field = static_cast<int>((b >> 2) & 63);
    p.attenDb = p.band == 0 ? field : (63 - field) / 2;
    const int trim = static_cast<int>((b >> 24) & 63);
    p.gainCode = p.band == 0 ? trim - 7 : p.band == 1 ? trim : (trim == 0 ? 0 : trim + 7);
    p.direct = p.band == 0;
    if (p.direct) return p;

    // Multiplier stages in front of the mixer, then the output divider.
    double mult = p.band == 3 ? ((c >> 30) == 2 ? 4.0 : 2.0) : p.band == 2 ? 2.0 : 1.0;
    const bool r650 = ((b >> 30) & 3) == 2;
    if (p.band == 1 && !r650) mult *= 0.5;  // the low range mixes at half the synthesizer's step
    switch ((a & 0xFF) - 24) {
        case 6: mult /= 6.0; break;
        case 4: mult /= 8.0; break;
        case 2: mult /= 4.0; break;
        case 1: if (p.band == 1 && ((d >> 22) & 1)) mult /= 2.0; break;
        default: break;
    }
    p.firstLoHz = mesaSynthMHz(celsius) * 1e6 * mult;
    return p;
}

// ---------------------------------------------------------------- Ridge

double RfFrontEnd::ridgeChainHz() const {
    if (!ridgePathSeen_ || ridgeP_ == 0 || ridgeN_ == 0 || ddsMHz_ <= 0.0) return 0.0;
    // The VCO, divided by 2 (4 at the top of its range) and by P, is offset
    // by the same divided by N and compared with the 1 GHz reference; the
    // DDS holds the difference.
    const bool high = ridgeF_ & 1;
    const double n = high ? ridgeN_ / 2.0 : ridgeN_;
    const double offset = (routing_ & 8) ? 1000.0 + ddsMHz_ : 1000.0 - ddsMHz_;
    const double w = offset / (1.0 / ridgeP_ + (ridgeFlip_ ? -1.0 : 1.0) / n);
    const double vco = (high ? 4.0 : 2.0) * w * 1e6;
    if (ridgeSelect_ == 3) return vco / 8.0;
    if (ridgeSelect_ == 2) return vco / 4.0;
    // Select 1 feeds the band's LO path, which halves the VCO where the
    // band's LO range lies below the VCO's: always below band 3, in band 3's
    // lowest sub-band (LO up to 8.24 GHz) and in band 5's lower half.
    const int band = ridgeBandFromWords(ridgeE_, ridgeF_);
    const int subBand = static_cast<int>((ridgeE_ >> 20) & 3);
    const bool halve = band <= 2 || (band == 3 && subBand == 0 && vco > 8.3e9) || (band == 5 && vco >= 12e9);
    return halve ? vco / 2.0 : vco;
}

int RfFrontEnd::ridgeBandFromWords(uint32_t e, uint32_t f) {
    if (f & (1u << 16)) return 0;
    if (f & (1u << 18)) return 1;
    if (f & (1u << 17)) return ((e >> 29) & 3) == 3 ? 2 : 6;
    const uint32_t e2 = (e >> 22) & 3;
    if (e2 == 0) return 3;
    if (e2 == 1) return 4;
    return 5;
}

RfPath RfFrontEnd::ridgePath() const {
    RfPath p;
    if (!ridgePathSeen_) return p;
    p.known = true;
    p.band = ridgeBandFromWords(ridgeE_, ridgeF_);
    p.attenDb = (ridgeE_ >> 24) & 31;
    p.gainCode = static_cast<int>(ridgeE_ & 63);
    p.direct = p.band == 0;
    if (p.direct) return p;
    const double chain = ridgeChainHz();
    switch (p.band) {
        case 6: p.firstLoHz = 4.0 * chain + 3e9; break;  // the mixer's second LO adds 3 GHz
        case 5: p.firstLoHz = 4.0 * chain; break;
        case 4: p.firstLoHz = 2.0 * chain; break;
        case 1: p.firstLoHz = ridgeV_ > 0 ? chain / (2.0 * ridgeV_) : 0.0; break;
        default: p.firstLoHz = chain; break;
    }
    return p;
}

RfPath RfFrontEnd::path(double celsius) const { return ridge_ ? ridgePath() : mesaPath(celsius); }

}  // namespace zr::sim
