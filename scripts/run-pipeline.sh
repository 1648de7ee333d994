#!/usr/bin/env bash
# Sets up what is missing, builds, and runs the main job, examples/pipeline.zys: a BVH take
# imported as an actor with its action, the scene saved to pipeline.zyra (or to the path given
# with -o). Without a file the bundled take examples/data/pipeline.bvh is used.
#
#   scripts/run-pipeline.sh [file.bvh] [-o out.zyra]
set -euo pipefail
cd "$(dirname "$0")/.."
out="pipeline.zyra"
bvh=""
while [ $# -gt 0 ]; do
  case "$1" in
    -o) out="$2"; shift 2 ;;
    *) bvh="$1"; shift ;;
  esac
done
scripts/setup.sh default

script="examples/pipeline.zys"
if [ -n "$bvh" ]; then
  if [ ! -r "$bvh" ]; then
    echo "run-pipeline: cannot read the BVH file \"$bvh\"" >&2
    exit 2
  fi
  # Scripts have no variables: run a copy of the job that names the given file wherever it names
  # the bundled take (quotes and backslashes escaped as script strings want them).
  path="$(cd "$(dirname "$bvh")" && pwd)/$(basename "$bvh")"
  quoted="${path//\\/\\\\}"
  quoted="${quoted//\"/\\\"}"
  tmpdir="$(mktemp -d)"
  trap 'rm -rf "$tmpdir"' EXIT
  text="$(cat examples/pipeline.zys)"
  shopt -u patsub_replacement 2>/dev/null || true  # keep "&" in the path as it is
  printf '%s\n' "${text//\"examples\/data\/pipeline.bvh\"/\"$quoted\"}" > "$tmpdir/named.zys"
  # The COG and feet lines name joints of the bundled take; those the file lacks are left out
  # (a selection line with the tagging line after it, and the lines that print them).
  drop=()
  for joint in Hips LeftAnkle RightAnkle; do
    if ! grep -Eq "^[[:space:]]*(ROOT|JOINT)[[:space:]]+$joint[[:space:]]*\$" "$bvh"; then
      echo "run-pipeline: the file has no joint $joint; the pipeline's lines that tag it are left out." >&2
      drop+=(-e "/^SelectObj Performer\.$joint\$/{N;d}" -e "/Performer\.$joint\./d")
    fi
  done
  if [ ${#drop[@]} -gt 0 ]; then
    sed "${drop[@]}" "$tmpdir/named.zys" > "$tmpdir/pipeline.zys"
  else
    cp "$tmpdir/named.zys" "$tmpdir/pipeline.zys"
  fi
  script="$tmpdir/pipeline.zys"
fi
build/bin/zyra "$script" --save "$out"
echo "Saved $out"
