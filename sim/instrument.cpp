// One simulated instrument: construction, boot and reset, and the setters
// and observers that tests and the public simulator calls use.
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

Instrument::Instrument(ZrDeviceType type, int serial)
    : type_(type), serial_(serial), epoch_(std::chrono::steady_clock::now()), regs_(0x10000, 0),
      rf_(type == zrDeviceTypeRidge2 || type == zrDeviceTypeRidge3), fft_(std::make_unique<FftSweep>()) {
    // Tick 0 is the moment epoch_ was taken: the instrument's UTC starts out
    // as the host's.
    const int64_t sinceEpoch = nowNs();
    utcAtTickZeroNs_ = (std::chrono::duration_cast<std::chrono::nanoseconds>(
                            std::chrono::system_clock::now().time_since_epoch()).count() - sinceEpoch) & ~int64_t(3);
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
    return paced_ ? pacedTick(ns) : virtualTick_;
}

uint64_t Instrument::tickNow() const {
    std::lock_guard lock(mu_);
    return deviceTick(nowNs());
}

bool Instrument::setTick(uint64_t tick) {
    std::lock_guard lock(mu_);
    if (streaming_) return false;
    const uint64_t now = deviceTick(nowNs());
    utcAtTickZeroNs_ += (static_cast<int64_t>(now) - static_cast<int64_t>(tick)) * 4;
    if (paced_) tickOffset_ += static_cast<int64_t>(tick) - static_cast<int64_t>(now);
    else virtualTick_ = tick;
    return true;
}

uint64_t Instrument::streamStartTick() const {
    std::lock_guard lock(mu_);
    return static_cast<uint64_t>(streamStartTick_);
}

uint32_t Instrument::lastCommand(uint8_t opcode) const {
    std::lock_guard lock(mu_);
    return lastWord_[opcode];
}

bool Instrument::running() const {
    std::lock_guard lock(mu_);
    return running_;
}

void Instrument::setRunning(bool running) {
    std::lock_guard lock(mu_);
    running_ = running;
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
    if (paced == paced_) return;
    const int64_t now = nowNs();
    if (paced) tickOffset_ = static_cast<int64_t>(virtualTick_) - now / 4;
    else virtualTick_ = pacedTick(now);
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
void Instrument::injectAdcOverload(int reads) { std::lock_guard lock(mu_); overloadReads_ = std::max(reads, 0); }
void Instrument::stopAnswering(int reads) {
    std::lock_guard lock(mu_);
    hungReads_ = std::max(reads, 0);
    cv_.notify_all();
}
void Instrument::injectSampleLoss(int lost) { std::lock_guard lock(mu_); pendingLoss_ += lost; }
void Instrument::failNextWrite() { std::lock_guard lock(mu_); failNextWrite_ = true; }
void Instrument::shortNextRead() { std::lock_guard lock(mu_); shortNextRead_ = true; }
void Instrument::timeOutNextRead() { std::lock_guard lock(mu_); timeOutNextRead_ = true; }
void Instrument::setStrictWords(bool strict) { std::lock_guard lock(mu_); strict_ = strict; }

uint32_t Instrument::reg(uint32_t address) const { std::lock_guard lock(mu_); return regs_[address & 0xFFFF]; }
void Instrument::readFlash(uint32_t byteOffset, uint32_t count, uint8_t* out) const {
    std::lock_guard lock(mu_);
    for (uint32_t i = 0; i < count;) {
        const uint64_t at = uint64_t(byteOffset) + i;
        const uint32_t page = static_cast<uint32_t>(at / 1024), within = static_cast<uint32_t>(at % 1024);
        const uint32_t n = std::min(count - i, 1024 - within);
        auto it = flash_.find(page);
        if (it == flash_.end()) std::memset(out + i, 0xFF, n);
        else std::memcpy(out + i, it->second.data() + within, n);
        i += n;
    }
}
uint64_t Instrument::unknownWords() const { std::lock_guard lock(mu_); return unknownWords_; }
uint64_t Instrument::dataBlocksSent() const { std::lock_guard lock(mu_); return dataBlocksSent_; }
bool Instrument::streaming() const { std::lock_guard lock(mu_); return streaming_; }
double Instrument::sampleRate() const { std::lock_guard lock(mu_); return sampleRate_; }
uint32_t Instrument::digitalTuneWord() const { std::lock_guard lock(mu_); return tuneWord_; }
uint64_t Instrument::pauseWords() const { std::lock_guard lock(mu_); return pauseWords_; }
size_t Instrument::queuedReplies() const { std::lock_guard lock(mu_); return fifoCount_; }

}  // namespace zr::sim
