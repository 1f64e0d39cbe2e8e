# Completion of binaural-tune for bash: commands, options, files, and the names of headsets in the file that
# is already on the command line.

_binaural_tune_headsets() {
  local word
  for word in "${COMP_WORDS[@]}"; do
    if [[ $word == *.xml && -f $word ]]; then
      "${COMP_WORDS[0]}" resolve --list "$word" 2> /dev/null | sed -n 's/^"\(.*\)"  *normal .*/\1/p'
    fi
  done
}

_binaural_tune() {
  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
  local command=${COMP_WORDS[1]} options=
  COMPREPLY=()
  if ((COMP_CWORD == 1)); then
    mapfile -t COMPREPLY < <(compgen -W "lint resolve show diff plot process init --help --version" -- "$current")
    return
  fi
  case $previous in
    --format) options="text json sarif" ;;
    --scene) options="normal selfie" ;;
    --mode) options="0 1 2 3" ;;
    --rate) options="48000 44100" ;;
    --headset)
      local name
      while IFS= read -r name; do
        [[ $name == "$current"* ]] && COMPREPLY+=("$(printf '%q' "$name")")
      done < <(_binaural_tune_headsets)
      return
      ;;
    -o | --output | --report)
      compopt -o filenames 2> /dev/null
      mapfile -t COMPREPLY < <(compgen -f -- "$current")
      return
      ;;
  esac
  if [[ -z $options && $current == -* ]]; then
    case $command in
      lint) options="--format --strict" ;;
      resolve) options="--headset --scene --mirror --mode --list" ;;
      plot) options="--headset --scene --mirror --against --rate --output" ;;
      process) options="--headset --scene --mirror --mode --match-loudness --report --force" ;;
      init) options="--headset --output --force" ;;
    esac
    options+=" --help"
  fi
  if [[ -n $options ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$options" -- "$current")
  else
    compopt -o filenames 2> /dev/null
    mapfile -t COMPREPLY < <(compgen -f -- "$current")
  fi
}

complete -F _binaural_tune binaural-tune
