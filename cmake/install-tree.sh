#!/bin/sh
# install-tree.sh install BUILD PREFIX
# install-tree.sh uninstall BUILD
#
# Installs the build folder BUILD under PREFIX, or removes the files of the last installation from
# BUILD, and those of its folders that were not there before and are empty.
set -eu

command=$1 build=$2
manifest=$build/install_manifest.txt
known_folders=$build/folders_before_install.txt

case $command in
install)
  prefix=$3
  # A second installation must not record the first one's folders as older ones.
  if [ ! -f "$known_folders" ]; then
    find "$prefix" -type d >"$known_folders" 2>/dev/null || true
    folder=$prefix
    until [ -d "$folder" ]; do folder=$(dirname "$folder"); done
    printf '%s\n' "$folder" >>"$known_folders"
  fi
  umask 022
  cmake --install "$build" --prefix "$prefix"
  ;;
uninstall)
  if [ ! -f "$manifest" ]; then
    echo "uninstall: no $manifest: nothing is installed from this build folder, or it was removed since" >&2
    exit 1
  fi
  # cmake writes no newline after the last name.
  { cat "$manifest" && echo; } | while IFS= read -r file; do
    [ -n "$file" ] || continue
    rm -f -- "$file"
    folder=${file%/*}
    until grep -Fxq -- "$folder" "$known_folders" || ! rmdir -- "$folder" 2>/dev/null; do
      folder=${folder%/*}
    done
  done
  rm -f "$manifest" "$known_folders"
  ;;
esac
