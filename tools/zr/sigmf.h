// SigMF metadata for a recorded stream: the global fields, one capture
// segment per stretch of contiguous samples (with the UTC of its first
// sample), and annotations for triggers and sample-loss events.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace zrtool {

struct SigmfCapture {
    uint64_t sampleStart = 0;
    double frequency = 0.0;       // Hz
    int64_t nsSinceEpoch = 0;     // UTC of the segment's first sample
};

struct SigmfAnnotation {
    uint64_t sampleStart = 0;
    uint64_t sampleCount = 0;     // 0: the field is left out
    std::string label;
    std::string comment;
};

struct SigmfMeta {
    std::string datatype;         // "cf32_le" or "ci16_le"
    double sampleRate = 0.0;
    std::string hardware;
    std::string recorder;
    std::string description;
    std::optional<double> scale;  // ci16: x / 32768 * scale is in mW^0.5
    std::vector<SigmfCapture> captures;
    std::vector<SigmfAnnotation> annotations;  // in any order; written sorted
};

// The metadata file's text.
std::string sigmfJson(const SigmfMeta& meta);

}  // namespace zrtool
