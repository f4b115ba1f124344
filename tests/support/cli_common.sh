# Shared part of the decoders' command-line tests (sourced by
# tests/e2e/cli_test.sh and tests/e2e_aac/cli_test.sh).
#
# check_common_cli NAME INPUT RAW_BYTES: --help, --version, usage errors,
# "--", --quiet, WAV and raw output to files and through pipes (same
# samples), the WAV header's sizes, and output safety (the input is never
# written over; a failed run leaves no file, or the old one, behind).  Uses $dec and $tmp; leaves
# $tmp/a.wav and $tmp/a.raw behind.
fail() { echo "FAIL: $*"; exit 1; }

check_common_cli() {
  name=$1 in=$2 expect=$3
  "$dec" --help | grep -q "^usage: $name" || fail "--help"
  "$dec" --version | grep -q "^$name: " || fail "--version"
  for args in "--bogus a b" "only-one" "a b c"; do
    set +e; "$dec" $args 2>"$tmp/err"; rc=$?; set -e
    [ $rc -eq 2 ] || fail "usage error '$args' exit $rc"
    [ "$(sed -n 2p "$tmp/err")" = "usage: $name [options] INPUT OUTPUT" ] || fail "usage line for '$args': $(cat "$tmp/err")"
    [ "$(wc -l < "$tmp/err")" -eq 3 ] || fail "long usage error for '$args'"
  done
  cp "$in" "$tmp/-dash"
  (cd "$tmp" && "$dec" --quiet -- -dash dash.wav) || fail "-- before a name starting with -"
  cp "$in" "$tmp/self"
  if "$dec" "$tmp/self" "$tmp/self" 2>"$tmp/err"; then fail "output over the input accepted"; fi
  cmp -s "$in" "$tmp/self" || fail "input written over"
  grep -q "is the input file" "$tmp/err" || fail "self message: $(cat "$tmp/err")"
  head -c 2000 /dev/zero > "$tmp/zero.bin"
  rm -f "$tmp/none.wav"
  if "$dec" "$tmp/zero.bin" "$tmp/none.wav" 2>/dev/null; then fail "zeros decoded"; fi
  [ ! -e "$tmp/none.wav" ] || fail "a failed run left an output file"
  echo keep > "$tmp/old.wav"
  if "$dec" "$tmp/zero.bin" "$tmp/old.wav" 2>/dev/null; then fail "zeros decoded"; fi
  [ "$(cat "$tmp/old.wav")" = keep ] || fail "a failed run replaced the old output"
  [ -z "$(ls -A "$tmp" | grep '^\.')" ] || fail "temporary files left: $(ls -A "$tmp")"

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
