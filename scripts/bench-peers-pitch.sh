#!/usr/bin/env bash
# Peer figures for bench_play_speed: FFmpeg's atempo and rubberband (tempo
# and pitch) and aresample (swr, soxr) on 60 s of 44.1 kHz stereo float,
# single-threaded, decoding to the null muxer. Each filter's time is net of
# an anull run (FFmpeg's -benchmark rtime); the figure is the median of rounds in which the filters
# alternate. Prints the real-time factor (seconds of audio per second).
set -euo pipefail

command -v ffmpeg >/dev/null || { echo "ffmpeg not found" >&2; exit 1; }
rounds=${ROUNDS:-5}
seconds=60
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
ffmpeg -v error -f lavfi -i "sine=f=440:r=44100:d=$seconds,aformat=channel_layouts=stereo" \
    -c:a pcm_f32le "$work/in.wav"

filters=("anull" "atempo=1.25" "atempo=0.8" "rubberband=tempo=1.25" "rubberband=tempo=0.8"
         "rubberband=pitch=1.189207" "aresample=96000" "aresample=96000:resampler=soxr")
available=$(ffmpeg -hide_banner -filters 2>/dev/null)

# Seconds of processing as FFmpeg's own -benchmark reports them (rtime: the
# transcoding loop, without start-up).
wall() {
    ffmpeg -hide_banner -benchmark -threads 1 -filter_threads 1 -i "$work/in.wav" -af "$1" \
        -f null - 2>&1 | sed -n 's/.*bench: utime=.* rtime=\([0-9.]*\)s.*/\1/p' | grep .
}

declare -A times
for ((r = 0; r < rounds; r++)); do
    for f in "${filters[@]}"; do
        name=${f%%=*}
        grep -q " $name " <<<"$available" || continue
        t=$(wall "$f") || continue
        times[$f]+="$t "
    done
done

median() { tr ' ' '\n' <<<"$1" | grep . | sort -g | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }
base=$(median "${times[anull]}")
echo "ffmpeg $(ffmpeg -version | head -1 | awk '{ print $3 }'), ${seconds} s stereo, median of $rounds, net of anull ($base s)"
for f in "${filters[@]}"; do
    [ "$f" = anull ] && continue
    [ -n "${times[$f]:-}" ] || { printf "%-34s not available\n" "$f"; continue; }
    m=$(median "${times[$f]}")
    awk -v l="$f" -v s="$seconds" -v m="$m" -v b="$base" \
        'BEGIN { n = m - b; if (n <= 0) n = 0.001; printf "%-34s net %7.3f s   rtf %8.1f\n", l, n, s / n }'
done
