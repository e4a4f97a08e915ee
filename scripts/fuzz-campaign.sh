#!/usr/bin/env bash
# Fuzz campaign over every parser target: builds the libFuzzer targets with
# clang (AddressSanitizer + UndefinedBehaviorSanitizer), runs each for
# SECONDS on its corpus in tests/fuzz/corpus/<target>/, merges what it found
# back into that corpus (minimised by set cover), and prints one line per target:
# executions, corpus size and findings. Crash inputs are kept in
# build-fuzz/findings/<target>/.
#
# An input counts as hung after TIMEOUT seconds (default 30): the chain
# targets run whole effects, and the heaviest legal settings (a SuperEQ at
# its longest window and gain table) take a second under the sanitizers on
# an idle machine, several on a busy one.
#
# WORKERS=N runs N fuzzer processes on each target at once, each on its own
# scratch corpus; their executions add up and their finds are merged alike.
#
# Usage: scripts/fuzz-campaign.sh SECONDS [TARGET...]
#        JOBS=2 scripts/fuzz-campaign.sh 600 fuzz_script
#        WORKERS=2 scripts/fuzz-campaign.sh 3600 fuzz_room
set -euo pipefail
seconds=${1:?usage: scripts/fuzz-campaign.sh SECONDS [TARGET...]}
shift || true
here=$(cd "$(dirname "$0")/.." && pwd)
build=${BUILD_FUZZ:-$here/build-fuzz}
jobs=${JOBS:-$(nproc 2>/dev/null || echo 2)}
workers=${WORKERS:-1}

cmake -S "$here" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_C_COMPILER=clang \
  -DONDREL_BUILD_FUZZ=ON -DONDREL_BUILD_TESTS=ON -DONDREL_BUILD_BENCH=OFF \
  -DONDREL_BUILD_TOOLS=OFF >/dev/null

targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  mapfile -t targets < <(cmake --build "$build" --target help | sed -n 's/^\.\.\. \(fuzz_[a-z_0-9]*\).*/\1/p' | sort)
fi
cmake --build "$build" -j "$jobs" --target "${targets[@]}" >/dev/null

status=0
printf '%-22s %14s %10s %9s\n' target executions corpus findings
for t in "${targets[@]}"; do
  corpus="$here/tests/fuzz/corpus/$t"
  findings="$build/findings/$t"
  mkdir -p "$corpus" "$findings"
  dict=()
  [ -f "$here/tests/fuzz/${t#fuzz_}.dict" ] && dict=(-dict="$here/tests/fuzz/${t#fuzz_}.dict")
  # Inputs that once found a fault are seeds too; they are never rewritten.
  regressions=()
  [ -d "$here/tests/fuzz/regressions/$t" ] && regressions=("$here/tests/fuzz/regressions/$t")
  # Each worker runs on a scratch corpus seeded from the checked-in one; new
  # inputs are merged back (minimised) afterwards.
  pids=() works=() logs=()
  for ((k = 1; k <= workers; ++k)); do
    work="$build/work/$t.$k" log="$build/$t.$k.log"
    [ "$workers" -eq 1 ] && work="$build/work/$t" log="$build/$t.log"
    mkdir -p "$work"
    works+=("$work") logs+=("$log")
    "$build/tests/$t" "${dict[@]}" -max_total_time="$seconds" -print_final_stats=1 \
      -artifact_prefix="$findings/" -timeout="${TIMEOUT:-30}" -rss_limit_mb=4096 "$work" "$corpus" \
      "${regressions[@]}" >"$log" 2>&1 &
    pids+=($!)
  done
  rc=0
  for pid in "${pids[@]}"; do wait "$pid" || rc=$?; done
  # Keeps the checked-in corpus small: the greedy set cover of the old
  # corpus and the new inputs replaces it when the merge works.
  fresh="$build/merged/$t"
  rm -rf "$fresh" && mkdir -p "$fresh"
  if "$build/tests/$t" -set_cover_merge=1 "$fresh" "$corpus" "${works[@]}" >/dev/null 2>&1 &&
     [ -n "$(ls -A "$fresh")" ]; then
    find "$corpus" -type f -delete
    cp "$fresh"/* "$corpus"/
  fi
  execs=0
  for log in "${logs[@]}"; do
    n=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
    execs=$((execs + ${n:-0}))
  done
  found=$(find "$findings" -type f | wc -l)
  printf '%-22s %14s %10s %9s\n' "$t" "$execs" "$(find "$corpus" -type f | wc -l)" "$found"
  if [ "$rc" -ne 0 ] || [ "$found" -ne 0 ]; then status=1; fi
done
exit $status
