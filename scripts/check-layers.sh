#!/usr/bin/env bash
# Checks that includes run one way through the host runtime's rooms and the plug-in's areas.
#
#   scripts/check-layers.sh
#
# 1. Each room of zyra/runtime/ and each area of knrexport/ includes only the rooms or areas its
#    line in the tables below names (besides itself and the SDK headers, "zyra/..."). A new
#    dependency is a decision: it goes into the table, which must stay free of circles.
# 2. The plug-in includes no runtime header (it sees only the SDK), and the runtime includes
#    nothing of the plug-in, the converter or the command line.
# 3. No units include each other, directly or round a longer circle. A unit is a header with its
#    source files (model/model.h, model/model.cpp); a file includes a unit when it includes its
#    header.
# Exit status: 0 when all holds, 1 with each fault printed as "file: what".
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"

# room: the rooms it may include, lowest rooms first.
runtime_rooms="
files:
model:
host: model
plugins: files host model
ui: host model plugins
sdk: host model plugins ui
scene_file: files host model plugins
script: files host model plugins scene_file
commands: files host model
gltf: files host model
"
plugin_areas="
math:
scene: math
actor: math scene
render: math scene actor
bvh: math scene actor
skill: math scene actor
generate: math scene actor skill
plugin: math scene actor render bvh skill generate
"

# Prints "file<TAB>included" for every quoted include under $1, paths relative to $1.
includes() {
  (cd "$1" && grep -rHo --include='*.h' --include='*.cpp' '^#include "[^"]*"' . |
    sed -E 's#^\./##; s#:\#include "(.*)"$#\t\1#')
}

# Checks one tree: $1 its folder, $2 the prefix its own includes carry ("" or "knrexport/"),
# $3 the table, $4 what a room is called in messages.
check_tree() {
  includes "$root/$1" | awk -F '\t' -v tree="$1" -v prefix="$2" -v table="$3" -v kind="$4" '
    BEGIN {
      n = split(table, lines, "\n")
      for (i = 1; i <= n; i++) {
        if (lines[i] == "") continue
        split(lines[i], parts, ":")
        known[parts[1]] = 1
        m = split(parts[2], allowed, " ")
        for (j = 1; j <= m; j++) may[parts[1] "/" allowed[j]] = 1
      }
      bad = 0
    }
    function unit(path) { sub(/\.(h|cpp)$/, "", path); return path }
    {
      file = $1; inc = $2
      if (inc ~ /^zyra\//) next
      if (prefix != "") {
        if (index(inc, prefix) != 1) next  # another tree: checked below
        inc = substr(inc, length(prefix) + 1)
      }
      from = file; sub(/\/.*/, "", from)
      to = inc; sub(/\/.*/, "", to)
      if (!(from in known)) { print tree "/" file ": is in no " kind " of the table"; bad = 1; next }
      if (index(inc, "/") == 0) { print tree "/" file ": includes \"" inc "\" without its " kind; bad = 1; next }
      if (from != to && !((from "/" to) in may)) {
        print tree "/" file ": includes " inc " (the " kind " " from " may not include " to ")"
        bad = 1
      }
      u = unit(file); v = unit(inc)
      if (u != v && !((u SUBSEP v) in edge)) { edge[u, v] = 1; out[u] = out[u] " " v }
    }
    # Depth-first search for a unit reached again while it is still on the path.
    function visit(u,    list, k, i, v) {
      state[u] = 1; path[++depth] = u
      k = split(out[u], list, " ")
      for (i = 1; i <= k; i++) {
        v = list[i]
        if (state[v] == 1) {
          circle = v
          for (j = depth; j >= 1 && path[j] != v; j--) circle = path[j] " -> " circle
          print tree "/" v ": units include each other: " v " -> " circle
          bad = 1
        } else if (state[v] == 0) {
          visit(v)
        }
      }
      depth--; state[u] = 2
    }
    END {
      for (u in out) if (state[u] == 0) visit(u)
      exit bad
    }'
}

status=0
check_tree zyra/runtime "" "$runtime_rooms" room || status=1
check_tree knrexport knrexport/ "$plugin_areas" area || status=1

# The plug-in sees only the SDK; the runtime sees nothing above it.
runtime_headers="$(cd "$root/zyra/runtime" && find . -name '*.h' | sed 's#^\./##')"
while IFS=$'\t' read -r file inc; do
  if grep -qxF "$inc" <<< "$runtime_headers"; then
    echo "knrexport/$file: includes the runtime's $inc (the plug-in sees only the SDK)"
    status=1
  fi
done < <(includes "$root/knrexport")
while IFS=$'\t' read -r file inc; do
  case "$inc" in
    knrexport/* | converter/* | cli/*)
      echo "zyra/runtime/$file: includes $inc (the runtime is below the plug-in and its users)"
      status=1 ;;
  esac
done < <(includes "$root/zyra/runtime")
exit "$status"
