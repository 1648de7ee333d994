#!/usr/bin/env bash
# Writes rig.zys's model with the host's ExportGLTF as .glb and .gltf into $ZYRA_GLTF_OUT, then
# runs the validator on both.
set -euo pipefail
zyra="$1" validate="$2"
out="${ZYRA_GLTF_OUT:?}"
mkdir -p "$out"
rm -f "$out/rig.glb" "$out/rig.gltf"
"$zyra" --no-default-plugins rig.zys \
  -c "ExportGLTF Rig \"$out/rig.glb\" \"\" 0.01" \
  -c "ExportGLTF Rig \"$out/rig.gltf\" \"Walk\" 0.01"
exec node "$validate" "$out/rig.glb" "$out/rig.gltf"
