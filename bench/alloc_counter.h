#pragma once
// Counts what the library allocates on its engine threads (OS names that
// begin with "ZR") and on a caller's thread while a data call runs, through
// the benchmark program's own operator new.
#include <cstdint>

namespace zr::bench {

uint64_t engineAllocations();
void resetEngineAllocations();
// Counts this thread's allocations too while set.
void countCaller(bool on);

// CPU seconds (user and system) of this process's threads whose OS name
// begins with `prefix`, summed.
double threadCpuSeconds(const char* prefix);

}  // namespace zr::bench
