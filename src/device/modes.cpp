// zrConfigure's device side: the one place where stored settings become
// instrument state. Everything before the planner brings the device to the
// same known point whatever ran before, so each plan starts from idle,
// awake, at the current temperature.
#include "device/modes.h"

#include <exception>

#include "device/services.h"
#include "rf/rf_glue.h"

namespace zr {

void stopEngines(ZrDevice& dev) {
    if (dev.engine) dev.engine->drain();
    dev.engine.reset();
    if (dev.iqSource) dev.iqSource->drain();
    dev.iqSource.reset();
}

namespace {

// A plan that throws leaves no half-built mode behind.
struct IdleOnUnwind {
    ZrDevice& dev;
    int pending = std::uncaught_exceptions();
    ~IdleOnUnwind() {
        if (std::uncaught_exceptions() > pending) {
            stopEngines(dev);
            dev.currentMode = zrModeIdle;
        }
    }
};

}  // namespace

ZrStatus configureMode(ZrDevice& dev, ZrMode mode, const PlannerTable& planners) {
    IdleOnUnwind guard{dev};
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
    dev.status.update([](StatusImage& s) { s.tempDrift = 0; });

    dev.gpsPulses.readIndex = -1;
    dev.gpsPulses.count = 0;
    dev.gpsPulses.origin = 0;

    if (dev.ridge() && dev.corrections.ridge)
        rf::refreshRidgeForConfigure(dev.rf.ridge, dev.rfOverrides, temperature, *dev.corrections.ridge,
                                     dev.corrections.GetLOGateBias());

    // With GPS steering the timebase, the discipline owns the word;
    // otherwise the oscillator is trimmed for the temperature just read.
    if (!(dev.gps.locked && dev.gpsTimebaseUpdate) && t) {
        dev.timebaseTuned = static_cast<uint16_t>(dev.coarseTune + dev.corrections.GetTimebaseOffset());
        CommandList list;
        list.AppendRegister(reg::kTimebase, timebaseWord(dev));
        list.AppendWord(cmd::kPad);
        SendCommandList(*t, list);
    }

    const ModePlanner plan = static_cast<size_t>(mode) < planners.size() ? planners[size_t(mode)] : nullptr;
    if (!plan) return zrInvalidConfigurationErr;
    const ZrStatus status = plan(dev);
    if (status >= zrNoError) dev.currentMode = mode;
    else stopEngines(dev);
    return status;
}

void sendPendingRidgeWake(ZrDevice& dev) {
    if (!dev.ridge()) return;
    CommandList wake;
    if (rf::appendRidgeWakeIfPending(wake, dev.rf.ridge) && dev.transport) SendCommandList(*dev.transport, wake);
}

}  // namespace zr
