// zrConfigure: the one place where stored settings become instrument state.
// Everything before the dispatch brings the device to the same known point
// whatever ran before, so each plan starts from idle, awake, at the current
// temperature.
#include "api/frame.h"
#include "api/modes.h"
#include "api/services.h"
#include "sweep/sweep_mode.h"

namespace zr {

void stopEngines(ZrDevice& dev) {
    // A sweep in flight completes before its engine goes; the other modes'
    // engines stop their own threads and send their own stop words.
    drainSweeps(dev);
    deleteSweepEngines(dev);
}

namespace {

ZrStatus dispatch(ZrDevice& dev, ZrMode mode) {
    switch (mode) {
        case zrModeSweeping:
            return configureSweeping(dev);
        case zrModeIQSegmentedCapture:
            if (!dev.captureMemory()) return zrInvalidConfigurationErr;
            // The segmented capture engine is not built yet.
            return zrInvalidConfigurationErr;
        case zrModeRealTime:
        case zrModeIQStreaming:
        case zrModeAudio:
        case zrModeIQSweepList:
            // Plans not built yet: the device stays idle.
            return zrInvalidConfigurationErr;
        case zrModeIdle:
        default:
            return zrInvalidConfigurationErr;
    }
}

ZrStatus configure(ZrDevice& dev, ZrMode mode) {
    stopEngines(dev);
    dev.currentMode = zrModeIdle;
    DeviceInterface* t = dev.transport.get();
    if (dev.powerState != zrPowerStateOn) {
        if (t) SendCommandList(*t, dev.wakeList);
        dev.powerState = zrPowerStateOn;
    }

    const float temperature = readTemperature(dev);
    dev.corrections.SetTemperature(temperature);
    dev.configureTemperature = temperature;
    dev.tempDrift = 0;

    dev.gpsPulses.readIndex = -1;
    dev.gpsPulses.count = 0;
    dev.gpsPulses.origin = 0;

    if (dev.ridge() && dev.corrections.ridge)
        rf::refreshRidgeForConfigure(dev.rf.ridge, dev.rfOverrides, temperature, *dev.corrections.ridge,
                                     dev.corrections.GetLOGateBias());

    // With GPS steering the timebase, the discipline owns the word.
    if (!(dev.gps.locked && dev.gpsTimebaseUpdate) && t) {
        CommandList list;
        list.AppendRegister(reg::kTimebase, timebaseWord(dev));
        list.AppendWord(cmd::kPad);
        SendCommandList(*t, list);
    }

    const ZrStatus status = dispatch(dev, mode);
    if (status >= zrNoError) dev.currentMode = mode;
    return status;
}

}  // namespace
}  // namespace zr

using namespace zr;

extern "C" {

ZR_EXPORT ZrStatus zrConfigure(int device, ZrMode mode) {
    return withDevice(device, [&](ZrDevice& d) {
        if (!enumInRange(mode, zrModeIQSweepList)) return zrInvalidParameterErr;
        try {
            return configure(d, mode);
        } catch (const std::bad_alloc&) {
            stopEngines(d);
            d.currentMode = zrModeIdle;
            return zrAllocationErr;
        }
    });
}

ZR_EXPORT ZrStatus zrAbort(int device) {
    return withDevice(device, [&](ZrDevice& d) {
        stopEngines(d);
        d.currentMode = zrModeIdle;
        return zrNoError;
    });
}

ZR_EXPORT ZrStatus zrGetCurrentMode(int device, ZrMode* mode) {
    return withDevice(device, [&](ZrDevice& d) {
        if (!mode) return zrNullPtrErr;
        *mode = d.currentMode;
        return zrNoError;
    });
}

}  // extern "C"
