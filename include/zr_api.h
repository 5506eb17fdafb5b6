/*
 * zr_api: host-side driver and measurement library for the Mesa and Ridge
 * families of real-time spectrum analyzers.
 *
 * Every function takes an int handle (0 to 8) where it concerns one
 * instrument and answers a ZrStatus: below zero is an error (nothing
 * happened, results are void), above zero a warning (results usable), zero
 * success. Results go through caller-owned pointers; strings the library
 * returns are static and never freed by the caller.
 *
 * Linkage: every function is a plain, unmangled C symbol. Where a function
 * exists for both calibration records, the C names carry a suffix: "Mesa"
 * for MesaCalData and "Ridge" for RidgeCalData.
 *
 * Threads: the interface takes no lock. Open, close and zrConfigure of a
 * device, anything else on that device while one of them runs, and two
 * opens of any devices, must be serialised by the caller. Calls on
 * different handles may run on different threads. The data functions of
 * one device (zrStartSweep, zrFinishSweep, zrGetSweep and their kind) are
 * for one calling thread at a time; the engine's own threads cooperate
 * with it. Status and diagnostics inquiries may run beside that thread:
 * they read a copy of the last status the instrument sent.
 *
 * Failures: no exception and no signal leave the library. An allocation
 * that fails answers zrAllocationErr; any other internal failure is written
 * to the error log with the function's name and answers zrMeasErr, and the
 * handle stays usable.
 */
#ifndef ZR_API_H
#define ZR_API_H

#include <stdbool.h>
#include <stdint.h>

#if defined(_WIN32)
#define ZR_EXPORT __declspec(dllexport)
#else
#define ZR_EXPORT __attribute__((visibility("default")))
#endif

/* Enumerations are 32-bit. In C++ they get that as a fixed underlying type,
 * so any int a C caller passes is a value the library can inspect (and
 * reject) without undefined behaviour. */
#ifdef __cplusplus
#define ZR_ENUM(name) enum name : int32_t
#else
#define ZR_ENUM(name) enum name
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------------------
 * Status codes
 * ---------------------------------------------------------------------- */

typedef ZR_ENUM(ZrStatus) {
    zrCalErr = -1003,
    zrMeasErr = -1002,
    zrFlashVerifyErr = -1001,
    zrInvalidCalFileVersionErr = -200,
    zrInvalidCenterFreqErr = -101,
    zrInvalidIQDecimationErr = -100,
    zrJESDErr = -54,
    zrNetworkErr = -53,
    zrFX3LoadErr = -52,
    zrMaxDevicesErr = -51,
    zrFPGABootErr = -50,
    zrBootErr = -49,
    zrGPSNotLockedErr = -16,
    zrInvalidAPIVersionErr = -14,
    zrAllocationErr = -13,
    zrSyncErr = -11,
    zrInvalidSweepPositionErr = -10,
    zrInvalidConfigurationErr = -8,
    zrConnectionLostErr = -6,
    zrInvalidParameterErr = -5,
    zrNullPtrErr = -4,
    zrInvalidDeviceErr = -3,
    zrDeviceNotFoundErr = -2,

    zrNoError = 0,

    zrSettingClamped = 1,
    zrADCOverflow = 2,
    zrUncalData = 3,
    zrTempDriftWarning = 4,
    zrSpanLimitedByPreselector = 5,
    zrTempHighWarning = 6,
    zrCPULimited = 7,
    zrUpdateAPI = 8,
    zrInvalidCalData = 9
} ZrStatus;

/* Status of the USB service family (zrConfigUSB*): zero is success, every
 * other value an error. */
typedef ZR_ENUM(ZrInitStatus) {
    zrInitNoError = 0,
    zrInitDeviceAlreadyOpen = 1,
    zrInitDeviceNotFound = 2,
    zrInitInvalidDevice = 3,
    zrInitNullPtr = 4,
    zrInitDeviceNotConnected = 5,
    zrInitTransferError = 6,
    zrInitFileIOError = 7
} ZrInitStatus;

typedef ZR_ENUM(ZrBool) { zrFalse = 0, zrTrue = 1 } ZrBool;

/* ------------------------------------------------------------------------
 * Models and setting enumerations. A function taking any of these rejects
 * values above the last member with zrInvalidParameterErr.
 * ---------------------------------------------------------------------- */

typedef ZR_ENUM(ZrDeviceType) {
    zrDeviceTypeMesa1 = 0,  /* USB, 20.6 GHz */
    zrDeviceTypeMesa2 = 1,  /* USB, 20.6 GHz, capture memory */
    zrDeviceTypeMesa3 = 2,  /* network, 20.6 GHz */
    zrDeviceTypeRidge2 = 3, /* USB, 44.2 GHz, capture memory, IF output */
    zrDeviceTypeRidge3 = 4  /* network, 44.2 GHz, IF output */
} ZrDeviceType;

typedef ZR_ENUM(ZrMode) {
    zrModeIdle = 0,
    zrModeSweeping = 1,
    zrModeRealTime = 2,
    zrModeIQStreaming = 3,
    zrModeAudio = 4,
    zrModeIQSegmentedCapture = 5,
    zrModeIQSweepList = 6
} ZrMode;

typedef ZR_ENUM(ZrSweepSpeed) {
    zrSweepSpeedAuto = 0,
    zrSweepSpeedNormal = 1,
    zrSweepSpeedFast = 2
} ZrSweepSpeed;

typedef ZR_ENUM(ZrDetector) { zrDetectorAverage = 0, zrDetectorMinMax = 1 } ZrDetector;

typedef ZR_ENUM(ZrScale) {
    zrScaleLog = 0, /* dBm */
    zrScaleLin = 1  /* mV */
} ZrScale;

typedef ZR_ENUM(ZrVideoUnits) {
    zrVideoLog = 0,
    zrVideoVoltage = 1,
    zrVideoPower = 2,
    zrVideoSample = 3
} ZrVideoUnits;

/* 1 is not a member: setters reject it. */
typedef ZR_ENUM(ZrWindowType) {
    zrWindowFlatTop = 0,
    zrWindowNuttall = 2,
    zrWindowBlackman = 3,
    zrWindowHamming = 4,
    zrWindowGaussian = 5,
    zrWindowRect = 6
} ZrWindowType;

typedef ZR_ENUM(ZrDataType) {
    zrDataType32fc = 0, /* interleaved 32-bit float I and Q */
    zrDataType16sc = 1  /* interleaved 16-bit integer I and Q */
} ZrDataType;

typedef ZR_ENUM(ZrIQBaseRate) {
    zrIQBaseRate50M = 0,  /* 50 MS/s */
    zrIQBaseRate61M44 = 1 /* 61.44 MS/s */
} ZrIQBaseRate;

typedef ZR_ENUM(ZrAudioType) {
    zrAudioAM = 0,
    zrAudioFM = 1,
    zrAudioUSB = 2,
    zrAudioLSB = 3,
    zrAudioCW = 4
} ZrAudioType;

typedef ZR_ENUM(ZrTriggerType) {
    zrTriggerTypeImmediate = 0,
    zrTriggerTypeVideo = 1,
    zrTriggerTypeExternal = 2,
    zrTriggerTypeFrequencyMask = 3
} ZrTriggerType;

/* Written unchanged into the instrument's trigger bits; which physical edge
 * each value selects is a property of the instrument's trigger input. */
typedef ZR_ENUM(ZrTriggerEdge) { zrTriggerEdge0 = 0, zrTriggerEdge1 = 1 } ZrTriggerEdge;

typedef ZR_ENUM(ZrPowerState) { zrPowerStateOn = 0, zrPowerStateStandby = 1 } ZrPowerState;

/* ------------------------------------------------------------------------
 * Settings records. Layout is part of the interface: 15 slots of 8 bytes.
 * Fields after windowBandwidth's predecessors marked "plan" are derived by
 * zrConfigure and read back here.
 * ---------------------------------------------------------------------- */

typedef struct ZrSweepSettings {
    ZrSweepSpeed speed;        /* slot 0, first 4 bytes */
    int32_t reserved0;
    double center;             /* Hz */
    double span;               /* Hz */
    double rbw;                /* Hz */
    double vbw;                /* Hz */
    ZrDetector detector;       /* slot 5 */
    ZrScale scale;
    ZrVideoUnits videoUnits;   /* slot 6 */
    int32_t spurReject;
    ZrWindowType window;       /* slot 7, first 4 bytes */
    int32_t reserved1;
    double sweepTime;          /* seconds */
    double actualRBW;          /* plan */
    double actualVBW;          /* plan */
    int32_t sweepLength;       /* plan; slot 11, first 4 bytes */
    int32_t reserved2;
    double startFreq;          /* plan, Hz */
    double binSize;            /* plan, Hz */
    double windowBandwidth;    /* plan */
} ZrSweepSettings;

typedef struct ZrRealTimeSettings {
    double center;             /* Hz */
    double span;               /* Hz */
    double rbw;                /* Hz */
    ZrDetector detector;       /* slot 3 */
    ZrScale scale;
    double refLevel;           /* dBm: top of the density frame */
    double dynamicRange;       /* dB: height of the density frame */
    ZrWindowType window;       /* slot 6, first 4 bytes */
    int32_t reserved0;
    double actualRBW;          /* plan */
    int32_t sweepLength;       /* plan; slot 8, first 4 bytes */
    int32_t reserved1;
    double startFreq;          /* plan */
    double binSize;            /* plan */
    int32_t frameWidth;        /* plan; slot 11 */
    int32_t frameHeight;       /* plan; always 256 */
    uint8_t reserved2[8];
    double windowBandwidth;    /* plan */
    double poi;                /* plan, seconds */
} ZrRealTimeSettings;

/* ------------------------------------------------------------------------
 * Frame
 * ---------------------------------------------------------------------- */

ZR_EXPORT const char* zrGetAPIVersion(void);
ZR_EXPORT const char* zrGetProductID(void);
ZR_EXPORT const char* zrGetErrorString(int status);
ZR_EXPORT const char* zrConfigUSBGetErrorString(ZrInitStatus status);

/* Reserved entry points: check the handle, do nothing else. Further
 * arguments are ignored. */
ZR_EXPORT ZrStatus zrSetCustomFreq(int device, ...);
ZR_EXPORT ZrStatus zrSetCustomRegister(int device, ...);
ZR_EXPORT ZrStatus zrGetFPGABuildInfo(int device, ...);
ZR_EXPORT ZrStatus zrIsSecondaryBuildPresent(int device, ...);
ZR_EXPORT ZrStatus zrReplaceSecondaryBuild(int device, ...);
ZR_EXPORT ZrStatus zrSwitchFPGABuild(int device, ...);

/* Custom data needs an engine that no mode creates: after the checks these
 * answer zrInvalidConfigurationErr. */
ZR_EXPORT ZrStatus zrStartCustomData(int device, int count, void* buffer);
ZR_EXPORT ZrStatus zrFinishCustomData(int device);

/* ------------------------------------------------------------------------
 * Device identity and queries
 * ---------------------------------------------------------------------- */

ZR_EXPORT ZrStatus zrGetDeviceInfo(int device, ZrDeviceType* type, int* serial);
ZR_EXPORT ZrStatus zrGetFirmwareVersion(int device, int* major, int* minor, int* revision);
ZR_EXPORT ZrStatus zrHasIFOutput(int device, ZrBool* present);
ZR_EXPORT ZrStatus zrGetSweepSettings(int device, ZrSweepSettings* settings);
ZR_EXPORT ZrStatus zrGetSweepParameters(int device, double* actualRBW, double* actualVBW,
                                        double* actualStartFreq, double* binSize,
                                        int* sweepSize);
ZR_EXPORT ZrStatus zrGetRealTimeSettings(int device, ZrRealTimeSettings* settings);
ZR_EXPORT ZrStatus zrGetRealTimeParameters(int device, double* actualRBW, int* sweepSize,
                                           double* actualStartFreq, double* binSize,
                                           int* frameWidth, int* frameHeight, double* poi);
/* The running stream's rate and bandwidth as its plan limited them (the
 * segmented mode answers 250 MS/s and 160 MHz); either pointer may be null. */
ZR_EXPORT ZrStatus zrGetIQParameters(int device, double* sampleRate, double* bandwidth);
ZR_EXPORT ZrStatus zrGetIQCenterFreq(int device, double* center);
/* The factor 32fc samples carry: sqrt(10^(gainDb/10)). 16sc samples are
 * delivered unscaled; mapped to full scale 1.0 and multiplied by it they
 * equal the 32fc samples. */
ZR_EXPORT ZrStatus zrGetIQCorrection(int device, float* scale);
ZR_EXPORT ZrStatus zrGetIQSweepListSteps(int device, int* steps);

/* ------------------------------------------------------------------------
 * Settings. Setters store (clamped) values and talk to no instrument; a new
 * value takes effect at the next zrConfigure. Clamped values answer
 * zrSettingClamped; non-finite doubles are rejected with
 * zrInvalidParameterErr. Frequencies are limited to 9 kHz .. the model's
 * maximum.
 * ---------------------------------------------------------------------- */

ZR_EXPORT ZrStatus zrSetSweepSpeed(int device, ZrSweepSpeed speed);
ZR_EXPORT ZrStatus zrSetSweepCenterSpan(int device, double center, double span);
ZR_EXPORT ZrStatus zrSetSweepStartStop(int device, double start, double stop);
ZR_EXPORT ZrStatus zrSetSweepCoupling(int device, double rbw, double vbw, double sweepTime);
ZR_EXPORT ZrStatus zrSetSweepDetector(int device, ZrDetector detector, ZrVideoUnits units);
ZR_EXPORT ZrStatus zrSetSweepScale(int device, ZrScale scale);
ZR_EXPORT ZrStatus zrSetSweepWindow(int device, ZrWindowType window);
ZR_EXPORT ZrStatus zrSetSweepSpurReject(int device, ZrBool enabled);

ZR_EXPORT ZrStatus zrSetRealTimeCenterSpan(int device, double center, double span);
ZR_EXPORT ZrStatus zrSetRealTimeRBW(int device, double rbw);
ZR_EXPORT ZrStatus zrSetRealTimeDetector(int device, ZrDetector detector);
ZR_EXPORT ZrStatus zrSetRealTimeScale(int device, ZrScale scale, double refLevel, double dynamicRange);
ZR_EXPORT ZrStatus zrSetRealTimeWindow(int device, ZrWindowType window);

ZR_EXPORT ZrStatus zrSetIQBaseSampleRate(int device, ZrIQBaseRate rate);
ZR_EXPORT ZrStatus zrSetIQDataType(int device, ZrDataType type);
ZR_EXPORT ZrStatus zrSetIQCenterFreq(int device, double center);
/* decimation: a power of two, 1 to 4096; otherwise zrInvalidIQDecimationErr */
ZR_EXPORT ZrStatus zrSetIQSampleRate(int device, int decimation);
ZR_EXPORT ZrStatus zrSetIQBandwidth(int device, ZrBool softwareFilter, double bandwidth);
ZR_EXPORT ZrStatus zrSetIQExtTriggerEdge(int device, ZrTriggerEdge edge);
/* Process-wide: the value written where no trigger was found. No handle. */
ZR_EXPORT ZrStatus zrSetIQTriggerSentinel(double sentinel);
/* 5.24288 to 41.94304 ms, clamped silently. */
ZR_EXPORT ZrStatus zrSetIQQueueSize(int device, float milliseconds);
ZR_EXPORT ZrStatus zrSetIQUSBQueueSize(int device, float milliseconds);

ZR_EXPORT ZrStatus zrSetIQSweepListDataType(int device, ZrDataType type);
ZR_EXPORT ZrStatus zrSetIQSweepListCorrected(int device, ZrBool corrected);
ZR_EXPORT ZrStatus zrSetIQSweepListSteps(int device, int steps);
ZR_EXPORT ZrStatus zrSetIQSweepListFreq(int device, int step, double freq);
ZR_EXPORT ZrStatus zrSetIQSweepListRef(int device, int step, double refLevel);
ZR_EXPORT ZrStatus zrSetIQSweepListAtten(int device, int step, int atten);
ZR_EXPORT ZrStatus zrSetIQSweepListSampleCount(int device, int step, uint32_t samples);

/* Segmented family: zrInvalidDeviceErr on models without capture memory. */
ZR_EXPORT ZrStatus zrSetSegIQDataType(int device, ZrDataType type);
ZR_EXPORT ZrStatus zrSetSegIQCenterFreq(int device, double center);
ZR_EXPORT ZrStatus zrSetSegIQVideoTrigger(int device, double level, ZrTriggerEdge edge);
ZR_EXPORT ZrStatus zrSetSegIQExtTrigger(int device, ZrTriggerEdge edge);
ZR_EXPORT ZrStatus zrSetSegIQFMTParams(int device, int fftSize, const double* frequencies,
                                       const double* amplitudes, int count);
ZR_EXPORT ZrStatus zrSetSegIQSegmentCount(int device, int count);
ZR_EXPORT ZrStatus zrSetSegIQSegment(int device, int segment, ZrTriggerType type, int preTrigger,
                                     uint32_t captureSize, double timeout);

ZR_EXPORT ZrStatus zrSetAudioCenterFreq(int device, double center);
ZR_EXPORT ZrStatus zrSetAudioType(int device, ZrAudioType type);
ZR_EXPORT ZrStatus zrSetAudioFilters(int device, double ifBandwidth, double lowPass, double highPass);
ZR_EXPORT ZrStatus zrSetAudioFMDeemphasis(int device, double microseconds);

/* Audio mode: the next 1000 samples (32 ms at 31250 samples per second) of
 * demodulated audio, in order. AM gives the modulation depth (a carrier at
 * depth 0.5 reads as a sine of amplitude 0.5); FM the frequency deviation
 * scaled by 160000 / IF bandwidth, in radians per sample at 312.5 kS/s,
 * after the de-emphasis; USB, LSB and CW a sideband normalised to twice
 * the signal's envelope (a single tone reads as amplitude 1). CW hears a
 * carrier at the audio centre as a 520 Hz tone. zrSetAudioType takes effect
 * at the next block; the other audio settings at the next zrConfigure.
 * Waits for the next block (32 ms); a reader more than 29 blocks behind
 * skips to the oldest whole one. zrConnectionLostErr (or the stream's other
 * error) once the stream fails; zrInvalidConfigurationErr outside the mode
 * or when zrAbort from another thread ends it. For one calling thread. */
ZR_EXPORT ZrStatus zrGetAudio(int device, float* audio);

/* VITA 49 packets of the running I/Q stream, as 32-bit words already in
 * network byte order (ready to send). The stream identifier, packet size
 * and counters belong to the device index (0..8) for the life of the
 * process; open and close keep them. Time stamps are the host's UTC when
 * the packet is built (integer seconds since 1970 and picoseconds, at
 * 100 ns resolution). Every 64-bit field (picoseconds, bandwidth, frequency,
 * sample rate) is two words with the low word first.
 *
 * zrGetVrtContextPkt: a 28-word context packet (bandwidth, centre, reference
 * level, attenuation, sample rate, FPGA temperature, device identifier, and
 * the formatted GPS field: time, latitude and longitude in degrees with 22
 * fraction bits, altitude in metres with 5, or 0x7FFFFFFF while GPS is not
 * locked). The change indicator is set when any of it differs from the
 * last context packet. In I/Q streaming and segmented capture only.
 *
 * zrSetVrtPacketSize: samples per data packet, clamped to 128..65529.
 * zrGetVrtPackets: packetCount IF data packets of packetSize + 6 words
 * each (words must hold that many); the samples are 16-bit I (low half) and
 * Q (high half) scaled so that full scale is the reference level. A read's
 * overload, sample loss and validity go into that packet's trailer; the
 * call returns 0, or a read's error with wordCount unwritten. zrNullPtrErr
 * before a packet size is set. */
ZR_EXPORT ZrStatus zrSetVrtStreamID(int device, uint32_t streamID);
ZR_EXPORT ZrStatus zrGetVrtContextPktSize(int device, uint32_t* wordCount);
ZR_EXPORT ZrStatus zrGetVrtContextPkt(int device, uint32_t* words, uint32_t* wordCount);
ZR_EXPORT ZrStatus zrSetVrtPacketSize(int device, uint16_t samples);
ZR_EXPORT ZrStatus zrGetVrtPacketSize(int device, uint16_t* samples, uint32_t* wordCount);
ZR_EXPORT ZrStatus zrGetVrtPackets(int device, uint32_t* words, uint32_t* wordCount, uint32_t packetCount,
                                   ZrBool purge);

ZR_EXPORT ZrStatus zrSetIQFullBandAtten(int device, int atten);
ZR_EXPORT ZrStatus zrSetIQFullBandCorrected(int device, ZrBool corrected);
ZR_EXPORT ZrStatus zrSetIQFullBandSamples(int device, int samples);
ZR_EXPORT ZrStatus zrSetIQFullBandTriggerType(int device, ZrTriggerType type);
ZR_EXPORT ZrStatus zrSetIQFullBandVideoTrigger(int device, double level);
ZR_EXPORT ZrStatus zrSetIQFullBandTriggerTimeout(int device, double seconds);

/* ------------------------------------------------------------------------
 * Discovery. The lists hold USB instruments this process does not have
 * open, at most 9; each non-null array must hold 9 entries.
 * ---------------------------------------------------------------------- */

ZR_EXPORT ZrStatus zrGetDeviceList(int* serials, int* count);
ZR_EXPORT ZrStatus zrGetDeviceList2(int* serials, ZrDeviceType* types, int* count);
/* Resets a USB instrument nobody has open; takes about 3 s either way. */
ZR_EXPORT ZrStatus zrPresetSerial(int serial);

/* ------------------------------------------------------------------------
 * Data folder. The library keeps its error log (mesa_error_log.txt) in one
 * folder and its calibration and timebase caches in cal_files/ below it.
 * By default: /var/lib/Quillon/ when it can be created and written, else
 * ~/.local/share/Quillon/. This sets it for the whole process; call it
 * before the first open. The folder is created if missing.
 * zrNullPtrErr for null, zrInvalidParameterErr for an empty path or one
 * that cannot be created or written.
 * ---------------------------------------------------------------------- */

ZR_EXPORT ZrStatus zrSetDataFolder(const char* path);

/* ------------------------------------------------------------------------
 * Calibration records and their inspection.
 *
 * An instrument carries its factory calibration as one flat little-endian
 * image: MesaCalData (Mesa1/2/3, 525 frequency slices of 39.0625 MHz) or
 * RidgeCalData (Ridge2/3, 1130 slices). The structs below are those images
 * byte for byte; every field sits at a fixed offset and the reserved arrays
 * are part of the layout, so an image read from flash or from a cache file
 * can be used in place. Flash that was never written reads 0xFF, and a
 * field that is all ones means "nothing stored".
 *
 * The first 0x40000 bytes are the head, written at manufacture; the rest is
 * the corrections block. Temperature axes have 11 points (nominally -44 to
 * +66 degrees C in steps of 11), attenuator states 7 (0 to 30 dB), IF
 * columns 28 per slice.
 *
 * Where a function exists for both records, "Mesa" names the MesaCalData
 * form and "Ridge" the RidgeCalData form. Functions taking a plain byte
 * pointer read fields that sit at the same offset in both records. None of
 * these functions touches an instrument; a null pointer makes an inquiry
 * answer false (or 0xFFFFFFFF for dates and versions) and a builder do
 * nothing.
 * ---------------------------------------------------------------------- */

#define ZR_CAL_TEMPERATURES 11
#define ZR_CAL_ATTEN_STATES 7
#define ZR_CAL_IF_COLUMNS 28
#define ZR_CAL_MESA_SLICES 525
#define ZR_CAL_RIDGE_SLICES 1130
#define ZR_CAL_PRESELECT_FILTERS 11
#define ZR_CAL_PRESELECT_POINTS 32
#define ZR_CAL_TIMEBASE_ENTRIES 64
#define ZR_CAL_LOW_FREQ_POINTS 40

typedef struct MesaCalData {
    /* head */
    uint8_t flashHeader[1024];          /* first u32: serial number */
    float loFreq[4][256];               /* MHz, per VCO sub-band and tuning code, at 33 C */
    uint8_t reservedHead[0x40000 - 5120];
    /* corrections, from 0x40000 */
    uint32_t calDate;                   /* seconds since 1970; 0xFFFFFFFF: no corrections */
    uint32_t calVersion;
    float temperature[11];              /* degrees C, ascending */
    uint16_t timebaseValue[64];         /* coarse-tune history, 0xFFFF ends it */
    uint8_t pad0[4];
    uint64_t timebaseDate[64];          /* seconds since 1970 per history entry */
    int16_t timebaseTempOffset[11];
    uint8_t gainCode[525];
    uint8_t pad1[1];
    float lowFreqCorrection[40];        /* dB at 100 kHz + n * 10 kHz */
    float gain[11][7][525];             /* dB by temperature, attenuator, slice */
    float ifRatio[11][525][28];         /* I/Q amplitude ratio per IF column */
    float ifPhase[11][525][28];         /* I/Q phase difference, radians */
    float ifFlatness[11][525][28];      /* dB */
    uint8_t loConfig[11][2625];         /* per temperature and LO index */
    uint8_t pad2[1];
    float preselect[11][11][32];        /* dB by temperature, filter, point */
    uint8_t reservedTail[0x400000 - 0x24C61C];
} MesaCalData;

typedef struct RidgeCalData {
    /* head */
    uint8_t flashHeader[1024];
    uint8_t cbbCore[513];               /* per point of the LO table */
    uint8_t cbbBand[513];
    uint8_t cbbBias[513];
    uint8_t pad0[1];
    float loGateBiasDefault;            /* volts, used while there are no corrections */
    float vva[461];                     /* LO drive per 39.0625 MHz step from 6.015625 GHz */
    int16_t loftI[455];
    int16_t loftQ[455];
    uint32_t ifOutBalance[40];          /* per 500 MHz from 24 GHz */
    uint32_t ifOutGain[40];
    uint32_t usesLTC6947;
    uint8_t reservedHead[0x40000 - 6556];
    /* corrections, from 0x40000 */
    uint32_t calDate;
    uint32_t calVersion;
    uint16_t timebaseValue[64];
    uint64_t timebaseDate[64];
    int16_t timebaseTempOffset[11];
    uint8_t pad1[2];
    float temperature[11];
    float loGateBias[11];               /* volts by temperature */
    uint8_t gainCode[1130];
    uint8_t pad2[2];
    float lowFreqCorrection[40];
    float gain[11][7][1130];
    float ifRatio[11][1130][28];
    float ifPhase[11][1130][28];
    float ifFlatness[11][1130][28];
    uint32_t band5Gain[435];            /* per 39.0625 MHz from 24.0234375 GHz */
    uint32_t band6Balance[11][81];      /* by temperature, per 39.0625 MHz from 41.015625 GHz */
    uint32_t band6Gain[11][81];
    float preselect[11][11][32];
    uint8_t reservedTail[0x7FFFF8 - 0x497110];
    uint32_t checksum;                  /* word sum, timebase history excluded */
    uint8_t pad3[4];
} RidgeCalData;

/* Nominal temperature of a table index; the index is clamped to 0..10. */
ZR_EXPORT double zrCalGetTempFromIndex(int index);
/* Bytes of the image that carry tables: 4813082 (ridge) or 2410016. */
ZR_EXPORT int zrCalGetCalSizeUsed(bool ridge);
/* The later of calDate and the dates of the stored timebase history, low
 * 32 bits. The byte form needs to be told which record it is. */
ZR_EXPORT uint32_t zrCalGetCorrectionCalDate(const uint8_t* image, bool ridge);
ZR_EXPORT uint32_t zrCalGetCorrectionCalDateMesa(const MesaCalData* image);
ZR_EXPORT uint32_t zrCalGetCorrectionCalDateRidge(const RidgeCalData* image);
ZR_EXPORT uint32_t zrCalGetCalVersion(const uint8_t* image);
ZR_EXPORT bool zrCalDoesFlashHeaderExist(const MesaCalData* image);
ZR_EXPORT bool zrCalDoesPretestDataExist(const uint8_t* image);
ZR_EXPORT bool zrCalDoesCBBDataExist(const RidgeCalData* image);
ZR_EXPORT bool zrCalDoesLOFTDataExist(const RidgeCalData* image);
ZR_EXPORT bool zrCalDoesOptIFDataExist(const RidgeCalData* image);
ZR_EXPORT bool zrCalDoesCorrectionsExist(const uint8_t* image);
/* Reads a whole image (0x400000 or 0x800000 bytes) from a file. False for a
 * null path, a file that cannot be opened or one that is too short; the
 * image may then hold part of the file. */
ZR_EXPORT bool zrCalCorrectionLoadFromFileMesa(const char* path, MesaCalData* image);
ZR_EXPORT bool zrCalCorrectionLoadFromFileRidge(const char* path, RidgeCalData* image);
/* Fills the image with the neutral tables that leave a measurement
 * uncorrected; the image then reports no corrections. */
ZR_EXPORT void zrCalBuildDummyCorrectionsMesa(MesaCalData* image);
ZR_EXPORT void zrCalBuildDummyCorrectionsRidge(RidgeCalData* image);
/* Fills temperature index `to` from index `from` for an instrument that was
 * calibrated at one temperature. Indices outside 0..10 change nothing. */
ZR_EXPORT void zrCalPropagateSingleTempCalMesa(MesaCalData* image, int from, int to);
ZR_EXPORT void zrCalPropagateSingleTempCalRidge(RidgeCalData* image, int from, int to);
/* Edges and point spacing in Hz of preselector filter 0..10. Another
 * filter number leaves the outputs untouched; null outputs are skipped. */
ZR_EXPORT void zrCalGetPreselectFilterInfo(int filter, double* start, double* stop, double* step);

/* ------------------------------------------------------------------------
 * Device services outside the measurement modes. Calls that send to the
 * instrument answer its transport status: zrConnectionLostErr once a
 * transfer has failed. Port and power calls need idle, or sweeping with no
 * sweep in flight; reference and fan calls need idle.
 * ---------------------------------------------------------------------- */

/* zrGetFullDeviceDiagnostics: supply and temperatures of the last status. */
typedef struct ZrDeviceDiagnostics {
    float voltage;       /* V */
    float currentInput;  /* A */
    float currentB;
    float currentC;
    float tempFPGA;      /* degC */
    float tempSensorD;
    float tempSensorE;
    float tempSensorC;
    float tempCal;       /* the temperature corrections and drift work from */
    float tempSensorA;
} ZrDeviceDiagnostics;

/* One entry of the port table a sweep walks: from `frequency` on, the GPIO
 * port shows `mask`. */
typedef struct ZrGPIOStep {
    double frequency;   /* Hz */
    uint8_t mask;
    uint8_t reserved[7];
} ZrGPIOStep;

ZR_EXPORT ZrStatus zrSetPowerState(int device, ZrPowerState state);
ZR_EXPORT ZrStatus zrGetPowerState(int device, ZrPowerState* state);
/* -1 automatic, 0..6 in 5 dB steps; held to that range silently. */
ZR_EXPORT ZrStatus zrSetAttenuator(int device, int atten);
ZR_EXPORT ZrStatus zrGetAttenuator(int device, int* atten);
/* dBm, capped at +20 silently. */
ZR_EXPORT ZrStatus zrSetRefLevel(int device, double dBm);
ZR_EXPORT ZrStatus zrGetRefLevel(int device, double* dBm);
ZR_EXPORT ZrStatus zrSetPreselector(int device, ZrBool enabled);
ZR_EXPORT ZrStatus zrGetPreselector(int device, ZrBool* enabled);
ZR_EXPORT ZrStatus zrSetGPIOState(int device, int directionA, int directionB);
ZR_EXPORT ZrStatus zrGetGPIOState(int device, int* directionA, int* directionB);
ZR_EXPORT ZrStatus zrWriteGPIOImm(int device, uint8_t value);
ZR_EXPORT ZrStatus zrReadGPIOImm(int device, uint8_t* value);
/* byteCount 1..4 */
ZR_EXPORT ZrStatus zrWriteSPI(int device, uint32_t data, int byteCount);
ZR_EXPORT ZrStatus zrSetGPIOSweep(int device, const ZrGPIOStep* steps, int count);
ZR_EXPORT ZrStatus zrSetGPIOSweepDisabled(int device);
/* durations in bits 21..0 units; clamped to 1..0x3FFFFE with zrSettingClamped */
ZR_EXPORT ZrStatus zrSetGPIOSwitching(int device, const uint8_t* values, const uint32_t* durations, int count);
ZR_EXPORT ZrStatus zrSetGPIOSwitchingDisabled(int device);
ZR_EXPORT ZrStatus zrSetReference(int device, int value);
ZR_EXPORT ZrStatus zrGetReference(int device, int* value);
ZR_EXPORT ZrStatus zrSetExternalReference(int device, int value);
ZR_EXPORT ZrStatus zrGetExternalReference(int device, int* value);
ZR_EXPORT ZrStatus zrGetDeviceDiagnostics(int device, float* voltage, float* current, float* temperature);
ZR_EXPORT ZrStatus zrGetFullDeviceDiagnostics(int device, ZrDeviceDiagnostics* diagnostics);
/* Types 2 and above (Mesa3, Ridge2, Ridge3); others get zeros and zrInvalidConfigurationErr. */
ZR_EXPORT ZrStatus zrGetSFPDiagnostics(int device, float* temperature, float* voltage, float* txPower,
                                       float* rxPower);
/* degC, held to 10..90 silently */
ZR_EXPORT ZrStatus zrSetFanThreshold(int device, int celsius);
/* Ridge models with IF output entries in their calibration: routes the RF
 * at `frequency` (24 to 43.5 GHz) to the IF output port; idle only. */
ZR_EXPORT ZrStatus zrSetIFOutput(int device, double frequency);
ZR_EXPORT ZrStatus zrGetFanThreshold(int device, int* celsius);
/* Seconds since 1970 of the newest of the calibration and timebase entries
 * in use; 0xFFFFFFFF for an instrument without corrections. */
ZR_EXPORT ZrStatus zrGetCalDate(int device, uint64_t* seconds);

/* ---- Signal processing without a device ---------------------------------- */
/* Resamples complex f32 capture data from 250 MS/s to 245.76 MS/s. inputLen
 * and *outputLen count complex samples; *outputLen gives the room in output on
 * entry (at least 33) and the samples written on return. */
ZR_EXPORT ZrStatus zrSegIQLTEResample(float* input, int inputLen, float* output, int* outputLen,
                                      ZrBool clearDelayLine);

/* GPS. The timebase update (register 0x002E bit 3) lets a locked receiver
   steer the instrument's oscillator; changing it needs zrModeIdle. */
ZR_EXPORT ZrStatus zrSetGPSTimebaseUpdate(int device, ZrBool enabled);
ZR_EXPORT ZrStatus zrGetGPSTimebaseUpdate(int device, ZrBool* enabled);
/* usingHoldover: the timebase cache is newer than the calibration's
   timebase history (left as given when there is no cache file);
   lastHoldoverTime: seconds since 1970 of the cached value, 0 if none. */
ZR_EXPORT ZrStatus zrGetGPSHoldoverInfo(int device, ZrBool* usingHoldover, uint64_t* lastHoldoverTime);
/* state: 0 no lock, 1 locked, 2 locked and disciplining the timebase.
   Reads a fresh status in zrModeIdle. */
ZR_EXPORT ZrStatus zrGetGPSState(int device, int* state);
/* All pointers optional. secSinceEpoch: the last pulse's UTC in whole seconds
   since 1970. nmeaLen: capacity of nmea in, bytes written with the
   terminator out. Without a lock: zeros and zrGPSNotLockedErr. */
ZR_EXPORT ZrStatus zrGetGPSInfo(int device, ZrBool refresh, ZrBool* updated, int64_t* secSinceEpoch,
                                double* latitude, double* longitude, double* altitude, char* nmea,
                                int* nmeaLen);
/* Raw bytes for the GPS receiver, 1 to 1020, in zrModeIdle. */
ZR_EXPORT ZrStatus zrWriteToGPS(int device, const uint8_t* data, int length);

/* ---- Opening, closing and modes ----
 * An open brings the instrument to a running, calibrated, idle state and
 * stores a handle (0..8). zrUpdateAPI and zrInvalidCalData are warnings:
 * the handle is valid. zrConfigure stops whatever runs and enters a mode;
 * zrAbort leaves the device idle. */
ZR_EXPORT ZrStatus zrOpenDevice(int* device);
ZR_EXPORT ZrStatus zrOpenDeviceBySerial(int* device, int serial);
ZR_EXPORT ZrStatus zrCloseDevice(int device);
ZR_EXPORT ZrStatus zrPreset(int device);
ZR_EXPORT ZrStatus zrConfigure(int device, ZrMode mode);
ZR_EXPORT ZrStatus zrAbort(int device);
ZR_EXPORT ZrStatus zrGetCurrentMode(int device, ZrMode* mode);

/* ---- Sweeps ----
 * A sweep queue of 16 positions (0..15): zrStartSweep queues a sweep,
 * zrFinishSweep waits for it and copies sweepLength values to each trace
 * that is not null. zrGetSweep is both at position 0. The narrow-span
 * engine acquires inside the finish and ignores positions.
 * timestamp (optional): when the sweep's last status block was taken, in ns
 * since 1970 UTC; from the instrument's GPS time while it has a fix, else
 * from the host clock carried on by the instrument's tick counter.
 * Threads: the three sweep calls of one device are for one calling thread;
 * zrAbort from another waits for sweeps in flight. */
ZR_EXPORT ZrStatus zrStartSweep(int device, int position);
ZR_EXPORT ZrStatus zrFinishSweep(int device, int position, float* sweepMin, float* sweepMax, int64_t* timestamp);
ZR_EXPORT ZrStatus zrGetSweep(int device, float* sweepMin, float* sweepMax, int64_t* timestamp);

/* ---- I/Q streaming ----
 * zrConfigure(zrModeIQStreaming) starts a gapless stream at base /
 * decimation samples per second (zrGetIQParameters), centred on the I/Q
 * centre; zrGetIQ reads the next iqBufSize samples of it, waiting until they
 * have arrived. Samples are interleaved I and Q of the I/Q data type; 32fc
 * values are calibrated: |x|^2 is the power in mW, so a tone of P dBm has
 * 10*log10(mean |x|^2) = P.
 *
 * triggers (may be null only with triggerBufSize 0) receives the positions,
 * in samples of iqBuf (fractional), of the external triggers inside the
 * samples returned; the entries left over hold the trigger sentinel.
 * nsSinceEpoch: UTC of iqBuf's first sample in ns since 1970, from the
 * instrument's GPS time when it has a fix, else from the host clock carried
 * on by the instrument's tick counter; consecutive calls are contiguous.
 * purge exactly zrTrue drops what the library holds first. sampleLoss is 1
 * when samples were lost since the last call (the reader fell more than
 * half a second behind, or the host could not keep up): the samples after
 * the gap carry their own correct time. samplesRemaining: held samples
 * still to read. The three outputs may be null and are written only when
 * the result is not an error.
 *
 * Results, later ones overriding: zrTempDriftWarning; zrADCOverflow
 * (overload since the last call); zrUncalData (the instrument lost samples);
 * zrSyncErr (a bad status block). zrConnectionLostErr within one transfer
 * time-out of a lost link. For one calling thread; zrAbort from another
 * thread makes it return with what it has. */
ZR_EXPORT ZrStatus zrGetIQ(int device, void* iqBuf, int iqBufSize, double* triggers, int triggerBufSize,
                           int64_t* nsSinceEpoch, ZrBool purge, int* sampleLoss, int* samplesRemaining);

#ifdef __cplusplus
}
#endif

#endif /* ZR_API_H */
