#!/usr/bin/env bash
# Converts a take with knrconvert and runs the validator on the .glb it writes beside the take's
# other files.
set -euo pipefail
knrconvert="$1" take="$2" out="$3" validate="$4"
rm -rf "$out"
mkdir -p "$out"
"$knrconvert" "$take" -o "$out" > "$out/knrconvert.log" 2>&1 || { cat "$out/knrconvert.log"; exit 1; }
name="$(basename "$take" .bvh)"
[ -s "$out/$name.glb" ] || { echo "knrconvert wrote no $name.glb" >&2; exit 1; }
exec node "$validate" "$out/$name.glb"
