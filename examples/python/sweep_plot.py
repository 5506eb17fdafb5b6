#!/usr/bin/python3
"""Sweeps 2.3 to 2.5 GHz and plots the trace: with matplotlib when it is
installed, else as a PNG drawn by the zr tool. Without an instrument on USB
a simulated Mesa2 with two tones stands in.

    ZR_API_LIBRARY=build/lib/libzr_api.so PYTHONPATH=python python3 examples/python/sweep_plot.py [out.png]
"""
import os
import subprocess
import sys
import tempfile

import zr_api
import zr_api.sim as sim

out = sys.argv[1] if len(sys.argv) > 1 else "sweep_plot.png"
serial = None
if not zr_api.devices() and sim.available():
    zr_api.set_data_folder(os.path.join(tempfile.gettempdir(), "zr-sim-python"))
    sim.set_wait_scale(0.0)
    serial = 20005001
    sim.attach("Mesa2", serial)
    sim.add_tone(serial, 2.4e9, -30.0)
    sim.add_tone(serial, 2.45e9, -55.0)

with zr_api.open(serial) as dev:
    dev.configure_sweep(start=2.3e9, stop=2.5e9, rbw=100e3, window="flattop")
    freqs, trace = dev.sweep()

peak = trace.argmax()
print("%d bins; peak %.6f GHz at %.2f dBm" % (len(trace), freqs[peak] / 1e9, trace[peak]))
try:
    import matplotlib
    matplotlib.use("Agg")
    import matplotlib.pyplot as plt
    plt.figure(figsize=(10, 5))
    plt.plot(freqs / 1e9, trace, lw=0.8)
    plt.xlabel("Frequency (GHz)")
    plt.ylabel("dBm")
    plt.grid(True, alpha=0.3)
    plt.savefig(out, dpi=100)
except ImportError:
    # The zr tool draws the same sweep.
    zr = os.environ.get("ZR_TOOL", os.path.join(os.path.dirname(__file__), "..", "..", "build", "bin", "zr"))
    args = [zr] + (["--sim", "Mesa2", "--tone", "2.4G:-30", "--tone", "2.45G:-55"] if serial else [])
    subprocess.run(args + ["sweep", "--start", "2.3G", "--stop", "2.5G", "--rbw", "100k", "--plot", out,
                           "--peaks", "0"], check=True, stdout=subprocess.DEVNULL)
print("wrote", out)
