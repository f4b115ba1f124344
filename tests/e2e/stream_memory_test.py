"""akl-mp3dec decodes its input as it reads it: peak memory does not grow with
the input's length.  A generator writes many copies of a stream into the
decoder's standard input (nothing on disk); the peak resident size of a long
run must stay within a few MiB of a short one's.

usage: stream_memory_test.py AKL_MP3DEC STREAM.mp3
"""
import os
import subprocess
import sys

dec, stream = sys.argv[1], sys.argv[2]
data = open(stream, "rb").read()
env = dict(os.environ)
# Under AddressSanitizer freed blocks are held back; keep that small so the
# figure is the decoder's own.
env["ASAN_OPTIONS"] = (env.get("ASAN_OPTIONS", "") + ":quarantine_size_mb=1").lstrip(":")


def peak_kib(copies):
    p = subprocess.Popen([dec, "-q", "--raw", "-", "-"], stdin=subprocess.PIPE, stdout=subprocess.DEVNULL, env=env)
    for _ in range(copies):
        p.stdin.write(data)
    p.stdin.close()
    _, status, usage = os.wait4(p.pid, 0)
    p.returncode = os.waitstatus_to_exitcode(status)
    if p.returncode != 0:
        sys.exit(f"FAIL: decoder exit {p.returncode} on {copies} copies")
    return usage.ru_maxrss


short, long_ = 4, 400
small, large = peak_kib(short), peak_kib(long_)
print(f"peak RSS {small} KiB for {short * len(data)} bytes in, {large} KiB for {long_ * len(data)} bytes in")
if large - small > 3 * 1024:
    sys.exit(f"FAIL: peak memory grew by {large - small} KiB with the input")
print("stream memory ok")
