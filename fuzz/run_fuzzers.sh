#!/usr/bin/env bash
# Builds the libFuzzer harnesses (preset "fuzz": Debian's clang 14 with its libFuzzer and the
# address, undefined-behaviour and leak sanitizers, into build-fuzz/) and runs each target for a
# fixed time, two at a time on the machine's two cores. Every target starts from its seed corpus
# in fuzz/corpus/<target>/ (the BVH take reader also from the BVH reader's seeds) plus what
# earlier runs kept in build-fuzz/corpus/<target>/; the seeds in the repository are never
# written to.
#
#   fuzz/run_fuzzers.sh [-t SECONDS] [TARGET ...]
#
# TARGET: bvh_reader bvh_take scene_file script weight_file load_actor (default: all). SECONDS per
# target: -t, else $FUZZ_SECONDS, else 60. A crash, a leak, a sanitizer report, an input that runs
# longer than 10 s or a process above 2 GB fails the target; the script then prints the
# reproducer's path (build-fuzz/artifacts/<target>/) and the tail of the target's log
# (build-fuzz/logs/<target>.log), goes on with the other targets and exits with 1 at the end.
# Per target it prints the executions per second and the corpus coverage (features) it ended
# with. To replay a reproducer: build-fuzz/bin/fuzz_<target> PATH.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
seconds=${FUZZ_SECONDS:-60}
if [[ ${1:-} == -t ]]; then
  seconds=${2:?"-t needs a number of seconds"}
  shift 2
fi
all=(bvh_reader bvh_take scene_file script weight_file load_actor)
targets=("$@")
[[ ${#targets[@]} -gt 0 ]] || targets=("${all[@]}")
for target in "${targets[@]}"; do
  [[ " ${all[*]} " == *" $target "* ]] || {
    echo "run_fuzzers: unknown target \"$target\" (${all[*]})" >&2
    exit 2
  }
done
if ! command -v clang++-14 >/dev/null; then
  echo "run_fuzzers: clang++-14 is missing (Debian: apt-get install clang-14 libclang-rt-14-dev)" >&2
  exit 2
fi

build=$root/build-fuzz
started=$(date +%s)
cd "$root"
[[ -f $build/build.ninja ]] || cmake --preset fuzz >/dev/null
cmake --build "$build" -j2 --target "${targets[@]/#/fuzz_}"
built=$(date +%s)
echo "== fuzz harnesses built in $((built - started)) s; ${seconds} s per target"

# Undefined behaviour and leaks end the run as a crash does.
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}

# The options of a target: its longest input and its dictionary.
options() {
  case $1 in
    bvh_reader | bvh_take) echo "-max_len=65536 -dict=$root/fuzz/bvh.dict" ;;
    scene_file) echo "-max_len=131072 -dict=$root/fuzz/scene.dict" ;;
    load_actor) echo "-max_len=131072 -dict=$root/fuzz/load_actor.dict" ;;
    script) echo "-max_len=4096" ;;
    weight_file) echo "-max_len=4096" ;;
  esac
}

run() {
  local target=$1 corpus=$build/corpus/$1 artifacts=$build/artifacts/$1
  local seeds=("$root/fuzz/corpus/$target")
  [[ $target == bvh_take ]] && seeds+=("$root/fuzz/corpus/bvh_reader")
  mkdir -p "$corpus" "$artifacts" "$build/logs"
  # shellcheck disable=SC2046
  "$build/bin/fuzz_$target" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
    -artifact_prefix="$artifacts/" -print_final_stats=1 $(options "$target") \
    "$corpus" "${seeds[@]}" > "$build/logs/$target.log" 2>&1
}

# What a finished target did: its speed and coverage, or its failure with the reproducer.
report() {
  local target=$1 status=$2 log=$build/logs/$1.log
  local speed features
  speed=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log" | tail -1)
  features=$(grep -o 'ft: [0-9]*' "$log" | tail -1 | cut -d' ' -f2)
  if [[ $status -eq 0 ]]; then
    printf '%-12s ok      %6s exec/s  %6s features\n' "$target" "${speed:-?}" "${features:-?}"
    return 0
  fi
  printf '%-12s FAILED  (exit status %s; log %s)\n' "$target" "$status" "$log"
  # The sanitizer's report, or the harness's own line ("<target>: what failed").
  grep -E "^(==[0-9]+==ERROR|SUMMARY|$target:|.*runtime error)" "$log" | head -5 | sed 's/^/  /'
  local reproducer
  reproducer=$(sed -n 's/.*Test unit written to \(.*\)$/\1/p' "$log" | tail -1)
  echo "  reproducer: ${reproducer:-none written (see the log)}"
  return 1
}

failed=0
pending=("${targets[@]}")
while [[ ${#pending[@]} -gt 0 ]]; do
  batch=("${pending[@]:0:2}")
  pending=("${pending[@]:2}")
  pids=()
  for target in "${batch[@]}"; do
    run "$target" &
    pids+=($!)
  done
  for i in "${!batch[@]}"; do
    status=0
    wait "${pids[$i]}" || status=$?
    report "${batch[$i]}" "$status" || failed=1
  done
done
echo "== fuzzing took $(($(date +%s) - started)) s in all (build included)"
exit "$failed"
