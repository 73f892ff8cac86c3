#!/bin/sh
# check_tree.sh TREE SOURCE SCRATCH
#
# Checks the installed TREE: its tool works with the plug-in beside it, and its binaries are
# hardened and contain no path of the folders they were built in. SOURCE is the source folder,
# SCRATCH a folder for the tool's files.
set -eu
. "${0%/*}/fail.sh"

tree=$1 source=$2 scratch=$3
tool=$tree/bin/tarn_host

report=$(echo 'select t1.a, 1.50 from tab t1' | "$tool" normalize --input=lines)
[ "$report" = "SELECT a, 1.5 FROM tab ____t1" ] || fail "normalize: $report"

report=$("$tool" check) || fail "check fails: $report"
holds "$report" "$(realpath "$tree")/lib" "the report of check"

"$source/examples/make_sys_conf.sh" "$tool" "$scratch/key" "$source/examples/sys_conf.json" \
  "$scratch/sys_conf.json"
report=$(TARN_SYS_CONF=$scratch/sys_conf.json TARN_KEY_FILE=$scratch/key TARN_LOG_LEVEL=off \
  APP_CONF_FILE=$source/examples/app_conf.json "$tool" config orders) || fail "config fails"
holds "$report" mysql "the report of config"

# has FILE READELF_OPTION PATTERN; hasnt likewise.
has() {
  readelf -W "$2" "$1" | grep -qP "$3" || fail "$1: readelf $2 shows no \"$3\""
}
hasnt() {
  ! readelf -W "$2" "$1" | grep -P "$3" || fail "$1: readelf $2 shows \"$3\""
}

has "$tool" -d 'FLAGS_1.*PIE'
# The platform's symbols would win over those of the examined library.
hasnt "$tool" -d 'NEEDED.*platform'
# All binaries, in any folder.
binaries=
find "$tree" -type f >"$scratch/files"
while read -r binary; do
  readelf -h "$binary" >"$scratch/header" 2>&1 || continue
  binaries="$binaries ${binary##*/}"
  has "$binary" -d 'FLAGS.*BIND_NOW'
  has "$binary" -l GNU_RELRO
  has "$binary" -l 'GNU_STACK.* RW +0x'
  hasnt "$binary" -d TEXTREL
  has "$binary" --dyn-syms 'UND __stack_chk_fail'
  hasnt "$binary" -d 'R(UN)?PATH.*\[(.*:)?(?!\$ORIGIN)'
  case $binary in
  */platform_module.so) ;;
  *.so) has "$binary" -d "SONAME.*\[${binary##*/}\]" ;;
  esac
  case $binary in
  # All are compiled with the same options, but not every binary calls a function with a guarded
  # form.
  */libtarn_platform_standin.so) has "$binary" --dyn-syms 'UND __[a-z]+(_[a-z]+)*_chk@' ;;
  # The plug-in's only work when it is unloaded is to destroy its patterns.
  */libtarn_interface_for_vesta.so)
    [ "$(objdump -d "$binary" | grep -c '<__cxa_atexit@plt>$')" = 1 ] || fail "$binary: not one __cxa_atexit"
    ;;
  esac
done <"$scratch/files"
for binary in tarn_host libtarn_interface_for_vesta.so libtarn_platform_standin.so platform_module.so; do
  holds "$binaries " " $binary " "the binaries"
done

# The compiler was told to write "./src/...", which is no trace of a checkout in /src.
for folder in "$source" "$(realpath "$source")"; do
  ! LC_ALL=C grep -rlaP "(?<![\w.])\Q$folder\E/" "$tree" || fail "these name the folder that they were built in"
done
