#!/bin/sh
# Cost of the whole road of knrconvert (import, tags, Generate, Make Skill, Make Loop, Save Actor,
# scene save) on one long take, and the throughput of a library of takes.
#
#   bench/pipeline_cost.sh [frames]            the take of `frames` frames (default 90,220: 01_03.bvh
#                                              repeated, 31 joints): median of three runs, wall and
#                                              CPU seconds, peak memory, seconds per phase (from
#                                              the take file)
#   bench/pipeline_cost.sh --library N [secs]  N takes of `secs` seconds (default 100 of 60 s):
#                                              takes a minute with 1 process and with 2, and the
#                                              speed-up
#
# Builds the bench preset (knrconvert, the plug-in, the file tool) when needed. Wall time on a
# machine that other jobs share runs above the CPU time; both are printed.
set -eu
root=$(cd "$(dirname "$0")/.." && pwd)
build=$root/build-bench
[ -f "$build/build.ninja" ] || cmake --preset bench -S "$root" > /dev/null
cmake --build "$build" -j2 --target knrconvert knrexport bvh_read_tool > /dev/null
tool=$build/bin/bvh_read_tool
convert=$build/bin/knrconvert
shared=$root/../shared/data/bvh
[ -d "$shared" ] || shared=$root/../../shared/data/bvh
work=$(mktemp -d /tmp/knrconvert_cost.XXXXXX)
trap 'rm -rf "$work"' EXIT

# "wall-seconds cpu-seconds peak-MiB" of one run.
run() {
  /usr/bin/time -f "%e %U %S %M" -o "$work/time" "$@" > "$work/out" 2>&1 || { cat "$work/out" >&2; exit 1; }
  awk '{ printf "%.2f %.2f %.0f\n", $1, $2 + $3, $4 / 1024 }' "$work/time"
}

if [ "${1:-}" = "--library" ]; then
  count=${2:-100}
  seconds=${3:-60}
  frames=$((seconds * 120))
  one=/tmp/zyra_bvh_bench_$frames.bvh
  [ -f "$one" ] || "$tool" --make-big "$shared/01_03.bvh" "$frames" "$one" > /dev/null
  mkdir -p "$work/lib"
  i=0
  while [ $i -lt "$count" ]; do ln -s "$one" "$work/lib/take$i.bvh"; i=$((i + 1)); done
  for jobs in 1 2; do
    rm -rf "$work/dir$jobs"
    start=$(date +%s.%N)
    find "$work/lib" -name '*.bvh' | sort | xargs -P "$jobs" -n $(( (count + jobs - 1) / jobs )) \
      "$convert" --quiet --no-report -o "$work/dir$jobs" > "$work/lines$jobs"
    end=$(date +%s.%N)
    echo "$jobs $start $end" >> "$work/library"
  done
  awk -v n="$count" -v s="$seconds" '{ t[$1] = $3 - $2 }
    END {
      printf "%d takes of %d s (%d frames at 120 fps)\n", n, s, s * 120
      printf "  1 process:   %6.1f s, %6.1f takes a minute\n", t[1], n * 60 / t[1]
      printf "  2 processes: %6.1f s, %6.1f takes a minute, %.2fx the speed of one\n", t[2], n * 60 / t[2], t[1] / t[2]
    }' "$work/library"
  exit 0
fi

frames=${1:-90220}
big=/tmp/zyra_bvh_bench_$frames.bvh
[ -f "$big" ] || "$tool" --make-big "$shared/01_03.bvh" "$frames" "$big" > /dev/null
for i in 1 2 3; do
  echo "$(run "$convert" --quiet --no-report -o "$work/dir" "$big") $i" >> "$work/runs"
  cp "$work/dir/zyra_bvh_bench_$frames.json" "$work/take$i.json"
done
median=$(sort -n "$work/runs" | sed -n 2p)
echo "$median" | awk -v f="$frames" '{
  printf "%d frames: wall %.2f s, CPU %.2f s, peak %d MiB (median of 3 by wall time)\n", f, $1, $2, $3 }'
python3 - "$work/take$(echo "$median" | awk '{ print $4 }').json" << 'PY'
import json, sys
take = json.load(open(sys.argv[1]))
print("  phases (wall s): " + ", ".join("%s %.2f" % kv for kv in take["seconds"].items()))
print("  %s, loop %d..%d, seam %.2f -> %.4f" % (take["skill"], take["loop"]["start"], take["loop"]["end"],
                                              take["loop"]["seamBefore"], take["loop"]["seamAfter"]))
PY
