// Where repeated sweeps go: CSV rows (to a file or standard output) with
// each sweep's index and time, and a numpy array of sweeps x bins with the
// frequency axis and times in a JSON file beside it. Both are written sweep
// by sweep, so an interrupted run keeps every sweep that completed.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace zrtool {

struct SweepAxis {
    double startHz = 0, binHz = 0;
    int bins = 0;
};

class SweepCsv {
public:
    // path "-" is standard output. `series`: the rows carry the sweep's
    // index and time (sweep,time_utc,time_ns,frequency_hz,level_dbm);
    // otherwise frequency_hz,level_dbm.
    bool open(const std::string& path, bool series, std::string* error);
    bool write(int index, int64_t ns, const float* levels, const SweepAxis& axis);
    bool close(std::string* error);

private:
    FILE* f_ = nullptr;
    bool stdout_ = false;
    bool series_ = false;
    std::string path_;
};

class SweepNpy {
public:
    // The JSON beside it: the path with ".npy" replaced by ".json".
    static std::string sidecarPath(const std::string& npyPath);
    bool open(const std::string& path, std::string* error);
    bool write(int64_t ns, const float* levels, const SweepAxis& axis);
    // Rewrites the header with the number of sweeps and writes the JSON.
    bool close(double rbwHz, std::string* error);
    int sweeps() const { return int(times_.size()); }

private:
    bool writeHeader();
    FILE* f_ = nullptr;
    std::string path_;
    SweepAxis axis_;
    std::vector<int64_t> times_;
};

// The header of a version 1.0 .npy file of little-endian float32 rows x
// columns, padded to `size` bytes (a multiple of 64).
std::string npyHeader(int64_t rows, int64_t columns, size_t size = 128);

}  // namespace zrtool
