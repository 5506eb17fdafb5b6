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
 * device, and two opens of any devices, must be serialised by the caller;
 * calls on different handles may run on different threads.
 */
#ifndef ZR_API_H
#define ZR_API_H

#include <stdint.h>

#if defined(_WIN32)
#define ZR_EXPORT __declspec(dllexport)
#else
#define ZR_EXPORT __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------------------
 * Status codes
 * ---------------------------------------------------------------------- */

typedef enum ZrStatus {
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
typedef enum ZrInitStatus {
    zrInitNoError = 0,
    zrInitDeviceAlreadyOpen = 1,
    zrInitDeviceNotFound = 2,
    zrInitInvalidDevice = 3,
    zrInitNullPtr = 4,
    zrInitDeviceNotConnected = 5,
    zrInitTransferError = 6,
    zrInitFileIOError = 7
} ZrInitStatus;

typedef enum ZrBool { zrFalse = 0, zrTrue = 1 } ZrBool;

/* ------------------------------------------------------------------------
 * Models and setting enumerations. A function taking any of these rejects
 * values above the last member with zrInvalidParameterErr.
 * ---------------------------------------------------------------------- */

typedef enum ZrDeviceType {
    zrDeviceTypeMesa1 = 0,  /* USB, 20.6 GHz */
    zrDeviceTypeMesa2 = 1,  /* USB, 20.6 GHz, capture memory */
    zrDeviceTypeMesa3 = 2,  /* network, 20.6 GHz */
    zrDeviceTypeRidge2 = 3, /* USB, 44.2 GHz, capture memory, IF output */
    zrDeviceTypeRidge3 = 4  /* network, 44.2 GHz, IF output */
} ZrDeviceType;

typedef enum ZrMode {
    zrModeIdle = 0,
    zrModeSweeping = 1,
    zrModeRealTime = 2,
    zrModeIQStreaming = 3,
    zrModeAudio = 4,
    zrModeIQSegmentedCapture = 5,
    zrModeIQSweepList = 6
} ZrMode;

typedef enum ZrSweepSpeed {
    zrSweepSpeedAuto = 0,
    zrSweepSpeedNormal = 1,
    zrSweepSpeedFast = 2
} ZrSweepSpeed;

typedef enum ZrDetector { zrDetectorAverage = 0, zrDetectorMinMax = 1 } ZrDetector;

typedef enum ZrScale {
    zrScaleLog = 0, /* dBm */
    zrScaleLin = 1  /* mV */
} ZrScale;

typedef enum ZrVideoUnits {
    zrVideoLog = 0,
    zrVideoVoltage = 1,
    zrVideoPower = 2,
    zrVideoSample = 3
} ZrVideoUnits;

/* 1 is not a member: setters reject it. */
typedef enum ZrWindowType {
    zrWindowFlatTop = 0,
    zrWindowNuttall = 2,
    zrWindowBlackman = 3,
    zrWindowHamming = 4,
    zrWindowGaussian = 5,
    zrWindowRect = 6
} ZrWindowType;

typedef enum ZrDataType {
    zrDataType32fc = 0, /* interleaved 32-bit float I and Q */
    zrDataType16sc = 1  /* interleaved 16-bit integer I and Q */
} ZrDataType;

typedef enum ZrIQBaseRate {
    zrIQBaseRate50M = 0,  /* 50 MS/s */
    zrIQBaseRate61M44 = 1 /* 61.44 MS/s */
} ZrIQBaseRate;

typedef enum ZrAudioType {
    zrAudioAM = 0,
    zrAudioFM = 1,
    zrAudioUSB = 2,
    zrAudioLSB = 3,
    zrAudioCW = 4
} ZrAudioType;

typedef enum ZrTriggerType {
    zrTriggerTypeImmediate = 0,
    zrTriggerTypeVideo = 1,
    zrTriggerTypeExternal = 2,
    zrTriggerTypeFrequencyMask = 3
} ZrTriggerType;

/* Written unchanged into the instrument's trigger bits; which physical edge
 * each value selects is a property of the instrument's trigger input. */
typedef enum ZrTriggerEdge { zrTriggerEdge0 = 0, zrTriggerEdge1 = 1 } ZrTriggerEdge;

typedef enum ZrPowerState { zrPowerStateOn = 0, zrPowerStateStandby = 1 } ZrPowerState;

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
ZR_EXPORT ZrStatus zrGetIQParameters(int device, double* sampleRate, double* bandwidth);
ZR_EXPORT ZrStatus zrGetIQCenterFreq(int device, double* center);
ZR_EXPORT ZrStatus zrGetIQSweepListSteps(int device, int* steps);

/* ---- Signal processing without a device ---------------------------------- */
/* Resamples complex f32 capture data from 250 MS/s to 245.76 MS/s. inputLen
 * and *outputLen count complex samples; *outputLen gives the room in output on
 * entry (at least 33) and the samples written on return. */
ZR_EXPORT ZrStatus zrSegIQLTEResample(float* input, int inputLen, float* output, int* outputLen,
                                      ZrBool clearDelayLine);

#ifdef __cplusplus
}
#endif

#endif /* ZR_API_H */
