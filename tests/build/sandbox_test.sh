#!/usr/bin/env bash
# What every other test relies on: the sandbox shows the device, hides the machine, passes everything through and
# leaves nothing behind.
set -uo pipefail
sandbox=$PWD/scripts/sandbox
unset VARNKIVO_SANDBOX
failures=0
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

expect() {  # expect WHAT WANTED GOT
  [ "$2" = "$3" ] && return
  printf 'FAILED: %s\n  wanted: %s\n  got:    %s\n' "$1" "$2" "$3"
  failures=$((failures + 1))
}
# Whether a process goes by the name $1.
is_running() {
  local file name
  for file in /proc/[0-9]*/cmdline; do
    if IFS= read -r -d '' name 2>/dev/null <"$file" && [ "$name" = "$1" ]; then return; fi
  done
  return 1
}
wait_until() {  # wait_until COMMAND...: up to 10 s
  local end=$((SECONDS + 10))
  until "$@"; do
    [ $SECONDS -lt $end ] || { expect "$*" 'within 10 s' no; return; }
    sleep 0.02
  done
}

for row in 'exit 7|7' 'kill -SEGV $$|139'; do
  { "$sandbox" bash -c "${row%|*}"; } 2>/dev/null
  expect "status of ${row%|*}" "${row#*|}" $?
done
"$sandbox" no-such-command 2>/dev/null
expect 'status of a missing command' 127 $?
expect 'input and output' 'abc' "$(echo abc | "$sandbox" cat)"
expect 'arguments' "a b|\"\$x*|" "$("$sandbox" printf '%s|' 'a b' '"$x*')"
expect 'environment and directory' "v w $PWD/tests" "$(cd tests && NAME='v w' "$sandbox" sh -c 'echo "$NAME $(pwd)"')"

"$sandbox" bash -c 'trap "exit 3" TERM; echo up; while :; do sleep 0.02; done' >"$work/up" &
pid=$!
wait_until test -s "$work/up"
kill -TERM $pid
wait $pid
expect 'a signal reaches the command' 3 $?

# What a sandbox could leave on the machine: mounts, interfaces, and the folders it is put together from.
traces() { cat /proc/mounts; ip -o link show | cut -d' ' -f1,2; ls -A /media /mnt /srv /opt /usr; ls -d /run/mount 2>/dev/null; }
mark="mark-$$-$RANDOM" before=$(traces)
private="/tmp/$mark /var/tmp/$mark /run/$mark /etc/$mark /var/log/$mark /dev/shm/$mark /dev/$mark /$mark /usr/varn/$mark"
"$sandbox" bash -c "setsid sleep 1000 & bash -c 'exec -a $mark sleep 1000' & touch $private || echo cannot >&2"
expect 'files left on the machine' '' "$(ls -d $private 2>/dev/null)"
expect 'processes left after the command ended' no "$(is_running "$mark" && echo yes || echo no)"
"$sandbox" bash -c 'exec -a "$0" sleep 1000' "$mark" &
pid=$!
wait_until is_running "$mark"
kill -KILL $pid
wait $pid 2>/dev/null
is_gone() { ! is_running "$mark"; }
wait_until is_gone
expect 'traces on the machine' "$before" "$(traces)"

expect 'the device' "700 934:934
language=\"enu\"
/etc/cron.d:
lo
 6 127.0.0.1
read-only
CA" "$("$sandbox" sh -c '
    stat -c "%a %u:%g" /usr/varn/etc/varnholt-account/private
    cat /etc/varninfo.conf
    ls /etc/cron.d /var/spool/cron/crontabs | head -n 1
    ls /sys/class/net
    for name in account identity payment; do getent hosts $name.kivo.example $name-test.kivo.example; done | cut -d" " -f1 | sort | uniq -c | tr -s " "
    touch /usr/bin/x /root/x /boot/x 2>/dev/null || echo read-only
    echo CA >>/etc/ssl/certs/ca-certificates.crt && tail -n 1 /etc/ssl/certs/ca-certificates.crt')"

# The disposable container of this one is a sandbox: its files are the ones overwritten.
expect 'in place' '700 934
in
1
5' "$("$sandbox" sh -c 'echo old >/usr/varn/old; VARNKIVO_SANDBOX=in-place scripts/sandbox sh -c "
      stat -c \"%a %u\" /usr/varn/etc/varnholt-account/private; ls /usr/varn/old; echo in; exit 5" 2>/tmp/said
    status=$?; grep -c "overwrites /usr/varn" /tmp/said; echo $status' 2>/dev/null)"

[ $failures = 0 ] || { echo "$failures expectations failed"; exit 1; }
