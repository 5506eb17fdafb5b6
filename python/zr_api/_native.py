"""The C interface as ctypes sees it. Written by generate_bindings.py from
include/zr_api.h and include/zr_sim.h; do not edit."""
from ctypes import (POINTER, Structure, c_bool, c_char, c_char_p, c_double, c_float, c_int,
                    c_int16, c_int32, c_int64, c_uint8, c_uint16, c_uint32, c_uint64, c_void_p)
from enum import IntEnum

ZR_CAL_ATTEN_STATES = 7
ZR_CAL_IF_COLUMNS = 28
ZR_CAL_LOW_FREQ_POINTS = 40
ZR_CAL_MESA_SLICES = 525
ZR_CAL_PRESELECT_FILTERS = 11
ZR_CAL_PRESELECT_POINTS = 32
ZR_CAL_RIDGE_SLICES = 1130
ZR_CAL_TEMPERATURES = 11
ZR_CAL_TIMEBASE_ENTRIES = 64



class ZrStatus(IntEnum):
    zrCalErr = -1003
    zrMeasErr = -1002
    zrFlashVerifyErr = -1001
    zrInvalidCalFileVersionErr = -200
    zrInvalidCenterFreqErr = -101
    zrInvalidIQDecimationErr = -100
    zrJESDErr = -54
    zrNetworkErr = -53
    zrFX3LoadErr = -52
    zrMaxDevicesErr = -51
    zrFPGABootErr = -50
    zrBootErr = -49
    zrGPSNotLockedErr = -16
    zrInvalidAPIVersionErr = -14
    zrAllocationErr = -13
    zrSyncErr = -11
    zrInvalidSweepPositionErr = -10
    zrInvalidConfigurationErr = -8
    zrConnectionLostErr = -6
    zrInvalidParameterErr = -5
    zrNullPtrErr = -4
    zrInvalidDeviceErr = -3
    zrDeviceNotFoundErr = -2
    zrNoError = 0
    zrSettingClamped = 1
    zrADCOverflow = 2
    zrUncalData = 3
    zrTempDriftWarning = 4
    zrSpanLimitedByPreselector = 5
    zrTempHighWarning = 6
    zrCPULimited = 7
    zrUpdateAPI = 8
    zrInvalidCalData = 9


class ZrInitStatus(IntEnum):
    zrInitNoError = 0
    zrInitDeviceAlreadyOpen = 1
    zrInitDeviceNotFound = 2
    zrInitInvalidDevice = 3
    zrInitNullPtr = 4
    zrInitDeviceNotConnected = 5
    zrInitTransferError = 6
    zrInitFileIOError = 7


class ZrBool(IntEnum):
    zrFalse = 0
    zrTrue = 1


class ZrDeviceType(IntEnum):
    zrDeviceTypeMesa1 = 0
    zrDeviceTypeMesa2 = 1
    zrDeviceTypeMesa3 = 2
    zrDeviceTypeRidge2 = 3
    zrDeviceTypeRidge3 = 4


class ZrMode(IntEnum):
    zrModeIdle = 0
    zrModeSweeping = 1
    zrModeRealTime = 2
    zrModeIQStreaming = 3
    zrModeAudio = 4
    zrModeIQSegmentedCapture = 5
    zrModeIQSweepList = 6


class ZrSweepSpeed(IntEnum):
    zrSweepSpeedAuto = 0
    zrSweepSpeedNormal = 1
    zrSweepSpeedFast = 2


class ZrDetector(IntEnum):
    zrDetectorAverage = 0
    zrDetectorMinMax = 1


class ZrScale(IntEnum):
    zrScaleLog = 0
    zrScaleLin = 1


class ZrVideoUnits(IntEnum):
    zrVideoLog = 0
    zrVideoVoltage = 1
    zrVideoPower = 2
    zrVideoSample = 3


class ZrWindowType(IntEnum):
    zrWindowFlatTop = 0
    zrWindowNuttall = 2
    zrWindowBlackman = 3
    zrWindowHamming = 4
    zrWindowGaussian = 5
    zrWindowRect = 6


class ZrDataType(IntEnum):
    zrDataType32fc = 0
    zrDataType16sc = 1


class ZrIQBaseRate(IntEnum):
    zrIQBaseRate50M = 0
    zrIQBaseRate61M44 = 1


class ZrAudioType(IntEnum):
    zrAudioAM = 0
    zrAudioFM = 1
    zrAudioUSB = 2
    zrAudioLSB = 3
    zrAudioCW = 4


class ZrTriggerType(IntEnum):
    zrTriggerTypeImmediate = 0
    zrTriggerTypeVideo = 1
    zrTriggerTypeExternal = 2
    zrTriggerTypeFrequencyMask = 3


class ZrTriggerEdge(IntEnum):
    zrTriggerEdge0 = 0
    zrTriggerEdge1 = 1


class ZrPowerState(IntEnum):
    zrPowerStateOn = 0
    zrPowerStateStandby = 1


class ZrSimFault(IntEnum):
    zrSimFaultADCOverflow = 0
    zrSimFaultSampleLoss = 1
    zrSimFaultBadMagic = 2
    zrSimFaultFFTDataLoss = 3
    zrSimFaultDropDatagram = 4
    zrSimFaultStopAnswering = 5


class ZrSweepSettings(Structure):
    _fields_ = [
        ('speed', c_int32),
        ('reserved0', c_int32),
        ('center', c_double),
        ('span', c_double),
        ('rbw', c_double),
        ('vbw', c_double),
        ('detector', c_int32),
        ('scale', c_int32),
        ('videoUnits', c_int32),
        ('spurReject', c_int32),
        ('window', c_int32),
        ('reserved1', c_int32),
        ('sweepTime', c_double),
        ('actualRBW', c_double),
        ('actualVBW', c_double),
        ('sweepLength', c_int32),
        ('reserved2', c_int32),
        ('startFreq', c_double),
        ('binSize', c_double),
        ('windowBandwidth', c_double),
    ]


class ZrRealTimeSettings(Structure):
    _fields_ = [
        ('center', c_double),
        ('span', c_double),
        ('rbw', c_double),
        ('detector', c_int32),
        ('scale', c_int32),
        ('refLevel', c_double),
        ('dynamicRange', c_double),
        ('window', c_int32),
        ('reserved0', c_int32),
        ('actualRBW', c_double),
        ('sweepLength', c_int32),
        ('reserved1', c_int32),
        ('startFreq', c_double),
        ('binSize', c_double),
        ('frameWidth', c_int32),
        ('frameHeight', c_int32),
        ('reserved2', (c_uint8) * 8),
        ('windowBandwidth', c_double),
        ('poi', c_double),
    ]


class MesaCalData(Structure):
    _fields_ = [
        ('flashHeader', (c_uint8) * 1024),
        ('loFreq', ((c_float) * 256) * 4),
        ('reservedHead', (c_uint8) * (0x40000 - 5120)),
        ('calDate', c_uint32),
        ('calVersion', c_uint32),
        ('temperature', (c_float) * 11),
        ('timebaseValue', (c_uint16) * 64),
        ('pad0', (c_uint8) * 4),
        ('timebaseDate', (c_uint64) * 64),
        ('timebaseTempOffset', (c_int16) * 11),
        ('gainCode', (c_uint8) * 525),
        ('pad1', (c_uint8) * 1),
        ('lowFreqCorrection', (c_float) * 40),
        ('gain', (((c_float) * 525) * 7) * 11),
        ('ifRatio', (((c_float) * 28) * 525) * 11),
        ('ifPhase', (((c_float) * 28) * 525) * 11),
        ('ifFlatness', (((c_float) * 28) * 525) * 11),
        ('loConfig', ((c_uint8) * 2625) * 11),
        ('pad2', (c_uint8) * 1),
        ('preselect', (((c_float) * 32) * 11) * 11),
        ('reservedTail', (c_uint8) * (0x400000 - 0x24C61C)),
    ]


class RidgeCalData(Structure):
    _fields_ = [
        ('flashHeader', (c_uint8) * 1024),
        ('cbbCore', (c_uint8) * 513),
        ('cbbBand', (c_uint8) * 513),
        ('cbbBias', (c_uint8) * 513),
        ('pad0', (c_uint8) * 1),
        ('loGateBiasDefault', c_float),
        ('vva', (c_float) * 461),
        ('loftI', (c_int16) * 455),
        ('loftQ', (c_int16) * 455),
        ('ifOutBalance', (c_uint32) * 40),
        ('ifOutGain', (c_uint32) * 40),
        ('usesLTC6947', c_uint32),
        ('reservedHead', (c_uint8) * (0x40000 - 6556)),
        ('calDate', c_uint32),
        ('calVersion', c_uint32),
        ('timebaseValue', (c_uint16) * 64),
        ('timebaseDate', (c_uint64) * 64),
        ('timebaseTempOffset', (c_int16) * 11),
        ('pad1', (c_uint8) * 2),
        ('temperature', (c_float) * 11),
        ('loGateBias', (c_float) * 11),
        ('gainCode', (c_uint8) * 1130),
        ('pad2', (c_uint8) * 2),
        ('lowFreqCorrection', (c_float) * 40),
        ('gain', (((c_float) * 1130) * 7) * 11),
        ('ifRatio', (((c_float) * 28) * 1130) * 11),
        ('ifPhase', (((c_float) * 28) * 1130) * 11),
        ('ifFlatness', (((c_float) * 28) * 1130) * 11),
        ('band5Gain', (c_uint32) * 435),
        ('band6Balance', ((c_uint32) * 81) * 11),
        ('band6Gain', ((c_uint32) * 81) * 11),
        ('preselect', (((c_float) * 32) * 11) * 11),
        ('reservedTail', (c_uint8) * (0x7FFFF8 - 0x497110)),
        ('checksum', c_uint32),
        ('pad3', (c_uint8) * 4),
    ]


class ZrDeviceDiagnostics(Structure):
    _fields_ = [
        ('voltage', c_float),
        ('currentInput', c_float),
        ('currentB', c_float),
        ('currentC', c_float),
        ('tempFPGA', c_float),
        ('tempSensorD', c_float),
        ('tempSensorE', c_float),
        ('tempSensorC', c_float),
        ('tempCal', c_float),
        ('tempSensorA', c_float),
    ]


class ZrGPIOStep(Structure):
    _fields_ = [
        ('frequency', c_double),
        ('mask', c_uint8),
        ('reserved', (c_uint8) * 7),
    ]


# name: (result type, argument types, or None for a variadic function)
FUNCTIONS = {
    'zrGetAPIVersion': (c_char_p, []),
    'zrGetProductID': (c_char_p, []),
    'zrGetErrorString': (c_char_p, [c_int]),
    'zrConfigUSBGetErrorString': (c_char_p, [c_int32]),
    'zrSetCustomFreq': (c_int32, None),
    'zrSetCustomRegister': (c_int32, None),
    'zrGetFPGABuildInfo': (c_int32, None),
    'zrIsSecondaryBuildPresent': (c_int32, None),
    'zrReplaceSecondaryBuild': (c_int32, None),
    'zrSwitchFPGABuild': (c_int32, None),
    'zrStartCustomData': (c_int32, [c_int, c_int, c_void_p]),
    'zrFinishCustomData': (c_int32, [c_int]),
    'zrGetDeviceInfo': (c_int32, [c_int, POINTER(c_int32), POINTER(c_int)]),
    'zrGetFirmwareVersion': (c_int32, [c_int, POINTER(c_int), POINTER(c_int), POINTER(c_int)]),
    'zrHasIFOutput': (c_int32, [c_int, POINTER(c_int32)]),
    'zrGetSweepSettings': (c_int32, [c_int, POINTER(ZrSweepSettings)]),
    'zrGetSweepParameters': (c_int32, [c_int, POINTER(c_double), POINTER(c_double), POINTER(c_double), POINTER(c_double), POINTER(c_int)]),
    'zrGetRealTimeSettings': (c_int32, [c_int, POINTER(ZrRealTimeSettings)]),
    'zrGetRealTimeParameters': (c_int32, [c_int, POINTER(c_double), POINTER(c_int), POINTER(c_double), POINTER(c_double), POINTER(c_int), POINTER(c_int), POINTER(c_double)]),
    'zrGetIQParameters': (c_int32, [c_int, POINTER(c_double), POINTER(c_double)]),
    'zrGetIQCenterFreq': (c_int32, [c_int, POINTER(c_double)]),
    'zrGetIQCorrection': (c_int32, [c_int, POINTER(c_float)]),
    'zrGetIQSweepListSteps': (c_int32, [c_int, POINTER(c_int)]),
    'zrSetSweepSpeed': (c_int32, [c_int, c_int32]),
    'zrSetSweepCenterSpan': (c_int32, [c_int, c_double, c_double]),
    'zrSetSweepStartStop': (c_int32, [c_int, c_double, c_double]),
    'zrSetSweepCoupling': (c_int32, [c_int, c_double, c_double, c_double]),
    'zrSetSweepDetector': (c_int32, [c_int, c_int32, c_int32]),
    'zrSetSweepScale': (c_int32, [c_int, c_int32]),
    'zrSetSweepWindow': (c_int32, [c_int, c_int32]),
    'zrSetSweepSpurReject': (c_int32, [c_int, c_int32]),
    'zrSetRealTimeCenterSpan': (c_int32, [c_int, c_double, c_double]),
    'zrSetRealTimeRBW': (c_int32, [c_int, c_double]),
    'zrSetRealTimeDetector': (c_int32, [c_int, c_int32]),
    'zrSetRealTimeScale': (c_int32, [c_int, c_int32, c_double, c_double]),
    'zrSetRealTimeWindow': (c_int32, [c_int, c_int32]),
    'zrSetIQBaseSampleRate': (c_int32, [c_int, c_int32]),
    'zrSetIQDataType': (c_int32, [c_int, c_int32]),
    'zrSetIQCenterFreq': (c_int32, [c_int, c_double]),
    'zrSetIQSampleRate': (c_int32, [c_int, c_int]),
    'zrSetIQBandwidth': (c_int32, [c_int, c_int32, c_double]),
    'zrSetIQExtTriggerEdge': (c_int32, [c_int, c_int32]),
    'zrSetIQTriggerSentinel': (c_int32, [c_double]),
    'zrSetIQQueueSize': (c_int32, [c_int, c_float]),
    'zrSetIQUSBQueueSize': (c_int32, [c_int, c_float]),
    'zrSetIQSweepListDataType': (c_int32, [c_int, c_int32]),
    'zrSetIQSweepListCorrected': (c_int32, [c_int, c_int32]),
    'zrSetIQSweepListSteps': (c_int32, [c_int, c_int]),
    'zrSetIQSweepListFreq': (c_int32, [c_int, c_int, c_double]),
    'zrSetIQSweepListRef': (c_int32, [c_int, c_int, c_double]),
    'zrSetIQSweepListAtten': (c_int32, [c_int, c_int, c_int]),
    'zrSetIQSweepListSampleCount': (c_int32, [c_int, c_int, c_uint32]),
    'zrSetSegIQDataType': (c_int32, [c_int, c_int32]),
    'zrSetSegIQCenterFreq': (c_int32, [c_int, c_double]),
    'zrSetSegIQVideoTrigger': (c_int32, [c_int, c_double, c_int32]),
    'zrSetSegIQExtTrigger': (c_int32, [c_int, c_int32]),
    'zrSetSegIQFMTParams': (c_int32, [c_int, c_int, POINTER(c_double), POINTER(c_double), c_int]),
    'zrSetSegIQSegmentCount': (c_int32, [c_int, c_int]),
    'zrSetSegIQSegment': (c_int32, [c_int, c_int, c_int32, c_int, c_uint32, c_double]),
    'zrSetAudioCenterFreq': (c_int32, [c_int, c_double]),
    'zrSetAudioType': (c_int32, [c_int, c_int32]),
    'zrSetAudioFilters': (c_int32, [c_int, c_double, c_double, c_double]),
    'zrSetAudioFMDeemphasis': (c_int32, [c_int, c_double]),
    'zrGetAudio': (c_int32, [c_int, POINTER(c_float)]),
    'zrSetVrtStreamID': (c_int32, [c_int, c_uint32]),
    'zrGetVrtContextPktSize': (c_int32, [c_int, POINTER(c_uint32)]),
    'zrGetVrtContextPkt': (c_int32, [c_int, POINTER(c_uint32), POINTER(c_uint32)]),
    'zrSetVrtPacketSize': (c_int32, [c_int, c_uint16]),
    'zrGetVrtPacketSize': (c_int32, [c_int, POINTER(c_uint16), POINTER(c_uint32)]),
    'zrGetVrtPackets': (c_int32, [c_int, POINTER(c_uint32), POINTER(c_uint32), c_uint32, c_int32]),
    'zrSetIQFullBandAtten': (c_int32, [c_int, c_int]),
    'zrSetIQFullBandCorrected': (c_int32, [c_int, c_int32]),
    'zrSetIQFullBandSamples': (c_int32, [c_int, c_int]),
    'zrSetIQFullBandTriggerType': (c_int32, [c_int, c_int32]),
    'zrSetIQFullBandVideoTrigger': (c_int32, [c_int, c_double]),
    'zrSetIQFullBandTriggerTimeout': (c_int32, [c_int, c_double]),
    'zrGetDeviceList': (c_int32, [POINTER(c_int), POINTER(c_int)]),
    'zrGetDeviceList2': (c_int32, [POINTER(c_int), POINTER(c_int32), POINTER(c_int)]),
    'zrPresetSerial': (c_int32, [c_int]),
    'zrSetDataFolder': (c_int32, [c_char_p]),
    'zrCalGetTempFromIndex': (c_double, [c_int]),
    'zrCalGetCalSizeUsed': (c_int, [c_bool]),
    'zrCalGetCorrectionCalDate': (c_uint32, [POINTER(c_uint8), c_bool]),
    'zrCalGetCorrectionCalDateMesa': (c_uint32, [POINTER(MesaCalData)]),
    'zrCalGetCorrectionCalDateRidge': (c_uint32, [POINTER(RidgeCalData)]),
    'zrCalGetCalVersion': (c_uint32, [POINTER(c_uint8)]),
    'zrCalDoesFlashHeaderExist': (c_bool, [POINTER(MesaCalData)]),
    'zrCalDoesPretestDataExist': (c_bool, [POINTER(c_uint8)]),
    'zrCalDoesCBBDataExist': (c_bool, [POINTER(RidgeCalData)]),
    'zrCalDoesLOFTDataExist': (c_bool, [POINTER(RidgeCalData)]),
    'zrCalDoesOptIFDataExist': (c_bool, [POINTER(RidgeCalData)]),
    'zrCalDoesCorrectionsExist': (c_bool, [POINTER(c_uint8)]),
    'zrCalCorrectionLoadFromFileMesa': (c_bool, [c_char_p, POINTER(MesaCalData)]),
    'zrCalCorrectionLoadFromFileRidge': (c_bool, [c_char_p, POINTER(RidgeCalData)]),
    'zrCalBuildDummyCorrectionsMesa': (None, [POINTER(MesaCalData)]),
    'zrCalBuildDummyCorrectionsRidge': (None, [POINTER(RidgeCalData)]),
    'zrCalPropagateSingleTempCalMesa': (None, [POINTER(MesaCalData), c_int, c_int]),
    'zrCalPropagateSingleTempCalRidge': (None, [POINTER(RidgeCalData), c_int, c_int]),
    'zrCalGetPreselectFilterInfo': (None, [c_int, POINTER(c_double), POINTER(c_double), POINTER(c_double)]),
    'zrSetPowerState': (c_int32, [c_int, c_int32]),
    'zrGetPowerState': (c_int32, [c_int, POINTER(c_int32)]),
    'zrSetAttenuator': (c_int32, [c_int, c_int]),
    'zrGetAttenuator': (c_int32, [c_int, POINTER(c_int)]),
    'zrSetRefLevel': (c_int32, [c_int, c_double]),
    'zrGetRefLevel': (c_int32, [c_int, POINTER(c_double)]),
    'zrSetPreselector': (c_int32, [c_int, c_int32]),
    'zrGetPreselector': (c_int32, [c_int, POINTER(c_int32)]),
    'zrSetGPIOState': (c_int32, [c_int, c_int, c_int]),
    'zrGetGPIOState': (c_int32, [c_int, POINTER(c_int), POINTER(c_int)]),
    'zrWriteGPIOImm': (c_int32, [c_int, c_uint8]),
    'zrReadGPIOImm': (c_int32, [c_int, POINTER(c_uint8)]),
    'zrWriteSPI': (c_int32, [c_int, c_uint32, c_int]),
    'zrSetGPIOSweep': (c_int32, [c_int, POINTER(ZrGPIOStep), c_int]),
    'zrSetGPIOSweepDisabled': (c_int32, [c_int]),
    'zrSetGPIOSwitching': (c_int32, [c_int, POINTER(c_uint8), POINTER(c_uint32), c_int]),
    'zrSetGPIOSwitchingDisabled': (c_int32, [c_int]),
    'zrSetReference': (c_int32, [c_int, c_int]),
    'zrGetReference': (c_int32, [c_int, POINTER(c_int)]),
    'zrSetExternalReference': (c_int32, [c_int, c_int]),
    'zrGetExternalReference': (c_int32, [c_int, POINTER(c_int)]),
    'zrGetDeviceDiagnostics': (c_int32, [c_int, POINTER(c_float), POINTER(c_float), POINTER(c_float)]),
    'zrGetFullDeviceDiagnostics': (c_int32, [c_int, POINTER(ZrDeviceDiagnostics)]),
    'zrGetSFPDiagnostics': (c_int32, [c_int, POINTER(c_float), POINTER(c_float), POINTER(c_float), POINTER(c_float)]),
    'zrSetFanThreshold': (c_int32, [c_int, c_int]),
    'zrSetIFOutput': (c_int32, [c_int, c_double]),
    'zrGetFanThreshold': (c_int32, [c_int, POINTER(c_int)]),
    'zrGetCalDate': (c_int32, [c_int, POINTER(c_uint64)]),
    'zrSegIQLTEResample': (c_int32, [POINTER(c_float), c_int, POINTER(c_float), POINTER(c_int), c_int32]),
    'zrSetGPSTimebaseUpdate': (c_int32, [c_int, c_int32]),
    'zrGetGPSTimebaseUpdate': (c_int32, [c_int, POINTER(c_int32)]),
    'zrGetGPSHoldoverInfo': (c_int32, [c_int, POINTER(c_int32), POINTER(c_uint64)]),
    'zrGetGPSState': (c_int32, [c_int, POINTER(c_int)]),
    'zrGetGPSInfo': (c_int32, [c_int, c_int32, POINTER(c_int32), POINTER(c_int64), POINTER(c_double), POINTER(c_double), POINTER(c_double), c_char_p, POINTER(c_int)]),
    'zrWriteToGPS': (c_int32, [c_int, POINTER(c_uint8), c_int]),
    'zrOpenDevice': (c_int32, [POINTER(c_int)]),
    'zrOpenDeviceBySerial': (c_int32, [POINTER(c_int), c_int]),
    'zrCloseDevice': (c_int32, [c_int]),
    'zrPreset': (c_int32, [c_int]),
    'zrConfigure': (c_int32, [c_int, c_int32]),
    'zrAbort': (c_int32, [c_int]),
    'zrGetCurrentMode': (c_int32, [c_int, POINTER(c_int32)]),
    'zrStartSweep': (c_int32, [c_int, c_int]),
    'zrFinishSweep': (c_int32, [c_int, c_int, POINTER(c_float), POINTER(c_float), POINTER(c_int64)]),
    'zrGetSweep': (c_int32, [c_int, POINTER(c_float), POINTER(c_float), POINTER(c_int64)]),
    'zrGetIQ': (c_int32, [c_int, c_void_p, c_int, POINTER(c_double), c_int, POINTER(c_int64), c_int32, POINTER(c_int), POINTER(c_int)]),
    'zrSimAttachUSB': (c_int32, [c_int32, c_int]),
    'zrSimDetach': (c_int32, [c_int]),
    'zrSimAddTone': (c_int32, [c_int, c_double, c_double]),
    'zrSimClearSignals': (c_int32, [c_int]),
    'zrSimAddAM': (c_int32, [c_int, c_double, c_double, c_double, c_double]),
    'zrSimAddFM': (c_int32, [c_int, c_double, c_double, c_double, c_double]),
    'zrSimSetNoiseFloor': (c_int32, [c_int, c_double]),
    'zrSimSetTemperature': (c_int32, [c_int, c_float]),
    'zrSimSetGPS': (c_int32, [c_int, c_int32, c_double, c_double, c_double]),
    'zrSimSetGPSSilent': (c_int32, [c_int, c_int32]),
    'zrSimSetWaitScale': (c_int32, [c_double]),
    'zrSimSetFirmware': (c_int32, [c_int, c_int, c_int, c_int]),
    'zrSimGetRegister': (c_int32, [c_int, c_uint32, POINTER(c_uint32)]),
    'zrSimReadFlash': (c_int32, [c_int, c_uint32, c_uint32, POINTER(c_uint8)]),
    'zrSimGetLastCommand': (c_int32, [c_int, c_uint8, POINTER(c_uint32)]),
    'zrSimGetTick': (c_int32, [c_int, POINTER(c_uint64)]),
    'zrSimUtcAtTick': (c_int32, [c_int, c_uint64, POINTER(c_int64)]),
    'zrSimSetTick': (c_int32, [c_int, c_uint64]),
    'zrSimGetStreamStartTick': (c_int32, [c_int, POINTER(c_uint64)]),
    'zrSimSetPaced': (c_int32, [c_int, c_int32]),
    'zrSimTriggerAtTick': (c_int32, [c_int, c_uint64, c_double]),
    'zrSimInjectFault': (c_int32, [c_int, c_int32, c_int]),
    'zrSimGetWaitScale': (c_double, []),
}
