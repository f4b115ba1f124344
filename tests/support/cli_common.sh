# Shared part of the decoders' command-line tests (sourced by
# tests/e2e_mp3/cli_test.sh and tests/e2e_aac/cli_test.sh).
#
# check_common_cli NAME INPUT RAW_BYTES: --help, unknown options, the file
# count, --quiet, WAV and raw output to files and through pipes (same
# samples), and the WAV header's sizes.  Uses $dec and $tmp; leaves
# $tmp/a.wav and $tmp/a.raw behind.
fail() { echo "FAIL: $*"; exit 1; }

check_common_cli() {
  name=$1 in=$2 expect=$3
  "$dec" --help | grep -q "^usage: $name" || fail "--help"
  if "$dec" --bogus a b 2>/dev/null; then fail "unknown option accepted"; fi
  if "$dec" only-one 2>/dev/null; then fail "one file accepted"; fi

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
  [ "$raw" -eq "$expect" ] || fail "raw size $raw"
  tail -c "$raw" "$tmp/a.wav" | cmp -s - "$tmp/a.raw" || fail "WAV payload differs from raw"
  tail -c "$raw" "$tmp/b.wav" | cmp -s - "$tmp/a.raw" || fail "piped WAV payload differs"
  # Data size field of the seekable WAV: raw bytes, little-endian.
  size_field=$(od -An -tu4 -j40 -N4 "$tmp/a.wav" | tr -d ' ')
  [ "$size_field" -eq "$raw" ] || fail "data size field $size_field"
}
