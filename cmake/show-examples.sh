#!/bin/sh
# show-examples.sh BUILD
#
# Runs the tool of the build folder BUILD on the examples, and prints each command before its
# output. Run it in the project's folder.
set -eu

tool=$1/bin/tarn_host
conf=$1/run_conf.json
key=$1/run.key

show() {
  printf '\n$ %s\n' "$1"
  eval "$1"
}

show "grep -x '.\{1,90\}' examples/statements.sql | head -n 8 | $tool normalize --pairs"
show "$tool trace 'select t3.name, 1.50 from customers t3 where (t3.id = 0x1F)'"
show "$tool shapes --top 3 --input=slowlog examples/slow.log"
show "$tool shapes --top 1 --sort=max --examples --input=slowlog examples/slow.log"
show "examples/make_sys_conf.sh $tool $key examples/sys_conf.json $conf"
show "TARN_SYS_CONF=$conf TARN_KEY_FILE=$key APP_CONF_FILE=examples/app_conf.json $tool config orders"
