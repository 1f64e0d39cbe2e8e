#!/bin/bash
# Installs what is missing, builds everything and runs every check: formatting, two compilers, the
# suite plain, under the address and undefined-behaviour sanitizers, under the thread sanitizer and on
# emulated 32-bit ARM, the fuzz targets for a few seconds each, and static analysis.
#
# usage: scripts/test.sh [--host-only] [--again] [STAGE...]
#   --host-only  leave out 32-bit ARM (a machine that cannot have the foreign packages)
#   --again      run stages that passed on exactly these files before, too
#   STAGE        only these, of: format host clang asan tsan arm fuzz tidy
# A stage that passed is not repeated until a file changes. Ends with "N passed, N failed" and exits
# non-zero when anything failed.
set -uo pipefail
cd "$(dirname "$0")/.."

stages=()
host_only=
again=
for argument in "$@"; do
  case $argument in
    --host-only) host_only=--host-only ;;
    --again) again=yes ;;
    format | host | clang | asan | tsan | arm | fuzz | tidy) stages+=("$argument") ;;
    -h | --help) sed -n '2,12s/^# \{0,1\}//p' "$0"; exit ;;
    *) echo "$0: no option or stage \"$argument\"; see --help" >&2; exit 2 ;;
  esac
done
if [ ${#stages[@]} -eq 0 ]; then
  stages=(format host clang asan tsan arm fuzz tidy)
fi
if [ -n "$host_only" ]; then
  stages=("${stages[@]/arm/}")
fi

scripts/install_dependencies.sh ${host_only:+"$host_only"} || exit 1

jobs=$(nproc)
mkdir -p build
passed=0
failed=0

# What the results depend on: every file that is or could be part of a commit.
fingerprint() {
  { git ls-files -co --exclude-standard -z 2> /dev/null ||
      find . -path ./build -prune -o -type f -print0; } |
    sort -z | xargs -0 sha256sum 2> /dev/null | sha256sum | cut -d ' ' -f 1
}
files=$(fingerprint)

note() { printf '\n== %s\n' "$*"; }

# count STAGE PASSED FAILED: adds a stage's result, remembers it when it is clean.
count() {
  passed=$((passed + $2))
  failed=$((failed + $3))
  if [ "$3" -eq 0 ]; then
    echo "$files $2" > "build/$1.passed"
  else
    rm -f "build/$1.passed"
  fi
}

# check STAGE COMMAND...: one check that counts as one.
check() {
  local stage=$1
  shift
  if "$@"; then count "$stage" 1 0; else count "$stage" 0 1; fi
}

# build PRESET [TARGET]
build() {
  cmake --preset "$1" > "build/$1.configure.log" 2>&1 || { cat "build/$1.configure.log"; return 1; }
  cmake --build "build/$1" -j "$jobs" --target "${2:-all}" > "build/$1.build.log" 2>&1 || {
    grep -E -A 8 'error|FAILED' "build/$1.build.log" | head -n 60
    return 1
  }
}

# suite PRESET [TARGET [CTEST_OPTION...]]: builds, runs the tests, counts each.
suite() {
  local preset=$1 target=${2:-all} log="build/$1.test.log" total bad
  shift $(($# < 2 ? $# : 2))
  if ! build "$preset" "$target"; then
    count "$preset" 0 1
    return
  fi
  ctest --test-dir "build/$preset" -j "$jobs" --output-on-failure "$@" 2>&1 | tee "$log" |
    grep -vE '^ +Start|Test +#.*Passed|^Internal|^ *$'
  total=$(sed -n 's/.* tests failed out of \([0-9]*\)$/\1/p' "$log")
  bad=$(sed -n 's/.*passed, \([0-9]*\) tests failed out of.*/\1/p' "$log")
  if [ -z "$total" ] || [ "$total" -eq 0 ]; then
    echo "no test ran in $preset"
    count "$preset" 0 1
  else
    count "$preset" $((total - bad)) "$bad"
  fi
}

sources() { git ls-files -- "$@" 2> /dev/null || find . -path ./build -prune -o -name "$1" -print; }

format_is_kept() {
  sources '*.cpp' '*.h' '*.c' | xargs clang-format --dry-run --Werror
}

# Static analysis of what ships and of the host programs; with clang's compile commands.
tidy_is_clean() {
  cmake --preset clang > build/tidy.log 2>&1 || { cat build/tidy.log; return 1; }
  sources 'binaural_record/*.cpp' 'bcap/*.cpp' 'platform/*.cpp' 'tools/*.cpp' |
    grep -v noise_network_weights |
    xargs -P "$jobs" -n 4 clang-tidy --quiet -p build/clang > build/tidy.log 2>&1 && return 0
  grep -E '(error|warning):' build/tidy.log | sort -u | head -n 40
  return 1
}

for stage in "${stages[@]}"; do
  [ -n "$stage" ] || continue
  if [ -z "$again" ] && [ -f "build/$stage.passed" ]; then
    read -r known number < "build/$stage.passed"
    if [ "$known" = "$files" ]; then
      note "$stage: passed on these very files before ($number)"
      passed=$((passed + number))
      continue
    fi
  fi
  note "$stage"
  began=$SECONDS
  case $stage in
    format) check format format_is_kept ;;
    clang) check clang build clang ;;
    fuzz) suite fuzz fuzz_targets -L fuzz ;;
    tidy) check tidy tidy_is_clean ;;
    *) suite "$stage" ;;
  esac
  echo "($((SECONDS - began)) s)"
done

printf '\n%d passed, %d failed\n' "$passed" "$failed"
[ "$failed" -eq 0 ]
