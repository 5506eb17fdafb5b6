"""zr_api from Python: Mesa and Ridge spectrum analyzers through the C
library, with results as numpy arrays.

    import zr_api
    with zr_api.open() as dev:                       # the first instrument
        dev.configure_sweep(start=2.3e9, stop=2.5e9, rbw=100e3)
        freqs, trace = dev.sweep()                    # Hz, dBm

Errors of the library raise ZrError (its status and text); warnings go
through Python's warnings as ZrWarning. Every C function is reachable by its
C name as zr_api.lib.<name>, with its ctypes signature. Frequencies are in
Hz, levels in dBm, times in ns since 1970 (UTC).
"""
import ctypes
import warnings
import weakref
from collections import namedtuple

import numpy as np

from ._lib import library
from ._native import (ZrAudioType, ZrBool, ZrDataType, ZrDetector, ZrDeviceType, ZrInitStatus, ZrIQBaseRate,
                      ZrMode, ZrPowerState, ZrScale, ZrStatus, ZrSweepSettings, ZrSweepSpeed, ZrTriggerEdge,
                      ZrTriggerType, ZrVideoUnits, ZrWindowType, ZrDeviceDiagnostics, ZrGPIOStep,
                      ZrRealTimeSettings, MesaCalData, RidgeCalData)
from . import _native

__all__ = ["ZrError", "ZrWarning", "Device", "open", "devices", "set_data_folder", "version", "lib",
           "SweepResult", "IQInfo"] + [n for n in dir(_native) if n.startswith("Zr")]


class _Lib:
    """The C functions by their C names, loaded at first use."""

    def __getattr__(self, name):
        return getattr(library(), name)

    def __dir__(self):
        return sorted(_native.FUNCTIONS)


lib = _Lib()


class ZrError(Exception):
    """A call of the library failed. `status` is the ZrStatus, `text` the
    library's description of it."""

    def __init__(self, status, what=""):
        self.status = _status(status)
        self.text = _text(status)
        super().__init__("%s: %s (%s)" % (what, self.text, self.status.name) if what else self.text)


class ZrWarning(UserWarning):
    """A call succeeded with a warning of the library (a clamped setting, an
    overload, uncalibrated data, ...); `status` is the ZrStatus."""

    def __init__(self, status, what=""):
        self.status = _status(status)
        super().__init__("%s: %s (%s)" % (what, _text(status), self.status.name))


def _status(value):
    try:
        return ZrStatus(int(value))
    except ValueError:
        return int(value)


def _text(status):
    s = lib.zrGetErrorString(int(status))
    return s.decode().strip() if s else str(int(status))


def _check(status, what):
    status = int(status)
    if status < 0:
        raise ZrError(status, what)
    if status > 0:
        warnings.warn(ZrWarning(status, what), stacklevel=3)
    return status


def version():
    """The library's version text."""
    return lib.zrGetAPIVersion().decode()


def set_data_folder(path):
    """Where the library keeps its log and calibration caches, for the whole
    process; before the first open."""
    _check(lib.zrSetDataFolder(str(path).encode()), "zrSetDataFolder")


def devices():
    """(serial, ZrDeviceType) of every USB instrument no program holds open."""
    serials = (ctypes.c_int * 9)()
    types = (ctypes.c_int32 * 9)()
    count = ctypes.c_int()
    _check(lib.zrGetDeviceList2(serials, types, ctypes.byref(count)), "zrGetDeviceList2")
    return [(serials[i], ZrDeviceType(types[i])) for i in range(count.value)]


def open(serial=None):
    """Opens a USB instrument: the one with `serial`, or the first listed."""
    handle = ctypes.c_int(-1)
    if serial is None:
        status = lib.zrOpenDevice(ctypes.byref(handle))
    else:
        status = lib.zrOpenDeviceBySerial(ctypes.byref(handle), int(serial))
    _check(status, "open")
    return Device(handle.value)


SweepResult = namedtuple("SweepResult", "freqs trace_min trace_max timestamp_ns")
SweepResult.__doc__ = "One sweep: the frequency axis in Hz, both traces (dBm or mV), its time in ns since 1970."

IQInfo = namedtuple("IQInfo", "timestamp_ns sample_loss samples_remaining triggers status")
IQInfo.__doc__ = ("What came with a block of samples: the first sample's UTC in ns since 1970, whether samples "
                  "were lost before it, how many the library still holds, the trigger positions in the block "
                  "(fractional sample indices) and the call's status.")

_ENUMS = {
    "detector": ZrDetector, "units": ZrVideoUnits, "window": ZrWindowType, "speed": ZrSweepSpeed,
    "scale": ZrScale, "base_rate": ZrIQBaseRate, "data_type": ZrDataType, "trigger_edge": ZrTriggerEdge,
    "audio": ZrAudioType,
}


def _enum(kind, value):
    """An enumeration from its member, its value, or its short name
    ("flattop", "minmax", "cf32", ...)."""
    cls = _ENUMS[kind]
    if isinstance(value, str):
        key = value.lower().replace("_", "")
        for member in cls:
            if member.name.lower().endswith(key) or member.name.lower().endswith(key.replace("cf32", "32fc")
                                                                                 .replace("ci16", "16sc")):
                return member
        raise ValueError("%s: no %s named %r" % (kind, cls.__name__, value))
    return cls(int(value))


class Device:
    """An open instrument. Close it with close(), a with-block, or by letting
    it go (it is closed when garbage-collected)."""

    def __init__(self, handle):
        self.handle = handle
        self._finalizer = weakref.finalize(self, lib.zrCloseDevice, handle)
        self._iq_type = ZrDataType.zrDataType32fc

    def close(self):
        """Stops whatever runs and closes the instrument."""
        if self._finalizer.alive:
            self._finalizer.detach()
            _check(lib.zrCloseDevice(self.handle), "zrCloseDevice")

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()

    # ---- identity and services -------------------------------------------

    @property
    def info(self):
        """(ZrDeviceType, serial)."""
        t, s = ctypes.c_int32(), ctypes.c_int()
        _check(lib.zrGetDeviceInfo(self.handle, ctypes.byref(t), ctypes.byref(s)), "zrGetDeviceInfo")
        return ZrDeviceType(t.value), s.value

    @property
    def firmware(self):
        """(major, minor, revision)."""
        v = [ctypes.c_int() for _ in range(3)]
        _check(lib.zrGetFirmwareVersion(self.handle, *map(ctypes.byref, v)), "zrGetFirmwareVersion")
        return tuple(x.value for x in v)

    def diagnostics(self):
        """Supply (V, A) and temperatures (degrees C) of the last status."""
        d = ZrDeviceDiagnostics()
        _check(lib.zrGetFullDeviceDiagnostics(self.handle, ctypes.byref(d)), "zrGetFullDeviceDiagnostics")
        return {name: getattr(d, name) for name, _ in d._fields_}

    def gps_state(self):
        """0 no lock, 1 locked, 2 locked and disciplining the timebase."""
        state = ctypes.c_int()
        _check(lib.zrGetGPSState(self.handle, ctypes.byref(state)), "zrGetGPSState")
        return state.value

    def set_level(self, ref=None, atten=None, preselector=None):
        """Reference level in dBm; attenuator 0..6 (5 dB steps) or None/-1 for
        automatic; preselector on or off. Applies to every mode."""
        if ref is not None:
            _check(lib.zrSetRefLevel(self.handle, float(ref)), "zrSetRefLevel")
        if atten is not None:
            _check(lib.zrSetAttenuator(self.handle, int(atten)), "zrSetAttenuator")
        if preselector is not None:
            _check(lib.zrSetPreselector(self.handle, int(bool(preselector))), "zrSetPreselector")

    def abort(self):
        """Stops the running mode; the instrument is idle."""
        _check(lib.zrAbort(self.handle), "zrAbort")

    @property
    def mode(self):
        m = ctypes.c_int32()
        _check(lib.zrGetCurrentMode(self.handle, ctypes.byref(m)), "zrGetCurrentMode")
        return ZrMode(m.value)

    # ---- sweeps ------------------------------------------------------------

    def configure_sweep(self, start=None, stop=None, center=None, span=None, rbw=None, vbw=None, sweep_time=1e-6,
                        detector=None, units=None, window=None, speed=None, scale=None, spur_reject=None,
                        ref=None, atten=None):
        """Stores the settings given (Hz, s, dBm; enumerations by member, value
        or short name such as window="flattop") and enters sweeping. The range
        is start/stop or center/span; vbw follows rbw unless given."""
        h = self.handle
        self.set_level(ref, atten)
        if start is not None or stop is not None:
            _check(lib.zrSetSweepStartStop(h, float(start), float(stop)), "zrSetSweepStartStop")
        if center is not None or span is not None:
            _check(lib.zrSetSweepCenterSpan(h, float(center), float(span)), "zrSetSweepCenterSpan")
        if rbw is not None or vbw is not None:
            r = float(rbw if rbw is not None else 1e5)
            _check(lib.zrSetSweepCoupling(h, r, float(vbw if vbw is not None else r), float(sweep_time)),
                   "zrSetSweepCoupling")
        if detector is not None or units is not None:
            _check(lib.zrSetSweepDetector(h, _enum("detector", detector or 0), _enum("units", units or "power")),
                   "zrSetSweepDetector")
        if window is not None:
            _check(lib.zrSetSweepWindow(h, _enum("window", window)), "zrSetSweepWindow")
        if speed is not None:
            _check(lib.zrSetSweepSpeed(h, _enum("speed", speed)), "zrSetSweepSpeed")
        if scale is not None:
            _check(lib.zrSetSweepScale(h, _enum("scale", scale)), "zrSetSweepScale")
        if spur_reject is not None:
            _check(lib.zrSetSweepSpurReject(h, int(bool(spur_reject))), "zrSetSweepSpurReject")
        _check(lib.zrConfigure(h, ZrMode.zrModeSweeping), "zrConfigure")

    def sweep_parameters(self):
        """(actual RBW, actual VBW, first bin's frequency, bin size) in Hz and the bin count."""
        v = [ctypes.c_double() for _ in range(4)]
        n = ctypes.c_int()
        _check(lib.zrGetSweepParameters(self.handle, *map(ctypes.byref, v), ctypes.byref(n)), "zrGetSweepParameters")
        return v[0].value, v[1].value, v[2].value, v[3].value, n.value

    def sweep(self, detail=False):
        """One sweep: (frequencies in Hz, max trace in dBm) as numpy arrays, or
        with detail=True a SweepResult with both traces and the time stamp."""
        _, _, start, binsize, n = self.sweep_parameters()
        mn = np.empty(n, dtype=np.float32)
        mx = np.empty(n, dtype=np.float32)
        ts = ctypes.c_int64()
        f32 = ctypes.POINTER(ctypes.c_float)
        _check(lib.zrGetSweep(self.handle, mn.ctypes.data_as(f32), mx.ctypes.data_as(f32), ctypes.byref(ts)),
               "zrGetSweep")
        freqs = start + binsize * np.arange(n)
        return SweepResult(freqs, mn, mx, ts.value) if detail else (freqs, mx)

    # ---- I/Q ---------------------------------------------------------------

    def configure_iq(self, center, decimation=1, bandwidth=None, software_filter=False, base_rate=None,
                     data_type="cf32", trigger_edge=None, queue_ms=None, ref=None, atten=None):
        """Enters I/Q streaming at base / decimation samples per second
        (decimation a power of two, 1..4096) centred on `center` Hz. Without a
        bandwidth the widest the rate allows. data_type "cf32" gives complex64
        samples whose |x|^2 is mW; "ci16" gives raw int16 pairs."""
        h = self.handle
        self.set_level(ref, atten)
        _check(lib.zrSetIQCenterFreq(h, float(center)), "zrSetIQCenterFreq")
        _check(lib.zrSetIQSampleRate(h, int(decimation)), "zrSetIQSampleRate")
        _check(lib.zrSetIQBandwidth(h, int(bool(software_filter)), float(bandwidth if bandwidth else 1e12)),
               "zrSetIQBandwidth")
        if base_rate is not None:
            _check(lib.zrSetIQBaseSampleRate(h, _enum("base_rate", base_rate)), "zrSetIQBaseSampleRate")
        self._iq_type = _enum("data_type", data_type)
        _check(lib.zrSetIQDataType(h, self._iq_type), "zrSetIQDataType")
        if trigger_edge is not None:
            _check(lib.zrSetIQExtTriggerEdge(h, _enum("trigger_edge", trigger_edge)), "zrSetIQExtTriggerEdge")
        if queue_ms is not None:
            _check(lib.zrSetIQQueueSize(h, float(queue_ms)), "zrSetIQQueueSize")
        _check(lib.zrConfigure(h, ZrMode.zrModeIQStreaming), "zrConfigure")

    def iq_parameters(self):
        """(sample rate in S/s, bandwidth in Hz) of the running stream."""
        rate, bw = ctypes.c_double(), ctypes.c_double()
        _check(lib.zrGetIQParameters(self.handle, ctypes.byref(rate), ctypes.byref(bw)), "zrGetIQParameters")
        return rate.value, bw.value

    def iq_correction(self):
        """The factor of the cf32 samples: ci16 / 32768 * it = cf32."""
        scale = ctypes.c_float()
        _check(lib.zrGetIQCorrection(self.handle, ctypes.byref(scale)), "zrGetIQCorrection")
        return scale.value

    def iq(self, n, out=None, max_triggers=64, purge=False):
        """The stream's next n samples and an IQInfo. The samples are complex64
        (cf32) or an (n, 2) int16 array (ci16); `out` may be such an array to
        fill instead of a new one. Waits until n samples have arrived."""
        n = int(n)
        if out is None:
            out = (np.empty(n, dtype=np.complex64) if self._iq_type == ZrDataType.zrDataType32fc
                   else np.empty((n, 2), dtype=np.int16))
        triggers = np.empty(max_triggers, dtype=np.float64)
        ts = ctypes.c_int64()
        loss, remaining = ctypes.c_int(), ctypes.c_int()
        lib.zrSetIQTriggerSentinel(float("nan"))
        status = lib.zrGetIQ(self.handle, out.ctypes.data_as(ctypes.c_void_p), n,
                             triggers.ctypes.data_as(ctypes.POINTER(ctypes.c_double)) if max_triggers else None,
                             int(max_triggers), ctypes.byref(ts), ZrBool.zrTrue if purge else ZrBool.zrFalse,
                             ctypes.byref(loss), ctypes.byref(remaining))
        _check(status, "zrGetIQ")
        return out, IQInfo(ts.value, bool(loss.value), remaining.value, triggers[~np.isnan(triggers)], _status(status))

    # ---- VITA 49 -----------------------------------------------------------

    def set_vrt(self, packet_size=None, stream_id=None):
        """Samples per data packet (128..65529) and the stream identifier."""
        if packet_size is not None:
            _check(lib.zrSetVrtPacketSize(self.handle, int(packet_size)), "zrSetVrtPacketSize")
        if stream_id is not None:
            _check(lib.zrSetVrtStreamID(self.handle, int(stream_id)), "zrSetVrtStreamID")

    def vrt_context(self):
        """A context packet of the running stream: 28 words as a big-endian
        uint32 array (its bytes are the packet as sent)."""
        words = np.empty(28, dtype=">u4")
        n = ctypes.c_uint32()
        _check(lib.zrGetVrtContextPkt(self.handle, words.ctypes.data_as(ctypes.POINTER(ctypes.c_uint32)),
                                      ctypes.byref(n)), "zrGetVrtContextPkt")
        return words[:n.value]

    def vrt_packets(self, count, purge=False):
        """count data packets as a (count, packet_size + 6) big-endian uint32
        array."""
        size, per = ctypes.c_uint16(), ctypes.c_uint32()
        _check(lib.zrGetVrtPacketSize(self.handle, ctypes.byref(size), ctypes.byref(per)), "zrGetVrtPacketSize")
        words = np.empty((int(count), per.value), dtype=">u4")
        n = ctypes.c_uint32()
        _check(lib.zrGetVrtPackets(self.handle, words.ctypes.data_as(ctypes.POINTER(ctypes.c_uint32)), ctypes.byref(n),
                                   int(count), ZrBool.zrTrue if purge else ZrBool.zrFalse), "zrGetVrtPackets")
        return words

    # ---- audio -------------------------------------------------------------

    AUDIO_RATE = 31250

    def configure_audio(self, center, kind="fm", if_bandwidth=200e3, low_pass=12e3, high_pass=100.0,
                        deemphasis_us=None, ref=None, atten=None):
        """Enters audio mode: `kind` "am", "fm", "usb", "lsb" or "cw" (a
        carrier at `center` sounds at 520 Hz), demodulated to 31250 samples a
        second. The filters are clamped as the library does (a ZrWarning says
        so)."""
        h = self.handle
        self.set_level(ref, atten)
        _check(lib.zrSetAudioCenterFreq(h, float(center)), "zrSetAudioCenterFreq")
        _check(lib.zrSetAudioType(h, _enum("audio", kind)), "zrSetAudioType")
        _check(lib.zrSetAudioFilters(h, float(if_bandwidth), float(low_pass), float(high_pass)), "zrSetAudioFilters")
        if deemphasis_us is not None:
            _check(lib.zrSetAudioFMDeemphasis(h, float(deemphasis_us)), "zrSetAudioFMDeemphasis")
        _check(lib.zrConfigure(h, ZrMode.zrModeAudio), "zrConfigure")

    def set_audio_kind(self, kind):
        """Switches the running demodulator from its next block on."""
        _check(lib.zrSetAudioType(self.handle, _enum("audio", kind)), "zrSetAudioType")

    def audio(self, blocks=1):
        """The next blocks * 1000 samples of audio as float32, in order
        (each block is 32 ms)."""
        out = np.empty(int(blocks) * 1000, dtype=np.float32)
        for b in range(int(blocks)):
            _check(lib.zrGetAudio(self.handle, out[b * 1000:].ctypes.data_as(ctypes.POINTER(ctypes.c_float))),
                   "zrGetAudio")
        return out
