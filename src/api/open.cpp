// Open, close and preset: the only code that changes the device table. An
// open either stores a running, calibrated, idle device or leaves the table
// and the process as they were.
#include <algorithm>
#include <atomic>
#include <new>

#include "device/frame.h"
#include "api/open.h"
#include "device/modes.h"
#include "device/services.h"
#include "calibration/load_usb.h"
#include "dsp/dsp.h"
#include "transport/device_interface_usb.h"
#include "transport/status_block.h"
#include "transport/wait.h"

namespace zr {

bool wideVectorPath = false;

namespace {

std::atomic<bool> dspReady{false};

constexpr int kJesdTries = 10;
constexpr double kJesdRetryMs = 250.0;
constexpr double kRecoveryResetMs = 3000.0;
constexpr double kStartupSettleMs = 50.0;
constexpr double kPowerCycleMs = 100.0;
constexpr uint64_t kWideVectorFeatures = 0x100 | 0x200 | 0x8000;

struct CalStamp {
    uint32_t date;
    uint32_t version;
};

CalStamp calStamp(const DeviceInterface& t, bool ridge) {
    if (ridge) {
        const auto* r = reinterpret_cast<const RidgeCalData*>(t.image.data());
        return {r->calDate, r->calVersion};
    }
    const auto* m = reinterpret_cast<const MesaCalData*>(t.image.data());
    return {m->calDate, m->calVersion};
}

// Start-up: bring the new device's instrument to its idle, awake state.
ZrStatus startUp(ZrDevice& dev) {
    DeviceInterface& t = *dev.transport;
    alignas(8) uint8_t block[StatusBlock::kSize];
    for (int attempt = 1;; ++attempt) {
        std::fill(std::begin(block), std::end(block), 0);
        ReadStatusBlock(t, block);
        if (!decodeStatus(dev, block, true, false).jesdUnsynced) break;
        if (attempt == kJesdTries) {
            // The converters never locked to the FPGA; only a reset of the
            // instrument clears that.
            t.Reset();
            return zrJESDErr;
        }
        protocolSleepMs(kJesdRetryMs);
    }

    dev.corrections.SetTemperature(readTemperature(dev));
    dev.firmwareDiscipline = dev.disciplinesTimebaseInFirmware() ? 1 : 0;
    if (dev.firmwareDiscipline) dev.gps.useAverage = 1;

    CommandList list;
    const rf::DeviceRfCalibration cal = dev.rfCalibration();
    rf::Words words;
    if (dev.ridge()) {
        const auto* image = reinterpret_cast<const uint32_t*>(t.image.data());
        if (image[1638] == 1) dev.rf.ridge.usesLTC6947 = true;
        rf::appendRidgeStartup(words, rf::ridgeLoCalMode());
    } else {
        rf::appendMesaStartup(words, dev.rf.mesa, cal);
    }
    rf::appendToList(list, words);
    dev.timebaseTuned = static_cast<uint16_t>(dev.coarseTune + dev.corrections.GetTimebaseOffset());
    list.AppendRegister(reg::kTimebase, timebaseWord(dev));
    list.AppendRegister(reg::kFanThreshold, fanThresholdCode(static_cast<int>(dev.fanThreshold)));
    list.AppendWord(cmd::kPad);
    SendCommandList(t, list);
    protocolSleepMs(kStartupSettleMs);

    buildPowerLists(dev);
    dev.powerState = zrPowerStateOn;

    // A full standby and wake leaves every stage in the state the wake list
    // defines, whatever the instrument did before this open.
    SendCommandList(t, dev.standbyList);
    dev.powerState = zrPowerStateStandby;
    protocolSleepMs(kPowerCycleMs);
    SendCommandList(t, dev.wakeList);
    dev.powerState = zrPowerStateOn;

    if (dev.ridge()) {
        const auto* image = reinterpret_cast<const uint32_t*>(t.image.data());
        dev.hasIFOutput = (image[1558] != 0xFFFFFFFFu && image[1598] != 0xFFFFFFFFu) ? 1 : 0;
    }
    // Failed sends stay in the transport's status word; the first data call
    // reports them.
    return zrNoError;
}

// Connects and calibrates the transport, with the one recovery a silent
// instrument gets. 0 or the status of the open.
ZrStatus connect(DeviceInterfaceUSB& t, int serial) {
    int32_t loaded = loadCalibrationUSB(t, serial);
    if (loaded != 0) return static_cast<ZrStatus>(loaded);
    t.connected = 1;
    if (TestConnection(t)) return zrNoError;

    t.Reset();
    protocolSleepMs(kRecoveryResetMs);
    t.Close();
    loaded = loadCalibrationUSB(t, serial);
    if (loaded != 0) return static_cast<ZrStatus>(loaded);
    t.connected = 1;
    return TestConnection(t) ? zrNoError : zrDeviceNotFoundErr;
}

}  // namespace

void buildPowerLists(ZrDevice& dev) {
    dev.wakeList.Init();
    dev.standbyList.Init();
    rf::Words words;
    if (dev.ridge()) {
        rf::appendRidgeWake(words);
        rf::appendToList(dev.wakeList, words);
        words.clear();
        rf::appendRidgeShutdown(words, dev.rf.ridge);
        rf::appendToList(dev.standbyList, words);
    } else {
        AppendMesaWake(dev.wakeList);
        rf::appendMesaWakeSynth(words, dev.rf.mesa, dev.rfCalibration());
        rf::appendToList(dev.wakeList, words);
        AppendMesaStandby(dev.standbyList);
    }
}

ZrStatus openUSBDevice(int* handle, int serial) {
    if (!dspReady.exchange(true)) dspInit();
    wideVectorPath = (dspGetCpuFeatures() & kWideVectorFeatures) == kWideVectorFeatures;
    if (!handle) return zrNullPtrErr;
    const int index = firstFreeHandle();
    if (index < 0) return zrMaxDevicesErr;
    // Two handles must never drive one instrument: one this process holds
    // is not there for a second open.
    if (isSerialOpen(serial)) return zrDeviceNotFoundErr;

    std::unique_ptr<DeviceInterfaceUSB> transport(new (std::nothrow) DeviceInterfaceUSB(2048));
    if (!transport) return zrAllocationErr;
    transport->serial = static_cast<uint32_t>(serial);
    const ZrStatus connected = connect(*transport, serial);
    if (connected != zrNoError) return connected;

    const bool ridge = isRidge(transport->GetDeviceType());
    const CalStamp stamp = calStamp(*transport, ridge);
    // An image never programmed reads all ones here and passes.
    if (!ridge && stamp.version < 2) return zrInvalidCalFileVersionErr;
    const bool calInvalid = transport->calInvalid != 0;

    std::unique_ptr<ZrDevice> dev;
    try {
        dev = std::make_unique<ZrDevice>(std::move(transport));
    } catch (const std::bad_alloc&) {
        return zrAllocationErr;
    }
    const ZrStatus started = startUp(*dev);
    if (started != zrNoError) return started;

    deviceTable[index] = dev.release();
    *handle = index;
    if (stamp.date != 0xFFFFFFFFu && stamp.version >= 3) return zrUpdateAPI;
    return calInvalid ? zrInvalidCalData : zrNoError;
}

ZrStatus closeDevice(ZrDevice& dev, int handle) {
    stopEngines(dev);
    dev.currentMode = zrModeIdle;
    if (dev.powerState != zrPowerStateStandby) {
        if (dev.transport) SendCommandList(*dev.transport, dev.standbyList);
        dev.powerState = zrPowerStateStandby;
    }
    // The transport goes first: its destructor closes the link while the
    // lists and corrections are still whole.
    dev.transport.reset();
    delete &dev;
    deviceTable[handle] = nullptr;
    return zrNoError;
}

}  // namespace zr

using namespace zr;

extern "C" {

ZR_EXPORT ZrStatus zrOpenDevice(int* device) {
    return guarded([&] {
        int serials[kMaxDevices];
        int count = 0;
        zrGetDeviceList(serials, &count);
        if (count == 0) return zrDeviceNotFoundErr;
        return zrOpenDeviceBySerial(device, serials[0]);
    });
}

ZR_EXPORT ZrStatus zrOpenDeviceBySerial(int* device, int serial) {
    return guarded([&] { return openUSBDevice(device, serial); });
}

ZR_EXPORT ZrStatus zrCloseDevice(int device) {
    return withDevice(device, [&](ZrDevice& dev) { return closeDevice(dev, device); });
}

ZR_EXPORT ZrStatus zrPreset(int device) {
    return withDevice(device, [&](ZrDevice& dev) -> ZrStatus {
        const ZrStatus aborted = zrAbort(device);
        if (aborted < zrNoError) return aborted;
        if (dev.transport) dev.transport->Reset();
        protocolSleepMs(kRecoveryResetMs);
        return zrCloseDevice(device);
    });
}

}  // extern "C"
