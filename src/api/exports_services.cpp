// Services outside the measurement modes: power, levels, ports, reference,
// diagnostics, fan. Hardware setters store first and send after, so a failed
// send leaves the new value stored; they answer the transport's status word.
#include <algorithm>
#include <cstring>

#include "device/frame.h"
#include "device/services.h"

using namespace zr;

namespace {

ZrStatus transportStatus(const ZrDevice& d) {
    return d.transport ? static_cast<ZrStatus>(d.transport->status) : zrConnectionLostErr;
}

ZrStatus sendList(ZrDevice& d, const CommandList& list) {
    if (d.transport) SendCommandList(*d.transport, list);
    return transportStatus(d);
}

ZrStatus sendRegister(ZrDevice& d, uint32_t address, uint32_t value) {
    CommandList list;
    list.AppendRegister(address, value);
    list.AppendWord(cmd::kPad);
    return sendList(d, list);
}

// The reference selectors live in the timebase word; a change resends it
// with the tune as it stands.
ZrStatus setTimebaseSelector(ZrDevice& d, uint32_t& field, int value) {
    if (!enumInRange(value, 1)) return zrInvalidParameterErr;
    if (!idleGate(d)) return zrInvalidConfigurationErr;
    if (static_cast<uint32_t>(value) == field) return zrNoError;
    field = static_cast<uint32_t>(value);
    return sendRegister(d, reg::kTimebase, timebaseWord(d));
}

constexpr int kMaxGpioEntries = 64;
constexpr int32_t kMaxSwitchDuration = 0x3FFFFE;

}  // namespace

extern "C" {

ZR_EXPORT ZrStatus zrSetPowerState(int device, ZrPowerState state) {
    return withDevice(device, [&](ZrDevice& d) {
        if (!enumInRange(state, zrPowerStateStandby)) return zrInvalidParameterErr;
        if (state == d.powerState) return zrNoError;
        if (!quietGate(d)) return zrInvalidConfigurationErr;
        d.powerState = state;
        return sendList(d, state == zrPowerStateOn ? d.wakeList : d.standbyList);
    });
}

ZR_EXPORT ZrStatus zrGetPowerState(int device, ZrPowerState* state) {
    return withDevice(device, [&](ZrDevice& d) {
        if (!state) return zrNullPtrErr;
        *state = d.powerState;
        return zrNoError;
    });
}

ZR_EXPORT ZrStatus zrSetAttenuator(int device, int atten) {
    return withDevice(device, [&](ZrDevice& d) {
        d.attenuator = atten < 0 ? -1 : std::min(atten, 6);
        return zrNoError;
    });
}

ZR_EXPORT ZrStatus zrGetAttenuator(int device, int* atten) {
    return withDevice(device, [&](ZrDevice& d) {
        if (atten) *atten = d.attenuator;
        return zrNoError;
    });
}

ZR_EXPORT ZrStatus zrSetRefLevel(int device, double dBm) {
    return withDevice(device, [&](ZrDevice& d) {
        if (!isFiniteArg(dBm)) return zrInvalidParameterErr;
        d.refLevel = std::min(dBm, 20.0);
        return zrNoError;
    });
}

ZR_EXPORT ZrStatus zrGetRefLevel(int device, double* dBm) {
    return withDevice(device, [&](ZrDevice& d) {
        if (dBm) *dBm = d.refLevel;
        return zrNoError;
    });
}

ZR_EXPORT ZrStatus zrSetPreselector(int device, ZrBool enabled) {
    return withDevice(device, [&](ZrDevice& d) {
        if (!enumInRange(enabled, zrTrue)) return zrInvalidParameterErr;
        d.preselectorEnabled = enabled == zrTrue ? 1 : 0;
        return zrNoError;
    });
}

ZR_EXPORT ZrStatus zrGetPreselector(int device, ZrBool* enabled) {
    return withDevice(device, [&](ZrDevice& d) {
        if (!enabled) return zrNullPtrErr;
        *enabled = d.preselectorEnabled ? zrTrue : zrFalse;
        return zrNoError;
    });
}

ZR_EXPORT ZrStatus zrSetGPIOState(int device, int directionA, int directionB) {
    return withDevice(device, [&](ZrDevice& d) {
        if (!enumInRange(directionA, 1) || !enumInRange(directionB, 1)) return zrInvalidParameterErr;
        if (!quietGate(d)) return zrInvalidConfigurationErr;
        d.gpioRegister = (d.gpioRegister & ~0x300u) | (static_cast<uint32_t>(directionA) << 8) |
                         (static_cast<uint32_t>(directionB) << 9);
        return sendRegister(d, reg::kGpio, d.gpioRegister);
    });
}

ZR_EXPORT ZrStatus zrGetGPIOState(int device, int* directionA, int* directionB) {
    return withDevice(device, [&](ZrDevice& d) {
        if (directionA) *directionA = (d.gpioRegister >> 8) & 1;
        if (directionB) *directionB = (d.gpioRegister >> 9) & 1;
        return zrNoError;
    });
}

ZR_EXPORT ZrStatus zrWriteGPIOImm(int device, uint8_t value) {
    return withDevice(device, [&](ZrDevice& d) {
        if (!quietGate(d)) return zrInvalidConfigurationErr;
        d.gpioRegister = (d.gpioRegister & ~0xFFu) | value;
        return sendRegister(d, reg::kGpio, d.gpioRegister);
    });
}

ZR_EXPORT ZrStatus zrReadGPIOImm(int device, uint8_t* value) {
    return withDevice(device, [&](ZrDevice& d) {
        if (!value) return zrNullPtrErr;
        // The port is read through a fresh status block, whatever its age.
        if (d.currentMode == zrModeIdle) refreshStatus(d);
        *value = d.status.load().gpioInput;
        return transportStatus(d);
    });
}

ZR_EXPORT ZrStatus zrWriteSPI(int device, uint32_t data, int byteCount) {
    return withDevice(device, [&](ZrDevice& d) {
        if (byteCount < 1 || byteCount > 4) return zrInvalidParameterErr;
        if (!quietGate(d)) return zrInvalidConfigurationErr;
        d.gpioRegister = (d.gpioRegister & ~0xC00u) | (static_cast<uint32_t>(byteCount - 1) << 10);
        CommandList list;
        const uint32_t words[] = {cmd::registerWord(3, reg::kGpio), d.gpioRegister, 0u, data};
        list.AppendWords(words, 4);
        // The port shifts 128 ticks a byte; wait it out before anything else.
        list.AppendWord(static_cast<uint32_t>(byteCount * 128 + 16));
        return sendList(d, list);
    });
}

ZR_EXPORT ZrStatus zrSetGPIOSweep(int device, const ZrGPIOStep* steps, int count) {
    return withDevice(device, [&](ZrDevice& d) {
        if (!steps) return zrNullPtrErr;
        if (count < 1 || count > kMaxGpioEntries) return zrInvalidParameterErr;
        std::vector<GpioSweepEntry> copy;
        for (int i = 0; i < count; ++i) {
            if (!isFiniteArg(steps[i].frequency)) return zrInvalidParameterErr;
            copy.push_back({steps[i].frequency, steps[i].mask});
        }
        std::stable_sort(copy.begin(), copy.end(),
                         [](const GpioSweepEntry& a, const GpioSweepEntry& b) { return a.frequency < b.frequency; });
        d.gpioSweep = std::move(copy);
        return zrNoError;
    });
}

ZR_EXPORT ZrStatus zrSetGPIOSweepDisabled(int device) {
    return withDevice(device, [&](ZrDevice& d) {
        d.gpioSweep.clear();
        return zrNoError;
    });
}

ZR_EXPORT ZrStatus zrSetGPIOSwitching(int device, const uint8_t* values, const uint32_t* durations, int count) {
    return withDevice(device, [&](ZrDevice& d) {
        if (count < 1 || count > kMaxGpioEntries) return zrInvalidParameterErr;
        if (!values || !durations) return zrNullPtrErr;
        bool clamped = false;
        GpioSwitching& s = d.gpioSwitching;
        s.values.fill(0);
        s.durations.fill(0);
        for (int i = 0; i < count; ++i) {
            int32_t dur = static_cast<int32_t>(durations[i]);
            if (dur < 1) { dur = 1; clamped = true; }
            if (dur > kMaxSwitchDuration) { dur = kMaxSwitchDuration; clamped = true; }
            s.values[i] = values[i];
            s.durations[i] = static_cast<uint32_t>(dur);
        }
        s.count = static_cast<uint32_t>(count);
        s.enabled = 1;
        return clamped ? zrSettingClamped : zrNoError;
    });
}

ZR_EXPORT ZrStatus zrSetGPIOSwitchingDisabled(int device) {
    return withDevice(device, [&](ZrDevice& d) {
        d.gpioSwitching = GpioSwitching{};
        return zrNoError;
    });
}

ZR_EXPORT ZrStatus zrSetReference(int device, int value) {
    return withDevice(device, [&](ZrDevice& d) { return setTimebaseSelector(d, d.referenceSource, value); });
}

ZR_EXPORT ZrStatus zrGetReference(int device, int* value) {
    return withDevice(device, [&](ZrDevice& d) {
        if (!value) return zrNullPtrErr;
        *value = static_cast<int>(d.referenceSource);
        return zrNoError;
    });
}

ZR_EXPORT ZrStatus zrSetExternalReference(int device, int value) {
    return withDevice(device, [&](ZrDevice& d) { return setTimebaseSelector(d, d.externalReference, value); });
}

ZR_EXPORT ZrStatus zrGetExternalReference(int device, int* value) {
    return withDevice(device, [&](ZrDevice& d) {
        if (!value) return zrNullPtrErr;
        *value = static_cast<int>(d.externalReference);
        return zrNoError;
    });
}

ZR_EXPORT ZrStatus zrGetDeviceDiagnostics(int device, float* voltage, float* current, float* temperature) {
    return withDevice(device, [&](ZrDevice& d) {
        applyRefreshRule(d);
        const ZrStatus s = transportStatus(d);
        if (s < 0) return s;
        const StatusImage img = d.status.load();
        if (voltage) *voltage = img.diagnostics[0];
        if (current) *current = img.diagnostics[1];
        if (temperature) *temperature = img.diagnostics[4];
        return s;
    });
}

ZR_EXPORT ZrStatus zrGetFullDeviceDiagnostics(int device, ZrDeviceDiagnostics* diagnostics) {
    return withDevice(device, [&](ZrDevice& d) {
        if (!diagnostics) return zrNullPtrErr;
        applyRefreshRule(d);
        static_assert(sizeof(ZrDeviceDiagnostics) == sizeof(float) * 10);
        std::memcpy(diagnostics, d.status.load().diagnostics.data(), sizeof(ZrDeviceDiagnostics));
        return transportStatus(d);
    });
}

ZR_EXPORT ZrStatus zrGetSFPDiagnostics(int device, float* temperature, float* voltage, float* txPower,
                                       float* rxPower) {
    return withDevice(device, [&](ZrDevice& d) {
        float* out[4] = {temperature, voltage, txPower, rxPower};
        if (d.deviceType == zrDeviceTypeMesa1 || d.deviceType == zrDeviceTypeMesa2) {
            for (float* p : out)
                if (p) *p = 0.0f;
            return zrInvalidConfigurationErr;
        }
        applyRefreshRule(d);
        const StatusImage img = d.status.load();
        for (int i = 0; i < 4; ++i)
            if (out[i]) *out[i] = img.sfpDiagnostics[i];
        return transportStatus(d);
    });
}

ZR_EXPORT ZrStatus zrSetFanThreshold(int device, int celsius) {
    return withDevice(device, [&](ZrDevice& d) {
        if (!idleGate(d)) return zrInvalidConfigurationErr;
        const int t = std::min(std::max(celsius, 10), 90);
        d.fanThreshold = static_cast<uint32_t>(t);
        return sendRegister(d, reg::kFanThreshold, fanThresholdCode(t));
    });
}

ZR_EXPORT ZrStatus zrSetIFOutput(int device, double frequency) {
    return withDevice(device, [&](ZrDevice& d) {
        if (!d.ridge()) return zrInvalidDeviceErr;
        if (!idleGate(d)) return zrInvalidConfigurationErr;
        if (!(frequency >= 24e9 && frequency <= 43.5e9)) return zrInvalidParameterErr;
        if (!d.hasIFOutput) return zrInvalidDeviceErr;
        rf::Words words;
        rf::tuneIFOutput(words, d.rf.ridge, d.rfCalibration(), frequency,
                         rf::attenIndexFor(d.attenuator, d.refLevel));
        CommandList list;
        rf::appendToList(list, words);
        list.AppendWord(cmd::kPad);
        // The port is set up whatever the link did; a failed send shows at
        // the next data call.
        sendList(d, list);
        return zrNoError;
    });
}

ZR_EXPORT ZrStatus zrGetCalDate(int device, uint64_t* seconds) {
    return withDevice(device, [&](ZrDevice& d) {
        if (!seconds) return zrNullPtrErr;
        // The later of the calibration date and the timebase history in use.
        *seconds = d.corrections.CalDate();
        return zrNoError;
    });
}

ZR_EXPORT ZrStatus zrGetFanThreshold(int device, int* celsius) {
    return withDevice(device, [&](ZrDevice& d) {
        if (!celsius) return zrNullPtrErr;
        *celsius = static_cast<int>(d.fanThreshold);
        return zrNoError;
    });
}

}  // extern "C"
