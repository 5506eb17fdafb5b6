#include "gps/timebase_file.h"

#include <cstdio>
#include <filesystem>
#include <fstream>

namespace zr {

namespace {
void putLE(uint8_t* p, uint64_t v, int bytes) {
    for (int i = 0; i < bytes; ++i) p[i] = static_cast<uint8_t>(v >> (8 * i));
}
uint64_t getLE(const uint8_t* p, int bytes) {
    uint64_t v = 0;
    for (int i = 0; i < bytes; ++i) v |= static_cast<uint64_t>(p[i]) << (8 * i);
    return v;
}
}  // namespace

std::array<uint8_t, kTimebaseFileBytes> encodeTimebaseFile(const StoredTimebase& record) {
    std::array<uint8_t, kTimebaseFileBytes> b{};
    putLE(b.data() + 0, kTimebaseFileMagic, 4);
    putLE(b.data() + 4, kTimebaseFileVersion, 4);
    putLE(b.data() + 8, static_cast<uint64_t>(record.timeSeconds), 8);
    putLE(b.data() + 16, record.tune, 2);
    return b;
}

bool decodeTimebaseFile(const uint8_t* bytes, size_t size, StoredTimebase& record) {
    if (!bytes || size != kTimebaseFileBytes) return false;
    if (getLE(bytes, 4) != kTimebaseFileMagic || getLE(bytes + 4, 4) != kTimebaseFileVersion) return false;
    record.valid = 1;
    record.timeSeconds = static_cast<int64_t>(getLE(bytes + 8, 8));
    record.tune = static_cast<uint16_t>(getLE(bytes + 16, 2));
    return true;
}

std::string timebaseFilePath(const std::string& folder, int serial) {
    char name[40];
    std::snprintf(name, sizeof name, "zr%08dgps.bin", serial);
    std::string path = folder;
    if (!path.empty() && path.back() != '/') path += '/';
    return path + name;
}

bool writeTimebaseFile(const std::string& folder, int serial, const StoredTimebase& record) {
    auto bytes = encodeTimebaseFile(record);
    std::ofstream f(timebaseFilePath(folder, serial), std::ios::binary | std::ios::trunc);
    if (!f) return false;
    f.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    return static_cast<bool>(f.flush());
}

bool readTimebaseFile(const std::string& folder, int serial, StoredTimebase& record) {
    std::string path = timebaseFilePath(folder, serial);
    std::error_code ec;
    if (!std::filesystem::is_regular_file(path, ec)) return false;
    std::ifstream f(path, std::ios::binary);
    if (!f) return false;
    // One byte more than a record, so that a longer file shows as wrong.
    uint8_t bytes[kTimebaseFileBytes + 1];
    f.read(reinterpret_cast<char*>(bytes), sizeof bytes);
    StoredTimebase decoded;
    if (!decodeTimebaseFile(bytes, static_cast<size_t>(f.gcount()), decoded)) return false;
    record = decoded;
    return true;
}

uint64_t lastTimebaseHistoryDate(const uint16_t* values, const uint64_t* dates, int entries) {
    uint64_t date = 0;
    for (int i = 0; i < entries && values[i] != 0xFFFF; ++i) date = dates[i];
    return date;
}

}  // namespace zr
