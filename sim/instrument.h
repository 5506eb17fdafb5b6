#pragma once
// A simulated instrument of the USB family: it decodes the command words it
// is sent, keeps a register file, and answers reply words with status
// blocks and sample blocks generated from a signal scene through its own
// model of the RF path.
//
// Its I/O is shaped like the instrument's two bulk endpoints: an OUT
// endpoint that takes 2048-byte blocks, and an IN endpoint on which reads
// are posted and complete in posting order. The reply FIFO between the
// decoder and the IN endpoint is finite, as the instrument's is: a host that
// asks for more than it reads stalls the OUT endpoint.
//
// Thread-safe: one thread may write while others post and finish reads.
#include <array>
#include <atomic>
#include <chrono>
#include <complex>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "rf_model.h"
#include "zr_api.h"

namespace zr::sim {

class FftSweep;

// One posted IN transfer. The owner keeps it alive from postRead to the end
// of waitRead.
struct ReadRequest {
    uint8_t* dst = nullptr;
    uint32_t size = 0;
    uint32_t needed = 0;  // 8192-byte replies this read takes
    bool done = false;
    bool failed = false;
    bool stalled = false;  // injected time-out: never completes
    bool shortByOne = false;
    uint32_t transferred = 0;
    std::chrono::steady_clock::time_point deadline;
    ReadRequest* next = nullptr;
};

struct ReadOutcome {
    bool failed = true;
    uint32_t transferred = 0;
};

struct Tone {
    double freqHz = 0.0;
    double powerDbm = 0.0;
    double phaseRad = 0.0;  // at the stream's start; keeps sidebands coherent
};

class Instrument {
public:
    static constexpr int kBlockBytes = 2048;
    static constexpr int kReplyBytes = 8192;
    static constexpr int kSamplesPerBlock = 2048;
    static constexpr size_t kFifoReplies = 256;  // 2 MiB of replies
    static constexpr uint32_t kMagic = 0x31555834;
    static constexpr double kTickHz = 250e6;

    Instrument(ZrDeviceType type, int serial);
    ~Instrument();
    Instrument(const Instrument&) = delete;
    Instrument& operator=(const Instrument&) = delete;

    ZrDeviceType type() const { return type_; }
    int serial() const { return serial_; }

    // ---- Endpoints ----
    // Decodes one OUT block. False when the write failed: detached, an
    // injected failure, a strict-mode unknown word, or a FIFO that stayed
    // full for timeoutMs.
    bool writeBlock(const uint8_t* block, int timeoutMs = 2000);
    // Posts an IN read of size bytes into dst; completes in posting order.
    void postRead(ReadRequest& r, uint8_t* dst, uint32_t size, int timeoutMs);
    // Waits for a posted read until it completes or its deadline passes; a
    // read that missed its deadline is withdrawn and fails.
    ReadOutcome waitRead(ReadRequest& r);
    // Withdraws a posted read at once (its owner is going away).
    void cancelRead(ReadRequest& r);
    // postRead + waitRead.
    ReadOutcome read(uint8_t* dst, uint32_t size, int timeoutMs);
    // Drops the stream, the reply FIFO and the decoder state (a USB reset);
    // the instrument comes back in its boot state.
    void reset();
    // Boot state: the FX3 answers flash service words and the FPGA load
    // only. A successful FPGA load moves it to the run state. A model made
    // directly starts running; a plugged-in USB instrument starts in boot.
    bool running() const;
    // Factory programming of the flash, bypassing the USB words: the
    // sectors (64 pages of 1024 bytes) it touches are erased first, the
    // way a factory programmer does; the USB words keep NOR semantics.
    void programFlash(uint32_t byteOffset, const uint8_t* data, size_t n);
    // Chip erase: an instrument that never saw the factory.
    void eraseFlash();
    void setRunning(bool running);
    // Waits for a posted read without giving it up: false when `until`
    // passes first (the caller then cancels it, as a USB stack would).
    bool waitReadUntil(ReadRequest& r, std::chrono::steady_clock::time_point until);

    // ---- Scene and RF model ----
    void addTone(double freqHz, double powerDbm);
    void clearSignals();
    // A modulated carrier as its spectral lines (sim/modulated.cpp).
    void addLines(const std::vector<Tone>& lines);
    void setNoiseFloor(double dbmPerHz);
    void setTemperature(float celsius);
    float temperature() const;
    // The RF frequency that lands at the centre of the stream, as the RF
    // and synthesizer words and the digital tune word put it.
    double centerFrequency() const;
    // What the RF words have put in force.
    RfPath rfPath() const;
    // Test overrides: a fixed centre that ignores the RF words (until
    // clearCenterOverride), and an attenuator until the next path word.
    void setCenterFrequency(double hz);
    void clearCenterOverride();
    void setAttenuatorDb(double db);
    // Level at the ADC, in dB relative to full scale per dBm at the input,
    // of a signal at freqHz under the current attenuator and temperature.
    double pathGainDb(double freqHz) const;
    static double pathGainDb(double freqHz, double attenDb, double celsius);
    // Samples are produced at the instrument's pace unless unpaced. The
    // tick counter runs on across a switch.
    void setPaced(bool paced);
    // Unpaced, the tick counter runs with the samples only; this sets it
    // (to see the 32-bit counters wrap, for instance).
    void setUnpacedTicks(uint64_t ticks);

    // ---- Clock ----
    // The 250 MHz tick counter as a 64-bit count that never wraps (status
    // blocks carry its low 32 bits). Paced it runs with the host's steady
    // clock; unpaced it moves with the samples produced.
    uint64_t tickNow() const;
    // Moves the counter to `tick` now, keeping the instrument's UTC
    // continuous. False while a stream runs.
    bool setTick(uint64_t tick);
    // The tick of the current (or last) stream's first output sample.
    uint64_t streamStartTick() const;
    // The last command word run whose top byte is `opcode` (0 if none).
    uint32_t lastCommand(uint8_t opcode) const;

    // ---- External trigger input ----
    // A rising edge at `tick`, falling widthNs later. The trigger ring
    // records the edge register 0x36 selects (bit 1: falling) once the
    // instrument's clock has passed it.
    void triggerAtTick(uint64_t tick, double widthNs);

    // ---- Identity and status content ----
    void setFirmware(uint32_t revision, uint16_t minor, uint16_t major);
    void setGpioInput(uint8_t value);
    void setPpsValid(bool valid);
    // The GPS receiver. Locked: a pulse every second with the valid flag and
    // RMC/GGA text for the previous second in the finished text half.
    // Unlocked: pulses go on, the text says "V". Silent: neither pulses nor
    // text move (no receiver answering).
    void setGps(bool locked, double latitude, double longitude, double altitude);
    void setGpsSilent(bool silent);
    // The instrument's UTC, in ns since 1970, at a 64-bit device tick. Its
    // GPS pulses fall on the ticks whose UTC is a whole second.
    int64_t utcNsAtTick(uint64_t tick) const;
    void setBootVersion(uint32_t version);
    void setFpgaLoadFails(bool fails);  // the FPGA load poll answers 0

    // ---- Faults ----
    // For the next n reads that carry status blocks.
    void injectBadMagic(int reads);
    void injectJesdUnsynced(int reads);
    void setAdcOverload(bool on);
    void injectSampleLoss(int lostCount);  // next status: bit 2 and the counter advance
    void failNextWrite();
    void shortNextRead();     // the next read completes one byte short
    void timeOutNextRead();   // the next read never completes
    // The FPGA hangs: OUT blocks are taken and ignored, no reply is
    // produced, and the next `reads` reads go unanswered until the host
    // gives up on them. Later reads are answered again.
    void stopAnswering(int reads);
    // Overload flag in the status of the next `reads` reads.
    void injectAdcOverload(int reads);
    void detach();            // cable pull
    bool detached() const;
    // Unknown words fail the write that holds them.
    void setStrictWords(bool strict);

    // ---- Observation ----
    uint32_t reg(uint32_t address) const;
    // Flash bytes as the chip holds them (0xFF where never written).
    void readFlash(uint32_t byteOffset, uint32_t count, uint8_t* out) const;
    uint64_t unknownWords() const;
    uint64_t dataBlocksSent() const;
    bool streaming() const;
    double sampleRate() const;
    uint32_t digitalTuneWord() const;
    uint64_t pauseWords() const;
    size_t queuedReplies() const;

    // Fills 2048 complex samples of the current stream without the endpoint
    // machinery; the benchmark's view of the generator.
    void generateBlock(int16_t* iq);

private:
    enum class ReplyKind : uint8_t { Data, Status, Zero, Flash, Word, Fft };
    struct Reply {
        ReplyKind kind;
        uint8_t part;
        uint32_t arg;
        uint64_t statusTick;
        uint64_t runningTick;
        int64_t readyNs;
    };
    enum class Parse : uint8_t { Word, Skip, Registers, FlashData };
    struct ToneState {
        double offsetCycles;   // per sample
        double phase;          // cycles at the next block start
        float amplitude;
        std::vector<float> stepRe, stepIm;  // e^(j 2 pi offset n), n < 2048
    };

    bool decodeWord(uint32_t w, std::unique_lock<std::mutex>& lock, std::chrono::steady_clock::time_point deadline);
    bool pushReply(Reply r, std::unique_lock<std::mutex>& lock, std::chrono::steady_clock::time_point deadline);
    void pushPoll(ReplyKind kind, uint32_t arg, std::unique_lock<std::mutex>& lock,
                  std::chrono::steady_clock::time_point deadline, bool& ok);
    void pump();
    int64_t nowNs() const;
    uint64_t deviceTick(int64_t ns) const;
    int64_t headReadyNs() const;
    void render(const Reply& r, uint8_t* dst, uint32_t bytes);
    void renderStatus(const Reply& r, uint8_t* dst);
    void startStream(uint32_t code, uint32_t tune);
    uint64_t pacedTick(int64_t ns) const { return static_cast<uint64_t>(ns / 4 + tickOffset_); }
    // The stream's running tick as a status block reports it.
    uint64_t runningTickLocked() const;
    // ---- trigger input ----
    void advanceTriggerRingLocked(uint64_t tick);
    void renderTriggerRing(uint8_t* status);
    // ---- flash ----
    bool flashWord(uint32_t w, std::unique_lock<std::mutex>& lock, std::chrono::steady_clock::time_point deadline);
    void flashDataWord(uint32_t w);
    void rebuildScene();
    void captureFftLocked();
    double fftBandCentreLocked(const RfPath& path) const;
    double fftChainGainLocked(const RfPath& path, double centre, double f) const;
    // ---- RF decoding ----
    void registerWord(uint32_t address, uint32_t w);
    double ncoHz() const;
    double centerLocked() const;
    void ifChannels(double v, double slicePos, std::complex<double>& ti, std::complex<double>& tq) const;
    // Stream frequency of an RF frequency; false when the path stops it.
    bool streamHz(const RfPath& path, double rfHz, double& out) const;
    void generateLocked(int16_t* iq);
    void failAllLocked();
    void withdrawLocked(ReadRequest& r);

    const ZrDeviceType type_;
    const int serial_;
    const std::chrono::steady_clock::time_point epoch_;

    mutable std::mutex mu_;
    std::condition_variable cv_;

    // decoder
    Parse parse_ = Parse::Word;
    uint32_t remaining_ = 0;
    uint32_t regAddress_ = 0;
    uint32_t flashPage_ = 0;
    std::array<uint8_t, 1024> flashBuffer_{};
    std::vector<uint32_t> regs_;
    uint64_t unknownWords_ = 0;
    uint64_t pauseWords_ = 0;
    bool strict_ = false;

    // reply FIFO
    std::array<Reply, kFifoReplies> fifo_{};
    std::vector<int16_t> sampleSlots_;  // the samples of each data reply in the FIFO
    size_t fifoHead_ = 0, fifoCount_ = 0;
    ReadRequest* readHead_ = nullptr;
    ReadRequest* readTail_ = nullptr;
    int64_t lastReadyNs_ = 0;

    // stream and clock
    bool paced_ = true;
    bool streaming_ = false;
    int64_t tickOffset_ = 0;         // paced tick = steady ns / 4 + offset
    uint32_t streamDecimation_ = 1;
    bool streamBase61M44_ = false;
    std::array<uint32_t, 256> lastWord_{};
    double sampleRate_ = 50e6;
    uint32_t tuneWord_ = 0;
    uint64_t virtualTick_ = 0;       // unpaced clock
    double streamStartTick_ = 0.0;
    int64_t streamStartNs_ = 0;
    uint64_t blocksProduced_ = 0;    // data replies queued since stream start
    uint64_t dataBlocksSent_ = 0;
    uint32_t noiseIndex_ = 0;
    uint64_t rng_ = 0x9E3779B97F4A7C15ull;
    bool clippedSinceStatus_ = false;

    // scene
    std::vector<Tone> tones_;
    std::vector<ToneState> toneStates_;
    double noiseDbmPerHz_ = -160.0;
    float noiseSigma_ = 0.0f;
    float celsius_ = 30.0f;
    double centerHz_ = 1e9;
    bool centerOverride_ = false;
    RfFrontEnd rf_;
    uint32_t portAddress_ = 0, portCount_ = 0;
    std::array<uint32_t, 256> portWords_{};
    bool ifFilterLoaded_ = false;  // until then the FPGA passes the IF straight
    std::array<double, 63> ifTapsA_{}, ifTapsB_{};
    double attenDb_ = 0.0;
    std::vector<float> noiseRe_, noiseIm_;  // unit Gaussian per component
    std::vector<float> scratchRe_, scratchIm_;

    // status content and faults
    uint32_t fwRevision_ = 2;
    uint16_t fwMinor_ = 5, fwMajor_ = 7;
    uint8_t gpioInput_ = 0;
    bool ppsValid_ = false;
    int badMagic_ = 0;       // reads still to carry a bad magic
    bool statusInRead_ = false;
    int jesd_ = 0;           // reads still to carry the JESD bit
    bool adcOverload_ = false;
    int overloadReads_ = 0;  // reads still to carry the overload flag
    int hungReads_ = 0;      // reads still to go unanswered
    int pendingLoss_ = 0;
    uint8_t lossCounter_ = 0;
    bool failNextWrite_ = false;
    bool shortNextRead_ = false;
    bool timeOutNextRead_ = false;
    bool detached_ = false;
    uint32_t bootVersion_ = 2;
    bool running_ = true;
    // GPS receiver. UTC at device tick 0, a multiple of 4 ns.
    int64_t utcAtTickZeroNs_ = 0;
    bool gpsLocked_ = false;
    bool gpsSilent_ = false;
    int64_t gpsFrozenSecond_ = 0;  // UTC second at which the receiver fell silent
    double gpsLatitude_ = 0.0, gpsLongitude_ = 0.0, gpsAltitude_ = 0.0;
    void renderGps(const Reply& r, uint8_t* p);
    bool fpgaLoadFails_ = false;
    std::map<uint32_t, std::array<uint8_t, 1024>> flash_;  // NOR pages, absent = erased
    // External trigger input: edges not yet passed, and the ring of the
    // ticks of those passed.
    struct TriggerEdge {
        uint64_t tick;
        double widthNs;
    };
    std::vector<TriggerEdge> triggerEdges_;  // by tick
    std::array<uint32_t, 512> triggerRing_{};
    uint32_t triggerWrite_ = 0;
    std::unique_ptr<FftSweep> fft_;  // the FFT sweep (fft_sweep.h)
};

}  // namespace zr::sim
