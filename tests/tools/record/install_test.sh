#!/bin/sh
# Installs the recorder into a fresh folder, moves that folder, and records with what lies in it.
# Arguments: cmake, the build folder, and an emulator where one is needed.
set -eu
cmake=$1
build=$2
shift 2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$cmake" --install "$build" --prefix "$work/first" --component recorder >"$work/log"
mv "$work/first" "$work/second"
"$@" "$work/second/bin/binaural-record" --fast -d 0.1 --json "$work/report.json" "$work/out.wav"
for wanted in '"frames": 4800' "$work/second/lib/binaural-record/audio.binaural_record.default.so" \
  "$work/second/share/binaural-record/binaural_record_algo_coeffs.xml"; do
  grep -qF "$wanted" "$work/report.json" || { cat "$work/report.json"; exit 1; }
done
test -s "$work/second/share/man/man1/binaural-record.1"
# No library may come from the build folder.
if [ $# -eq 0 ] && ldd "$work/second/bin/binaural-record" | grep -F "$build"; then
  exit 1
fi
