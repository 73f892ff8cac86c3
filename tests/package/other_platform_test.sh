#!/bin/sh
# other_platform_test.sh CMAKE COMPILER SOURCE SCRATCH
#
# Builds the plug-in on a platform whose layouts and symbols differ from the stand-in's and which
# declares only the calls that the plug-in makes. Calls all nine operations.
set -eu
. "${0%/*}/fail.sh"

cmake=$1 compiler=$2 source=$3 scratch=$4
# With it ccache would record relative paths, but the test searches for absolute ones.
unset CCACHE_BASEDIR

rm -rf "$scratch"
mkdir -p "$scratch/lib" "$scratch/include/platform"
cp "$source/tests/package/other_platform.h" "$scratch/include"
# Each of the five headers declares the whole platform.
for header in "$source"/include/platform/*.h; do
  echo '#include "other_platform.h"' >"$scratch/include/platform/${header##*/}"
done

# compile_with DECIPHER-RESULT PROCESS-RESULT FILE...: compiles the files of the plug-in without a
# warning on a platform with these result types.
compile_with() {
  decipher=$1 process=$2
  shift 2
  "$compiler" -std=c++20 -fsyntax-only -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow -Werror \
    -DDECIPHER_RESULT="$decipher" -DPROCESS_RESULT="$process" -I "$scratch/include" \
    -I "$source/include" -I "$source/src" "$@" || fail "does not compile with results of $decipher and $process"
}
compile_with int "unsigned long long" "$source"/src/entry/*.cpp "$source"/src/dbconfig/*.cpp
compile_with unsigned short "$source/src/dbconfig/db_account.cpp" "$source/src/dbconfig/db_properties.cpp"

library=$scratch/lib/libother_platform.so
"$compiler" -std=c++20 -fPIC -shared -Wl,-soname,libother_platform.so -DBUILD_PLATFORM -x c++ \
  "$scratch/include/other_platform.h" -o "$library"

# configure OPTION...: without optimisation, which is slow and shows nothing here. Keeps the cached
# facts about the compiler, but none about the platform.
configure() {
  "$cmake" -S "$source" -B "$scratch/build" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG= \
    -DCMAKE_CXX_COMPILER="$compiler" -U 'TARN_PLATFORM_*' "$@" >"$scratch/log" 2>&1
}

by_library=-DTARN_PLATFORM_LIBRARY=$library
by_headers=-DTARN_PLATFORM_INCLUDE_DIR=$scratch/include

# One option without the other, or a missing header, would give a plug-in that crashes. refused
# REASON OPTION...
refused() {
  reason=$1
  shift
  ! configure "$@" || fail "configured without an error: $*"
  holds "$(tr -s '\n ' ' ' <"$scratch/log")" "$reason" "the message"
}
refused "TARN_PLATFORM_LIBRARY without TARN_PLATFORM_INCLUDE_DIR:" "$by_library"
refused "TARN_PLATFORM_INCLUDE_DIR without TARN_PLATFORM_LIBRARY:" "$by_headers"
mv "$scratch/include/platform/c_value.h" "$scratch"
refused "no platform/c_value.h" "$by_library" "$by_headers"
mv "$scratch/c_value.h" "$scratch/include/platform"

{ configure "$by_library" "$by_headers" &&
  "$cmake" --build "$scratch/build" >>"$scratch/log" 2>&1; } || fail "$(cat "$scratch/log")"
ninja -C "$scratch/build" -t deps >"$scratch/deps"
# If a path contains a quote, ninja records only the part after the quote.
grep -qF "${scratch##*\'}/include/platform/c_value.h" "$scratch/deps" || fail "no dependencies recorded"
! grep -F "${source##*\'}/include/platform" "$scratch/deps" || fail "a declaration of the stand-in is used"

plugin=$scratch/build/lib/libtarn_interface_for_vesta.so
! readelf -Wd "$plugin" | grep -E 'R(UN)?PATH.*(\[|:)(:|\])' || fail "the current folder is searched"

"$compiler" -std=c++20 -DPLUGIN="\"$plugin\"" -I "$scratch/include" -I "$source/include" \
  "$source/tests/package/host/host.cpp" "$library" -ldl -o "$scratch/host"
# The number 1 in each line: one record of the log's place exists at each call.
cat >"$scratch/wanted" <<END
error 666667 getproductinterface.cpp:213 LogError e (1)
warn getproductinterface.cpp:218 LogWarning w (1)
debug getproductinterface.cpp:222 LogDebug d (1)
error 666667 getproductinterface.cpp:213 LogError mysql (1)
error 4294967277 getproductinterface.cpp:249 GetDBUserAndPassword [tarn_interface_for_vesta] decryptEx failed Passwd (1)
error 0 getproductinterface.cpp:251 GetDBUserAndPassword [tarn_interface_for_vesta] decryptEx ALGID_AES128_ECB  (1)
warn getproductinterface.cpp:218 LogWarning mysql_u (1)
3|mysql|mysql_u|secret|db.example:5005|SELECT a FROM tab ____t1 WHERE b = 31|b000013
x=1.0e999 stays
warn getproductinterface.cpp:218 LogWarning nesvc_v8ptnDB_65535 (1)
warn getproductinterface.cpp:62 getSSLMode [tarn_interface_for_vesta] getSSLmdoe error : APP_CONF_FILE = NULL (1)
SSLMODE=1
defaultDBName=nesvc_v8ptnDB_65535
unloaded
END
env -u APP_CONF_FILE LD_LIBRARY_PATH="$scratch/lib" "$scratch/host" >"$scratch/got" ||
  fail "the host ends with $?"
diff "$scratch/wanted" "$scratch/got" || fail "other answers"

# The package's dependencies can't name that library unless the builder does.
if command -v dpkg-shlibdeps >/dev/null; then
  # package...: prints cpack's output in one line, then the package's dependencies.
  package() {
    (cd "$scratch/build" && cpack -G DEB -B "$scratch/package" "$@") 2>&1 | tr -s '\n ' ' '
    dpkg-deb -f "$scratch"/package/*.deb Depends
  }
  holds "$(package)" "$library belongs to no Debian package" "the package's build"
  said=$(package -D CPACK_DEBIAN_PACKAGE_DEPENDS=other-platform)
  lacks "$said" "belongs to no" "the package's build"
  holds "$said" other-platform "the dependencies"
  holds "$said" libc6 "the dependencies"
fi
