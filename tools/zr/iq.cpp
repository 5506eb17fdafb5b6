// zr iq: records an I/Q stream into SigMF files, exactly the samples zrGetIQ
// delivered, with the UTC of the first sample, triggers and losses.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <complex>
#include <cstdio>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "commands.h"
#include "peaks.h"
#include "plot.h"
#include "progress.h"
#include "session.h"
#include "sigmf.h"
#include "spectrum.h"
#include "units.h"
#include "zr_api.h"

namespace zrtool {

namespace {

constexpr int kTriggerSlots = 512;
constexpr int kSpectrumSize = 4096;
constexpr int kSpectrumSegments = 256;

struct FileCloser {
    void operator()(std::FILE* f) const {
        if (f) std::fclose(f);
    }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

bool applyIQSettings(int h, const IQRecordRequest& q, int* rc) {
    if (!check("--center", zrSetIQCenterFreq(h, *q.center), rc)) return false;
    if (!check("--decimation", zrSetIQSampleRate(h, q.decimation), rc)) return false;
    // Without --bandwidth the widest the rate allows; the plan limits it.
    if (!check("--bandwidth", zrSetIQBandwidth(h, zrFalse, q.bandwidth.value_or(1e12)), rc)) return false;
    if (!check("--format", zrSetIQDataType(h, q.format), rc)) return false;
    if (q.refLevel && !check("--ref", zrSetRefLevel(h, *q.refLevel), rc)) return false;
    if (q.attenuator && !check("--atten", zrSetAttenuator(h, *q.attenuator), rc)) return false;
    return true;
}

std::string rateText(double samples, double seconds, long long lost) {
    char buf[96];
    std::snprintf(buf, sizeof buf, "%.2f MS/s, %lld lost", seconds > 0 ? samples / seconds / 1e6 : 0.0, lost);
    return buf;
}

}  // namespace

int runIQ(const Invocation& inv) {
    const IQRecordRequest& q = inv.iq;
    const std::string dataPath = q.outBase + ".sigmf-data", metaPath = q.outBase + ".sigmf-meta";
    // Every output is checked before an instrument is touched.
    if (const int bad = checkOutputs({dataPath, metaPath, q.plotPath})) return bad;
    int rc = 0;
    OpenDevice dev;
    if (!dev.open(inv, &rc)) return rc;
    const int h = dev.handle();
    if (!applyIQSettings(h, q, &rc)) return rc;
    if (!check("configure", zrConfigure(h, zrModeIQStreaming), &rc)) return rc;
    double rate = 0, bandwidth = 0, center = 0;
    float scale = 1.0f;
    if (!check("stream parameters", zrGetIQParameters(h, &rate, &bandwidth), &rc) ||
        !check("stream centre", zrGetIQCenterFreq(h, &center), &rc) ||
        !check("correction", zrGetIQCorrection(h, &scale), &rc))
        return rc;

    File data(std::fopen(dataPath.c_str(), "wb"));
    if (!data) {
        std::fprintf(stderr, "zr: cannot write %s\n", dataPath.c_str());
        return 1;
    }
    const bool ci16 = q.format == zrDataType16sc;
    const size_t elementSize = ci16 ? 4 : 8;
    const long long total = std::max<long long>(1, std::llround(q.duration * rate));
    const int chunk = int(std::clamp<double>(rate / 20.0, 4096.0, double(1 << 20)));
    std::vector<uint8_t> buffer(size_t(chunk) * elementSize);
    std::vector<std::complex<float>> segment(kSpectrumSize);
    std::vector<double> triggers(kTriggerSlots);
    zrSetIQTriggerSentinel(std::numeric_limits<double>::quiet_NaN());

    SigmfMeta meta;
    meta.datatype = ci16 ? "ci16_le" : "cf32_le";
    meta.sampleRate = rate;
    meta.hardware = std::string(modelName(dev.type())) + " " + std::to_string(dev.serial());
    meta.recorder = std::string("zr iq, zr_api ") + zrGetAPIVersion();
    meta.description = "I/Q at " + formatFrequency(center, 6) + ", bandwidth " + formatFrequency(bandwidth, 3) +
                       (ci16 ? "; x / 32768 * zr:scale is in mW^0.5" : "; |x|^2 is in mW");
    if (ci16) meta.scale = scale;
    SpectrumAverager spectrum(kSpectrumSize);
    const long long spectrumEvery = total / kSpectrumSegments;

    const double period = 1e9 / rate;
    long long done = 0, lostSamples = 0, nextSpectrum = 0;
    int64_t expected = 0;
    int losses = 0;
    std::vector<ZrStatus> warned;
    const auto started = std::chrono::steady_clock::now();
    {
        Progress progress("recording", int((total + chunk - 1) / chunk));
        while (done < total) {
            const int n = int(std::min<long long>(chunk, total - done));
            int64_t ns = 0;
            int loss = 0;
            const ZrStatus s = zrGetIQ(h, buffer.data(), n, triggers.data(), kTriggerSlots, &ns, zrFalse, &loss, nullptr);
            if (s < 0) {
                rc = fail("stream", s, s == zrConnectionLostErr ? "check the cable; the instrument stopped answering" : nullptr);
                break;
            }
            if (s > 0 && std::find(warned.begin(), warned.end(), s) == warned.end()) {
                warned.push_back(s);
                warn("stream", s, s == zrADCOverflow ? "the input overloads the converter: raise --ref or --atten" : nullptr);
            }
            if (done == 0) {
                meta.captures.push_back({0, center, ns});
            } else if (loss) {
                // Each block carries its own time, so the gap's length is known.
                const long long gap = std::max<long long>(0, std::llround(double(ns - expected) / period));
                lostSamples += gap;
                ++losses;
                meta.captures.push_back({uint64_t(done), center, ns});
                meta.annotations.push_back({uint64_t(done), 0, "sample loss",
                                            "about " + std::to_string(gap) + " samples lost before this one"});
            }
            expected = ns + int64_t(std::trunc(n * period));
            for (double t : triggers) {
                if (std::isnan(t)) break;
                char comment[64];
                std::snprintf(comment, sizeof comment, "external trigger at sample %.3f", double(done) + t);
                meta.annotations.push_back({uint64_t(done + std::max<long long>(0, std::llround(std::floor(t)))), 1,
                                            "trigger", comment});
            }
            if (std::fwrite(buffer.data(), elementSize, size_t(n), data.get()) != size_t(n)) {
                std::fprintf(stderr, "zr: writing %s failed (disk full?)\n", dataPath.c_str());
                rc = 1;
                break;
            }
            // Segments spread evenly over the recording, each whole inside one read.
            while (!q.plotPath.empty() && n >= kSpectrumSize && nextSpectrum + kSpectrumSize <= done + n) {
                const size_t from = size_t(std::max<long long>(0, nextSpectrum - done));
                for (int i = 0; i < kSpectrumSize; ++i) {
                    const uint8_t* p = buffer.data() + (from + size_t(i)) * elementSize;
                    if (ci16) {
                        const int16_t* v = reinterpret_cast<const int16_t*>(p);
                        segment[size_t(i)] = std::complex<float>(v[0], v[1]) * (scale / 32768.0f);
                    } else {
                        segment[size_t(i)] = *reinterpret_cast<const std::complex<float>*>(p);
                    }
                }
                spectrum.add(segment.data());
                nextSpectrum = std::max(nextSpectrum, done) + std::max<long long>(spectrumEvery, kSpectrumSize);
            }
            done += n;
            progress.done(int((done + chunk - 1) / chunk));
            progress.detail(rateText(double(done),
                                     std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count(),
                                     lostSamples));
        }
    }
    zrSetIQTriggerSentinel(0.0);
    data.reset();
    if (meta.captures.empty()) meta.captures.push_back({0, center, 0});
    File metaFile(std::fopen(metaPath.c_str(), "wb"));
    const std::string json = sigmfJson(meta);
    if (!metaFile || std::fwrite(json.data(), 1, json.size(), metaFile.get()) != json.size()) {
        std::fprintf(stderr, "zr: cannot write %s\n", metaPath.c_str());
        return 1;
    }
    metaFile.reset();

    size_t triggerCount = 0;
    for (const auto& a : meta.annotations) triggerCount += a.label == "trigger";
    std::printf("%s %08d   %s at %s, bandwidth %s\n", modelName(dev.type()), dev.serial(),
                formatFrequency(rate, 6).c_str(), formatFrequency(center, 6).c_str(),
                formatFrequency(bandwidth, 3).c_str());
    std::printf("%lld samples from %s: %zu triggers, %d losses (%lld samples)\n", done,
                isoUtc(meta.captures.front().nsSinceEpoch).c_str(), triggerCount, losses, lostSamples);
    std::printf("wrote %s and %s\n", dataPath.c_str(), metaPath.c_str());

    if (!q.plotPath.empty() && spectrum.segments() > 0) {
        const std::vector<float> levels = spectrum.dbm();
        const double bin = rate / kSpectrumSize, start = center - rate / 2.0;
        PeakSearch search;
        search.separationBins = 3;
        float threshold = 0;
        PlotInput plot{levels.data(), kSpectrumSize, start, bin,
                       std::string(modelName(dev.type())) + " " + std::to_string(dev.serial()) + "   I/Q at " +
                           formatFrequency(center, 6),
                       formatFrequency(rate, 6) + "   " + std::to_string(spectrum.segments()) +
                           " averaged flat-top FFTs of " + std::to_string(kSpectrumSize),
                       findPeaks(levels.data(), kSpectrumSize, start, bin, search, &threshold), std::nullopt};
        std::string error;
        if (!writePng(q.plotPath, renderPlot(plot), &error)) {
            std::fprintf(stderr, "zr: --plot %s\n", error.c_str());
            return 1;
        }
        std::printf("wrote %s\n", q.plotPath.c_str());
    }
    return rc;
}

}  // namespace zrtool
