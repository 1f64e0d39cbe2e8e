#!/bin/sh
# Fuzzes each target for a while. What is learnt is kept in build/fuzz/learnt; an input that brings a target
# down goes to build/fuzz/found: fix the fault, then keep the file in tests/fuzz/regressions/TARGET.
#
# usage: scripts/fuzz.sh [SECONDS [TARGET...]]
#   SECONDS  for each target, 60 unless told otherwise
#   TARGET   of: parameters coefficients ring_buffer library stream; all unless told otherwise
set -eu
cd "$(dirname "$0")/.."
case ${1:-60} in
  -h | --help) sed -n '2,7s/^# \{0,1\}//p' "$0"; exit ;;
  *[!0-9]*) echo "$0: \"$1\" is not a number of seconds; see --help" >&2; exit 2 ;;
esac
seconds=${1:-60}
[ $# -gt 0 ] && shift
[ $# -gt 0 ] || set -- parameters coefficients ring_buffer library stream

for target in "$@"; do
  [ -d "tests/fuzz/corpus/$target" ] || { echo "$0: no target \"$target\"; see --help" >&2; exit 2; }
done

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
