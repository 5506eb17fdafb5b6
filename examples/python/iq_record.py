#!/usr/bin/python3
"""Records half a second of I/Q at 12.5 MS/s around 915 MHz into a numpy
file, with the first sample's time and every trigger and loss the library
reported. Without an instrument on USB a simulated Mesa2 stands in.

    ZR_API_LIBRARY=build/lib/libzr_api.so PYTHONPATH=python python3 examples/python/iq_record.py [out.npz]
"""
import os
import sys
import tempfile

import numpy as np

import zr_api
import zr_api.sim as sim

out = sys.argv[1] if len(sys.argv) > 1 else "iq_record.npz"
serial = None
if not zr_api.devices() and sim.available():
    zr_api.set_data_folder(os.path.join(tempfile.gettempdir(), "zr-sim-python"))
    sim.set_wait_scale(0.0)
    serial = 20005002
    sim.attach("Mesa2", serial)
    sim.add_tone(serial, 915.2e6, -40.0)

with zr_api.open(serial) as dev:
    dev.configure_iq(center=915e6, decimation=4)
    rate, bandwidth = dev.iq_parameters()
    total, block = int(0.5 * rate), 1 << 18
    samples = np.empty(total, dtype=np.complex64)
    triggers, losses, first = [], [], None
    for at in range(0, total, block):
        n = min(block, total - at)
        _, info = dev.iq(n, out=samples[at:at + n])
        first = info.timestamp_ns if first is None else first
        triggers += list(at + info.triggers)
        if info.sample_loss:
            losses.append(at)

np.savez(out, samples=samples, rate=rate, center=915e6, first_ns=first, triggers=np.array(triggers),
         losses=np.array(losses))
level = 10 * np.log10(np.mean(np.abs(samples) ** 2))
print("%d samples at %.3f MS/s (%.1f dBm in all), %d triggers, %d losses; wrote %s"
      % (total, rate / 1e6, level, len(triggers), len(losses), out))
