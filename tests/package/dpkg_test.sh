#!/bin/sh
# dpkg_test.sh FOLDER
#
# Installs the Debian package in FOLDER into this system, uses it, and removes it. Runs only as
# root, with TARN_TEST_DPKG set, and if the package is not in use.
set -eu
. "${0%/*}/fail.sh"

skipped() {
  echo "dpkg_test: skipped: $*"
  exit 77
}
installed() {
  dpkg-query -W -f '${db:Status-Status}' "$name" 2>/dev/null | grep -q '^installed$'
}

deb=$(echo "$1"/*.deb)
name=$(dpkg-deb -f "$deb" Package)
[ "$(id -u)" = 0 ] || skipped "not root"
[ -n "${TARN_TEST_DPKG:-}" ] || skipped "TARN_TEST_DPKG is not set"
! installed || skipped "$name is installed"
! ldconfig -p | grep -q 'libtarn_' || skipped "the product is installed without a package"

trap 'dpkg --purge "$name" >/dev/null 2>&1' EXIT
dpkg -i "$deb" >/dev/null
installed || fail "not installed"
ldconfig -p | grep -q 'libtarn_interface_for_vesta\.so' || fail "the loader's cache does not know it"
got=$(cd / && echo 'delete from tab' | tarn_host normalize --input=lines --plugin libtarn_interface_for_vesta.so)
[ "$got" = "DELETE tab" ] || fail "tarn_host answers \"$got\""
files=$(dpkg-query -L "$name" | while read -r file; do [ -d "$file" ] || echo "$file"; done)
holds "$files" /tarn_host.1.gz "the package's files"

dpkg --purge "$name" >/dev/null
! installed || fail "not removed"
for file in $files; do
  [ ! -e "$file" ] || fail "leaves $file"
done
! ldconfig -p | grep 'libtarn_' || fail "the loader's cache still knows it"
