#!/bin/sh
# akl-aacdec's command line: help, output forms, channel masks, errors.
# usage: cli_test.sh AKL_AACDEC DATA_DIR SCRATCH_DIR
set -eu
dec=$1 data=$2 tmp=$3
mkdir -p "$tmp"
. "$(dirname "$0")/../support/cli_common.sh"

in=$data/aac_ref/aac_lc_22k05_mono_32_speech.aac
check_common_cli akl-aacdec "$in" $((34 * 1024 * 2))

"$dec" "$in" "$tmp/c.wav" 2>"$tmp/err"
grep -q '34 frames, 1.58 s, 22050 Hz mono, 0 damaged, .*x real time' "$tmp/err" || fail "summary: $(cat "$tmp/err")"

# 5.1 with a program configuration element: WAVE_FORMAT_EXTENSIBLE, mask 0x3F.
"$dec" --quiet "$data/conformance/aac/al07_96.adts" "$tmp/d.wav"
[ "$(od -An -tu2 -j20 -N2 "$tmp/d.wav" | tr -d ' ')" -eq 65534 ] || fail "not extensible"
[ "$(od -An -tu2 -j22 -N2 "$tmp/d.wav" | tr -d ' ')" -eq 6 ] || fail "channels"
[ "$(od -An -tu4 -j40 -N4 "$tmp/d.wav" | tr -d ' ')" -eq 63 ] || fail "channel mask"
# Three front channels: FL FR FC.
"$dec" --quiet "$data/conformance/aac/al06_44.adts" "$tmp/e.wav"
[ "$(od -An -tu4 -j40 -N4 "$tmp/e.wav" | tr -d ' ')" -eq 7 ] || fail "3.0 mask"

# Main (prediction) and LTP streams decode without damage.
"$dec" "$data/conformance/aac/am05_44.adts" "$tmp/x.wav" 2>"$tmp/err" || fail "Main profile refused: $(cat "$tmp/err")"
grep -q ' 0 damaged' "$tmp/err" || fail "Main summary: $(cat "$tmp/err")"
"$dec" "$data/conformance/aac/ap05_48.adts" "$tmp/x.wav" 2>"$tmp/err" || fail "LTP refused: $(cat "$tmp/err")"
grep -q ' 0 damaged' "$tmp/err" || fail "LTP summary: $(cat "$tmp/err")"

head -c 3000 /dev/urandom | tr -d '\377' > "$tmp/junk.aac"
if "$dec" "$tmp/junk.aac" "$tmp/x.wav" 2>"$tmp/err"; then fail "junk accepted"; fi
grep -q 'no AAC' "$tmp/err" || fail "junk message: $(cat "$tmp/err")"
if "$dec" "$tmp/does-not-exist.aac" "$tmp/x.wav" 2>/dev/null; then fail "missing input accepted"; fi
echo "cli ok"
