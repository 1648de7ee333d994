#!/usr/bin/env bash
# Installs what the run report's page test needs: Debian's chromium (through apt) and the
# playwright-core driver (a devDependency in package-lock.json), each only when missing, then
# what the page itself needs (install.sh).
set -euo pipefail
cd "$(dirname "$0")"
if [[ ! -x /usr/bin/chromium ]]; then
  echo "Installing chromium (apt)..."
  sudo=""
  [[ $(id -u) -eq 0 ]] || sudo=sudo
  export DEBIAN_FRONTEND=noninteractive
  $sudo apt-get update -qq
  $sudo apt-get install -y -qq chromium >/dev/null
fi
if [[ ! -f node_modules/playwright-core/package.json || ! -f node_modules/uplot/package.json ||
      ! -f node_modules/three/package.json ]]; then
  if ! command -v npm >/dev/null; then
    echo "install-browser.sh: npm is missing; install it first (apt-get install -y nodejs npm)" >&2
    exit 1
  fi
  echo "Installing playwright-core (npm ci)..."
  npm ci --no-audit --no-fund --loglevel=error >/dev/null
fi
# npm ci empties node_modules, the page's three.js bundle with it.
./install.sh
