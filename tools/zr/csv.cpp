#include "csv.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace zrtool {

bool writeTraceCsv(const std::string& path, const float* levels, int count, double startHz, double binHz,
                   std::string* error) {
    FILE* f = std::fopen(path.c_str(), "w");
    if (!f) {
        *error = path + ": " + std::strerror(errno);
        return false;
    }
    // Millihertz keep narrow sweeps, whose bins can be finer than 1 Hz, apart.
    std::fputs("frequency_hz,level_dbm\n", f);
    for (int i = 0; i < count; ++i) std::fprintf(f, "%.3f,%.3f\n", startHz + i * binHz, levels[i]);
    const bool ok = !std::ferror(f);
    if (std::fclose(f) != 0 || !ok) {
        *error = path + ": write failed";
        return false;
    }
    return true;
}

}  // namespace zrtool
