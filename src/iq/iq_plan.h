#pragma once
// The I/Q plan: everything a stream needs before its first sample. From the
// I/Q settings come the rate the caller gets, the split of the decimation
// between the instrument and the host, the slice and down-converter word,
// the gain that makes samples calibrated, the host's filter stages and the
// command lists. The arithmetic is plain functions so it can be checked on
// its own; buildUsbIQPlan and buildNetworkedIQPlan put it together on a
// device (calibration lookups, the RF tune).

#include <array>
#include <cstdint>
#include <vector>

#include "calibration/correction_set.h"
#include "transport/command_list.h"
#include "zr_api.h"

namespace zr {

struct ZrDevice;
struct IQSettings;

// ---------------------------------------------------------------- rates

struct IQRates {
    double base = 5e7;                   // Hz, the instrument's rate before decimation
    double ticksPerBaseSample = 5.0;     // of the 250 MHz instrument clock
};
IQRates iqRates(ZrIQBaseRate rate, bool networked);

constexpr int kMaxHardwareDecimation = 8;
inline int hardwareDecimationFor(int decimation) { return decimation < kMaxHardwareDecimation ? decimation : kMaxHardwareDecimation; }
inline int softwareDecimationFor(int decimation) { return decimation > kMaxHardwareDecimation ? decimation / kMaxHardwareDecimation : 1; }

// The stored bandwidth after the plan's limits: at least 1 % of the sample
// rate; at most 41.5 MHz on USB at decimation 1, 76.8 % of the rate on USB
// otherwise, 80 % on the networked models.
double clampIQBandwidth(double bandwidth, double sampleRate, int decimation, bool networked);

// Transfers kept in flight for a queue size in ms: one per 2.62144 ms, 2..16.
int iqQueueTransfers(float queueMs);

// The host's decimation after the instrument's: up to two low-pass stages,
// each followed by a down-sampler. Cut-offs are fractions of each stage's
// input rate; a factor of 1 means the stage does not exist.
struct HostStages {
    int oneFactor = 1, twoFactor = 1;
    int oneTaps = 0, twoTaps = 0;
    double oneCutoff = 0.0, twoCutoff = 0.0;
};
// USB: 2049-tap stages; stage one takes up to 8, stage two the rest.
HostStages usbHostStages(int softwareDecimation, double bandwidth);
// Networked: stage one up to 32, stage two the rest, (factor * 64) + 1 taps.
HostStages networkedHostStages(int softwareDecimation, double bandwidth, double base);

// ------------------------------------------------------- tune and word

constexpr double kDdcStepHz = 244140.625;  // 250 MHz / 1024, the USB down-converter's step

// USB: the slice whose LO serves the top of the band, and the
// down-converter's word and the centre it really tunes.
struct UsbIQTune {
    int slice = 0;
    double loHz = 0.0;
    int32_t word = 0;
    double ddcCenterHz = 0.0;
};
UsbIQTune usbIQTune(double center, double sampleRate);

// The host oscillator that moves the rest of the way, as a fraction of the
// instrument's output rate, wrapped into 0..1.
double usbOscillatorFrequency(double center, double ddcCenterHz, double base, int hardwareDecimation);

// Networked: a 56-bit down-converter tunes the centre exactly.
constexpr double kNetworkedDdcStepHz = 3.469446951953614e-9;  // 250 MHz / 2^56
struct NetworkedIQTune {
    int slice = 0;
    int loIndex = 0;
    double rfFreq = 0.0;
    double loFreq = 0.0;
    uint64_t word56 = 0;
};
NetworkedIQTune networkedIQTune(double center, double sampleRate);

// ------------------------------------------- networked instrument filters

// The networked instrument's four FIR stages: the cut-off each is designed
// with for a stream (fractions of each stage's reference rate), and the
// default prototypes it is left with at the end.
struct InstrumentFirCutoffs {
    std::array<double, 4> cutoff{0.08, 0.2, 0.2, 0.2};
    int narrowed = 0;  // 1..4, or 0 when every stage keeps its default
};
InstrumentFirCutoffs instrumentFirCutoffs(int decimation, bool softwareFilter, double bandwidth, double base);
// The full symmetric default prototype of a stage (1..4).
std::vector<double> defaultDecimationTaps(int stage);
// A stage designed with the library's low-pass.
std::vector<double> designDecimationTaps(int stage, double cutoff);

// ------------------------------------------------------------- the plan

struct IQPlan {
    // What the instrument is sent and what the engine undoes.
    std::array<float, kIFFilterValues> correctionTaps{};
    int hardwareDecimation = 1;
    double ddcCenterHz = 0.0;
    float gainDb = 0.0f;

    // Rates and the host's share of the work.
    IQRates rates;
    int decimation = 1;
    int softwareDecimation = 1;
    double sampleRate = 5e7;
    double bandwidth = 1.6e8;
    double center = 1e9;
    ZrDataType dataType = zrDataType32fc;
    HostStages stages;
    bool softwareFilterOn = false;
    double softwareFilterCutoff = 0.0;
    int transfers = 12;
    double oscillatorFrequency = 1.0;
    bool preciseOscillator = false;

    // The tune.
    int slice = 0;
    int attenIndex = 0;
    int preselectFilter = -1;
    uint32_t ddcWord = 0;        // USB: the 16-bit word of the stream start
    uint64_t ddcWord56 = 0;      // networked
    ZrStatus status = zrNoError; // zrSpanLimitedByPreselector when the bandwidth leaves the filter

    // sqrt(10^(gainDb/10)): what 32fc samples are multiplied by.
    float scale() const;
};

// The request a USB stream sends once per transfer: the list head, one data
// word per 8192-byte chunk but the last, one status word.
CommandList usbIQRequestList(int hardwareDecimation);
// The networked request: 256 / hardwareDecimation replies.
CommandList networkedIQRequestList(int hardwareDecimation);
// The networked end list: every stage back to its default prototype.
CommandList networkedIQEndList();

// The plans on a device: settings in (the plan writes the sample rate and
// the clamped bandwidth back into them), plan and lists out. The result is
// zrNoError or zrSpanLimitedByPreselector. Tunes through the device's RF
// state; sends nothing.
ZrStatus buildUsbIQPlan(ZrDevice& dev, IQSettings& settings, IQPlan& plan, CommandList& setup,
                        CommandList& request);
ZrStatus buildNetworkedIQPlan(ZrDevice& dev, IQSettings& settings, IQPlan& plan, CommandList& setup,
                              CommandList& request, CommandList& end);

}  // namespace zr
