// The SoapySDR driver "zr": Mesa and Ridge analyzers as receivers of SDR
// applications, through the public C interface only. One RX channel whose
// stream is the library's I/Q stream: the sample rates are the base rates
// over the decimations, every block carries the instrument's time, and a
// loss the library reports is an overflow, never silence.
//
// Arguments: serial=NNNNNNNN picks an instrument; sim=MODEL plugs a
// simulated Mesa1, Mesa2 or Ridge2 into the process first (with serial= if
// given), for development without hardware.
#include <SoapySDR/Device.hpp>
#include <SoapySDR/Errors.hpp>
#include <SoapySDR/Formats.hpp>
#include <SoapySDR/Logger.hpp>
#include <SoapySDR/Registry.hpp>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include "zr_api.h"
#include "zr_sim.h"

namespace {

constexpr double kBase50 = 50e6;
constexpr double kBase61 = 61.44e6;
constexpr int kMaxDecimation = 4096;
constexpr size_t kMTU = 65536;

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

bool modelByName(const std::string& name, ZrDeviceType& out) {
    for (ZrDeviceType t : {zrDeviceTypeMesa1, zrDeviceTypeMesa2, zrDeviceTypeRidge2})
        if (name == modelName(t)) return out = t, true;
    return false;
}

std::string statusText(ZrStatus s) {
    std::string t = zrGetErrorString(s);
    while (!t.empty() && (t.back() == '\n' || t.back() == '\r')) t.pop_back();
    return t;
}

void check(ZrStatus s, const char* what) {
    if (s < zrNoError) throw std::runtime_error(std::string("zr: ") + what + ": " + statusText(s));
    if (s > zrNoError) SoapySDR::logf(SOAPY_SDR_WARNING, "zr: %s: %s", what, statusText(s).c_str());
}

// A simulated instrument for sim=MODEL: plugged in once per process.
int plugSimulated(const SoapySDR::Kwargs& args) {
    ZrDeviceType type;
    if (!modelByName(args.at("sim"), type)) throw std::runtime_error("zr: sim=" + args.at("sim") + ": Mesa1, Mesa2 or Ridge2");
    const int serial = args.count("serial") ? std::atoi(args.at("serial").c_str())
                                            : (type == zrDeviceTypeMesa1 ? 10000001 : type == zrDeviceTypeMesa2 ? 20000001 : 30000001);
    static std::mutex m;
    std::lock_guard<std::mutex> g(m);
    static bool once = [&] {
        // Simulated serials keep their calibration caches apart from real
        // instruments' (unless data_folder= says where).
        const char* tmp = std::getenv("TMPDIR");
        const std::string folder = args.count("data_folder") ? args.at("data_folder")
                                                              : std::string(tmp && *tmp ? tmp : "/tmp") + "/zr-sim-soapy";
        zrSetDataFolder(folder.c_str());
        zrSimSetWaitScale(0.01);
        return true;
    }();
    (void)once;
    int serials[9], count = 0;
    ZrDeviceType types[9];
    zrGetDeviceList2(serials, types, &count);
    if (std::find(serials, serials + count, serial) == serials + count) {
        // Not listed: either not plugged in, or open in this process.
        zrSimAttachUSB(type, serial);
    }
    return serial;
}

struct StreamState {
    ZrDataType type = zrDataType16sc;
    bool active = false;
    // A block that came after a loss waits here while the caller is told
    // of the overflow.
    std::vector<uint8_t> pending;
    size_t pendingCount = 0;
    long long pendingTime = 0;
};

class ZrSoapy : public SoapySDR::Device {
public:
    explicit ZrSoapy(const SoapySDR::Kwargs& args) {
        int serial = args.count("serial") ? std::atoi(args.at("serial").c_str()) : 0;
        if (args.count("sim")) serial = plugSimulated(args);
        const ZrStatus s = serial ? zrOpenDeviceBySerial(&handle_, serial) : zrOpenDevice(&handle_);
        check(s, "open");
        zrGetDeviceInfo(handle_, &type_, &serial_);
        maxFrequency_ = (type_ == zrDeviceTypeRidge2 || type_ == zrDeviceTypeRidge3) ? 44.2e9 : 20.6e9;
    }
    ~ZrSoapy() override { zrCloseDevice(handle_); }

    // ---- identity ----
    std::string getDriverKey() const override { return "zr"; }
    std::string getHardwareKey() const override { return modelName(type_); }
    SoapySDR::Kwargs getHardwareInfo() const override {
        int major = 0, minor = 0, revision = 0;
        zrGetFirmwareVersion(handle_, &major, &minor, &revision);
        return {{"serial", std::to_string(serial_)},
                {"firmware", std::to_string(major) + "." + std::to_string(minor) + "." + std::to_string(revision)},
                {"library", zrGetAPIVersion()}};
    }
    size_t getNumChannels(const int direction) const override { return direction == SOAPY_SDR_RX ? 1 : 0; }

    // ---- stream ----
    std::vector<std::string> getStreamFormats(const int, const size_t) const override {
        return {SOAPY_SDR_CS16, SOAPY_SDR_CF32};
    }
    std::string getNativeStreamFormat(const int, const size_t, double& fullScale) const override {
        fullScale = 32768;
        return SOAPY_SDR_CS16;
    }
    SoapySDR::Stream* setupStream(const int direction, const std::string& format, const std::vector<size_t>& channels,
                                  const SoapySDR::Kwargs&) override {
        if (direction != SOAPY_SDR_RX) throw std::runtime_error("zr: receive only");
        if (channels.size() > 1 || (!channels.empty() && channels[0] != 0)) throw std::runtime_error("zr: one channel, 0");
        if (format != SOAPY_SDR_CS16 && format != SOAPY_SDR_CF32) throw std::runtime_error("zr: formats CS16 and CF32");
        stream_.type = format == SOAPY_SDR_CS16 ? zrDataType16sc : zrDataType32fc;
        stream_.pending.assign(kMTU * (stream_.type == zrDataType16sc ? 4 : 8), 0);
        stream_.pendingCount = 0;
        return reinterpret_cast<SoapySDR::Stream*>(&stream_);
    }
    void closeStream(SoapySDR::Stream*) override { deactivateStream(nullptr, 0, 0); }
    size_t getStreamMTU(SoapySDR::Stream*) const override { return kMTU; }
    int activateStream(SoapySDR::Stream*, const int, const long long, const size_t) override {
        try {
            configureStream();
        } catch (const std::exception& e) {
            SoapySDR::log(SOAPY_SDR_ERROR, e.what());
            return SOAPY_SDR_STREAM_ERROR;
        }
        stream_.active = true;
        stream_.pendingCount = 0;
        return 0;
    }
    int deactivateStream(SoapySDR::Stream*, const int, const long long) override {
        if (stream_.active) zrAbort(handle_);
        stream_.active = false;
        return 0;
    }
    int readStream(SoapySDR::Stream*, void* const* buffs, const size_t numElems, int& flags, long long& timeNs,
                   const long timeoutUs) override {
        if (!stream_.active) return SOAPY_SDR_STREAM_ERROR;
        const size_t element = stream_.type == zrDataType16sc ? 4 : 8;
        flags = 0;
        if (stream_.pendingCount) {
            const size_t n = std::min(numElems, stream_.pendingCount);
            std::memcpy(buffs[0], stream_.pending.data(), n * element);
            std::memmove(stream_.pending.data(), stream_.pending.data() + n * element, (stream_.pendingCount - n) * element);
            flags = SOAPY_SDR_HAS_TIME;
            timeNs = stream_.pendingTime;
            stream_.pendingTime += static_cast<long long>(n * 1e9 / rate_);
            stream_.pendingCount -= n;
            return static_cast<int>(n);
        }
        // The library waits until every sample asked for has arrived: ask
        // for what is held, or for what arrives within half the time-out.
        size_t n = std::min({numElems, kMTU, std::max<size_t>(held_, 1)});
        if (held_ == 0) {
            n = std::min({numElems, kMTU, static_cast<size_t>(std::max(1.0, rate_ * double(timeoutUs) * 0.5e-6))});
            if (timeoutUs <= 0) n = 1;
        }
        int64_t ns = 0;
        int loss = 0, remaining = 0;
        const ZrStatus s = zrGetIQ(handle_, buffs[0], static_cast<int>(n), nullptr, 0, &ns, zrFalse, &loss, &remaining);
        if (s < zrNoError) return s == zrConnectionLostErr ? SOAPY_SDR_STREAM_ERROR : SOAPY_SDR_TIMEOUT;
        held_ = static_cast<size_t>(std::max(remaining, 0));
        if (loss || s == zrUncalData) {
            // Samples before this block are gone (the reader fell behind, or
            // the instrument lost them): the caller hears of it first, and
            // gets this block on the next read.
            std::memcpy(stream_.pending.data(), buffs[0], n * element);
            stream_.pendingCount = n;
            stream_.pendingTime = ns;
            return SOAPY_SDR_OVERFLOW;
        }
        flags = SOAPY_SDR_HAS_TIME;
        timeNs = ns;
        return static_cast<int>(n);
    }

    // ---- frequency ----
    void setFrequency(const int, const size_t, const std::string&, const double frequency,
                      const SoapySDR::Kwargs&) override {
        center_ = frequency;
        restartIfActive();
    }
    double getFrequency(const int, const size_t, const std::string&) const override { return center_; }
    std::vector<std::string> listFrequencies(const int, const size_t) const override { return {"RF"}; }
    SoapySDR::RangeList getFrequencyRange(const int, const size_t, const std::string&) const override {
        return {SoapySDR::Range(9e3, maxFrequency_)};
    }

    // ---- rates and bandwidth ----
    std::vector<double> listSampleRates(const int, const size_t) const override {
        std::vector<double> rates;
        for (int d = 1; d <= kMaxDecimation; d *= 2) rates.push_back(kBase50 / d);
        if (baseRateAllowed())
            for (int d = 1; d <= kMaxDecimation; d *= 2) rates.push_back(kBase61 / d);
        std::sort(rates.begin(), rates.end());
        return rates;
    }
    void setSampleRate(const int, const size_t, const double rate) override {
        // The nearest rate the decimations give, on either base.
        double best = kBase50;
        for (double r : listSampleRates(SOAPY_SDR_RX, 0))
            if (std::fabs(std::log(r / rate)) < std::fabs(std::log(best / rate))) best = r;
        base_ = std::fmod(kBase61 / best, 1.0) == 0.0 && std::fmod(kBase50 / best, 1.0) != 0.0 ? kBase61 : kBase50;
        decimation_ = static_cast<int>(std::lround(base_ / best));
        rate_ = base_ / decimation_;
        restartIfActive();
    }
    double getSampleRate(const int, const size_t) const override { return rate_; }
    void setBandwidth(const int, const size_t, const double bw) override {
        bandwidth_ = bw;
        restartIfActive();
    }
    double getBandwidth(const int, const size_t) const override {
        double rate = 0, bw = 0;
        if (zrGetIQParameters(handle_, &rate, &bw) == zrNoError) return bw;
        return bandwidth_ > 0 ? bandwidth_ : std::min(0.768 * rate_, 4.15e7);
    }
    SoapySDR::RangeList getBandwidthRange(const int, const size_t) const override {
        return {SoapySDR::Range(kBase50 / kMaxDecimation * 0.01, 4.15e7)};
    }

    // ---- gain: the attenuator as a gain of -30 to 0 dB in 5 dB steps ----
    std::vector<std::string> listGains(const int, const size_t) const override { return {"ATT"}; }
    bool hasGainMode(const int, const size_t) const override { return true; }
    void setGainMode(const int, const size_t, const bool automatic) override {
        check(zrSetAttenuator(handle_, automatic ? -1 : attenuator_), "zrSetAttenuator");
        if (!automatic) attenuator_ = std::max(attenuator_, 0);
        autoAtten_ = automatic;
        restartIfActive();
    }
    bool getGainMode(const int, const size_t) const override { return autoAtten_; }
    void setGain(const int direction, const size_t channel, const double value) override {
        setGain(direction, channel, "ATT", value);
    }
    void setGain(const int, const size_t, const std::string&, const double value) override {
        attenuator_ = static_cast<int>(std::clamp(std::lround(-value / 5.0), 0L, 6L));
        autoAtten_ = false;
        check(zrSetAttenuator(handle_, attenuator_), "zrSetAttenuator");
        restartIfActive();
    }
    double getGain(const int, const size_t, const std::string&) const override { return -5.0 * attenuator_; }
    double getGain(const int direction, const size_t channel) const override { return getGain(direction, channel, "ATT"); }
    SoapySDR::Range getGainRange(const int, const size_t, const std::string&) const override {
        return SoapySDR::Range(-30.0, 0.0, 5.0);
    }
    SoapySDR::Range getGainRange(const int direction, const size_t channel) const override {
        return getGainRange(direction, channel, "ATT");
    }

    // ---- settings ----
    SoapySDR::ArgInfoList getSettingInfo() const override {
        SoapySDR::ArgInfo ref;
        ref.key = "reference_level";
        ref.name = "Reference level";
        ref.description = "The level in dBm the input range is set for (the automatic attenuator follows it)";
        ref.units = "dBm";
        ref.type = SoapySDR::ArgInfo::FLOAT;
        ref.value = std::to_string(refLevel_);
        ref.range = SoapySDR::Range(-130.0, 20.0);
        SoapySDR::ArgInfo presel;
        presel.key = "preselector";
        presel.name = "Preselector";
        presel.description = "Tracking preselector below 645 MHz";
        presel.type = SoapySDR::ArgInfo::BOOL;
        presel.value = preselector_ ? "true" : "false";
        SoapySDR::ArgInfo swf;
        swf.key = "software_filter";
        swf.name = "Software filter";
        swf.description = "A host filter at the bandwidth for decimations up to 8";
        swf.type = SoapySDR::ArgInfo::BOOL;
        swf.value = softwareFilter_ ? "true" : "false";
        return {ref, presel, swf};
    }
    void writeSetting(const std::string& key, const std::string& value) override {
        const bool on = value == "true" || value == "1";
        if (key == "reference_level") {
            refLevel_ = std::atof(value.c_str());
            check(zrSetRefLevel(handle_, refLevel_), "zrSetRefLevel");
        } else if (key == "preselector") {
            preselector_ = on;
            check(zrSetPreselector(handle_, on ? zrTrue : zrFalse), "zrSetPreselector");
        } else if (key == "software_filter") {
            softwareFilter_ = on;
        } else {
            throw std::runtime_error("zr: no setting " + key);
        }
        restartIfActive();
    }
    std::string readSetting(const std::string& key) const override {
        if (key == "reference_level") return std::to_string(refLevel_);
        if (key == "preselector") return preselector_ ? "true" : "false";
        if (key == "software_filter") return softwareFilter_ ? "true" : "false";
        throw std::runtime_error("zr: no setting " + key);
    }

    // ---- sensors and time ----
    std::vector<std::string> listSensors() const override { return {"temperature", "gps_locked", "ref_locked"}; }
    SoapySDR::ArgInfo getSensorInfo(const std::string& key) const override {
        SoapySDR::ArgInfo info;
        info.key = key;
        info.type = key == "temperature" ? SoapySDR::ArgInfo::FLOAT : SoapySDR::ArgInfo::BOOL;
        info.units = key == "temperature" ? "C" : "";
        return info;
    }
    std::string readSensor(const std::string& key) const override {
        if (key == "temperature") {
            ZrDeviceDiagnostics d{};
            zrGetFullDeviceDiagnostics(handle_, &d);
            return std::to_string(d.tempCal);
        }
        if (key == "gps_locked") {
            int state = 0;
            zrGetGPSState(handle_, &state);
            return state > 0 ? "true" : "false";
        }
        if (key == "ref_locked") {
            // The instrument reports no lock of its own reference; its
            // status blocks keep their check word only while its clock runs.
            float v = 0, c = 0, t = 0;
            return zrGetDeviceDiagnostics(handle_, &v, &c, &t) >= zrNoError ? "true" : "false";
        }
        throw std::runtime_error("zr: no sensor " + key);
    }
    std::vector<std::string> listTimeSources() const override { return {"internal", "gps"}; }
    void setTimeSource(const std::string& source) override {
        if (source != "internal" && source != "gps") throw std::runtime_error("zr: time sources internal and gps");
        // With GPS the receiver steers the instrument's timebase; time stamps
        // follow the GPS whenever it has a fix either way.
        const bool active = stream_.active;
        if (active) zrAbort(handle_);
        check(zrSetGPSTimebaseUpdate(handle_, source == "gps" ? zrTrue : zrFalse), "zrSetGPSTimebaseUpdate");
        timeSource_ = source;
        if (active) configureStream();
    }
    std::string getTimeSource() const override { return timeSource_; }
    // Every block of the stream carries the instrument's time.
    bool hasHardwareTime(const std::string&) const override { return true; }
    long long getHardwareTime(const std::string&) const override {
        return std::chrono::duration_cast<std::chrono::nanoseconds>(
                   std::chrono::system_clock::now().time_since_epoch()).count();
    }

private:
    bool baseRateAllowed() const {
        int major = 0, minor = 0, revision = 0;
        zrGetFirmwareVersion(handle_, &major, &minor, &revision);
        if (type_ == zrDeviceTypeMesa1) return revision >= 8;
        if (type_ == zrDeviceTypeMesa2) return revision >= 11;
        return true;
    }
    void configureStream() {
        check(zrSetIQCenterFreq(handle_, center_), "zrSetIQCenterFreq");
        check(zrSetIQSampleRate(handle_, decimation_), "zrSetIQSampleRate");
        // Older firmware refuses the call whatever the rate; 50 MS/s is its base.
        if (baseRateAllowed())
            check(zrSetIQBaseSampleRate(handle_, base_ == kBase61 ? zrIQBaseRate61M44 : zrIQBaseRate50M),
                  "zrSetIQBaseSampleRate");
        check(zrSetIQBandwidth(handle_, softwareFilter_ ? zrTrue : zrFalse, bandwidth_ > 0 ? bandwidth_ : 1e12),
              "zrSetIQBandwidth");
        check(zrSetIQDataType(handle_, stream_.type), "zrSetIQDataType");
        check(zrConfigure(handle_, zrModeIQStreaming), "zrConfigure");
        held_ = 0;
    }
    void restartIfActive() {
        if (stream_.active) configureStream();
    }

    int handle_ = -1;
    ZrDeviceType type_ = zrDeviceTypeMesa1;
    int serial_ = 0;
    double maxFrequency_ = 20.6e9;
    double center_ = 1e9;
    double base_ = kBase50;
    int decimation_ = 8;
    double rate_ = kBase50 / 8;
    double bandwidth_ = 0;
    int attenuator_ = 0;
    bool autoAtten_ = true;
    double refLevel_ = 0;
    bool preselector_ = false;
    bool softwareFilter_ = false;
    std::string timeSource_ = "internal";
    size_t held_ = 0;
    StreamState stream_;
};

SoapySDR::KwargsList findZr(const SoapySDR::Kwargs& args) {
    if (args.count("sim")) plugSimulated(args);
    int serials[9], count = 0;
    ZrDeviceType types[9];
    zrGetDeviceList2(serials, types, &count);
    SoapySDR::KwargsList out;
    for (int i = 0; i < count; ++i) {
        if (args.count("serial") && std::atoi(args.at("serial").c_str()) != serials[i]) continue;
        SoapySDR::Kwargs k;
        k["driver"] = "zr";
        k["serial"] = std::to_string(serials[i]);
        k["label"] = std::string(modelName(types[i])) + " " + std::to_string(serials[i]);
        if (args.count("sim")) k["sim"] = args.at("sim");
        out.push_back(k);
    }
    return out;
}

SoapySDR::Device* makeZr(const SoapySDR::Kwargs& args) { return new ZrSoapy(args); }

SoapySDR::Registry registerZr("zr", &findZr, &makeZr, SOAPY_SDR_ABI_VERSION);

}  // namespace
