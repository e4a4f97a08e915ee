#!/usr/bin/env bash
# Peer figures for bench_dsp_resampler: sox's very-high-quality rate effect
# on 60 s of stereo noise, 44100 -> 48000 and 96000 -> 44100. Prints the
# real-time factor (seconds of audio per second of CPU, user + system).
set -euo pipefail

command -v sox >/dev/null || { echo "sox not found" >&2; exit 1; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

seconds=60
sox -n -r 44100 -c 2 -b 16 "$work/in44100.wav" synth "$seconds" whitenoise vol 0.5
sox -n -r 96000 -c 2 -b 16 "$work/in96000.wav" synth "$seconds" whitenoise vol 0.5

# CPU seconds (user + system) of one command.
cpu_seconds() {
    if [ -x /usr/bin/time ]; then
        /usr/bin/time -f '%U %S' -o "$work/time" "$@" >/dev/null 2>&1
        awk '{ print $1 + $2 }' "$work/time"
    else
        local TIMEFORMAT='%3U %3S'
        { time "$@" >/dev/null 2>&1; } 2>"$work/time"
        awk '{ print $1 + $2 }' "$work/time"
    fi
}

run() {
    local label=$1 in=$2 rate=$3
    local cpu
    cpu=$(cpu_seconds sox "$in" -r "$rate" "$work/out.wav" rate -v)
    awk -v l="$label" -v s="$seconds" -v c="$cpu" \
        'BEGIN { if (c <= 0) c = 0.001; printf "%-28s cpu %7.3f s   rtf %8.1f\n", l, c, s / c }'
}

echo "sox $(sox --version | sed 's/.*SoX //'), ${seconds} s stereo noise, rate -v"
run "sox 44100 -> 48000" "$work/in44100.wav" 48000
run "sox 96000 -> 44100" "$work/in96000.wav" 44100
