#!/bin/sh
# Builds the BVH readers' fuzz harnesses (the plug-in's reader, and the converter's own reader with
# its conditioning) and runs each for SECONDS (default 240), seeded with the head (hierarchy and a
# few frames) of every BVH file in the test data, the real-world takes among them.
# Usage: fuzz/run_bvh_reader.sh [SECONDS]
set -eu
root=$(cd "$(dirname "$0")/.." && pwd)
seconds=${1:-240}
build=$root/build-fuzz
if [ ! -f "$build/build.ninja" ]; then
  CC=clang CXX=clang++ cmake -S "$root" -B "$build" -DZYRA_BUILD_FUZZ=ON -DZYRA_BUILD_TESTS=OFF \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo -G Ninja
fi
cmake --build "$build" -j2 --target fuzz_bvh_reader fuzz_bvh_take

corpus=$build/bvh_corpus
mkdir -p "$corpus"
shared=$root/tests/data/mocap/bvh
for f in "$shared"/*.bvh "$root"/tests/data/mocap/real-world/*.bvh "$root"/tests/data/bvh/*.bvh; do
  [ -f "$f" ] || continue
  # The hierarchy and three frames, with the frame count to match.
  awk 'BEGIN{m=0} /^MOTION/{m=1} m==0{print; next} m>=1{ if ($1=="Frames:") {print "Frames: 3"} else print; if (++m>6) exit }' \
    "$f" > "$corpus/seed_$(basename "$f")"
done
mkdir -p "$build/bvh_crashes" "$build/bvh_take_corpus"
"$build/bin/fuzz_bvh_reader" -max_total_time="$seconds" -max_len=16384 -timeout=10 \
  -dict="$root/fuzz/bvh.dict" -artifact_prefix="$build/bvh_crashes/" -print_final_stats=1 "$corpus"
"$build/bin/fuzz_bvh_take" -max_total_time="$seconds" -max_len=16384 -timeout=10 \
  -dict="$root/fuzz/bvh.dict" -artifact_prefix="$build/bvh_crashes/take_" -print_final_stats=1 \
  "$build/bvh_take_corpus" "$corpus"
