#!/usr/bin/env python3
"""akl-mp3enc round trips: for every rate, mode and rate-control setting the
stream decodes in akl-mp3dec (and mpg123 and ffmpeg when installed) to
exactly the input's sample count, CBR frames have their nominal sizes, the
decoders agree within one 16-bit step, and the decoded signal is close to
the input (SNR floor per bit rate, a gross check: quality is measured with
PEAQ outside the tests).

usage: roundtrip_test.py AKL_MP3ENC AKL_MP3DEC SCRATCH_DIR
"""
import array
import math
import os
import random
import re
import shutil
import struct
import subprocess
import sys
import wave

enc, dec, tmp = sys.argv[1:4]
os.makedirs(tmp, exist_ok=True)
failures = []


def fail(msg):
    print("FAIL:", msg)
    failures.append(msg)


def write_wav(path, rate, ch, n, seed, fmt="s16"):
    """Two sines, a click train and noise: tonal, transient and noisy parts."""
    rnd = random.Random(seed)
    frames = []
    for i in range(n):
        t = i / rate
        base = 0.3 * math.sin(2 * math.pi * 440 * t) + 0.15 * math.sin(2 * math.pi * 3150 * t)
        click = 0.5 * math.exp(-((i % (rate // 3)) / (rate * 0.002))) * (1 if (i // 7) % 2 else -1)
        for c in range(ch):
            v = base * (1.0 if c == 0 else 0.7) + click + 0.03 * (rnd.random() - 0.5)
            frames.append(max(-1.0, min(1.0, v)))
    if fmt == "s16":
        data = array.array("h", [int(round(v * 32767)) for v in frames]).tobytes()
        tag, bits = 1, 16
    elif fmt == "s24":
        data = b"".join(struct.pack("<i", int(round(v * 8388607)))[:3] for v in frames)
        tag, bits = 1, 24
    else:
        data = array.array("f", frames).tobytes()
        tag, bits = 3, 32
    block = ch * bits // 8
    with open(path, "wb") as f:
        f.write(b"RIFF" + struct.pack("<I", 36 + len(data)) + b"WAVEfmt ")
        f.write(struct.pack("<IHHIIHH", 16, tag, ch, rate, rate * block, block, bits))
        f.write(b"data" + struct.pack("<I", len(data)) + data)


def read_pcm(path):
    w = wave.open(path)
    n, ch = w.getnframes(), w.getnchannels()
    a = array.array("h")
    a.frombytes(w.readframes(n))
    return a, ch


def frames_of(path):
    """(header offset, size, bitrate index) of every frame after the ID3v2 tag."""
    data = open(path, "rb").read()
    pos = 0
    if data[:3] == b"ID3":
        pos = 10 + ((data[6] << 21) | (data[7] << 14) | (data[8] << 7) | data[9])
    out = []
    rates = {1: [0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320],
             0: [0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160]}
    srs = {1: [44100, 48000, 32000], 0: [22050, 24000, 16000]}
    while pos + 4 <= len(data):
        h = data[pos:pos + 4]
        if h[0] != 0xFF or (h[1] & 0xF0) != 0xF0:
            fail("%s: no sync at %d" % (path, pos))
            break
        mid = (h[1] >> 3) & 1
        bi, si, pad = h[2] >> 4, (h[2] >> 2) & 3, (h[2] >> 1) & 1
        size = (144000 if mid else 72000) * rates[mid][bi] // srs[mid][si] + pad
        out.append((pos, size, bi))
        pos += size
    if pos != len(data):
        fail("%s: %d stray bytes at the end" % (path, len(data) - pos))
    return out


def snr(a, b, ch):
    n = min(len(a), len(b))
    s = sum(float(x) * x for x in a[:n])
    e = sum(float(x - y) * (x - y) for x, y in zip(a[:n], b[:n]))
    return 10 * math.log10(s / max(e, 1e-9))


have_mpg123 = shutil.which("mpg123") is not None
have_ffmpeg = shutil.which("ffmpeg") is not None
cases = [
    # rate, channels, options, input format, SNR floor (dB)
    (44100, 2, ["-b", "128"], "s16", 12),
    (44100, 2, ["-b", "320", "-m", "s"], "s24", 20),
    (44100, 2, ["-b", "64", "-m", "m"], "f32", 8),
    (48000, 2, ["-b", "192", "--crc"], "s16", 15),
    (32000, 1, ["-b", "48"], "s16", 8),
    (44100, 2, ["-V", "2"], "s16", 12),
    (44100, 2, ["--abr", "112"], "s16", 10),
    (22050, 2, ["-b", "64"], "s16", 8),
    (24000, 1, ["-b", "32", "--crc"], "s16", 8),
    (16000, 2, ["-V", "5"], "s16", 6),
]
for rate, ch, opts, fmt, floor in cases:
    name = "%d_%d_%s_%s" % (rate, ch, "".join(opts).replace("-", ""), fmt)
    src = os.path.join(tmp, name + ".wav")
    mp3 = os.path.join(tmp, name + ".mp3")
    n = rate * 2 + 1234  # not a whole number of frames
    write_wav(src, rate, ch, n, hash(name) & 0xFFFF, fmt)
    r = subprocess.run([enc, "-q"] + opts + [src, mp3], capture_output=True, text=True)
    if r.returncode != 0 or r.stderr:
        fail("%s: encoder exit %d: %s" % (name, r.returncode, r.stderr.strip()))
        continue
    fr = frames_of(mp3)
    if "-b" in opts:
        idx = set(bi for _, _, bi in fr[1:])  # the info frame may need a larger frame
        if len(idx) != 1:
            fail("%s: CBR stream with bit-rate indices %s" % (name, sorted(idx)))
    out = os.path.join(tmp, name + "_akl.wav")
    r = subprocess.run([dec, "-q", mp3, out], capture_output=True, text=True)
    if r.returncode != 0 or r.stderr:
        fail("%s: akl-mp3dec: %s" % (name, r.stderr.strip()))
        continue
    got, gch = read_pcm(out)
    out_ch = 1 if (ch == 1 or "m" in opts and opts[opts.index("-m") + 1] == "m") else 2
    if gch != out_ch or len(got) != n * out_ch:
        fail("%s: akl-mp3dec gave %d samples x %d channels, want %d x %d" % (name, len(got) // gch, gch, n, out_ch))
        continue
    if fmt == "s16":
        ref = read_pcm(src)[0]
        if out_ch == 1 and ch == 2:
            ref = array.array("h", [(ref[2 * i] + ref[2 * i + 1]) // 2 for i in range(n)])
        q = snr(ref, got, out_ch)
        if q < floor:
            fail("%s: SNR %.1f dB below %d" % (name, q, floor))
        else:
            print("%s: %d frames, SNR %.1f dB" % (name, len(fr), q))
    others = []
    if have_mpg123:
        o = os.path.join(tmp, name + "_mpg123.wav")
        # Not -q: that would hide mpg123's warnings too.
        r = subprocess.run(["mpg123", "-w", o, mp3], capture_output=True, text=True)
        r.stderr = "\n".join(l for l in r.stderr.splitlines()
                              if re.search(r"(?i)warn|error|illegal|problem|junk|bad|skip", l))
        others.append(("mpg123", o, r))
    if have_ffmpeg:
        o = os.path.join(tmp, name + "_ffmpeg.wav")
        r = subprocess.run(["ffmpeg", "-v", "warning", "-y", "-i", mp3, "-c:a", "pcm_s16le", o],
                           capture_output=True, text=True)
        others.append(("ffmpeg", o, r))
    for who, o, r in others:
        if r.returncode != 0 or r.stderr.strip():
            fail("%s: %s: %s" % (name, who, r.stderr.strip()))
            continue
        pcm, pch = read_pcm(o)
        if pch != out_ch or len(pcm) != len(got):
            fail("%s: %s gave %d samples x %d, akl-mp3dec %d" % (name, who, len(pcm) // pch, pch, len(got) // out_ch))
            continue
        worst = max(abs(x - y) for x, y in zip(pcm, got))
        if who == "mpg123" and worst > 1:
            fail("%s: akl-mp3dec differs from mpg123 by %d steps" % (name, worst))

if failures:
    print("%d failures" % len(failures))
    sys.exit(1)
print("round trips ok")
