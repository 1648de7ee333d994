#!/usr/bin/env bash
# Installs the run report's npm packages (uPlot, inlined into the page at build time) from
# package-lock.json. Quiet, and does nothing when node_modules is already newer than the lock;
# the build's configure step needs it done. Needs npm (Debian: apt-get install nodejs npm).
set -euo pipefail
cd "$(dirname "$0")"
stamp=node_modules/.package-lock.json
if [[ -f node_modules/uplot/dist/uPlot.iife.min.js && -f $stamp && $stamp -nt package-lock.json ]]; then
  exit 0
fi
if ! command -v npm >/dev/null; then
  echo "install.sh: npm is missing; install it first (apt-get install -y nodejs npm)" >&2
  exit 1
fi
echo "Installing the report's npm packages (npm ci)..."
npm ci --omit=dev --no-audit --no-fund --loglevel=error >/dev/null
