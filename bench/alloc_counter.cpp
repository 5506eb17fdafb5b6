#include "alloc_counter.h"

#include <dirent.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

namespace {
std::atomic<uint64_t> gEngineAllocs{0};
thread_local bool tCountCaller = false;
thread_local int tEngineThread = -1;  // unknown until the first allocation

bool onEngineThread() {
    if (tEngineThread < 0) {
        char name[16] = {};
        pthread_getname_np(pthread_self(), name, sizeof name);
        tEngineThread = std::strncmp(name, "ZR", 2) == 0 ? 1 : 0;
    }
    return tEngineThread == 1;
}

void* countedAlloc(size_t n) {
    if (tCountCaller || onEngineThread()) gEngineAllocs.fetch_add(1, std::memory_order_relaxed);
    if (void* p = std::malloc(n ? n : 1)) return p;
    throw std::bad_alloc();
}
}  // namespace

void* operator new(size_t n) { return countedAlloc(n); }
void* operator new[](size_t n) { return countedAlloc(n); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, size_t) noexcept { std::free(p); }
void operator delete[](void* p, size_t) noexcept { std::free(p); }

namespace zr::bench {

uint64_t engineAllocations() { return gEngineAllocs.load(); }
void resetEngineAllocations() { gEngineAllocs = 0; }
void countCaller(bool on) { tCountCaller = on; }

double threadCpuSeconds(const char* prefix) {
    double total = 0.0;
    DIR* d = opendir("/proc/self/task");
    if (!d) return 0.0;
    const double tick = double(sysconf(_SC_CLK_TCK));
    while (dirent* e = readdir(d)) {
        if (e->d_name[0] == '.') continue;
        const std::string base = std::string("/proc/self/task/") + e->d_name;
        char name[64] = {};
        if (FILE* f = std::fopen((base + "/comm").c_str(), "r")) {
            if (!std::fgets(name, sizeof name, f)) name[0] = 0;
            std::fclose(f);
        }
        if (std::strncmp(name, prefix, std::strlen(prefix)) != 0) continue;
        char stat[1024] = {};
        if (FILE* f = std::fopen((base + "/stat").c_str(), "r")) {
            if (!std::fgets(stat, sizeof stat, f)) stat[0] = 0;
            std::fclose(f);
        }
        const char* close = std::strrchr(stat, ')');
        unsigned long utime = 0, stime = 0;
        if (close && std::sscanf(close + 2, "%*c %*d %*d %*d %*d %*d %*u %*u %*u %*u %*u %lu %lu", &utime, &stime) == 2)
            total += double(utime + stime) / tick;
    }
    closedir(d);
    return total;
}

}  // namespace zr::bench
