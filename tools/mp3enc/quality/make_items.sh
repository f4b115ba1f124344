#!/bin/sh
# Builds the encoder's listening-test items: 10 s, 44.1 kHz, 16-bit stereo
# WAV files made from scratch with sox and espeak-ng, each stressing one
# part of an encoder.
#   music      chords with harmonics, a bass line and a hi-hat pattern
#   castanets  sharp clicks with fast decays over silence (pre-echo)
#   pipe       a harmonic tone gliding in steps (tonal, pitch-pipe-like)
#   applause   dense random claps, decorrelated between the channels
#   speech     espeak-ng, two voices, with pauses
#   dense      the music under reverb with a noise bed (masking-heavy)
# usage: make_items.sh OUTDIR [SEED]
set -eu
out=$1 seed=${2:-1}
mkdir -p "$out"
t=$(mktemp -d)
trap 'rm -rf "$t"' EXIT
fmt="-r 44100 -b 16 -e signed-integer"

# music: four chords of three notes with harmonics, bass, hi-hat every 1/8 s.
i=0
for chord in "220 277.18 329.63" "196 246.94 293.66" "174.61 220 261.63" "196 246.94 311.13"; do
  set -- $chord
  sox -n $fmt -c 1 "$t/c$i.wav" synth 2.5 pluck "$1" pluck "$2" pluck "$3" sine "$(echo "$1 / 2" | bc -l)" \
    remix - gain -n -6 fade 0.01 2.5 0.3
  i=$((i + 1))
done
sox "$t/c0.wav" "$t/c1.wav" "$t/c2.wav" "$t/c3.wav" "$t/chords.wav"
sox -n $fmt -c 1 "$t/hat1.wav" synth 0.125 whitenoise highpass 7000 fade 0 0.125 0.1 gain -14
sox $(for k in $(seq 80); do echo "$t/hat1.wav"; done) "$t/hats.wav"
sox -M "$t/chords.wav" "$t/hats.wav" "$t/music_l.wav" remix 1,2 gain -n -3
sox -M "$t/chords.wav" "$t/hats.wav" "$t/music_r.wav" remix 1v0.8,2v1.1 gain -n -3
sox -M "$t/music_l.wav" "$t/music_r.wav" $fmt "$out/music.wav" trim 0 10

# castanets: clicks at irregular times over near-silence.
sox -n $fmt -c 1 "$t/click.wav" synth 0.06 whitenoise highpass 1500 fade 0 0.06 0.055 gain -3
sox -n $fmt -c 1 "$t/gap1.wav" trim 0 0.19
sox -n $fmt -c 1 "$t/gap2.wav" trim 0 0.31
sox -n $fmt -c 1 "$t/gap3.wav" trim 0 0.07
set --
for k in $(seq 28); do set -- "$@" "$t/click.wav" "$t/gap$(( (k * seed) % 3 + 1 )).wav"; done
sox "$@" "$t/cast.wav"
sox -M "$t/cast.wav" "$t/cast.wav" $fmt "$out/castanets.wav" remix 1v0.9,2v0.7 pad 0 10 trim 0 10

# pipe: a harmonic tone in four steps, slight vibrato.
sox -n $fmt -c 2 "$out/pipe.wav" synth 10 sine 440-460 sine 880-920 sine 1320-1380 sine 1760-1840 \
  remix 1v0.5,2v0.25,3v0.12,4v0.06 1v0.5,2v0.25,3v0.12,4v0.06 tremolo 5 10 gain -n -6

# applause: many short noise bursts, independent per channel.
for c in l r; do
  sox -n $fmt -c 1 "$t/app_$c.wav" synth 10 whitenoise tremolo 23 90 tremolo 37 80 lowpass 9000 gain -n -8
done
sox -M "$t/app_l.wav" "$t/app_r.wav" $fmt "$out/applause.wav" trim 0 10

# speech: two voices, then silence to 10 s.
espeak-ng -v en-us -s 150 -w "$t/s1.wav" "The quick brown fox jumps over the lazy dog. Audio coding keeps what the ear can hear."
espeak-ng -v en-gb+f3 -s 140 -w "$t/s2.wav" "She sells sea shells by the sea shore, and six thick thistle sticks."
sox "$t/s1.wav" "$t/s2.wav" -r 44100 "$t/speech1.wav"
sox -M "$t/speech1.wav" "$t/speech1.wav" $fmt "$out/speech.wav" remix 1 2v0.95 gain -n -3 pad 0 10 trim 0 10

# dense: music under reverb with a pink-noise bed.
sox "$out/music.wav" "$t/rev.wav" reverb 70 50 100 gain -n -4
sox -n $fmt -c 2 "$t/bed.wav" synth 10 pinknoise gain -30
sox -m "$t/rev.wav" "$t/bed.wav" $fmt "$out/dense.wav" gain -n -2 trim 0 10
ls "$out"
