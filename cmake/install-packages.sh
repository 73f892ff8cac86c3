#!/bin/sh
# install-packages.sh PACKAGE...
#
# Installs the named Debian packages that are missing, as root or through sudo. On another system it
# prints which packages are needed and fails.
set -eu

if ! command -v dpkg-query >/dev/null || ! command -v apt-get >/dev/null; then
  echo "install-packages: no Debian system; install the equivalents of: $*" >&2
  exit 1
fi

missing=
for package in "$@"; do
  status=$(dpkg-query -W -f='${Status}' "$package" 2>/dev/null || true)
  [ "$status" = "install ok installed" ] || missing="$missing $package"
done
[ -n "$missing" ] || exit 0

as_root=
if [ "$(id -u)" -ne 0 ]; then
  if ! command -v sudo >/dev/null; then
    echo "install-packages: neither root nor sudo; have these packages installed:$missing" >&2
    exit 1
  fi
  as_root="sudo"
fi

echo "Installing$missing"
$as_root apt-get update -qq
# shellcheck disable=SC2086
$as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends $missing
