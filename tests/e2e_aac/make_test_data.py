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
    "am05_44": (40, 6), "ap05_48": (150, 2),
}
# Main/LTP streams kept only as MP4 in the shared folder: an ADTS copy is made
# with `ffmpeg -i NAME.mp4 -c:a copy -f adts`, then cut like the others.
MAIN_LTP = {"am00_88": (250, 1)}
# (first frame, first compared frame, compared frames): am00_88's output frames
# 3227-3228 are where an imprecise predictor input showed (4 steps off).
# am05_44's frames 44-59: its first prediction with M/S in a channel pair is
# at frame 47, past the 40-frame cut.
EXCERPTS = {"am00_88": [(2900, 3200, 60)], "am05_44": [(0, 44, 16)]}
REFUSED = {}
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


def write_excerpts(name, stream, ref, ch):
    # A stretch of the stream: frames FIRST up to REF + REF_FRAMES, compared
    # from frame REF on.  One started cold in the middle (FIRST > 0) needs
    # the predictors to have forgotten their start by REF: for am00_88, 300
    # frames do (from FIRST = 3000 they have not).
    for first, ref_first, ref_frames in EXCERPTS.get(name, []):
        head = adts_prefix(stream, first)
        part = adts_prefix(stream[len(head):], ref_first + ref_frames - first)
        open(os.path.join(out, "%s_f%d.adts" % (name, first)), "wb").write(part)
        open(os.path.join(out, "%s_f%d.s16" % (name, ref_first)), "wb").write(
            ref[ref_first * 1024 * ch * 2:(ref_first + ref_frames) * 1024 * ch * 2])

for name, (frames, ch) in CONFORMANCE.items():
    ext = ".aac" if name.startswith("ct_") else ".adts"
    stream = open(os.path.join(shared, "conformance", "aac", name + ext), "rb").read()
    ref = open(os.path.join(shared, "conformance", "aac", "ffmpeg_proxy", name + ".s16"), "rb").read()
    write_excerpts(name, stream, ref, ch)
    if frames:
        stream = adts_prefix(stream, frames)
        # FFmpeg's decode of the raw ADTS file lacks the first frame's output.
        ref_frames = frames - 1 if name.startswith("ct_") else frames
        ref = ref[:ref_frames * 1024 * ch * 2]
    open(os.path.join(out, name + ".adts"), "wb").write(stream)
    open(os.path.join(out, name + ".s16"), "wb").write(ref)

for name, (frames, ch) in MAIN_LTP.items():
    import subprocess
    import tempfile
    with tempfile.TemporaryDirectory() as tmp:
        copy = os.path.join(tmp, name + ".adts")
        subprocess.run(["ffmpeg", "-v", "error", "-y", "-i", os.path.join(shared, "conformance", "aac_main_ltp", name + ".mp4"),
                        "-c:a", "copy", "-f", "adts", copy], check=True)
        stream = open(copy, "rb").read()
    ref = open(os.path.join(shared, "conformance", "aac_main_ltp", "ffmpeg_proxy", name + ".s16"), "rb").read()
    open(os.path.join(out, name + ".adts"), "wb").write(adts_prefix(stream, frames))
    open(os.path.join(out, name + ".s16"), "wb").write(ref[:frames * 1024 * ch * 2])
    write_excerpts(name, stream, ref, ch)

for name, frames in REFUSED.items():
    stream = open(os.path.join(shared, "conformance", "aac", name + ".adts"), "rb").read()
    open(os.path.join(out, name + ".adts"), "wb").write(adts_prefix(stream, frames))

out = os.path.join(root, "aac_ref")
os.makedirs(out, exist_ok=True)
for name in TESTVECTORS:
    for suffix in ("", ".faad.f32"):
        shutil.copyfile(os.path.join(shared, "testvectors", name + suffix), os.path.join(out, name + suffix))
