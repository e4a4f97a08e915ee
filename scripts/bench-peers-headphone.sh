#!/bin/bash
# Real-time factors of FFmpeg's sofalizer with the MIT KEMAR HRTF that
# Debian ships (/usr/share/libmysofa/default.sofa), the peer of
# bench_effects_headphone: 60 s of 44.1 kHz noise, stereo and 5.1, 32-bit
# float, one thread, output to the null muxer. Each figure is net of an
# `anull` run on the same file (reading and decoding), as the median of
# alternating runs. Times are CPU seconds (user + system).
#
# Usage: scripts/bench-peers-headphone.sh [runs]   (default 5)
set -eu
export LC_ALL=C

RUNS=${1:-5}
SECONDS_OF_AUDIO=60
SOFA=/usr/share/libmysofa/default.sofa
WORK=$(mktemp -d)
trap 'rm -rf "$WORK"' EXIT INT TERM

command -v ffmpeg >/dev/null 2>&1 || { echo "ffmpeg not found" >&2; exit 1; }
ffmpeg -v error -f lavfi -i "anoisesrc=r=44100:a=0.3:d=$SECONDS_OF_AUDIO" \
  -af "aformat=channel_layouts=stereo" -c:a pcm_f32le "$WORK/stereo.wav"
ffmpeg -v error -f lavfi -i "anoisesrc=r=44100:a=0.3:d=$SECONDS_OF_AUDIO" \
  -af "aformat=channel_layouts=5.1" -c:a pcm_f32le "$WORK/surround.wav"

cpu() {
  { TIMEFORMAT="%U + %S"; time "$@" >/dev/null 2>&1; } 2>&1 | bc -l
}
median() { sort -g | awk '{a[NR]=$1} END {print (NR % 2) ? a[(NR+1)/2] : (a[NR/2] + a[NR/2+1]) / 2}'; }

for input in stereo surround; do
  for variant in "sofalizer=sofa=$SOFA:type=freq" "sofalizer=sofa=$SOFA:type=time"; do
    : >"$WORK/net"
    i=0
    while [ "$i" -lt "$RUNS" ]; do
      base=$(cpu ffmpeg -threads 1 -i "$WORK/$input.wav" -af anull -f null -)
      t=$(cpu ffmpeg -threads 1 -i "$WORK/$input.wav" -af "$variant" -f null -)
      echo "$t - $base" | bc -l >>"$WORK/net"
      i=$((i + 1))
    done
    net=$(median <"$WORK/net")
    if [ "$(echo "$net < 0.001" | bc -l)" -eq 1 ]; then net=0.001; fi
    printf '%-9s %-24s %8.3f s   rtf %8.1f\n' "$input" "${variant##*:}" "$net" \
      "$(echo "$SECONDS_OF_AUDIO / $net" | bc -l)"
  done
done
