#!/bin/sh
# check-built.sh COMPILE_COMMANDS
#
# Fails if a source file of this tree is in no target of the compile database. The fuzzers and the
# host of the package's tests are excepted: other commands build them.
set -eu
cd "$(dirname "$0")/.."

database=$1
status=0
for source in $(cmake/list-sources.sh | grep '\.cpp$' | grep -vE '^(fuzz|tests/package)/'); do
  if ! grep -q "/$source\"" "$database"; then
    echo "lint: no target names $source" >&2
    status=1
  fi
done
exit $status
