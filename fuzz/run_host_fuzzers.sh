#!/bin/sh
# Builds the fuzz harnesses of the host's readers (scene file, script language) and of the
# plug-in's weight-file reader, and runs each for SECONDS (default 120). The scene seeds are scenes the zyra command line saves from the
# examples, plus the small hand-written ones in fuzz/corpus_scene; the script seeds are the
# examples and the hand-written ones in fuzz/corpus_script; the weight-file fuzzer starts empty
# (its format is small enough for libFuzzer to find records on its own).
# Usage: fuzz/run_host_fuzzers.sh [SECONDS]
set -eu
root=$(cd "$(dirname "$0")/.." && pwd)
seconds=${1:-120}
build=$root/build-fuzz
if [ ! -f "$build/build.ninja" ]; then
  CC=clang CXX=clang++ cmake -S "$root" -B "$build" -DZYRA_BUILD_FUZZ=ON -DZYRA_BUILD_TESTS=OFF \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo -G Ninja
fi
cmake --build "$build" -j2 --target fuzz_scene_file fuzz_script fuzz_weight_file zyra

scene_corpus=$build/scene_corpus
script_corpus=$build/script_corpus
weight_corpus=$build/weight_corpus
mkdir -p "$scene_corpus" "$script_corpus" "$weight_corpus" "$build/scene_crashes" \
  "$build/script_crashes" "$build/weight_crashes"
cp "$root"/fuzz/corpus_scene/* "$scene_corpus"/
cp "$root"/fuzz/corpus_script/* "$root"/examples/*.zys "$script_corpus"/
# Scenes saved by the host itself: the example pipeline, and it exported as a branch.
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
for script in "$root"/examples/*.zys; do
  name=$(basename "$script" .zys)
  (cd "$work" && "$build/bin/zyra" --quiet --no-default-plugins "$script" \
      -c "ZrExportDotZyraFile Rig \"$work/${name}_branch.zyra\"" \
      --save "$work/$name.zyra" >/dev/null 2>&1) || true
  for f in "$work/$name.zyra" "$work/${name}_branch.zyra"; do
    [ -f "$f" ] && cp "$f" "$scene_corpus/seed_$(basename "$f")"
  done
done

run() {
  harness=$1 corpus=$2 crashes=$3
  shift 3
  echo "== $harness for $seconds s"
  "$build/bin/$harness" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
    -artifact_prefix="$crashes/" -print_final_stats=1 "$@" "$corpus" 2>&1 |
    grep -E "stat::number_of_executed_units|ERROR|SUMMARY|Done|crash-|leak-|timeout-" || true
}
run fuzz_scene_file "$scene_corpus" "$build/scene_crashes" -max_len=65536
run fuzz_script "$script_corpus" "$build/script_crashes" -max_len=4096
run fuzz_weight_file "$weight_corpus" "$build/weight_crashes" -max_len=4096
