#include "gps/timebase_file.h"

#include <cstdio>
#include <filesystem>

#include "zr_correction_def.h"

namespace zr {

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
    uint8_t bytes[TimebaseCacheRecord::kSize];
    encodeTimebaseCache(r, bytes);
    return writeImageFile(timebaseFilePath(folder, serial).c_str(), bytes, sizeof bytes);
}

bool readTimebaseFile(const std::string& folder, int serial, StoredTimebase& record) {
    // A regular file of exactly one record, like the calibration cache.
    uint8_t bytes[TimebaseCacheRecord::kSize];
    if (!readImageFile(timebaseFilePath(folder, serial).c_str(), bytes, sizeof bytes)) return false;
    TimebaseCacheRecord r;
    if (!decodeTimebaseCache(bytes, sizeof bytes, r)) return false;
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
