"""Simulated instruments (libzr_sim.so), plugged into this process and then
found and opened like real ones:

    import zr_api, zr_api.sim as sim
    sim.attach("Mesa2", 20000001)
    sim.add_tone(20000001, 2.4e9, -30.0)
    sim.set_wait_scale(0.0)          # skip the protocol's fixed waits
    dev = zr_api.open(20000001)

Frequencies in Hz, levels in dBm, noise in dBm/Hz, ticks of the 250 MHz
instrument clock, times in ns since 1970. Every call raises ZrError for a
bad argument or a serial that is not attached.
"""
import ctypes
from enum import IntEnum

from . import ZrDeviceType, ZrError, _check, lib
from ._lib import library
from ._native import ZrSimFault

__all__ = ["available", "attach", "detach", "add_tone", "clear_signals", "set_noise_floor", "set_temperature",
           "set_gps", "set_gps_silent", "set_wait_scale", "inject_fault", "set_firmware", "register",
           "read_flash", "last_command", "tick", "utc_at_tick", "set_tick", "stream_start_tick", "set_paced",
           "trigger_at_tick", "ZrSimFault"]


def available():
    """True when libzr_sim.so was found beside the library."""
    return library().sim is not None


def _model(model):
    if isinstance(model, str):
        return ZrDeviceType["zrDeviceType" + model]
    return ZrDeviceType(int(model))


def attach(model, serial):
    """Plugs a simulated Mesa1, Mesa2 or Ridge2 (by name or ZrDeviceType)."""
    _check(lib.zrSimAttachUSB(_model(model), int(serial)), "zrSimAttachUSB")


def detach(serial):
    """Pulls the cable: transfers in flight and all later ones fail."""
    _check(lib.zrSimDetach(int(serial)), "zrSimDetach")


def add_tone(serial, freq, dbm):
    _check(lib.zrSimAddTone(int(serial), float(freq), float(dbm)), "zrSimAddTone")


def add_am(serial, carrier, dbm, mod_hz, depth):
    """An AM carrier (dbm is the carrier's) modulated by a sine at mod_hz."""
    _check(lib.zrSimAddAM(int(serial), float(carrier), float(dbm), float(mod_hz), float(depth)), "zrSimAddAM")


def add_fm(serial, carrier, dbm, mod_hz, deviation):
    """An FM carrier with a sine at mod_hz and peak deviation in Hz."""
    _check(lib.zrSimAddFM(int(serial), float(carrier), float(dbm), float(mod_hz), float(deviation)), "zrSimAddFM")


def clear_signals(serial):
    _check(lib.zrSimClearSignals(int(serial)), "zrSimClearSignals")


def set_noise_floor(serial, dbm_per_hz):
    _check(lib.zrSimSetNoiseFloor(int(serial), float(dbm_per_hz)), "zrSimSetNoiseFloor")


def set_temperature(serial, celsius):
    _check(lib.zrSimSetTemperature(int(serial), float(celsius)), "zrSimSetTemperature")


def set_gps(serial, locked, latitude=0.0, longitude=0.0, altitude=0.0):
    _check(lib.zrSimSetGPS(int(serial), int(bool(locked)), float(latitude), float(longitude), float(altitude)),
           "zrSimSetGPS")


def set_gps_silent(serial, silent):
    _check(lib.zrSimSetGPSSilent(int(serial), int(bool(silent))), "zrSimSetGPSSilent")


def set_wait_scale(factor):
    """Process-wide factor of the protocol's fixed waits (0 skips them)."""
    _check(lib.zrSimSetWaitScale(float(factor)), "zrSimSetWaitScale")


def inject_fault(serial, fault, count=1):
    """A ZrSimFault (or its name without the prefix, "SampleLoss") for the next count reads."""
    if isinstance(fault, str):
        fault = ZrSimFault["zrSimFault" + fault]
    _check(lib.zrSimInjectFault(int(serial), int(fault), int(count)), "zrSimInjectFault")


def set_firmware(serial, major, minor, revision):
    _check(lib.zrSimSetFirmware(int(serial), int(major), int(minor), int(revision)), "zrSimSetFirmware")


def register(serial, address):
    v = ctypes.c_uint32()
    _check(lib.zrSimGetRegister(int(serial), int(address), ctypes.byref(v)), "zrSimGetRegister")
    return v.value


def read_flash(serial, offset, count):
    out = (ctypes.c_uint8 * int(count))()
    _check(lib.zrSimReadFlash(int(serial), int(offset), int(count), out), "zrSimReadFlash")
    return bytes(out)


def last_command(serial, opcode):
    v = ctypes.c_uint32()
    _check(lib.zrSimGetLastCommand(int(serial), int(opcode), ctypes.byref(v)), "zrSimGetLastCommand")
    return v.value


def tick(serial):
    v = ctypes.c_uint64()
    _check(lib.zrSimGetTick(int(serial), ctypes.byref(v)), "zrSimGetTick")
    return v.value


def utc_at_tick(serial, t):
    v = ctypes.c_int64()
    _check(lib.zrSimUtcAtTick(int(serial), int(t), ctypes.byref(v)), "zrSimUtcAtTick")
    return v.value


def set_tick(serial, t):
    _check(lib.zrSimSetTick(int(serial), int(t)), "zrSimSetTick")


def stream_start_tick(serial):
    v = ctypes.c_uint64()
    _check(lib.zrSimGetStreamStartTick(int(serial), ctypes.byref(v)), "zrSimGetStreamStartTick")
    return v.value


def set_paced(serial, paced):
    _check(lib.zrSimSetPaced(int(serial), int(bool(paced))), "zrSimSetPaced")


def trigger_at_tick(serial, t, width_ns=100.0):
    _check(lib.zrSimTriggerAtTick(int(serial), int(t), float(width_ns)), "zrSimTriggerAtTick")
