# bash completion for tarn_host. Needs nothing beyond bash itself.

# Every folder, and the files that match the extended glob $2, for the word $1.
_tarn_host_files() {
  mapfile -t COMPREPLY < <(
    shopt -s extglob
    compgen -d -- "$1"
    compgen -f -X "!$2" -- "$1"
  )
  compopt -o filenames 2>/dev/null
}

_tarn_host() {
  local word=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
  local command='' options='' choices='' index
  COMPREPLY=()

  for ((index = 1; index < COMP_CWORD; index++)); do
    if [[ ${COMP_WORDS[index]} != -* ]]; then
      command=${COMP_WORDS[index]}
      break
    fi
  done
  if [[ -z $command ]]; then
    COMPREPLY=($(compgen -W 'normalize trace map shapes check config encrypt keygen --help --version' -- "$word"))
    return
  fi

  # bash splits "--input=sql" into three words.
  if [[ $word == = ]]; then
    word=''
  elif [[ $previous == = ]]; then
    previous=${COMP_WORDS[COMP_CWORD - 2]}
  fi
  case $previous in
    --input)
      choices='sql lines nul slowlog general pglog csvlog jsonlog'
      [[ $command != shapes ]] || choices+=' report'
      ;;
    --dialect) choices='mysql ansi postgres' ;;
    --sort) choices='count time max rows' ;;
    --group-by) choices='user db host' ;;
    --algorithm) choices='aes-256-gcm aes-128-ecb 19 18' ;;
    --plugin)
      _tarn_host_files "$word" '*.so?(.*)'
      return
      ;;
    --key | --compare)
      _tarn_host_files "$word" '*'
      return
      ;;
    --prefix | --max-statement | --top | --min-count | --threads | --timeout | --since | --until | --user | --db | --host)
      return
      ;;
  esac
  if [[ -n $choices ]]; then
    COMPREPLY=($(compgen -W "$choices" -- "$word"))
    return
  fi

  case $command in
    normalize) options='--input --dialect --prefix --max-statement --pairs --plugin --help' ;;
    shapes)
      options='--input --dialect --prefix --max-statement --exact --fold-digits --keys --since --until --user --db --host
        --group-by --sort --top --min-count --compare --examples --json --threads --plugin --help'
      ;;
    map | trace) options='--plugin --help' ;;
    config) options='--json --show-password --plugin --help' ;;
    encrypt) options='--algorithm --key --help' ;;
    check) options='--timeout --help' ;;
    keygen) options='--help' ;;
  esac
  if [[ $word == -* ]]; then
    COMPREPLY=($(compgen -W "$options" -- "$word"))
    return
  fi
  case $command in
    normalize | shapes | keygen) _tarn_host_files "$word" '*' ;;
    check) _tarn_host_files "$word" '*.so?(.*)' ;;
  esac
}

complete -F _tarn_host tarn_host
