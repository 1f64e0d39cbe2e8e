#!/bin/sh
# Prints how well the capture library reduces noise, on mixtures that training never saw.
#
# usage: scripts/evaluate.sh [--json FILE] [--amount N] [--every N]     all arguments go to training/evaluate.py
set -eu
cd "$(dirname "$0")/.."
scripts/install_dependencies.sh --record --evaluate
case ${1:-} in -h | --help) exec /usr/bin/python3 training/evaluate.py --help ;; esac
mkdir -p build-evaluate
cmake -S . -B build-evaluate -DBINAURAL_TESTS=OFF > build-evaluate/configure.log 2>&1 ||
  { cat build-evaluate/configure.log >&2; exit 1; }
cmake --build build-evaluate --target capture_library > /dev/null
export OPENBLAS_NUM_THREADS=1
exec /usr/bin/python3 training/evaluate.py "$@"
