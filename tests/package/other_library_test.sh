#!/bin/sh
# other_library_test.sh COMPILER SOURCE SCRATCH
#
# A host with another C++ library, or with libstdc++'s old layout of strings, does not compile.
set -eu
. "${0%/*}/fail.sh"

compiler=$1 source=$2 scratch=$3
rm -rf "$scratch"
mkdir -p "$scratch"
echo '#include "impl_dao/product_interface.h"' >"$scratch/host.cpp"
# The part of another library that the interface uses.
for header in cstdint map string; do
  cat >"$scratch/$header" <<'END'
#pragma once
namespace std {
using int64_t = long;
class string;
template <typename, typename> class map;
}
END
done

compile() {
  "$compiler" -std=c++20 -fsyntax-only "$@" -I "$source/include" "$scratch/host.cpp" 2>&1
}
# refused REASON OPTION...
refused() {
  reason=$1
  shift
  ! said=$(compile "$@") || fail "compiled with $*"
  case $said in
  *"$reason"*) ;;
  *) fail "$said" ;;
  esac
}
compile || fail "refused with libstdc++"
refused "without _GLIBCXX_USE_CXX11_ABI=0" -D_GLIBCXX_USE_CXX11_ABI=0
refused "with the C++ library libstdc++" -nostdinc++ -I "$scratch"
