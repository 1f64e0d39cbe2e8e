#!/bin/sh
# Installs the Debian 12 packages that this tree needs and that are missing. When nothing is missing
# it touches no package index and needs no rights.
#
# usage: scripts/install_dependencies.sh [--record | --tune] [--host-only] [--bench] [--evaluate] [--train]
#   --record      only what building and running the recorder takes
#   --tune        only what building and running both host programs takes
#   --host-only   leave out the 32-bit ARM compiler, emulator and libraries
#   --bench       also the peers that the benchmarks compare with
#   --evaluate    also what measuring the noise model takes
#   --train       also what training the noise model takes
# Without the first two: everything the build, the tests, the sanitizers and the ARM run take.
set -eu

record_packages="
  g++ cmake ninja-build pkg-config
  libtinyxml2-dev android-liblog-dev android-libbase-dev
  libcli11-dev libsndfile1-dev libebur128-dev nlohmann-json3-dev"
tune_packages="libcairo2-dev libkissfft-dev fonts-dejavu-core"
test_packages="
  libgtest-dev libgmock-dev libbenchmark-dev libfftw3-dev
  clang clang-tidy clang-format libclang-rt-14-dev
  libxml2-utils python3 python3-numpy python3-scipy
  golang-go golang-github-google-blueprint-dev"
arm_packages="
  g++-arm-linux-gnueabihf qemu-user
  libtinyxml2-dev:armhf android-liblog-dev:armhf android-libbase-dev:armhf
  libgtest-dev:armhf libgmock-dev:armhf libsndfile1-dev:armhf libebur128-dev:armhf
  libstdc++6:armhf libubsan1:armhf"
peer_packages="libspeexdsp-dev libwebrtc-audio-processing-dev"
bench_packages="libbenchmark-dev valgrind $peer_packages"
evaluate_packages="python3-numpy python3-scipy espeak-ng flite alsa-utils $peer_packages"
train_packages="
  libopenblas0-pthread python3-torch $evaluate_packages
  festival festvox-ca-ona-hts festvox-czech-dita festvox-czech-krb festvox-czech-machac
  festvox-czech-ph festvox-italp16k festvox-itapc16k festvox-kdlpc16k festvox-ru
  festvox-suopuhe-lj festvox-suopuhe-mv"

programs_only=no host_only=no extra=
for option in "$@"; do
  case $option in
    --record) programs_only=yes ;;
    --tune) programs_only=yes extra="$extra $tune_packages" ;;
    --host-only) host_only=yes ;;
    --bench) extra="$extra $bench_packages" ;;
    --evaluate) extra="$extra $evaluate_packages" ;;
    --train) extra="$extra $train_packages" ;;
    -h | --help) sed -n '2,12s/^# \{0,1\}//p' "$0"; exit ;;
    *) echo "$0: no option \"$option\"; see --help" >&2; exit 2 ;;
  esac
done
wanted="$record_packages $extra"
if [ $programs_only = no ]; then
  wanted="$wanted $tune_packages $test_packages"
  [ $host_only = yes ] || wanted="$wanted $arm_packages"
fi

if ! command -v apt-get > /dev/null || ! command -v dpkg-query > /dev/null; then
  echo "This script knows Debian's packages only. Needed here:" $wanted >&2
  exit 1
fi

# One query for all; a package counts as there only when dpkg calls it installed.
missing() {
  native=$(dpkg --print-architecture)
  installed=$(dpkg-query -W -f '${Package}:${Architecture} ${db:Status-Status}\n' |
    sed -n "s/:\(all\|$native\) installed\$//p; s/ installed\$//p")
  for package in $wanted; do
    printf '%s\n' "$installed" | grep -qxF "$package" || printf ' %s' "$package"
  done
}

absent=$(missing)
[ -n "$absent" ] || exit 0

as_root=
if [ "$(id -u)" -ne 0 ]; then
  command -v sudo > /dev/null || {
    echo "Missing:$absent. Run this script as root, or install sudo." >&2
    exit 1
  }
  as_root=sudo
fi
echo "Installing:$absent"
case $absent in
  *:armhf*) dpkg --print-foreign-architectures | grep -qx armhf || $as_root dpkg --add-architecture armhf ;;
esac
# The result decides, not the update: one index that is being renewed makes the update fail while
# everything needed here is to be had.
log=$(mktemp)
trap 'rm -f "$log"' EXIT
{
  $as_root apt-get -q update
  $as_root env DEBIAN_FRONTEND=noninteractive apt-get -q install -y --no-install-recommends $absent
} > "$log" 2>&1 || true

absent=$(missing)
[ -n "$absent" ] || exit 0
tail -n 20 "$log" >&2
echo "Still missing:$absent" >&2
case $absent in
  *:armhf* | *gnueabihf* | *qemu*)
    echo "Without them the 32-bit ARM module is neither built nor tested; --host-only leaves it out." >&2 ;;
esac
exit 1
