#!/usr/bin/env bash
# Sets up what is missing (the build's packages, the report's chart library and headless
# browser), builds, and runs every test (unit tests, plug-in loader, command line, converter,
# scripts). Works from any folder; CMake arguments are read against the caller's folder.
#
#   scripts/run-tests.sh [default|asan] [cmake args ...]
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
preset="${1:-default}"
shift || true
"$root/scripts/setup.sh" "$preset" "$@"
cd "$root"
ctest --preset "$preset" -j "$(nproc)"
