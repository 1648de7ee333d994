#!/bin/sh
# Times the plug-in's BVH reader and assimp's ("assimp info") on the same ~70 MB file (the frames
# of 01_03.bvh repeated to 90,000) and prints both times and their ratios.
# Usage: bench/compare_bvh.sh   (builds the bench preset and the big file when missing; installs
# the assimp-utils package when "assimp" is not on the path)
set -eu
. "$(dirname "$0")/build_bench.sh"
big=/tmp/zyra_bvh_bench_90000.bvh
frames=90000

bench_build bvh_read_tool
tool=$build/bin/bvh_read_tool

if [ ! -f "$big" ]; then
  shared=$root/tests/data/mocap/bvh
  "$tool" --make-big "$shared/01_03.bvh" "$frames" "$big"
fi

if ! command -v assimp > /dev/null; then
  sudo=""
  [ "$(id -u)" -eq 0 ] || sudo=sudo
  $sudo apt-get install -y assimp-utils > /dev/null
fi

# Seconds of CPU (user + system, to the millisecond, from the shell's `times`) and of wall clock;
# the CPU figure is the fair one on a machine that other jobs share.
measure() {
  start=$(date +%s.%N)
  cpu=$( ( "$@" > /tmp/zyra_bvh_out.txt 2>&1 || { cat /tmp/zyra_bvh_out.txt >&2; exit 1; }; times ) |
    tail -1 | awk '{ split($1, u, /[ms]/); split($2, s, /[ms]/); printf "%.3f", u[1] * 60 + u[2] + s[1] * 60 + s[2] }')
  [ -n "$cpu" ] || exit 1
  end=$(date +%s.%N)
  echo "$cpu $start $end" | awk '{ printf "%.3f %.3f\n", $1, $3 - $2 }'
}
# The median of five runs each, CPU and wall taken separately (the file stays in the page cache
# after the first read); our reader reads a take this long with two threads, so its wall time is
# below its CPU time.
median() { sort -n | sed -n 3p; }
runs() { for run in 1 2 3 4 5; do measure "$@"; done; }
ours=$(runs "$tool" "$big")
theirs=$(runs assimp info "$big")
"$tool" "$big"
grep "import took" /tmp/zyra_bvh_out.txt | sed 's/^ */assimp says: /'

size=$(stat -c %s "$big")
oursCpu=$(echo "$ours" | cut -d' ' -f1 | median)
oursWall=$(echo "$ours" | cut -d' ' -f2 | median)
theirsCpu=$(echo "$theirs" | cut -d' ' -f1 | median)
theirsWall=$(echo "$theirs" | cut -d' ' -f2 | median)
echo "$oursCpu $oursWall $theirsCpu $theirsWall" | awk -v size="$size" '{
  mb = size / 1048576
  printf "file:          %.1f MiB\n", mb
  printf "knrexport bvh: %.3f s wall, %.3f s CPU (%.0f MiB/s of wall)\n", $2, $1, mb / $2
  printf "assimp info:   %.3f s wall, %.3f s CPU (%.0f MiB/s of wall)\n", $4, $3, mb / $4
  printf "ratio:         %.1fx wall, %.1fx CPU (medians of five runs)\n", $4 / $2, $3 / $1
}'
