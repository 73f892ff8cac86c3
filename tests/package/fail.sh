#!/bin/sh
# Sourced by the tests here: fail WORD... says why the script ends.
fail() {
  echo "${0##*/}: $*" >&2
  exit 1
}
