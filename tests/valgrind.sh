#!/bin/sh
# Runs every unit-test binary and every fuzz corpus replay under valgrind's
# memcheck, on an optimised build without sanitizers (preset `valgrind`).
#
#   tests/valgrind.sh                 configure, build, run everything
#   tests/valgrind.sh vlc mp3 fuzz    only aklac_vlc_tests, aklac_mp3_tests and
#                                     the corpus replays (builds only those)
#
# Set GTEST_FILTER to leave out slow exhaustive tests, e.g.
#   GTEST_FILTER=-*EveryLength*:*EveryOrder* tests/valgrind.sh transform
#
# Any memcheck error (invalid read or write, use of uninitialised values in a
# branch or a system call, definite or indirect leak) fails the run: the exit
# status is the number of binaries with errors.  Logs go to
# build/valgrind/memcheck/<binary>.log.
set -u
cd "$(dirname "$0")/.."
cmake --preset valgrind >/dev/null || exit 100
if [ $# -eq 0 ]; then
  cmake --build --preset valgrind >/dev/null || exit 101
else
  targets=""
  for d in "$@"; do
    if [ "$d" = fuzz ]; then
      for f in fuzz/*_fuzzer.cpp; do targets="$targets $(basename "$f" .cpp)_replay"; done
    else
      targets="$targets aklac_${d}_tests"
    fi
  done
  cmake --build --preset valgrind --target $targets >/dev/null || exit 101
fi
out=build/valgrind/memcheck
mkdir -p "$out"
vg="valgrind --tool=memcheck --error-exitcode=99 --leak-check=full --errors-for-leak-kinds=definite,indirect --track-origins=yes --quiet"
failed=0
run() {  # name, command...
  name=$1
  shift
  start=$(date +%s)
  if $vg --log-file="$out/$name.log" "$@" >"$out/$name.out" 2>&1; then
    echo "clean   $name ($(($(date +%s) - start)) s)"
  else
    echo "ERRORS  $name (see $out/$name.log)"
    failed=$((failed + 1))
  fi
}
run_fuzz() {
  for r in $(find build/valgrind/fuzz -maxdepth 1 -type f -name '*_fuzzer_replay' -perm -u+x | sort); do
    name=$(basename "$r" _fuzzer_replay)
    [ -d "fuzz/corpus/$name" ] && run "fuzz_$name" "$r" "fuzz/corpus/$name"
  done
}
if [ $# -gt 0 ]; then
  for d in "$@"; do
    if [ "$d" = fuzz ]; then
      run_fuzz
    else
      t=$(find build/valgrind/tests -type f -name "aklac_${d}_tests" | head -1)
      run "aklac_${d}_tests" "$t"
    fi
  done
else
  for t in $(find build/valgrind/tests -maxdepth 3 -type f -name 'aklac_*_tests' -perm -u+x | sort); do
    run "$(basename "$t")" "$t"
  done
  run_fuzz
fi
echo "binaries with memcheck errors: $failed"
exit "$failed"
