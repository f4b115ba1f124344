#!/usr/bin/env python3
"""Decoders under abuse: runs akl-mp3dec and akl-aacdec on damaged inputs.

For every source stream it makes: truncations (at 1/3, 2/3 and one byte
short), a zero-length file, random bytes, 1% of the bytes flipped at random
(two seeds), the stream concatenated with one of a different sampling rate or
channel count, and copies with huge declared lengths (an ADTS frame length of
8191, a 256 MB ID3v2 tag, a frame header whose bit-rate index declares the
largest frame).  Each run must end with status 0, or with a non-zero status
and a message on stderr; never by a signal or a sanitizer report.  A damaged
stream whose original decodes must still yield audio: at least half of the
original's samples for the byte-flipped copies, at least the samples of
the kept part, less one second, for truncations, and (MP3) at least 90% of
them when frame lengths are damaged.

    abuse.py --mp3dec PATH [--aacdec PATH] --data tests/data --out DIR [--quick]

Prints one line per file (status, samples, frames recovered) and a summary;
exits 1 if any run failed the rules above.
"""
import argparse
import os
import random
import subprocess
import sys

MP3_SOURCES = ['mp3_ref/mp3_m1_44k1_js_128_music.mp3', 'mp3_ref/mp3_m2_22k05_mono_40_speech.mp3',
               'mp3_ref/mp3_m1_48k_st_160_crc_clicks.mp3', 'mp3/he_free.bit', 'mp3_e2e/sine_vbr.mp3']
AAC_SOURCES = ['aac/aac_lc_44k1_st_128_mix_msall_is_tns.aac', 'aac/aac_lc_22k05_mono_32_speech.aac',
               'aac/aac_lc_48k_st_64_mix_is_pns.aac', 'aac/al07_96.adts']


def flip(data, seed, fraction=0.01):
    rng = random.Random(seed)
    b = bytearray(data)
    for _ in range(max(1, int(len(b) * fraction))):
        i = rng.randrange(len(b))
        b[i] ^= 1 << rng.randrange(8)
    return bytes(b)


def huge_adts(data):
    """Every 7th ADTS frame declares 8191 bytes."""
    b = bytearray(data)
    i = k = 0
    while i + 7 <= len(b):
        if b[i] == 0xFF and (b[i + 1] & 0xF6) == 0xF0:
            n = ((b[i + 3] & 3) << 11) | (b[i + 4] << 3) | (b[i + 5] >> 5)
            if k % 7 == 3:
                b[i + 3] |= 3
                b[i + 4] = 0xFF
                b[i + 5] |= 0xE0
            k += 1
            i += max(n, 7)
        else:
            i += 1
    return bytes(b)


def huge_mp3(data):
    """Every 7th frame header declaring the largest bit rate (so the frame
    length points far ahead)."""
    b = bytearray(data)
    i = k = 0
    while i + 4 <= len(b):
        if b[i] == 0xFF and (b[i + 1] & 0xE0) == 0xE0:
            if k % 7 == 3:
                b[i + 2] = (b[i + 2] & 0x0F) | 0xE0
            k += 1
            i += 4
        else:
            i += 1
    return bytes(b)


def variants(path, kind, other, quick):
    data = open(path, 'rb').read()
    rng = random.Random(len(data))
    out = [('whole', data, None)]
    for num, den in ((1, 3), (2, 3)):
        out.append((f'trunc{num}of{den}', data[:len(data) * num // den], num / den))
    out.append(('trunc_minus1', data[:-1], None))
    out.append(('flip1pct_a', flip(data, 1), 'flip'))
    if not quick:
        out.append(('flip1pct_b', flip(data, 2), 'flip'))
        out.append(('flip5pct', flip(data, 3, 0.05), None))
    out.append(('huge_lengths', huge_adts(data) if kind == 'aac' else huge_mp3(data), 'huge' if kind == 'mp3' else None))
    # A 256 MB ID3v2 tag announced before the audio.
    out.append(('huge_id3v2', b'ID3\x04\x00\x00\x7f\x7f\x7f\x7f' + data, None))
    if other:
        out.append(('concat_other', data + open(other, 'rb').read(), 'concat'))
    return out


def run(decoder, src, out_dir):
    wav = os.path.join(out_dir, 'out.raw')
    if os.path.exists(wav):
        os.remove(wav)
    p = subprocess.run([decoder, '--raw', src, wav], stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, timeout=300)
    err = p.stderr.decode('utf-8', 'replace')
    samples = os.path.getsize(wav) // 2 if os.path.exists(wav) else 0
    return p.returncode, err, samples


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument('--mp3dec')
    ap.add_argument('--aacdec')
    ap.add_argument('--data', required=True)
    ap.add_argument('--out', required=True)
    ap.add_argument('--quick', action='store_true')
    a = ap.parse_args()
    os.makedirs(a.out, exist_ok=True)
    failures = tried = 0
    recovered = {}
    jobs = []
    if a.mp3dec:
        jobs.append(('mp3', a.mp3dec, MP3_SOURCES))
    if a.aacdec:
        jobs.append(('aac', a.aacdec, AAC_SOURCES))
    for kind, decoder, sources in jobs:
        srcs = sources[:3] if a.quick else sources
        # Common garbage first.
        rng = random.Random(7)
        garbage = [('zero_length', b''), ('random_4k', bytes(rng.randrange(256) for _ in range(4096))),
                   ('random_64k', bytes(rng.randrange(256) for _ in range(65536)))]
        cases = [(f'{kind}_{n}', d, None, None) for n, d in garbage]
        for i, rel in enumerate(srcs):
            path = os.path.join(a.data, rel)
            if not os.path.exists(path):
                continue
            other = os.path.join(a.data, srcs[(i + 1) % len(srcs)])
            base = os.path.splitext(os.path.basename(rel))[0]
            for name, blob, note in variants(path, kind, other, a.quick):
                cases.append((f'{base}.{name}', blob, note, base))
        whole = {}
        for name, blob, note, base in cases:
            f = os.path.join(a.out, name + '.' + kind)
            with open(f, 'wb') as fh:
                fh.write(blob)
            tried += 1
            try:
                rc, err, samples = run(decoder, f, a.out)
            except subprocess.TimeoutExpired:
                print(f'FAIL  {name}: timeout')
                failures += 1
                continue
            problems = []
            if rc < 0 or rc >= 128:
                problems.append(f'killed by signal / status {rc}')
            if 'Sanitizer' in err or 'runtime error' in err:
                problems.append('sanitizer report')
            if rc != 0 and not err.strip():
                problems.append('non-zero status without a message')
            if name.endswith('.whole'):
                whole[base] = samples
            ref = whole.get(base, 0)
            if note == 'flip' and ref and samples < ref // 2:
                problems.append(f'only {samples} of {ref} samples from a 1% damaged stream')
            if note == 'huge' and ref and samples < ref * 9 // 10:
                problems.append(f'only {samples} of {ref} samples: damaged frame lengths swallowed good frames')
            if isinstance(note, float) and ref and samples < ref * note - 96000:
                problems.append(f'only {samples} samples from the kept {note:.0%}')
            if note == 'concat' and rc == 0 and samples < ref:
                problems.append('concatenated stream lost the first part')
            if base:
                recovered.setdefault(base, []).append((name, samples, ref))
            msg = err.strip().splitlines()[-1] if err.strip() else ''
            status = 'FAIL' if problems else 'ok  '
            print(f'{status}  {name:55s} status {rc:3d}  samples {samples:9d}  {"; ".join(problems)}  [{msg[:90]}]')
            failures += bool(problems)
            os.remove(f)
    print(f'files tried: {tried}, failures: {failures}')
    return 1 if failures else 0


if __name__ == '__main__':
    sys.exit(main())
