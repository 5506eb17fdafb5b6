#pragma once
// The stream source behind zrGetIQ, which the audio engine reads too. The
// streaming engines derive from it; each holds its copy of the I/Q settings
// and plan for its whole life, so later setters reach a stream only through
// a new zrConfigure.
#include <cstdint>

#include "device/device.h"
#include "device/mode_engine.h"
#include "iq/iq_plan.h"

namespace zr {

// One zrGetIQ call.
struct IQRequest {
    void* iqBuf = nullptr;          // samples of the stream's data type
    int iqBufSize = 0;              // samples wanted, at least 1
    double* triggers = nullptr;     // trigger positions, in samples of iqBuf
    int triggerBufSize = 0;         // entries of triggers; 0 without a list
    int64_t nsSinceEpoch = 0;       // out: time of iqBuf's first sample
    ZrBool purge = zrFalse;         // exactly zrTrue: drop what is held first
    int sampleLoss = 0;             // out: 1 when samples were lost since the last call
    int samplesRemaining = 0;       // out: held after this call
};

class IQInterface : public ModeEngine {
public:
    IQInterface(const IQSettings& settings, const IQPlan& plan) : settings_(settings), plan_(plan) {}

    ZrMode mode() const override { return zrModeIQStreaming; }
    IQInterface* iq() override { return this; }

    virtual ZrStatus GetIQ(IQRequest& request) = 0;
    // The scale of zrGetIQCorrection: sqrt(10^(gainDb/10)).
    virtual float GetCorrection() const { return plan_.scale(); }

    const IQSettings& settings() const { return settings_; }
    const IQPlan& plan() const { return plan_; }

protected:
    const IQSettings settings_;
    const IQPlan plan_;
};

}  // namespace zr
