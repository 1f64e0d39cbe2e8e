#!/bin/sh
# Makes the network of the noise reduction from nothing: voices, noises and mixtures, which new ones replace while it
# trains; then writes it into the capture library. Two cores take two hours; training/work grows to 13 GB.
#
# usage: scripts/train.sh [--minutes N] [--seed N]
#   --minutes N  of training, by the clock (default 90)
#   --seed N     of the data, the first weights and the order of the scenes (default 1)
set -eu
minutes=90 seed=1
while [ $# -gt 0 ]; do
  case $1 in
    -h | --help) sed -n '2,7s/^# \{0,1\}//p' "$0"; exit ;;
    --minutes | --seed)
      case ${2-} in
        "" | *[!0-9]*) echo "$0: $1 ${2-}: expected a whole number" >&2; exit 2 ;;
      esac
      if [ "$1" = --seed ]; then seed=$2; else minutes=$2; fi
      shift 2 ;;
    *) echo "$0: no option \"$1\"; see --help" >&2; exit 2 ;;
  esac
done
root=$(dirname "$0")/..
"$root"/scripts/install_dependencies.sh --record --train
cd "$root/training"
export OMP_NUM_THREADS=1 OPENBLAS_NUM_THREADS=1
/usr/bin/python3 recurrent.py
/usr/bin/python3 intelligibility.py
/usr/bin/python3 make_data.py --seed "$seed"
training=
setsid /usr/bin/python3 make_data.py --renew --seed $((seed + 1)) &
renewal=$!
trap 'kill -- -$renewal $training 2> /dev/null || :' EXIT  # the renewal with the processes that it has started
trap 'exit 130' HUP INT TERM
/usr/bin/python3 train.py --seed "$seed" --minutes "$minutes" &  # beside this shell, which then hears of signals at once
training=$!
wait $training
training=
kill -0 $renewal 2> /dev/null || { echo "$0: the mixtures were not renewed to the end; see above" >&2; exit 1; }
/usr/bin/python3 export.py
echo "These gains belong in tests/bcap/noise_network_test.cpp; scripts/evaluate.sh tells how good it is."
