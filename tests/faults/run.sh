#!/bin/sh
# Plants each fault of tests/faults/*.patch in a scratch copy of this tree,
# builds the unit-test binaries (release, ccache) and reports which binary
# catches it: the one the patch names first, then the others.  A fault no
# binary fails on is MISSED.  The unfaulted tree must pass first.
#
#   tests/faults/run.sh [SCRATCH_DIR] [PATCH...]   (default /tmp/aklac-faults, every patch)
#
# The tree tested is this working tree, or the commit named by REV (e.g.
# REV=main~3 tests/faults/run.sh /tmp/old) to measure an earlier suite with
# the same faults.
#
# FIRST="core aac" tries those binaries before the one the patch names;
# NOCHECK=1 skips building and running every binary on the unfaulted tree.
#
# Prints one line per fault: its name, "caught by <binary>" with the first
# failing tests (or a crash or timeout), or MISSED.
# Logs: SCRATCH_DIR/logs/<fault>/<binary>.log.  Slow on a loaded machine: one
# object and the test binaries are rebuilt per fault.
set -u
here=$(cd "$(dirname "$0")/../.." && pwd)
scratch=${1:-/tmp/aklac-faults}
[ $# -gt 0 ] && shift
patches=""
for p in "$@"; do patches="$patches $(cd "$(dirname "$p")" && pwd)/$(basename "$p")"; done
mkdir -p "$scratch/tree" "$scratch/logs"
# The tree is refreshed in place and keeps the release preset's layout
# (tree/build/release), so unchanged files are not rebuilt and ccache can
# share objects with other checkouts' release builds.
if [ -n "${REV:-}" ]; then
  git -C "$here" archive "$REV" | tar -C "$scratch/tree" -xf - || exit 2
else
  tar -C "$here" --exclude=./build --exclude=./.git -cf - . | tar -C "$scratch/tree" -xpf -
fi
cd "$scratch/tree" || exit 2
cmake --preset release -DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache >/dev/null || exit 2
bins="core vector transform vlc mp3 aac sbr mp3enc aacdec mp4 threads"
build() { nice cmake --build build/release -j2 --target "$@" >"$scratch/logs/build.log" 2>&1; }
run() {  # family, log dir: 0 when the binary passes
  exe=$(find build/release/tests -maxdepth 1 -type f -name "aklac_$1_tests" | head -1)
  GTEST_BRIEF=1 timeout 900 nice "$exe" >"$2/$1.log" 2>&1
}
all=""
for b in $bins; do all="$all aklac_${b}_tests"; done
if [ -z "${NOCHECK:-}" ]; then
  build $all || { echo "the unfaulted tree does not build (see $scratch/logs/build.log)"; exit 2; }
  mkdir -p "$scratch/logs/none"
  for b in $bins; do
    run "$b" "$scratch/logs/none" || { echo "aklac_${b}_tests fails without a fault (see $scratch/logs/none)"; exit 2; }
  done
fi
patches=${patches:-$(ls "$here"/tests/faults/*.patch)}
missed=0
for p in $patches; do
  name=$(basename "$p" .patch)
  first=$(sed -n 's/^First binary: aklac_\(.*\)_tests$/\1/p' "$p")
  logs="$scratch/logs/$name"
  mkdir -p "$logs"
  if ! patch -s -p1 <"$p" >"$logs/patch.log" 2>&1; then
    echo "$name: does not apply"
    continue
  fi
  result=MISSED
  order=$(echo ${FIRST:-} $first $bins | tr ' ' '\n' | awk 'NF && !seen[$0]++')
  for b in $order; do
    if ! build "aklac_${b}_tests"; then result="caught by the build"; break; fi
    if ! run "$b" "$logs"; then
      failed=$(sed -n 's/^\[  FAILED  \] \([A-Za-z0-9_/.]*\).*/\1/p' "$logs/$b.log" | grep "\\." | sort -u | head -3 | tr '\n' ' ')
      result="caught by aklac_${b}_tests: ${failed:-crash or timeout}"
      break
    fi
  done
  patch -s -R -p1 <"$p"
  [ "$result" = MISSED ] && missed=$((missed + 1))
  echo "$name: $result"
done
echo "missed: $missed"
