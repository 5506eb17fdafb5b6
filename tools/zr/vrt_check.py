#!/usr/bin/python3
"""Writes VITA 49 packets with `zr vrt` and reads the pcap back with tshark's
dissector: packet types, stream identifier, header counts wrapping at 16,
sizes, valid-data bits and the associated context counts. Exits 77 (a
skip) where tshark is not installed."""
import os
import shutil
import subprocess
import sys

zr, folder = sys.argv[1], sys.argv[2]
if not shutil.which("tshark"):
    print("skipped: tshark is not installed (scripts/setup installs it)")
    sys.exit(77)
os.makedirs(folder, exist_ok=True)
pcap = os.path.join(folder, "vrt.pcap")
subprocess.run([zr, "--data-folder", folder, "--sim", "Mesa2", "--tone", "1.0001G:-30", "vrt", "--center", "1G",
                "--count", "40", "--packet-size", "500", "--context-every", "16", "--stream-id", "0xC0FFEE",
                "--out", pcap], check=True, stdout=subprocess.DEVNULL)
rows = subprocess.run(["tshark", "-r", pcap, "-T", "fields", "-e", "udp.dstport", "-e", "vrt.type", "-e", "vrt.sid",
                       "-e", "vrt.seq", "-e", "vrt.len", "-e", "vrt.valid", "-e", "vrt.acpc", "-e", "vrt.tsi",
                       "-e", "vrt.tsf"], check=True, capture_output=True, text=True).stdout.split("\n")
rows = [r.split("\t") for r in rows if r]
assert len(rows) == 40 + 3, len(rows)
contexts = 0
seq = 0
for port, kind, sid, count, length, valid, acpc, tsi, tsf in rows:
    assert port == "4991" and sid == "0x00c0ffee" and tsi == "1" and tsf == "2", (port, sid, tsi, tsf)
    if kind == "4":
        contexts += 1
        assert length == "28" and int(count) == seq, (length, count, seq)
        continue
    seq = (seq + 1) % 16
    assert kind == "1" and length == "506" and int(count) == seq, (kind, length, count, seq)
    assert valid == "1" and int(acpc) == contexts, (valid, acpc, contexts)
assert contexts == 3
print("ok")
