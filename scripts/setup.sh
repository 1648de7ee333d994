#!/usr/bin/env bash
# Installs the Debian packages a build needs (only those missing), then configures and builds a
# preset (default: "default"). Further arguments go to CMake's configure step; it runs in the
# caller's folder, so relative paths in them mean what the caller meant.
#
#   scripts/setup.sh [pipeline|default|asan|bench] [cmake args ...]
#
# pipeline: the main job only, the converter `knrconvert` and the plug-in module it loads (no
#   tests, no benchmarks), with the report's chart library (converter/report/web/install.sh).
#   It says what it does in a line; the pages of build output go to build-pipeline/setup.log and
#   only their tail is shown when something fails. It configures once (when build.ninja is
#   missing, or when CMake arguments are given); later runs are a ninja no-op.
# default, asan: everything, tests included, and what the report's browser test needs
#   (converter/report/web/install-browser.sh: Debian's chromium and playwright-core) and the
#   glTF validator (tests/gltf/install.sh).
# bench: the benchmarks.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
preset="${1:-default}"
shift || true

# "package:command": a tool counts as present when its command is on the path (Node.js may come
# from another source than Debian's package, and installing Debian's npm over it would clash).
build_packages=(cmake:cmake ninja-build:ninja g++:g++ nlohmann-json3-dev libcli11-dev libtinygltf-dev
                nodejs:node npm:npm)
test_packages=(libgtest-dev libgmock-dev libbenchmark-dev libeigen3-dev)
case "$preset" in
  pipeline) packages=("${build_packages[@]}") ;;
  default|asan|bench) packages=("${build_packages[@]}" "${test_packages[@]}") ;;
  *) echo "setup: unknown preset \"$preset\" (pipeline, default, asan or bench)" >&2; exit 2 ;;
esac
build="$root/build-$preset"
[ "$preset" = default ] && build="$root/build"
log="$build/setup.log"
mkdir -p "$build"
: > "$log"

# Runs a step with its output in the log; on failure shows the log's tail and stops.
quietly() {
  if ! "$@" >> "$log" 2>&1; then
    echo "setup: failed: $*" >&2
    echo "---- last lines of $log ----" >&2
    tail -n 40 "$log" >&2
    exit 1
  fi
}

missing=()
for entry in "${packages[@]}"; do
  package="${entry%%:*}"
  command="${entry#*:}"
  [ "$command" != "$entry" ] && command -v "$command" > /dev/null && continue
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" ||
    missing+=("$package")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "Installing packages: ${missing[*]}"
  sudo_cmd=()
  [ "$(id -u)" -eq 0 ] || sudo_cmd=(sudo)
  quietly "${sudo_cmd[@]}" apt-get update -qq
  quietly "${sudo_cmd[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq "${missing[@]}"
fi

# The report's chart library (and, for the test builds, the headless browser), when the report
# is in this tree; each script does nothing when what it installs is there already.
web="$root/converter/report/web"
if [ -f "$web/install.sh" ]; then
  [ -d "$web/node_modules" ] || echo "Installing the report's chart library (npm)..."
  quietly bash "$web/install.sh"
fi
if [ "$preset" = default ] || [ "$preset" = asan ]; then
  if [ -f "$web/install-browser.sh" ]; then
    quietly bash "$web/install-browser.sh"
  fi
  # Khronos' glTF validator for the glTF export's tests.
  if [ -f "$root/tests/gltf/install.sh" ]; then
    quietly bash "$root/tests/gltf/install.sh"
  fi
fi

if [ "$preset" = pipeline ]; then
  targets=(knrconvert knrexport)
  if [ ! -f "$build/build.ninja" ] || [ $# -gt 0 ]; then
    echo "Building knrconvert (first run, a few minutes; output in ${log#"$root/"})..."
    quietly cmake -S "$root" --preset pipeline "$@"
    quietly cmake --build "$build" --target "${targets[@]}" -j "$(nproc)"
  else
    # A later run says something only when a source changed and the build has work to do.
    set +e
    cmake --build "$build" --target "${targets[@]}" -j "$(nproc)" 2>&1 | tee -a "$log" |
      awk '!said && /Building|Linking/ { print "Building knrconvert (sources changed)..."; said = 1; fflush() }'
    status=${PIPESTATUS[0]}
    set -e
    if [ "$status" -ne 0 ]; then
      echo "setup: the build failed; last lines of $log:" >&2
      tail -n 40 "$log" >&2
      exit 1
    fi
  fi
else
  cmake -S "$root" --preset "$preset" "$@" > /dev/null
  cmake --build "$build" -j "$(nproc)"
fi
