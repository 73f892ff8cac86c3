#!/bin/sh
# deb_test.sh CPACK SOURCE BUILD SCRATCH
#
# Packages BUILD under a strict umask, checks the package's control data and content, and checks the
# unpacked tree.
set -eu
. "${0%/*}/fail.sh"
umask 077

cpack=$1 source=$2 build=$3 scratch=$4

rm -rf "$scratch"
mkdir -p "$scratch"
"$cpack" --config "$build/CPackConfig.cmake" -G DEB -B "$scratch" >"$scratch/cpack.log" 2>&1 ||
  fail "cpack fails: $(cat "$scratch/cpack.log")"
deb=$(echo "$scratch"/*.deb)
holds "$deb" /tarn-interface-for-vesta_ "the name"
holds "$deb" "_$(dpkg --print-architecture).deb" "the name"

depends=$(dpkg-deb -f "$deb" Depends)
for library in libace libc6 libssl libstdc++6; do
  holds ", $depends" ", $library" "the dependencies"
done
lacks "$depends" tarn "the dependencies"
for field in Maintainer Section Description Installed-Size; do
  [ -n "$(dpkg-deb -f "$deb" $field)" ] || fail "no $field"
done

dpkg-deb -c "$deb" >"$scratch/contents"
for file in share/man/man1/tarn_host.1.gz share/doc/tarn-interface-for-vesta/changelog.gz \
  share/doc/tarn-interface-for-vesta/examples/statements.sql \
  include/tarn_interface_for_vesta/impl_dao/product_interface.h \
  lib.*/cmake/tarn_interface_for_vesta/tarn_interface_for_vesta-config.cmake; do
  grep -q " \./usr/$file\$" "$scratch/contents" || fail "no $file"
done
# Every file and folder is owned by root, readable by everyone and below /usr.
! grep -vE '^(drwxr-xr-x|-rwxr-xr-x|-rw-r--r--) root/root .* \./(usr/.*)?$' "$scratch/contents" ||
  fail "odd entries"

dpkg-deb -x "$deb" "$scratch/root"
[ "$(dpkg-deb -I "$deb" triggers)" = "activate-noawait ldconfig" ] || fail "no trigger of ldconfig"
if command -v lintian >/dev/null; then
  # The owner has not chosen a licence.
  lintian --allow-root --fail-on error,warning --suppress-tags no-copyright-file "$deb" ||
    fail "lintian finds fault"
fi
! readelf -S "$scratch/root/usr/bin/tarn_host" | grep -q '\.symtab' || fail "the tool is not stripped"
"$source/tests/package/check_tree.sh" "$scratch/root/usr" "$source" "$scratch"
