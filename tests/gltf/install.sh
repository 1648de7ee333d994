#!/usr/bin/env bash
# Installs Khronos' glTF validator (npm "gltf-validator") from package-lock.json, for the tests
# that check the files the host's glTF export writes. Quiet, and does nothing when node_modules
# is already newer than the lock. Needs npm (Debian: apt-get install nodejs npm).
set -euo pipefail
cd "$(dirname "$0")"
stamp=node_modules/.package-lock.json
if [[ -f node_modules/gltf-validator/package.json && -f $stamp && $stamp -nt package-lock.json ]]; then
  exit 0
fi
if ! command -v npm >/dev/null; then
  echo "install.sh: npm is missing; install it first (apt-get install -y nodejs npm)" >&2
  exit 1
fi
echo "Installing the glTF validator (npm ci)..."
npm ci --omit=dev --no-audit --no-fund --loglevel=error >/dev/null
