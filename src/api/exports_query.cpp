// Identity and parameter queries: read the device, never the instrument.
#include "device/frame.h"

using namespace zr;

extern "C" {

ZR_EXPORT ZrStatus zrGetDeviceInfo(int device, ZrDeviceType* type, int* serial) {
    return withDevice(device, [&](ZrDevice& dev) -> ZrStatus {
        if (type) *type = dev.deviceType;
        if (serial) *serial = dev.serialNumber;
        return zrNoError;
    });
}

ZR_EXPORT ZrStatus zrGetFirmwareVersion(int device, int* major, int* minor, int* revision) {
    return withDevice(device, [&](ZrDevice& dev) -> ZrStatus {
        if (major) *major = dev.firmwareMajor;
        if (minor) *minor = dev.firmwareMinor;
        if (revision) *revision = dev.firmwareRevision;
        return zrNoError;
    });
}

ZR_EXPORT ZrStatus zrHasIFOutput(int device, ZrBool* present) {
    return withDevice(device, [&](ZrDevice& dev) -> ZrStatus {
        if (!present) return zrNullPtrErr;
        if (!dev.ridge()) {
            *present = zrFalse;
            return zrInvalidDeviceErr;
        }
        *present = dev.hasIFOutput ? zrTrue : zrFalse;
        return zrNoError;
    });
}

ZR_EXPORT ZrStatus zrGetSweepSettings(int device, ZrSweepSettings* settings) {
    return withDevice(device, [&](ZrDevice& dev) -> ZrStatus {
        if (!settings) return zrNullPtrErr;
        if (dev.currentMode != zrModeSweeping) return zrInvalidConfigurationErr;
        *settings = dev.sweep;
        return zrNoError;
    });
}

ZR_EXPORT ZrStatus zrGetSweepParameters(int device, double* actualRBW, double* actualVBW,
                                        double* actualStartFreq, double* binSize, int* sweepSize) {
    return withDevice(device, [&](ZrDevice& dev) -> ZrStatus {
        if (dev.currentMode != zrModeSweeping) return zrInvalidConfigurationErr;
        const ZrSweepSettings& s = dev.sweep;
        if (actualRBW) *actualRBW = s.actualRBW;
        if (actualVBW) *actualVBW = s.actualVBW;
        if (actualStartFreq) *actualStartFreq = s.startFreq;
        if (binSize) *binSize = s.binSize;
        if (sweepSize) *sweepSize = s.sweepLength;
        return zrNoError;
    });
}

ZR_EXPORT ZrStatus zrGetRealTimeSettings(int device, ZrRealTimeSettings* settings) {
    return withDevice(device, [&](ZrDevice& dev) -> ZrStatus {
        if (!settings) return zrNullPtrErr;
        if (dev.currentMode != zrModeRealTime) return zrInvalidConfigurationErr;
        *settings = dev.realTime;
        return zrNoError;
    });
}

ZR_EXPORT ZrStatus zrGetRealTimeParameters(int device, double* actualRBW, int* sweepSize,
                                           double* actualStartFreq, double* binSize,
                                           int* frameWidth, int* frameHeight, double* poi) {
    return withDevice(device, [&](ZrDevice& dev) -> ZrStatus {
        if (dev.currentMode != zrModeRealTime) return zrInvalidConfigurationErr;
        const ZrRealTimeSettings& s = dev.realTime;
        if (actualRBW) *actualRBW = s.actualRBW;
        if (sweepSize) *sweepSize = s.sweepLength;
        if (actualStartFreq) *actualStartFreq = s.startFreq;
        if (binSize) *binSize = s.binSize;
        if (frameWidth) *frameWidth = s.frameWidth;
        if (frameHeight) *frameHeight = s.frameHeight;
        if (poi) *poi = s.poi;
        return zrNoError;
    });
}

ZR_EXPORT ZrStatus zrGetIQSweepListSteps(int device, int* steps) {
    return withDevice(device, [&](ZrDevice& dev) -> ZrStatus {
        if (!steps) return zrNullPtrErr;
        *steps = static_cast<int>(dev.iqSweepList.steps.size());
        return zrNoError;
    });
}

}  // extern "C"
