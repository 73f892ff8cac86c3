#!/bin/sh
# make_sys_conf.sh TARN_HOST KEY_FILE SAMPLE OUTPUT
#
# Writes OUTPUT, a copy of the configuration SAMPLE in which each
#   "password": "encipher-ALGORITHM:PASSWORD"
# holds the password enciphered by `TARN_HOST encrypt` with the key of KEY_FILE. Makes the key file if
# there is none. OUTPUT is replaced as a whole, or left as it is when anything fails.
set -eu

if [ $# -ne 4 ]; then
  echo "usage: make_sys_conf.sh TARN_HOST KEY_FILE SAMPLE OUTPUT" >&2
  exit 2
fi
tarn_host=$1 key_file=$2 sample=$3 output=$4

unfinished=$output.new
trap 'rm -f "$unfinished"' EXIT
[ -e "$key_file" ] || "$tarn_host" keygen "$key_file"

while IFS= read -r line || [ -n "$line" ]; do
  case $line in
  *'"encipher-'*:*'"'*)
    before=${line%%encipher-*}
    rest=${line#*encipher-}
    algorithm=${rest%%:*}
    rest=${rest#*:}
    password=${rest%%\"*}
    after=${rest#*\"}
    text=$(printf '%s\n' "$password" |
      "$tarn_host" encrypt --algorithm "$algorithm" --key "$key_file")
    line=$before$text\"$after
    ;;
  esac
  printf '%s\n' "$line"
done <"$sample" >"$unfinished"
mv "$unfinished" "$output"
