#pragma once
// The timebase cache: one 64-byte file per instrument that remembers the
// oscillator tune value GPS last steered to, so that a later open without a
// fix starts from it rather than from the factory value. The record format
// is the calibration's; this is where it meets the file system.

#include <cstdint>
#include <string>

namespace zr {

// What the device keeps of the file's last contents.
struct StoredTimebase {
    uint8_t valid = 0;
    int64_t timeSeconds = 0;  // since 1970
    uint16_t tune = 0;
};

// "<folder>zr<serial, 8 digits>gps.bin"; a separator is put between a
// non-empty folder and the name when the folder lacks one.
std::string timebaseFilePath(const std::string& folder, int serial);
bool writeTimebaseFile(const std::string& folder, int serial, const StoredTimebase& record);
// Leaves `record` alone unless the file exists, is exactly one record long,
// carries the right magic and version, was written for this serial (or by a
// writer that recorded none), holds a tune value and is not dated in the
// future. A refused file is logged with the reason.
bool readTimebaseFile(const std::string& folder, int serial, StoredTimebase& record);

// Date of the newest entry of a calibration record's timebase history: the
// last one before the first 0xFFFF value, 0 for an empty history.
uint64_t lastTimebaseHistoryDate(const uint16_t* values, const uint64_t* dates, int entries = 64);

}  // namespace zr
