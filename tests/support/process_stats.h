#pragma once
// What a process holds, read from /proc: threads, open descriptors and
// resident memory. Leak checks compare these before and after a workload.
#include <dirent.h>
#include <unistd.h>

#include <fstream>

namespace zr::test {

inline int countDirEntries(const char* dir) {
    int n = 0;
    if (DIR* d = opendir(dir)) {
        while (dirent* e = readdir(d))
            if (e->d_name[0] != '.') ++n;
        closedir(d);
    }
    return n;
}

inline int threadCount() { return countDirEntries("/proc/self/task"); }
inline int descriptorCount() { return countDirEntries("/proc/self/fd"); }

inline long residentKiB() {
    std::ifstream f("/proc/self/statm");
    long pages = 0, resident = 0;
    f >> pages >> resident;
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

}  // namespace zr::test
