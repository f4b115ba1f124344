#!/bin/sh
# akl-mp3dec's command line: help, output forms, errors.
# usage: cli_test.sh AKL_MP3DEC DATA_DIR SCRATCH_DIR
set -eu
dec=$1 data=$2 tmp=$3
mkdir -p "$tmp"
. "$(dirname "$0")/../support/cli_common.sh"

in=$data/mp3_ref/mp3_m2_22k05_mono_40_speech.mp3
check_common_cli akl-mp3dec "$in" $((60 * 576 * 2))

"$dec" "$in" "$tmp/c.wav" 2>"$tmp/err"
grep -q 'frames, .* s, 22050 Hz mono, 0 damaged, .*x real time' "$tmp/err" || fail "summary: $(cat "$tmp/err")"
[ "$(wc -l < "$tmp/err")" -eq 1 ] || fail "damage lines for a clean stream: $(cat "$tmp/err")"

# The damage report: zero counts only under --damage-report; junk counted.
"$dec" --damage-report "$in" "$tmp/c.wav" 2>"$tmp/err"
grep -q '^akl-mp3dec: skipped 0 bytes: 0 before the first frame, 0 between frames, 0 after the last frame, 0 in a truncated last frame$' "$tmp/err" || fail "full report: $(cat "$tmp/err")"
grep -q '^akl-mp3dec: dropped 0 frames: 0 at another sampling rate, 0 of an unsupported layer or version$' "$tmp/err" || fail "full report: $(cat "$tmp/err")"
{ head -c 1000 /dev/zero; cat "$in"; head -c 77 /dev/zero; } > "$tmp/junk.mp3"
"$dec" "$tmp/junk.mp3" "$tmp/c.wav" 2>"$tmp/err"
grep -q ', 2 damaged, ' "$tmp/err" || fail "junk summary: $(cat "$tmp/err")"
grep -q '^akl-mp3dec: skipped 1077 bytes: 1000 before the first frame, 77 after the last frame$' "$tmp/err" || fail "junk report: $(cat "$tmp/err")"

# --mono: a stereo stream in one channel, (left + right) / 2 of its stereo decode.
st=$data/mp3_ref/mp3_m1_44k1_js_128_music.mp3
"$dec" -q --raw "$st" "$tmp/st.raw"
"$dec" -q --raw --mono "$st" "$tmp/mono.raw"
"$dec" -q --mono "$st" "$tmp/mono.wav"
[ "$(od -An -tu2 -j22 -N2 "$tmp/mono.wav" | tr -d ' ')" -eq 1 ] || fail "--mono WAV channels"
python3 - "$tmp/st.raw" "$tmp/mono.raw" <<'PY' || fail "--mono samples"
import array, sys
s, m = array.array('h', open(sys.argv[1], 'rb').read()), array.array('h', open(sys.argv[2], 'rb').read())
assert len(m) * 2 == len(s), (len(m), len(s))
assert all(m[i] == (s[2 * i] + s[2 * i + 1]) >> 1 for i in range(len(m)))
PY

if "$dec" "$data/mp3_e2e/sine_layer2.mp2" "$tmp/x.wav" 2>"$tmp/err"; then fail "Layer II accepted"; fi
grep -q 'Layer II streams are not supported' "$tmp/err" || fail "Layer II message"
if "$dec" "$data/mp3_e2e/sine_mpeg25.mp3" "$tmp/x.wav" 2>"$tmp/err"; then fail "MPEG-2.5 accepted"; fi
grep -q 'MPEG-2.5 streams are not supported' "$tmp/err" || fail "MPEG-2.5 message"
if "$dec" "$tmp/does-not-exist.mp3" "$tmp/x.wav" 2>/dev/null; then fail "missing input accepted"; fi
echo "cli ok"
