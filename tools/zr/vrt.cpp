// zr vrt: VITA 49 packets of an I/Q stream into a pcap file, each packet
// the payload of a UDP datagram on loopback to port 4991, so packet
// analysers decode them as they would off the wire.
#include <algorithm>
#include <cstdint>
#include <cstdio>
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

constexpr uint16_t kVrtPort = 4991;
constexpr uint32_t kFrom = 0x7F000002;  // 127.0.0.2, the instrument's side
constexpr uint32_t kTo = 0x7F000001;    // 127.0.0.1

struct FileCloser {
    void operator()(std::FILE* f) const {
        if (f) std::fclose(f);
    }
};

void le32(std::vector<uint8_t>& b, uint32_t v) {
    for (int i = 0; i < 4; ++i) b.push_back(uint8_t(v >> (8 * i)));
}
void be16(std::vector<uint8_t>& b, uint16_t v) { b.insert(b.end(), {uint8_t(v >> 8), uint8_t(v)}); }
void be32(std::vector<uint8_t>& b, uint32_t v) { be16(b, uint16_t(v >> 16)), be16(b, uint16_t(v)); }

// The file header: microsecond time stamps, link type raw IPv4.
std::vector<uint8_t> pcapHeader() {
    std::vector<uint8_t> h;
    le32(h, 0xA1B2C3D4);
    h.insert(h.end(), {2, 0, 4, 0});
    le32(h, 0);
    le32(h, 0);
    le32(h, 65535);
    le32(h, 228);  // LINKTYPE_IPV4
    return h;
}

// One record: the packet's own time stamp, an IPv4 and a UDP header, and
// the words as the library gave them (already in network order).
std::vector<uint8_t> pcapRecord(const uint32_t* words, uint32_t count, uint16_t ipId) {
    const uint32_t payload = count * 4;
    const uint16_t ipLength = uint16_t(20 + 8 + payload);
    const uint8_t* bytes = reinterpret_cast<const uint8_t*>(words);
    auto word = [&](int i) {
        return uint32_t(bytes[4 * i]) << 24 | uint32_t(bytes[4 * i + 1]) << 16 | uint32_t(bytes[4 * i + 2]) << 8 |
               bytes[4 * i + 3];
    };
    const uint32_t seconds = word(2);
    const uint64_t ps = uint64_t(word(3)) | uint64_t(word(4)) << 32;
    std::vector<uint8_t> r;
    le32(r, seconds);
    le32(r, uint32_t(ps / 1000000));
    le32(r, ipLength);
    le32(r, ipLength);
    std::vector<uint8_t> ip;
    ip.insert(ip.end(), {0x45, 0});
    be16(ip, ipLength);
    be16(ip, ipId);
    ip.insert(ip.end(), {0x40, 0, 64, 17, 0, 0});  // don't fragment, TTL 64, UDP, checksum below
    be32(ip, kFrom);
    be32(ip, kTo);
    uint32_t sum = 0;
    for (size_t i = 0; i < ip.size(); i += 2) sum += uint32_t(ip[i]) << 8 | ip[i + 1];
    while (sum >> 16) sum = (sum & 0xFFFF) + (sum >> 16);
    ip[10] = uint8_t(~sum >> 8);
    ip[11] = uint8_t(~sum);
    r.insert(r.end(), ip.begin(), ip.end());
    be16(r, kVrtPort);
    be16(r, kVrtPort);
    be16(r, uint16_t(8 + payload));
    be16(r, 0);  // no UDP checksum, as IPv4 allows
    r.insert(r.end(), bytes, bytes + payload);
    return r;
}

}  // namespace

int runVrt(const Invocation& inv) {
    const VrtRequest& q = inv.vrt;
    if (const int bad = checkOutputs({q.outPath})) return bad;
    int rc = 0;
    OpenDevice dev;
    if (!dev.open(inv, &rc)) return rc;
    const int h = dev.handle();
    if (!check("--center", zrSetIQCenterFreq(h, *q.center), &rc)) return rc;
    if (!check("--decimation", zrSetIQSampleRate(h, q.decimation), &rc)) return rc;
    if (!check("bandwidth", zrSetIQBandwidth(h, zrFalse, 1e12), &rc)) return rc;
    if (!check("--ref", zrSetRefLevel(h, q.refLevel.value_or(0.0)), &rc)) return rc;
    if (q.attenuator && !check("--atten", zrSetAttenuator(h, *q.attenuator), &rc)) return rc;
    if (!check("data type", zrSetIQDataType(h, zrDataType32fc), &rc)) return rc;
    if (!check("--stream-id", zrSetVrtStreamID(h, q.streamId), &rc)) return rc;
    if (!check("--packet-size", zrSetVrtPacketSize(h, uint16_t(q.packetSize)), &rc)) return rc;
    if (!check("configure", zrConfigure(h, zrModeIQStreaming), &rc)) return rc;

    std::unique_ptr<std::FILE, FileCloser> out(std::fopen(q.outPath.c_str(), "wb"));
    const std::vector<uint8_t> header = pcapHeader();
    if (!out || std::fwrite(header.data(), 1, header.size(), out.get()) != header.size()) {
        std::fprintf(stderr, "zr: cannot write %s\n", q.outPath.c_str());
        return 1;
    }
    std::vector<uint32_t> words(size_t(q.packetSize) + 6);
    uint32_t context[28];
    uint16_t ipId = 0;
    int contexts = 0, flagged = 0;
    auto write = [&](const uint32_t* w, uint32_t n) {
        const std::vector<uint8_t> rec = pcapRecord(w, n, ipId++);
        return std::fwrite(rec.data(), 1, rec.size(), out.get()) == rec.size();
    };
    {
        InterruptGuard guard;
        Progress progress("packets", q.count);
        for (int p = 0; p < q.count && !interrupted(); ++p) {
            uint32_t n = 0;
            if (p % q.contextEvery == 0) {
                const ZrStatus s = zrGetVrtContextPkt(h, context, &n);
                if (s < 0) {
                    rc = fail("context packet", s, nullptr);
                    break;
                }
                if (!write(context, n)) break;
                ++contexts;
            }
            const ZrStatus s = zrGetVrtPackets(h, words.data(), &n, 1, zrFalse);
            if (s < 0) {
                rc = fail("data packet", s, s == zrConnectionLostErr ? "check the cable; the instrument stopped answering" : nullptr);
                break;
            }
            // Valid data (bit 18) clear: overload or a lost sample.
            const uint8_t* t = reinterpret_cast<const uint8_t*>(&words[n - 1]);
            flagged += (t[1] & 0x04) == 0;
            if (!write(words.data(), n)) {
                std::fprintf(stderr, "zr: writing %s failed (disk full?)\n", q.outPath.c_str());
                rc = 1;
                break;
            }
            progress.done(p + 1);
        }
    }
    out.reset();
    std::printf("%s %08d   stream 0x%08X at %s\n", modelName(dev.type()), dev.serial(), q.streamId,
                formatFrequency(*q.center, 6).c_str());
    std::printf("%d context packets, %d data packets of %d samples (%d flagged not valid)\n", contexts,
                int(ipId) - contexts, q.packetSize, flagged);
    std::printf("wrote %s\n", q.outPath.c_str());
    return rc != 0 ? rc : interrupted() ? 130 : 0;
}

}  // namespace zrtool
