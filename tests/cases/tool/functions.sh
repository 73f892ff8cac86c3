# Functions for the shell commands in tool.txt.

# Runs tarn_host with each argument, which bash splits into words, while all end with one exit code.
each() {
  local arguments code first
  for arguments; do eval "tarn_host $arguments"; code=$?; ((code == ${first=$code})) || return 99; done
  return $code
}

# Waits until the command $1 succeeds or the shell's process, which may run the tool by now, ends.
await() { until eval "$1"; do kill -0 $$ 2>/dev/null || exit; sleep 0.01; done; }

# Waits until the process $1 has ended. One that nobody waits for stays in the state Z.
ended() { while grep -qs '^State:.[^XZ]' /proc/$1/status; do sleep 0.01; done; }

# Whether the process $1 catches SIGINT and, if $2 is "...", SIGALRM.
catches() { grep -qs "^SigCgt:.*[2367abef]$2\$" /proc/$1/status; }

# Runs tarn_host with the other arguments on a terminal of $1 columns, which shows both streams.
terminal() {
  local columns=$1
  shift
  script -qec "stty cols $columns; tarn_host ${*@Q} <input" /dev/null </dev/null | tr -d '\r'
}

# Prints the screen of a terminal on which the command $1 runs. Each of the other arguments answers
# a question with keys to press or, as in -INT, with a signal to the process in the file pid.
dialogue() {
  local command=$1 questions=0 answer code
  mkfifo keys
  env --default-signal script -qec "$command" /dev/null >screen <keys &
  exec 3>keys
  for answer in "${@:2}"; do
    ((++questions))
    until (($(grep -o ': ' screen | wc -l) >= questions)); do kill -0 $! || break; sleep 0.01; done
    if [[ $answer == -* ]]; then kill $answer $(<pid); else printf "$answer" >&3; fi
  done
  wait $!
  code=$?
  tr -d '\r' <screen
  rm keys
  return $code
}
