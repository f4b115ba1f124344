#!/usr/bin/env python3
"""Prints the sample-count and accuracy table of docs/mp4-input.md: each
file decoded by akl-aacdec (or akl-mp3dec for MPEG audio in MP4) with
default options, against ffmpeg's decode in the shared reference folders.
Samples per channel; RMS and maximum error in 16-bit steps over the samples
both keep, aligned at the first sample.

usage: tests/mp4/wild_table.py [SHARED_DIR] [BUILD_DIR]
  SHARED_DIR  holds testvectors/wild and conformance (default /work/shared)
  BUILD_DIR   a build tree with the programs (default build/release)"""
import array
import math
import os
import subprocess
import sys
import tempfile

shared = sys.argv[1] if len(sys.argv) > 1 else "/work/shared"
build = sys.argv[2] if len(sys.argv) > 2 else "build/release"
sets = [(os.path.join(shared, "testvectors/wild"), "ref", (".m4a", ".mov", ".mp4", ".aac")),
        (os.path.join(shared, "conformance/aac"), "ffmpeg_proxy", (".mp4",)),
        (os.path.join(shared, "conformance/aac_he"), "ffmpeg_proxy", (".mp4", ".3gp")),
        (os.path.join(shared, "conformance/aac_main_ltp"), "ffmpeg_proxy", (".mp4",))]


def samples(path):
    a = array.array("h")
    with open(path, "rb") as f:
        a.frombytes(f.read())
    return a


def channels(path):
    out = subprocess.run(["ffprobe", "-v", "error", "-select_streams", "a:0", "-show_entries", "stream=channels",
                          "-of", "csv=p=0", path], capture_output=True, text=True).stdout.split()
    return int(out[0]) if out else 1


with tempfile.TemporaryDirectory() as tmp:
    for folder, refs, exts in sets:
        for name in sorted(os.listdir(folder)):
            if not name.endswith(exts):
                continue
            path = os.path.join(folder, name)
            ref = os.path.join(folder, refs, name + ".s16")
            if not os.path.exists(ref):
                ref = os.path.join(folder, refs, os.path.splitext(name)[0] + ".s16")
            program = "akl-mp3dec" if name == "packed_maindata.mp4" else "akl-aacdec"
            out = os.path.join(tmp, "out.raw")
            r = subprocess.run([os.path.join(build, "tools", program), "--raw", "-q", path, out],
                               capture_output=True, text=True)
            if r.returncode != 0:
                print(f"{name:44s} refused: {r.stderr.strip()}")
                continue
            # ffmpeg's channel count: an HE-AAC v2 core is mono where ffmpeg's output is stereo.
            ch = channels(path)
            a, b = samples(out), samples(ref)
            n = min(len(a), len(b))
            se = sum((a[i] - b[i]) ** 2 for i in range(n))
            mx = max((abs(a[i] - b[i]) for i in range(n)), default=0)
            print(f"{name:44s} ours {len(a) // ch:8d}  ffmpeg {len(b) // ch:8d}  "
                  f"rms {math.sqrt(se / n) if n else 0:9.3f}  max {mx:6d}")
