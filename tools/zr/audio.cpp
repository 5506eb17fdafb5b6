// zr audio: demodulated audio into a WAV file, and to aplay with --play.
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "commands.h"
#include "progress.h"
#include "session.h"
#include "units.h"
#include "zr_api.h"

namespace zrtool {

namespace {

constexpr int kRate = 31250;
constexpr int kBlock = 1000;

void put16(std::vector<uint8_t>& b, uint16_t v) { b.insert(b.end(), {uint8_t(v), uint8_t(v >> 8)}); }
void put32(std::vector<uint8_t>& b, uint32_t v) { put16(b, uint16_t(v)), put16(b, uint16_t(v >> 16)); }

// A canonical WAV header for `samples` mono samples: IEEE float (with the
// fact chunk that format asks for) or 16-bit PCM.
std::vector<uint8_t> wavHeader(bool pcm16, uint32_t samples) {
    const uint16_t bytesPer = pcm16 ? 2 : 4;
    const uint32_t data = samples * bytesPer;
    std::vector<uint8_t> h;
    auto tag = [&](const char* t) { h.insert(h.end(), t, t + 4); };
    tag("RIFF");
    put32(h, (pcm16 ? 36 : 50) + data);
    tag("WAVE");
    tag("fmt ");
    put32(h, pcm16 ? 16 : 18);
    put16(h, pcm16 ? 1 : 3);
    put16(h, 1);
    put32(h, kRate);
    put32(h, kRate * bytesPer);
    put16(h, bytesPer);
    put16(h, uint16_t(8 * bytesPer));
    if (!pcm16) {
        put16(h, 0);
        tag("fact");
        put32(h, 4);
        put32(h, samples);
    }
    tag("data");
    put32(h, data);
    return h;
}

struct FileCloser {
    void operator()(std::FILE* f) const {
        if (f) std::fclose(f);
    }
};
struct PipeCloser {
    void operator()(std::FILE* f) const {
        if (f) pclose(f);
    }
};

bool onPath(const char* program) {
    const char* path = std::getenv("PATH");
    if (!path) return false;
    std::string dirs = path;
    for (size_t from = 0; from <= dirs.size();) {
        size_t colon = dirs.find(':', from);
        if (colon == std::string::npos) colon = dirs.size();
        const std::string candidate = dirs.substr(from, colon - from) + "/" + program;
        if (::access(candidate.c_str(), X_OK) == 0) return true;
        from = colon + 1;
    }
    return false;
}

const char* typeName(ZrAudioType t) {
    static const char* names[] = {"AM", "FM", "USB", "LSB", "CW"};
    return names[t];
}

bool applyAudioSettings(int h, const AudioRequest& a, int* rc) {
    if (!check("--center", zrSetAudioCenterFreq(h, *a.center), rc)) return false;
    if (!check("--type", zrSetAudioType(h, a.type), rc)) return false;
    if (!check("filters", zrSetAudioFilters(h, a.ifBandwidth.value_or(200e3), a.lowPass.value_or(12e3),
                                            a.highPass.value_or(100.0)), rc,
               "--ifbw is 500 to 250k, --lowpass 1k to 12k, --highpass 20 to 1k"))
        return false;
    if (a.deemphasisUs && !check("--deemphasis", zrSetAudioFMDeemphasis(h, *a.deemphasisUs), rc)) return false;
    if (!check("--ref", zrSetRefLevel(h, a.refLevel.value_or(0.0)), rc)) return false;
    if (a.attenuator && !check("--atten", zrSetAttenuator(h, *a.attenuator), rc)) return false;
    return true;
}

}  // namespace

int runAudio(const Invocation& inv) {
    const AudioRequest& a = inv.audio;
    if (const int bad = checkOutputs({a.outPath})) return bad;
    if (a.play && !onPath("aplay")) std::fprintf(stderr, "zr: --play needs aplay (package alsa-utils); recording only\n");

    int rc = 0;
    OpenDevice dev;
    if (!dev.open(inv, &rc)) return rc;
    const int h = dev.handle();
    if (!applyAudioSettings(h, a, &rc)) return rc;
    if (!check("configure", zrConfigure(h, zrModeAudio), &rc)) return rc;

    std::unique_ptr<std::FILE, FileCloser> out(std::fopen(a.outPath.c_str(), "wb"));
    if (!out) {
        std::fprintf(stderr, "zr: cannot write %s\n", a.outPath.c_str());
        return 1;
    }
    std::unique_ptr<std::FILE, PipeCloser> player;
    if (a.play && onPath("aplay"))
        player.reset(popen(a.pcm16 ? "aplay -q -t raw -f S16_LE -c 1 -r 31250" : "aplay -q -t raw -f FLOAT_LE -c 1 -r 31250",
                           "w"));
    // The header is rewritten with the true length at the end.
    const std::vector<uint8_t> placeholder = wavHeader(a.pcm16, 0);
    std::fwrite(placeholder.data(), 1, placeholder.size(), out.get());

    const long long blocks = std::max<long long>(1, std::llround(a.duration * kRate / kBlock));
    std::vector<float> audio(kBlock);
    std::vector<int16_t> pcm(kBlock);
    uint32_t written = 0;
    float peak = 0.0f;
    {
        InterruptGuard guard;
        Progress progress("recording", int(blocks));
        for (long long b = 0; b < blocks && !interrupted(); ++b) {
            const ZrStatus s = zrGetAudio(h, audio.data());
            if (s < 0) {
                rc = fail("audio", s, s == zrConnectionLostErr ? "check the cable; the instrument stopped answering" : nullptr);
                break;
            }
            for (float v : audio) peak = std::max(peak, std::fabs(v));
            const void* bytes = audio.data();
            size_t size = sizeof(float);
            if (a.pcm16) {
                for (int i = 0; i < kBlock; ++i)
                    pcm[size_t(i)] = int16_t(std::lrint(std::clamp(audio[size_t(i)], -1.0f, 1.0f) * 32767.0f));
                bytes = pcm.data();
                size = sizeof(int16_t);
            }
            if (std::fwrite(bytes, size, kBlock, out.get()) != size_t(kBlock)) {
                std::fprintf(stderr, "zr: writing %s failed (disk full?)\n", a.outPath.c_str());
                rc = 1;
                break;
            }
            if (player && std::fwrite(bytes, size, kBlock, player.get()) != size_t(kBlock)) player.reset();
            written += kBlock;
            progress.done(int(b + 1));
        }
    }
    const std::vector<uint8_t> header = wavHeader(a.pcm16, written);
    if (std::fseek(out.get(), 0, SEEK_SET) != 0 || std::fwrite(header.data(), 1, header.size(), out.get()) != header.size()) {
        std::fprintf(stderr, "zr: cannot finish %s\n", a.outPath.c_str());
        return 1;
    }
    out.reset();
    std::printf("%s %08d   %s at %s\n", modelName(dev.type()), dev.serial(), typeName(a.type),
                formatFrequency(*a.center, 6).c_str());
    std::printf("%.2f s of audio at %d samples/s, peak %.3f%s\n", double(written) / kRate, kRate, double(peak),
                a.pcm16 && peak > 1.0f ? " (clipped to full scale)" : "");
    std::printf("wrote %s\n", a.outPath.c_str());
    return rc != 0 ? rc : interrupted() ? 130 : 0;
}

}  // namespace zrtool
