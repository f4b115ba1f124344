#!/usr/bin/env python3
"""Builds the seed corpora of the fuzz targets from the streams in tests/data.

Run from the repository root:  python3 fuzz/make_corpus.py <target>...
Seeds are whole frames cut from the test streams, prefixed with the parameter
bytes each target reads first; the choice is fixed (no randomness) so the
corpora are reproducible.
"""
import os
import sys

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))


def mp3_frames(data):
    """Offsets and lengths of Layer III frames found by walking sync words."""
    bitrates = {1: [0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320],
                0: [0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160]}
    rates = {1: [44100, 48000, 32000], 0: [22050, 24000, 16000]}
    i, out = 0, []
    while i + 4 <= len(data):
        b1, b2 = data[i + 1], data[i + 2]
        if data[i] == 0xFF and (b1 & 0xE0) == 0xE0 and ((b1 >> 1) & 3) == 1 and (b1 >> 3) & 3 in (2, 3):
            mpeg1 = (b1 >> 3) & 1
            br = bitrates[mpeg1][b2 >> 4] if (b2 >> 4) < 15 else 0
            sr_idx = (b2 >> 2) & 3
            if br and sr_idx < 3:
                n = (144 if mpeg1 else 72) * br * 1000 // rates[mpeg1][sr_idx] + ((b2 >> 1) & 1)
                out.append((i, n))
                i += n
                continue
        i += 1
    return out


def write(target, name, blob):
    d = os.path.join(ROOT, 'fuzz', 'corpus', target)
    os.makedirs(d, exist_ok=True)
    with open(os.path.join(d, name), 'wb') as f:
        f.write(blob)


def mp3_bitstream():
    src = os.path.join(ROOT, 'tests', 'data', 'mp3')
    for fn in sorted(os.listdir(src)):
        if not (fn.endswith('.bit') or fn.endswith('.mp3')):
            continue
        data = open(os.path.join(src, fn), 'rb').read()
        frames = mp3_frames(data)
        for k, idx in enumerate((1, 7, 30)):
            if idx < len(frames):
                off, n = frames[idx]
                # parameter bytes: variant/start bit, hufSize override (even = none)
                write('mp3_bitstream', f'{os.path.splitext(fn)[0]}_f{idx}', bytes([k * 8 + k, 0]) + data[off:off + n])


def mp3dec():
    """Stream heads (tags, Xing frames, CRC, MPEG-2, free format) and the small
    edge-case streams whole."""
    for sub, limit in (('mp3', 6000), ('mp3_e2e', 9000), ('mp3_ref', 6000)):
        src = os.path.join(ROOT, 'tests', 'data', sub)
        for fn in sorted(os.listdir(src)):
            if fn.endswith(('.bit', '.mp3', '.mp2')):
                data = open(os.path.join(src, fn), 'rb').read()
                write('mp3dec', f'{sub}_{os.path.splitext(fn)[0]}', data[:limit])


def adts_frames(data):
    i, out = 0, []
    while i + 7 <= len(data):
        if data[i] == 0xFF and (data[i + 1] & 0xF6) == 0xF0:
            n = ((data[i + 3] & 3) << 11) | (data[i + 4] << 3) | (data[i + 5] >> 5)
            if n >= 7:
                out.append((i, n))
                i += n
                continue
        i += 1
    return out


def aac_bitstream():
    """ADTS frames for the element walk (LC and MPEG-4 forms), the first
    bytes of frames as scalable headers, and synthetic ADIF headers."""
    src = os.path.join(ROOT, 'tests', 'data', 'aac')
    for fn in sorted(os.listdir(src)):
        if not fn.endswith(('.adts', '.aac')):
            continue
        data = open(os.path.join(src, fn), 'rb').read()
        frames = adts_frames(data)
        for k, idx in enumerate((2, 25)):
            if idx < len(frames):
                off, n = frames[idx]
                mode = k % 2
                prefix = bytes([mode, 2 * k + 1, 0] + [0] * 9)
                write('aac_bitstream', f'{os.path.splitext(fn)[0]}_f{idx}_m{mode}', prefix + data[off:off + n])
        if frames:
            off, n = frames[5]
            write('aac_bitstream', f'{os.path.splitext(fn)[0]}_scalable',
                  bytes([3, 2, 0, 1, 0, 0x10, 4, 0, 0, 40, 0, 0]) + data[off + 7:off + n])
    # ADIF: "ADIF", no copyright id, original, home, constant rate, bitrate,
    # one PCE (count 0), buffer fullness, then a small PCE.
    body = bytes.fromhex('41444946') + bytes.fromhex('18 00 fa 00 00 00 00 10 20 30 40 50 60 70 80'.replace(' ', ''))
    write('aac_bitstream', 'adif_small', bytes([2, 1, 0] + [0] * 9) + body)
    write('aac_bitstream', 'adif_many', bytes([2, 16, 0] + [0] * 9) + body.replace(b'\x00\x00\x00\x00\x10', b'\x00\x00\x00\x00\xf0'))


def mp3_signal():
    """Records and spectra are drawn from the bytes themselves; seeds are
    fixed pseudo-random bytes with the header choices spread."""
    import random
    r = random.Random(3)
    for k in range(24):
        head = bytes([k % 2, (k // 2) % 3, k % 4, (k // 3) % 4, r.randrange(256)])
        write('mp3_signal', f'seed_{k:02d}', head + bytes(r.randrange(256) for _ in range(2500)))



def aac_predict():
    """Program side (first byte odd): runs of raw data blocks (ADTS headers
    stripped) of the Main and LTP conformance streams with their
    configuration.  Library side (first byte even): fixed pseudo-random bytes
    whose leading side-information fields are set to what streams use."""
    import random
    import struct
    src = os.path.join(ROOT, 'tests', 'data', 'conformance', 'aac')
    le = lambda v: struct.pack('<H', v)
    # file, object type byte (odd: LTP), sampling index, channel configuration
    for name, ltp, sfi, config in (('am05_44.adts', 0, 4, 6), ('am00_88.adts', 0, 1, 1),
                                   ('am00_88_f2900.adts', 0, 1, 1), ('ap05_48.adts', 1, 3, 2)):
        data = open(os.path.join(src, name), 'rb').read()
        frames = adts_frames(data)
        for first in (0, 20, 100, 320):
            if first + 6 > len(frames):
                continue
            blob = bytearray([1, ltp]) + le(sfi) + le(config - 1)
            for off, n in frames[first:first + 6]:
                hdr = 7 if data[off + 1] & 1 else 9
                blob += le(n - hdr) + data[off + hdr:off + n]
            write('aac_predict', f'{os.path.splitext(name)[0]}_f{first}', bytes(blob))
    r = random.Random(11)
    for k in range(8):
        blob = bytearray([0]) + le(k * 7 % 64) + le(k * 13 % 64) + le(1 + k % 12)  # offsets, sampling index
        blob += bytes(r.randrange(256) for _ in range(3072 * 4 + 1024 * 2))  # history, overlap
        blob += le(1)  # two frames
        for f in range(2):
            blob += le([1, 2, 4, 3][(k + f) % 4])  # window sequence 0, 1, 3, 2 (read as -1..4)
            blob += bytes([k & 1]) + le(20 + k * 3) + bytes([1, (k + f) % 2]) + le(1 + k * 4)  # shape, maxSfb, reset
            blob += bytes([1]) * 44 + bytes(r.randrange(256) for _ in range(64 * 2))
            blob += le(40 + k) + bytes(r.randrange(256) for _ in range(2048 + 1))
            # no reset, LTP data, lag, gain 0.9849 (Q14 16137), bands, long window, shapes
            blob += bytes([1, 1]) + le(202 + 100 * k) + le(16137 + 32768) + bytes([1]) * 41
            blob += le(1) + le(1 + k % 2) + le(1 + f)
            blob += bytes(r.randrange(256) for _ in range(2048)) + le(41) + le(4) + le(1 + k % 2)
        write('aac_predict', f'library_{k}', bytes(blob))


if __name__ == '__main__':
    for t in sys.argv[1:]:
        globals()[t]()
