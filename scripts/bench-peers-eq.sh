#!/usr/bin/env bash
# Times sox on the jobs of the filter and equaliser benchmark
# (bench_effects_eq) and prints real-time factors: seconds of audio per
# second of wall time, 60 s of 44.1 kHz stereo white noise each.
#   sox equalizer, one band          ~ a bell or one band of the IIR EQ
#   sox equalizer, ten-band chain    ~ the ten-band IIR EQ
#   sox fir, 4096 taps               ~ the FFT equaliser
# Usage: scripts/bench-peers-eq.sh [repeats]   (best of `repeats`, default 3)
set -euo pipefail

repeats=${1:-3}
command -v sox >/dev/null || { echo "sox not found" >&2; exit 1; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

seconds=60
sox -n -r 44100 -c 2 -b 16 "$work/noise.wav" synth "$seconds" whitenoise vol 0.5

# A 4096-tap low-pass kernel (windowed sinc at a quarter of the rate).
awk 'BEGIN {
  n = 4096; pi = 3.141592653589793; fc = 0.25;
  for (i = 0; i < n; i++) {
    m = i - (n - 1) / 2;
    s = (m == 0) ? 2 * fc : sin(2 * pi * fc * m) / (pi * m);
    w = 0.5 - 0.5 * cos(2 * pi * i / (n - 1));
    printf "%.9g\n", s * w;
  }
}' > "$work/kernel.txt"

ten_bands=()
gain=4
for f in 31 63 125 250 500 1000 2000 4000 8000 16000; do
  ten_bands+=(equalizer "$f" 1.41q "$gain")
  gain=$(( gain > -3 ? gain - 1 : 4 ))
done

# Best wall time of `repeats` runs of: sox noise.wav -n <effects>
time_sox() {
  local best=""
  for _ in $(seq "$repeats"); do
    local t0 t1
    t0=$(date +%s.%N)
    sox -V1 --single-threaded -D "$work/noise.wav" -n "$@"
    t1=$(date +%s.%N)
    best=$(awk -v a="$t0" -v b="$t1" -v best="$best" \
      'BEGIN { d = b - a; if (best == "" || d < best) print d; else print best }')
  done
  echo "$best"
}

report() {
  local name=$1 elapsed=$2
  awk -v n="$name" -v t="$elapsed" -v s="$seconds" \
    'BEGIN { printf "%-32s %8.3f s   rtf %8.1f\n", n, t, s / t }'
}

report "sox equalizer (1 band)" "$(time_sox equalizer 1000 1q 6)"
report "sox equalizer (10-band chain)" "$(time_sox "${ten_bands[@]}")"
report "sox fir (4096 taps)" "$(time_sox fir "$work/kernel.txt")"
