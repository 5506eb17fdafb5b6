// Instrument discovery and the reset of an instrument nobody has open.
#include "device/frame.h"
#include "transport/device_interface_usb.h"
#include "transport/wait.h"

using namespace zr;

extern "C" {

ZR_EXPORT ZrStatus zrGetDeviceList2(int* serials, ZrDeviceType* types, int* count) {
    return guarded([&] {
        if (!count) return zrNullPtrErr;
        const std::vector<UsbListEntry> list = ListUSB();
        const int n = static_cast<int>(std::min<size_t>(list.size(), kMaxDevices));
        for (int i = 0; i < n; ++i) {
            if (serials) serials[i] = list[i].serial;
            if (types) types[i] = list[i].type;
        }
        *count = n;
        return zrNoError;
    });
}

ZR_EXPORT ZrStatus zrGetDeviceList(int* serials, int* count) { return zrGetDeviceList2(serials, nullptr, count); }

ZR_EXPORT ZrStatus zrPresetSerial(int serial) {
    return guarded([&] {
        auto info = FindUSBBySerial(serial);
        if (info) ResetUSB(*info);
        // The instrument needs the same time to come back whether or not it
        // was there; callers rely on the wait either way.
        protocolSleepMs(3000.0);
        return info ? zrNoError : zrDeviceNotFoundErr;
    });
}

}  // extern "C"
