#!/usr/bin/env bash
# scripts/run-pipeline.sh's command line, run from a folder of its own against a stand-in
# converter (named by KNRCONVERT, so nothing is built) that records the arguments it was given.
# Each row: the stand-in's exit status, the script's expected exit status, the converter's
# expected arguments one a line ("-" when it must not run; @W is the caller's folder, @R the
# repository), text expected on standard output and on standard error, then the arguments.
set -u
root="$(cd "$(dirname "$0")/../.." && pwd)"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/caller"
cat > "$work/knrconvert" << 'FAKE'
#!/bin/sh
printf '%s\n' "$@" > "$FAKE_ARGS"
while [ $# -gt 1 ]; do [ "$1" = -o ] && mkdir -p "$2" && : > "$2/report.html"; shift; done
exit "$FAKE_STATUS"
FAKE
chmod +x "$work/knrconvert"

# "" expects nothing in particular, "!text" expects the text to be absent.
expect_text() {
  case "$2" in
    "") ;;
    !*) ! grep -qF -- "${2#!}" "$3" || problems+=("$1 has \"${2#!}\": $(cat "$3")") ;;
    *) grep -qF -- "$2" "$3" || problems+=("$1 lacks \"$2\": $(cat "$3")") ;;
  esac
}

failures=0
row() {
  local name="$1" fake_status="$2" want_exit="$3" want_args="$4" want_out="$5" want_err="$6"
  shift 6
  rm -f "$work/args"
  (cd "$work/caller" && KNRCONVERT="$work/knrconvert" FAKE_ARGS="$work/args" \
    FAKE_STATUS="$fake_status" bash "$root/scripts/run-pipeline.sh" "$@" > "$work/out" 2> "$work/err")
  local got_exit=$? got_args="-"
  [ -f "$work/args" ] && got_args="$(cat "$work/args")"
  want_args="${want_args//@W/$work/caller}"
  want_args="${want_args//@R/$root}"
  local problems=()
  [ "$got_exit" -eq "$want_exit" ] || problems+=("exit $got_exit, expected $want_exit")
  [ "$got_args" = "$want_args" ] || problems+=("converter got:"$'\n'"$got_args"$'\n'"expected:"$'\n'"$want_args")
  expect_text stdout "$want_out" "$work/out"
  expect_text stderr "$want_err" "$work/err"
  if [ ${#problems[@]} -gt 0 ]; then
    failures=$((failures + 1))
    printf 'FAIL %s:\n' "$name"
    printf '  %s\n' "${problems[@]}"
  fi
}

nl=$'\n'
row relative_paths_with_spaces 0 0 "@W/take one.bvh${nl}@W/sub/two.bvh${nl}@W/-dash.bvh${nl}-o${nl}@W/my out" \
  "Report: my out/report.html" "" "take one.bvh" sub/two.bvh -o "my out" -- -dash.bvh
row default_take_and_folder 0 0 "@R/examples/data/pipeline.bvh${nl}-o${nl}@W/out" "Report: out/report.html" ""
row options_passed_on 0 0 "--scale${nl}0.5${nl}--quiet${nl}@W/a.bvh${nl}-o${nl}@W/o2" "" "" \
  --scale 0.5 --quiet a.bvh --output=o2
row failed_take_still_reported 1 1 "@W/a.bvh${nl}-o${nl}@W/out" "Report: out/report.html" "" a.bvh
row converter_usage_error_passed_on 2 2 "@W/a.bvh${nl}-o${nl}@W/out" "!Report:" "" a.bvh
row output_without_value 0 2 "-" "" "Usage:" a.bvh -o
row output_value_forgotten 0 2 "-" "" "-o needs a folder" -o --quiet a.bvh
row unknown_option 0 2 "-" "" "unknown option --loop" --loop a.bvh
row help 0 0 "-" "Usage:" "" --help

[ "$failures" -eq 0 ] || { echo "$failures case(s) failed"; exit 1; }
