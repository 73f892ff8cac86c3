#!/bin/sh
# The tests here source this file: fail WORD... prints why the script ends, and ends it.
fail() {
  echo "${0##*/}: $*" >&2
  exit 1
}
