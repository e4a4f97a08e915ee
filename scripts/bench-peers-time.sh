#!/bin/bash
# Real-time factors of FFmpeg's time-based filters, the peers of
# bench_effects_time: `adelay` and `aecho` (peers of the delay), a
# multi-tap `aecho`, and, when the calf-plugins LV2 bundle is installed,
# Calf Reverb inside FFmpeg's lv2 filter (peer of the reverb). Input: 60 s
# of stereo 44.1 kHz noise, 32-bit float, single-threaded FFmpeg writing to
# the null muxer. Each figure is net of an `anull` run (decoding and muxing),
# as the median of alternating runs, in CPU seconds (user + system).
#
# Usage: scripts/bench-peers-time.sh [runs]   (default 5)
set -eu
export LC_ALL=C

RUNS=${1:-5}
SECONDS_OF_AUDIO=60
WORK=$(mktemp -d)
trap 'rm -rf "$WORK"' EXIT INT TERM
NOISE="$WORK/noise.wav"

command -v ffmpeg >/dev/null 2>&1 || { echo "ffmpeg not found" >&2; exit 1; }
ffmpeg -hide_banner -loglevel error -f lavfi \
  -i "anoisesrc=r=44100:a=0.5:d=$SECONDS_OF_AUDIO,aformat=channel_layouts=stereo:sample_fmts=flt" \
  -c:a pcm_f32le "$NOISE"

NAMES=("anull" "adelay 350|500 ms" "aecho 1 tap (350 ms, 0.4)" "aecho 4 taps (room)")
FILTERS=("anull" "adelay=350|500" "aecho=1:1:350:0.4"
  "aecho=0.8:0.9:21|31|46|68:0.5|0.4|0.35|0.3")
if [ -f /usr/lib/lv2/calf.lv2/Reverb.ttl ]; then
  NAMES+=("lv2 Calf Reverb (1.8 s)")
  FILTERS+=("lv2=p=http\\\\://calf.sourceforge.net/plugins/Reverb:c=decay_time=1.8|amount=0.25")
fi

cpu_time() {
  { TIMEFORMAT="%U + %S"; time ffmpeg -hide_banner -loglevel error -threads 1 -i "$NOISE" \
      -af "$1" -f null - >/dev/null 2>&1; } 2>&1 | bc -l
}

# Alternate the filters run by run, so that load changes hit all alike.
declare -A times
for ((r = 0; r < RUNS; r++)); do
  for i in "${!FILTERS[@]}"; do
    times[$i]="${times[$i]:-} $(cpu_time "${FILTERS[$i]}")"
  done
done
median() { echo "$@" | tr ' ' '\n' | grep -v '^$' | sort -g | awk '{a[NR]=$1} END {print a[int((NR+1)/2)]}'; }

base=$(median ${times[0]})
printf '%-30s %8.3f s\n' "${NAMES[0]}" "$base"
for ((i = 1; i < ${#FILTERS[@]}; i++)); do
  t=$(median ${times[$i]})
  net=$(echo "$t - $base" | bc -l)
  if [ "$(echo "$net < 0.001" | bc -l)" -eq 1 ]; then net=0.001; fi
  printf '%-30s %8.3f s   net %8.3f s   rtf %8.1f\n' "${NAMES[$i]}" "$t" "$net" \
    "$(echo "$SECONDS_OF_AUDIO / $net" | bc -l)"
done
