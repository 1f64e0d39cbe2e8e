#!/bin/sh
# Installs what is missing, builds the module and the recorder, and records the built-in scene into
# recording.wav. Further arguments go to the recorder, see `scripts/record.sh --help`; an output file
# may be among them.
set -eu
tree=$(cd "$(dirname "$0")/.." && pwd)

"$tree/scripts/install_dependencies.sh" --record
mkdir -p "$tree/build"
if ! (cd "$tree" && cmake --preset record && cmake --build build/record) \
    > "$tree/build/record.log" 2>&1; then
  cat "$tree/build/record.log" >&2
  exit 1
fi

# The recording of a former run is replaced only when its name was not chosen by the user.
output_given=no
previous=
for argument in "$@"; do
  case $previous in
    -i | --input | --coefficients | --fault | --json | --module | -d | --duration) ;;
    *) case $argument in
         - | *.wav | *.WAV | -h | --help | --version) output_given=yes ;;
       esac ;;
  esac
  previous=$argument
done
if [ $output_given = yes ]; then
  exec "$tree/build/record/bin/binaural-record" "$@"
fi
exec "$tree/build/record/bin/binaural-record" --force "$@" recording.wav
