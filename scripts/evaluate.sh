#!/bin/sh
# Prints how well the capture library reduces noise, on mixtures that training never saw.
#
# usage: scripts/evaluate.sh [--amount N] [--every N] [--json FILE] [--library FILE]
#   --amount N      of the noise reduction, 0 to 8 (default 8, full)
#   --every N       only every N-th mixture
#   --json FILE     write all means there, too
#   --library FILE  another build of the library; or what it is compared with: "speex", "webrtc", "statistical"
set -eu
case ${1:-} in -h | --help) sed -n '2,8s/^# \{0,1\}//p' "$0"; exit ;; esac
awaited=no
for word in "$@"; do
  case $awaited$word in
    no--amount | no--every | no--json | no--library) awaited=yes ;;
    yes* | no--amount=* | no--every=* | no--json=* | no--library=*) awaited=no ;;
    *) echo "$0: no option \"$word\"; see --help" >&2; exit 2 ;;
  esac
done
[ $awaited = no ] || { echo "$0: $word: expected a value" >&2; exit 2; }
root=$(dirname "$0")/..
"$root"/scripts/install_dependencies.sh --record --evaluate
build=$root/build-evaluate
mkdir -p "$build"
cmake -S "$root" -B "$build" -DBINAURAL_TESTS=OFF > "$build/configure.log" 2>&1 ||
  { cat "$build/configure.log" >&2; exit 1; }
cmake --build "$build" --target capture_library peers > /dev/null
export OPENBLAS_NUM_THREADS=1
exec /usr/bin/python3 "$root/training/evaluate.py" "$@"
