#include "device/device.h"

#include <sys/mman.h>

#include <new>

#include "platform/data_folder.h"

namespace zr {

namespace {
constexpr uint32_t kMesaImage = 0x400000;
constexpr uint32_t kRidgeImage = 0x800000;

const ModelInfo kModels[] = {
    {"Mesa1", false, false, 20.6e9, kMesaImage, false, false},
    {"Mesa2", false, false, 20.6e9, kMesaImage, true, false},
    {"Mesa3", false, true, 20.6e9, kMesaImage, false, false},
    {"Ridge2", true, false, 44.2e9, kRidgeImage, true, true},
    {"Ridge3", true, true, 44.2e9, kRidgeImage, false, true},
};
}  // namespace

const ModelInfo& modelInfo(ZrDeviceType type) {
    return isValidDeviceType(type) ? kModels[type] : kModels[0];
}

ZrSweepSettings defaultSweepSettings() {
    ZrSweepSettings s{};
    s.speed = zrSweepSpeedAuto;
    s.center = 10300050000.0;
    s.span = 20599900000.0;
    s.rbw = 100000.0;
    s.vbw = 100000.0;
    s.detector = zrDetectorAverage;
    s.scale = zrScaleLog;
    s.videoUnits = zrVideoPower;
    s.spurReject = 0;
    s.window = zrWindowNuttall;
    return s;
}

ZrRealTimeSettings defaultRealTimeSettings() {
    ZrRealTimeSettings s{};
    s.center = 1e9;
    s.span = 1.6e8;
    s.rbw = 30000.0;
    s.detector = zrDetectorMinMax;
    s.scale = zrScaleLog;
    s.refLevel = 0.0;
    s.dynamicRange = 100.0;
    s.window = zrWindowNuttall;
    return s;
}

ZrDevice::ZrDevice(std::unique_ptr<DeviceInterface> t) : transport(std::move(t)) {
    if (transport) {
        ZrDeviceType type = transport->GetDeviceType();
        deviceType = isValidDeviceType(type) ? type : zrDeviceTypeMesa1;
        serialNumber = transport->deviceSerial;
    }
    maxFrequency = modelInfo(deviceType).maxFrequency;
    // Whatever the transport read from cache or flash replaces the neutral
    // tables; an instrument without corrections measures uncorrected.
    corrections.LoadFromTransportImage(transport ? transport->image.data() : nullptr, ridge());
    if (!transport) return;
    const uint8_t* image = transport->image.data();
    const uint16_t* history = nullptr;
    const uint64_t* dates = nullptr;
    if (ridge()) {
        const auto* r = reinterpret_cast<const RidgeCalData*>(image);
        rf::loadCbbColumns(rf.ridge, *r);
        history = r->timebaseValue;
        dates = r->timebaseDate;
    } else {
        const auto* m = reinterpret_cast<const MesaCalData*>(image);
        rf::buildMesaRfState(rf.mesa, *m);
        history = m->timebaseValue;
        dates = m->timebaseDate;
    }
    loadCoarseTimebase(history, dates);
}

void ZrDevice::loadCoarseTimebase(const uint16_t* history, const uint64_t* dates) {
    // The factory history's last entry is where the oscillator was trimmed;
    // a GPS-steered value remembered on disk wins only when it is newer.
    uint64_t date = 0;
    for (int i = 0; i < ZR_CAL_TIMEBASE_ENTRIES && history[i] != 0xFFFF; ++i) {
        coarseTune = history[i];
        date = dates[i];
    }
    if (readTimebaseFile(calFilesFolder(), serialNumber, storedTimebase) &&
        static_cast<uint64_t>(storedTimebase.timeSeconds) > date)
        coarseTune = storedTimebase.tune;
    timebaseTuned = coarseTune;
}

// Engines are stopped and deleted by the mode layer before a device is
// destroyed; by now every engine pointer is null.
ZrDevice::~ZrDevice() = default;

bool ZrDevice::allowsIQBaseRate() const {
    switch (deviceType) {
        case zrDeviceTypeMesa1: return firmwareRevision >= 8;
        case zrDeviceTypeMesa2: return firmwareRevision >= 11;
        default: return true;
    }
}

bool ZrDevice::disciplinesTimebaseInFirmware() const {
    switch (deviceType) {
        case zrDeviceTypeMesa1: return firmwareRevision >= 9;
        case zrDeviceTypeMesa2: return firmwareRevision >= 12;
        default: return true;
    }
}

bool ZrDevice::allowsWriteToGPS() const {
    switch (deviceType) {
        case zrDeviceTypeMesa1: return firmware().eachAtLeast(4, 5, 10);
        case zrDeviceTypeMesa2: return firmware().eachAtLeast(4, 5, 13);
        case zrDeviceTypeMesa3: return firmware().eachAtLeast(6, 6, 4);
        default: return true;
    }
}

bool ZrDevice::allowsFullBandTrigger() const {
    return deviceType == zrDeviceTypeMesa3 && firmware().eachAtLeast(7, 7, 5);
}

ByteStorage::~ByteStorage() {
    if (bytes_) munmap(bytes_, size_);
}

uint8_t* ByteStorage::ensure(size_t n) {
    if (n <= size_) return bytes_;
    if (bytes_) munmap(bytes_, size_);
    bytes_ = nullptr;
    size_ = 0;
    void* p = mmap(nullptr, n, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_POPULATE, -1, 0);
    if (p == MAP_FAILED) throw std::bad_alloc();
    bytes_ = static_cast<uint8_t*>(p);
    size_ = n;
    return bytes_;
}

}  // namespace zr
