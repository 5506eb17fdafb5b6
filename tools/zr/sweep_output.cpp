#include "sweep_output.h"

#include <cerrno>
#include <cstring>

#include "units.h"

namespace zrtool {

bool SweepCsv::open(const std::string& path, bool series, std::string* error) {
    path_ = path;
    series_ = series;
    stdout_ = path == "-";
    f_ = stdout_ ? stdout : std::fopen(path.c_str(), "w");
    if (!f_) {
        *error = path + ": " + std::strerror(errno);
        return false;
    }
    std::fputs(series ? "sweep,time_utc,time_ns,frequency_hz,level_dbm\n" : "frequency_hz,level_dbm\n", f_);
    return true;
}

bool SweepCsv::write(int index, int64_t ns, const float* levels, const SweepAxis& axis) {
    if (!f_) return false;
    const std::string utc = isoUtc(ns);
    // Millihertz keep narrow sweeps, whose bins can be finer than 1 Hz, apart.
    for (int i = 0; i < axis.bins; ++i) {
        if (series_)
            std::fprintf(f_, "%d,%s,%lld,%.3f,%.3f\n", index, utc.c_str(), static_cast<long long>(ns),
                         axis.startHz + i * axis.binHz, levels[i]);
        else
            std::fprintf(f_, "%.3f,%.3f\n", axis.startHz + i * axis.binHz, levels[i]);
    }
    if (stdout_) std::fflush(f_);
    return !std::ferror(f_);
}

bool SweepCsv::close(std::string* error) {
    if (!f_) return true;
    const bool ok = !std::ferror(f_);
    const bool closed = stdout_ ? std::fflush(f_) == 0 : std::fclose(f_) == 0;
    f_ = nullptr;
    if (!ok || !closed) {
        *error = path_ + ": write failed";
        return false;
    }
    return true;
}

std::string npyHeader(int64_t rows, int64_t columns, size_t size) {
    std::string dict = "{'descr': '<f4', 'fortran_order': False, 'shape': (" + std::to_string(rows) + ", " +
                       std::to_string(columns) + "), }";
    std::string h = std::string("\x93NUMPY\x01\x00", 8);
    const size_t len = size - 10;
    h += char(len & 0xFF);
    h += char(len >> 8);
    h += dict;
    h.append(size - 1 - h.size(), ' ');
    return h + "\n";
}

std::string SweepNpy::sidecarPath(const std::string& npyPath) {
    const bool npy = npyPath.size() > 4 && npyPath.compare(npyPath.size() - 4, 4, ".npy") == 0;
    return (npy ? npyPath.substr(0, npyPath.size() - 4) : npyPath) + ".json";
}

bool SweepNpy::open(const std::string& path, std::string* error) {
    path_ = path;
    f_ = std::fopen(path.c_str(), "wb");
    if (!f_) {
        *error = path + ": " + std::strerror(errno);
        return false;
    }
    return writeHeader();
}

bool SweepNpy::writeHeader() {
    // Room for any count: the header is rewritten in place at the end.
    const std::string h = npyHeader(int64_t(times_.size()), axis_.bins);
    return std::fseek(f_, 0, SEEK_SET) == 0 && std::fwrite(h.data(), 1, h.size(), f_) == h.size();
}

bool SweepNpy::write(int64_t ns, const float* levels, const SweepAxis& axis) {
    if (!f_) return false;
    axis_ = axis;
    times_.push_back(ns);
    // Rows go after whatever is there, the header stays in front.
    return std::fseek(f_, 0, SEEK_END) == 0 &&
           std::fwrite(levels, sizeof(float), size_t(axis.bins), f_) == size_t(axis.bins);
}

bool SweepNpy::close(double rbwHz, std::string* error) {
    if (!f_) return true;
    bool ok = writeHeader();
    ok = std::fclose(f_) == 0 && ok;
    f_ = nullptr;
    const std::string sidecar = sidecarPath(path_);
    if (FILE* j = std::fopen(sidecar.c_str(), "w")) {
        std::fprintf(j, "{\n  \"unit\": \"dBm\",\n  \"sweeps\": %d,\n  \"frequency_axis\": {\"start_hz\": %.6f, \"step_hz\": %.9f, \"count\": %d},\n",
                     sweeps(), axis_.startHz, axis_.binHz, axis_.bins);
        std::fprintf(j, "  \"rbw_hz\": %.6f,\n  \"time_ns\": [", rbwHz);
        for (size_t i = 0; i < times_.size(); ++i)
            std::fprintf(j, "%s%lld", i ? ", " : "", static_cast<long long>(times_[i]));
        std::fprintf(j, "]\n}\n");
        ok = std::fclose(j) == 0 && ok;
    } else {
        ok = false;
    }
    if (!ok) *error = path_ + ": write failed";
    return ok;
}

}  // namespace zrtool
