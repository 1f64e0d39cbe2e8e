#!/bin/bash
# What the capture library and the module cost, per block and per read: times and their ratios in one run, then instructions per
# block, which repeat exactly, and what emulated 32-bit ARM can say about ratios there.
#
# usage: scripts/bench.sh [--quick]
#   --quick  times only
set -euo pipefail
cd "$(dirname "$0")/.."

case ${1:-} in
  "" | --quick) ;;
  -h | --help) sed -n '2,6s/^# \{0,1\}//p' "$0"; exit ;;
  *) echo "$0: no option \"$1\"; see --help" >&2; exit 2 ;;
esac
scripts/install_dependencies.sh --bench --record

folder=build/bench
cmake -S . -B $folder -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DBINAURAL_TESTS=OFF \
  -DBINAURAL_TOOLS=OFF -DBINAURAL_BENCHMARKS=ON > /dev/null
ninja -C $folder bcap_benchmark module_benchmark > /dev/null
program=$folder/bin/bcap_benchmark

echo "x86-64, times"
$program
echo
echo "x86-64, the module's own work beside its floors"
$folder/bin/module_benchmark --benchmark_min_time=0.2 2> /dev/null
[ "${1:-}" = --quick ] && exit 0

# Instructions of one case: the difference of two counts of blocks, so that what comes before is left out.
instructions() {  # CASE BLOCKS
  valgrind --tool=callgrind --callgrind-out-file=/dev/null $program --run "$1" "$2" 2>&1 |
    sed -n 's/.*Collected : //p'
}
echo
echo "x86-64, instructions per block"
mapfile -t names < <($program --list)
declare -A count
for name in "${names[@]}"; do
  count[$name]=$((($(instructions "$name" 300) - $(instructions "$name" 100)) / 200))
done
peer=${count["Speex preprocessor, 2 channels"]:-0}
for name in "${names[@]}"; do
  n=${count[$name]}
  ratio=
  [ "$peer" -gt 0 ] && ratio=$(awk "BEGIN { printf \"%.3f\", $n / $peer }")
  printf '%-32s %9d %9s\n' "$name" "$n" "$ratio"
done

if command -v arm-linux-gnueabihf-g++ > /dev/null && command -v qemu-arm > /dev/null; then
  echo
  echo "32-bit ARM under emulation: ratios between stages only, times mean nothing"
  cmake -S . -B $folder-arm -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DBINAURAL_TESTS=OFF \
    -DBINAURAL_TOOLS=OFF -DBINAURAL_BENCHMARKS=ON \
    -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/arm-linux-gnueabihf.cmake" > /dev/null
  ninja -C $folder-arm bcap_benchmark > /dev/null
  qemu-arm -L /usr/arm-linux-gnueabihf $folder-arm/bin/bcap_benchmark
fi
