#!/bin/sh
# Cost of the whole road of knrconvert (import, tags, Generate, Make Skill, Make Loop, Save Actor,
# scene save) on one long take (bench/library_cost.sh measures a library of takes).
#
#   bench/pipeline_cost.sh [frames]   the take of `frames` frames (default 90,220: 01_03.bvh
#                                     repeated, 31 joints): median of three runs, wall and CPU
#                                     seconds, peak memory, seconds per phase (from the take file)
#
# Builds the bench preset (knrconvert, the plug-in, the file tool) when needed. Wall time on a
# machine that other jobs share runs above the CPU time; both are printed.
set -eu
. "$(dirname "$0")/build_bench.sh"
bench_build knrconvert knrexport bvh_read_tool
tool=$build/bin/bvh_read_tool
convert=$build/bin/knrconvert
shared=$root/tests/data/mocap/bvh
work=$(mktemp -d /tmp/knrconvert_cost.XXXXXX)
trap 'rm -rf "$work"' EXIT

# "wall-seconds cpu-seconds peak-MiB" of one run.
run() {
  /usr/bin/time -f "%e %U %S %M" -o "$work/time" "$@" > "$work/out" 2>&1 || { cat "$work/out" >&2; exit 1; }
  awk '{ printf "%.2f %.2f %.0f\n", $1, $2 + $3, $4 / 1024 }' "$work/time"
}

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
