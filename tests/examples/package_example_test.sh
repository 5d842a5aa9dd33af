#!/usr/bin/env bash
# The two examples for package authors against the simulated cloud: the requests they make, with whose token, and what
# an ordinary user gets. Runs inside scripts/sandbox; everything it starts ends with it.
set -uo pipefail

work=$(mktemp -d)
sim= failures=0
end() { [ -z "$sim" ] || { kill "$sim" && wait "$sim"; } 2>/dev/null; rm -rf "$work"; }
trap end EXIT
die() { echo "package_example_test: $*"; exit 1; }
expect() {  # expect WHAT WANTED GOT
  [ "$2" = "$3" ] && return
  printf 'FAILED: %s\n  wanted: %s\n  got:    %s\n' "$1" "$2" "$3"
  failures=$((failures + 1))
}
control() { curl -sf -o "$work/control" "$control/$1" -d "$2" || die "the simulator refuses $1 $2"; }

examples=$(dirname "$0")/../../examples/package
program=$VARNKIVO_BUILD/examples/package/varnkivo-package
script=$(realpath "$examples/package.sh")
export PATH=/usr/varn/bin:$PATH
private=/usr/varn/etc/varnholt-account/private
url=https://account.kivo.example/photos/albums

"$VARNKIVO_BUILD/sim/varnkivo-sim" --trust-into --account 'ann@example.com:correct horse:1001' >"$work/sim" &
sim=$!
for _ in $(seq 200); do
  [ ! -s "$work/sim" ] || break
  kill -0 $sim || die 'the simulator did not start'
  sleep 0.05
done
control=$(sed 's/.*"control":"\([^"]*\)".*/\1/' "$work/sim")

# What the service answers to the next calls; each answer once.
service() {
  local status
  curl -sf -X DELETE "$control/journal" -o "$work/control" || die 'the journal cannot be emptied'
  for status in "$@"; do
    control faults "{\"path\":\"photos/albums\",\"status\":$status,\"body\":\"\",\"skip_handler\":true}"
  done
}
# The "Authorization" of each call that the service has seen.
seen() {
  curl -sf "$control/journal" | python3 -c '
import json, sys
for entry in json.load(sys.stdin):
    request = entry.get("request", {})
    if entry["complaint"]: print("complaint:", entry["complaint"])
    if request.get("target") == "/photos/albums":
        print(*[value for name, value in request["headers"] if name.lower() == "authorization"], sep=",")'
}
stored() { python3 -c 'import json; print("Bearer " + json.load(open("'$private'/photos_token.json"))["access_token"])'; }
# run STATUS COMMAND...: what it prints is in out and err.
run() {
  "${@:2}" >"$work/out" 2>"$work/err"
  expect "the exit code of ${*:2}" "$1" $?
}

examples=("$program" "$script")
for example in "${examples[@]}"; do
  name=${example##*/}
  service
  run $([ "$example" = "$program" ] && echo 1 || echo 3) "$example" photos $url
  expect "$name: a device that is not signed in" '' "$(seen)$(cat "$work/out")"
  run 2 "$example" photos
done
echo 'correct horse' | varnkivo login --email ann@example.com --password-stdin >"$work/out" || die 'nobody can sign in'

for example in "${examples[@]}"; do
  name=${example##*/}
  rm -f $private/photos_token.json
  service 200
  run 0 "$example" photos $url
  expect "$name: what it prints" "photos called $url: 200" "$(cat "$work/out" "$work/err")"
  expect "$name: the token in the request" "$(stored)" "$(seen)"

  first=$(stored)
  service 200
  run 0 "$example" photos $url
  expect "$name: the same token again" "$first" "$(seen)"

  service 401 200
  run 0 "$example" photos $url
  expect "$name: a token that the service refuses, and a new one" "$first"$'\n'"$(stored)" "$(seen)"
  [ "$first" != "$(stored)" ] || expect "$name: a new token" 'another one' "$first"

  service 401 401
  run 1 "$example" photos $url
  service 500
  run 1 "$example" photos $url

  # An ordinary user's program: the tokens are not for everybody, and nothing is sent.
  service
  run $([ "$example" = "$program" ] && echo 1 || echo 7) setpriv --reuid=1000 --regid=1000 --clear-groups "$example" photos $url
  expect "$name: an ordinary user" '' "$(seen)$(cat "$work/out")"
  run 1 "$example" photos https://127.0.0.1:9/
done

# How an administrator hands one to a program of an ordinary user.
run 0 varnkivo exec --package photos -- setpriv --reuid=1000 --regid=1000 --clear-groups \
  sh -c 'id -u; echo "Bearer $VARNKIVO_ACCESS_TOKEN"'
expect 'a program that an administrator runs' $'1000\n'"$(stored)" "$(cat "$work/out")"

# A token whose time is over.
control token-lifetime '{"seconds":0,"client_id":"kivo-package-photos"}'
varnkivo token --package photos --force >"$work/out" || die 'no token was granted'
first=$(stored)
control token-lifetime '{"seconds":3600,"client_id":"kivo-package-photos"}'
sleep 2
service 200
run 0 "$program" photos $url
expect 'a token renewed' "$(stored)" "$(seen)"
[ "$first" != "$(stored)" ] || expect 'a token whose time is over' 'another one' "$first"

[ $failures = 0 ] || die "$failures expectations were not met"
echo 'package_example_test: everything was as it should be'
