// Seed corpora for the harnesses, made by the simulator and by the
// library's own plans: calibration patches that put the values the check
// must catch into the tables, status blocks of a running instrument (GPS
// locked and not, triggers, faults), and the command lists the plans build.
//
//   zr_fuzz_seeds FOLDER   (writes FOLDER/calibration, status, commands)
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "device/device.h"
#include "fuzz_support.h"
#include "instrument.h"
#include "iq/iq_plan.h"
#include "support/cal_images.h"
#include "support/fake_transport.h"
#include "sweep/engine_fast.h"
#include "sweep/engine_narrow.h"
#include "sweep/engine_sweep_controller.h"

using namespace zr;

namespace {

std::string gFolder;
int gCount = 0;

void save(const std::string& corpus, const void* bytes, size_t n) {
    const std::string dir = gFolder + "/" + corpus;
    std::filesystem::create_directories(dir);
    std::ofstream(dir + "/seed-" + std::to_string(gCount++), std::ios::binary)
        .write(static_cast<const char*>(bytes), std::streamsize(n));
}

void calibrationSeeds() {
    const float inf = std::numeric_limits<float>::infinity(), nan = std::numeric_limits<float>::quiet_NaN();
    struct Field {
        bool ridge;
        size_t offset;
    };
    const Field fields[] = {
        {false, offsetof(MesaCalData, gain)},        {false, offsetof(MesaCalData, temperature)},
        {false, offsetof(MesaCalData, loFreq)},      {false, offsetof(MesaCalData, ifPhase) + 4000},
        {false, offsetof(MesaCalData, preselect)},   {false, offsetof(MesaCalData, calVersion)},
        {true, offsetof(RidgeCalData, gain) + 40},   {true, offsetof(RidgeCalData, vva)},
        {true, offsetof(RidgeCalData, loGateBias)},  {true, offsetof(RidgeCalData, band6Gain)},
        {true, offsetof(RidgeCalData, temperature)}, {true, offsetof(RidgeCalData, timebaseValue)},
    };
    for (const Field& f : fields) {
        for (float v : {inf, nan, -1e30f, 0.0f}) {
            std::vector<uint8_t> seed{uint8_t(f.ridge), 40, 25};
            fuzz::appendPatch(seed, uint32_t(f.offset), &v, 4);
            save("calibration", seed.data(), seed.size());
        }
    }
    const uint8_t plain[3] = {0, 26, 80};
    save("calibration", plain, 3);
}

void statusSeeds() {
    sim::Instrument inst(zrDeviceTypeMesa2, 20000001);
    inst.setRunning(true);
    inst.setPaced(false);
    inst.setGps(true, 48.1, 11.6, 520.0);
    std::vector<uint8_t> out;
    std::vector<uint8_t> replies(5 * 8192);
    uint8_t block[2048] = {};
    auto word = [&](int i, uint32_t w) { std::memcpy(block + 4 * i, &w, 4); };
    // A stream, a trigger and a bad status among the blocks.
    for (int k = 0; k < 8; ++k) {
        std::memset(block, 0, sizeof block);
        int i = 0;
        if (k == 0) word(i++, 0x13010000u);
        for (int d = 0; d < 4; ++d) word(i++, 0x23000000u);
        word(i++, 0x24000000u);
        if (k == 3) inst.triggerAtTick(inst.tickNow() + 5000, 400.0);
        if (k == 5) inst.injectBadMagic(1);
        inst.writeBlock(block, 1000);
        if (inst.read(replies.data(), 5 * 8192, 1000).failed) break;
        out.insert(out.end(), replies.begin() + 4 * 8192, replies.end());
        save("status", out.data(), out.size());
    }
}

void commandSeeds() {
    auto t = std::make_unique<test::OfflineTransport>(zrDeviceTypeMesa2, 20000001);
    const auto image = test::makeMesaImage(20000001);
    std::memcpy(t->image.data(), image.get(), sizeof(MesaCalData));
    ZrDevice dev(std::move(t));
    auto keep = [](const CommandList& list) {
        save("commands", list.data(), std::min<size_t>(list.buffer().size(), 16 * 2048));
    };
    SweepPlan plan;
    CommandList a, b, c;
    dev.sweep.center = 2.4e9;
    dev.sweep.span = 4e8;
    dev.sweep.rbw = dev.sweep.vbw = 3e5;
    buildControllerPlan(dev, plan, a);
    keep(a);
    buildFastPlan(dev, plan, a, b);
    keep(a);
    keep(b);
    dev.sweep.span = 1e6;
    NarrowDecimation dec;
    buildNarrowPlan(dev, plan, a, dec);
    keep(a);
    IQPlan iq;
    buildUsbIQPlan(dev, dev.iq, iq, a, b);
    keep(a);
    keep(b);
    dev.iq.decimation = 64;
    buildNetworkedIQPlan(dev, dev.iq, iq, a, b, c);
    keep(a);
    keep(c);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: zr_fuzz_seeds FOLDER\n");
        return 2;
    }
    gFolder = argv[1];
    calibrationSeeds();
    statusSeeds();
    commandSeeds();
    std::printf("%d seeds in %s\n", gCount, gFolder.c_str());
    return 0;
}
