#!/usr/bin/env bash
# Sets up what is missing, builds, and runs every test (unit tests, plug-in loader, command line).
set -euo pipefail
cd "$(dirname "$0")/.."
preset="${1:-default}"
shift || true
scripts/setup.sh "$preset" "$@"
ctest --preset "$preset" -j "$(nproc)"
