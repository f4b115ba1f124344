#!/usr/bin/env bash
# Long fuzzing campaign: each named target runs until it has executed 10 million
# inputs or for 30 minutes, whichever comes first, on a scratch copy of its
# corpus. Prints one summary line per target (executions, wall seconds,
# executions per second, corpus size, findings).
#
#   cmake --preset fuzz && cmake --build --preset fuzz
#   fuzz/campaign.sh [-t seconds] [-r runs] [-o outdir] target...
#
# Findings are left in <outdir>/<target>/artifacts; the run's new corpus in
# <outdir>/<target>/corpus. Exit status 1 if any target found something.
set -u
here=$(cd "$(dirname "$0")" && pwd)
bin="$here/../build/fuzz/fuzz"
seconds=1800
runs=10000000
out=/tmp/aklac-fuzz
while getopts "t:r:o:b:" opt; do
  case $opt in
    t) seconds=$OPTARG ;;
    r) runs=$OPTARG ;;
    o) out=$OPTARG ;;
    b) bin=$OPTARG ;;
    *) echo "usage: $0 [-t seconds] [-r runs] [-o outdir] [-b bindir] target..." >&2; exit 2 ;;
  esac
done
shift $((OPTIND - 1))
if [ $# -eq 0 ]; then
  echo "usage: $0 [-t seconds] [-r runs] [-o outdir] [-b bindir] target..." >&2
  exit 2
fi

status=0
for t in "$@"; do
  exe="$bin/${t}_fuzzer"
  if [ ! -x "$exe" ]; then
    echo "$t: $exe not built (cmake --build --preset fuzz)" >&2
    status=2
    continue
  fi
  dir="$out/$t"
  rm -rf "$dir" && mkdir -p "$dir/corpus" "$dir/artifacts"
  cp "$here/corpus/$t/"* "$dir/corpus/"
  extra=()
  case $t in
    mp3dec | aacdec) extra=(-max_len=16384 -timeout=20) ;;
    aac_predict) extra=(-max_len=24576 -timeout=20) ;;
  esac
  start=$(date +%s)
  "$exe" -runs="$runs" -max_total_time="$seconds" -print_final_stats=1 \
    -artifact_prefix="$dir/artifacts/" "${extra[@]}" "$dir/corpus" > "$dir/log" 2>&1
  rc=$?
  wall=$(( $(date +%s) - start ))
  execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$dir/log" | tail -1)
  found=$(find "$dir/artifacts" -type f | wc -l)
  files=$(find "$dir/corpus" -type f | wc -l)
  printf '%-14s execs %10s  wall %5ss  %8s exec/s  corpus %5s  findings %s  (exit %s)\n' \
    "$t" "${execs:-?}" "$wall" "$(( ${execs:-0} / (wall > 0 ? wall : 1) ))" "$files" "$found" "$rc"
  if [ "$rc" -ne 0 ] || [ "$found" -ne 0 ]; then status=1; fi
done
exit $status
