#!/usr/bin/python3
"""A SoapySDR application's view of the zr driver: a simulated tone at its
frequency and level, every block with a time that only moves forward, and
an overflow for each loss (a reader that falls behind, and one the
instrument reports)."""
import time

import numpy as np
import SoapySDR
from SoapySDR import SOAPY_SDR_CF32, SOAPY_SDR_HAS_TIME, SOAPY_SDR_OVERFLOW, SOAPY_SDR_RX

serial = 20007101
dev = SoapySDR.Device(dict(driver="zr", sim="Mesa2", serial=str(serial)))
import zr_api.sim as sim  # the same simulator the driver loaded

rate, centre, offset = 6.25e6, 1e9, 5e5
sim.add_tone(serial, centre + offset, -30.0)
dev.setSampleRate(SOAPY_SDR_RX, 0, rate)
dev.setFrequency(SOAPY_SDR_RX, 0, centre)
assert dev.getSampleRate(SOAPY_SDR_RX, 0) == rate
stream = dev.setupStream(SOAPY_SDR_RX, SOAPY_SDR_CF32)
dev.activateStream(stream)
buf = np.empty(65536, np.complex64)


def read(total):
    """total samples, and the time of each block."""
    out, times = [], []
    while sum(len(x) for x in out) < total:
        r = dev.readStream(stream, [buf], len(buf), timeoutUs=500000)
        if r.ret == SOAPY_SDR_OVERFLOW:
            return None, times
        assert r.ret > 0, r.ret
        assert r.flags & SOAPY_SDR_HAS_TIME
        times.append(r.timeNs)
        out.append(buf[:r.ret].copy())
    return np.concatenate(out), times


x, times = read(400000)
assert all(b > a for a, b in zip(times, times[1:])), "time stamps go backwards"
x = x[8192:]
level = 10 * np.log10(np.mean(np.abs(x) ** 2))
assert abs(level + 30.0) < 0.5, level
n = 1 << 16
peak = np.argmax(np.abs(np.fft.fftshift(np.fft.fft(x[:n]))))
assert abs((peak - n // 2) * rate / n - offset) <= rate / n

# A reader that falls behind by more than the library holds.
time.sleep(1.0)
overflowed = False
for _ in range(200):
    r = dev.readStream(stream, [buf], len(buf), timeoutUs=500000)
    if r.ret == SOAPY_SDR_OVERFLOW:
        overflowed = True
        break
assert overflowed, "a stall went unreported"
# The instrument's own loss.
sim.inject_fault(serial, "SampleLoss", 1)
overflowed = False
for _ in range(200):
    r = dev.readStream(stream, [buf], len(buf), timeoutUs=500000)
    if r.ret == SOAPY_SDR_OVERFLOW:
        overflowed = True
        break
assert overflowed, "the instrument's loss went unreported"
dev.deactivateStream(stream)
dev.closeStream(stream)
print("ok")
