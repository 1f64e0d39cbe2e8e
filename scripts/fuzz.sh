#!/bin/sh
# Fuzzes: scripts/fuzz.sh [SECONDS [TARGET...]], 60 s for each target unless told otherwise. Targets are the
# programs of tests/fuzz. What is learnt is kept in build/fuzz/learnt; an input that brings a target
# down goes to build/fuzz/found: fix the fault, then keep the file in tests/fuzz/regressions/TARGET.
set -eu
cd "$(dirname "$0")/.."
seconds=${1:-60}
[ $# -gt 0 ] && shift
[ $# -gt 0 ] || set -- parameters coefficients ring_buffer library stream

cmake --preset fuzz >/dev/null
for target in "$@"; do
  cmake --build build/fuzz --target "fuzz_$target"
done
for target in "$@"; do
  learnt=build/fuzz/learnt/$target
  mkdir -p "$learnt" build/fuzz/found
  dictionary=tests/fuzz/dictionaries/$target.dict
  [ -f "$dictionary" ] && dictionary=-dict=$dictionary || dictionary=
  regressions=tests/fuzz/regressions/$target
  [ -d "$regressions" ] || regressions=
  echo "== $target, $seconds s"
  build/fuzz/bin/fuzz_"$target" -max_total_time="$seconds" -timeout=20 -rss_limit_mb=4096 \
    -artifact_prefix="build/fuzz/found/$target-" -print_final_stats=1 $dictionary \
    "$learnt" "tests/fuzz/corpus/$target" $regressions
done
