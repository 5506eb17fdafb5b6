// Calls the exports of the interface in random order with hostile values
// (NaN, infinities, extremes, enumerations out of range, zero and negative
// counts, invalid handles) on a simulated instrument, the way a buggy
// caller would. Every buffer it passes is as large as the interface says,
// so a sanitizer report or a crash is the library's. It fails on a status
// the interface does not have and on any call that takes over 10 s.
//
//   zr_export_driver SEED CALLS
#include <atomic>
#include <chrono>
#include <climits>
#include <cmath>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <limits>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "zr_api.h"
#include "zr_sim.h"

namespace {

constexpr int kSerial = 20009999;

// A sweep of millions of points, a long sweep time, a video bandwidth far
// below the resolution or a sub-hertz resolution is a long measurement, not
// a hang: those sweeps are left out so that the 10 s budget means something.
char gContext[256];  // what the call in progress is about, for a hang report
ZrSweepSettings gConfigured{};  // the sweep settings of the last configuration
int gHandle = -1;               // the one open device

// The engine keeps the settings it was configured with; later setters do
// not change what a sweep measures.
void noteConfigured(int h) {
    if (zrGetSweepSettings(h, &gConfigured) < 0) gConfigured = ZrSweepSettings{};
}

bool longMeasurement(int) {
    const ZrSweepSettings& s = gConfigured;
    ZrMode mode = zrModeIdle;
    zrGetCurrentMode(gHandle, &mode);
    std::snprintf(gContext, sizeof gContext, "mode %d speed %d centre %.6g span %.6g rbw %.6g vbw %.6g time %.3g length %d",
                  int(mode), int(s.speed), s.center, s.span, s.actualRBW, s.actualVBW, s.sweepTime, s.sweepLength);
    // (The narrow engine takes any RBW: below 1 Hz its FFT spans minutes.)
    return s.sweepLength > (1 << 20) || s.sweepTime > 0.2 || s.vbw < s.rbw / 100.0 || s.actualRBW < 1.0;
}

class Rng {
public:
    explicit Rng(uint64_t seed) : g_(seed) {}
    int below(int n) { return int(g_() % uint64_t(n)); }
    bool coin() { return below(2) == 0; }
    int anyInt() {
        static const int edges[] = {0, 1, -1, 2, 3, 4, 5, 6, 7, 8, 9, 15, 16, 17, 63, 64, 255, 256,
                                    1024, 4096, 4097, 8192, 1 << 20, INT_MAX, INT_MIN, INT_MAX - 1};
        return coin() ? edges[below(int(std::size(edges)))] : below(2000) - 1000;
    }
    int enumValue(int last) { return coin() ? below(last + 1) : anyInt(); }
    double anyDouble() {
        static const double edges[] = {0.0, -0.0, 1.0, -1.0, 0.5, 9e3, 8999.0, 1e5, 1e6, 2.4e9, 2.06e10, 4.42e10,
                                       5e10, 1e300, -1e300, 1e-300, 4.9e-324, -20.0, -150.0, 30.0,
                                       std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity(),
                                       std::numeric_limits<double>::quiet_NaN()};
        switch (below(3)) {
            case 0: return edges[below(int(std::size(edges)))];
            case 1: return std::ldexp(double(int64_t(g_() >> 11)) - 4.5e15, below(80) - 40);
            default: return 1e3 * below(45000000);  // a plausible frequency
        }
    }
    uint64_t raw() { return g_(); }

private:
    std::mt19937_64 g_;
};

bool knownStatus(int s) {
    static const int all[] = {-1003, -1002, -1001, -200, -101, -100, -54, -53, -52, -51, -50, -49, -16, -14, -13,
                              -11, -10, -8, -6, -5, -4, -3, -2, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9};
    for (int v : all)
        if (v == s) return true;
    return false;
}

// Buffers the calls write into, sized as the interface promises.
struct Buffers {
    std::vector<float> traceMin, traceMax;
    std::vector<float> iq = std::vector<float>(2 * 70000);
    std::vector<double> triggers = std::vector<double>(64);
    double d[8] = {};
    float f[16] = {};
    int i[8] = {};
    uint64_t u[2] = {};
    uint32_t u32 = 0;
    std::vector<uint32_t> vrt = std::vector<uint32_t>(4 * 65535);
    int64_t ns = 0;
};

struct Call {
    const char* name;
    std::function<ZrStatus(int h, Rng& r, Buffers& b)> run;
};

std::vector<Call> calls() {
    using R = Rng;
    using B = Buffers;
    return {
        {"zrSetSweepSpeed", [](int h, R& r, B&) { return zrSetSweepSpeed(h, ZrSweepSpeed(r.enumValue(2))); }},
        {"zrSetSweepCenterSpan", [](int h, R& r, B&) { return zrSetSweepCenterSpan(h, r.anyDouble(), r.anyDouble()); }},
        {"zrSetSweepStartStop", [](int h, R& r, B&) { return zrSetSweepStartStop(h, r.anyDouble(), r.anyDouble()); }},
        {"zrSetSweepCoupling", [](int h, R& r, B&) { return zrSetSweepCoupling(h, r.anyDouble(), r.anyDouble(), r.anyDouble()); }},
        {"zrSetSweepDetector", [](int h, R& r, B&) { return zrSetSweepDetector(h, ZrDetector(r.enumValue(1)), ZrVideoUnits(r.enumValue(3))); }},
        {"zrSetSweepScale", [](int h, R& r, B&) { return zrSetSweepScale(h, ZrScale(r.enumValue(1))); }},
        {"zrSetSweepWindow", [](int h, R& r, B&) { return zrSetSweepWindow(h, ZrWindowType(r.enumValue(6))); }},
        {"zrSetSweepSpurReject", [](int h, R& r, B&) { return zrSetSweepSpurReject(h, ZrBool(r.enumValue(1))); }},
        {"zrSetRealTimeCenterSpan", [](int h, R& r, B&) { return zrSetRealTimeCenterSpan(h, r.anyDouble(), r.anyDouble()); }},
        {"zrSetRealTimeRBW", [](int h, R& r, B&) { return zrSetRealTimeRBW(h, r.anyDouble()); }},
        {"zrSetRealTimeScale", [](int h, R& r, B&) { return zrSetRealTimeScale(h, ZrScale(r.enumValue(1)), r.anyDouble(), r.anyDouble()); }},
        {"zrSetIQBaseSampleRate", [](int h, R& r, B&) { return zrSetIQBaseSampleRate(h, ZrIQBaseRate(r.enumValue(1))); }},
        {"zrSetIQDataType", [](int h, R& r, B&) { return zrSetIQDataType(h, ZrDataType(r.enumValue(1))); }},
        {"zrSetIQCenterFreq", [](int h, R& r, B&) { return zrSetIQCenterFreq(h, r.anyDouble()); }},
        {"zrSetIQSampleRate", [](int h, R& r, B&) { return zrSetIQSampleRate(h, r.coin() ? 1 << r.below(13) : r.anyInt()); }},
        {"zrSetIQBandwidth", [](int h, R& r, B&) { return zrSetIQBandwidth(h, ZrBool(r.enumValue(1)), r.anyDouble()); }},
        {"zrSetIQExtTriggerEdge", [](int h, R& r, B&) { return zrSetIQExtTriggerEdge(h, ZrTriggerEdge(r.enumValue(1))); }},
        {"zrSetIQQueueSize", [](int h, R& r, B&) { return zrSetIQQueueSize(h, float(r.anyDouble())); }},
        {"zrSetIQSweepListSteps", [](int h, R& r, B&) { return zrSetIQSweepListSteps(h, r.anyInt()); }},
        {"zrSetIQSweepListFreq", [](int h, R& r, B&) { return zrSetIQSweepListFreq(h, r.anyInt(), r.anyDouble()); }},
        {"zrSetIQSweepListSampleCount", [](int h, R& r, B&) { return zrSetIQSweepListSampleCount(h, r.anyInt(), uint32_t(r.anyInt())); }},
        {"zrSetSegIQSegmentCount", [](int h, R& r, B&) { return zrSetSegIQSegmentCount(h, r.anyInt()); }},
        {"zrSetSegIQSegment", [](int h, R& r, B&) {
             return zrSetSegIQSegment(h, r.anyInt(), ZrTriggerType(r.enumValue(3)), r.anyInt(), uint32_t(r.anyInt()), r.anyDouble());
         }},
        {"zrSetAudioFilters", [](int h, R& r, B&) { return zrSetAudioFilters(h, r.anyDouble(), r.anyDouble(), r.anyDouble()); }},
        {"zrSetAudioType", [](int h, R& r, B&) { return zrSetAudioType(h, ZrAudioType(r.enumValue(4))); }},
        {"zrSetAudioCenterFreq", [](int h, R& r, B&) { return zrSetAudioCenterFreq(h, r.anyDouble()); }},
        {"zrSetAudioFMDeemphasis", [](int h, R& r, B&) { return zrSetAudioFMDeemphasis(h, r.anyDouble()); }},
        {"zrSetIQFullBandSamples", [](int h, R& r, B&) { return zrSetIQFullBandSamples(h, r.anyInt()); }},
        {"zrSetAttenuator", [](int h, R& r, B&) { return zrSetAttenuator(h, r.anyInt()); }},
        {"zrSetRefLevel", [](int h, R& r, B&) { return zrSetRefLevel(h, r.anyDouble()); }},
        {"zrSetPreselector", [](int h, R& r, B&) { return zrSetPreselector(h, ZrBool(r.enumValue(1))); }},
        {"zrSetPowerState", [](int h, R& r, B&) { return zrSetPowerState(h, ZrPowerState(r.enumValue(1))); }},
        {"zrSetGPIOState", [](int h, R& r, B&) { return zrSetGPIOState(h, r.anyInt(), r.anyInt()); }},
        {"zrWriteGPIOImm", [](int h, R& r, B&) { return zrWriteGPIOImm(h, uint8_t(r.raw())); }},
        {"zrReadGPIOImm", [](int h, R&, B& b) { return zrReadGPIOImm(h, reinterpret_cast<uint8_t*>(b.i)); }},
        {"zrWriteSPI", [](int h, R& r, B&) { return zrWriteSPI(h, uint32_t(r.raw()), r.anyInt()); }},
        {"zrSetGPIOSweep", [](int h, R& r, B&) {
             ZrGPIOStep steps[4] = {};
             for (auto& s : steps) s.frequency = r.anyDouble(), s.mask = uint8_t(r.raw());
             return zrSetGPIOSweep(h, steps, r.below(6) - 1);
         }},
        {"zrSetGPIOSwitching", [](int h, R& r, B&) {
             uint8_t values[64];
             uint32_t durations[64];
             for (int k = 0; k < 64; ++k) values[k] = uint8_t(r.raw()), durations[k] = uint32_t(r.raw());
             return zrSetGPIOSwitching(h, values, durations, r.below(70) - 2);
         }},
        {"zrSetReference", [](int h, R& r, B&) { return zrSetReference(h, r.anyInt()); }},
        {"zrSetFanThreshold", [](int h, R& r, B&) { return zrSetFanThreshold(h, r.anyInt()); }},
        {"zrSetIFOutput", [](int h, R& r, B&) { return zrSetIFOutput(h, r.anyDouble()); }},
        {"zrSetGPSTimebaseUpdate", [](int h, R& r, B&) { return zrSetGPSTimebaseUpdate(h, ZrBool(r.enumValue(1))); }},
        {"zrWriteToGPS", [](int h, R& r, B&) {
             uint8_t bytes[1100] = {};
             return zrWriteToGPS(h, bytes, r.anyInt());
         }},
        {"zrGetGPSInfo", [](int h, R& r, B& b) {
             char nmea[64];
             int len = r.coin() ? int(sizeof nmea) : 0;
             return zrGetGPSInfo(h, ZrBool(r.enumValue(1)), nullptr, &b.ns, &b.d[0], &b.d[1], &b.d[2], nmea, &len);
         }},
        {"zrGetGPSState", [](int h, R&, B& b) { return zrGetGPSState(h, &b.i[0]); }},
        {"zrGetFullDeviceDiagnostics", [](int h, R&, B&) { ZrDeviceDiagnostics d; return zrGetFullDeviceDiagnostics(h, &d); }},
        {"zrGetCalDate", [](int h, R&, B& b) { return zrGetCalDate(h, &b.u[0]); }},
        {"zrConfigure", [](int h, R& r, B&) {
             const int mode = r.coin() ? (r.coin() ? 1 : 3) : r.enumValue(6);
             ZrSweepSettings settings{};
             zrGetSweepSettings(h, &settings);
             std::snprintf(gContext, sizeof gContext, "mode %d; sweep span %.6g rbw %.6g vbw %.6g time %.3g", mode,
                           settings.span, settings.rbw, settings.vbw, settings.sweepTime);
             const ZrStatus s = zrConfigure(h, ZrMode(mode));
             // A mode outside the enumeration, or another handle, changes
             // nothing on the device.
             if (mode >= 0 && mode <= 6 && h == gHandle) noteConfigured(h);
             return s;
         }},
        {"zrAbort", [](int h, R&, B&) { return zrAbort(h); }},
        {"zrGetSweep", [](int h, R& r, B& b) {
             int length = 0;
             if (longMeasurement(h)) return zrNoError;
             if (zrGetSweepParameters(h, nullptr, nullptr, nullptr, nullptr, &length) < 0 || length <= 0)
                 return zrGetSweep(h, nullptr, nullptr, &b.ns);
             b.traceMax.resize(size_t(length));
             return zrGetSweep(h, r.coin() ? nullptr : (b.traceMin.resize(size_t(length)), b.traceMin.data()),
                               b.traceMax.data(), &b.ns);
         }},
        {"zrStartSweep", [](int h, R& r, B&) {
             return longMeasurement(h) ? zrNoError : zrStartSweep(h, r.coin() ? r.below(16) : r.anyInt());
         }},
        {"zrFinishSweep", [](int h, R& r, B& b) {
             int length = 0;
             if (longMeasurement(h)) return zrNoError;
             if (zrGetSweepParameters(h, nullptr, nullptr, nullptr, nullptr, &length) < 0 || length <= 0)
                 return zrFinishSweep(h, r.below(16), nullptr, nullptr, &b.ns);
             b.traceMax.resize(size_t(length));
             return zrFinishSweep(h, r.coin() ? r.below(16) : r.anyInt(), nullptr, b.traceMax.data(), &b.ns);
         }},
        {"zrGetIQ", [](int h, R& r, B& b) {
             const int n = r.below(4) ? 1 + r.below(4096) : r.anyInt();
             const int t = r.below(3) == 0 ? r.anyInt() : r.below(64);
             // Sizes the interface would refuse still come with real buffers.
             return zrGetIQ(h, b.iq.data(), std::min(n, 65536), t > 0 && t <= 64 ? b.triggers.data() : nullptr,
                            t > 64 ? 64 : t, &b.ns, ZrBool(r.enumValue(1)), &b.i[0], &b.i[1]);
         }},
        {"zrGetIQParameters", [](int h, R&, B& b) { return zrGetIQParameters(h, &b.d[0], &b.d[1]); }},
        {"zrGetAudio", [](int h, R&, B& b) { return zrGetAudio(h, b.iq.data()); }},
        {"zrSetVrtPacketSize", [](int h, R& r, B&) { return zrSetVrtPacketSize(h, uint16_t(r.raw())); }},
        {"zrSetVrtStreamID", [](int h, R& r, B&) { return zrSetVrtStreamID(h, uint32_t(r.raw())); }},
        {"zrGetVrtContextPkt", [](int h, R&, B& b) {
             uint32_t w[28];
             return zrGetVrtContextPkt(h, w, &b.u32);
         }},
        {"zrGetVrtPackets", [](int h, R& r, B& b) {
             uint16_t size = 0;
             uint32_t perPacket = 0;
             zrGetVrtPacketSize(h, &size, &perPacket);
             // Up to 65536 samples (seconds at the slowest rates), in a
             // buffer that holds them.
             const uint32_t fits = std::min<uint32_t>(uint32_t(b.vrt.size()) / std::max<uint32_t>(perPacket, 1),
                                                      65536 / std::max<uint32_t>(size, 1));
             const uint32_t count = r.below(8) ? uint32_t(r.below(int(fits) + 1)) : 0;
             return zrGetVrtPackets(h, b.vrt.data(), &b.u32, count, ZrBool(r.enumValue(1)));
         }},
        {"zrGetIQCorrection", [](int h, R&, B& b) { return zrGetIQCorrection(h, &b.f[0]); }},
        {"zrGetSweepParameters", [](int h, R&, B& b) { return zrGetSweepParameters(h, &b.d[0], &b.d[1], &b.d[2], &b.d[3], &b.i[0]); }},
        {"zrGetSweepSettings", [](int h, R&, B&) { ZrSweepSettings s; return zrGetSweepSettings(h, &s); }},
        {"zrGetRealTimeParameters", [](int h, R&, B& b) {
             return zrGetRealTimeParameters(h, &b.d[0], &b.i[0], &b.d[1], &b.d[2], &b.i[1], &b.i[2], &b.d[3]);
         }},
        {"zrStartCustomData", [](int h, R& r, B& b) { return zrStartCustomData(h, r.anyInt(), b.f); }},
        {"zrGetCurrentMode", [](int h, R&, B&) { ZrMode m; return zrGetCurrentMode(h, &m); }},
    };
}

// Aborts the process when one call outlives its budget.
class CallWatch {
public:
    CallWatch() : thread_([this] { watch(); }) {}
    ~CallWatch() {
        {
            std::lock_guard g(m_);
            stop_ = true;
        }
        cv_.notify_all();
        thread_.join();
    }
    void begin(const char* name) {
        std::lock_guard g(m_);
        name_ = name;
        started_ = std::chrono::steady_clock::now();
        busy_ = true;
    }
    void end() {
        std::lock_guard g(m_);
        busy_ = false;
    }

private:
    void watch() {
        std::unique_lock l(m_);
        while (!stop_) {
            cv_.wait_for(l, std::chrono::milliseconds(200));
            if (busy_ && std::chrono::steady_clock::now() - started_ > std::chrono::seconds(10)) {
                std::fprintf(stderr, "export driver: %s took over 10 s (%s)\n", name_, gContext);
                std::abort();
            }
        }
    }
    std::mutex m_;
    std::condition_variable cv_;
    const char* name_ = "";
    std::chrono::steady_clock::time_point started_;
    bool busy_ = false, stop_ = false;
    std::thread thread_;
};

}  // namespace

int main(int argc, char** argv) {
    const uint64_t seed = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 1;
    const long count = argc > 2 ? std::strtol(argv[2], nullptr, 10) : 10000;
    const std::string folder = "/tmp/zr_export_driver_" + std::to_string(seed);
    zrSetDataFolder(folder.c_str());
    zrSimSetWaitScale(0.0);
    const ZrDeviceType models[] = {zrDeviceTypeMesa1, zrDeviceTypeMesa2, zrDeviceTypeRidge2};
    Rng rng(seed);
    const ZrDeviceType model = models[rng.below(3)];
    if (zrSimAttachUSB(model, kSerial) != zrNoError) return 2;
    zrSimSetPaced(kSerial, zrFalse);
    zrSimAddTone(kSerial, 2.4e9, -30.0);
    int h = -1;
    if (zrOpenDeviceBySerial(&h, kSerial) < 0) return 2;
    gHandle = h;
    const std::vector<Call> table = calls();
    Buffers buffers;
    CallWatch watch;
    long unknown = 0;
    for (long n = 0; n < count; ++n) {
        const Call& c = table[size_t(rng.below(int(table.size())))];
        // Mostly the open handle; now and then one that is not.
        const int handle = rng.below(20) == 0 ? rng.anyInt() : h;
        gContext[0] = 0;
        watch.begin(c.name);
        const ZrStatus s = c.run(handle, rng, buffers);
        watch.end();
        if (!knownStatus(int(s))) {
            std::fprintf(stderr, "export driver: %s answered %d, not a status of the interface\n", c.name, int(s));
            ++unknown;
        }
    }
    zrCloseDevice(h);
    zrSimDetach(kSerial);
    std::printf("seed %llu: %ld calls on a simulated %s, %ld unknown statuses\n", static_cast<unsigned long long>(seed),
                count, model == zrDeviceTypeRidge2 ? "Ridge2" : model == zrDeviceTypeMesa2 ? "Mesa2" : "Mesa1", unknown);
    return unknown == 0 ? 0 : 1;
}
