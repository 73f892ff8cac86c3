#!/bin/sh
# check-reproducible.sh
#
# Builds, installs and packages two copies of this tree in two folders, with all uncommitted
# changes, and reports whether every file has the same bytes. Takes minutes; leaves no file. Needs
# the tree's git history, since a package takes its date from the last commit.
set -eu
cd "$(dirname "$0")/.."

if ! git rev-parse --quiet --verify HEAD >/dev/null 2>&1; then
  echo "check-reproducible: needs git and the history of this tree, not a tarball" >&2
  exit 1
fi

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
trap 'exit 130' INT TERM

first=$scratch/a
second="$scratch/another folder/with a longer path"

# Nothing else in a package comes from the clock.
SOURCE_DATE_EPOCH=$(git log -1 --format=%ct)
export SOURCE_DATE_EPOCH

for copy in "$first" "$second"; do
  mkdir -p "$copy"
  git ls-files -z --cached --others --exclude-standard |
    tar --create --null --files-from=- | tar --extract --directory="$copy"
  log=$copy/build.log
  if ! {
    cmake -S "$copy" -B "$copy/build/release" -G Ninja -DCMAKE_BUILD_TYPE=Release &&
      cmake --build "$copy/build/release" --parallel "${JOBS:-2}" \
        --target tarn_interface_for_vesta tarn_platform_standin tarn_host &&
      cmake --install "$copy/build/release" --prefix "$copy/result" &&
      cpack --config "$copy/build/release/CPackConfig.cmake" -G DEB -B "$copy/package" &&
      mv "$copy"/package/*.deb "$copy/result"
  } >"$log" 2>&1; then
    cat "$log" >&2
    echo "check-reproducible: a build fails" >&2
    exit 1
  fi
done

if ! diff -r "$first/result" "$second/result"; then
  echo "check-reproducible: two builds differ" >&2
  exit 1
fi
find "$first/result" -type f | wc -l | xargs printf '%s files, the same bytes from both builds\n'
