#!/bin/bash
# Real-time factors of sox's dynamics effects, the peers of bench_effects_dynamics:
# `compand` set up as a peak limiter (peer of the limiter), and
# a three-band `mcompand` (peer of the multi-band compressor). Input: 60 s of
# stereo 44.1 kHz noise, 32-bit float. Output goes to sox's null device, so the
# figures include reading the file; the "read only" line shows that share.
# Times are CPU seconds (user + system), as in the library's benchmark, so that
# a busy machine does not distort the comparison.
#
# Usage: scripts/bench-peers-dynamics.sh [runs]   (best of `runs`, default 3)
set -eu
export LC_ALL=C

RUNS=${1:-3}
SECONDS_OF_AUDIO=60
WORK=$(mktemp -d)
trap 'rm -rf "$WORK"' EXIT INT TERM
NOISE="$WORK/noise.wav"

command -v sox >/dev/null 2>&1 || { echo "sox not found" >&2; exit 1; }
sox -V1 -n -r 44100 -c 2 -e floating-point -b 32 "$NOISE" synth "$SECONDS_OF_AUDIO" whitenoise vol 0.9

# Best CPU time (user + system) of RUNS runs of the given command, in seconds.
best_time() {
  best=""
  i=0
  while [ "$i" -lt "$RUNS" ]; do
    t=$( { TIMEFORMAT="%U + %S"; time "$@" >/dev/null 2>&1; } 2>&1 | bc -l)
    if [ -z "$best" ] || [ "$(echo "$t < $best" | bc -l)" -eq 1 ]; then best=$t; fi
    i=$((i + 1))
  done
  echo "$best"
}

report() {
  name=$1
  shift
  t=$(best_time "$@")
  # Below the timer's resolution: count one millisecond.
  if [ "$(echo "$t < 0.001" | bc -l)" -eq 1 ]; then t=0.001; fi
  printf '%-34s %8.3f s   rtf %8.1f\n' "$name" "$t" "$(echo "$SECONDS_OF_AUDIO / $t" | bc -l)"
}

report "sox read only" sox "$NOISE" -n
# Limiter: 5 ms attack, 50 ms release, ceiling -0.2 dB. No look-ahead: sox
# 14.4.2 stops a multi-channel compand that has a delay ("flowed
# asymmetrically") after a fraction of a second.
report "sox compand (limiter)" sox "$NOISE" -n \
  compand 0.005,0.05 6:-70,-70,-0.2,-0.2 -0.1 -90 0
# Three bands split at 200 Hz and 3 kHz, each with its own compressor.
report "sox mcompand (3 bands)" sox "$NOISE" -n \
  mcompand "0.005,0.1 6:-40,-20,0" 200 "0.003,0.08 6:-40,-20,0" 3000 "0.000625,0.0125 6:-40,-20,0"
