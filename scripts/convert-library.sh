#!/usr/bin/env bash
# Converts a library of motion-capture takes: every .bvh file under SRC (all subfolders), N
# converter processes at a time, then one report of the whole run.
#
#   scripts/convert-library.sh SRC -o DIR [-j N] [--threshold X] [--scale S] [--overwrite]
#
# Takes run in batches of up to 16, each batch as `knrconvert --no-report --quiet TAKE ... -o DIR`
# (a process for every take would spend a quarter of the time starting). A line is printed as
# each take ends, numbered in the order they end ("[ 12/100] walk01: Locomotion, ..."); a take that fails
# does not stop the others. When all have ended, `knrconvert --report-only -o DIR` writes
# DIR/report.html from every take file in DIR (a folder reused across runs keeps the takes of
# earlier runs in its report).
#
# Take names: a take's files are named after its file name without the extension. Takes under
# SRC that share a file name are named after their subfolder path instead, the folders joined
# with "_" ("alice/walk.bvh" and "bob/walk.bvh" become "alice_walk" and "bob_walk"; a take
# of that name directly in SRC stays "walk"); a name still in use gets "_2", "_3", ... The
# converter reads such a take through a link of the new name in DIR/.takes/, which is kept so
# that the source paths in the take files stay valid.
#
# A library without takes makes no output folder. --overwrite goes to the converter (a take may
# replace the files of a take of its name converted from another file).
# Exit status: 0 every take converted; 1 a take failed (reported only after all the others have
# run) or the report could not be written; 2 bad usage or no take under SRC.
# KNRCONVERT names the converter binary (default: the one `scripts/setup.sh pipeline` builds,
# built on the first run); a converter that cannot be run stops the script before any take.
# Needs nothing beyond bash, coreutils and findutils (xargs -P).
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"

usage() {
  cat << 'EOF'
Usage: scripts/convert-library.sh SRC -o DIR [-j N] [--threshold X] [--scale S] [--overwrite]
Converts every .bvh file under the folder SRC into DIR, N takes at a time (default: one per
core), then writes DIR/report.html.
Environment: KNRCONVERT=PATH runs that converter binary instead of building one.
EOF
}
bad_usage() {
  echo "convert-library: $1" >&2
  usage >&2
  exit 2
}

src=""
out=""
jobs="$(nproc)"
options=()
while [ $# -gt 0 ]; do
  case "$1" in
    -h|--help) usage; exit 0 ;;
    -o|--output)
      { [ $# -ge 2 ] && [ -n "$2" ] && [ "${2#-}" = "$2" ]; } || bad_usage "$1 needs a folder"
      out="$2"; shift 2 ;;
    --output=?*) out="${1#*=}"; shift ;;
    -j|--jobs)
      [ $# -ge 2 ] || bad_usage "$1 needs a number of processes"
      jobs="$2"; shift 2 ;;
    -j?*) jobs="${1#-j}"; shift ;;
    --threshold|--scale)
      { [ $# -ge 2 ] && [ -n "$2" ]; } || bad_usage "$1 needs a number"
      options+=("$1" "$2"); shift 2 ;;
    --threshold=?*|--scale=?*) options+=("$1"); shift ;;
    --overwrite) options+=("$1"); shift ;;
    -?*) bad_usage "unknown option $1" ;;
    *) [ -z "$src" ] || bad_usage "one library folder at a time (\"$src\" and \"$1\")"
       src="$1"; shift ;;
  esac
done
[ -n "$src" ] || bad_usage "no library folder given"
[ -n "$out" ] || bad_usage "no output folder given (-o DIR)"
[ -d "$src" ] || bad_usage "\"$src\" is not a folder"
[[ "$jobs" =~ ^[1-9][0-9]*$ ]] || bad_usage "-j wants a whole number of processes, not \"$jobs\""

converter="${KNRCONVERT:-}"
if [ -z "$converter" ]; then
  "$root/scripts/setup.sh" pipeline
  converter="$root/build-pipeline/bin/knrconvert"
fi
command -v "$converter" > /dev/null ||
  { echo "${0##*/}: cannot run the converter \"$converter\" (not found or not executable)" >&2; exit 1; }
case "$converter" in */*) converter="$(cd "$(dirname "$converter")" && pwd)/${converter##*/}" ;; esac

src_abs="$(cd "$src" && pwd -P)"
# The output folder is made only once there is a take to put in it.
out_abs="$(realpath -m "$out")"
links="$out_abs/.takes"

# The takes in path order, so that names given to clashing takes are the same on every run.
files=()
while IFS= read -r -d '' file; do
  files+=("$file")
done < <(find "$src_abs" -path "$links" -prune -o -xtype f -iname '?*.bvh' -print0 | sort -z)
total=${#files[@]}
[ "$total" -gt 0 ] || bad_usage "no .bvh file under \"$src\""
mkdir -p "$out"
out_abs="$(cd "$out" && pwd -P)"
links="$out_abs/.takes"

declare -A count=() used=()
for file in "${files[@]}"; do
  base="${file##*/}"
  count["${base%.*}"]=$(( ${count["${base%.*}"]:-0} + 1 ))
done
for file in "${files[@]}"; do
  base="${file##*/}"
  [ "${count["${base%.*}"]}" -gt 1 ] || used["${base%.*}"]=1
done
takes=()
for file in "${files[@]}"; do
  base="${file##*/}"
  stem="${base%.*}"
  if [ "${count["$stem"]}" -eq 1 ]; then
    takes+=("$file")
    continue
  fi
  folder="${file#"$src_abs"/}"
  folder="${folder%"$base"}"
  name="${folder//\//_}$stem"
  candidate="$name"
  n=1
  while [ -n "${used["$candidate"]:-}" ]; do
    n=$((n + 1))
    candidate="${name}_$n"
  done
  used["$candidate"]=1
  mkdir -p "$links"
  ln -sfn "$file" "$links/$candidate.${base##*.}"
  takes+=("$links/$candidate.${base##*.}")
done

# A batch of takes in one converter process (a process's start and first touch of its memory
# cost about a quarter of a one-minute take): the converter prints a line per take as it ends,
# and each is passed on at once as one record, 1 when the line says the take failed, else 0, a
# tab, and the line (one printf, so that records of processes that end at the same time do not
# mix). A take of the batch without a line (the converter crashed or was killed) gets a failure
# line naming it. Arguments: the converter's options, "--", the takes.
# shellcheck disable=SC2317  # run by xargs, through bash -c
convert_batch() {
  local options=() line name take status=0
  while [ $# -gt 0 ] && [ "$1" != "--" ]; do options+=("$1"); shift; done
  shift
  declare -A seen=()
  # The loop runs in this shell (not a subshell), so `seen` and `status` outlive it, and the
  # converter is a waited-for child (its CPU time counts as this process's children's).
  shopt -s lastpipe
  "$KNRCONVERT_BIN" --no-report --quiet ${options[@]+"${options[@]}"} "$@" -o "$KNRCONVERT_OUT" |
  while IFS= read -r line; do
    name="${line%%: *}"
    seen["$name"]=1
    if [[ "$line" == *": FAILED: "* ]]; then
      status=1
      printf '1\t%s\n' "$line"
    else
      printf '0\t%s\n' "$line"
    fi
  done
  for take in "$@"; do
    name="${take##*/}"
    name="${name%.*}"
    [ -z "${seen["$name"]:-}" ] || continue
    status=1
    printf '1\t%s: FAILED: the converter stopped without a message (%s)\n' "$name" "$take"
  done
  return "$status"
}
# Numbers the records as they come, then prints how many failed.
number_lines() {
  local record mark text done=0 failed=0
  while IFS= read -r record; do
    mark="${record%%$'\t'*}"
    text="${record#*$'\t'}"
    if [ "$mark" = "+" ]; then
      printf '%s\n' "$text"
      continue
    fi
    done=$((done + 1))
    [ "$mark" = 0 ] || failed=$((failed + 1))
    printf '[%*d/%d] %s\n' "${#total}" "$done" "$total" "$text"
  done
  echo "$done of $total takes done, $failed failed."
}
export -f convert_batch
export KNRCONVERT_BIN="$converter" KNRCONVERT_OUT="$out_abs"

echo "Converting $total takes from $src into $out, $jobs at a time..."
set +e
# Batches of up to 16 takes, no more than an even share of the library per process.
batch=$(( (total + jobs - 1) / jobs ))
[ "$batch" -le 16 ] || batch=16
printf '%s\0' "${takes[@]}" |
  xargs -0 -n "$batch" -P "$jobs" bash -c 'convert_batch "$@"' convert_batch \
    ${options[@]+"${options[@]}"} -- |
  number_lines
status=${PIPESTATUS[1]}
set -e
[ "$status" -eq 0 ] || status=1

if "$converter" --report-only -o "$out_abs"; then
  echo "Report: $out/report.html"
else
  echo "convert-library: the report of $out could not be written" >&2
  status=1
fi
exit "$status"
