#!/usr/bin/env bash
# What every other test relies on: the sandbox shows the device, hides the machine, passes everything through and
# leaves nothing behind.
set -uo pipefail
sandbox=$PWD/scripts/sandbox
unset VARNKIVO_SANDBOX
failures=0
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
chmod 755 "$work"
mkdir -p "$work/tree/scripts" "$work/tree/config"
cp scripts/sandbox scripts/sandbox-init "$work/tree/scripts/"

expect() {  # expect WHAT WANTED GOT
  if [ "$2" != "$3" ]; then
    printf 'FAILED: %s\n  wanted: %s\n  got:    %s\n' "$1" "$2" "$3"
    failures=$((failures + 1))
  fi
}

# How many processes go by the name $1.
running() {
  local file name count=0
  for file in /proc/[0-9]*/cmdline; do
    if IFS= read -r -d '' name 2>/dev/null <"$file" && [ "$name" = "$1" ]; then count=$((count + 1)); fi
  done
  echo $count
}
is_running() { [ "$(running "$1")" != 0 ]; }
is_gone() { ! is_running "$1"; }

wait_until() {  # wait_until COMMAND...: up to 10 s
  local end=$((SECONDS + 10))
  until "$@"; do
    [ $SECONDS -lt $end ] || return 1
    sleep 0.02
  done
}

test_passes_through() {
  local row
  for row in 'true|0' 'exit 7|7' 'kill -TERM $$|143' 'kill -SEGV $$|139'; do
    { "$sandbox" bash -c "${row%|*}"; } 2>/dev/null
    expect "status of ${row%|*}" "${row#*|}" $?
  done
  "$sandbox" no-such-command 2>/dev/null
  expect 'status of a missing command' 127 $?
  "$sandbox" /etc/passwd 2>/dev/null
  expect 'status of what is no program' 126 $?
  expect 'input and output' 'abc' "$(echo abc | "$sandbox" cat)"
  expect 'arguments' "a b|\"\$x*|" "$("$sandbox" printf '%s|' 'a b' '"$x*')"
  expect 'environment' 'v w' "$(SOME_NAME='v w' "$sandbox" sh -c 'echo "$SOME_NAME"')"
  expect 'working directory' "$PWD/tests" "$(cd tests && "$sandbox" pwd)"
}

test_signals() {
  "$sandbox" bash -c 'trap "exit 3" TERM; echo up; while :; do sleep 0.02; done' >"$work/up" &
  local pid=$!
  wait_until test -s "$work/up" || expect 'the command starts' yes no
  kill -TERM $pid
  wait $pid
  expect 'a signal reaches the command' 3 $?
}

# What a sandbox could leave on the machine: mounts, interfaces, and the folders it is put together from.
traces() { cat /proc/mounts; ip -o link show | cut -d' ' -f1,2; ls -A /media /mnt /srv /opt /usr; ls -d /run/mount 2>/dev/null; }

test_leaves_nothing() {
  local mark="mark-$$-$RANDOM" before private
  before=$(traces)
  private="/tmp/$mark /var/tmp/$mark /run/$mark /etc/$mark /var/log/$mark /dev/shm/$mark /dev/$mark /$mark /usr/varn/$mark"
  "$sandbox" bash -c "setsid sleep 1000 & bash -c 'exec -a $mark sleep 1000' & touch $private || echo cannot >&2"
  expect 'files left on the machine' '' "$(ls -d $private 2>/dev/null)"
  expect 'processes left after the command ended' 0 "$(running "$mark")"

  "$sandbox" bash -c 'exec -a "$0" sleep 1000' "$mark" &
  local pid=$!
  wait_until is_running "$mark" || expect 'the command starts' yes no
  kill -KILL $pid
  wait $pid 2>/dev/null
  wait_until is_gone "$mark"
  expect 'processes left after the sandbox was killed' 0 "$(running "$mark")"
  expect 'traces on the machine' "$before" "$(traces)"
}

test_shows_the_device() {
  local script='
    stat -c "%a %u:%g" /usr/varn/etc/varnholt-account/private
    getent passwd 934; getent group varnaccount
    cat /etc/varninfo.conf
    ls /usr/varn/etc.defaults/varnholt-account/config /etc/cron.d /var/spool/cron/crontabs /sys/fs/cgroup/systemd
    ls /sys/class/net
    for name in account identity payment; do getent hosts $name.kivo.example $name-test.kivo.example; done | cut -d" " -f1 | sort | uniq -c | tr -s " "
    touch /usr/bin/x /root/x /boot/x 2>/dev/null || echo read-only
    echo CA >>/etc/ssl/certs/ca-certificates.crt && tail -n 1 /etc/ssl/certs/ca-certificates.crt
    echo x >/etc/new && echo y >/tmp/new && echo z >/run/new && cat /etc/new /tmp/new /run/new'
  expect 'the device' "700 934:934
varnaccount:x:934:934::/nonexistent:/usr/sbin/nologin
varnaccount:x:934:
language=\"enu\"
/etc/cron.d:

/sys/fs/cgroup/systemd:

/usr/varn/etc.defaults/varnholt-account/config:
pkce_login.conf
pkce_register.conf

/var/spool/cron/crontabs:
lo
 6 127.0.0.1
read-only
CA
x
y
z" "$("$sandbox" sh -c "$script")"
  expect 'a private network' "$("$sandbox" perl -MSocket -e '
    socket(my $s, PF_INET, SOCK_STREAM, 0); $< = $> = 1000;
    print bind($s, pack_sockaddr_in(443, INADDR_LOOPBACK)) ? "bound" : "$!"')" bound
}

test_trees_below_tmp() {
  mkdir -p "$work/build/tools/varnkivo" "$work/other"
  : >"$work/build/CMakeCache.txt"
  printf '#!/bin/sh\necho tool "$#"\n' >"$work/build/tools/varnkivo/varnkivo"
  printf '#!/bin/sh\necho test; echo written >"$(dirname "$0")/out"; ls "$1"\nenv -i /usr/varn/bin/varnkivo a b\n' >"$work/build/some_test"
  chmod +x "$work/build/tools/varnkivo/varnkivo" "$work/build/some_test"
  expect 'trees below /tmp' "test
build
tree
tool 2" "$(unset VARNKIVO_BUILD; "$work/tree/scripts/sandbox" "$work/build/some_test" "$work" 2>&1)"
  expect 'the build tree can be written' written "$(cat "$work/build/out")"
}

test_collects_the_log() {
  local script='
    logger --socket-errors=on -p auth.err -t one "first
second"; i=0
    while [ $i -lt 200 ]; do logger -p user.info -t many "number $i"; i=$((i + 1)); done
    until [ "$(wc -l </var/log/syslog)" -ge 201 ]; do sleep 0.02; done
    head -n 1 /var/log/syslog | sed "s/>.* one:/>/"; grep -c " many: number [0-9]*$" /var/log/syslog'
  expect 'the log' '<35> first#012second
200' "$(timeout 20 "$sandbox" sh -c "$script")"
}

test_starts_at_once() {
  local best=100000 start took
  for _ in 1 2 3 4 5; do
    start=${EPOCHREALTIME/./}
    "$sandbox" true
    took=$((${EPOCHREALTIME/./} - start))
    [ $took -ge $best ] || best=$took
  done
  [ $best -lt 300000 ] || expect 'the best of five starts' 'below 300 ms' "$((best / 1000)) ms"
  echo "the sandbox starts in $((best / 1000)) ms"
}

test_refuses_what_it_cannot_do() {
  VARNKIVO_SANDBOX=somehow "$sandbox" true 2>"$work/said"
  expect 'status for an unknown mode' 125 $?
  expect 'words for an unknown mode' 1 "$(grep -c somehow "$work/said")"
  PATH=/usr/bin:/bin setpriv --reuid 65534 --regid 65534 --clear-groups env -u VARNKIVO_BUILD \
    sh -c 'command -v sudo >/dev/null && sudo -n true 2>/dev/null && exit 125; exec "$0" true' \
    "$work/tree/scripts/sandbox" 2>"$work/said"
  expect 'status for an ordinary user' 125 $?
}

# The disposable container of this test is a sandbox: its files are the ones overwritten.
test_in_place() {
  expect 'in place' '700 934
in
1
5' "$("$sandbox" sh -c 'echo old >/usr/varn/old; VARNKIVO_SANDBOX=in-place scripts/sandbox sh -c "
      stat -c \"%a %u\" /usr/varn/etc/varnholt-account/private; ls /usr/varn/old; echo in; exit 5" 2>/tmp/said
    status=$?; grep -c "overwrites /usr/varn" /tmp/said; echo $status' 2>/dev/null)"
}

for name in $(declare -F | sed -n 's/declare -f \(test_.*\)/\1/p'); do
  [ $# -gt 0 ] && [[ " $* " != *" $name "* ]] || "$name"
done
[ $failures = 0 ] || { echo "$failures expectations failed"; exit 1; }
