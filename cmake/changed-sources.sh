#!/bin/sh
# changed-sources.sh COMMIT
#
# Prints the .cpp files that differ from COMMIT, or that include a header that does, directly or
# through others. Deleted files are left out.
set -eu
cd "$(dirname "$0")/.."

changed=$(git diff --name-only --diff-filter=d "$1" -- '*.cpp' '*.h')
known=
while [ "$changed" != "$known" ]; do
  known=$changed
  for header in $(echo "$known" | grep '\.h$' || true); do
    changed="$changed
$(git grep -l "#include \".*${header##*/}\"" -- '*.cpp' '*.h' || true)"
  done
  changed=$(echo "$changed" | sort -u | grep . || true)
done
echo "$changed" | grep '\.cpp$' || true
