#!/usr/bin/env bash
# scripts/convert-library.sh with the converter given as the first argument, on a library of two
# good takes that share a file name in different subfolders and one malformed take: every take
# ends with a numbered line, the good ones are converted under distinct names although the
# malformed one failed, the exit status is 1 only after that, and the report names the failure.
set -u
converter="$1"
root="$(cd "$(dirname "$0")/../.." && pwd)"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/library/studio a" "$work/library/studio b"
cp "$root/examples/data/pipeline.bvh" "$work/library/studio a/walk.bvh"
cp "$root/examples/data/pipeline.bvh" "$work/library/studio b/walk.bvh"
printf 'HIERARCHY\nROOT Hips\n{\n  OFFSET 0 0\n' > "$work/library/broken.bvh"

(cd "$work" && KNRCONVERT="$converter" bash "$root/scripts/convert-library.sh" library -o out -j 2) \
  > "$work/stdout" 2> "$work/stderr"
status=$?
cat "$work/stdout" "$work/stderr"

problems=()
[ "$status" -eq 1 ] || problems+=("exit status $status, expected 1")
for n in 1 2 3; do
  grep -q "^\[$n/3\] " "$work/stdout" || problems+=("no line [$n/3]")
done
grep -q '^\[[1-3]/3\] broken: FAILED: ' "$work/stdout" || problems+=("no failure line for broken")
out="$work/out"
for take in "studio a_walk" "studio b_walk"; do
  for ext in zyra actor.zyra actor.wgmp json; do
    [ -s "$out/$take.$ext" ] || problems+=("missing or empty $take.$ext")
  done
  grep -q '"status": *"ok"' "$out/$take.json" 2>/dev/null || problems+=("$take.json is not ok")
done
grep -q '"status": *"failed"' "$out/broken.json" 2>/dev/null || problems+=("broken.json is not marked failed")
grep -q 'broken' "$out/report.html" 2>/dev/null && grep -qi 'failed' "$out/report.html" ||
  problems+=("report.html does not show the failed take")

# A library without takes: bad usage, and no output folder made.
mkdir -p "$work/bare"
(cd "$work" && KNRCONVERT="$converter" bash "$root/scripts/convert-library.sh" bare -o bare-out) \
  > /dev/null 2>&1
status=$?
[ "$status" -eq 2 ] || problems+=("a library without takes: exit status $status, expected 2")
[ ! -e "$work/bare-out" ] || problems+=("a library without takes made its output folder")

if [ ${#problems[@]} -gt 0 ]; then
  printf 'FAIL: %s\n' "${problems[@]}"
  exit 1
fi
