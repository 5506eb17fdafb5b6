#!/usr/bin/python3
"""Records simulated streams with `zr iq` and reads them back with numpy:
the sample count, the tone's level and frequency, and the SigMF metadata."""
import json
import os
import subprocess
import sys

import numpy as np

zr, folder = sys.argv[1], sys.argv[2]
os.makedirs(folder, exist_ok=True)
tone_hz, tone_dbm, center = 915.2e6, -35.0, 915e6

for fmt, decimation in (("cf32", 4), ("ci16", 64)):
    base = os.path.join(folder, "rec-" + fmt)
    subprocess.run([zr, "--data-folder", folder, "--sim", "Mesa2", "--tone", "%g:%g" % (tone_hz, tone_dbm),
                    "iq", "--center", "915M", "--duration", "0.05", "--decimation", str(decimation),
                    "--format", fmt, "--out", base], check=True, stdout=subprocess.DEVNULL)
    meta = json.load(open(base + ".sigmf-meta"))
    g = meta["global"]
    rate = g["core:sample_rate"]
    assert rate == 50e6 / decimation, rate
    assert g["core:datatype"] == fmt + "_le", g
    cap = meta["captures"][0]
    assert cap["core:sample_start"] == 0 and cap["core:frequency"] == center, cap
    assert cap["core:datetime"].endswith("Z"), cap
    if fmt == "cf32":
        x = np.fromfile(base + ".sigmf-data", dtype=np.complex64)
    else:
        raw = np.fromfile(base + ".sigmf-data", dtype="<i2").reshape(-1, 2)
        x = (raw[:, 0] + 1j * raw[:, 1]) / 32768.0 * g["zr:scale"]
    assert len(x) == int(0.05 * rate + 0.5), (len(x), rate)
    x = x[len(x) // 4:]  # past the host filters' start
    level = 10 * np.log10(np.mean(np.abs(x) ** 2))
    assert abs(level - tone_dbm) < 0.5, (fmt, level)
    n = 1 << int(np.log2(len(x)))
    peak = np.argmax(np.abs(np.fft.fftshift(np.fft.fft(x[:n]))))
    found = (peak - n // 2) * rate / n
    assert abs(found - (tone_hz - center)) <= rate / n, (fmt, found)
print("ok")
