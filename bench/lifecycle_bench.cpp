// A thousand opens and closes of one simulated instrument: what the process
// holds afterwards, against what it held after a warm-up. Any growth is a
// leak of the open path (a thread, a descriptor, a device's buffers).
#include <benchmark/benchmark.h>

#include <filesystem>

#include "tests/support/process_stats.h"
#include "zr_api.h"
#include "zr_sim.h"

namespace {

void BM_OpenCloseThousand(benchmark::State& state) {
    const auto folder = std::filesystem::temp_directory_path() / "zr_bench_lifecycle";
    std::filesystem::create_directories(folder);
    zrSetDataFolder(folder.c_str());
    zrSimSetWaitScale(0.0);
    const int serial = 10009001;
    zrSimAttachUSB(zrDeviceTypeMesa2, serial);
    auto cycle = [&] {
        int h = -1;
        if (zrOpenDeviceBySerial(&h, serial) < zrNoError) state.SkipWithError("open failed");
        zrCloseDevice(h);
    };
    for (int i = 0; i < 10; ++i) cycle();
    const int threads = zr::test::threadCount();
    const int fds = zr::test::descriptorCount();
    const long rss = zr::test::residentKiB();
    for (auto _ : state)
        for (int i = 0; i < 1000; ++i) cycle();
    state.counters["thread_growth"] = zr::test::threadCount() - threads;
    state.counters["fd_growth"] = zr::test::descriptorCount() - fds;
    state.counters["rss_growth_KiB"] = static_cast<double>(zr::test::residentKiB() - rss);
    zrSimDetach(serial);
    zrSimSetWaitScale(1.0);
    std::filesystem::remove_all(folder);
}
BENCHMARK(BM_OpenCloseThousand)->Iterations(1)->Unit(benchmark::kSecond);

}  // namespace
