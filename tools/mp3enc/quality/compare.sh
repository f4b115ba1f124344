#!/bin/sh
# Objective quality of akl-mp3enc against LAME on the items of make_items.sh:
# both encode each item with the given settings, mpg123 decodes both, and
# PEAQ (tools/peaq.py of the shared material, path in $PEAQ) scores each
# decode against the original.  Prints one row per item and the means.
# usage: compare.sh AKL_MP3ENC ITEMDIR "AKL OPTIONS" "LAME OPTIONS" [SCRATCH]
set -eu
enc=$1 items=$2 ours=$3 theirs=$4 tmp=${5:-$(mktemp -d)}
peaq=${PEAQ:-/work/shared/tools/peaq.py}
mkdir -p "$tmp"
printf '%-10s %8s %8s %8s %8s %8s %8s\n' item akl_odg lame_odg diff akl_kbps lame_kbps cpu_ratio
for w in "$items"/*.wav; do
  n=$(basename "$w" .wav)
  a0=$(date +%s.%N)
  $enc -q $ours "$w" "$tmp/$n.akl.mp3"
  a1=$(date +%s.%N)
  lame --quiet $theirs "$w" "$tmp/$n.lame.mp3"
  a2=$(date +%s.%N)
  mpg123 -q -w "$tmp/$n.akl.wav" "$tmp/$n.akl.mp3"
  mpg123 -q -w "$tmp/$n.lame.wav" "$tmp/$n.lame.mp3"
  oa=$(python3 "$peaq" "$w" "$tmp/$n.akl.wav" | sed -n 's/^ODG=\([-0-9.]*\).*/\1/p')
  ol=$(python3 "$peaq" "$w" "$tmp/$n.lame.wav" | sed -n 's/^ODG=\([-0-9.]*\).*/\1/p')
  secs=$(soxi -D "$w")
  ka=$(echo "$(stat -c %s "$tmp/$n.akl.mp3") * 8 / $secs / 1000" | bc -l)
  kl=$(echo "$(stat -c %s "$tmp/$n.lame.mp3") * 8 / $secs / 1000" | bc -l)
  cr=$(echo "($a1 - $a0) / ($a2 - $a1)" | bc -l)
  printf '%-10s %8.3f %8.3f %8.3f %8.1f %8.1f %8.2f\n' "$n" "$oa" "$ol" "$(echo "$oa - $ol" | bc -l)" "$ka" "$kl" "$cr"
done | tee "$tmp/rows.txt"
awk '{a+=$2; l+=$3; ka+=$5; kl+=$6; c+=$7; n++} END {printf "%-10s %8.3f %8.3f %8.3f %8.1f %8.1f %8.2f\n", "mean", a/n, l/n, (a-l)/n, ka/n, kl/n, c/n}' "$tmp/rows.txt"
