#include "units.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <ctime>
#include <cstdio>
#include <cstdlib>

namespace zrtool {
namespace {

// strtod over the whole leading number, with what follows it handed back.
std::optional<double> leadingNumber(std::string_view text, std::string_view* rest) {
    const std::string s(text);
    if (s.empty() || std::isspace(static_cast<unsigned char>(s[0]))) return std::nullopt;
    char* end = nullptr;
    errno = 0;
    const double v = std::strtod(s.c_str(), &end);
    if (end == s.c_str() || errno == ERANGE || !std::isfinite(v)) return std::nullopt;
    // strtod also reads "inf", "nan" and hex floats; none of those is a
    // setting anybody types on purpose.
    for (const char* p = s.c_str(); p != end; ++p)
        if (!std::isdigit(static_cast<unsigned char>(*p)) && std::string_view("+-.eE").find(*p) == std::string_view::npos)
            return std::nullopt;
    *rest = text.substr(static_cast<size_t>(end - s.c_str()));
    return v;
}

}  // namespace

std::optional<double> parseFrequency(std::string_view text) {
    std::string_view rest;
    auto v = leadingNumber(text, &rest);
    if (!v || *v < 0) return std::nullopt;
    double scale = 1.0;
    if (!rest.empty()) {
        switch (rest.front()) {
            case 'k': case 'K': scale = 1e3; rest.remove_prefix(1); break;
            case 'M': scale = 1e6; rest.remove_prefix(1); break;
            case 'G': case 'g': scale = 1e9; rest.remove_prefix(1); break;
            default: break;
        }
    }
    if (!rest.empty() && rest != "Hz" && rest != "hz") return std::nullopt;
    return *v * scale;
}

std::optional<double> parseLevel(std::string_view text) {
    std::string_view rest;
    auto v = leadingNumber(text, &rest);
    if (!v || !(rest.empty() || rest == "dBm" || rest == "dbm")) return std::nullopt;
    return v;
}

std::optional<long> parseInteger(std::string_view text, long lo, long hi) {
    const std::string s(text);
    if (s.empty()) return std::nullopt;
    char* end = nullptr;
    errno = 0;
    const long v = std::strtol(s.c_str(), &end, 10);
    if (*end != '\0' || errno == ERANGE || v < lo || v > hi) return std::nullopt;
    return v;
}

FrequencyUnit unitFor(double hz) {
    const double a = std::fabs(hz);
    if (a >= 1e9) return {1e9, "GHz"};
    if (a >= 1e6) return {1e6, "MHz"};
    if (a >= 1e3) return {1e3, "kHz"};
    return {1.0, "Hz"};
}

std::string trimmedNumber(double value, int decimals) {
    char buf[64];
    std::snprintf(buf, sizeof buf, "%.*f", decimals, value);
    std::string s(buf);
    if (s.find('.') != std::string::npos) {
        while (s.back() == '0') s.pop_back();
        if (s.back() == '.') s.pop_back();
    }
    if (s == "-0") s = "0";
    return s;
}

std::string formatFrequency(double hz, int decimals) {
    const FrequencyUnit u = unitFor(hz);
    return trimmedNumber(hz / u.scale, decimals) + " " + u.name;
}

std::string formatFrequencyTo(double hz, double resolutionHz) {
    const FrequencyUnit u = unitFor(hz);
    int decimals = 0;
    if (resolutionHz > 0 && resolutionHz < u.scale)
        decimals = std::min(9, static_cast<int>(std::ceil(-std::log10(resolutionHz / u.scale) - 1e-9)));
    char buf[64];
    std::snprintf(buf, sizeof buf, "%.*f %s", decimals, hz / u.scale, u.name);
    return buf;
}

std::string isoUtc(int64_t ns) {
    int64_t seconds = ns / 1000000000;
    int64_t frac = ns % 1000000000;
    if (frac < 0) {
        frac += 1000000000;
        --seconds;
    }
    const std::time_t t = static_cast<std::time_t>(seconds);
    std::tm tm{};
    gmtime_r(&t, &tm);
    char buf[64];
    std::snprintf(buf, sizeof buf, "%04d-%02d-%02dT%02d:%02d:%02d.%09lldZ", tm.tm_year + 1900, tm.tm_mon + 1,
                  tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec, static_cast<long long>(frac));
    return buf;
}

}  // namespace zrtool
