# Sourced (with ".") by the benchmark scripts in bench/, which run in sh. Sets `root` (the
# repository) and `build` (its build-bench/); `bench_build TARGET...` configures the bench preset
# when it has not been, then builds the targets.
root=$(cd "$(dirname "$0")/.." && pwd)  # $0: the benchmark script, in bench/
build=$root/build-bench
bench_build() {
  [ -f "$build/build.ninja" ] || cmake --preset bench -S "$root" > /dev/null
  cmake --build "$build" -j2 --target "$@" > /dev/null
}
