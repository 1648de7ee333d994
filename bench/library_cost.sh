#!/usr/bin/env bash
# What a library costs: a library of one-minute takes (default 100) converted by
# scripts/convert-library.sh with 1 and then 2 processes. Prints, for each, the wall time, the
# clips converted per minute, the CPU time (all and per take) and the takes that failed, then the
# speed-up from 1 to 2 processes in wall time and the machine's load average (other jobs on the
# machine lower the wall figures; the CPU figures hold).
#
#   bench/library_cost.sh [TAKES]
#
# The takes are cut from tests/data/mocap/bvh/01_03.bvh (31 joints): its frames repeated to one
# minute at the rate its frame time gives, each take starting at another frame so that no two are
# alike. They live in a temporary folder, removed at the end, as is each run's output.
# KNRCONVERT names the converter to measure (default: the one `scripts/setup.sh pipeline` builds,
# an optimised build, built when missing).
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
takes="${1:-100}"
source_take="$root/tests/data/mocap/bvh/01_03.bvh"
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

# CPU seconds (user + system) of every process this shell has waited for so far: the converter
# processes of a run are its grandchildren, whose times reach here through their parents. On a
# machine that other jobs share, CPU time is the fair measure of the work; wall time shows the
# speed-up.
# `times` runs in this shell, not in a command substitution, whose own children would be none.
children_cpu() {
  tail -n 1 "$1" | awk '{ split($1, u, /[ms]/); split($2, s, /[ms]/)
    printf "%.3f", u[1] * 60 + u[2] + s[1] * 60 + s[2] }'
}

seconds=()
for jobs in 1 2; do
  out="$work/out$jobs"
  times > "$work/times_before"
  start=$(date +%s.%N)
  status=0
  "$root/scripts/convert-library.sh" "$work/library" -o "$out" -j "$jobs" > "$work/log$jobs" 2>&1 ||
    status=$?
  end=$(date +%s.%N)
  times > "$work/times_after"
  cpu=$(awk -v a="$(children_cpu "$work/times_before")" -v b="$(children_cpu "$work/times_after")" \
    'BEGIN { printf "%.2f", b - a }')
  failed=$(grep -c '^\[ *[0-9]*/[0-9]*\] [^:]*: FAILED' "$work/log$jobs" || true)
  wall=$(awk -v a="$start" -v b="$end" 'BEGIN { printf "%.2f", b - a }')
  seconds+=("$wall")
  awk -v j="$jobs" -v w="$wall" -v c="$cpu" -v t="$takes" -v f="$failed" -v s="$status" 'BEGIN {
    printf "-j %d: %.1f s wall, %.1f clips a minute; %.1f CPU s, %.2f CPU s a take; %d failed (exit status %d)\n",
      j, w, t * 60 / w, c, c / t, f, s }'
  [ "$failed" -eq 0 ] || grep FAILED "$work/log$jobs" | head -3
  rm -rf "$out"
done
awk -v a="${seconds[0]}" -v b="${seconds[1]}" 'BEGIN { printf "speed-up from 1 to 2 processes: %.2fx\n", a / b }'
echo "load average at the end: $(cut -d ' ' -f 1-3 /proc/loadavg) on $(nproc) cores"
