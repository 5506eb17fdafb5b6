// The GPS exports: the timebase update switch, the fix and state inquiries,
// holdover from the timebase cache, and messages to the receiver.
#include "device/frame.h"
#include "device/services.h"
#include "device/gps_services.h"
#include "device/gps_status.h"
#include "gps/timebase_file.h"
#include "platform/data_folder.h"
#include "transport/command_list.h"
#include "zr_correction_def.h"

using namespace zr;

namespace {

ZrStatus transportStatus(const ZrDevice& dev) { return static_cast<ZrStatus>(dev.transport->status); }

// Newest date of the timebase history in the calibration in force.
uint64_t timebaseHistoryDate(const ZrDevice& dev) {
    const CorrectionSet& c = dev.corrections;
    if (c.isRidge && c.ridge) return lastTimebaseHistoryDate(c.ridge->timebaseValue, c.ridge->timebaseDate);
    if (!c.isRidge && c.mesa) return lastTimebaseHistoryDate(c.mesa->timebaseValue, c.mesa->timebaseDate);
    return 0;
}

}  // namespace

extern "C" {

ZR_EXPORT ZrStatus zrSetGPSTimebaseUpdate(int device, ZrBool enabled) {
    return withDevice(device, [&](ZrDevice& dev) -> ZrStatus {
        if (!enumInRange(enabled, zrTrue)) return zrInvalidParameterErr;
        if (!idleGate(dev)) return zrInvalidConfigurationErr;
        if (dev.gpsTimebaseUpdate == static_cast<uint32_t>(enabled)) return zrNoError;
        dev.gpsTimebaseUpdate = static_cast<uint32_t>(enabled);
        sendTimebaseWordAsIs(dev);
        return transportStatus(dev);
    });
}

ZR_EXPORT ZrStatus zrGetGPSTimebaseUpdate(int device, ZrBool* enabled) {
    return withDevice(device, [&](ZrDevice& dev) -> ZrStatus {
        if (!enabled) return zrNullPtrErr;
        *enabled = dev.gpsTimebaseUpdate == 1 ? zrTrue : zrFalse;
        return zrNoError;
    });
}

ZR_EXPORT ZrStatus zrGetGPSHoldoverInfo(int device, ZrBool* usingHoldover, uint64_t* lastHoldoverTime) {
    return withDevice(device, [&](ZrDevice& dev) -> ZrStatus {
        const uint64_t historyDate = usingHoldover ? timebaseHistoryDate(dev) : 0;
        gpsHoldoverInfo(dev, historyDate, usingHoldover ? calFilesFolder() : std::string(), usingHoldover,
                        lastHoldoverTime);
        return zrNoError;
    });
}

ZR_EXPORT ZrStatus zrGetGPSState(int device, int* state) {
    return withDevice(device, [&](ZrDevice& dev) -> ZrStatus {
        if (!state) return zrNullPtrErr;
        ZrStatus result = zrNoError;
        // GPS only moves when a status block arrives; in idle nothing else
        // brings one.
        if (dev.currentMode == zrModeIdle) {
            refreshStatus(dev);
            result = transportStatus(dev);
        }
        *state = gpsStateCode(dev);
        return result;
    });
}

ZR_EXPORT ZrStatus zrGetGPSInfo(int device, ZrBool refresh, ZrBool* updated, int64_t* secSinceEpoch,
                                double* latitude, double* longitude, double* altitude, char* nmea,
                                int* nmeaLen) {
    return withDevice(device, [&](ZrDevice& dev) -> ZrStatus {
        if (!enumInRange(refresh, zrTrue)) return zrInvalidParameterErr;
        // Slot 0 belongs to the data threads in the streaming modes.
        if (refresh == zrTrue && dev.currentMode < zrModeRealTime && !sweepInProgress(dev)) refreshStatus(dev);
        return deliverGpsInfo(dev, updated, secSinceEpoch, latitude, longitude, altitude, nmea, nmeaLen);
    });
}

ZR_EXPORT ZrStatus zrWriteToGPS(int device, const uint8_t* data, int length) {
    return withDevice(device, [&](ZrDevice& dev) -> ZrStatus {
        if (!data) return zrNullPtrErr;
        // The receiver's message carries its word count in one byte.
        if (length <= 0 || length > kMaxGpsMessageBytes) return zrInvalidParameterErr;
        if (!idleGate(dev) || !dev.allowsWriteToGPS()) return zrInvalidConfigurationErr;
        CommandList list;
        AppendGPSMessage(list, data, length);
        SendCommandList(*dev.transport, list);
        return transportStatus(dev);
    });
}

}  // extern "C"
