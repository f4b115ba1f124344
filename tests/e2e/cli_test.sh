#!/bin/sh
# akl-mp3dec's command line: help, output forms, errors.
# usage: cli_test.sh AKL_MP3DEC DATA_DIR SCRATCH_DIR
set -eu
dec=$1 data=$2 tmp=$3
mkdir -p "$tmp"
fail() { echo "FAIL: $*"; exit 1; }

"$dec" --help | grep -q '^usage: akl-mp3dec' || fail "--help"
if "$dec" --bogus a b 2>/dev/null; then fail "unknown option accepted"; fi
if "$dec" only-one 2>/dev/null; then fail "one file accepted"; fi

in=$data/mp3_ref/mp3_m2_22k05_mono_40_speech.mp3
"$dec" --quiet "$in" "$tmp/a.wav" 2>"$tmp/err"
[ ! -s "$tmp/err" ] || fail "--quiet printed something"
"$dec" --quiet --raw "$in" "$tmp/a.raw"
"$dec" --quiet "$in" - > "$tmp/b.wav"
"$dec" --quiet --raw - - < "$in" > "$tmp/b.raw"
cmp -s "$tmp/a.raw" "$tmp/b.raw" || fail "stdin/stdout raw differs"
[ "$(head -c 4 "$tmp/a.wav")" = RIFF ] || fail "no RIFF header"
[ "$(dd if="$tmp/a.wav" bs=1 skip=8 count=4 2>/dev/null)" = WAVE ] || fail "no WAVE"
wav=$(stat -c %s "$tmp/a.wav") raw=$(stat -c %s "$tmp/a.raw")
[ $((wav - 44)) -eq "$raw" ] || fail "WAV data size $wav vs raw $raw"
[ "$raw" -eq $((60 * 576 * 2)) ] || fail "raw size $raw"
tail -c "$raw" "$tmp/a.wav" | cmp -s - "$tmp/a.raw" || fail "WAV payload differs from raw"
tail -c "$raw" "$tmp/b.wav" | cmp -s - "$tmp/a.raw" || fail "piped WAV payload differs"
# Data size field of the seekable WAV: raw bytes, little-endian.
size_field=$(od -An -tu4 -j40 -N4 "$tmp/a.wav" | tr -d ' ')
[ "$size_field" -eq "$raw" ] || fail "data size field $size_field"

"$dec" "$in" "$tmp/c.wav" 2>"$tmp/err"
grep -q 'frames, .* s, 22050 Hz mono, 0 damaged, .*x real time' "$tmp/err" || fail "summary: $(cat "$tmp/err")"

if "$dec" "$data/mp3_e2e/sine_layer2.mp2" "$tmp/x.wav" 2>"$tmp/err"; then fail "Layer II accepted"; fi
grep -q 'Layer II streams are not supported' "$tmp/err" || fail "Layer II message"
if "$dec" "$data/mp3_e2e/sine_mpeg25.mp3" "$tmp/x.wav" 2>"$tmp/err"; then fail "MPEG-2.5 accepted"; fi
grep -q 'MPEG-2.5 streams are not supported' "$tmp/err" || fail "MPEG-2.5 message"
if "$dec" "$tmp/does-not-exist.mp3" "$tmp/x.wav" 2>/dev/null; then fail "missing input accepted"; fi
echo "cli ok"
