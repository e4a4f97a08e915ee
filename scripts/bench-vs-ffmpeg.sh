#!/usr/bin/env bash
# End-to-end speed of the `ondrel` tool against the `ffmpeg` CLI on the same
# 16-bit stereo WAV, effect by effect. Each job runs both tools (ffmpeg with
# -threads 1) in alternation; the figure is the median wall time of all
# rounds. Printed per effect: real-time factor (seconds of audio per second
# of wall time) end to end, and net of each tool's own pass-through run
# (ondrel's Through chain, ffmpeg's anull), with the ratio ours / ffmpeg
# (above 1: ondrel is faster). When the build has the LV2 bundle, the same
# effect also runs as our plugin inside the ffmpeg process
# (`-af lv2=p=urn:ondrel:NAME`), which compares the two filters in one host:
# "lv2 net" is that run and "ff flt" ffmpeg's own filter, both on planar
# float and net of ffmpeg's anull on planar float.
# ffmpeg runs with -threads 1 and -filter_threads 1: one thread, like ours.
# Usage: scripts/bench-vs-ffmpeg.sh [BUILD_DIR] [ROUNDS] [SECONDS]
set -euo pipefail

build=${1:-build}
rounds=${2:-5}
seconds=${3:-90}
tool="$build/tools/ondrel/ondrel"
[ -x "$tool" ] || { echo "no $tool: build the tool first" >&2; exit 1; }
for t in sox ffmpeg awk; do command -v "$t" >/dev/null || { echo "$t not found" >&2; exit 1; }; done
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Music-like input: a slow chord on plucked strings over pink noise with a
# tremolo, different on the two sides.
sox -n -r 44100 -c 1 -b 16 "$work/l.wav" synth "$seconds" pluck C3 pluck E4 pluck G4 \
  pinknoise remix - tremolo 2.5 40 vol 0.45
sox -n -r 44100 -c 1 -b 16 "$work/r.wav" synth "$seconds" pluck A2 pluck C4 pluck E5 \
  brownnoise remix - tremolo 3.1 30 vol 0.45
sox -M "$work/l.wav" "$work/r.wav" "$work/in.wav"

eq10_ours="eq10"
eq10_ff=""
gain=4
for f in 31 63 125 250 500 1000 2000 4000 8000 16000; do
  eq10_ours+=" $f Hz=$gain"
  eq10_ff+="${eq10_ff:+,}equalizer=f=$f:t=q:w=1.22:g=$gain"
  gain=$((gain > -3 ? gain - 1 : 4))
done
supereq_ours="supereq"
gain=3
for f in 16 33 68 140 288 594 1224 2521 5195 10702; do
  supereq_ours+=" $f Hz=$gain"
  gain=$((gain > -3 ? gain - 2 : 3))
done

# name | ondrel effect | ffmpeg filter
jobs=(
  "through|through|anull"
  "peak|peak LowEdge=707 HighEdge=1414 Gain=6|equalizer=f=1000:t=o:w=1:g=6"
  "eq10|$eq10_ours|$eq10_ff"
  "supereq|$supereq_ours|superequalizer=1b=1.4:2b=1.4:3b=1:4b=0.7:5b=0.7:6b=1:7b=1.4:8b=1:9b=0.7:10b=1"
  "limiter|limiter Limit=-6|alimiter=limit=0.5"
  "lowpass|lowpass Frequency=5000 Q=0.707|lowpass=f=5000"
  "highpass|highpass Frequency=100 Q=0.707|highpass=f=100"
  "exciter|exciter|aexciter"
  "delay|delay|adelay=120|260"
  "two2six|two2six Enabled=1|surround"
  "amplifier|amplifier Gain=-3|volume=-3dB"
  "lowshelf|lowshelf Frequency=120 Q=0.707 Gain=4|lowshelf=f=120:g=4"
  "bandpass|bandpass LowEdge=300 HighEdge=3000|bandpass=f=949:t=o:w=3.3"
  "dfxphone|dfx-headphone Headphone=1|crossfeed"
  "ambience|ambience Ambience=60|aecho=0.8:0.88:60:0.4"
  "dfxbass|dfx-hyperbass Hyperbass=60|bass=g=6"
  "fidelity|fidelity Fidelity=60|aexciter"
  "hyperbass|hyperbass|asubboost"
  "vbass|vbass|virtualbass"
  "mbc|mbc|mcompand"
  "pitch|pitch Key=2|rubberband=pitch=1.122462"
)
# The room simulation against ffmpeg's SOFA renderer, when Debian's KEMAR
# set is there.
sofa=/usr/share/libmysofa/default.sofa
[ -f "$sofa" ] && jobs+=("headphone|headphone RoomType=1|sofalizer=sofa=$sofa:type=freq")

bundle=$(cd "$build/lib/lv2" 2>/dev/null && pwd || true)  # lilv wants an absolute path
have_lv2=0
if [ -f "$bundle/ondrel.lv2/manifest.ttl" ] && ffmpeg -hide_banner -filters 2>/dev/null | grep ' lv2 ' >/dev/null; then
  have_lv2=1
fi

# The plugin form of an inline effect: "peak LowEdge=707 Gain=6" ->
# "lv2=p=urn\\:ondrel\\:peak:c=lowedge=707|gain=6" (the port symbol of a
# parameter: lower case, other characters one '_', "p_" before a digit).
lv2_filter() {
  python3 - "$1" <<'PY'
import re, sys
short, _, rest = sys.argv[1].partition(" ")
controls = []
for name, value in re.findall(r"\s*(.+?)=(\S+)", rest):
    sym = re.sub(r"[^0-9a-z]+", "_", name.lower()).strip("_")
    controls.append(("p_" + sym if sym[:1].isdigit() else sym) + "=" + value)
f = "lv2=p=urn\\\\:ondrel\\\\:" + short
print(f + (":c=" + "|".join(controls) if controls else ""))
PY
}

now() { date +%s.%N; }
ours() { "$tool" process -q -f s16 "$work/in.wav" "$work/ours.wav" -e "$1" >/dev/null; }
theirs() {
  ffmpeg -nostdin -hide_banner -v error -threads 1 -filter_threads 1 -i "$work/in.wav" -af "$1" \
    -threads 1 -c:a pcm_s16le -y "$work/ff.wav"
}

declare -A times
for ((r = 0; r < rounds; ++r)); do
  for job in "${jobs[@]}"; do
    IFS='|' read -r name fx filter rest <<<"$job"
    [ -n "${rest:-}" ] && filter="$filter|$rest"
    t0=$(now); ours "$fx"; t1=$(now); theirs "$filter"; t2=$(now)
    times[$name.ours]+=" $(awk -v a="$t0" -v b="$t1" 'BEGIN{print b-a}')"
    times[$name.ff]+=" $(awk -v a="$t1" -v b="$t2" 'BEGIN{print b-a}')"
    if [ "$have_lv2" = 1 ]; then
      # Inside ffmpeg both filters get planar float (an LV2 port's format):
      # the comparison leaves out the s16 conversions that a plugin needs
      # and a native filter may skip.
      plugin=anull
      [ "$name" != through ] && plugin=$(lv2_filter "$fx")
      t3=$(now); LV2_PATH="$bundle" theirs "aformat=sample_fmts=fltp,$plugin"; t4=$(now)
      theirs "aformat=sample_fmts=fltp,$filter"; t5=$(now)
      times[$name.lv2]+=" $(awk -v a="$t3" -v b="$t4" 'BEGIN{print b-a}')"
      times[$name.fff]+=" $(awk -v a="$t4" -v b="$t5" 'BEGIN{print b-a}')"
    fi
  done
done

median() { tr ' ' '\n' <<<"$1" | grep . | sort -g | awk '{v[NR]=$1} END {print (NR%2) ? v[(NR+1)/2] : (v[NR/2]+v[NR/2+1])/2}'; }

printf '%s s of 44.1 kHz stereo s16, median of %s alternating rounds\n' "$seconds" "$rounds"
printf '%-9s | %9s %9s %6s | %9s %9s %6s | %9s %9s %6s\n' effect "ours" "ffmpeg" ratio "ours net" "ff net" ratio "lv2 net" "ff flt" ratio
base_o=$(median "${times[through.ours]}")
base_f=$(median "${times[through.ff]}")
base_l=-1
[ -n "${times[through.fff]:-}" ] && base_l=$(median "${times[through.fff]}")
for job in "${jobs[@]}"; do
  IFS='|' read -r name _ <<<"$job"
  o=$(median "${times[$name.ours]}")
  f=$(median "${times[$name.ff]}")
  l=-1 g=-1
  [ -n "${times[$name.lv2]:-}" ] && l=$(median "${times[$name.lv2]}") && g=$(median "${times[$name.fff]}")
  awk -v n="$name" -v o="$o" -v f="$f" -v l="$l" -v g="$g" -v bo="$base_o" -v bf="$base_f" \
      -v bl="$base_l" -v s="$seconds" 'BEGIN {
    ro = s / o; rf = s / f
    if (n == "through") { printf "%-9s | %9.0f %9.0f %6.2f | %9s %9s %6s | %9s %9s %6s\n", n, ro, rf, ro / rf, "-", "-", "-", "-", "-", "-"; exit }
    no = o - bo; nf = f - bf
    if (no <= 0.001) no = 0.001; if (nf <= 0.001) nf = 0.001
    printf "%-9s | %9.0f %9.0f %6.2f | %9.0f %9.0f %6.2f", n, ro, rf, ro / rf, s / no, s / nf, (s / no) / (s / nf)
    if (l < 0 || bl < 0) { printf " | %9s %9s %6s\n", "-", "-", "-"; exit }
    nl = l - bl; ng = g - bl
    if (nl <= 0.001) nl = 0.001; if (ng <= 0.001) ng = 0.001
    printf " | %9.0f %9.0f %6.2f\n", s / nl, s / ng, (s / nl) / (s / ng)
  }'
done
