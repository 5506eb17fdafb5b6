#pragma once
// ZrDevice: the one object behind a handle. Setters write into it and do
// nothing else, so settings survive mode changes; only zrConfigure turns
// them into instrument state.

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include "zr_api.h"
#include "calibration/correction_set.h"
#include "device/mode_engine.h"
#include "device/status.h"
#include "gps/gps_receiver.h"
#include "gps/timebase_file.h"
#include "rf/rf_glue.h"
#include "transport/command_list.h"
#include "transport/device_interface.h"

namespace zr {

// ---------------------------------------------------------------------------
// Models

struct ModelInfo {
    const char* name;
    bool ridge;
    bool networked;
    double maxFrequency;      // Hz
    uint32_t calImageSize;    // bytes of the calibration record
    bool captureMemory;
    bool ifOutputPossible;
};

constexpr double kMinFrequency = 9000.0;

// Returns the row for a valid type, the Mesa1 row otherwise.
const ModelInfo& modelInfo(ZrDeviceType type);

inline bool isValidDeviceType(int type) { return type >= zrDeviceTypeMesa1 && type <= zrDeviceTypeRidge3; }
inline bool isNetworked(ZrDeviceType t) { return t == zrDeviceTypeMesa3 || t == zrDeviceTypeRidge3; }
inline bool isRidge(ZrDeviceType t) { return t == zrDeviceTypeRidge2 || t == zrDeviceTypeRidge3; }
inline bool hasCaptureMemory(ZrDeviceType t) { return t == zrDeviceTypeMesa2 || t == zrDeviceTypeRidge2; }

struct FirmwareVersion {
    int major = 0, minor = 0, revision = 0;
    // Each part is compared by itself, not lexicographically: 4.6.3 does not
    // reach 4.5.10 because its revision is lower.
    bool eachAtLeast(int ma, int mi, int rev) const { return major >= ma && minor >= mi && revision >= rev; }
};

// ---------------------------------------------------------------------------
// Settings records that are not part of the binary interface

struct ZrSegmentSettings {
    uint32_t triggerType = zrTriggerTypeImmediate;
    int32_t preTrigger = 0;      // samples
    uint32_t captureSize = 16384; // samples
    double timeout = 0.0;        // seconds
};

struct ZrIQSweepListStep {
    double frequency = 1e9;
    int32_t attenuator = -1;
    double refLevel = -20.0;
    uint32_t sampleCount = 1000000;
};

struct IQSettings {
    ZrIQBaseRate baseRate = zrIQBaseRate50M;
    ZrDataType dataType = zrDataType32fc;
    double center = 1e9;
    int32_t decimation = 1;
    ZrBool softwareFilter = zrFalse;
    double bandwidth = 1.6e8;
    uint32_t extTriggerEdge = 0;
    float queueSizeMs = 31.45728f;
    double sampleRate = 5e7;     // written by the plan
};

struct SegmentedSettings {
    ZrDataType dataType = zrDataType32fc;
    double center = 1e9;
    double videoTriggerLevel = -20.0;  // dBm
    uint32_t videoTriggerEdge = 0;
    uint32_t extTriggerEdge = 0;
    int32_t maskFftSize = 16384;
    std::vector<double> maskFrequencies{0.0};
    std::vector<double> maskAmplitudes{-50.0};
    std::vector<ZrSegmentSettings> segments;
};

// The FM de-emphasis time constant has no natural zero; 75 us is the value
// used by broadcast FM in the Americas and the one most receivers default to.
constexpr double kDefaultFMDeemphasisUs = 75.0;

struct AudioSettings {
    double center = 97100.0;   // Hz (97.1 kHz)
    ZrAudioType type = zrAudioFM;
    double ifBandwidth = 200000.0;
    double lowPass = 12000.0;
    double highPass = 100.0;
    double fmDeemphasisUs = kDefaultFMDeemphasisUs;
};

struct IQSweepListSettings {
    ZrDataType dataType = zrDataType32fc;
    uint8_t uncorrected = 0;   // inverse of the zrSetIQSweepListCorrected argument
    std::vector<ZrIQSweepListStep> steps;
};

struct FullBandSettings {
    uint32_t attenuator = 0;
    uint32_t corrected = 1;
    int32_t samples = 32768;
    ZrTriggerType triggerType = zrTriggerTypeImmediate;
    double videoTriggerLevel = -50.0;  // dBm
    double triggerTimeout = 1.0;       // seconds
};

ZrSweepSettings defaultSweepSettings();
ZrRealTimeSettings defaultRealTimeSettings();

// ---------------------------------------------------------------------------
// GPS, timebase and output-port state

struct GpioSweepEntry {
    double frequency = 0.0;
    uint8_t value = 0;
};

// Bytes that grow on demand and never shrink. The pages are mapped in when
// the bytes are taken, not on first use: a data thread that wrote into a
// fresh ring would otherwise pay a page fault every 4 KiB.
class ByteStorage {
public:
    ByteStorage() = default;
    ByteStorage(const ByteStorage&) = delete;
    ByteStorage& operator=(const ByteStorage&) = delete;
    ~ByteStorage();
    // At least n bytes; throws std::bad_alloc.
    uint8_t* ensure(size_t n);
    size_t size() const { return size_; }

private:
    uint8_t* bytes_ = nullptr;
    size_t size_ = 0;
};

struct GpioSwitching {
    uint8_t enabled = 0;
    std::array<uint8_t, 64> values{};
    std::array<uint32_t, 64> durations{};
    uint32_t count = 0;
};

// ---------------------------------------------------------------------------

struct ZrDevice {
    // Status image: republished at every status block. Firmware fields come
    // from the same blocks but change only when the open reads them first.
    PublishedStatus status;
    float configureTemperature = 0.0f;

    // GPS and timebase.
    GpsReceiver gps;
    GpsPulseReader gpsPulses;
    StoredTimebase storedTimebase;
    uint16_t coarseTune = 0x8000;
    uint16_t timebaseTuned = 0x8000;
    uint8_t timebaseDisciplined = 0;
    uint8_t firmwareDiscipline = 0;

    // Output ports.
    uint32_t gpioRegister = 0;
    std::vector<GpioSweepEntry> gpioSweep;
    GpioSwitching gpioSwitching;

    // Transport and identity.
    std::unique_ptr<DeviceInterface> transport;
    ZrDeviceType deviceType = zrDeviceTypeMesa1;
    int32_t serialNumber = 0;
    int32_t firmwareMajor = 0;
    int32_t firmwareMinor = 0;
    int32_t firmwareRevision = 0;
    double maxFrequency = 0.0;
    uint8_t hasIFOutput = 0;
    ZrMode currentMode = zrModeIdle;
    ZrPowerState powerState = zrPowerStateStandby;  // until start-up finishes

    // Working calibration: neutral until the open path loads the
    // instrument's corrections.
    CorrectionSet corrections;

    // Both families' RF planners (one in use) and the admin overrides that
    // configuration must not undo.
    rf::RfState rf;
    rf::RidgeOverrides rfOverrides;

    // Level: applies to every mode.
    int32_t attenuator = -1;  // -1 automatic, 0..6 in 5 dB steps
    double refLevel = 0.0;
    uint8_t preselectorEnabled = 0;
    uint32_t referenceSource = 0;
    uint32_t externalReference = 0;
    uint32_t gpsTimebaseUpdate = 0;

    // Settings records, one per mode family.
    ZrSweepSettings sweep = defaultSweepSettings();
    ZrRealTimeSettings realTime = defaultRealTimeSettings();
    IQSettings iq;
    SegmentedSettings segmented;
    AudioSettings audio;
    IQSweepListSettings iqSweepList;
    FullBandSettings fullBand;

    // Service state.
    uint32_t loOffset = 0;        // 0..4
    uint32_t fanThreshold = 50;   // degrees C
    uint8_t networkFragmentation = 0;

    // The engine of the current mode, and the I/Q engine that audio reads
    // from beside it. Null while idle.
    std::unique_ptr<ModeEngine> engine;
    std::unique_ptr<ModeEngine> iqSource;

    // Built once at start-up, sent on every change of power state.
    CommandList wakeList;
    CommandList standbyList;

    // The I/Q sample queue's memory: it outlives engines, so a stream that
    // is configured again does not pay for hundreds of megabytes again.
    ByteStorage iqQueueStorage;

    // First construction step: every default, bound to its transport. The
    // identity comes from the transport; firmware fields wait for the first
    // status block.
    explicit ZrDevice(std::unique_ptr<DeviceInterface> t);
    ZrDevice(const ZrDevice&) = delete;
    ZrDevice& operator=(const ZrDevice&) = delete;
    ~ZrDevice();

    FirmwareVersion firmware() const { return {firmwareMajor, firmwareMinor, firmwareRevision}; }
    bool networked() const { return isNetworked(deviceType); }
    bool ridge() const { return isRidge(deviceType); }
    bool captureMemory() const { return hasCaptureMemory(deviceType); }
    SweepEngine* sweepEngine() const { return engine ? engine->sweep() : nullptr; }

    // Firmware gates.
    bool allowsIQBaseRate() const;
    bool disciplinesTimebaseInFirmware() const;
    bool allowsWriteToGPS() const;
    bool allowsFullBandTrigger() const;

    // Coarse timebase from the record's history and the timebase cache.
    void loadCoarseTimebase(const uint16_t* history, const uint64_t* dates);

    // The gain code of a calibration slice (in the family's range), from
    // the record in force.
    uint8_t gainCode(int calSlice) const {
        if (ridge()) return corrections.ridge ? corrections.ridge->gainCode[calSlice] : 0;
        return corrections.mesa ? corrections.mesa->gainCode[calSlice] : 0;
    }

    // The calibration answers the RF planners need, over `corrections`.
    rf::DeviceRfCalibration rfCalibration() const { return rf::DeviceRfCalibration(corrections); }
};

}  // namespace zr
