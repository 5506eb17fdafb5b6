#include "gps/timebase_file.h"

#include <cstdio>
#include <filesystem>

#include "platform/clock.h"
#include "platform/error_log.h"
#include "zr_correction_def.h"

namespace zr {

namespace {
// A host clock may lag the one that wrote the file by a little.
constexpr uint64_t kFutureSlackSeconds = 86400;
}  // namespace

std::string timebaseFilePath(const std::string& folder, int serial) {
    char name[40];
    std::snprintf(name, sizeof name, "zr%08dgps.bin", serial);
    std::string path = folder;
    if (!path.empty() && path.back() != '/') path += '/';
    return path + name;
}

bool writeTimebaseFile(const std::string& folder, int serial, const StoredTimebase& record) {
    TimebaseCacheRecord r;
    r.date = static_cast<uint64_t>(record.timeSeconds);
    r.value = record.tune;
    r.serial = static_cast<uint32_t>(serial);
    uint8_t bytes[TimebaseCacheRecord::kSize];
    encodeTimebaseCache(r, bytes);
    return writeImageFile(timebaseFilePath(folder, serial).c_str(), bytes, sizeof bytes);
}

bool readTimebaseFile(const std::string& folder, int serial, StoredTimebase& record) {
    // A regular file of exactly one record, like the calibration cache.
    uint8_t bytes[TimebaseCacheRecord::kSize];
    if (!readImageFile(timebaseFilePath(folder, serial).c_str(), bytes, sizeof bytes)) return false;
    TimebaseCacheRecord r;
    const std::string path = timebaseFilePath(folder, serial);
    if (!decodeTimebaseCache(bytes, sizeof bytes, r)) {
        logError("Error: %s %s is no timebase record (magic or version), ignored\n", __func__, path.c_str());
        return false;
    }
    // Like the calibration cache, the value must be this instrument's and
    // plausible before it steers the oscillator.
    const char* reason = nullptr;
    if (r.serial != 0 && r.serial != static_cast<uint32_t>(serial)) reason = "belongs to another serial";
    else if (r.value == 0 || r.value == 0xFFFF) reason = "holds no tune value";
    else if (r.date == 0 || r.date > static_cast<uint64_t>(unixSeconds()) + kFutureSlackSeconds) reason = "is dated in the future";
    if (reason) {
        logError("Error: %s %s %s, ignored\n", __func__, path.c_str(), reason);
        return false;
    }
    record.valid = 1;
    record.timeSeconds = static_cast<int64_t>(r.date);
    record.tune = r.value;
    return true;
}

uint64_t lastTimebaseHistoryDate(const uint16_t* values, const uint64_t* dates, int entries) {
    uint64_t date = 0;
    for (int i = 0; i < entries && values[i] != 0xFFFF; ++i) date = dates[i];
    return date;
}

}  // namespace zr
