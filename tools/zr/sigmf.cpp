#include "sigmf.h"

#include "units.h"

#include <algorithm>
#include <cstdio>
#include <ctime>

namespace zrtool {

namespace {

std::string quoted(const std::string& s) {
    std::string out = "\"";
    for (unsigned char c : s) {
        switch (c) {
            case '"': out += "\\\""; break;
            case '\\': out += "\\\\"; break;
            case '\n': out += "\\n"; break;
            default:
                if (c < 0x20) {
                    char esc[8];
                    std::snprintf(esc, sizeof esc, "\\u%04x", c);
                    out += esc;
                } else {
                    out += char(c);
                }
        }
    }
    return out + "\"";
}

std::string number(double v) {
    char buf[40];
    std::snprintf(buf, sizeof buf, "%.17g", v);
    return buf;
}

}  // namespace

std::string sigmfJson(const SigmfMeta& m) {
    std::string j = "{\n  \"global\": {\n";
    j += "    \"core:datatype\": " + quoted(m.datatype) + ",\n";
    j += "    \"core:sample_rate\": " + number(m.sampleRate) + ",\n";
    j += "    \"core:version\": \"1.0.0\",\n";
    if (!m.hardware.empty()) j += "    \"core:hw\": " + quoted(m.hardware) + ",\n";
    if (!m.description.empty()) j += "    \"core:description\": " + quoted(m.description) + ",\n";
    if (m.scale) j += "    \"zr:scale\": " + number(*m.scale) + ",\n";
    j += "    \"core:recorder\": " + quoted(m.recorder) + "\n  },\n";
    j += "  \"captures\": [";
    for (size_t i = 0; i < m.captures.size(); ++i) {
        const SigmfCapture& c = m.captures[i];
        j += std::string(i ? "," : "") + "\n    {\"core:sample_start\": " + std::to_string(c.sampleStart) +
             ", \"core:frequency\": " + number(c.frequency) + ", \"core:datetime\": " + quoted(isoUtc(c.nsSinceEpoch)) +
             "}";
    }
    j += "\n  ],\n  \"annotations\": [";
    std::vector<SigmfAnnotation> a = m.annotations;
    std::stable_sort(a.begin(), a.end(),
                     [](const SigmfAnnotation& x, const SigmfAnnotation& y) { return x.sampleStart < y.sampleStart; });
    for (size_t i = 0; i < a.size(); ++i) {
        j += std::string(i ? "," : "") + "\n    {\"core:sample_start\": " + std::to_string(a[i].sampleStart);
        if (a[i].sampleCount) j += ", \"core:sample_count\": " + std::to_string(a[i].sampleCount);
        j += ", \"core:label\": " + quoted(a[i].label);
        if (!a[i].comment.empty()) j += ", \"core:comment\": " + quoted(a[i].comment);
        j += "}";
    }
    j += "\n  ]\n}\n";
    return j;
}

}  // namespace zrtool
