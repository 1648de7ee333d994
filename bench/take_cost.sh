#!/bin/sh
# Whole-process cost of a long take through the command line, measured against `assimp info` on
# the same file in the same run: import (BVH actor + action), import and save, reopen the saved
# scene. For each length (default 22,555, 45,110, 90,220 and 180,440 frames of 01_03.bvh, 31
# joints, 96 curves with translation on the root only) it prints the median of three runs of each
# (wall time, peak resident memory and CPU time, from /usr/bin/time) and the ratios:
#   assimp/import time, import/assimp peak, (save + reopen)/import time, bytes a key on disk,
#   reopen peak / key bytes in memory (4 a key: evenly spaced frames, float values),
# and last the CPU time per million keys at each length, which stays flat when the cost is linear.
# Usage: bench/take_cost.sh [frames ...]   (builds the bench preset when missing; installs the
# assimp-utils package when "assimp" is not on the path)
set -eu
. "$(dirname "$0")/build_bench.sh"
bench_build zyra knrexport bvh_read_tool
zyra=$build/bin/zyra
tool=$build/bin/bvh_read_tool
shared=$root/tests/data/mocap/bvh
if ! command -v assimp > /dev/null; then
  sudo=""
  [ "$(id -u)" -eq 0 ] || sudo=sudo
  $sudo apt-get install -y assimp-utils > /dev/null
fi
work=$(mktemp -d /tmp/zyra_take_cost.XXXXXX)
trap 'rm -rf "$work"' EXIT

# "wall-seconds peak-KiB cpu-seconds" of one run (CPU: user + system, the fair figure on a
# machine that other jobs share).
run() {
  /usr/bin/time -f "%e %M %U %S" -o "$work/time" "$@" > "$work/out" 2>&1 || { cat "$work/out" >&2; exit 1; }
  awk '{ printf "%s %s %.2f\n", $1, $2, $3 + $4 }' "$work/time"
}
# The run of median time out of three.
median() { for i in 1 2 3; do run "$@"; done | sort -n | sed -n 2p; }

curves=96
[ $# -gt 0 ] || set -- 22555 45110 90220 180440
summary=""
for frames in "$@"; do
  big=/tmp/zyra_bvh_bench_$frames.bvh
  [ -f "$big" ] || "$tool" --make-big "$shared/01_03.bvh" "$frames" "$big" > /dev/null
  script=$work/import.zys
  cat > "$script" << EOF
Answer Page "Import BVH Actor" BVHFile="$big" ActorName="Take" Box=true Scale=0.125 Filter="" Remove=""
KnrImportBVHActor
KnrAddBVHAction Take "$big" "Take" 0.125 true "" "" true
EOF
  scene=$work/take.zyra
  assimp=$(median assimp info "$big")
  import=$(median "$zyra" --quiet "$script")
  save=$(median "$zyra" --quiet "$script" --save "$scene")
  reopen=$(median "$zyra" --quiet --scene "$scene")
  bytes=$(stat -c %s "$scene")
  echo "$frames $assimp $import $save $reopen $bytes" | awk -v curves=$curves '{
    keys = $1 * curves; mib = 1024
    printf "%d frames, %.2f M keys, scene file %.1f MiB  (wall s, peak MiB, CPU s)\n", $1, keys / 1e6, $14 / 1048576
    printf "  assimp info      %6.2f %7.1f %6.2f\n", $2, $3 / mib, $4
    printf "  import           %6.2f %7.1f %6.2f\n", $5, $6 / mib, $7
    printf "  import + save    %6.2f %7.1f %6.2f\n", $8, $9 / mib, $10
    printf "  reopen           %6.2f %7.1f %6.2f\n", $11, $12 / mib, $13
    printf "  import vs assimp: %.2fx faster wall, %.2fx less CPU, peak %.2fx of assimp'"'"'s\n", $2 / $5, $4 / $7, $6 / $3
    printf "  save + reopen: %.2fx the import wall, %.2fx its CPU; %.1f bytes a key on disk\n", ($8 - $5 + $11) / $5, ($10 - $7 + $13) / $7, $14 / keys
    printf "  reopen peak %.2fx the keys in memory (%.1f MiB)\n", $12 * 1024 / (keys * 4), keys * 4 / 1048576
  }'
  summary="$summary$frames $import $save $reopen
"
done
echo "CPU seconds per million keys (import, save, reopen):"
printf "%s" "$summary" | awk -v curves=$curves '{ m = $1 * curves / 1e6
  printf "  %6d frames: %.3f %.3f %.3f\n", $1, $4 / m, ($7 - $4) / m, $10 / m }'
