#include "iq/iq_mode.h"

#include "device/device.h"
#include "device/modes.h"
#include "iq/engine_iq_usb.h"

namespace zr {

ZrStatus configureIQStreaming(ZrDevice& dev) {
    if (dev.networked()) return zrInvalidConfigurationErr;
    IQPlan plan;
    CommandList setup, request;
    const ZrStatus status = buildUsbIQPlan(dev, dev.iq, plan, setup, request);
    if (status < zrNoError) return status;
    sendPendingRidgeWake(dev);
    dev.engine = std::make_unique<EngineIQStreamingUSB>(dev, dev.iq, plan, setup, request);
    return status;
}

}  // namespace zr
