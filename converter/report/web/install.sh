#!/usr/bin/env bash
# Installs the run report's npm packages from package-lock.json (uPlot and three.js, inlined into
# the page at build time, and esbuild) and bundles the parts of three.js the page uses
# (three-view.js) into node_modules/.knr/three-view.min.js, a classic script: three.js ships only
# as ES modules, which an offline one-file page cannot import. Quiet, and does nothing when both
# are newer than their sources; the build's configure step needs it done. Needs npm (Debian:
# apt-get install nodejs npm).
set -euo pipefail
cd "$(dirname "$0")"
stamp=node_modules/.package-lock.json
bundle=node_modules/.knr/three-view.min.js
if [[ ! (-f node_modules/uplot/dist/uPlot.iife.min.js && -f node_modules/three/package.json &&
         -f $stamp && $stamp -nt package-lock.json) ]]; then
  if ! command -v npm >/dev/null; then
    echo "install.sh: npm is missing; install it first (apt-get install -y nodejs npm)" >&2
    exit 1
  fi
  echo "Installing the report's npm packages (npm ci)..."
  npm ci --omit=dev --no-audit --no-fund --loglevel=error >/dev/null
fi
if [[ ! (-f $bundle && $bundle -nt three-view.js && $bundle -nt $stamp) ]]; then
  mkdir -p node_modules/.knr
  node_modules/.bin/esbuild three-view.js --bundle --minify --format=iife --global-name=KNR_THREE \
    --legal-comments=none --log-level=warning --outfile=$bundle.new
  mv $bundle.new $bundle
fi
