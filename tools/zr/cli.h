// The command line of zr, parsed and checked before any instrument is
// touched, so that a typo costs nothing and never leaves a device open.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "zr_api.h"

namespace zrtool {

struct SimInstrument {
    ZrDeviceType type;
    int serial;  // 0: the next free one counting up from the model's first
};

struct SimTone {
    double frequency;  // Hz
    double level;      // dBm
};

// A sine-modulated carrier at the simulated input (--am, --fm).
struct SimModulated {
    bool fm;
    double frequency;  // Hz
    double level;      // dBm
    double rate;       // modulation frequency, Hz
    double amount;     // AM depth 0..1, FM peak deviation in Hz
};

struct SweepRequest {
    // Either start/stop or center/span, never a mix; checked by the parser.
    std::optional<double> start, stop, center, span;
    std::optional<double> rbw, vbw;
    std::optional<double> refLevel;   // dBm
    std::optional<int> attenuator;    // index 0..6 (5 dB steps), -1 automatic
    std::optional<ZrDetector> detector;
    std::optional<ZrWindowType> window;
    std::optional<ZrSweepSpeed> speed;
    int count = 1;       // sweeps power-averaged into each one reported
    int repeat = 1;      // sweeps reported, each with its index and time
    bool continuous = false;  // report sweeps until interrupted
    int peaks = 5;
    bool force = false;  // plan past the tool's ten million points
    bool autoscale = false;   // the plot's level axis fits the data, not the reference level
    std::string csvPath;      // "-": standard output
    std::string plotPath;
    std::string npyPath;      // --out: sweeps x bins as float32
    std::string waterfallPath;
};

// zr iq: a stream recorded to SigMF.
struct IQRecordRequest {
    std::optional<double> center;     // Hz, required
    double duration = 1.0;            // s
    int decimation = 1;               // a power of two, 1 to 4096
    std::optional<double> bandwidth;  // Hz; the library limits it to the rate
    std::optional<double> refLevel;
    std::optional<int> attenuator;
    ZrDataType format = zrDataType32fc;
    std::string outBase = "iq";       // BASE.sigmf-data and BASE.sigmf-meta
    std::string plotPath;
};

// zr audio: demodulated audio to a WAV file.
struct AudioRequest {
    std::optional<double> center;  // Hz, required
    ZrAudioType type = zrAudioFM;
    double duration = 5.0;         // s
    std::optional<double> ifBandwidth, lowPass, highPass, deemphasisUs;
    std::optional<double> refLevel;
    std::optional<int> attenuator;
    bool pcm16 = false;            // 16-bit samples instead of float
    bool play = false;             // also to aplay
    std::string outPath = "audio.wav";
};

// zr vrt: VITA 49 packets of a stream into a pcap file.
struct VrtRequest {
    std::optional<double> center;  // Hz, required
    int decimation = 8;
    int count = 100;                // data packets
    int packetSize = 1000;          // samples a data packet
    uint32_t streamId = 1;
    int contextEvery = 10;          // a context packet before every this many data packets
    std::optional<double> refLevel;
    std::optional<int> attenuator;
    std::string outPath = "vrt.pcap";
};

struct Invocation {
    std::string command;     // "list", "info", "sweep", "iq", "audio", "vrt", "version"; empty for bare help
    bool help = false;       // --help: print the command's help and stop
    std::vector<SimInstrument> sims;
    std::vector<SimTone> tones;
    std::vector<SimModulated> modulated;
    std::optional<double> noiseFloor;  // dBm/Hz
    std::string dataFolder;
    std::optional<int> serial;  // info: the positional SERIAL; sweep: --serial
    SweepRequest sweep;
    IQRecordRequest iq;
    AudioRequest audio;
    VrtRequest vrt;
};

// Fills `out` or returns false with a one-line message in `error` (without
// the "zr: " prefix).
bool parseCommandLine(const std::vector<std::string>& args, Invocation* out, std::string* error);

// Help text of a command; the general text for an empty or unknown name.
std::string helpText(const std::string& command);

const char* modelName(ZrDeviceType type);
const char* detectorName(ZrDetector detector);
const char* windowName(ZrWindowType window);
const char* speedName(ZrSweepSpeed speed);

}  // namespace zrtool
