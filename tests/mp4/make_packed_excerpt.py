#!/usr/bin/env python3
"""Writes tests/data/mp4/packed_maindata_40.mp4: the first 40 access units of
the wild test vector packed_maindata.mp4 (Layer III frames that each carry
their own main data, more or less than their header's frame length) in a
minimal MP4 file written here.

usage: tests/mp4/make_packed_excerpt.py /work/shared/testvectors/wild/packed_maindata.mp4 OUT.mp4
Needs ffprobe (for the access units' positions)."""
import struct
import subprocess
import sys


def box(kind, *parts):
    body = b"".join(parts)
    return struct.pack(">I4s", 8 + len(body), kind) + body


def full(kind, version, flags, *parts):
    return box(kind, struct.pack(">I", (version << 24) | flags), *parts)


def main():
    src, out = sys.argv[1], sys.argv[2]
    data = open(src, "rb").read()
    rows = subprocess.run(["ffprobe", "-v", "error", "-select_streams", "a", "-show_packets", "-show_entries",
                           "packet=pos,size", "-of", "csv=p=0", src], capture_output=True, text=True, check=True)
    units = []
    for line in rows.stdout.split()[:40]:
        size, pos = (int(x) for x in line.split(",")[:2])
        units.append(data[pos:pos + size])
    ftyp = box(b"ftyp", b"isom", struct.pack(">I", 0), b"isommp41")
    payload = b"".join(units)
    dcd = bytes([0x04, 13, 0x6B, 0x15, 0, 0, 0]) + struct.pack(">II", 0, 0)
    es = struct.pack(">HB", 1, 0) + dcd + bytes([0x06, 1, 2])
    esds = full(b"esds", 0, 0, bytes([0x03, len(es)]) + es)
    entry = box(b"mp4a", bytes(6), struct.pack(">H", 1), bytes(8), struct.pack(">HHHH", 2, 16, 0, 0),
                struct.pack(">I", 44100 << 16), esds)
    mdat_at = len(ftyp)

    def moov():
        stbl = box(b"stbl", full(b"stsd", 0, 0, struct.pack(">I", 1), entry),
                   full(b"stts", 0, 0, struct.pack(">III", 1, len(units), 1152)),
                   full(b"stsc", 0, 0, struct.pack(">IIII", 1, 1, len(units), 1)),
                   full(b"stsz", 0, 0, struct.pack(">II", 0, len(units)), b"".join(struct.pack(">I", len(u)) for u in units)),
                   full(b"stco", 0, 0, struct.pack(">II", 1, mdat_at + 8)))
        mdia = box(b"mdia", full(b"mdhd", 0, 0, struct.pack(">IIII", 0, 0, 44100, 1152 * len(units)), bytes(4)),
                   full(b"hdlr", 0, 0, bytes(4), b"soun", bytes(12), b"\0"),
                   box(b"minf", stbl))
        trak = box(b"trak", full(b"tkhd", 0, 7, bytes(8), struct.pack(">I", 1), bytes(68)), mdia)
        return box(b"moov", full(b"mvhd", 0, 0, bytes(8), struct.pack(">II", 1000, 1045), bytes(80)), trak)

    open(out, "wb").write(ftyp + box(b"mdat", payload) + moov())


if __name__ == "__main__":
    main()
