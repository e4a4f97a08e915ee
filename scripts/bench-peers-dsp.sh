#!/usr/bin/env bash
# Peer figures for the convolution benchmark: sox's FIR filter on 60 s of
# 44.1 kHz stereo noise with random responses of 2048, 16384 and 65536 taps.
# Prints the real-time factor (seconds of audio per second of CPU time, user
# plus system) of each run, and of a plain copy for the cost of file I/O.
#
# Usage: scripts/bench-peers-dsp.sh [seconds]   (default 60)
set -euo pipefail

seconds=${1:-60}
command -v sox >/dev/null || { echo "sox not found" >&2; exit 1; }

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

sox -q -n -r 44100 -c 2 -e floating-point -b 32 "$work/in.wav" synth "$seconds" whitenoise vol 0.5

# CPU seconds (user + system) of one command.
cpu_seconds() {
    # Children's times are read from this (sub)shell, which waits for them.
    local pid=$BASHPID start end
    start=$(awk '{print $14 + $15 + $16 + $17}' "/proc/$pid/stat")
    "$@"
    end=$(awk '{print $14 + $15 + $16 + $17}' "/proc/$pid/stat")
    awk -v s="$start" -v e="$end" -v hz="$(getconf CLK_TCK)" 'BEGIN { printf "%.3f", (e - s) / hz }'
}

report() {
    local label=$1 cpu=$2
    awk -v l="$label" -v c="$cpu" -v s="$seconds" \
        'BEGIN { if (c > 0) printf "%-22s cpu %7.3f s   rtf %8.1f\n", l, c, s / c; else printf "%-22s cpu %7.3f s   rtf (too fast to time)\n", l, c }'
}

cpu=$(cpu_seconds sox -q "$work/in.wav" "$work/out.wav")
report "copy (no effect)" "$cpu"

for taps in 2048 16384 65536; do
    # A random response scaled so that the output stays well inside full scale.
    awk -v n="$taps" 'BEGIN { srand(taps = n); s = 1 / sqrt(n); for (i = 0; i < n; i++) printf "%.9f\n", (2 * rand() - 1) * s }' \
        > "$work/coefs.txt"
    cpu=$(cpu_seconds sox -q "$work/in.wav" "$work/out.wav" fir "$work/coefs.txt")
    report "sox fir $taps taps" "$cpu"
done
