#!/usr/bin/env bash
# Writes the loud corpus of tests/data/loud: one second each of a clipped
# square wave beside a full-scale sine (a full-scale sine alone in mono),
# full-scale noise with a sine sweep and a hard-limited mix of plucked
# strings and noise, encoded at three bit rates each, mono and stereo,
# as AAC-LC (ffmpeg's encoder) and Layer III (lame), with reference decodes by
# independent decoders (ffmpeg for AAC, mpg123 for Layer III) as raw 16-bit
# PCM.  The AAC streams are made without noise substitution, so that the
# references compare sample by sample; the pns_* streams keep the encoder's
# default (noise substitution on) and are compared by band levels; the
# 440 Hz tones among them carry noise energies far below their scale factors
# from their second frame on.
#
# usage: tests/e2e_aac/make_loud_corpus.sh   (needs sox, ffmpeg, lame, mpg123)
set -euo pipefail
out="$(cd "$(dirname "$0")/../data" && pwd)/loud"
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
mkdir -p "$out"

# signal NAME CHANNELS: a one-second WAV at 44.1 kHz in $tmp.
signal() {
  local name=$1 ch=$2 f="$tmp/$1_$2.wav"
  case $name in
    square) sox -q -n -r 44100 -c "$ch" "$f" synth 1 square 110 sine 3000 gain -n 0 ;;
    sine) sox -q -n -r 44100 -c "$ch" "$f" synth 1 sine 3000 gain -n 0 ;;
    tone44) ffmpeg -v error -y -f lavfi -i sine=f=440:d=1 -ac "$ch" "$f" ;;
    tone22) ffmpeg -v error -y -f lavfi -i sine=f=440:d=1 -ar 22050 -ac "$ch" "$f" ;;
    noise) sox -q -n -r 44100 -c "$ch" "$f" synth 1 pinknoise synth 1 sine mix 60-8000 gain -n -0.1 ;;
    mix) sox -q -n -r 44100 -c "$ch" "$f" synth 1 pluck A2 synth 1 pluck mix E3 synth 1 pluck mix C#4 \
           synth 1 brownnoise mix gain -n 4 ;;
  esac 2>/dev/null
  echo "$f"
}

# aac NAME CHANNELS KBITS [pns]
aac() {
  local src stem pns=(-aac_pns 0)
  src=$(signal "$1" "$2")
  stem="$out/aac_${1}_$([ "$2" = 1 ] && echo mono || echo st)_$3"
  if [ "${4:-}" = pns ]; then
    pns=()
    stem="$out/pns_${1}_$([ "$2" = 1 ] && echo mono || echo st)_$3"
  fi
  ffmpeg -v error -y -i "$src" -c:a aac "${pns[@]}" -b:a "$3k" -f adts "$stem.aac"
  ffmpeg -v error -y -i "$stem.aac" -f s16le "$stem.aac.ffmpeg.s16"
}

# mp3 NAME CHANNELS KBITS (no LAME tag: both decoders keep every sample)
mp3() {
  local src stem
  src=$(signal "$1" "$2")
  stem="$out/mp3_${1}_$([ "$2" = 1 ] && echo mono || echo st)_$3"
  lame --quiet -t --cbr -b "$3" "$src" "$stem.mp3"
  mpg123 -q -e s16 -s "$stem.mp3" > "$stem.mp3.mpg123.s16"
}

aac square 2 64
aac square 2 128
aac square 2 256
aac sine 1 64
aac noise 2 96
aac noise 1 128
aac noise 2 256
aac mix 2 128
aac mix 1 96
aac mix 2 256
aac mix 2 128 pns
aac tone44 2 128 pns
aac tone22 1 64 pns
mp3 sine 1 64
mp3 square 2 320
mp3 noise 2 192
mp3 noise 1 128
mp3 mix 2 128
mp3 mix 1 96
