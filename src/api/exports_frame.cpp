// Exports that need no instrument: version, texts, reserved entry points.
#include <cstddef>

#include "device/frame.h"

using namespace zr;

static_assert(sizeof(ZrStatus) == 4 && sizeof(ZrInitStatus) == 4 && sizeof(ZrBool) == 4);
static_assert(sizeof(ZrSweepSettings) == 15 * 8);
static_assert(offsetof(ZrSweepSettings, speed) == 0 * 8);
static_assert(offsetof(ZrSweepSettings, center) == 1 * 8);
static_assert(offsetof(ZrSweepSettings, span) == 2 * 8);
static_assert(offsetof(ZrSweepSettings, rbw) == 3 * 8);
static_assert(offsetof(ZrSweepSettings, vbw) == 4 * 8);
static_assert(offsetof(ZrSweepSettings, detector) == 5 * 8);
static_assert(offsetof(ZrSweepSettings, scale) == 5 * 8 + 4);
static_assert(offsetof(ZrSweepSettings, videoUnits) == 6 * 8);
static_assert(offsetof(ZrSweepSettings, spurReject) == 6 * 8 + 4);
static_assert(offsetof(ZrSweepSettings, window) == 7 * 8);
static_assert(offsetof(ZrSweepSettings, sweepTime) == 8 * 8);
static_assert(offsetof(ZrSweepSettings, actualRBW) == 9 * 8);
static_assert(offsetof(ZrSweepSettings, actualVBW) == 10 * 8);
static_assert(offsetof(ZrSweepSettings, sweepLength) == 11 * 8);
static_assert(offsetof(ZrSweepSettings, startFreq) == 12 * 8);
static_assert(offsetof(ZrSweepSettings, binSize) == 13 * 8);
static_assert(offsetof(ZrSweepSettings, windowBandwidth) == 14 * 8);

static_assert(sizeof(ZrRealTimeSettings) == 15 * 8);
static_assert(offsetof(ZrRealTimeSettings, center) == 0 * 8);
static_assert(offsetof(ZrRealTimeSettings, span) == 1 * 8);
static_assert(offsetof(ZrRealTimeSettings, rbw) == 2 * 8);
static_assert(offsetof(ZrRealTimeSettings, detector) == 3 * 8);
static_assert(offsetof(ZrRealTimeSettings, scale) == 3 * 8 + 4);
static_assert(offsetof(ZrRealTimeSettings, refLevel) == 4 * 8);
static_assert(offsetof(ZrRealTimeSettings, dynamicRange) == 5 * 8);
static_assert(offsetof(ZrRealTimeSettings, window) == 6 * 8);
static_assert(offsetof(ZrRealTimeSettings, actualRBW) == 7 * 8);
static_assert(offsetof(ZrRealTimeSettings, sweepLength) == 8 * 8);
static_assert(offsetof(ZrRealTimeSettings, startFreq) == 9 * 8);
static_assert(offsetof(ZrRealTimeSettings, binSize) == 10 * 8);
static_assert(offsetof(ZrRealTimeSettings, frameWidth) == 11 * 8);
static_assert(offsetof(ZrRealTimeSettings, frameHeight) == 11 * 8 + 4);
static_assert(offsetof(ZrRealTimeSettings, reserved2) == 12 * 8);
static_assert(offsetof(ZrRealTimeSettings, windowBandwidth) == 13 * 8);
static_assert(offsetof(ZrRealTimeSettings, poi) == 14 * 8);

namespace {

struct StatusText {
    int value;
    const char* text;
};

constexpr StatusText kStatusTexts[] = {
    {zrCalErr, "Cal error"},
    {zrMeasErr, "Meas error"},
    {zrFlashVerifyErr, "Flash verify failed"},
    {zrInvalidCalFileVersionErr, "Invalid calibration file version"},
    {zrInvalidCenterFreqErr, "Invalid center frequency specified"},
    {zrInvalidIQDecimationErr, "Invalid IQ decimation specified"},
    {zrJESDErr, "JESD error"},
    {zrNetworkErr, "Network error"},
    {zrFX3LoadErr, "Failed to load core FX3 program"},
    {zrMaxDevicesErr, "Max devices connected"},
    {zrFPGABootErr, "Failed to boot FPGA"},
    {zrBootErr, "Device unable to boot"},
    {zrGPSNotLockedErr, "GPS not locked"},
    {zrInvalidAPIVersionErr, "Invalid API version"},
    {zrAllocationErr, "Allocation error, failed to allocate memory"},
    {zrSyncErr, "Data synchronization error"},
    {zrInvalidSweepPositionErr, "Invalid sweep queue position specified"},
    {zrInvalidConfigurationErr, "Invalid configuration error"},
    {zrConnectionLostErr, "Device connection lost"},
    {zrInvalidParameterErr, "Invalid parameter specified"},
    {zrNullPtrErr, "Required pointer parameter was null"},
    {zrInvalidDeviceErr, "Invalid device specified"},
    {zrDeviceNotFoundErr, "Device not found"},
    {zrNoError, "No error"},
    {zrSettingClamped, "Setting clamped"},
    {zrADCOverflow, "ADC overflow, Input out of range"},
    {zrUncalData, "Uncal data, potential USB data loss"},
    {zrTempDriftWarning, "Temperature drift warning, device uncal"},
    {zrSpanLimitedByPreselector, "Span limited by preselector"},
    {zrTempHighWarning, "High temperature detected, set low power state"},
    {zrCPULimited, "Exceeded CPU resources"},
    {zrUpdateAPI, "API is out of date"},
    {zrInvalidCalData, "Invalid cal data, potentially corrupted"},
};

constexpr const char* kInitTexts[] = {
    "No error", "Device already open", "Device not found", "Invalid device specified",
    "Null ptr", "Device not connected", "Transfer error", "File IO error",
};

ZrStatus handleOnly(int device) { return lookupDevice(device) ? zrNoError : zrInvalidDeviceErr; }

}  // namespace

extern "C" {

ZR_EXPORT const char* zrGetAPIVersion(void) { return "2.2.0"; }

ZR_EXPORT const char* zrGetProductID(void) { return ""; }

ZR_EXPORT const char* zrGetErrorString(int status) {
    for (const auto& s : kStatusTexts)
        if (s.value == status) return s.text;
    return "Unknown Error\n";
}

ZR_EXPORT const char* zrConfigUSBGetErrorString(ZrInitStatus status) {
    unsigned v = static_cast<unsigned>(status);
    if (v < sizeof(kInitTexts) / sizeof(kInitTexts[0])) return kInitTexts[v];
    return "Unknown Error";
}

ZR_EXPORT ZrStatus zrSetCustomFreq(int device, ...) { return handleOnly(device); }
ZR_EXPORT ZrStatus zrSetCustomRegister(int device, ...) { return handleOnly(device); }
ZR_EXPORT ZrStatus zrGetFPGABuildInfo(int device, ...) { return handleOnly(device); }
ZR_EXPORT ZrStatus zrIsSecondaryBuildPresent(int device, ...) { return handleOnly(device); }
ZR_EXPORT ZrStatus zrReplaceSecondaryBuild(int device, ...) { return handleOnly(device); }
ZR_EXPORT ZrStatus zrSwitchFPGABuild(int, ...) { return zrNoError; }

ZR_EXPORT ZrStatus zrStartCustomData(int device, int count, void* buffer) {
    return withDevice(device, [&](ZrDevice& dev) -> ZrStatus {
        if (!buffer) return zrNullPtrErr;
        if (count < 1 || count > 127) return zrInvalidParameterErr;
        // No mode creates a custom-data engine, so the engine is always absent.
        return zrInvalidConfigurationErr;
    });
}

ZR_EXPORT ZrStatus zrFinishCustomData(int device) {
    return withDevice(device, [&](ZrDevice& dev) -> ZrStatus {
        return zrInvalidConfigurationErr;
    });
}

}  // extern "C"
