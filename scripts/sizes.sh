#!/bin/sh
# What the module costs, for x86-64 and 32-bit ARM, as a Markdown table: release builds without
# sanitizers, stripped. Heap and stack are those with the virtual headset behind the module and include
# its share; ARM times are those of the emulator.
#
# usage: scripts/sizes.sh [--host-only]
set -eu
cd "$(dirname "$0")/.."
targets="host arm"
case ${1-} in
  "") ;;
  --host-only) targets=host ;;
  -h | --help) sed -n '2,6s/^# \{0,1\}//p' "$0"; exit ;;
  *) echo "$0: no option \"$1\"; see --help" >&2; exit 2 ;;
esac

# measure TARGET: "name value" lines
measure() {
  build=build/sizes-$1
  library=$build/lib/audio.binaural_record.default.so
  cmake --preset "$1" -B "$build" -DCMAKE_BUILD_TYPE=Release -DBINAURAL_SANITIZE= \
    -DBINAURAL_TOOLS=OFF > "$build.log" 2>&1 &&
    cmake --build "$build" --target audio_binaural_record_default module_probe >> "$build.log" 2>&1 ||
    { tail -n 20 "$build.log" >&2; exit 1; }
  strip=strip run=
  [ "$1" = host ] || { strip=arm-linux-gnueabihf-strip; run=qemu-arm; }
  $strip -o "$build/stripped.so" "$library"
  echo "file_bytes $(stat -c %s "$build/stripped.so")"
  readelf -SW "$library" | sed 's/^ *\[ *[0-9]*\]//' | while read -r name _ _ _ size _; do
    case $name in
      .text | .rodata | .data | .bss) echo "${name#.}_bytes $((0x$size))" ;;
    esac
  done
  echo "relocations $(readelf -rW "$library" | grep -c ' R_')"
  # The fastest of ten: the rest is the machine's noise.
  for _ in 1 2 3 4 5 6 7 8 9 10; do
    $run "$build/bin/module_probe" "$library"
  done | sort -k1,1 -k2,2n | sort -u -k1,1
}

mkdir -p build
for target in $targets; do
  measure "$target" > "build/sizes-$target.txt"
done
value() { sed -n "s/^$2 //p" "build/sizes-$1.txt"; }
row() {
  printf '| %s |' "$1"
  for target in $targets; do
    printf ' %s |' "$(value "$target" "$2")"
  done
  printf '\n'
}
printf '| |'
for target in $targets; do
  [ "$target" = arm ] && printf ' 32-bit ARM |' || printf ' x86-64 |'
done
printf '\n|---|'; for target in $targets; do printf -- '---:|'; done
printf '\n'
row "library, stripped, bytes" file_bytes
row "code, bytes" text_bytes
row "constants, bytes" rodata_bytes
row "data, bytes" data_bytes
row "zeroed data, bytes" bss_bytes
row "relocations" relocations
row "load time, us" load_us
row "heap with an open stream, bytes" heap_bytes
row "stack of a read, bytes" stack_bytes
