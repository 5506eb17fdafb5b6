#!/usr/bin/python3
"""Throughput of the Python package's dev.iq() and of SoapySDR's readStream
against the library's own zrGetIQ, each on an unpaced simulated Mesa2 (so
the instrument is not the limit), reading 65536 samples a call.

    ZR_API_LIBRARY=build/lib/libzr_api.so SOAPY_SDR_PLUGIN_PATH=build/lib/soapy \\
        PYTHONPATH=python python3 bench/python_soapy_bench.py
"""
import ctypes
import os
import tempfile
import time

import numpy as np

import zr_api
import zr_api.sim as sim

N = 65536
SECONDS = 3.0


def rate(read):
    read()
    t0, samples = time.perf_counter(), 0
    while time.perf_counter() - t0 < SECONDS:
        samples += read()
    return samples / (time.perf_counter() - t0) / 1e6


def stream(serial, decimation, data_type):
    dev = zr_api.open(serial)
    dev.configure_iq(center=1e9, decimation=decimation, data_type=data_type)
    return dev


zr_api.set_data_folder(os.path.join(tempfile.gettempdir(), "zr-bench-python"))
sim.set_wait_scale(0.0)
results = []
for decimation in (1, 8):
    for data_type, dtype in (("cf32", np.complex64), ("ci16", np.int16)):
        serial = 20008101
        sim.attach("Mesa2", serial)
        sim.set_paced(serial, False)
        dev = stream(serial, decimation, data_type)
        buf = np.empty(N * (2 if dtype == np.int16 else 1), dtype=dtype)
        ts, loss, rem = ctypes.c_int64(), ctypes.c_int(), ctypes.c_int()
        args = (dev.handle, buf.ctypes.data_as(ctypes.c_void_p), N, None, 0, ctypes.byref(ts), 0,
                ctypes.byref(loss), ctypes.byref(rem))
        c = rate(lambda: (zr_api.lib.zrGetIQ(*args), N)[1])
        out = buf.reshape(-1, 2) if dtype == np.int16 else buf
        py = rate(lambda: len(dev.iq(N, out=out, max_triggers=0)[0]))
        dev.close()
        soapy = None
        try:
            import SoapySDR
            from SoapySDR import SOAPY_SDR_CF32, SOAPY_SDR_CS16, SOAPY_SDR_RX
            sdev = SoapySDR.Device(dict(driver="zr", serial=str(serial)))
            sdev.setSampleRate(SOAPY_SDR_RX, 0, 50e6 / decimation)
            sdev.setFrequency(SOAPY_SDR_RX, 0, 1e9)
            st = sdev.setupStream(SOAPY_SDR_RX, SOAPY_SDR_CF32 if data_type == "cf32" else SOAPY_SDR_CS16)
            sdev.activateStream(st)
            sbuf = np.empty(N * (2 if dtype == np.int16 else 1), dtype=dtype)
            soapy = rate(lambda: max(sdev.readStream(st, [sbuf], N, timeoutUs=1000000).ret, 0))
            sdev.deactivateStream(st)
            sdev.closeStream(st)
            del sdev
        except ImportError:
            pass
        sim.detach(serial)
        results.append((decimation, data_type, c, py, soapy))

print("| decimation | format | zrGetIQ MS/s | dev.iq() MS/s | ratio | readStream MS/s | ratio |")
print("|---|---|---|---|---|---|---|")
for d, f, c, py, s in results:
    print("| %d | %s | %.1f | %.1f | %.2f | %s | %s |" % (d, f, c, py, py / c, "%.1f" % s if s else "-",
                                                        "%.2f" % (s / c) if s else "-"))
