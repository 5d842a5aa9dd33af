#!/bin/sh
# How a script of an installed package calls a service. The token never stands in an argument, where every user of the
# machine could read it: printf is the shell's own, and curl reads the header from the pipe.
set -eu
[ $# = 2 ] || { echo "usage: package.sh NAME URL" >&2; exit 2; }
name=$1 url=$2

# call [--force]: prints the status of a GET of $url; ends as the tool does where there is no token, and with 1 where
# there is no answer: curl's own codes mean something else among the tool's.
call() {
  header=$(varnkivo token --package "$name" --format header --min-valid 60 "$@") || exit
  printf '%s\n' "$header" | curl -sS --proto =https --max-time 30 -o /dev/null -w '%{http_code}' -H @- "$url" || exit 1
}

status=$(call)
[ "$status" != 401 ] || status=$(call --force) # withdrawn before its time: only the service could know
echo "$name called $url: $status"
case $status in 2??) ;; *) exit 1 ;; esac
