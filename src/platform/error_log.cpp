#include "platform/error_log.h"

#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <mutex>
#include <string>

#include "platform/data_folder.h"

namespace zr {

namespace {

constexpr long kMaxLogBytes = 1000000;

struct ErrorLog {
    std::mutex m;
    std::FILE* file = nullptr;
    std::string path;
    bool failed = false;
    char line[2048];

    ~ErrorLog() {
        if (file) std::fclose(file);
    }

    void writeStamped(std::FILE* f, const char* stamp) {
        std::fputs(stamp, f);
        std::fputs(line, f);
        std::fflush(f);
    }
};

ErrorLog& theLog() {
    static ErrorLog log;
    return log;
}

}  // namespace

void logError(const char* format, ...) {
    ErrorLog& log = theLog();
    std::lock_guard<std::mutex> lock(log.m);
    if (!format || log.failed) return;

    // Follow the data folder if the application moved it since the last line.
    const std::string path = appDataFolder() + "mesa_error_log.txt";
    if (log.file && path != log.path) {
        std::fclose(log.file);
        log.file = nullptr;
    }
    if (!log.file) {
        log.file = std::fopen(path.c_str(), "a");
        if (!log.file) {
            log.failed = true;
            return;
        }
        log.path = path;
    }

    va_list args;
    va_start(args, format);
    std::vsnprintf(log.line, sizeof log.line, format, args);
    va_end(args);

    char stamp[64];
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    std::strftime(stamp, sizeof stamp, "%x %X: ", &local);
    log.writeStamped(log.file, stamp);

    if (std::ftell(log.file) > kMaxLogBytes) {
        std::fclose(log.file);
        log.file = std::fopen(path.c_str(), "w");
        if (!log.file) {
            log.failed = true;
            return;
        }
        log.writeStamped(log.file, stamp);
    }
}

void resetErrorLogForTest() {
    ErrorLog& log = theLog();
    std::lock_guard<std::mutex> lock(log.m);
    if (log.file) std::fclose(log.file);
    log.file = nullptr;
    log.failed = false;
}

}  // namespace zr
