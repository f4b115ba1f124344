#!/bin/sh
# akl-mp3enc's command line: help, version, options, pipes, tags and bad input.
# usage: cli_test.sh AKL_MP3ENC AKL_MP3DEC SCRATCH_DIR
set -eu
enc=$1 dec=$2 tmp=$3
mkdir -p "$tmp"
fail() { echo "FAIL: $*"; exit 1; }

# wav FILE RATE CHANNELS BITS FORMAT_TAG DATA_BYTES [DECLARED_DATA_SIZE]: a WAV
# file of DATA_BYTES bytes of a ramp, its data size field DECLARED (default
# the real size).
wav() {
  python3 - "$@" <<'PY'
import struct, sys
path, rate, ch, bits, tag, n = sys.argv[1], *map(int, sys.argv[2:7])
declared = int(sys.argv[7]) if len(sys.argv) > 7 else n
data = bytes((i * 7) & 0xFF for i in range(n))
block = ch * bits // 8
with open(path, "wb") as f:
    f.write(b"RIFF" + struct.pack("<I", (36 + declared) & 0xFFFFFFFF) + b"WAVEfmt ")
    f.write(struct.pack("<IHHIIHH", 16, tag, ch, rate, rate * block, block, bits))
    f.write(b"data" + struct.pack("<I", declared & 0xFFFFFFFF) + data)
PY
}

"$enc" --help | grep -q '^usage: akl-mp3enc' || fail "--help"
"$enc" --version | grep -q '^akl-mp3enc ' || fail "--version"
if "$enc" --bogus a b 2>/dev/null; then fail "unknown option accepted"; fi
if "$enc" only-one 2>/dev/null; then fail "one file accepted"; fi
wav "$tmp/ok.wav" 44100 2 16 1 400000
if "$enc" -b 100 "$tmp/ok.wav" "$tmp/x.mp3" 2>"$tmp/err"; then fail "-b 100 accepted"; fi
grep -q 'not an MPEG-1 Layer III rate' "$tmp/err" || fail "bad rate message: $(cat "$tmp/err")"
if "$enc" -V 10 "$tmp/ok.wav" "$tmp/x.mp3" 2>/dev/null; then fail "-V 10 accepted"; fi
if "$enc" -m x "$tmp/ok.wav" "$tmp/x.mp3" 2>/dev/null; then fail "-m x accepted"; fi

# Summary line, quiet, ID3v2 tag.
"$enc" --tt 'A title' --ta 'Someone' --tl 'Album' "$tmp/ok.wav" "$tmp/a.mp3" 2>"$tmp/err"
grep -q 's of audio, .* frames, .* kbit/s, .* bytes, lowpass .* Hz, .*x real time' "$tmp/err" || fail "summary: $(cat "$tmp/err")"
[ "$(head -c 3 "$tmp/a.mp3")" = ID3 ] || fail "no ID3v2 tag"
grep -q 'A title' "$tmp/a.mp3" || fail "title missing"
"$enc" -q "$tmp/ok.wav" "$tmp/b.mp3" 2>"$tmp/err"
[ ! -s "$tmp/err" ] || fail "--quiet printed something"

# Pipes: standard input and output give the same audio frames (the pipe
# output has no info frame, it cannot be rewritten).
"$enc" -q - - < "$tmp/ok.wav" | cat > "$tmp/c.mp3"
"$dec" -q --raw "$tmp/b.mp3" "$tmp/b.raw"
"$dec" -q --raw "$tmp/c.mp3" "$tmp/c.raw"
[ "$(stat -c %s "$tmp/c.raw")" -gt 400000 ] || fail "piped stream too short"
[ "$(stat -c %s "$tmp/b.raw")" -eq 400000 ] || fail "gapless length $(stat -c %s "$tmp/b.raw")"
info=$(head -c 40 "$tmp/b.mp3" | od -An -c | tr -d ' \n')
case $info in *Info*) ;; *) fail "no Info frame" ;; esac
head -c 40 "$tmp/c.mp3" | od -An -c | tr -d ' \n' | grep -q Info && fail "Info frame on a pipe"

# Bad input: not a WAV, unsupported format and rate, no samples; a clear
# message and a non-zero exit, no output left behind.
printf 'hello' > "$tmp/bad.wav"
if "$enc" "$tmp/bad.wav" "$tmp/x.mp3" 2>"$tmp/err"; then fail "junk accepted"; fi
grep -q 'not a RIFF/WAVE file' "$tmp/err" || fail "junk message"
wav "$tmp/u8.wav" 44100 1 8 1 1000
if "$enc" "$tmp/u8.wav" "$tmp/x.mp3" 2>"$tmp/err"; then fail "8-bit accepted"; fi
grep -q 'unsupported sample format' "$tmp/err" || fail "format message"
wav "$tmp/r.wav" 11025 1 16 1 1000
rm -f "$tmp/x.mp3"
if "$enc" "$tmp/r.wav" "$tmp/x.mp3" 2>"$tmp/err"; then fail "11025 Hz accepted"; fi
grep -q 'unsupported sampling rate 11025' "$tmp/err" || fail "rate message"
[ ! -e "$tmp/x.mp3" ] || fail "output left behind"
wav "$tmp/z.wav" 44100 2 16 1 0
if "$enc" "$tmp/z.wav" "$tmp/x.mp3" 2>"$tmp/err"; then fail "empty input accepted"; fi
grep -q 'no audio samples' "$tmp/err" || fail "empty message"
wav "$tmp/six.wav" 44100 6 16 1 1200
if "$enc" "$tmp/six.wav" "$tmp/x.mp3" 2>"$tmp/err"; then fail "6 channels accepted"; fi
grep -q 'unsupported channel count' "$tmp/err" || fail "channel message"

# Lying sizes: a data size beyond the file (a truncated file) encodes what
# is there with a warning; an all-ones size (streamed) reads to the end.
wav "$tmp/t.wav" 44100 2 16 1 40002 4000000
"$enc" -q "$tmp/t.wav" "$tmp/t.mp3" 2>"$tmp/err"
grep -q 'ends before its header says; encoded the 10000 frames' "$tmp/err" || fail "truncation message: $(cat "$tmp/err")"
"$dec" -q --raw "$tmp/t.mp3" "$tmp/t.raw"
[ "$(stat -c %s "$tmp/t.raw")" -eq 40000 ] || fail "truncated length"
wav "$tmp/s.wav" 44100 2 16 1 40000 4294967295
"$enc" -q "$tmp/s.wav" "$tmp/s.mp3"
"$dec" -q --raw "$tmp/s.mp3" "$tmp/s.raw"
[ "$(stat -c %s "$tmp/s.raw")" -eq 40000 ] || fail "streamed length"
echo "cli ok"
