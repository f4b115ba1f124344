#!/bin/sh
# Accuracy of akl-aacdec's band replication on whole HE-AAC streams: each MP4
# given is rewrapped as ADTS (implicit signalling), decoded, and compared
# with its reference decode (raw s16le at the output rate) by RMS and largest
# difference in 16-bit steps.  Not a test: the streams live outside the tree.
#
# usage: tests/e2e_aac/sbr_accuracy.sh AKL_AACDEC REF_DIR STREAM.mp4...
#   REF_DIR holds <name>.s16 (or <name>.mp4.s16) for each stream
set -eu
dec=$1
refdir=$2
shift 2
tmp=${TMPDIR:-/tmp}/aklac-sbr-accuracy
mkdir -p "$tmp"
for mp4 in "$@"; do
  base=$(basename "$mp4")
  name=${base%.*}
  ref=$refdir/$name.s16
  [ -f "$ref" ] || ref=$refdir/$base.s16
  ffmpeg -v error -y -i "$mp4" -c:a copy -f adts "$tmp/$name.adts"
  "$dec" --quiet --raw "$tmp/$name.adts" "$tmp/$name.s16"
  python3 - "$tmp/$name.s16" "$ref" "$name" <<'PY'
import array, math, sys
a = array.array('h'); b = array.array('h')
a.frombytes(open(sys.argv[1], 'rb').read()); b.frombytes(open(sys.argv[2], 'rb').read())
n = min(len(a), len(b))
s = sum((a[i] - b[i]) ** 2 for i in range(n))
m = max((abs(a[i] - b[i]) for i in range(n)), default=0)
print('%-28s samples %9d / %9d  rms %.3f  max %d' % (sys.argv[3], len(a), len(b), math.sqrt(s / max(n, 1)), m))
PY
done
