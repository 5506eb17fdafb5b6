#include "audio/audio_mode.h"

#include <memory>

#include "audio/engine_audio.h"
#include "device/device.h"
#include "device/modes.h"
#include "iq/engine_iq_usb.h"

namespace zr {

namespace {
constexpr int32_t kUsbDecimation = 16;  // 50 MS/s to 3.125 MS/s
constexpr double kStreamBandwidth = 2e6;
}  // namespace

ZrStatus configureAudio(ZrDevice& dev) {
    // The networked stream is not built yet.
    if (dev.networked()) return zrInvalidConfigurationErr;
    // These stay in the I/Q settings after the mode ends.
    dev.iq.center = dev.audio.center + (dev.audio.type == zrAudioCW ? AudioChain::kCwOffsetHz : 0.0);
    dev.iq.decimation = kUsbDecimation;
    dev.iq.bandwidth = kStreamBandwidth;
    // The filters are designed for 3.125 MS/s of float samples, whatever
    // the I/Q settings ask of a plain stream.
    IQSettings settings = dev.iq;
    settings.baseRate = zrIQBaseRate50M;
    settings.dataType = zrDataType32fc;

    IQPlan plan;
    CommandList setup, request;
    const ZrStatus status = buildUsbIQPlan(dev, settings, plan, setup, request);
    if (status < zrNoError) return status;
    dev.iq.sampleRate = settings.sampleRate;
    sendPendingRidgeWake(dev);
    auto stream = std::make_unique<EngineIQStreamingUSB>(dev, settings, plan, setup, request);
    if (status != zrNoError) {
        // A stream whose span the preselector limits carries no audio.
        dev.engine = std::move(stream);
        return status;
    }
    dev.engine = std::make_unique<EngineAudio>(*stream, dev.audio);
    dev.iqSource = std::move(stream);
    return status;
}

}  // namespace zr
