#!/usr/bin/env python3
"""Copies the AAC streams and references that tests/e2e_aac needs into
tests/data, cutting the longer conformance streams to their first frames
(whole ADTS frames; the reference cut to the same samples, which a decoder's
output of those frames does not depend on past).

usage: tests/e2e_aac/make_test_data.py SHARED_DIR   (e.g. /work/shared)
"""
import os
import shutil
import sys

shared = sys.argv[1]
root = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "data")
# stream name -> (frames to keep (0 = all), channels)
CONFORMANCE = {
    "al04_44": (0, 1), "al05_44": (120, 2), "al06_44": (100, 3), "al07_96": (60, 6),
    "al15_44": (60, 6), "al17_44": (120, 2), "al18_44": (200, 1), "ct_faac-adts": (100, 2),
}
# Streams the decoder must refuse: a few frames are enough.
REFUSED = {"am05_44": 3, "ap05_48": 3}
TESTVECTORS = [
    "aac_lc_22k05_mono_32_speech.aac", "aac_lc_32k_st_96_clicks_tns.aac",
    "aac_lc_44k1_st_128_mix_msall_is_tns.aac", "aac_lc_48k_st_64_mix_is_pns.aac",
]


def adts_prefix(data, frames):
    pos = 0
    for _ in range(frames):
        assert data[pos] == 0xFF and (data[pos + 1] & 0xF6) == 0xF0
        pos += ((data[pos + 3] & 3) << 11) | (data[pos + 4] << 3) | (data[pos + 5] >> 5)
    return data[:pos]


out = os.path.join(root, "conformance", "aac")
os.makedirs(out, exist_ok=True)
for name, (frames, ch) in CONFORMANCE.items():
    ext = ".aac" if name.startswith("ct_") else ".adts"
    stream = open(os.path.join(shared, "conformance", "aac", name + ext), "rb").read()
    ref = open(os.path.join(shared, "conformance", "aac", "ffmpeg_proxy", name + ".s16"), "rb").read()
    if frames:
        stream = adts_prefix(stream, frames)
        # FFmpeg's decode of the raw ADTS file lacks the first frame's output.
        ref_frames = frames - 1 if name.startswith("ct_") else frames
        ref = ref[:ref_frames * 1024 * ch * 2]
    open(os.path.join(out, name + ".adts"), "wb").write(stream)
    open(os.path.join(out, name + ".s16"), "wb").write(ref)

for name, frames in REFUSED.items():
    stream = open(os.path.join(shared, "conformance", "aac", name + ".adts"), "rb").read()
    open(os.path.join(out, name + ".adts"), "wb").write(adts_prefix(stream, frames))

out = os.path.join(root, "aac_ref")
os.makedirs(out, exist_ok=True)
for name in TESTVECTORS:
    for suffix in ("", ".faad.f32"):
        shutil.copyfile(os.path.join(shared, "testvectors", name + suffix), os.path.join(out, name + suffix))
