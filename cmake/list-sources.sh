#!/bin/sh
# list-sources.sh
#
# Prints the C++ files of this tree, one in each line: the files that git knows or could add or,
# without git's history, all files outside build folders.
set -eu
cd "$(dirname "$0")/.."

if [ -e .git ] && command -v git >/dev/null; then
  git ls-files --cached --others --exclude-standard -- '*.cpp' '*.h'
else
  find . -path ./build -prune -o \( -name '*.cpp' -o -name '*.h' \) -printf '%P\n'
fi | sort
