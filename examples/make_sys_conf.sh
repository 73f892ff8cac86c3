#!/bin/sh
# make_sys_conf.sh TARN_HOST KEY_FILE SAMPLE OUTPUT
#
# Writes OUTPUT, a copy of the configuration SAMPLE in which each JSON text
#   "encipher-ALGORITHM:PASSWORD"
# is the password enciphered by `TARN_HOST encrypt` with the key of KEY_FILE. Creates the key file
# if there is none. OUTPUT is replaced as a whole, by a file that only its owner may read. If
# anything fails, it is left as it is. If it is a symbolic link, the link is replaced, not its
# target.
#
# In a password, as in any JSON text, \" means a quote and \\ a backslash. A password with another
# escape sequence is refused.
set -eu
# Passwords are bytes.
LC_ALL=C
export LC_ALL

fail() {
  printf 'make_sys_conf.sh: %s\n' "$1" >&2
  exit 1
}

if [ $# -ne 4 ]; then
  echo "usage: make_sys_conf.sh TARN_HOST KEY_FILE SAMPLE OUTPUT" >&2
  exit 2
fi
tarn_host=$1 key_file=$2 sample=$3 output=$4

command -v -- "$tarn_host" >/dev/null || fail "$tarn_host: no such program"
[ -r "$sample" ] || fail "$sample: cannot be read"
[ ! -d "$output" ] || fail "$output: is a directory"

# Always a new file that only its owner may access, even if files of that name exist.
umask 077
unfinished=$(mktemp -- "$output.XXXXXX")
trap 'rm -f -- "$unfinished"' EXIT
trap 'exit 130' HUP INT TERM
[ -e "$key_file" ] || "$tarn_host" keygen -- "$key_file"

# A JSON text up to its closing quote.
text='\(\([^"\\]\|\\.\)*\)'

while IFS= read -r line || [ -n "$line" ]; do
  while :; do
    case $line in
    *'"encipher-'*) ;;
    *) break ;;
    esac
    before=${line%%\"encipher-*}
    rest=${line#*\"encipher-}
    algorithm=${rest%%:*}
    rest=${rest#*:}
    escaped=$(printf '%s\n' "$rest" | sed -n "s/^$text\".*/\1/p")
    after=${rest#"$escaped"\"}
    [ "$after" != "$rest" ] || fail "$sample: no end of the password in: $before"
    # Without the two known escape sequences, the text must contain no backslash.
    case $(printf '%s\n' "$escaped" | sed 's/\\["\\]//g') in
    *\\*) fail "$sample: only \\\" and \\\\ may be escaped in a password" ;;
    esac
    enciphered=$(printf '%s\n' "$escaped" | sed 's/\\\(["\\]\)/\1/g' |
      "$tarn_host" encrypt --algorithm "$algorithm" "--key=$key_file")
    line=$before\"$enciphered\"$after
  done
  printf '%s\n' "$line"
done <"$sample" >"$unfinished"
mv -T -- "$unfinished" "$output"
