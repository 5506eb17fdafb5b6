#include "cli.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <utility>
#include <functional>

#include "units.h"

namespace zrtool {
namespace {

constexpr double kLowestHz = 9e3;
constexpr double kMaxPoints = 1e7;

template <class E>
struct Named {
    const char* name;
    E value;
};

const Named<ZrDeviceType> kModels[] = {
    {"Mesa1", zrDeviceTypeMesa1}, {"Mesa2", zrDeviceTypeMesa2}, {"Ridge2", zrDeviceTypeRidge2}};
const Named<ZrDetector> kDetectors[] = {{"average", zrDetectorAverage}, {"minmax", zrDetectorMinMax}};
const Named<ZrWindowType> kWindows[] = {{"flattop", zrWindowFlatTop}, {"nuttall", zrWindowNuttall},
                                        {"blackman", zrWindowBlackman}, {"hamming", zrWindowHamming},
                                        {"gaussian", zrWindowGaussian}, {"rect", zrWindowRect}};
const Named<ZrSweepSpeed> kSpeeds[] = {
    {"auto", zrSweepSpeedAuto}, {"normal", zrSweepSpeedNormal}, {"fast", zrSweepSpeedFast}};

template <class E, size_t N>
std::optional<E> byName(const Named<E> (&table)[N], const std::string& name) {
    for (const auto& e : table)
        if (name == e.name) return e.value;
    return std::nullopt;
}

template <class E, size_t N>
const char* nameOf(const Named<E> (&table)[N], E value) {
    for (const auto& e : table)
        if (e.value == value) return e.name;
    return "unknown";
}

template <class E, size_t N>
std::string choices(const Named<E> (&table)[N]) {
    std::string s;
    for (const auto& e : table) s += (s.empty() ? "" : ", ") + std::string(e.name);
    return s;
}

std::optional<int> parseSerial(const std::string& text) {
    if (text.size() != 8) return std::nullopt;
    auto v = parseInteger(text, 10000000, 99999999);
    return v ? std::optional<int>(static_cast<int>(*v)) : std::nullopt;
}

// An option: the commands that take it ("" for every command) and what to
// do with its value. A handler returns an error text, empty when all is well.
struct Option {
    const char* name;
    const char* command;
    bool takesValue;
    std::function<std::string(Invocation&, const std::string&)> apply;
};

std::string frequencyInto(std::optional<double>& field, const char* option, const std::string& v) {
    auto f = parseFrequency(v);
    if (!f) return std::string(option) + " " + v + ": not a frequency (examples: 2.4G, 100M, 10k, 2.4e9)";
    field = *f;
    return {};
}

std::string countInto(int& field, const char* option, const std::string& v, long lo, long hi, const char* what) {
    auto n = parseInteger(v, lo, hi);
    if (!n) return std::string(option) + " " + v + ": " + what + std::to_string(lo) + " to " + std::to_string(hi);
    field = static_cast<int>(*n);
    return {};
}

std::string pathInto(std::string& field, const char* option, const std::string& v) {
    if (v.empty()) return std::string(option) + " needs a file name";
    field = v;
    return {};
}

template <class E, size_t N>
std::string choiceInto(std::optional<E>& field, const Named<E> (&table)[N], const char* option,
                       const std::string& v) {
    auto e = byName(table, v);
    if (!e) return std::string(option) + " " + v + ": choose one of " + choices(table);
    field = *e;
    return {};
}

std::string parseSim(Invocation& inv, const std::string& v) {
    const size_t colon = v.find(':');
    auto type = byName(kModels, v.substr(0, colon));
    if (!type) return "--sim " + v + ": unknown model (" + choices(kModels) + ")";
    SimInstrument sim{*type, 0};
    if (colon != std::string::npos) {
        auto serial = parseSerial(v.substr(colon + 1));
        if (!serial) return "--sim " + v + ": the serial must have 8 digits";
        sim.serial = *serial;
    }
    inv.sims.push_back(sim);
    return {};
}

std::string parseTone(Invocation& inv, const std::string& v) {
    const size_t colon = v.find(':');
    if (colon == std::string::npos) return "--tone " + v + ": write FREQ:DBM, for example 2.4G:-30";
    auto f = parseFrequency(v.substr(0, colon));
    auto p = parseLevel(v.substr(colon + 1));
    if (!f || *f <= 0) return "--tone " + v + ": " + v.substr(0, colon) + " is not a frequency above 0";
    if (!p) return "--tone " + v + ": " + v.substr(colon + 1) + " is not a level in dBm";
    inv.tones.push_back({*f, *p});
    return {};
}

// --am FREQ:DBM:RATE:DEPTH and --fm FREQ:DBM:RATE:DEVIATION
std::string parseModulated(Invocation& inv, const std::string& v, bool fm) {
    const std::string name = fm ? "--fm " : "--am ";
    const std::string form = fm ? "FREQ:DBM:RATE:DEVIATION, for example 98M:-40:1k:75k"
                                : "FREQ:DBM:RATE:DEPTH, for example 1M:-40:1k:0.5";
    std::vector<std::string> parts;
    size_t from = 0;
    for (size_t colon; (colon = v.find(':', from)) != std::string::npos; from = colon + 1)
        parts.push_back(v.substr(from, colon - from));
    parts.push_back(v.substr(from));
    if (parts.size() != 4) return name + v + ": write " + form;
    auto f = parseFrequency(parts[0]);
    auto p = parseLevel(parts[1]);
    auto rate = parseFrequency(parts[2]);
    auto amount = fm ? parseFrequency(parts[3]) : parseLevel(parts[3]);
    if (!f || *f <= 0 || !p || !rate || *rate <= 0 || !amount || *amount < 0 || (!fm && *amount > 1))
        return name + v + ": write " + form + (fm ? "" : " (depth 0 to 1)");
    inv.modulated.push_back({fm, *f, *p, *rate, *amount});
    return {};
}

std::optional<double>& refOf(Invocation& inv) {
    if (inv.command == "iq") return inv.iq.refLevel;
    if (inv.command == "audio") return inv.audio.refLevel;
    if (inv.command == "vrt") return inv.vrt.refLevel;
    return inv.sweep.refLevel;
}

std::string parseAtten(Invocation& inv, const std::string& v) {
    std::optional<int>& field = inv.command == "iq"      ? inv.iq.attenuator
                                : inv.command == "audio" ? inv.audio.attenuator
                                : inv.command == "vrt"   ? inv.vrt.attenuator
                                                         : inv.sweep.attenuator;
    if (v == "auto") {
        field = -1;
        return {};
    }
    auto db = parseInteger(v.size() > 2 && v.substr(v.size() - 2) == "dB" ? v.substr(0, v.size() - 2) : v, 0, 30);
    if (!db || *db % 5 != 0) return "--atten " + v + ": auto, or 0 to 30 dB in steps of 5";
    field = static_cast<int>(*db / 5);
    return {};
}

std::string parseDuration(Invocation& inv, const std::string& v) {
    std::string text = v;
    if (text.size() > 1 && text.back() == 's') text.pop_back();
    char* end = nullptr;
    const double d = std::strtod(text.c_str(), &end);
    if (text.empty() || end != text.c_str() + text.size() || !(d > 0.0) || d > 3600.0)
        return "--duration " + v + ": seconds above 0, at most 3600";
    (inv.command == "audio" ? inv.audio.duration : inv.iq.duration) = d;
    return {};
}

const std::vector<Option>& options() {
    static const std::vector<Option> table = {
        {"--sim", "", true, parseSim},
        {"--tone", "", true, parseTone},
        {"--am", "", true, [](Invocation& i, const std::string& v) { return parseModulated(i, v, false); }},
        {"--fm", "", true, [](Invocation& i, const std::string& v) { return parseModulated(i, v, true); }},
        {"--noise", "", true,
         [](Invocation& inv, const std::string& v) -> std::string {
             auto p = parseLevel(v.size() > 3 && v.substr(v.size() - 3) == "/Hz" ? v.substr(0, v.size() - 3) : v);
             if (!p) return "--noise " + v + ": a density in dBm/Hz, for example -160";
             inv.noiseFloor = *p;
             return {};
         }},
        {"--data-folder", "", true,
         [](Invocation& inv, const std::string& v) -> std::string {
             if (v.empty()) return "--data-folder needs a path";
             inv.dataFolder = v;
             return {};
         }},
        {"--serial", "sweep info iq audio vrt", true,
         [](Invocation& inv, const std::string& v) -> std::string {
             auto s = parseSerial(v);
             if (!s) return "--serial " + v + ": the serial must have 8 digits";
             inv.serial = *s;
             return {};
         }},
        {"--start", "sweep", true, [](Invocation& i, const std::string& v) { return frequencyInto(i.sweep.start, "--start", v); }},
        {"--stop", "sweep", true, [](Invocation& i, const std::string& v) { return frequencyInto(i.sweep.stop, "--stop", v); }},
        {"--center", "sweep iq audio vrt", true,
         [](Invocation& i, const std::string& v) {
             std::optional<double>& field = i.command == "iq"      ? i.iq.center
                                            : i.command == "audio" ? i.audio.center
                                            : i.command == "vrt"   ? i.vrt.center
                                                                   : i.sweep.center;
             return frequencyInto(field, "--center", v);
         }},
        {"--span", "sweep", true, [](Invocation& i, const std::string& v) { return frequencyInto(i.sweep.span, "--span", v); }},
        {"--rbw", "sweep", true, [](Invocation& i, const std::string& v) { return frequencyInto(i.sweep.rbw, "--rbw", v); }},
        {"--vbw", "sweep", true, [](Invocation& i, const std::string& v) { return frequencyInto(i.sweep.vbw, "--vbw", v); }},
        {"--ref", "sweep iq audio vrt", true,
         [](Invocation& inv, const std::string& v) -> std::string {
             auto p = parseLevel(v);
             if (!p) return "--ref " + v + ": a level in dBm, for example -20";
             refOf(inv) = *p;
             return {};
         }},
        {"--atten", "sweep iq audio vrt", true, parseAtten},
        {"--detector", "sweep", true, [](Invocation& i, const std::string& v) { return choiceInto(i.sweep.detector, kDetectors, "--detector", v); }},
        {"--window", "sweep", true, [](Invocation& i, const std::string& v) { return choiceInto(i.sweep.window, kWindows, "--window", v); }},
        {"--speed", "sweep", true, [](Invocation& i, const std::string& v) { return choiceInto(i.sweep.speed, kSpeeds, "--speed", v); }},
        {"--count", "sweep vrt", true,
         [](Invocation& i, const std::string& v) {
             return i.command == "vrt" ? countInto(i.vrt.count, "--count", v, 1, 10000000, "a number of data packets, ")
                                       : countInto(i.sweep.count, "--count", v, 1, 100000, "a number of sweeps, ");
         }},
        {"--repeat", "sweep", true,
         [](Invocation& i, const std::string& v) { return countInto(i.sweep.repeat, "--repeat", v, 1, 10000000, "a number of sweeps, "); }},
        {"--continuous", "sweep", false, [](Invocation& i, const std::string&) -> std::string {
             i.sweep.continuous = true;
             return {};
         }},
        {"--waterfall", "sweep", true, [](Invocation& i, const std::string& v) { return pathInto(i.sweep.waterfallPath, "--waterfall", v); }},
        {"--autoscale", "sweep", false, [](Invocation& i, const std::string&) -> std::string {
             i.sweep.autoscale = true;
             return {};
         }},
        {"--peaks", "sweep", true,
         [](Invocation& i, const std::string& v) { return countInto(i.sweep.peaks, "--peaks", v, 0, 100, ""); }},
        {"--csv", "sweep", true, [](Invocation& i, const std::string& v) { return pathInto(i.sweep.csvPath, "--csv", v); }},
        {"--plot", "sweep iq", true,
         [](Invocation& i, const std::string& v) {
             return pathInto(i.command == "iq" ? i.iq.plotPath : i.sweep.plotPath, "--plot", v);
         }},
        {"--duration", "iq audio", true, parseDuration},
        {"--type", "audio", true,
         [](Invocation& i, const std::string& v) -> std::string {
             static const char* names[] = {"am", "fm", "usb", "lsb", "cw"};
             for (int t = 0; t < 5; ++t)
                 if (v == names[t]) {
                     i.audio.type = ZrAudioType(t);
                     return {};
                 }
             return "--type " + v + ": am, fm, usb, lsb or cw";
         }},
        {"--ifbw", "audio", true, [](Invocation& i, const std::string& v) { return frequencyInto(i.audio.ifBandwidth, "--ifbw", v); }},
        {"--lowpass", "audio", true, [](Invocation& i, const std::string& v) { return frequencyInto(i.audio.lowPass, "--lowpass", v); }},
        {"--highpass", "audio", true, [](Invocation& i, const std::string& v) { return frequencyInto(i.audio.highPass, "--highpass", v); }},
        {"--deemphasis", "audio", true,
         [](Invocation& i, const std::string& v) -> std::string {
             std::string t = v;
             if (t.size() > 2 && t.substr(t.size() - 2) == "us") t.resize(t.size() - 2);
             auto us = parseLevel(t);
             if (!us || *us <= 0) return "--deemphasis " + v + ": microseconds, for example 75 or 50us";
             i.audio.deemphasisUs = *us;
             return {};
         }},
        {"--pcm16", "audio", false, [](Invocation& i, const std::string&) -> std::string {
             i.audio.pcm16 = true;
             return {};
         }},
        {"--play", "audio", false, [](Invocation& i, const std::string&) -> std::string {
             i.audio.play = true;
             return {};
         }},
        {"--decimation", "iq vrt", true,
         [](Invocation& i, const std::string& v) -> std::string {
             auto d = parseInteger(v, 1, 4096);
             if (!d || (*d & (*d - 1)) != 0) return "--decimation " + v + ": a power of two from 1 to 4096";
             (i.command == "vrt" ? i.vrt.decimation : i.iq.decimation) = static_cast<int>(*d);
             return {};
         }},
        {"--packet-size", "vrt", true,
         [](Invocation& i, const std::string& v) {
             // A UDP datagram holds at most 65507 bytes: 16370 samples and 6 words.
             return countInto(i.vrt.packetSize, "--packet-size", v, 128, 16370, "samples a packet, ");
         }},
        {"--context-every", "vrt", true,
         [](Invocation& i, const std::string& v) { return countInto(i.vrt.contextEvery, "--context-every", v, 1, 1000000, "data packets, "); }},
        {"--stream-id", "vrt", true,
         [](Invocation& i, const std::string& v) -> std::string {
             char* end = nullptr;
             const unsigned long long id = std::strtoull(v.c_str(), &end, 0);
             if (v.empty() || *end != 0 || id > 0xFFFFFFFFull) return "--stream-id " + v + ": 0 to 0xFFFFFFFF";
             i.vrt.streamId = uint32_t(id);
             return {};
         }},
        {"--bandwidth", "iq", true, [](Invocation& i, const std::string& v) { return frequencyInto(i.iq.bandwidth, "--bandwidth", v); }},
        {"--format", "iq", true,
         [](Invocation& i, const std::string& v) -> std::string {
             if (v == "cf32") i.iq.format = zrDataType32fc;
             else if (v == "ci16") i.iq.format = zrDataType16sc;
             else return "--format " + v + ": cf32 or ci16";
             return {};
         }},
        {"--out", "sweep iq audio vrt", true,
         [](Invocation& i, const std::string& v) {
             std::string& field = i.command == "iq"      ? i.iq.outBase
                                  : i.command == "audio" ? i.audio.outPath
                                  : i.command == "vrt"   ? i.vrt.outPath
                                                         : i.sweep.npyPath;
             return pathInto(field, "--out", v);
         }},
        {"--force", "sweep", false, [](Invocation& i, const std::string&) -> std::string {
             i.sweep.force = true;
             return {};
         }},
    };
    return table;
}

bool isCommand(const std::string& s) {
    return s == "list" || s == "info" || s == "sweep" || s == "iq" || s == "audio" || s == "vrt" || s == "version";
}

bool takes(const Option& o, const std::string& command) {
    const std::string cmds = o.command;
    if (cmds.empty()) return true;
    size_t pos = 0;
    while (pos < cmds.size()) {
        size_t end = cmds.find(' ', pos);
        if (end == std::string::npos) end = cmds.size();
        if (cmds.compare(pos, end - pos, command) == 0) return true;
        pos = end + 1;
    }
    return false;
}

std::string checkSweep(const Invocation& inv) {
    const SweepRequest& s = inv.sweep;
    const bool edges = s.start || s.stop, middle = s.center || s.span;
    if (edges && middle) return "give either --start/--stop or --center/--span, not both";
    if (edges && !(s.start && s.stop)) return s.start ? "--start needs --stop" : "--stop needs --start";
    if (middle && !(s.center && s.span)) return s.center ? "--center needs --span" : "--span needs --center";
    if (!edges && !middle) return "sweep needs a range: --start F --stop F, or --center F --span F";
    if (edges && *s.start >= *s.stop)
        return "impossible range: --start " + formatFrequency(*s.start) + " is not below --stop " +
               formatFrequency(*s.stop);
    if (middle && *s.span <= 0) return "--span must be above 0 Hz";
    if (middle && *s.center - *s.span / 2 < 0)
        return "impossible range: --center " + formatFrequency(*s.center) + " with --span " +
               formatFrequency(*s.span) + " reaches below 0 Hz";
    if (s.rbw && *s.rbw <= 0) return "--rbw must be above 0 Hz";
    if (s.continuous && s.repeat > 1) return "give either --repeat N or --continuous, not both";
    if (!s.waterfallPath.empty() && !s.continuous && s.repeat < 2)
        return "--waterfall draws repeated sweeps: add --repeat N (2 or more) or --continuous";
    if (!s.npyPath.empty() && (s.npyPath.size() < 5 || s.npyPath.compare(s.npyPath.size() - 4, 4, ".npy") != 0))
        return "--out " + s.npyPath + ": a numpy file name ending in .npy";
    if (s.vbw && *s.vbw <= 0) return "--vbw must be above 0 Hz";
    // A bare number is hertz; users of other sweep tools often mean MHz.
    for (const auto& [name, value] : {std::pair{"--start", s.start}, std::pair{"--stop", s.stop}, std::pair{"--center", s.center}})
        if (value && *value < kLowestHz)
            return name + std::string(" ") + formatFrequency(*value) + " is below the instruments' range (9 kHz); did you mean " +
                   trimmedNumber(*value, 6) + "M?";
    // About four bins per RBW of span; past ten million points a typo is
    // likelier than a wish, and the memory runs to gigabytes.
    const double span = edges ? *s.stop - *s.start : *s.span;
    const double rbw = s.rbw.value_or(100e3);
    if (!s.force && span * 4.0 / rbw > kMaxPoints) {
        double fits = 1.0;
        for (double decade = 1.0; span * 4.0 / fits > kMaxPoints; decade *= 10.0)
            fits = span * 4.0 / (3.0 * decade) <= kMaxPoints ? 3.0 * decade : 10.0 * decade;
        char points[32];
        std::snprintf(points, sizeof points, "%.3g", span * 4.0 / rbw);
        return std::string("--rbw ") + formatFrequency(rbw) + " over " + formatFrequency(span) + " needs about " + points +
               " points; try --rbw " + formatFrequency(fits, 0) + ", or add --force";
    }
    return {};
}

// A stream command's required centre, in the instruments' range.
std::string centerProblem(const std::optional<double>& center, const std::string& command) {
    if (!center) return command + " needs --center F";
    if (*center < kLowestHz)
        return "--center " + formatFrequency(*center) + " is below the instruments' range (9 kHz); did you mean " +
               trimmedNumber(*center, 6) + "M?";
    return {};
}

std::string checkIQ(const Invocation& inv) {
    if (std::string e = centerProblem(inv.iq.center, "iq"); !e.empty()) return e;
    if (inv.iq.bandwidth && *inv.iq.bandwidth <= 0) return "--bandwidth must be above 0 Hz";
    return {};
}


}  // namespace

bool parseCommandLine(const std::vector<std::string>& args, Invocation* out, std::string* error) {
    Invocation inv;
    std::vector<std::pair<const Option*, std::string>> given;
    std::vector<std::string> positional;
    for (size_t i = 0; i < args.size(); ++i) {
        std::string a = args[i];
        if (a == "-h" || a == "--help") {
            inv.help = true;
            continue;
        }
        if ((a == "-V" || a == "--version") && inv.command.empty()) {
            inv.command = "version";
            continue;
        }
        if (a.rfind("--", 0) != 0 || a.size() == 2) {
            if (inv.command.empty() && isCommand(a)) inv.command = a;
            else if (inv.command.empty()) {
                *error = "unknown command " + a + " (see zr --help)";
                return false;
            } else positional.push_back(a);
            continue;
        }
        std::string value;
        bool inlineValue = false;
        if (const size_t eq = a.find('='); eq != std::string::npos) {
            value = a.substr(eq + 1);
            a = a.substr(0, eq);
            inlineValue = true;
        }
        const Option* opt = nullptr;
        for (const Option& o : options())
            if (a == o.name) opt = &o;
        if (!opt) {
            *error = "unknown option " + a + " (see zr --help)";
            return false;
        }
        if (!inlineValue && opt->takesValue) {
            if (i + 1 >= args.size()) {
                *error = a + " needs a value (see zr --help)";
                return false;
            }
            value = args[++i];
        }
        given.emplace_back(opt, value);
    }
    if (inv.help) {
        *out = inv;
        return true;
    }
    if (inv.command.empty()) {
        *error = "no command given (list, info, sweep, iq, audio, vrt, version; see zr --help)";
        return false;
    }
    for (const auto& [opt, value] : given) {
        if (!takes(*opt, inv.command)) {
            *error = std::string(opt->name) + " is not an option of " + inv.command + " (see zr " + inv.command + " --help)";
            return false;
        }
        if (std::string e = opt->apply(inv, value); !e.empty()) {
            *error = e;
            return false;
        }
    }
    if (inv.command == "info" && !positional.empty()) {
        auto s = parseSerial(positional.front());
        if (!s) {
            *error = "info " + positional.front() + ": the serial must have 8 digits";
            return false;
        }
        inv.serial = *s;
        positional.erase(positional.begin());
    }
    if (!positional.empty()) {
        *error = "unexpected argument " + positional.front() + " (see zr " + inv.command + " --help)";
        return false;
    }
    if ((!inv.tones.empty() || !inv.modulated.empty()) && inv.sims.empty()) {
        *error = "--tone, --am and --fm describe the signal at a simulated instrument; add --sim MODEL";
        return false;
    }
    if (inv.noiseFloor && inv.sims.empty()) {
        *error = "--noise describes a simulated instrument; add --sim MODEL";
        return false;
    }
    if (inv.command == "sweep" || inv.command == "iq" || inv.command == "audio" || inv.command == "vrt") {
        const std::string e = inv.command == "iq"      ? checkIQ(inv)
                              : inv.command == "audio" ? centerProblem(inv.audio.center, "audio")
                              : inv.command == "vrt"   ? centerProblem(inv.vrt.center, "vrt")
                                                       : checkSweep(inv);
        if (!e.empty()) {
            *error = e;
            return false;
        }
    }
    *out = inv;
    return true;
}

const char* modelName(ZrDeviceType t) {
    switch (t) {
        case zrDeviceTypeMesa1: return "Mesa1";
        case zrDeviceTypeMesa2: return "Mesa2";
        case zrDeviceTypeMesa3: return "Mesa3";
        case zrDeviceTypeRidge2: return "Ridge2";
        case zrDeviceTypeRidge3: return "Ridge3";
    }
    return "unknown";
}
const char* detectorName(ZrDetector d) { return nameOf(kDetectors, d); }
const char* windowName(ZrWindowType w) { return nameOf(kWindows, w); }
const char* speedName(ZrSweepSpeed s) { return nameOf(kSpeeds, s); }

std::string helpText(const std::string& command) {
    const std::string simulated =
        "simulated instruments (any command):\n"
        "  --sim MODEL[:SERIAL]   plug a simulated Mesa1, Mesa2 or Ridge2 into this process;\n"
        "                         SERIAL has 8 digits; by default each model counts up from its\n"
        "                         own: Mesa1 10000001, Mesa2 20000001, Ridge2 30000001. Repeatable.\n"
        "  --tone FREQ:DBM        a CW tone at every simulated instrument's input, for example\n"
        "                         2.4G:-30. Repeatable.\n"
        "  --am FREQ:DBM:RATE:DEPTH       an AM carrier (DBM the carrier's), for example 1M:-40:1k:0.5\n"
        "  --fm FREQ:DBM:RATE:DEVIATION   an FM carrier, for example 98M:-40:1k:75k. Both repeatable.\n"
        "  --noise DBM/HZ         noise floor of the simulated instruments, for example -160\n"
        "  --data-folder PATH     folder for the library's log and calibration caches (with --sim\n"
        "                         the default is a folder of its own under the temporary folder)\n";
    if (command == "list")
        return "usage: zr [--sim MODEL[:SERIAL]]... list\n\n"
               "Lists the instruments on USB that no program holds open: serial and model.\n\n" +
               simulated;
    if (command == "info")
        return "usage: zr info [SERIAL]\n\n"
               "Opens an instrument (the first one listed without SERIAL) and prints its identity,\n"
               "firmware, calibration date, supply and temperatures.\n\n" +
               simulated;
    if (command == "version") return "usage: zr version\n\nPrints the library's version.\n";
    if (command == "iq")
        return "usage: zr iq --center F [options]\n\n"
               "Records an I/Q stream as SigMF: BASE.sigmf-data holds the samples (cf32_le, calibrated\n"
               "so that |x|^2 is mW; or ci16_le, raw, with the factor to mW^0.5 in the metadata) and\n"
               "BASE.sigmf-meta the rate, centre, the first sample's UTC from the instrument, and an\n"
               "annotation per external trigger and per sample-loss event.\n\n"
               "  --center F             centre frequency\n"
               "  --duration S           seconds to record (default 1)\n"
               "  --decimation N         1 to 4096, a power of two: 50 MS/s / N (default 1)\n"
               "  --bandwidth F          filter bandwidth (default: the widest the rate allows)\n"
               "  --ref DBM              reference level (default 0)\n"
               "  --atten DB             auto, or 0 to 30 in steps of 5\n"
               "  --format cf32|ci16     sample format (default cf32)\n"
               "  --out BASE             file names without their endings (default iq)\n"
               "  --plot FILE            draw the recording's averaged spectrum into a PNG image\n"
               "  --serial SERIAL        which instrument (default: the first one listed)\n\n" +
               simulated + "\nexample:\n  zr --sim Mesa2 --tone 2.4001G:-30 iq --center 2.4G --duration 0.5 --plot iq.png\n";
    if (command == "audio")
        return "usage: zr audio --center F [options]\n\n"
               "Demodulates a signal and writes the audio, 31250 samples a second, to a WAV file\n"
               "(32-bit float, or 16-bit with --pcm16, where full scale is 1.0).\n\n"
               "  --center F             the carrier's frequency\n"
               "  --type T               am, fm, usb, lsb or cw (default fm; cw sounds a carrier at\n"
               "                         the centre at 520 Hz)\n"
               "  --duration S           seconds to record (default 5)\n"
               "  --ifbw F               IF bandwidth, 500 to 250k (default 200k)\n"
               "  --lowpass F            audio low-pass, 1k to 12k (default 12k)\n"
               "  --highpass F           audio high-pass, 20 to 1k (default 100)\n"
               "  --deemphasis US        FM de-emphasis in microseconds, 1 to 100 (default 75)\n"
               "  --ref DBM              reference level (default 0)\n"
               "  --atten DB             auto, or 0 to 30 in steps of 5\n"
               "  --pcm16                16-bit samples instead of float\n"
               "  --play                 play it too, through aplay, while recording\n"
               "  --out FILE             the WAV file (default audio.wav)\n"
               "  --serial SERIAL        which instrument (default: the first one listed)\n\n" +
               simulated + "\nexample:\n  zr --sim Mesa2 --fm 98M:-40:1k:50k audio --center 98M --duration 2 --out fm.wav\n";
    if (command == "vrt")
        return "usage: zr vrt --center F [options]\n\n"
               "Writes VITA 49 packets of an I/Q stream into a pcap file, each as the payload of a\n"
               "UDP datagram from 127.0.0.2 to 127.0.0.1, port 4991, where Wireshark's VITA 49\n"
               "dissector reads them: a context packet first and then before every N data packets.\n\n"
               "  --center F             centre frequency\n"
               "  --decimation N         1 to 4096, a power of two: 50 MS/s / N (default 8)\n"
               "  --count N              data packets (default 100)\n"
               "  --packet-size N        samples a data packet, 128 to 16370 (default 1000)\n"
               "  --context-every N      data packets between context packets (default 10)\n"
               "  --stream-id ID         the stream identifier, decimal or 0x hex (default 1)\n"
               "  --ref DBM              reference level: the samples' full scale (default 0)\n"
               "  --atten DB             auto, or 0 to 30 in steps of 5\n"
               "  --out FILE             the pcap file (default vrt.pcap)\n"
               "  --serial SERIAL        which instrument (default: the first one listed)\n\n" +
               simulated + "\nexample:\n  zr --sim Mesa2 --tone 1.0001G:-30 vrt --center 1G --count 50 --out vrt.pcap\n";
    if (command == "sweep")
        return "usage: zr sweep (--start F --stop F | --center F --span F) [options]\n\n"
               "Sweeps a range and prints the strongest peaks; writes the trace to CSV and PNG on\n"
               "request. Frequencies take k, M and G (1.5G, 100M, 10k) or exponents (2.4e9).\n\n"
               "  --start F, --stop F    edges of the range\n"
               "  --center F, --span F   or its middle and width\n"
               "  --rbw F                resolution bandwidth (default 100k)\n"
               "  --vbw F                video bandwidth (default: the RBW)\n"
               "  --detector D           average or minmax\n"
               "  --window W             flattop, nuttall, blackman, hamming, gaussian or rect\n"
               "  --speed S              auto, normal or fast\n"
               "  --ref DBM              reference level (default 0)\n"
               "  --atten DB             auto, or 0 to 30 in steps of 5\n"
               "  --count N              sweep N times and report the power average\n"
               "  --repeat N             report N sweeps, each with its index and time\n"
               "  --continuous           report sweeps until interrupted (Ctrl-C ends after the\n"
               "                         sweep in progress, with everything complete written)\n"
               "  --serial SERIAL        which instrument (default: the first one listed)\n"
               "  --peaks N              rows of the peak table (default 5; 0: none)\n"
               "  --csv FILE             write frequency_hz,level_dbm rows; with --repeat or\n"
               "                         --continuous sweep,time_utc,time_ns,frequency_hz,level_dbm;\n"
               "                         FILE - is standard output\n"
               "  --out FILE.npy         the sweeps as a numpy float32 array (sweeps x bins), with\n"
               "                         the frequency axis and times in FILE.json\n"
               "  --plot FILE            draw the (last) trace into a PNG image, the reference level\n"
               "                         at the top\n"
               "  --autoscale            fit the plot's level axis to the trace instead\n"
               "  --waterfall FILE       draw repeated sweeps as a PNG: time down, frequency across\n"
               "  --force                sweep even past ten million points\n\n" +
               simulated + "\nexample:\n  zr --sim Mesa2 --tone 2.4G:-30 sweep --start 2G --stop 3G --plot sweep.png\n";
    return "usage: zr [--sim MODEL[:SERIAL]]... COMMAND [options]\n\n"
           "commands:\n"
           "  list      instruments on USB that no program holds open\n"
           "  info      identity, firmware, calibration and diagnostics of one instrument\n"
           "  sweep     sweep a range: peak table, CSV and PNG plot\n"
           "  iq        record an I/Q stream to SigMF files\n"
           "  audio     demodulate AM, FM, SSB or CW to a WAV file\n"
           "  vrt       VITA 49 packets of a stream into a pcap file\n"
           "  version   library version\n\n"
           "zr COMMAND --help describes a command.\n\n" +
           simulated;
}

}  // namespace zrtool
