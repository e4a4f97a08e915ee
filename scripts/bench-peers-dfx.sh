#!/bin/bash
# Real-time factors of FFmpeg's nearest filters to the Dfx enhancers, the
# peers of bench_effects_dfx: aexciter (Fidelity), bass at 90 Hz (DfxHyperbass),
# extrastereo (3D surround), crossfeed (headphone), aecho (ambience) and
# alimiter (dynamic boost). Input: 60 s of stereo 44.1 kHz noise, 32-bit
# float. Each filter's CPU time (user + system) is taken net of an `anull`
# run; runs alternate filter and anull, and the median of the net times is
# reported.
#
# Usage: scripts/bench-peers-dfx.sh [runs]   (default 5)
set -eu
export LC_ALL=C

RUNS=${1:-5}
SECONDS_OF_AUDIO=60
WORK=$(mktemp -d)
trap 'rm -rf "$WORK"' EXIT INT TERM
NOISE="$WORK/noise.wav"

command -v sox >/dev/null 2>&1 || { echo "sox not found" >&2; exit 1; }
command -v ffmpeg >/dev/null 2>&1 || { echo "ffmpeg not found" >&2; exit 1; }
sox -V1 -n -r 44100 -c 2 -e floating-point -b 32 "$NOISE" synth "$SECONDS_OF_AUDIO" whitenoise vol 0.5

cpu_time() {
  { TIMEFORMAT="%U + %S"; time ffmpeg -nostdin -hide_banner -loglevel error -threads 1 \
      -i "$NOISE" -af "$1" -f null - >/dev/null 2>&1; } 2>&1 | bc -l
}

report() {
  name=$1
  filter=$2
  nets=()
  for _ in $(seq "$RUNS"); do
    f=$(cpu_time "$filter")
    a=$(cpu_time anull)
    nets+=("$(echo "$f - $a" | bc -l)")
  done
  med=$(printf '%s\n' "${nets[@]}" | sort -g | awk '{v[NR]=$1} END {print v[int((NR+1)/2)]}')
  if [ "$(echo "$med < 0.001" | bc -l)" -eq 1 ]; then med=0.001; fi
  printf '%-32s net %7.3f s   rtf %8.1f\n' "$name" "$med" "$(echo "$SECONDS_OF_AUDIO / $med" | bc -l)"
}

report "aexciter (Fidelity)" "aexciter"
report "bass g=7.5 f=90 (DfxHyperbass)" "bass=g=7.5:f=90"
report "extrastereo (3D surround)" "extrastereo"
report "crossfeed (headphone)" "crossfeed"
report "aecho (ambience)" "aecho=0.8:0.7:40|60|90:0.3|0.25|0.2"
report "alimiter (dynamic boost)" "alimiter=limit=0.966"
