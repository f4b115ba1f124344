#!/bin/sh
# Prints the accuracy table of akl-mp3dec's engine against the reference
# decodes (RMS and maximum difference in 16-bit steps, per stream).
# usage: tests/e2e_mp3/mp3_accuracy.sh [BUILD_DIR]   (default build/release; built if needed)
set -eu
cd "$(dirname "$0")/../.."
build=${1:-build/release}
if [ ! -x "$build/tests/e2e_mp3/mp3_accuracy" ]; then
  [ -d "$build" ] || cmake --preset "$(basename "$build")" >/dev/null
  cmake --build "$build" --target mp3_accuracy -j2 >/dev/null
fi
exec "$build/tests/e2e_mp3/mp3_accuracy" tests/data
