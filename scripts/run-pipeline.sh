#!/usr/bin/env bash
# The main job: motion-capture takes become runtime actors and skills through the converter
# knrconvert, with one report of the run.
#
#   scripts/run-pipeline.sh [TAKE.bvh ...] [-o DIR] [--threshold X] [--scale S] [--quiet]
#                           [--verbose] [--overwrite]
#
# Without a take it converts the bundled one, examples/data/pipeline.bvh; DIR defaults to out/.
# The script never changes folder: every path is read against the caller's folder and handed to
# the converter as an absolute path (so a take named like an option is still a take). Per take,
# DIR gets <take>.zyra, <take>.actor.zyra, <take>.actor.wgmp and <take>.json; the run gets
# DIR/report.html, whose path is printed at the end.
#
# The first run installs and builds what the converter needs, and nothing else
# (scripts/setup.sh pipeline, into build-pipeline/); later runs reuse that build. KNRCONVERT
# names another converter binary to run instead; nothing is built then.
# Exit status: the converter's (0 every take converted, 1 a take failed, 2 bad usage).
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"

usage() {
  cat << 'EOF'
Usage: scripts/run-pipeline.sh [TAKE.bvh ...] [-o DIR] [options]
Converts each take into a runtime actor and skill, and writes DIR/report.html.
  TAKE.bvh ...       the takes (default: the bundled examples/data/pipeline.bvh)
  -o, --output DIR   output folder, created when missing (default: out)
  --threshold X      foot-contact threshold of the Locomotion skill (default 0.2)
  --scale S          BVH scale (default 1)
  --quiet            only the per-take lines and errors
  --verbose          also the host's log, its message boxes and progress bars
  --overwrite        replace the files of a take of the same name made from another file
  -h, --help         this text
Environment: KNRCONVERT=PATH runs that converter binary instead of building one.
EOF
}
bad_usage() {
  echo "run-pipeline: $1" >&2
  usage >&2
  exit 2
}
absolute() {
  case "$1" in
    /*) printf '%s' "$1" ;;
    *) printf '%s/%s' "$PWD" "$1" ;;
  esac
}

takes=()
out="out"
options=()
while [ $# -gt 0 ]; do
  case "$1" in
    -h|--help) usage; exit 0 ;;
    # A value that looks like an option means the value was forgotten ("-o --quiet").
    -o|--output)
      { [ $# -ge 2 ] && [ -n "$2" ] && [ "${2#-}" = "$2" ]; } || bad_usage "$1 needs a folder"
      out="$2"; shift 2 ;;
    --output=?*) out="${1#*=}"; shift ;;
    --threshold|--scale)
      { [ $# -ge 2 ] && [ -n "$2" ]; } || bad_usage "$1 needs a number"
      options+=("$1" "$2"); shift 2 ;;
    --threshold=?*|--scale=?*|--quiet|--verbose|--overwrite) options+=("$1"); shift ;;
    --) shift
        for take in "$@"; do takes+=("$(absolute "$take")"); done
        break ;;
    -?*) bad_usage "unknown option $1" ;;
    *) takes+=("$(absolute "$1")"); shift ;;
  esac
done
[ ${#takes[@]} -gt 0 ] || takes=("$root/examples/data/pipeline.bvh")

converter="${KNRCONVERT:-}"
if [ -z "$converter" ]; then
  "$root/scripts/setup.sh" pipeline
  converter="$root/build-pipeline/bin/knrconvert"
fi
command -v "$converter" > /dev/null ||
  { echo "${0##*/}: cannot run the converter \"$converter\" (not found or not executable)" >&2; exit 1; }

status=0
"$converter" "${options[@]}" "${takes[@]}" -o "$(absolute "$out")" || status=$?
if [ "$status" -le 1 ] && [ -f "$out/report.html" ]; then
  echo "Report: $out/report.html"
fi
exit "$status"
