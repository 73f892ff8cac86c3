#!/bin/sh
# The tests here source this file. fail WORD... prints why the script ends, and ends it.
fail() {
  echo "${0##*/}: $*" >&2
  exit 1
}
# holds TEXT PART WHAT: fails, naming WHAT and TEXT, unless TEXT contains PART. lacks likewise.
holds() {
  case $1 in *"$2"*) ;; *) fail "$3 without \"$2\": $1" ;; esac
}
lacks() {
  case $1 in *"$2"*) fail "$3 with \"$2\": $1" ;; esac
}
