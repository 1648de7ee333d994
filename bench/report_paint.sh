#!/usr/bin/env bash
# First paint of a large run report: 100 synthetic one-minute takes (take files as the converter
# writes them, 3D view data included) -> report.html -> headless Chromium; prints the page's size
# per take, the first paint (target: under 2 s) and when every take is drawn.
# usage: bench/report_paint.sh [BUILD_DIR] [TAKES] [JOINTS]   (default build, 100, 40)
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build}
writer=$build/bin/knrconvert_report_write
[[ -x $writer ]] || writer=$(find "$build" -name knrconvert_report_write -type f -perm -u+x | head -1)
if [[ ! -x $writer ]]; then
  echo "report_paint.sh: build knrconvert_report_write first (ninja -C $build knrconvert_report_write)" >&2
  exit 1
fi
bash "$root/converter/report/web/install-browser.sh"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
node "$root/bench/report_paint.mjs" "$writer" "$root/converter/report/web" "$work" "${2:-100}" "${3:-40}"
