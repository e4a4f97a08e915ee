#!/usr/bin/env bash
# Runs every benchmark binary of a build, then the peer-tool scripts.
# Usage: scripts/run-benchmarks.sh [BUILD_DIR]
set -euo pipefail
build=${1:-build}
here=$(cd "$(dirname "$0")" && pwd)
for b in "$build"/bench/bench_*; do
  [ -x "$b" ] || continue
  echo "== $(basename "$b")"
  "$b" --benchmark_min_time=0.2
done
for s in "$here"/bench-peers-*.sh; do
  [ -f "$s" ] || continue
  echo "== $(basename "$s")"
  bash "$s"
done
