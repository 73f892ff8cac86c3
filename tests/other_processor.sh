#!/bin/sh
# other_processor.sh [s390x|arm64] [COUNT]: compares both engines on COUNT random statements
# (default: 10000) on another processor, which is emulated. s390x has the other byte order; neither
# has SSE2. On Debian 12 it needs
#
#   apt-get install g++-s390x-linux-gnu g++-aarch64-linux-gnu qemu-user libboost-regex-dev
#
# Boost for that processor is downloaded and unpacked below build/, together with apt's state, so
# nothing foreign is installed.
set -eu
cd "$(dirname "$0")/.."
processor=${1:-s390x}
count=${2:-10000}
case $processor in
  s390x) gnu=s390x ;;
  arm64) gnu=aarch64 ;;
  *) echo "other_processor.sh: unknown processor '$processor': s390x or arm64" >&2; exit 2 ;;
esac
folder=$PWD/build/$processor
apt=$folder/apt
root=$folder/root
lib=$root/usr/lib/$gnu-linux-gnu

if [ ! -d "$lib" ]; then
  mkdir -p "$apt/lists/partial" "$apt/archives/partial" "$root"
  touch "$apt/status"
  set -- -qq -o APT::Architecture=$processor -o APT::Architectures::=$processor -o APT::Sandbox::User=root \
    -o Dir::State="$apt" -o Dir::State::status="$apt/status" -o Dir::Cache="$apt"
  apt-get "$@" update
  (cd "$apt/archives" && apt-get "$@" download libboost-regex1.74.0 libicu72)
  for package in "$apt"/archives/*.deb; do dpkg-deb -x "$package" "$root"; done
fi
mkdir -p "$folder/include"
ln -sfn /usr/include/boost "$folder/include/boost"
$gnu-linux-gnu-g++ -std=c++20 -O2 -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror -isystem "$folder/include" \
  -I src -I tests -DTARN_CASES="\"$PWD/tests/cases\"" tests/support/compare_random.cpp \
  tests/support/compare_engines.cpp src/sqlnorm/patterns/*.cpp src/sqlnorm/scanner/*.cpp \
  "$lib/libboost_regex.so.1.74.0" -Wl,-rpath-link,"$lib" -o "$folder/compare_random"
qemu-$gnu -L /usr/$gnu-linux-gnu -E LD_LIBRARY_PATH="$lib" "$folder/compare_random" "$count"
