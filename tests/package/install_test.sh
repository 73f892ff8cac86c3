#!/bin/sh
# install_test.sh CMAKE COMPILER SOURCE BUILD SCRATCH
#
# Installs BUILD, moves the tree, checks the moved tree, and builds and runs a host against it.
set -eu
. "${0%/*}/fail.sh"

cmake=$1 compiler=$2 source=$3 build=$4 scratch=$5
tests=$source/tests/package

rm -rf "$scratch"
mkdir -p "$scratch"
"$cmake" --install "$build" --prefix "$scratch/first place" >"$scratch/install.log"
mv "$scratch/first place" "$scratch/second place"
tree="$scratch/second place"
"$tests/check_tree.sh" "$tree" "$source" "$scratch"
grep -o '^| `[^`]*`' "$tree"/share/doc/*/README.md | tr -d '|` ' >"$scratch/named"
[ -s "$scratch/named" ] || fail "the installed README names nothing"
(cd "$tree" && xargs ls -d <"$scratch/named" >/dev/null) || fail "the installed README names what is not installed"

"$cmake" -S "$tests/host" -B "$scratch/host" -G Ninja -DCMAKE_CXX_COMPILER="$compiler" \
  -DCMAKE_PREFIX_PATH="$tree" >"$scratch/host.log"
"$cmake" --build "$scratch/host" >>"$scratch/host.log" || fail "$(cat "$scratch/host.log")"
got=$(TARN_LOG_LEVEL=off TARN_SYS_CONF='' APP_CONF_FILE=$source/examples/app_conf.json "$scratch/host/host")
holds "$got" "3|||||SELECT a FROM tab ____t1 WHERE b = 31|b000013
x=1.0e999 stays
SSLMODE=2
defaultDBName=" "the host's output"
holds "$got" unloaded "the host's output"
