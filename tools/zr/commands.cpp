#include "commands.h"

#include <signal.h>
#include <unistd.h>

#include <cmath>
#include <csignal>
#include <optional>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <set>
#include <string>
#include <vector>

#include "csv.h"
#include "session.h"
#include "sweep_output.h"
#include "usb_access.h"
#include "peaks.h"
#include "plot.h"
#include "progress.h"
#include "units.h"
#include "zr_api.h"
#include "zr_sim.h"

namespace zrtool {
namespace {

std::string dateText(uint64_t seconds) {
    if (seconds == 0xFFFFFFFFu) return "none (uncorrected measurements)";
    const std::time_t t = static_cast<std::time_t>(seconds);
    std::tm tm{};
    gmtime_r(&t, &tm);
    char buf[40];
    std::strftime(buf, sizeof buf, "%Y-%m-%d %H:%M UTC", &tm);
    return buf;
}

std::string levelText(double dbm) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.2f dBm", dbm);
    return buf;
}

// The power average of several traces, bin by bin, in dBm.
void averageInto(std::vector<double>& powerSum, const std::vector<float>& trace) {
    for (size_t i = 0; i < trace.size(); ++i) powerSum[i] += std::pow(10.0, trace[i] / 10.0);
}

struct SweepResult {
    std::vector<float> levels;
    double startHz = 0, binHz = 0, rbw = 0, vbw = 0;
    ZrSweepSettings settings{};  // as configured, defaults included
    double refLevel = 0;
    int attenuator = -1;
};

// A sweep takes about four bins per RBW of span (the window's noise
// bandwidth over the bin width, rounded to a power of two), so the points
// it needs, and the RBW on the 1-3-10 ladder that brings it to ten million.
std::string sweepTooLargeHint(const SweepRequest& s) {
    double span = 20.6e9;
    if (s.start && s.stop) span = *s.stop - *s.start;
    else if (s.span) span = *s.span;
    const double rbw = s.rbw.value_or(100e3);
    const double points = span * 4.0 / rbw;
    double suggested = 1.0;
    for (double decade = 1.0; span * 4.0 / suggested > 1e7; decade *= 10.0)
        suggested = span * 4.0 / (3.0 * decade) <= 1e7 ? 3.0 * decade : 10.0 * decade;
    char text[200];
    std::snprintf(text, sizeof text, "these settings need about %.3g points per sweep, more than memory allows; try --rbw %s",
                  points, formatFrequency(suggested, 0).c_str());
    return text;
}

// Stores every setting the user gave; the library's defaults stand for the rest.
bool applySettings(int h, const SweepRequest& s, int* rc) {
    if (s.start && !check("--start/--stop", zrSetSweepStartStop(h, *s.start, *s.stop), rc)) return false;
    if (s.center && !check("--center/--span", zrSetSweepCenterSpan(h, *s.center, *s.span), rc)) return false;
    if (s.rbw || s.vbw) {
        // The library's default for both is 100 kHz; an RBW alone brings
        // the VBW along, as most users expect.
        const double rbw = s.rbw.value_or(100e3);
        const double vbw = s.vbw.value_or(rbw);
        if (!check("--rbw/--vbw", zrSetSweepCoupling(h, rbw, vbw, 1e-6), rc)) return false;
    }
    if (s.detector && !check("--detector", zrSetSweepDetector(h, *s.detector, zrVideoPower), rc)) return false;
    if (s.window && !check("--window", zrSetSweepWindow(h, *s.window), rc)) return false;
    if (s.speed && !check("--speed", zrSetSweepSpeed(h, *s.speed), rc)) return false;
    if (s.refLevel) {
        const ZrStatus st = zrSetRefLevel(h, *s.refLevel);
        if (st < 0) return check("--ref", st, rc);
        // The library clamps the level without a word; say what it took.
        double stored = *s.refLevel;
        zrGetRefLevel(h, &stored);
        if (stored != *s.refLevel) {
            std::fprintf(stderr, "zr: warning: --ref %s dBm clamped to %+g dBm\n", trimmedNumber(*s.refLevel, 2).c_str(),
                         stored);
        }
    }
    if (s.attenuator && !check("--atten", zrSetAttenuator(h, *s.attenuator), rc)) return false;
    return check("scale", zrSetSweepScale(h, zrScaleLog), rc);
}

// Settings, configuration and the sweep's shape.
bool configureSweep(const OpenDevice& dev, const SweepRequest& req, SweepResult* out, int* rc) {
    const int h = dev.handle();
    if (!applySettings(h, req, rc)) return false;
    const ZrStatus configured = zrConfigure(h, zrModeSweeping);
    const std::string memoryHint = configured == zrAllocationErr ? sweepTooLargeHint(req) : std::string();
    if (!check("configure", configured, rc,
               configured == zrInvalidConfigurationErr
                   ? "this library cannot run the sweep engine these settings choose; --speed normal takes the stepped one"
                   : configured == zrAllocationErr ? memoryHint.c_str() : nullptr))
        return false;
    int length = 0;
    if (!check("sweep parameters", zrGetSweepParameters(h, &out->rbw, &out->vbw, &out->startHz, &out->binHz, &length), rc))
        return false;
    // What the title reports is what ran, the library's defaults included.
    zrGetSweepSettings(h, &out->settings);
    zrGetRefLevel(h, &out->refLevel);
    zrGetAttenuator(h, &out->attenuator);
    if (length <= 0) {
        std::fprintf(stderr, "zr: the sweep has no bins (range narrower than one bin?)\n");
        *rc = 1;
        return false;
    }
    out->levels.assign(size_t(length), 0.0f);
    return true;
}

// One reported sweep: the power average of --count sweeps, timed by the first.
bool reportedSweep(int h, const SweepRequest& req, int index, SweepResult* r, int64_t* ns, std::set<int>& warned,
                   int* rc) {
    const size_t length = r->levels.size();
    std::vector<double> powerSum(req.count > 1 ? length : 0);
    for (int n = 0; n < req.count; ++n) {
        int64_t timestamp = 0;
        const ZrStatus s = zrGetSweep(h, nullptr, r->levels.data(), &timestamp);
        if (s < 0) {
            *rc = fail("sweep " + std::to_string(index + 1), s,
                       s == zrConnectionLostErr ? "check the cable; the instrument stopped answering" : nullptr);
            return false;
        }
        if (n == 0) *ns = timestamp;
        if (s > 0 && warned.insert(s).second)
            warn("sweep", s, s == zrADCOverflow ? "the input overloads the converter: raise --ref or --atten" : nullptr);
        if (req.count > 1) averageInto(powerSum, r->levels);
    }
    if (req.count > 1)
        for (size_t i = 0; i < length; ++i) r->levels[i] = static_cast<float>(10.0 * std::log10(powerSum[i] / req.count));
    return true;
}

std::string settingsLine(const SweepRequest& req, const SweepResult& r) {
    std::string s = "RBW " + formatFrequency(r.rbw, 3) + "   VBW " + formatFrequency(r.vbw, 3);
    s += "   ref " + trimmedNumber(r.refLevel, 1) + " dBm";
    s += "   atten " + (r.attenuator >= 0 ? std::to_string(r.attenuator * 5) + " dB" : std::string("auto"));
    s += std::string("   ") + detectorName(r.settings.detector) + "   " + windowName(r.settings.window);
    s += std::string("   speed ") + speedName(r.settings.speed);
    if (req.count > 1) s += "   average of " + std::to_string(req.count);
    return s;
}

void printPeaks(FILE* out, const std::vector<Peak>& peaks, const SweepResult& r, float threshold) {
    if (peaks.empty()) {
        std::fprintf(out, "no peak stands clear of the noise (none reaches %.1f dBm)\n", threshold);
        return;
    }
    std::fprintf(out, "peaks clear of the noise (%.1f dBm or more), strongest first:\n", threshold);
    std::fprintf(out, "%3s  %18s  %12s\n", "#", "frequency", "level");
    for (size_t k = 0; k < peaks.size(); ++k)
        std::fprintf(out, "%3zu  %18s  %12s\n", k + 1, formatFrequencyTo(peaks[k].frequency, r.binHz).c_str(),
                     levelText(peaks[k].level).c_str());
}

}  // namespace

int prepareSession(const Invocation& inv) {
    std::string folder = inv.dataFolder;
    if (folder.empty() && !inv.sims.empty()) {
        // Simulated serials must not share calibration caches with real
        // instruments that happen to carry the same number.
        const char* tmp = std::getenv("TMPDIR");
        folder = std::string(tmp && *tmp ? tmp : "/tmp") + "/zr-sim-" + std::to_string(getuid());
    }
    if (!folder.empty()) {
        const ZrStatus s = zrSetDataFolder(folder.c_str());
        if (s < 0) return fail("data folder " + folder, s, "give a folder that can be created and written");
    }
    if (inv.sims.empty()) return 0;
    // The protocol's fixed waits are for real hardware; a simulated
    // instrument is ready at once.
    zrSimSetWaitScale(0.01);
    // Each model counts up from its own first serial, so that simulated
    // instruments of two models never meet under one serial (and one
    // calibration cache).
    auto firstSerial = [](ZrDeviceType t) {
        switch (t) {
            case zrDeviceTypeMesa1: return 10000001;
            case zrDeviceTypeMesa2: return 20000001;
            case zrDeviceTypeRidge2: return 30000001;
            default: return 40000001;
        }
    };
    std::set<int> taken;
    for (const SimInstrument& s : inv.sims)
        if (s.serial) taken.insert(s.serial);
    for (const SimInstrument& sim : inv.sims) {
        int serial = sim.serial;
        if (!serial) {
            serial = firstSerial(sim.type);
            while (taken.count(serial)) ++serial;
        }
        taken.insert(serial);
        const std::string what = std::string("--sim ") + modelName(sim.type) + ":" + std::to_string(serial);
        if (ZrStatus st = zrSimAttachUSB(sim.type, serial); st < 0)
            return fail(what, st, "each simulated serial may be plugged once");
        for (const SimTone& t : inv.tones)
            if (ZrStatus st = zrSimAddTone(serial, t.frequency, t.level); st < 0)
                return fail("--tone " + formatFrequency(t.frequency) + ":" + trimmedNumber(t.level, 2), st, nullptr);
        for (const SimModulated& m : inv.modulated) {
            const ZrStatus st = m.fm ? zrSimAddFM(serial, m.frequency, m.level, m.rate, m.amount)
                                     : zrSimAddAM(serial, m.frequency, m.level, m.rate, m.amount);
            if (st < 0) return fail(m.fm ? "--fm" : "--am", st, m.fm ? "the deviation may be at most 200 times the rate" : nullptr);
        }
        if (inv.noiseFloor)
            if (ZrStatus st = zrSimSetNoiseFloor(serial, *inv.noiseFloor); st < 0)
                return fail("--noise", st, nullptr);
    }
    return 0;
}

int runList(const Invocation&) {
    int serials[9];
    ZrDeviceType types[9];
    int count = 0;
    const ZrStatus s = zrGetDeviceList2(serials, types, &count);
    if (s < 0) return fail("list", s, nullptr);
    int locked = 0;
    for (const UsbNode& n : instrumentNodes()) {
        if (n.accessible) continue;
        std::fprintf(stderr, "zr: an instrument on USB bus %03d device %03d cannot be opened: no permission on %s\n",
                     n.bus, n.device, n.path.c_str());
        ++locked;
    }
    if (locked)
        std::fprintf(stderr,
                     "    hint: sudo cp udev/60-zr-instruments.rules /etc/udev/rules.d/ && sudo udevadm control "
                     "--reload-rules && sudo udevadm trigger, and add yourself to the plugdev group (README, "
                     "Real instruments on Linux)\n");
    if (count == 0) {
        if (!locked) std::printf("no instruments found (plug one in, or try zr --sim Mesa2 list)\n");
        return 0;
    }
    std::printf("%-10s %-8s\n", "SERIAL", "MODEL");
    for (int i = 0; i < count; ++i) std::printf("%08d   %-8s\n", serials[i], modelName(types[i]));
    return 0;
}

int runInfo(const Invocation& inv) {
    int rc = 0;
    OpenDevice dev;
    if (!dev.open(inv, &rc)) return rc;
    const int h = dev.handle();
    int major = 0, minor = 0, revision = 0;
    ZrBool ifOut = zrFalse;
    uint64_t calDate = 0;
    ZrDeviceDiagnostics d{};
    int gps = 0;
    if (!check("firmware version", zrGetFirmwareVersion(h, &major, &minor, &revision), &rc) ||
        !check("calibration date", zrGetCalDate(h, &calDate), &rc) ||
        !check("diagnostics", zrGetFullDeviceDiagnostics(h, &d), &rc))
        return rc;
    // Models without an IF output port refuse the question itself.
    const bool ifKnown = zrHasIFOutput(h, &ifOut) >= 0;
    const bool gpsKnown = zrGetGPSState(h, &gps) >= 0;
    std::printf("%-14s %08d\n", "serial", dev.serial());
    std::printf("%-14s %s\n", "model", modelName(dev.type()));
    std::printf("%-14s %d.%d.%d\n", "firmware", major, minor, revision);
    std::printf("%-14s %s\n", "IF output", !ifKnown ? "none on this model" : ifOut ? "yes" : "no");
    std::printf("%-14s %s\n", "calibrated", dateText(calDate).c_str());
    std::printf("%-14s %.2f V, %.3f A\n", "supply", d.voltage, d.currentInput);
    std::printf("%-14s FPGA %.1f C, calibration %.1f C, sensors A %.1f C, C %.1f C, D %.1f C, E %.1f C\n",
                "temperatures", d.tempFPGA, d.tempCal, d.tempSensorA, d.tempSensorC, d.tempSensorD, d.tempSensorE);
    if (gpsKnown)
        std::printf("%-14s %s\n", "GPS", gps == 0 ? "no lock" : gps == 1 ? "locked" : "locked, disciplining the timebase");
    return 0;
}

int runSweep(const Invocation& inv) {
    const SweepRequest& req = inv.sweep;
    // Every output is checked before an instrument is touched.
    std::string error;
    for (const std::string& path : {req.csvPath == "-" ? std::string() : req.csvPath, req.plotPath, req.npyPath,
                                    req.npyPath.empty() ? std::string() : SweepNpy::sidecarPath(req.npyPath),
                                    req.waterfallPath}) {
        if (!path.empty() && !writablePath(path, &error)) {
            std::fprintf(stderr, "zr: %s\n", error.c_str());
            return 2;
        }
    }
    const bool series = req.continuous || req.repeat > 1;
    // With the CSV on standard output, everything else goes to stderr.
    FILE* report = req.csvPath == "-" ? stderr : stdout;
    InterruptGuard interrupt;
    int rc = 0;
    SweepResult r;
    std::string title;
    SweepNpy npy;
    WaterfallInput waterfall;
    int completed = 0;
    int64_t firstNs = 0, lastNs = 0;
    {
        OpenDevice dev;
        if (!dev.open(inv, &rc) || !configureSweep(dev, req, &r, &rc)) return rc;
        const SweepAxis axis{r.startHz, r.binHz, int(r.levels.size())};
        const double stop = r.startHz + (r.levels.size() - 1) * r.binHz;
        title = std::string(modelName(dev.type())) + " " + std::to_string(dev.serial()) + "   " +
                formatFrequencyTo(r.startHz, r.binHz) + " to " + formatFrequencyTo(stop, r.binHz);
        SweepCsv csv;
        if (!req.csvPath.empty() && !csv.open(req.csvPath, series, &error)) {
            std::fprintf(stderr, "zr: --csv %s\n", error.c_str());
            return 1;
        }
        if (!req.npyPath.empty() && !npy.open(req.npyPath, &error)) {
            std::fprintf(stderr, "zr: --out %s\n", error.c_str());
            return 1;
        }
        std::set<int> warned;
        Progress progress("sweeping", req.continuous ? 0 : req.repeat);
        for (int k = 0; req.continuous || k < req.repeat; ++k) {
            int64_t ns = 0;
            if (!reportedSweep(dev.handle(), req, k, &r, &ns, warned, &rc)) break;
            if (k == 0) firstNs = ns;
            lastNs = ns;
            if (!req.csvPath.empty() && !csv.write(k, ns, r.levels.data(), axis)) {
                std::fprintf(stderr, "zr: --csv %s: write failed\n", req.csvPath.c_str());
                rc = 1;
                break;
            }
            if (!req.npyPath.empty() && !npy.write(ns, r.levels.data(), axis)) {
                std::fprintf(stderr, "zr: --out %s: write failed\n", req.npyPath.c_str());
                rc = 1;
                break;
            }
            if (!req.waterfallPath.empty())
                waterfall.rows.push_back(waterfallRow(r.levels.data(), int(r.levels.size())));
            completed = k + 1;
            progress.done(completed);
            if (interrupted()) break;
        }
        if (!csv.close(&error)) {
            std::fprintf(stderr, "zr: --csv %s\n", error.c_str());
            rc = 1;
        }
    }  // the instrument is closed before anything else is written
    if (!req.npyPath.empty() && !npy.close(r.rbw, &error)) {
        std::fprintf(stderr, "zr: --out %s\n", error.c_str());
        rc = 1;
    }
    if (completed == 0) return rc ? rc : 1;

    const int n = static_cast<int>(r.levels.size());
    PeakSearch search;
    search.maxPeaks = req.peaks;
    search.separationBins = separationFor(r.rbw, r.binHz);
    float threshold = 0;
    const std::vector<Peak> peaks = findPeaks(r.levels.data(), n, r.startHz, r.binHz, search, &threshold);
    std::fprintf(report, "%s\n%s\n%d bins of %s", title.c_str(), settingsLine(req, r).c_str(), n,
                 formatFrequency(r.binHz, 3).c_str());
    if (series) std::fprintf(report, ", %d sweeps%s", completed, interrupted() ? " (interrupted)" : "");
    std::fprintf(report, "\n\n");
    if (req.peaks > 0) printPeaks(report, peaks, r, threshold);
    if (!req.csvPath.empty() && req.csvPath != "-") std::fprintf(report, "wrote %s\n", req.csvPath.c_str());
    if (!req.npyPath.empty())
        std::fprintf(report, "wrote %s and %s\n", req.npyPath.c_str(), SweepNpy::sidecarPath(req.npyPath).c_str());
    if (!req.plotPath.empty()) {
        PlotInput plot{r.levels.data(), n, r.startHz, r.binHz, title, settingsLine(req, r), peaks,
                       req.autoscale ? std::nullopt : std::optional<double>(r.refLevel)};
        if (!writePng(req.plotPath, renderPlot(plot), &error)) {
            std::fprintf(stderr, "zr: --plot %s\n", error.c_str());
            return 1;
        }
        std::fprintf(report, "wrote %s\n", req.plotPath.c_str());
    }
    if (!req.waterfallPath.empty()) {
        waterfall.startHz = r.startHz;
        waterfall.stopHz = r.startHz + (n - 1) * r.binHz;
        waterfall.seconds = double(lastNs - firstNs) / 1e9;
        waterfall.title = title;
        waterfall.subtitle = settingsLine(req, r) + "   " + std::to_string(completed) + " sweeps";
        waterfall.highDbm = r.refLevel;
        waterfall.lowDbm = r.refLevel - 100.0;
        if (!writePng(req.waterfallPath, renderWaterfall(waterfall), &error)) {
            std::fprintf(stderr, "zr: --waterfall %s\n", error.c_str());
            return 1;
        }
        std::fprintf(report, "wrote %s\n", req.waterfallPath.c_str());
    }
    // Ctrl-C is how a continuous run ends; any other run it cut short.
    if (rc == 0 && interrupted() && !req.continuous) return 130;
    return rc;
}

int runVersion(const Invocation&) {
    std::printf("zr_api %s\n", zrGetAPIVersion());
    return 0;
}

}  // namespace zrtool
