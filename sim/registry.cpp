// Attached instruments and the C interface of the simulator.
#include "registry.h"

#include <atomic>
#include <cmath>
#include <cstring>
#include <map>
#include <mutex>

#include "factory_cal.h"
#include "usb_bus.h"
#include "zr_sim.h"

namespace zr::sim {

namespace {
std::mutex registryMutex;
std::map<int, std::shared_ptr<Instrument>>& registry() {
    static std::map<int, std::shared_ptr<Instrument>> instruments;
    return instruments;
}
std::atomic<double> waitScale{1.0};

bool validSerial(int serial) { return serial >= 10000000 && serial <= 99999999; }
}  // namespace

std::shared_ptr<Instrument> findInstrument(int serial) {
    std::lock_guard lock(registryMutex);
    auto it = registry().find(serial);
    return it == registry().end() ? nullptr : it->second;
}

std::vector<std::shared_ptr<Instrument>> attachedInstruments() {
    std::lock_guard lock(registryMutex);
    std::vector<std::shared_ptr<Instrument>> out;
    for (auto& [serial, inst] : registry()) out.push_back(inst);
    return out;
}

}  // namespace zr::sim

using zr::sim::findInstrument;

namespace {
template <typename F>
ZrStatus withInstrument(int serial, F&& f) {
    if (!zr::sim::validSerial(serial)) return zrInvalidParameterErr;
    auto inst = findInstrument(serial);
    if (!inst) return zrDeviceNotFoundErr;
    f(*inst);
    return zrNoError;
}
}  // namespace

extern "C" {

ZrStatus zrSimAttachUSB(ZrDeviceType type, int serial) {
    // A C caller may pass any int here; look at it as one.
    int raw;
    std::memcpy(&raw, &type, sizeof raw);
    if (raw != zrDeviceTypeMesa1 && raw != zrDeviceTypeMesa2 && raw != zrDeviceTypeRidge2)
        return zrInvalidParameterErr;
    if (!zr::sim::validSerial(serial)) return zrInvalidParameterErr;
    // The bus the library walks exists from the first plugged instrument on.
    (void)zrSimUSBBus();
    std::lock_guard lock(zr::sim::registryMutex);
    auto& reg = zr::sim::registry();
    if (reg.count(serial) != 0) return zrInvalidParameterErr;
    try {
        auto inst = std::make_shared<zr::sim::Instrument>(static_cast<ZrDeviceType>(raw), serial);
        // It leaves the factory with its calibration in flash.
        zr::sim::factoryCalibrate(*inst);
        // Plugged in, an instrument waits in its boot state for a host.
        inst->setRunning(false);
        reg.emplace(serial, std::move(inst));
    } catch (...) {
        return zrAllocationErr;
    }
    return zrNoError;
}

ZrStatus zrSimDetach(int serial) {
    if (!zr::sim::validSerial(serial)) return zrInvalidParameterErr;
    std::shared_ptr<zr::sim::Instrument> inst;
    {
        std::lock_guard lock(zr::sim::registryMutex);
        auto it = zr::sim::registry().find(serial);
        if (it == zr::sim::registry().end()) return zrDeviceNotFoundErr;
        inst = std::move(it->second);
        zr::sim::registry().erase(it);
    }
    inst->detach();
    return zrNoError;
}

ZrStatus zrSimAddTone(int serial, double freqHz, double powerDbm) {
    if (!std::isfinite(freqHz) || !std::isfinite(powerDbm) || freqHz < 0.0 || powerDbm > 30.0)
        return zrInvalidParameterErr;
    return withInstrument(serial, [&](zr::sim::Instrument& i) { i.addTone(freqHz, powerDbm); });
}

ZrStatus zrSimClearSignals(int serial) {
    return withInstrument(serial, [](zr::sim::Instrument& i) { i.clearSignals(); });
}

ZrStatus zrSimSetNoiseFloor(int serial, double dbmPerHz) {
    if (!std::isfinite(dbmPerHz) || dbmPerHz > -50.0) return zrInvalidParameterErr;
    return withInstrument(serial, [&](zr::sim::Instrument& i) { i.setNoiseFloor(dbmPerHz); });
}

ZrStatus zrSimSetTemperature(int serial, float celsius) {
    if (!std::isfinite(celsius) || celsius < -40.0f || celsius > 125.0f) return zrInvalidParameterErr;
    return withInstrument(serial, [&](zr::sim::Instrument& i) { i.setTemperature(celsius); });
}

ZrStatus zrSimSetGPS(int serial, ZrBool locked, double latitude, double longitude, double altitude) {
    int raw;
    std::memcpy(&raw, &locked, sizeof raw);
    if (raw != zrFalse && raw != zrTrue) return zrInvalidParameterErr;
    if (!std::isfinite(latitude) || !std::isfinite(longitude) || !std::isfinite(altitude) ||
        std::fabs(latitude) > 90.0 || std::fabs(longitude) > 180.0)
        return zrInvalidParameterErr;
    return withInstrument(serial, [&](zr::sim::Instrument& i) { i.setGps(raw == zrTrue, latitude, longitude, altitude); });
}

ZrStatus zrSimSetGPSSilent(int serial, ZrBool silent) {
    int raw;
    std::memcpy(&raw, &silent, sizeof raw);
    if (raw != zrFalse && raw != zrTrue) return zrInvalidParameterErr;
    return withInstrument(serial, [&](zr::sim::Instrument& i) { i.setGpsSilent(raw == zrTrue); });
}

ZrStatus zrSimSetWaitScale(double factor) {
    if (!std::isfinite(factor) || factor < 0.0) return zrInvalidParameterErr;
    zr::sim::waitScale.store(factor);
    return zrNoError;
}

double zrSimGetWaitScale(void) { return zr::sim::waitScale.load(); }

ZrStatus zrSimSetFirmware(int serial, int major, int minor, int revision) {
    if (major < 0 || major > 0xFFFF || minor < 0 || minor > 0xFFFF || revision < 0) return zrInvalidParameterErr;
    return withInstrument(serial, [&](zr::sim::Instrument& i) {
        i.setFirmware(static_cast<uint32_t>(revision), static_cast<uint16_t>(minor), static_cast<uint16_t>(major));
    });
}

ZrStatus zrSimGetRegister(int serial, uint32_t address, uint32_t* value) {
    if (!value || address > 0xFFFF) return zrInvalidParameterErr;
    return withInstrument(serial, [&](zr::sim::Instrument& i) { *value = i.reg(address); });
}

ZrStatus zrSimReadFlash(int serial, uint32_t byteOffset, uint32_t count, uint8_t* out) {
    constexpr uint64_t kFlashBytes = 64ull << 20;
    if ((!out && count > 0) || uint64_t(byteOffset) + count > kFlashBytes) return zrInvalidParameterErr;
    return withInstrument(serial, [&](zr::sim::Instrument& i) { i.readFlash(byteOffset, count, out); });
}

ZrStatus zrSimGetLastCommand(int serial, uint8_t opcode, uint32_t* word) {
    if (!word) return zrInvalidParameterErr;
    return withInstrument(serial, [&](zr::sim::Instrument& i) { *word = i.lastCommand(opcode); });
}

ZrStatus zrSimGetTick(int serial, uint64_t* tick) {
    if (!tick) return zrInvalidParameterErr;
    return withInstrument(serial, [&](zr::sim::Instrument& i) { *tick = i.tickNow(); });
}

ZrStatus zrSimUtcAtTick(int serial, uint64_t tick, int64_t* nsSinceEpoch) {
    if (!nsSinceEpoch || tick > (1ull << 60)) return zrInvalidParameterErr;
    return withInstrument(serial, [&](zr::sim::Instrument& i) { *nsSinceEpoch = i.utcNsAtTick(tick); });
}

ZrStatus zrSimSetTick(int serial, uint64_t tick) {
    if (tick > (1ull << 60)) return zrInvalidParameterErr;
    if (!zr::sim::validSerial(serial)) return zrInvalidParameterErr;
    auto inst = findInstrument(serial);
    if (!inst) return zrDeviceNotFoundErr;
    return inst->setTick(tick) ? zrNoError : zrInvalidParameterErr;
}

ZrStatus zrSimGetStreamStartTick(int serial, uint64_t* tick) {
    if (!tick) return zrInvalidParameterErr;
    return withInstrument(serial, [&](zr::sim::Instrument& i) { *tick = i.streamStartTick(); });
}

ZrStatus zrSimSetPaced(int serial, ZrBool paced) {
    int raw;
    std::memcpy(&raw, &paced, sizeof raw);
    if (raw != zrFalse && raw != zrTrue) return zrInvalidParameterErr;
    return withInstrument(serial, [&](zr::sim::Instrument& i) { i.setPaced(raw == zrTrue); });
}

ZrStatus zrSimTriggerAtTick(int serial, uint64_t tick, double widthNs) {
    if (!std::isfinite(widthNs) || widthNs < 0.0 || widthNs > 1e12 || tick > (1ull << 60))
        return zrInvalidParameterErr;
    return withInstrument(serial, [&](zr::sim::Instrument& i) { i.triggerAtTick(tick, widthNs); });
}

ZrStatus zrSimInjectFault(int serial, ZrSimFault fault, int count) {
    if (count < 0) return zrInvalidParameterErr;
    int32_t raw;
    std::memcpy(&raw, &fault, sizeof raw);
    switch (raw) {
        case zrSimFaultADCOverflow:
            return withInstrument(serial, [&](zr::sim::Instrument& i) { i.injectAdcOverload(count); });
        case zrSimFaultSampleLoss:
            return withInstrument(serial, [&](zr::sim::Instrument& i) { i.injectSampleLoss(count); });
        case zrSimFaultBadMagic:
            return withInstrument(serial, [&](zr::sim::Instrument& i) { i.injectBadMagic(count); });
        case zrSimFaultStopAnswering:
            return withInstrument(serial, [&](zr::sim::Instrument& i) { i.stopAnswering(count); });
        default:
            return zrInvalidParameterErr;
    }
}

}  // extern "C"
