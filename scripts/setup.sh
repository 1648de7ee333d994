#!/usr/bin/env bash
# Installs the Debian packages the build needs (only those missing), then configures and builds
# the given preset (default: "default").
set -euo pipefail
cd "$(dirname "$0")/.."

packages=(cmake ninja-build g++ nlohmann-json3-dev libcli11-dev libgtest-dev libgmock-dev
          libbenchmark-dev libeigen3-dev)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "Installing: ${missing[*]}"
  sudo_cmd=""
  [ "$(id -u)" -eq 0 ] || sudo_cmd="sudo"
  $sudo_cmd apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo_cmd apt-get install -y -qq "${missing[@]}" >/dev/null
fi

preset="${1:-default}"
shift || true
cmake --preset "$preset" "$@" >/dev/null
cmake --build --preset "$preset" -j "$(nproc)"
