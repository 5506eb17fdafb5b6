// GPS exports that are complete without the status refresh of the device
// services: the timebase update switch and messages to the receiver.
#include "api/frame.h"
#include "gps/gps_status.h"
#include "transport/command_list.h"

using namespace zr;

extern "C" {

ZR_EXPORT ZrStatus zrSetGPSTimebaseUpdate(int device, ZrBool enabled) {
    ZrDevice* dev = lookupDevice(device);
    if (!dev) return zrInvalidDeviceErr;
    if (!enumInRange(enabled, zrTrue)) return zrInvalidParameterErr;
    if (dev->currentMode != zrModeIdle) return zrInvalidConfigurationErr;
    if (dev->gpsTimebaseUpdate == static_cast<uint32_t>(enabled)) return zrNoError;
    dev->gpsTimebaseUpdate = static_cast<uint32_t>(enabled);
    sendTimebaseReferenceWord(*dev);
    return static_cast<ZrStatus>(dev->transport->status);
}

ZR_EXPORT ZrStatus zrGetGPSTimebaseUpdate(int device, ZrBool* enabled) {
    ZrDevice* dev = lookupDevice(device);
    if (!dev) return zrInvalidDeviceErr;
    if (!enabled) return zrNullPtrErr;
    *enabled = dev->gpsTimebaseUpdate == 1 ? zrTrue : zrFalse;
    return zrNoError;
}

ZR_EXPORT ZrStatus zrWriteToGPS(int device, const uint8_t* data, int length) {
    ZrDevice* dev = lookupDevice(device);
    if (!dev) return zrInvalidDeviceErr;
    if (!data) return zrNullPtrErr;
    // The receiver's message carries its word count in one byte.
    if (length <= 0 || length > kMaxGpsMessageBytes) return zrInvalidParameterErr;
    if (dev->currentMode != zrModeIdle || !dev->allowsWriteToGPS()) return zrInvalidConfigurationErr;
    CommandList list;
    AppendGPSMessage(list, data, length);
    SendCommandList(*dev->transport, list);
    return static_cast<ZrStatus>(dev->transport->status);
}

}  // extern "C"
