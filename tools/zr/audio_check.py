#!/usr/bin/python3
"""Demodulates simulated AM and FM carriers with `zr audio` and reads the WAV
files back: the header, the sample count, the tone and its level (AM at its
depth; 16-bit and float alike)."""
import os
import subprocess
import sys
import wave

import numpy as np

zr, folder = sys.argv[1], sys.argv[2]
os.makedirs(folder, exist_ok=True)


def tone(x, hz, rate=31250):
    w = np.hanning(len(x))
    spectrum = np.fft.rfft(x * w)
    k = int(round(hz * len(x) / rate))
    return 2 * np.abs(spectrum[k - 2:k + 3]).max() / w.sum(), np.argmax(np.abs(spectrum)) * rate / len(x)


def record(signal, *args):
    out = os.path.join(folder, signal.split(":")[0].strip("-") + ".wav")
    subprocess.run([zr, "--data-folder", folder, "--sim", "Mesa2", signal.split("=")[0],
                    signal.split("=")[1], "audio", "--center", "1M", "--duration", "1", "--out", out] + list(args),
                   check=True, stdout=subprocess.DEVNULL)
    return out


# 16-bit PCM through the standard reader.
path = record("--am=1M:-20:1k:0.5", "--type", "am", "--pcm16")
with wave.open(path) as w:
    assert (w.getnchannels(), w.getsampwidth(), w.getframerate()) == (1, 2, 31250), w.getparams()
    x = np.frombuffer(w.readframes(w.getnframes()), dtype="<i2") / 32767.0
assert abs(len(x) - 31250) <= 1000, len(x)
level, peak = tone(x[len(x) // 2:], 1000)
assert abs(level - 0.5) < 0.025 and abs(peak - 1000) < 5, (level, peak)

# Float: format 3 with its fact chunk; the data chunk read by hand.
path = record("--fm=1M:-20:1k:10k")
raw = open(path, "rb").read()
assert raw[:4] == b"RIFF" and raw[8:12] == b"WAVE" and int.from_bytes(raw[20:22], "little") == 3
data = raw.index(b"data")
n = int.from_bytes(raw[data + 4:data + 8], "little")
assert n == len(raw) - data - 8, (n, len(raw))
x = np.frombuffer(raw[data + 8:], dtype="<f4")
level, peak = tone(x[len(x) // 2:], 1000)
assert abs(peak - 1000) < 5 and 0.14 < level < 0.18, (level, peak)
print("ok")
