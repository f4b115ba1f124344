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

if "$dec" "$data/mp3_e2e/sine_layer2.mp2" "$tmp/x.wav" 2>"$tmp/err"; then fail "Layer II accepted"; fi
grep -q 'Layer II streams are not supported' "$tmp/err" || fail "Layer II message"
if "$dec" "$data/mp3_e2e/sine_mpeg25.mp3" "$tmp/x.wav" 2>"$tmp/err"; then fail "MPEG-2.5 accepted"; fi
grep -q 'MPEG-2.5 streams are not supported' "$tmp/err" || fail "MPEG-2.5 message"
if "$dec" "$tmp/does-not-exist.mp3" "$tmp/x.wav" 2>/dev/null; then fail "missing input accepted"; fi
echo "cli ok"
