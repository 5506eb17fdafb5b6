// zrGetAudio: blocks of the running demodulator.
#include "audio/engine_audio.h"
#include "device/frame.h"

using namespace zr;

extern "C" {

ZR_EXPORT ZrStatus zrGetAudio(int device, float* audio) {
    return withDevice(device, [&](ZrDevice& dev) -> ZrStatus {
        if (!audio) return zrNullPtrErr;
        auto* engine = dev.currentMode == zrModeAudio ? dynamic_cast<EngineAudio*>(dev.engine.get()) : nullptr;
        if (!engine) return zrInvalidConfigurationErr;
        return engine->GetAudio(audio);
    });
}

}  // extern "C"
