#pragma once
// Limits and helpers shared by the setters and the plans that read them.
#include <cstdint>

namespace zr {

constexpr int kMaxSweepListSteps = 1200;
constexpr int kMaxSegments = 250;
// Capture memory holds this many samples over all segments.
constexpr uint32_t kMaxSegmentedSamples = 520000000u;
constexpr float kMinIQQueueMs = 5.24288f;
constexpr float kMaxIQQueueMs = 41.94304f;

// Process-wide marker the I/Q engines write where no trigger was found.
extern double iqTriggerSentinel;

// Moves v into [lo, hi]; true when it moved.
bool clampValue(double& v, double lo, double hi);
// Window values: 0 and 2..6 (1 is not a window).
bool validWindow(int window);
bool isPowerOfTwoDecimation(int decimation);
// Adds one term of the capture-memory total; false once it passes the limit.
bool addSegmentSamples(uint32_t& total, uint64_t term);

}  // namespace zr
