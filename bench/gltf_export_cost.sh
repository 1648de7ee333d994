#!/bin/sh
# Share of the glTF export (`<take>.glb`, the phase "gltf" of the take file) in the whole road of
# knrconvert on one long take; the target is at most 10%.
#
#   bench/gltf_export_cost.sh [frames]   the take of `frames` frames (default 90,220: 01_03.bvh
#                                        repeated, 31 joints, as bench/pipeline_cost.sh makes it):
#                                        three runs; per run the export's and the whole road's
#                                        wall seconds and their ratio, then the median ratio and
#                                        the size of the .glb
#
# Builds the bench preset (knrconvert, the plug-in, the file tool) when needed.
set -eu
. "$(dirname "$0")/build_bench.sh"
bench_build knrconvert knrexport bvh_read_tool
tool=$build/bin/bvh_read_tool
convert=$build/bin/knrconvert
work=$(mktemp -d /tmp/gltf_export_cost.XXXXXX)
trap 'rm -rf "$work"' EXIT

frames=${1:-90220}
big=/tmp/zyra_bvh_bench_$frames.bvh
[ -f "$big" ] || "$tool" --make-big "$root/tests/data/mocap/bvh/01_03.bvh" "$frames" "$big" > /dev/null
for i in 1 2 3; do
  "$convert" --quiet --no-report -o "$work/dir" "$big" > "$work/out" 2>&1 || { cat "$work/out" >&2; exit 1; }
  python3 - "$work/dir/zyra_bvh_bench_$frames.json" >> "$work/runs" << 'PY'
import json, sys
seconds = json.load(open(sys.argv[1]))["seconds"]
print("%.3f %.3f %.4f" % (seconds["gltf"], seconds["total"], seconds["gltf"] / seconds["total"]))
PY
done
awk '{ printf "run %d: export %.2f s of %.2f s (%.1f%%)\n", NR, $1, $2, 100 * $3 }' "$work/runs"
sort -k3 -n "$work/runs" | sed -n 2p | awk -v f="$frames" '{
  printf "%d frames: the glTF export is %.1f%% of the road (median of 3; target at most 10%%)\n", f, 100 * $3 }'
ls -l "$work/dir/zyra_bvh_bench_$frames.glb" | awk '{ printf "the .glb: %.1f MiB\n", $5 / 1048576 }'
