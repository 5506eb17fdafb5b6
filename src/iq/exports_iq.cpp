// zrGetIQ and the stream's queries: each reads the engine of the current
// mode, never the settings, which may have changed since it started.
#include "device/frame.h"
#include "iq/iq_interface.h"

using namespace zr;

namespace {

IQInterface* streamOf(ZrDevice& dev) {
    return dev.currentMode == zrModeIQStreaming && dev.engine ? dev.engine->iq() : nullptr;
}

bool segmentedRunning(const ZrDevice& dev) { return dev.currentMode == zrModeIQSegmentedCapture && dev.engine; }

}  // namespace

extern "C" {

ZR_EXPORT ZrStatus zrGetIQ(int device, void* iqBuf, int iqBufSize, double* triggers, int triggerBufSize,
                           int64_t* nsSinceEpoch, ZrBool purge, int* sampleLoss, int* samplesRemaining) {
    return withDevice(device, [&](ZrDevice& dev) -> ZrStatus {
        if (!iqBuf) return zrNullPtrErr;
        if (iqBufSize < 1) return zrInvalidParameterErr;
        IQInterface* iq = streamOf(dev);
        if (!iq) return zrInvalidConfigurationErr;
        if (triggerBufSize < 0) return zrInvalidParameterErr;
        if (!triggers && triggerBufSize > 0) return zrNullPtrErr;
        IQRequest r;
        r.iqBuf = iqBuf;
        r.iqBufSize = iqBufSize;
        r.triggers = triggers;
        r.triggerBufSize = triggerBufSize;
        r.purge = purge;
        const ZrStatus s = iq->GetIQ(r);
        if (s < zrNoError) return s;
        if (nsSinceEpoch) *nsSinceEpoch = r.nsSinceEpoch;
        if (sampleLoss) *sampleLoss = r.sampleLoss;
        if (samplesRemaining) *samplesRemaining = r.samplesRemaining;
        return s;
    });
}

ZR_EXPORT ZrStatus zrGetIQParameters(int device, double* sampleRate, double* bandwidth) {
    return withDevice(device, [&](ZrDevice& dev) -> ZrStatus {
        if (IQInterface* iq = streamOf(dev)) {
            if (sampleRate) *sampleRate = iq->plan().sampleRate;
            if (bandwidth) *bandwidth = iq->plan().bandwidth;
            return zrNoError;
        }
        if (segmentedRunning(dev)) {
            // Segmented capture always runs at the full ADC rate and bandwidth.
            if (sampleRate) *sampleRate = 2.5e8;
            if (bandwidth) *bandwidth = 1.6e8;
            return zrNoError;
        }
        return zrInvalidConfigurationErr;
    });
}

ZR_EXPORT ZrStatus zrGetIQCorrection(int device, float* scale) {
    return withDevice(device, [&](ZrDevice& dev) -> ZrStatus {
        if (!scale) return zrNullPtrErr;
        if (IQInterface* iq = streamOf(dev)) {
            *scale = iq->GetCorrection();
            return zrNoError;
        }
        return zrInvalidConfigurationErr;
    });
}

ZR_EXPORT ZrStatus zrGetIQCenterFreq(int device, double* center) {
    return withDevice(device, [&](ZrDevice& dev) -> ZrStatus {
        if (!center) return zrNullPtrErr;
        if (IQInterface* iq = streamOf(dev)) {
            *center = iq->plan().center;
            return zrNoError;
        }
        if (segmentedRunning(dev)) {
            *center = dev.segmented.center;
            return zrNoError;
        }
        return zrInvalidConfigurationErr;
    });
}

}  // extern "C"
