#include "device/services.h"

#include <cmath>
#include <cstring>

#include "device/gps_status.h"
#include "platform/clock.h"
#include "transport/status_block.h"

namespace zr {

namespace {

constexpr uint64_t kStatusMaxAgeMs = 1000;
constexpr float kDriftRaise = 4.0f;
constexpr float kDriftClear = 3.0f;

uint16_t u16At(const uint8_t* b, size_t off) {
    uint16_t v;
    std::memcpy(&v, b + off, 2);
    return v;
}
uint32_t u32At(const uint8_t* b, size_t off) {
    uint32_t v;
    std::memcpy(&v, b + off, 4);
    return v;
}

}  // namespace

float sensorCodeToCelsius(uint16_t code) {
    const int magnitude = (code >> 2) & 0x3FF;
    if (code & 0x1000) return -(1024 - magnitude) * 0.25f;
    return magnitude * 0.25f;
}

uint32_t fanThresholdCode(int celsius) {
    return static_cast<uint32_t>(((celsius + 265) * 1024) / 693);
}

StatusImage decodeStatusImage(const StatusImage& before, const uint8_t* b, float configureTemperature,
                              uint64_t nowMs) {
    StatusImage img = before;
    img.lastStatusTick = nowMs;
    if (u32At(b, offsetof(StatusBlock, magic)) != StatusBlock::kMagic) {
        img.statusBlockInvalid = 1;
        return img;
    }
    img.statusBlockInvalid = 0;
    if (u32At(b, offsetof(StatusBlock, firmware)) == 0) return img;

    img.tuneReported = u16At(b, offsetof(StatusBlock, timebaseTune));
    img.gpioInput = b[offsetof(StatusBlock, gpioInput)];
    const uint8_t flags = b[offsetof(StatusBlock, flags)];
    img.adcOverflow = (flags & StatusBlock::kFlagAdcOverload) ? 1 : 0;
    img.fftDataLoss = (flags & StatusBlock::kFlagFftDataLoss) ? 1 : 0;
    img.dataLoss = (flags & StatusBlock::kFlagSampleLoss) ? 1 : 0;
    img.jesdUnsynced = (flags & StatusBlock::kFlagJesdUnsynced) ? 1 : 0;
    img.loReadback = u32At(b, offsetof(StatusBlock, loReadback));
    const int32_t loss = b[offsetof(StatusBlock, lossCounter)];
    if (img.lossCounter == -1) {
        img.lossCounter = loss;
    } else if (img.lossCounter != loss) {
        img.lossCounterChanged = 1;
        img.lossCounter = loss;
    } else {
        img.lossCounterChanged = 0;
    }

    auto& d = img.diagnostics;
    d[0] = u16At(b, 64) * 11.0f / 1000.0f;                    // voltage
    d[1] = u16At(b, 70) * 2.0f / 1000.0f;                     // input current
    d[2] = u16At(b, 68) / 1000.0f;
    d[3] = u16At(b, 66) * 5.0f / 1000.0f;
    d[4] = static_cast<float>(u16At(b, 40) * 0.6767578125 - 265.0);  // FPGA
    d[5] = sensorCodeToCelsius(u16At(b, 84));
    d[6] = sensorCodeToCelsius(u16At(b, 86));
    d[7] = sensorCodeToCelsius(u16At(b, 82));
    d[8] = sensorCodeToCelsius(u16At(b, 80));                 // calibration temperature
    d[9] = sensorCodeToCelsius(u16At(b, 76));

    const uint16_t sfpTemp = u16At(b, 128);
    if (sfpTemp == 0xFFFF) {
        img.sfpDiagnostics = {0.0f, 0.0f, 0.0f, 0.0f};
    } else {
        img.sfpDiagnostics = {sfpTemp / 256.0f, u16At(b, 130) / 10000.0f, u16At(b, 132) / 10000.0f,
                              u16At(b, 134) / 10000.0f};
    }

    // Hysteresis: a warning raised past 4 degC needs the temperature back
    // within 3 degC of the configured point to clear.
    const float drift = std::fabs(configureTemperature - d[8]);
    if (img.tempDrift) {
        if (drift < kDriftClear) img.tempDrift = 0;
    } else if (drift > kDriftRaise) {
        img.tempDrift = 1;
    }
    return img;
}

StatusImage decodeStatus(ZrDevice& dev, const uint8_t* b, bool gpsFlag, bool skipGPS) {
    // Only the thread that owns the command slot decodes, so the image is
    // read and republished without another decode in between.
    const StatusImage img = decodeStatusImage(dev.status.load(), b, dev.configureTemperature, monotonicMs());
    dev.status.store(img);
    if (img.statusBlockInvalid || u32At(b, offsetof(StatusBlock, firmware)) == 0) return img;

    int major, minor, revision;
    if (dev.networked()) {
        // Networked instruments report one version word for major and minor.
        major = minor = u16At(b, 6);
        revision = u16At(b, 4);
    } else {
        major = u16At(b, offsetof(StatusBlock, firmwareMajor));
        minor = u16At(b, offsetof(StatusBlock, firmwareMinor));
        revision = static_cast<int32_t>(u32At(b, offsetof(StatusBlock, firmware)));
    }
    // Written when they change (the first block at open), so the gates that
    // read them from the caller's thread never race an engine's decode.
    if (dev.firmwareMajor != major) dev.firmwareMajor = major;
    if (dev.firmwareMinor != minor) dev.firmwareMinor = minor;
    if (dev.firmwareRevision != revision) dev.firmwareRevision = revision;

    decodeStatusGps(dev, b, img.tuneReported, gpsFlag, skipGPS, dev.corrections.GetTimebaseOffset());
    return img;
}

bool sweepInProgress(const ZrDevice& dev) { return dev.engine && dev.engine->busy(); }

bool idleGate(const ZrDevice& dev) { return dev.currentMode == zrModeIdle; }

bool quietGate(const ZrDevice& dev) {
    return (dev.currentMode == zrModeIdle || dev.currentMode == zrModeSweeping) && !sweepInProgress(dev);
}

void refreshStatus(ZrDevice& dev) {
    alignas(8) uint8_t block[StatusBlock::kSize] = {};
    if (dev.transport) ReadStatusBlock(*dev.transport, block);
    decodeStatus(dev, block, false, false);
}

void applyRefreshRule(ZrDevice& dev) {
    if (!quietGate(dev)) return;
    if (monotonicMs() - dev.status.load().lastStatusTick > kStatusMaxAgeMs) refreshStatus(dev);
}

float readTemperature(ZrDevice& dev) {
    applyRefreshRule(dev);
    return dev.status.load().diagnostics[8];
}

uint32_t timebaseWord(const ZrDevice& dev) {
    uint32_t w = 0x4;
    if (dev.referenceSource == 1) w |= 0x1;
    if (dev.externalReference == 1) w |= 0x2;
    if (dev.gpsTimebaseUpdate == 1) w |= 0x8;
    w |= static_cast<uint32_t>(dev.timebaseTuned) << 16;
    return w;
}

}  // namespace zr
