#!/usr/bin/python3
"""Repeated and continuous sweeps of `zr sweep` as a script reads them: CSV
rows with sweep index and time on standard output, a numpy array with its
JSON axis, and Ctrl-C ending a continuous run after a complete sweep."""
import csv
import io
import json
import os
import signal
import subprocess
import sys
import time

import numpy as np

zr, folder = sys.argv[1], sys.argv[2]
os.makedirs(folder, exist_ok=True)
base = [zr, "--data-folder", folder, "--sim", "Mesa2", "--tone", "2.4G:-30", "sweep",
        "--start", "2.3G", "--stop", "2.5G", "--rbw", "300k", "--peaks", "0"]

# --repeat 3 --csv -: 3 x bins rows, index and time increasing sweep by sweep.
out = subprocess.run(base + ["--repeat", "3", "--csv", "-"], check=True, capture_output=True, text=True).stdout
rows = list(csv.DictReader(io.StringIO(out)))
bins = sum(1 for r in rows if r["sweep"] == "0")
assert bins > 100 and len(rows) == 3 * bins, (bins, len(rows))
firsts = [next(r for r in rows if r["sweep"] == str(k)) for k in range(3)]
times = [int(r["time_ns"]) for r in firsts]
assert times[0] < times[1] < times[2], times
assert all(r["time_utc"].endswith("Z") and r["time_utc"][:4] >= "2020" for r in firsts)

# --continuous until SIGINT: exit 0, every sweep whole in the CSV and the array.
npy, table = os.path.join(folder, "run.npy"), os.path.join(folder, "run.csv")
p = subprocess.Popen(base + ["--continuous", "--out", npy, "--csv", table], stdout=subprocess.DEVNULL)
time.sleep(3)
p.send_signal(signal.SIGINT)
assert p.wait(timeout=30) == 0, p.returncode
a = np.load(npy)
axis = json.load(open(os.path.join(folder, "run.json")))
assert a.dtype == np.float32 and a.shape == (axis["sweeps"], axis["frequency_axis"]["count"]), (a.shape, axis)
assert a.shape[0] >= 1 and len(axis["time_ns"]) == a.shape[0]
lines = open(table).read().splitlines()[1:]
assert len(lines) == a.shape[0] * a.shape[1], (len(lines), a.shape)
f = axis["frequency_axis"]["start_hz"] + np.argmax(a[-1]) * axis["frequency_axis"]["step_hz"]
assert abs(f - 2.4e9) < 1e6 and abs(a[-1].max() + 30) < 1.0, (f, a[-1].max())
print("ok")
