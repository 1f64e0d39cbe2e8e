#!/bin/sh
# Prints how well the capture library reduces noise, on mixtures that training never saw.
#
# usage: scripts/evaluate.sh [--json FILE] [--amount N]     all arguments go to training/evaluate.py
# Needs python3 with numpy and scipy, espeak-ng, flite and, for recorded voices, alsa-utils.
set -eu
cd "$(dirname "$0")/.."
mkdir -p build-evaluate
cmake -S . -B build-evaluate -DBINAURAL_TESTS=OFF > build-evaluate/configure.log 2>&1 ||
  { cat build-evaluate/configure.log >&2; exit 1; }
cmake --build build-evaluate --target capture_library > /dev/null
export OPENBLAS_NUM_THREADS=1
exec /usr/bin/python3 training/evaluate.py build-evaluate/lib/libcapture_library.so "$@"
