#!/usr/bin/env bash
# What a library costs: a library of one-minute takes (default 100) converted by
# scripts/convert-library.sh with 1 and then 2 processes. Prints, for each, the wall time, the
# clips converted per minute and the takes that failed, then the speed-up from 1 to 2 processes.
#
#   bench/library_cost.sh [TAKES]
#
# The takes are cut from ../shared/data/bvh/01_03.bvh (31 joints): its frames repeated to one
# minute at the rate its frame time gives, each take starting at another frame so that no two are
# alike. They live in a temporary folder, removed at the end, as is each run's output.
# KNRCONVERT names the converter to measure (default: the one `scripts/setup.sh pipeline` builds,
# an optimised build, built when missing).
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
takes="${1:-100}"
source_take="$root/../shared/data/bvh/01_03.bvh"
[ -f "$source_take" ] || { echo "library_cost: $source_take is missing" >&2; exit 1; }
if [ -z "${KNRCONVERT:-}" ]; then
  "$root/scripts/setup.sh" pipeline
  export KNRCONVERT="$root/build-pipeline/bin/knrconvert"
fi
work="$(mktemp -d /tmp/knr_library_cost.XXXXXX)"
trap 'rm -rf "$work"' EXIT

# One pass over the source take writes every take of the library: the header as it is, then one
# minute of frames from a start that moves by 1/TAKES of the source each take.
mkdir -p "$work/library"
awk -v takes="$takes" -v dir="$work/library" '
  motion == 0 { header = header $0 "\n"; if ($1 == "MOTION") motion = 1; next }
  /^Frames:/ { next }
  /^Frame Time:/ { frame_time = $3; next }
  { frame[n++] = $0 }
  END {
    if (n == 0 || frame_time <= 0) { print "library_cost: no frames in the source take" > "/dev/stderr"; exit 1 }
    per_minute = int(60 / frame_time + 0.5)
    for (k = 0; k < takes; k++) {
      file = sprintf("%s/take%03d.bvh", dir, k + 1)
      start = int(k * n / takes)
      printf "%sFrames: %d\nFrame Time: %s\n", header, per_minute, frame_time > file
      for (i = 0; i < per_minute; i++) print frame[(start + i) % n] > file
      close(file)
    }
    printf "%d takes of %d frames (%g s a frame), %d source frames\n", takes, per_minute, frame_time, n
  }' "$source_take"

seconds=()
for jobs in 1 2; do
  out="$work/out$jobs"
  start=$(date +%s.%N)
  status=0
  "$root/scripts/convert-library.sh" "$work/library" -o "$out" -j "$jobs" > "$work/log$jobs" 2>&1 ||
    status=$?
  end=$(date +%s.%N)
  failed=$(grep -c '^\[ *[0-9]*/[0-9]*\] [^:]*: FAILED' "$work/log$jobs" || true)
  wall=$(awk -v a="$start" -v b="$end" 'BEGIN { printf "%.2f", b - a }')
  seconds+=("$wall")
  awk -v j="$jobs" -v w="$wall" -v t="$takes" -v f="$failed" -v s="$status" 'BEGIN {
    printf "-j %d: %.1f s, %.1f clips a minute, %d failed (exit status %d)\n", j, w, t * 60 / w, f, s }'
  [ "$failed" -eq 0 ] || grep FAILED "$work/log$jobs" | head -3
  rm -rf "$out"
done
awk -v a="${seconds[0]}" -v b="${seconds[1]}" 'BEGIN { printf "speed-up from 1 to 2 processes: %.2fx\n", a / b }'
